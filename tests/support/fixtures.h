// Shared by the tests of all folders. Headers only; namespace `fixtures`.
//
//     fixtures::LoggerWorld world;                  // own registry, application data and desktop; no Logger yet
//     world.start(LOGLEVEL_FINE);                   // a fresh Logger; world.logText() reads its file
#pragma once

#include "support/logger.h"
#include "tests/support/logLines.h"
#include "tests/support/places.h"

namespace fixtures {

// Ends the Logger of the static guard and gives the process its own registry, application data and desktop. At the end of the
// test a new Logger starts on the real ones.
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
            std::filesystem::create_directory(m_folder.path(name));
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
    void start(int level, int traceLevel = LOGLEVEL_TRACE)
    {
        setPreference("loglevel", level);
        setPreference("traceloglevel", traceLevel);
        start();
    }
    static void stop()
    {
        while (Logger::instance() != nullptr) {
            Logger::release();
        }
    }

    // The log of a program without product name: folder, folder on the desktop, and file name without extension.
    static constexpr const char* PRODUCT = "UNDEFINEDPRODUCT";
    std::string logFolder() const { return appData() + "\\" + PRODUCT + "-logs"; }
    std::string magicFolder() const { return desktop() + "\\" + PRODUCT + "-logs"; }
    static std::string fileName()
    {
        return std::string(PRODUCT) + "-" + executableName() + "-" + std::to_string(GetCurrentProcessId());
    }
    // The prefix of its lines in the debugger stream.
    static std::string names() { return std::string(PRODUCT) + " " + executableName() + " "; }

    // The current Logger's first file (0), and those after a split; texts without carriage returns.
    static std::string logFile(int index = 0) { return logFile(Logger::instance()->logFilePrefix(), index); }
    static std::string logFile(const std::string& prefix, int index)
    {
        return prefix + (index == 0 ? "" : "-" + std::to_string(10000 + index).substr(1)) + ".log";
    }
    static std::string logText(int index = 0)
    {
        std::string text = readFile(logFile(index));
        std::erase(text, '\r');
        return text;
    }
    static std::vector<LogLine> logLines(int index = 0) { return parseLogLines(logText(index)); }

private:
    // Destroyed last, when everything is restored: a Logger for the guard's reference.
    struct Restart
    {
        ~Restart() { Logger::addRefCount(); }
    };

    Restart m_restart;
    TemporaryFolder m_folder;
    RegistryScratch m_machine;
    RegistryScratch m_user;
};

// A test with a world of its own and a record of the debugger stream.
class LoggerWorldTest : public testing::Test
{
protected:
    // A fresh Logger whose file is open; what was said meanwhile is discarded.
    void open(int level, int traceLevel = LOGLEVEL_TRACE)
    {
        m_world.start(level, traceLevel);
        LogEntry({"fixtures", __LINE__}, LOGLEVEL_ALWAYS).stream() << "opens the file";
        m_stream.clear();
    }

    LoggerWorld m_world;
    DebugStream m_stream;
};

} // namespace fixtures
