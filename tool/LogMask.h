// Takes the texts of calls, properties and events out of logs, so that they can be given away.
//
// Masks by default: of a line that may contain a client's or control's text, only what is known to be safe stays.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

inline constexpr std::string_view MASK = "***";

// A line of the server's log, with or without header, as it may be given away.
std::string maskedLogLine(std::string_view line);

// Masks what Java writes when it crashes, line by line: texts in its memory are left out, with all of their lines.
class CCrashMask
{
public:
    std::string operator()(std::string_view line);

private:
    bool m_isInText = false;
};

// Reads a text file line by line, masks each line and hands it on with its line end. A file that cannot be read gives nothing.
using LineMask = std::function<std::string(std::string_view)>;
void maskFile(const std::filesystem::path& path, const LineMask& mask, const std::function<void(std::string_view)>& sink);
