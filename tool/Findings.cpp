#include "tool/Findings.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <format>
#include <ostream>
#include <utility>

namespace {

constexpr int LARGEST_EXIT_CODE = 99; // the command line's own errors begin at 100
constexpr size_t WIDEST_SUBJECT = 44;
constexpr Verdict VERDICTS[] = {Verdict::Fault, Verdict::Note, Verdict::Good};

const char* nameOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Fault:
        return "FAULT";
    case Verdict::Note:
        return "note";
    default:
        return "ok";
    }
}

const char* colourOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Fault:
        return "\x1b[31m";
    case Verdict::Note:
        return "\x1b[33m";
    default:
        return "\x1b[32m";
    }
}

std::wstring widened(const std::string& text, UINT from)
{
    std::wstring wide(text.size(), L'\0'); // no code page makes more units than bytes
    const auto size = static_cast<int>(text.size());
    wide.resize(static_cast<size_t>(MultiByteToWideChar(from, 0, text.data(), size, wide.data(), size)));
    return wide;
}

std::string narrowed(const std::wstring& wide, UINT to)
{
    std::string result(wide.size() * 4, '\0');
    result.resize(static_cast<size_t>(WideCharToMultiByte(to, 0, wide.data(), static_cast<int>(wide.size()), result.data(),
                                                          static_cast<int>(result.size()), nullptr, nullptr)));
    return result;
}

} // namespace

std::string toUtf8(const std::string& narrow)
{
    return narrowed(widened(narrow, CP_ACP), CP_UTF8);
}

std::string fromUtf8(const std::string& utf8)
{
    return narrowed(widened(utf8, CP_UTF8), CP_ACP);
}

std::filesystem::path toPath(const std::string& narrow)
{
    return widened(narrow, CP_ACP);
}

std::string fromPath(const std::filesystem::path& path)
{
    return narrowed(path.native(), CP_ACP);
}

void CFindings::fault(std::string area, std::string subject, std::string state, std::string remedy)
{
    m_rows.push_back({Verdict::Fault, std::move(area), std::move(subject), std::move(state), std::move(remedy)});
}

void CFindings::note(std::string area, std::string subject, std::string state, std::string remedy)
{
    m_rows.push_back({Verdict::Note, std::move(area), std::move(subject), std::move(state), std::move(remedy)});
}

void CFindings::good(std::string area, std::string subject, std::string state)
{
    m_rows.push_back({Verdict::Good, std::move(area), std::move(subject), std::move(state), ""});
}

void CFindings::check(bool holds, std::string area, std::string subject, std::string goodState, std::string faultState,
                      std::string remedy)
{
    if (holds) {
        good(std::move(area), std::move(subject), std::move(goodState));
    } else {
        fault(std::move(area), std::move(subject), std::move(faultState), std::move(remedy));
    }
}

void CFindings::append(const CFindings& other)
{
    m_rows.insert(m_rows.end(), other.m_rows.begin(), other.m_rows.end());
}

int CFindings::faultCount() const
{
    return static_cast<int>(std::ranges::count(m_rows, Verdict::Fault, &Row::verdict));
}

int CFindings::exitCode() const
{
    return std::min(faultCount(), LARGEST_EXIT_CODE);
}

std::string CFindings::nextStep() const
{
    const auto fault = std::ranges::find(m_rows, Verdict::Fault, &Row::verdict);
    return fault == m_rows.end() ? "Next: " + m_nextStep : "Next: " + fault->remedy;
}

void CFindings::print(std::ostream& out, bool isColoured) const
{
    size_t areaWidth = 0;
    size_t subjectWidth = 0;
    for (const Row& row : m_rows) {
        areaWidth = std::max(areaWidth, row.area.size());
        subjectWidth = std::max(subjectWidth, std::min(row.subject.size(), WIDEST_SUBJECT));
    }
    for (const Verdict verdict : VERDICTS) {
        for (const Row& row : m_rows) {
            if (row.verdict != verdict) {
                continue;
            }
            const std::string word = std::format("{:<5}", nameOf(verdict));
            out << (isColoured ? colourOf(verdict) + word + "\x1b[0m" : word)
                << std::format("  {:<{}}  {:<{}}  {}\n", row.area, areaWidth, row.subject, subjectWidth, row.state);
            if (!row.remedy.empty()) {
                out << "         -> " << row.remedy << "\n";
            }
        }
    }
}

nlohmann::json CFindings::json() const
{
    nlohmann::json rows = nlohmann::json::array();
    for (const Row& row : m_rows) {
        rows.push_back({{"verdict", nameOf(row.verdict)},
                        {"area", toUtf8(row.area)},
                        {"subject", toUtf8(row.subject)},
                        {"state", toUtf8(row.state)},
                        {"remedy", toUtf8(row.remedy)}});
    }
    return {{"findings", faultCount()}, {"next", toUtf8(nextStep())}, {"rows", rows}};
}
