// The steps in which the log finds its place, what it reads and makes on the way, and how it cleans up.
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <shlobj.h>

#define LOG_SOURCE "loggerPlaceTest"

using fixtures::DebugStream;
using fixtures::LoggerWorld;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using FolderHook = ImportHook<decltype(&SHGetFolderPathA)>;
using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using CreateHook = ImportHook<decltype(&CreateDirectoryA)>;
using FindHook = ImportHook<decltype(&FindFirstFileA)>;
using NextHook = ImportHook<decltype(&FindNextFileA)>;
using DeleteHook = ImportHook<decltype(&DeleteFileA)>;

constexpr const char* PRODUCT = "UNDEFINEDPRODUCT";

std::vector<std::string> s_calls;
DebugStream* s_stream;

class LoggerPlaceTest : public testing::Test
{
protected:
    LoggerPlaceTest()
    {
        s_calls.clear();
        s_stream = &m_stream;
    }
    const Logger& logger() const { return *Logger::instance(); }
    std::string defaultFolder() const { return m_world.appData() + "\\" + PRODUCT + "-logs"; }
    std::string magicFolder() const { return m_world.desktop() + "\\" + PRODUCT + "-logs"; }
    static std::string fileName()
    {
        return std::string(PRODUCT) + "-support_loggerPlace_test.exe-" + std::to_string(GetCurrentProcessId());
    }
    static std::string executablePath()
    {
        char path[MAX_PATH + 1] = {};
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        return path;
    }
    // What the log and the registry's readers said, "LEVEL text", without the system information and without the scopes that are
    // not part of the order that log readers know.
    std::vector<std::string> said() const
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            const bool isOurs = line.source.starts_with("logger  ") || line.source.starts_with("registry  ");
            const std::string text = line.text();
            bool isInner = line.level == "ALWAYS" || text.starts_with("GetVersionEx(");
            for (const char* scope : {"ensureLogDirectory ", "setLogFilePrefix ", "writeSystemInformation "}) {
                isInner = isInner || text.starts_with(scope);
            }
            if (isOurs && !isInner) {
                result.push_back(line.level + " " + text);
            }
        }
        return result;
    }
    void initialiseAgain()
    {
        m_stream.clear();
        Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    }
    // An empty file with a last write that long ago.
    static void makeFile(const std::string& path, LONGLONG ageInSeconds)
    {
        std::ofstream(path).close();
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        const LONGLONG ticks = (static_cast<LONGLONG>(now.dwHighDateTime) << 32 | now.dwLowDateTime) - ageInSeconds * 10000000;
        const FILETIME time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
        const HANDLE file = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &time));
        CloseHandle(file);
    }

    LoggerWorld m_world;
    DebugStream m_stream;
};

} // namespace

TEST_F(LoggerPlaceTest, StartIsToldFromTheMomentTheRegistryHasBeenRead)
{
    m_world.setPreference("loglevel", LOGLEVEL_TRACE);
    Logger::addRefCount();
    const std::string registry = "FINE CRegistry  ";
    const std::string prefix = defaultFolder() + "\\" + fileName();
    EXPECT_THAT(said(), ElementsAreArray(std::vector<std::string>{
                            "FINE Log level parameters from registry: loglevel=TRACE, traceloglevel=TRACE",
                            "FINE Log file parameters after reading from registry: logpath=" + defaultFolder() +
                                ", oldlogfileage=2419200, splitlogfilesize=10",
                            registry + "~CRegistry ",
                            registry + "closeKey ",
                            registry + "closeKey ",
                            registry + "~CRegistry ",
                            "TRACE ensuring directory " + defaultFolder() + "\\ exisits...",
                            "TRACE file attributes are ffffffff",
                            "TRACE CreateDirectory(directory.c_str(), 0): success",
                            "INFO Beginning logging with log level TRACE, log file prefix is " + prefix,
                            "INFO Executable path: " + executablePath(),
                            "FINE initCleanUpLogFiles ",
                            "FINE initCleanUpLogFiles ",
                        }));
}

