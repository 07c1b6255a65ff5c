#include "tool/LogPage.h"

#include "tool/Findings.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>

namespace {

// The page with a place for its data.
const std::string_view TEMPLATE =
#include "logPage.inc"
    ;
const std::string_view PLACE = "\"DATA\"";

// Longer scopes come first; of equally long ones the outer.
bool isBefore(const LoggedScope& left, const LoggedScope& right)
{
    const int64_t leftTime = left.end - left.begin;
    const int64_t rightTime = right.end - right.begin;
    return leftTime != rightTime ? leftTime > rightTime : left.depth < right.depth;
}

} // namespace

void CLogPage::line(const LogLine& line)
{
    m_threads.insert(line.thread);
    CLogScopes::line(line);
}

void CLogPage::scope(const LoggedScope& scope)
{
    m_scopeCount++;
    if (m_scopes.size() == MOST_SCOPES) {
        if (!isBefore(scope, m_scopes.front())) {
            return;
        }
        std::ranges::pop_heap(m_scopes, isBefore);
        m_scopes.pop_back();
    }
    m_scopes.push_back(scope);
    std::ranges::push_heap(m_scopes, isBefore);
}

void CLogPage::event(const LoggedEvent& event)
{
    m_eventCount++;
    if (m_events.size() < MOST_EVENTS) {
        m_events.push_back(event);
    }
}

void CLogPage::write(const std::string& path, const std::string& title, const LogCounts& counts) const
{
    using nlohmann::json;
    std::map<uint32_t, json> threads;
    for (const uint32_t id : m_threads) {
        threads[id] = {{"id", id}, {"scopes", json::array()}, {"events", json::array()}};
    }
    std::map<std::string, size_t> numbers;
    json names = json::array();
    for (const LoggedScope& scope : m_scopes) {
        const auto [place, isNew] = numbers.try_emplace(scope.function, numbers.size());
        if (isNew) {
            names.push_back(toUtf8(scope.function));
        }
        threads[scope.thread]["scopes"].push_back(
            {scope.begin, scope.end - scope.begin, scope.depth, place->second, toUtf8(scope.text), scope.isEnded ? 1 : 0});
    }
    for (const LoggedEvent& event : m_events) {
        threads[event.thread]["events"].push_back({event.time, event.level, toUtf8(event.text)});
    }
    json data = {{"title", toUtf8(title)},         {"lines", counts.lines},    {"broken", counts.broken},
                 {"scopes", m_scopeCount},         {"shown", m_scopes.size()}, {"events", m_eventCount},
                 {"shownEvents", m_events.size()}, {"names", names},           {"threads", json::array()}};
    for (const auto& [id, thread] : threads) {
        data["threads"].push_back(thread);
    }
    std::string text = data.dump(-1, ' ', false, json::error_handler_t::replace);
    // A text of the log must not end the script that holds it.
    for (size_t at = 0; (at = text.find("</", at)) != std::string::npos; at += 3) {
        text.insert(at + 1, "\\");
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    const size_t place = TEMPLATE.find(PLACE);
    file << TEMPLATE.substr(0, place) << text << TEMPLATE.substr(place + PLACE.size()) << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}
