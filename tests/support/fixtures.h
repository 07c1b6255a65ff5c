// What tests of every room share. Header only; namespace `fixtures`.
//
//     fixtures::DebugStream stream;                 // collects what the process sends to the debugger stream, while it is alive
//     EXPECT_EQ(stream.lines()[0].body, "-> CBeanFrame  setEnabled 1");
//
//     fixtures::RegistryScratch machine(HKEY_LOCAL_MACHINE);            // the process now sees an empty HKEY_LOCAL_MACHINE
//     machine.setString("SOFTWARE\\X", "name", "value", KEY_WOW64_32KEY);
//
//     fixtures::TemporaryFolder folder;             // folder.path(), gone with its content at the end of the test
//
//     fixtures::LoggerWorld world;                  // registry, application data and desktop of its own; no Logger yet
//     world.setPreference("loglevel", 5);
//     world.start();                                // a fresh Logger; world.logText() reads its file
#pragma once

#include "support/logger.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace fixtures {

inline std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            lines.push_back(text.substr(begin));
            break;
        }
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

inline constexpr const char* BEGIN_BANNER = "/******************************************** error detected - begin backtrace "
                                            "********************************************\\";
inline constexpr const char* END_BANNER = "\\************************************************** end error backtrace "
                                          "***************************************************/";

// One log line, taken apart. A line that has no header (banners, continuations of texts of several lines) is all body.
struct LogLine
{
    std::string time;
    unsigned long thread = 0;
    std::string level;
    std::string source; // all 20 characters
    int line = 0;
    std::string body; // indentation and marker, class name, object, text; without the elapsed time, which depends on the machine
    int milliseconds = 0; // the elapsed time of an exit line, 0 when it has none

    // Without indentation and marker.
    std::string text() const
    {
        const size_t begin = body.find_first_not_of(' ');
        if (begin == std::string::npos) {
            return {};
        }
        const bool marked = body.compare(begin, 3, "-> ") == 0 || body.compare(begin, 3, "<- ") == 0;
        return body.substr(marked ? begin + 3 : begin);
    }
};

