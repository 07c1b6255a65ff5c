// The log lines of one module, for tests of its texts and their order.
#pragma once

#include "tests/support/fixtures.h"

#include <regex>
#include <string>
#include <vector>

// "LEVEL text" of each line that the module wrote, with "-> " and "<- " in front of the text where a scope begins and ends,
// without indentation and without the time that a scope took.
inline std::vector<std::string> moduleLines(const fixtures::DebugStream& stream, const std::string& module)
{
    static const std::regex s_elapsed(" \\[\\d+ ms\\]$");
    std::vector<std::string> result;
    for (const fixtures::LogLine& line : stream.lines()) {
        if (line.source.substr(0, line.source.find(' ')) != module) {
            continue;
        }
        const std::string text = line.body.substr(line.body.find_first_not_of(' '));
        result.push_back(line.level + " " + (text.starts_with("<- ") ? std::regex_replace(text, s_elapsed, "") : text));
    }
    return result;
}

inline std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& part)
{
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        if (line.find(part) != std::string::npos) {
            result.push_back(line);
        }
    }
    return result;
}