TEST_F(LoggerPlaceTest, EveryStepIsToldInItsOrderAtFullDetail)
{
    m_world.setPreference("loglevel", LOGLEVEL_TRACE);
    m_world.start();
    initialiseAgain();
    const std::string success = ": success: " + getWindowsErrorText(0);
    const std::string registry = "FINE CRegistry  ";
    const std::string key = registry + "CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
    std::vector<std::string> expected;
    const auto scope = [&expected](const std::string& text, const std::vector<std::string>& inside) {
        expected.push_back(text);
        expected.insert(expected.end(), inside.begin(), inside.end());
        expected.push_back(text);
    };
    expected.emplace_back("FINE initParametersFromRegistryOrSpecialFolder ");
    scope("FINE initSetDefaultLogfilePath ",
          {"TRACE SHGetFolderPath(0, CSIDL_LOCAL_APPDATA, 0, SHGFP_TYPE_CURRENT, localappdatadir)" + success,
           "FINE default log file path is " + defaultFolder()});
    scope("FINE initSetParametersIfDesktopFolderExists ",
          {"TRACE SHGetFolderPath(0, CSIDL_DESKTOPDIRECTORY, 0, SHGFP_TYPE_CURRENT, desktopdir)" + success,
           "TRACE file attributes are ffffffff", "FINE did not find magic logging directory " + magicFolder()});
    expected.emplace_back("FINE initSetParametersFromRegistry ");
    scope(key, {"TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true"});
    scope(registry + "getDWORDValue loglevel, 6", {});
    scope(registry + "getDWORDValue traceloglevel, 6", {});
    scope(registry + "getStringValue logpath, " + defaultFolder(), {});
    scope(registry + "getDWORDValue oldlogfileage, 2419200", {});
    scope(registry + "getDWORDValue splitlogfilesize, 10", {});
    expected.emplace_back("FINE Log level parameters from registry: loglevel=TRACE, traceloglevel=TRACE");
    expected.emplace_back("FINE Log file parameters after reading from registry: logpath=" + defaultFolder() +
                          ", oldlogfileage=2419200, splitlogfilesize=10");
    scope(registry + "~CRegistry ", {registry + "closeKey ", registry + "closeKey "});
    expected.emplace_back("FINE initSetParametersFromRegistry ");
    expected.emplace_back("TRACE ensuring directory " + defaultFolder() + "\\ exisits...");
    expected.emplace_back("TRACE file attributes are 10");
    expected.emplace_back("FINE initParametersFromRegistryOrSpecialFolder ");
    EXPECT_THAT(said(), ElementsAreArray(expected));
}

TEST_F(LoggerPlaceTest, DesktopFolderIsToldAndTheRegistryIsNotAsked)
{
    std::filesystem::create_directory(magicFolder());
    m_world.start();
    initialiseAgain();
    const std::string success = ": success: " + getWindowsErrorText(0);
    EXPECT_THAT(said(),
                ElementsAre("FINE initParametersFromRegistryOrSpecialFolder ", "FINE initSetDefaultLogfilePath ",
                            "TRACE SHGetFolderPath(0, CSIDL_LOCAL_APPDATA, 0, SHGFP_TYPE_CURRENT, localappdatadir)" + success,
                            "FINE default log file path is " + defaultFolder(), "FINE initSetDefaultLogfilePath ",
                            "FINE initSetParametersIfDesktopFolderExists ",
                            "TRACE SHGetFolderPath(0, CSIDL_DESKTOPDIRECTORY, 0, SHGFP_TYPE_CURRENT, desktopdir)" + success,
                            "TRACE file attributes are 10", "INFO found magic logging directory " + magicFolder(),
                            "FINE initSetParametersIfDesktopFolderExists ",
                            "TRACE ensuring directory " + magicFolder() + "\\ exisits...", "TRACE file attributes are 10",
                            "FINE initParametersFromRegistryOrSpecialFolder "));
}

TEST_F(LoggerPlaceTest, ValuesThatAreGoneLeaveAgeAndSizeAsTheyAre)
{
    m_world.setPreference("oldlogfileage", 77);
    m_world.setPreference("splitlogfilesize", 3);
    m_world.setPreference("logpath", m_world.folder());
    m_world.start();
    for (const char* name : {"oldlogfileage", "splitlogfilesize", "logpath"}) {
        m_world.machine().deleteValue(LoggerWorld::PREFERENCES_KEY, name, KEY_WOW64_32KEY);
    }
    initialiseAgain();
    EXPECT_EQ(logger().oldLogFileAge(), 77);
    EXPECT_EQ(logger().splitLogFileSize(), 3);
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\") << "the default path is found anew each time";
}

// ---- What Windows is asked

