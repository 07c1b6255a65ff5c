// One line of a log file, taken apart.
//
// Ownership: a line points into the text that it was made from. Threads: any. Failure: a text that is no line with a header gives
// nothing.
#pragma once

#include "support/logger.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum class LogMarker : unsigned char { Plain, Entry, Exit };

struct LogLine
{
    int64_t time;          // milliseconds; only differences mean something
    std::string_view date; // with the time, as it is written
    uint32_t thread;
    int level; // 0 ALWAYS to 5 TRACE
    std::string_view module;
    int sourceLine;
    int depth; // of indentation, at most 20
    LogMarker marker;
    std::string_view text; // class name and object included

    // For an exit that says how long the function took, else -1. Only 10 ms and more are written.
    int milliseconds() const;
    // The function that a scope's line is about: "Class::name", "name" without class, "module line" when the text is empty.
    std::string function() const;
    // What follows class name and object.
    std::string_view message() const;
};

std::optional<LogLine> parseLogLine(std::string_view line);

// The lines around a backtrace.
inline constexpr std::string_view BACKTRACE_BEGIN = LOG_BANNER_BEGIN.substr(0, LOG_BANNER_BEGIN.size() - 1);
inline constexpr std::string_view BACKTRACE_END = LOG_BANNER_END.substr(0, LOG_BANNER_END.size() - 1);
