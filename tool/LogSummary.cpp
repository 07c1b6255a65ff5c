#include "tool/LogSummary.h"

#include "tool/Findings.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <format>
#include <ostream>
#include <utility>

namespace {

constexpr size_t MOST_ERRORS = 1000; // different ones
constexpr size_t MOST_MILESTONES = 200;
constexpr size_t MOST_SLOW_CALLS = 20;
constexpr size_t PRINTED_FUNCTIONS = 25;

bool isShorter(const auto& left, const auto& right)
{
    return left.milliseconds > right.milliseconds;
}

} // namespace

void CBacktraces::end()
{
    if (!m_open.empty()) {
        m_open.pop_back();
    }
}

bool CBacktraces::isBegin(const LogLine& line)
{
    if (line.level != 1 || line.marker != LogMarker::Plain || m_announced == 0 || std::ranges::count(m_open, line.thread) != 0) {
        return false;
    }
    m_announced--;
    m_open.push_back(line.thread);
    return true;
}

bool CBacktraces::isPart(const LogLine& line)
{
    const auto found = std::ranges::find(m_open, line.thread);
    if (found == m_open.end() || line.marker != LogMarker::Entry) {
        return false;
    }
    std::rotate(found, found + 1, m_open.end());
    return true;
}

void CLogSummary::line(const LogLine& line)
{
    m_begin = m_begin < 0 ? line.time : m_begin;
    m_levels[line.level]++;
    Thread& thread = m_threads[line.thread];
    thread.lines++;
    if (thread.first.empty()) {
        thread.first = line.date;
    }
    thread.last.assign(line.date);
    const bool isBegin = m_backtraces.isBegin(line);
    if (line.level == 1 && line.marker == LogMarker::Plain) {
        closeError(line.thread);
        m_errorCount++;
        m_open[line.thread] = {std::string(line.date),
                               std::to_string(line.thread),
                               std::format("{} {:03}  {}", line.module, line.sourceLine, line.text),
                               {}};
        if (!isBegin) {
            closeError(line.thread);
        }
    } else if (m_backtraces.isPart(line)) {
        m_open[line.thread].functions.push_back(line.function());
    } else {
        closeError(line.thread);
        if (line.marker == LogMarker::Exit) {
            addExit(line);
        }
    }
    if (line.marker == LogMarker::Plain && line.message().starts_with("CHECKPOINT: ") && m_milestones.size() < MOST_MILESTONES) {
        m_milestones.push_back({std::string(line.date), line.time - m_begin, std::string(line.message())});
    }
}

void CLogSummary::continuation(std::string_view text)
{
    // The rest of an error's message, as far as it is not another thread's.
    if (m_open.size() == 1 && m_open.begin()->second.functions.empty()) {
        m_open.begin()->second.text.append("\n").append(text);
    }
}

// Equal errors are one, counted.
void CLogSummary::closeError(uint32_t thread)
{
    const auto found = m_open.find(thread);
    if (found == m_open.end()) {
        return;
    }
    Error error = std::move(found->second);
    m_open.erase(found);
    std::string key = error.text;
    for (const std::string& function : error.functions) {
        key += "\n" + function;
    }
    if (const auto known = m_known.find(key); known != m_known.end()) {
        m_errors[known->second].count++;
    } else if (m_errors.size() < MOST_ERRORS) {
        m_known.emplace(std::move(key), m_errors.size());
        m_errors.push_back(std::move(error));
    }
}

void CLogSummary::addExit(const LogLine& line)
{
    const std::string name = line.function();
    auto found = m_functions.find(name);
    if (found == m_functions.end()) {
        found = m_functions.emplace(name, Function()).first;
    }
    const int milliseconds = line.milliseconds();
    found->second.calls++;
    found->second.milliseconds += std::max(0, milliseconds);
    found->second.longest = std::max(found->second.longest, milliseconds);
    if (milliseconds > 0 && (m_slow.size() < MOST_SLOW_CALLS || milliseconds > m_slow.front().milliseconds)) {
        if (m_slow.size() == MOST_SLOW_CALLS) {
            std::ranges::pop_heap(m_slow, isShorter<SlowCall, SlowCall>);
            m_slow.pop_back();
        }
        m_slow.push_back({milliseconds, std::string(line.date), line.thread, std::string(line.text)});
        std::ranges::push_heap(m_slow, isShorter<SlowCall, SlowCall>);
    }
}

std::vector<std::pair<std::string, CLogSummary::Function>> CLogSummary::functionsByCalls() const
{
    std::vector<std::pair<std::string, Function>> sorted(m_functions.begin(), m_functions.end());
    std::ranges::stable_sort(sorted, [](const auto& left, const auto& right) { return left.second.calls > right.second.calls; });
    return sorted;
}

// A registry key that is missing is rarely the cause: those errors come last.
std::vector<CLogSummary::Error> CLogSummary::sortedErrors() const
{
    std::vector<Error> errors = m_errors;
    for (const auto& [thread, error] : m_open) {
        errors.push_back(error);
    }
    std::ranges::stable_partition(errors, [](const Error& error) { return !error.text.starts_with("registry "); });
    for (Error& error : errors) {
        error.text.erase(error.text.find_last_not_of('\n') + 1);
    }
    return errors;
}