namespace {

LSTATUS WINAPI noteOpening(HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key)
{
    char text[32];
    std::snprintf(text, sizeof text, " %lx %lx", options, access);
    s_calls.push_back((root == HKEY_LOCAL_MACHINE ? "" : "another root ") + std::string(path) + text);
    return OpenHook::s_original(root, path, options, access, key);
}

std::string s_appData;
std::string s_desktop;

HRESULT WINAPI tellFolder(HWND window, int folder, HANDLE token, DWORD flags, LPSTR path)
{
    s_calls.push_back((window == nullptr && token == nullptr ? "" : "with an owner ") + std::to_string(folder) + " " +
                      std::to_string(flags));
    std::strcpy(path, folder == CSIDL_LOCAL_APPDATA ? s_appData.c_str() : s_desktop.c_str());
    return S_OK;
}

BOOL WINAPI noteFolder(LPCSTR path, LPSECURITY_ATTRIBUTES security)
{
    s_calls.push_back((security == nullptr ? "" : "with security ") + std::string(path));
    return CreateHook::s_original(path, security);
}

} // namespace

TEST_F(LoggerPlaceTest, PreferencesAreReadOnceAndInThe32BitView)
{
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre("SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt 0 20219"));
    s_calls.clear();
    std::filesystem::create_directory(magicFolder());
    m_world.start();
    EXPECT_THAT(s_calls, IsEmpty()) << "the folder on the desktop is there";
}

TEST_F(LoggerPlaceTest, FoldersAreTheUsersCurrentOnes)
{
    s_appData = m_world.appData();
    s_desktop = m_world.desktop();
    const FolderHook hook("SHGetFolderPathA", tellFolder);
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre("28 0", "16 0"));
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\");
}

TEST_F(LoggerPlaceTest, BackslashIsAddedToTheDataFolderWhenMissingAndToTheDesktopAlways)
{
    s_appData = m_world.appData() + "\\";
    s_desktop = m_world.desktop() + "\\";
    const FolderHook hook("SHGetFolderPathA", tellFolder);
    m_world.start();
    Logger::setMaxLogLevel(LOGLEVEL_FINE);
    initialiseAgain();
    EXPECT_THAT(said(), Contains("FINE default log file path is " + defaultFolder()));
    EXPECT_THAT(said(), Contains("FINE did not find magic logging directory " + m_world.desktop() + "\\\\" + PRODUCT + "-logs"));
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\");
}

TEST_F(LoggerPlaceTest, LevelsAreTheRegistrysAgainWhenTheDesktopFolderIsGone)
{
    s_appData = m_world.appData();
    s_desktop = m_world.desktop();
    const FolderHook hook("SHGetFolderPathA", tellFolder);
    std::filesystem::create_directory(magicFolder());
    m_world.start();
    EXPECT_TRUE(logger().hasMagicDirectory());
    s_desktop = m_world.folder();
    initialiseAgain();
    EXPECT_FALSE(logger().hasMagicDirectory());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_WARN);
    EXPECT_EQ(logger().traceLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\");
}

TEST_F(LoggerPlaceTest, FolderIsMadeOnlyWhenThereIsNone)
{
    const CreateHook hook("CreateDirectoryA", noteFolder);
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre(defaultFolder() + "\\"));
    m_world.start();
    EXPECT_EQ(s_calls.size(), 1u) << "it is there";

    const std::string file = m_world.folder() + "\\file";
    std::ofstream(file).close();
    m_world.setPreference("logpath", file);
    m_world.start();
    EXPECT_EQ(s_calls.size(), 2u) << "a file of that name is no folder";
    EXPECT_EQ(s_calls.back(), file + "\\");
    m_world.setPreference("logpath", "");
    m_world.start();
    EXPECT_EQ(s_calls.size(), 2u) << "no path, no folder";
}

// ---- Another place while the process runs

TEST_F(LoggerPlaceTest, NewPlaceOfAnOpenFileIsToldInBothFiles)
{
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.start();
    LOG_PLAIN(INFO, "text");
    const std::string elsewhere = m_world.folder() + "\\elsewhere";
    m_world.setPreference("logpath", elsewhere);
    initialiseAgain();
    EXPECT_THAT(said(), ElementsAre("INFO Re-directing logging, closing this log file",
                                    "INFO Re-directing logging with log level INFO, log file prefix is " + elsewhere + "\\" +
                                        fileName()));
    m_stream.clear();
    initialiseAgain();
    EXPECT_THAT(said(), IsEmpty()) << "the same place";
}

