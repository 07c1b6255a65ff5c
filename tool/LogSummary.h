// What happened according to a log: errors, slow calls, counts, threads, milestones. Memory grows with the number of different
// functions, threads and errors, not with the log.
//
// Threads: one. Failure: only exhausted memory throws.
#pragma once

#include "tool/LogReader.h"

#include <nlohmann/json_fwd.hpp>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

// Follows a log's backtraces, which several threads may write at once.
class CBacktraces
{
public:
    void begin() { m_announced++; }
    void end();
    // True when the line begins a backtrace: the error that it is about.
    bool isBegin(const LogLine& line);
    // True when the line belongs to its thread's backtrace. Such a line repeats when a function began.
    bool isPart(const LogLine& line);

private:
    int m_announced = 0;
    std::vector<uint32_t> m_open; // threads, the one that wrote last at the end
};

class CLogSummary : public CLogVisitor
{
public:
    void line(const LogLine& line) override;
    void continuation(std::string_view text) override;
    void backtraceBegin() override { m_backtraces.begin(); }
    void backtraceEnd() override { m_backtraces.end(); }

    long long errorCount() const { return m_errorCount; }
    void print(std::ostream& out, const LogCounts& counts, bool isColoured) const;
    nlohmann::json json(const LogCounts& counts) const;
    // One line about what to do.
    std::string nextStep() const;

private:
    struct Error
    {
        std::string first; // date and time
        std::string thread;
        std::string text;
        std::vector<std::string> functions; // innermost first
        long long count = 1;
    };
    struct Function
    {
        long long calls = 0; // that ended
        long long milliseconds = 0;
        int longest = 0;
    };
    struct SlowCall
    {
        int milliseconds;
        std::string date;
        uint32_t thread;
        std::string text;
    };
    struct Thread
    {
        long long lines = 0;
        std::string first;
        std::string last;
    };
    struct Milestone
    {
        std::string date;
        int64_t milliseconds; // since the log began
        std::string text;
    };

    std::vector<Error> sortedErrors() const;
    void closeError(uint32_t thread);
    void addExit(const LogLine& line);
    std::vector<std::pair<std::string, Function>> functionsByCalls() const;

    CBacktraces m_backtraces;
    std::vector<Error> m_errors;
    std::map<uint32_t, Error> m_open; // whose backtrace has not ended
    std::map<std::string, size_t> m_known;
    std::map<std::string, Function, std::less<>> m_functions;
    std::vector<SlowCall> m_slow; // the longest, in no order
    std::map<uint32_t, Thread> m_threads;
    std::vector<Milestone> m_milestones;
    std::map<int, long long> m_levels;
    long long m_errorCount = 0;
    int64_t m_begin = -1;
};