std::string CLogSummary::nextStep() const
{
    if (m_begin < 0) {
        return "Next: name a file that the server or its control has written; no line of this one can be read.";
    }
    if (m_errorCount == 0) {
        return "Next: nothing to do; the log has no errors.";
    }
    return "Next: begin with the first error above, which is usually the cause of those after it; KESTAtool check names what to "
           "mend.";
}

void CLogSummary::print(std::ostream& out, const LogCounts& counts, bool isColoured) const
{
    const char* const red = isColoured ? "\x1b[31m" : "";
    const char* const plain = isColoured ? "\x1b[0m" : "";
    out << std::format("Errors: {}, different ones: {}\n", m_errorCount, m_errors.size() + m_open.size());
    for (const Error& error : sortedErrors()) {
        out << std::format("{}{} x{}{}  {}  thread {}\n", red, error.text, error.count, plain, error.first, error.thread);
        std::string chain;
        for (const std::string& function : error.functions) {
            chain += (chain.empty() ? "" : " < ") + function;
        }
        out << (chain.empty() ? "" : "    in " + chain + "\n");
    }
    std::vector<SlowCall> slow = m_slow;
    std::ranges::sort(slow, isShorter<SlowCall, SlowCall>);
    out << "\nSlow calls (the longest, of 10 ms and more)\n";
    for (const SlowCall& call : slow) {
        out << std::format("{:>8} ms  {}  {:05}  {}\n", call.milliseconds, call.date, call.thread, call.text);
    }
    out << "\nCalls that ended    of 10 ms and more: total    longest   function\n";
    const auto functions = functionsByCalls();
    for (size_t index = 0; index < std::min(functions.size(), PRINTED_FUNCTIONS); index++) {
        const auto& [name, function] = functions[index];
        out << std::format("{:>16}{:>27} ms{:>8} ms   {}\n", function.calls, function.milliseconds, function.longest, name);
    }
    if (functions.size() > PRINTED_FUNCTIONS) {
        out << std::format("(and {} more functions: --json has all)\n", functions.size() - PRINTED_FUNCTIONS);
    }
    out << "\nThread      lines  from                     to\n";
    for (const auto& [id, thread] : m_threads) {
        out << std::format("{:05}  {:>10}  {}  {}\n", id, thread.lines, thread.first, thread.last);
    }
    out << std::format("\nMilestones (ms since the log began; the first {} at most)\n", MOST_MILESTONES);
    for (const Milestone& milestone : m_milestones) {
        out << std::format("{:>10}  {}\n", milestone.milliseconds, milestone.text);
    }
    out << std::format("\n{} bytes, {} lines, {} continued, {} banners, {} broken or cut and skipped\n", counts.bytes,
                       counts.lines, counts.continuations, counts.banners, counts.broken);
}

nlohmann::json CLogSummary::json(const LogCounts& counts) const
{
    using nlohmann::json;
    json result = {{"findings", m_errorCount},
                   {"next", nextStep()},
                   {"counts",
                    {{"bytes", counts.bytes},
                     {"lines", counts.lines},
                     {"continued", counts.continuations},
                     {"banners", counts.banners},
                     {"broken", counts.broken}}},
                   {"errors", json::array()},
                   {"slowCalls", json::array()},
                   {"functions", json::array()},
                   {"threads", json::array()},
                   {"milestones", json::array()},
                   {"levels", json::object()}};
    for (const Error& error : sortedErrors()) {
        result["errors"].push_back({{"text", toUtf8(error.text)},
                                    {"count", error.count},
                                    {"first", error.first},
                                    {"thread", error.thread},
                                    {"functions", error.functions}});
    }
    std::vector<SlowCall> slow = m_slow;
    std::ranges::sort(slow, isShorter<SlowCall, SlowCall>);
    for (const SlowCall& call : slow) {
        result["slowCalls"].push_back(
            {{"milliseconds", call.milliseconds}, {"date", call.date}, {"thread", call.thread}, {"text", toUtf8(call.text)}});
    }
    for (const auto& [name, function] : functionsByCalls()) {
        result["functions"].push_back({{"name", toUtf8(name)},
                                       {"calls", function.calls},
                                       {"milliseconds", function.milliseconds},
                                       {"longest", function.longest}});
    }
    for (const auto& [id, thread] : m_threads) {
        result["threads"].push_back({{"id", id}, {"lines", thread.lines}, {"first", thread.first}, {"last", thread.last}});
    }
    for (const Milestone& milestone : m_milestones) {
        result["milestones"].push_back(
            {{"date", milestone.date}, {"milliseconds", milestone.milliseconds}, {"text", toUtf8(milestone.text)}});
    }
    for (const auto& [level, count] : m_levels) {
        result["levels"][getLogLevelName(level)] = count;
    }
    return result;
}