TEST_F(LoggerPlaceTest, NewPlaceIsJustTakenWhileNoFileIsOpen)
{
    m_world.start();
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.setPreference("logpath", m_world.folder());
    initialiseAgain();
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_EQ(logger().logFilePrefix(), m_world.folder() + "\\" + fileName());
    EXPECT_TRUE(std::filesystem::is_empty(defaultFolder()));
}

TEST_F(LoggerPlaceTest, FilesAreCountedOnInTheNewPlace)
{
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start();
    LOG_PLAIN(WARN, std::string(2 << 20, 'x'));
    LOG_PLAIN(WARN, "in the second file");
    m_world.setPreference("logpath", m_world.folder());
    initialiseAgain();
    LOG_PLAIN(WARN, "in the new place");
    EXPECT_EQ(logger().logFilePrefix(), m_world.folder() + "\\" + fileName());
    const std::vector<fixtures::LogLine> lines = m_world.logLines(1);
    ASSERT_EQ(lines.size(), 1u) << "without the system information, which is in the first file";
    EXPECT_EQ(lines[0].body, "   in the new place");
}

// ---- Cleaning up

namespace {

HANDLE WINAPI noteFinding(LPCSTR pattern, LPWIN32_FIND_DATAA found)
{
    s_calls.push_back("find " + std::string(pattern));
    return FindHook::s_original(pattern, found);
}

BOOL WINAPI noteNext(HANDLE find, LPWIN32_FIND_DATAA found)
{
    const BOOL result = NextHook::s_original(find, found);
    s_calls.emplace_back(result ? "next" : "end");
    return result;
}

// Refused; with the line that told of it.
BOOL WINAPI refuseDeletion(LPCSTR path)
{
    s_calls.push_back("delete " + std::string(path) + " after " + s_stream->messages().back());
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

} // namespace

TEST_F(LoggerPlaceTest, CleanUpListsTheProductsFilesFirstAndThenTellsOfEachBeforeItsDeletion)
{
    const std::string folder = m_world.folder() + "\\logs";
    std::filesystem::create_directory(folder);
    const std::string name = std::string(PRODUCT) + "-";
    makeFile(folder + "\\" + name + "a.log", 11);
    makeFile(folder + "\\" + name + "b.log", 0);
    makeFile(folder + "\\" + name + "c.log", 12);
    m_world.setPreference("logpath", folder);
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.setPreference("oldlogfileage", 10);
    const FindHook find("FindFirstFileA", noteFinding);
    const NextHook next("FindNextFileA", noteNext);
    const DeleteHook deletion("DeleteFileA", refuseDeletion);
    m_world.start();
    ASSERT_EQ(s_calls.size(), 1 + 4 + 2u) << "one of them is the file of this process";
    EXPECT_EQ(s_calls[0], "find " + folder + "\\" + name + "*.log");
    EXPECT_EQ(s_calls[4], "end");
    const auto told = [&](const std::string& file) {
        return "delete " + folder + "\\" + file + " after INFO Deleting old log file " + file;
    };
    EXPECT_THAT(s_calls, Contains(told(name + "a.log")));
    EXPECT_THAT(s_calls, Contains(told(name + "c.log")));
    EXPECT_EQ(m_stream.messages().size(), 4 + 2 + 2u) << "system information, start and deletions: failures are not reported";
}

TEST_F(LoggerPlaceTest, NothingIsListedWithoutAFileName)
{
    m_world.setPreference("logpath", "");
    const FindHook find("FindFirstFileA", noteFinding);
    m_world.start();
    EXPECT_THAT(s_calls, IsEmpty());

    const std::string folder = m_world.folder() + "\\logs";
    std::filesystem::create_directory(folder);
    m_world.setPreference("logpath", folder);
    m_world.start();
    EXPECT_EQ(s_calls.size(), 1u);
    std::filesystem::create_directory(logger().logFilePrefix() + ".log");
    LOG_PLAIN(WARN, "gives up");
    Logger::instance()->initCleanUpLogFiles();
    EXPECT_EQ(s_calls.size(), 1u) << "file logging is off";
}

TEST_F(LoggerPlaceTest, OldFileOfTheSameProcessIdIsDeletedLikeAnyOther)
{
    std::filesystem::create_directory(defaultFolder());
    const std::string own = defaultFolder() + "\\" + fileName() + ".log";
    makeFile(own, 2419201);
    m_world.start();
    EXPECT_FALSE(std::filesystem::exists(own));
}
