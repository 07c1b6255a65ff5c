// Reads a log file from front to end, whatever its size, and hands its lines on. Uses constant memory.
//
// Threads: one. Failure: a line that is broken or cut is counted and skipped; a file that cannot be opened throws
// std::runtime_error.
#pragma once

#include "tool/LogLine.h"

#include <fstream>
#include <string>
#include <string_view>

// What a reader meets, in the order of the file.
class CLogVisitor
{
public:
    virtual ~CLogVisitor() = default;
    virtual void line(const LogLine& line) = 0;
    // A line without header that continues the message before it.
    virtual void continuation(std::string_view text) = 0;
    virtual void backtraceBegin() = 0;
    virtual void backtraceEnd() = 0;
};

struct LogCounts
{
    long long bytes = 0;
    long long lines = 0;         // with a header
    long long continuations = 0; // without one
    long long banners = 0;
    long long broken = 0; // unreadable, or cut at the end of the file
};

class CLogReader
{
public:
    explicit CLogReader(const std::string& path);

    // Reads to the file's present end. May be called again when the file has grown.
    void read(CLogVisitor& visitor);
    // The rest behind the last line feed is a cut line.
    void finish();

    const LogCounts& counts() const { return m_counts; }

private:
    void takeLine(std::string_view text, CLogVisitor& visitor);

    std::ifstream m_file;
    std::string m_rest; // a line that has not ended yet
    bool m_isOverlong = false;
    bool m_hasMessage = false; // a line with a header came before
    LogCounts m_counts;
};
