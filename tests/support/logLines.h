// Parsed log lines, from a file's text or from the debugger stream.
//
//     fixtures::DebugStream stream;                 // collects what the process sends to the debugger stream, while it is alive
//     EXPECT_THAT(stream.said("BeanFrame"), ElementsAre("FINE|-> CBeanFrame  setEnabled 1", "FINE|<- CBeanFrame  setEnabled 1"));
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

namespace fixtures {

inline std::string modulePath(const char* module = nullptr)
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(GetModuleHandleA(module), path, MAX_PATH);
    return path;
}

inline std::string executableName()
{
    return std::filesystem::path(modulePath()).filename().string();
}

inline std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

inline constexpr const char* BEGIN_BANNER = "/******************************************** error detected - begin backtrace "
                                            "********************************************\\";
inline constexpr const char* END_BANNER = "\\************************************************** end error backtrace "
                                          "***************************************************/";

// One log line. A line without a header (a banner, or the rest of a text with several lines) is all body.
struct LogLine
{
    std::string time;
    unsigned long thread = 0;
    std::string level;
    std::string source; // all 20 characters
    int line = 0;
    std::string body;     // indentation and marker, class name, object, text; without the elapsed time, which varies
    int milliseconds = 0; // the elapsed time of an exit line, else 0

    // "-> " of an entry line, "<- " of an exit line, else nothing.
    std::string marker() const
    {
        const std::string begin = body.substr(std::min(body.find_first_not_of(' '), body.size()), 3);
        return begin == "-> " || begin == "<- " ? begin : "";
    }
    // Without indentation and marker.
    std::string text() const { return body.substr(std::min(body.find_first_not_of(' '), body.size()) + marker().size()); }
    std::string module() const { return source.substr(0, source.find(' ')); }
};

inline LogLine parseLogLine(const std::string& line)
{
    // std::regex takes stack for each character, so it is applied to short texts only.
    static const std::regex s_header("(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}) (\\d{5,}) (ALWAYS|ERROR |WARN  |INFO  "
                                     "|FINE  |TRACE ) (.{20}) (\\d{3,}) ");
    static const std::regex s_elapsed(" \\[(\\d+) ms\\]$");
    LogLine result;
    std::smatch match;
    const std::string begin = line.substr(0, 100);
    if (!std::regex_search(begin, match, s_header, std::regex_constants::match_continuous)) {
        result.body = line;
        return result;
    }
    result.time = match[1];
    result.thread = std::stoul(match[2]);
    result.level = match[3].str().substr(0, match[3].str().find(' '));
    result.source = match[4];
    result.line = std::stoi(match[5]);
    result.body = line.substr(static_cast<size_t>(match.length()));
    const std::string end = result.body.substr(std::max<size_t>(result.body.size(), 30) - 30);
    if (result.marker() == "<- " && std::regex_search(end, match, s_elapsed)) {
        result.milliseconds = std::stoi(match[1]);
        result.body.erase(result.body.size() - static_cast<size_t>(match.length()));
    }
    return result;
}

inline std::vector<LogLine> parseLogLines(const std::string& text)
{
    std::vector<LogLine> result;
    for (const std::string& line : splitLines(text)) {
        result.push_back(parseLogLine(line));
    }
    return result;
}

// "LEVEL|body" of each line of a module, or of all; banners unchanged.
inline std::vector<std::string> bodies(const std::vector<LogLine>& lines, const std::string& module = {})
{
    std::vector<std::string> result;
    for (const LogLine& line : lines) {
        if (module.empty() || line.module() == module) {
            result.push_back(line.level.empty() ? line.body : line.level + "|" + line.body);
        }
    }
    return result;
}

// Texts sent with OutputDebugStringA by any thread, taken from the exception that carries them.
class DebugStream
{
public:
    DebugStream()
    {
        s_stream = this;
        m_handler = AddVectoredExceptionHandler(1, &DebugStream::collect);
    }
    ~DebugStream()
    {
        RemoveVectoredExceptionHandler(m_handler);
        s_stream = nullptr;
    }
    DebugStream(const DebugStream&) = delete;
    DebugStream& operator=(const DebugStream&) = delete;

    // Unchanged.
    std::vector<std::string> texts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_texts;
    }
    // Without product and executable name.
    std::vector<LogLine> lines() const
    {
        std::vector<LogLine> result;
        for (const std::string& text : texts()) {
            result.push_back(parseLogLine(withoutNames(text)));
        }
        return result;
    }
    std::vector<std::string> said(const std::string& module = {}) const { return bodies(lines(), module); }
    // "LEVEL text" of every line, without indentation; banners unchanged.
    std::vector<std::string> messages() const
    {
        std::vector<std::string> result;
        for (const LogLine& line : lines()) {
            result.push_back(line.level.empty() ? line.body : line.level + " " + line.text());
        }
        return result;
    }
    bool contains(const std::string& message) const
    {
        const std::vector<std::string> all = messages();
        return std::find(all.begin(), all.end(), message) != all.end();
    }
    void clear()
    {
        const std::lock_guard lock(m_mutex);
        m_texts.clear();
    }

    // A line without its line feed and without the two names at its start, if they are there.
    static std::string withoutNames(std::string text)
    {
        const std::string executable = " " + executableName() + " ";
        const size_t found = text.find(executable);
        if (found != std::string::npos) {
            text.erase(0, found + executable.size());
        }
        if (text.ends_with('\n')) {
            text.pop_back();
        }
        return text;
    }

private:
    static LONG CALLBACK collect(EXCEPTION_POINTERS* exception)
    {
        constexpr DWORD PRINT_EXCEPTION = 0x40010006; // DBG_PRINTEXCEPTION_C
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        DebugStream* stream = s_stream;
        if (record.ExceptionCode != PRINT_EXCEPTION || stream == nullptr) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        const std::lock_guard lock(stream->m_mutex);
        stream->m_texts.emplace_back(reinterpret_cast<const char*>(record.ExceptionInformation[1]),
                                     static_cast<size_t>(record.ExceptionInformation[0]) - 1);
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static inline std::atomic<DebugStream*> s_stream{nullptr};
    void* m_handler;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_texts;
};

} // namespace fixtures
