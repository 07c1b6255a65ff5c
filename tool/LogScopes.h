// The scopes of a log: functions with their begin and end, put together from entry and exit lines, for each thread.
//
// Threads: one. Failure: a scope whose entry or exit is missing is reported with what is known; only exhausted memory throws.
#pragma once

#include "tool/LogReader.h"
#include "tool/LogSummary.h"

#include <map>
#include <string>
#include <vector>

struct LoggedScope
{
    uint32_t thread;
    int depth;
    int64_t begin; // milliseconds since the log's first line; negative when it is older than that
    int64_t end;
    std::string module;
    std::string function;
    std::string text;
    bool isEnded; // false: the log ends before the scope does, and `end` is the log's
};

struct LoggedEvent
{
    uint32_t thread;
    int64_t time;
    int level;
    std::string text;
};

class CLogScopes : public CLogVisitor
{
public:
    void line(const LogLine& line) override;
    void continuation(std::string_view) override {}
    void backtraceBegin() override { m_backtraces.begin(); }
    void backtraceEnd() override { m_backtraces.end(); }
    // Tells of the scopes that have not ended.
    void finish();

protected:
    // Inner scopes come before those around them.
    virtual void scope(const LoggedScope& scope) = 0;
    // An error, a warning or a milestone.
    virtual void event(const LoggedEvent& event) = 0;

private:
    void open(const LogLine& line);
    void close(const LogLine& line);

    CBacktraces m_backtraces;
    std::map<uint32_t, std::vector<LoggedScope>> m_open;
    int64_t m_first = -1;
    int64_t m_last = 0;
};
