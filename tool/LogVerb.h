// The verb "log": what a log file tells, in any of its forms, in one pass over the file.
//
// Failure: a file that cannot be read or written throws std::runtime_error.
#pragma once

#include <ostream>
#include <string>

struct LogOrder
{
    std::string file = {};
    std::string traceFile = {}; // empty: none is written
    std::string htmlFile = {};  // the same
    bool isFollowing = false;
    bool isJson = false;
    bool isColoured = false;
};

// Returns the number of errors, at most 99.
int readLog(const LogOrder& order, std::ostream& out);

// The file in which a process goes on after `file`: "x.log", "x-0001.log", "x-0002.log".
std::string nextLogFile(const std::string& file);
