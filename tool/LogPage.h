// The scopes of a log as one HTML page that needs no network: a timeline for each thread, foldable scopes, search.
//
// Holds as many scopes as a browser can handle, the longest ones, and says how many there are.
#pragma once

#include "tool/LogScopes.h"

#include <set>
#include <string>
#include <vector>

class CLogPage : public CLogScopes
{
public:
    // Throws std::runtime_error when the file cannot be written. To be called after finish().
    void write(const std::string& path, const std::string& title, const LogCounts& counts) const;
    long long scopeCount() const { return m_scopeCount; }

    static constexpr size_t MOST_SCOPES = 20000;
    static constexpr size_t MOST_EVENTS = 5000;

    void line(const LogLine& line) override;

protected:
    void scope(const LoggedScope& scope) override;
    void event(const LoggedEvent& event) override;

private:
    std::vector<LoggedScope> m_scopes; // a heap with the shortest in front
    std::vector<LoggedEvent> m_events; // the first ones
    std::set<uint32_t> m_threads;      // also those whose scopes are all too short
    long long m_scopeCount = 0;
    long long m_eventCount = 0;
};