inline LogLine parseLogLine(const std::string& line)
{
    static const std::regex s_header("(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}) (\\d{5,}) (ALWAYS|ERROR |WARN  |INFO  "
                                     "|FINE  |TRACE ) (.{20}) (\\d{3,}) ([^]*)");
    std::smatch match;
    LogLine result;
    if (!std::regex_match(line, match, s_header)) {
        result.body = line;
        return result;
    }
    result.time = match[1];
    result.thread = std::stoul(match[2]);
    result.level = match[3].str().substr(0, match[3].str().find(' '));
    result.source = match[4];
    result.line = std::stoi(match[5]);
    result.body = match[6];
    static const std::regex s_elapsed("( *<- [^]*) \\[(\\d+) ms\\]");
    if (std::regex_match(result.body, match, s_elapsed)) {
        result.milliseconds = std::stoi(match[2]);
        result.body = match[1].str();
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

    // As they were sent.
    std::vector<std::string> texts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_texts;
    }
    // Without product and executable name, taken apart.
    std::vector<LogLine> lines() const
    {
        std::vector<LogLine> result;
        for (const std::string& text : texts()) {
            result.push_back(parseLogLine(withoutNames(text)));
        }
        return result;
    }
    // "LEVEL text" of every line, without indentation; banners as they are.
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

    // A line without its line feed and without the two names in front, if it has them.
    static std::string withoutNames(std::string text)
    {
        char path[MAX_PATH + 1] = {};
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        const std::string executable = " " + std::filesystem::path(path).filename().string() + " ";
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

// Stands in for one of the predefined keys while it is alive. Starts empty. Below it the two views are one and the same: a test
// sets what the code under test reads, in the view that code names.
class RegistryScratch
{
public:
    explicit RegistryScratch(HKEY root)
        : m_root(root)
    {
        static std::atomic<int> s_count{0};
        m_path = "Software\\KestaTests\\" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++s_count);
        check(RegOpenKeyExA(HKEY_CURRENT_USER, nullptr, 0, KEY_ALL_ACCESS, &m_user));
        check(RegCreateKeyExA(m_user, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_scratch, nullptr));
        check(RegOverridePredefKey(m_root, m_scratch));
    }
    ~RegistryScratch()
    {
        RegOverridePredefKey(m_root, nullptr);
        RegCloseKey(m_scratch);
        RegDeleteTreeA(m_user, m_path.c_str());
        RegCloseKey(m_user);
    }
    RegistryScratch(const RegistryScratch&) = delete;
    RegistryScratch& operator=(const RegistryScratch&) = delete;

    // `view` is 0 or KEY_WOW64_32KEY, as the reader under test opens the key.
    void createKey(const std::string& path, REGSAM view = 0) { RegCloseKey(open(path, view)); }
    void setString(const std::string& path, const std::string& name, const std::string& value, REGSAM view = 0)
    {
        setBytes(path, name, REG_SZ, value.c_str(), value.size() + 1, view);
    }
    void setDword(const std::string& path, const std::string& name, std::uint32_t value, REGSAM view = 0)
    {
        setBytes(path, name, REG_DWORD, &value, sizeof value, view);
    }
    void setBytes(const std::string& path, const std::string& name, DWORD type, const void* bytes, size_t size, REGSAM view = 0)
    {
        const HKEY key = open(path, view);
        const LSTATUS status =
            RegSetValueExA(key, name.c_str(), 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size));
        RegCloseKey(key);
        check(status);
    }
    void deleteValue(const std::string& path, const std::string& name, REGSAM view = 0)
    {
        const HKEY key = open(path, view);
        RegDeleteValueA(key, name.c_str());
        RegCloseKey(key);
    }

private:
    HKEY open(const std::string& path, REGSAM view)
    {
        HKEY key = nullptr;
        // The narrow call takes no path of more than 260 characters.
        const std::wstring wide(path.begin(), path.end());
        check(RegCreateKeyExW(m_root, wide.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key, nullptr));
        return key;
    }
    static void check(LSTATUS status)
    {
        if (status != ERROR_SUCCESS) {
            throw std::runtime_error("registry scratch key: " + getWindowsErrorText(static_cast<unsigned>(status)));
        }
    }

    HKEY m_root;
    HKEY m_user = nullptr; // the user's own key, also while it is overridden
    HKEY m_scratch = nullptr;
    std::string m_path;
};

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        static std::atomic<int> s_count{0};
        m_path = std::filesystem::temp_directory_path() /
                 ("kesta-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++s_count));
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Without backslash at the end.
    std::string path() const { return m_path.string(); }
    std::string path(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Ends the Logger of the static guard and gives the process registry, application data and desktop of its own. At the end of the
// test the Logger begins anew on the real ones.
class LoggerWorld
{
public:
    static constexpr const char* PREFERENCES_KEY = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

    LoggerWorld()
        : m_machine(HKEY_LOCAL_MACHINE)
        , m_user(HKEY_CURRENT_USER)
    {
        stop();
        constexpr const char* FOLDERS = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
        for (const char* name : {"Local AppData", "Desktop"}) {
            std::filesystem::create_directories(m_folder.path(name));
            m_user.setString(FOLDERS, name, m_folder.path(name));
        }
        m_machine.createKey(PREFERENCES_KEY, KEY_WOW64_32KEY);
    }
    ~LoggerWorld() { stop(); }
    LoggerWorld(const LoggerWorld&) = delete;
    LoggerWorld& operator=(const LoggerWorld&) = delete;

    void setPreference(const std::string& name, int value)
    {
        m_machine.setDword(PREFERENCES_KEY, name, static_cast<std::uint32_t>(value), KEY_WOW64_32KEY);
    }
    void setPreference(const std::string& name, const std::string& value)
    {
        m_machine.setString(PREFERENCES_KEY, name, value, KEY_WOW64_32KEY);
    }
    RegistryScratch& machine() { return m_machine; }
    std::string appData() const { return m_folder.path("Local AppData"); }
    std::string desktop() const { return m_folder.path("Desktop"); }
    std::string folder() const { return m_folder.path(); }

    void start()
    {
        stop();
        Logger::addRefCount();
        Logger::getErrorEntries();
    }
    static void stop()
    {
        while (Logger::instance() != nullptr) {
            Logger::release();
        }
    }
    // The current Logger's first file, and those after a split; line feeds alone.
    std::string logText(int index = 0) const
    {
        std::string name = Logger::instance()->logFilePrefix();
        if (index != 0) {
            name += "-" + std::string(index < 10 ? "000" : "00") + std::to_string(index);
        }
        std::string text = readFile(name + ".log");
        std::erase(text, '\r');
        return text;
    }
    std::vector<LogLine> logLines(int index = 0) const { return parseLogLines(logText(index)); }

private:
    // What runs last, when everything is as it was before: a Logger for the guard's reference.
    struct Restart
    {
        ~Restart() { Logger::addRefCount(); }
    };

    Restart m_restart;
    TemporaryFolder m_folder;
    RegistryScratch m_machine;
    RegistryScratch m_user;
};

} // namespace fixtures
