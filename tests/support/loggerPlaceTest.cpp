// How the log chooses its folder, step by step: what it queries, reads and creates, and what it logs about that.
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <shlobj.h>

#define LOG_SOURCE "loggerPlaceTest"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using FolderHook = ImportHook<decltype(&SHGetFolderPathA)>;
using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using CreateHook = ImportHook<decltype(&CreateDirectoryA)>;
using Strings = std::vector<std::string>;

Strings s_calls;
std::string s_appData;
std::string s_desktop;

class LoggerPlaceTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerPlaceTest() { s_calls.clear(); }
    const Logger& logger() const { return *Logger::instance(); }
    void startAgain()
    {
        m_stream.clear();
        Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    }
    // "LEVEL text" of the lines of log and registry readers, without the system information and without scopes whose order does
    // not matter to log readers.
    Strings said() const
    {
        Strings result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            const std::string text = line.text();
            bool isInner = line.level == "ALWAYS" || text.starts_with("GetVersionEx(");
            for (const char* scope : {"ensureLogDirectory ", "setLogFilePrefix ", "writeSystemInformation "}) {
                isInner = isInner || text.starts_with(scope);
            }
            if (!isInner && (line.module() == "logger" || line.module() == "registry")) {
                result.push_back(line.level + " " + text);
            }
        }
        return result;
    }

    // Entry line, what is inside, exit line.
    static Strings scope(const std::string& text, const std::vector<Strings>& inside = {})
    {
        Strings lines = {"FINE " + text};
        for (const Strings& part : inside) {
            lines.insert(lines.end(), part.begin(), part.end());
        }
        lines.push_back("FINE " + text);
        return lines;
    }
    static std::string lookup(const std::string& folder, const std::string& outcome)
    {
        return "SHGetFolderPath(0, " + folder + ", 0, SHGFP_TYPE_CURRENT, " + outcome;
    }
    Strings defaultPathIsLookedUp() const
    {
        return scope("initSetDefaultLogfilePath ",
                     {{"TRACE " + lookup("CSIDL_LOCAL_APPDATA", "localappdatadir): success: " + getWindowsErrorText(0)),
                       "FINE default log file path is " + m_world.logFolder()}});
    }
    static Strings desktopIsLookedUp(const Strings& outcome)
    {
        return scope("initSetParametersIfDesktopFolderExists ",
                     {{"TRACE " + lookup("CSIDL_DESKTOPDIRECTORY", "desktopdir): success: " + getWindowsErrorText(0))}, outcome});
    }
    Strings levelsAreTold() const
    {
        return {"FINE Log level parameters from registry: loglevel=TRACE, traceloglevel=TRACE",
                "FINE Log file parameters after reading from registry: logpath=" + m_world.logFolder() +
                    ", oldlogfileage=2419200, splitlogfilesize=10"};
    }
    static Strings keyIsClosed() { return scope("CRegistry  ~CRegistry ", {scope("CRegistry  closeKey ")}); }
};

HRESULT WINAPI tellFolder(HWND window, int folder, HANDLE token, DWORD flags, LPSTR path)
{
    s_calls.push_back((window == nullptr && token == nullptr ? "" : "with an owner ") + std::to_string(folder) + " " +
                      std::to_string(flags));
    std::strcpy(path, folder == CSIDL_LOCAL_APPDATA ? s_appData.c_str() : s_desktop.c_str());
    return S_OK;
}

} // namespace

// ---- What is logged

TEST_F(LoggerPlaceTest, StartIsToldFromTheMomentTheRegistryHasBeenRead)
{
    m_world.start(LOGLEVEL_TRACE);
    Strings expected = levelsAreTold();
    for (const Strings& part :
         {keyIsClosed(),
          {"TRACE ensuring directory " + m_world.logFolder() + "\\ exisits...", "TRACE file attributes are ffffffff",
           "TRACE CreateDirectory(directory.c_str(), 0): success",
           "INFO Beginning logging with log level TRACE, log file prefix is " + m_world.logFolder() + "\\" + m_world.fileName(),
           "INFO Executable path: " + fixtures::modulePath()},
          scope("initCleanUpLogFiles "),
          scope("getErrorEntries ")}) {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(said(), expected);
}

TEST_F(LoggerPlaceTest, EveryStepIsToldInItsOrderAtFullDetail)
{
    m_world.start(LOGLEVEL_TRACE);
    startAgain();
    const std::string registry = "CRegistry  ";
    EXPECT_EQ(said(),
              scope("initParametersFromRegistryOrSpecialFolder ",
                    {defaultPathIsLookedUp(),
                     desktopIsLookedUp({"TRACE file attributes are ffffffff",
                                        "FINE did not find magic logging directory " + m_world.magicFolder()}),
                     scope("initSetParametersFromRegistry ",
                           {scope(registry + "CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt",
                                  {{"TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true"}}),
                            scope(registry + "getDWORDValue loglevel, 6"), scope(registry + "getDWORDValue traceloglevel, 6"),
                            scope(registry + "getStringValue logpath, " + m_world.logFolder()),
                            scope(registry + "getDWORDValue oldlogfileage, 2419200"),
                            scope(registry + "getDWORDValue splitlogfilesize, 10"), levelsAreTold(), keyIsClosed()}),
                     {"TRACE ensuring directory " + m_world.logFolder() + "\\ exisits...", "TRACE file attributes are 10"}}));
}

TEST_F(LoggerPlaceTest, DesktopFolderIsToldAndTheRegistryIsNotAsked)
{
    std::filesystem::create_directory(m_world.magicFolder());
    m_world.setPreference("logpath", m_world.folder());
    m_world.setPreference("oldlogfileage", 1);
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start(LOGLEVEL_ERROR, LOGLEVEL_ERROR);
    EXPECT_EQ(logger().logFilePrefix(), m_world.magicFolder() + "\\" + m_world.fileName());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().traceLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().oldLogFileAge(), 2419200);
    EXPECT_EQ(logger().splitLogFileSize(), 10);
    EXPECT_TRUE(logger().hasMagicDirectory());
    EXPECT_FALSE(std::filesystem::exists(m_world.logFolder())) << "only the folder that is used is made";
    startAgain();
    EXPECT_EQ(
        said(),
        scope("initParametersFromRegistryOrSpecialFolder ",
              {defaultPathIsLookedUp(),
               desktopIsLookedUp({"TRACE file attributes are 10", "INFO found magic logging directory " + m_world.magicFolder()}),
               {"TRACE ensuring directory " + m_world.magicFolder() + "\\ exisits...", "TRACE file attributes are 10"}}));
}

// ---- What is read from the registry

TEST_F(LoggerPlaceTest, ValuesAreTakenSignedAndKeptWhenTheyAreGone)
{
    const std::string path = m_world.folder() + "\\elsewhere";
    m_world.setPreference("logpath", path);
    m_world.setPreference("oldlogfileage", -5);
    m_world.setPreference("splitlogfilesize", -1);
    m_world.start(LOGLEVEL_FINE, LOGLEVEL_INFO);
    EXPECT_EQ(logger().logFilePrefix(), path + "\\" + m_world.fileName());
    EXPECT_EQ(logger().traceLogLevel(), LOGLEVEL_INFO);
    EXPECT_THAT(said(), Contains("FINE Log level parameters from registry: loglevel=FINE, traceloglevel=INFO"));
    EXPECT_THAT(said(), Contains("FINE Log file parameters after reading from registry: logpath=" + path +
                                 ", oldlogfileage=-5, splitlogfilesize=-1"));
    for (const char* name : {"oldlogfileage", "splitlogfilesize", "logpath"}) {
        m_world.machine().deleteValue(m_world.PREFERENCES_KEY, name, KEY_WOW64_32KEY);
    }
    startAgain();
    EXPECT_EQ(logger().oldLogFileAge(), -5);
    EXPECT_EQ(logger().splitLogFileSize(), -1);
    EXPECT_EQ(logger().logDirectory(), m_world.logFolder() + "\\") << "the default path is found anew each time";
}

TEST_F(LoggerPlaceTest, LevelsThatAreMissingOrOutsideTheirRangeAreWarnAndTrace)
{
    m_world.start();
    EXPECT_EQ(std::pair(logger().maxLogLevel(), logger().traceLogLevel()), std::pair(2, 5));
    const auto levelsFor = [this](int level, int traceLevel) {
        m_world.start(level, traceLevel);
        return std::pair(logger().maxLogLevel(), logger().traceLogLevel());
    };
    for (int level = LOGLEVEL_ALWAYS; level <= LOGLEVEL_TRACE; ++level) {
        EXPECT_EQ(levelsFor(level, LOGLEVEL_TRACE - level), std::pair(level, LOGLEVEL_TRACE - level));
    }
    EXPECT_EQ(levelsFor(6, 6), std::pair(2, 5));
    EXPECT_EQ(levelsFor(-1, 7), std::pair(2, 5));
    EXPECT_EQ(levelsFor(7, -1), std::pair(2, 5));
}

TEST_F(LoggerPlaceTest, PreferencesAreReadOnceAndInThe32BitView)
{
    const OpenHook hook("RegOpenKeyExA", [](HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key) -> LSTATUS {
        char text[32];
        std::snprintf(text, sizeof text, " %lx %lx", options, access);
        s_calls.push_back((root == HKEY_LOCAL_MACHINE ? "" : "another root ") + std::string(path) + text);
        return OpenHook::s_original(root, path, options, access, key);
    });
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre("SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt 0 20219"));
    s_calls.clear();
    std::filesystem::create_directory(m_world.magicFolder());
    m_world.start();
    EXPECT_THAT(s_calls, IsEmpty()) << "the folder on the desktop is there";
}

// ---- Folders

TEST_F(LoggerPlaceTest, FoldersAreTheUsersCurrentOnesWithABackslashWhereItIsMissing)
{
    s_appData = m_world.appData() + "\\";
    s_desktop = m_world.desktop() + "\\";
    const FolderHook hook("SHGetFolderPathA", tellFolder);
    m_world.start(LOGLEVEL_FINE);
    EXPECT_THAT(s_calls, ElementsAre("28 0", "16 0"));
    startAgain();
    EXPECT_THAT(said(), Contains("FINE default log file path is " + m_world.logFolder()));
    EXPECT_THAT(said(), Contains("FINE did not find magic logging directory " + m_world.desktop() + "\\\\UNDEFINEDPRODUCT-logs"))
        << "in front of the desktop's it always stands";
}

TEST_F(LoggerPlaceTest, FileOrNothingInPlaceOfTheDesktopFolderMeansTheRegistry)
{
    s_appData = m_world.appData();
    s_desktop = m_world.desktop();
    const FolderHook hook("SHGetFolderPathA", tellFolder);
    fixtures::makeFile(m_world.magicFolder(), "a file");
    m_world.start();
    EXPECT_FALSE(logger().hasMagicDirectory());
    std::filesystem::remove(m_world.magicFolder());
    std::filesystem::create_directory(m_world.magicFolder());
    startAgain();
    EXPECT_TRUE(logger().hasMagicDirectory());
    s_desktop = m_world.folder();
    startAgain();
    EXPECT_FALSE(logger().hasMagicDirectory());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_WARN);
    EXPECT_EQ(logger().logDirectory(), m_world.logFolder() + "\\");
}

TEST_F(LoggerPlaceTest, FailedLookupsAreErrorsThatLeaveTheDirectoryAsItWas)
{
    const auto failureOf = [](int folder) {
        char path[MAX_PATH + 1] = {};
        const HRESULT result = SHGetFolderPathA(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, path);
        EXPECT_TRUE(FAILED(result)) << "the test needs a folder that cannot be found";
        return "failure: " + getWindowsErrorText(static_cast<unsigned>(result));
    };
    std::filesystem::remove(m_world.appData());
    std::filesystem::remove(m_world.desktop());
    m_world.start(LOGLEVEL_INFO);
    const std::string path = lookup("CSIDL_LOCAL_APPDATA", "localappdatadir): " + failureOf(CSIDL_LOCAL_APPDATA));
    const std::string desktop = lookup("CSIDL_DESKTOPDIRECTORY", "desktopdir): " + failureOf(CSIDL_DESKTOPDIRECTORY));
    EXPECT_THAT(said(), Contains("ERROR " + path));
    EXPECT_THAT(said(), Contains("ERROR " + desktop));
    EXPECT_EQ(logger().logDirectory(), "");
    EXPECT_EQ(logger().logFilePrefix(), "");
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_INFO) << "the registry is read all the same";

    m_world.setPreference("logpath", m_world.folder());
    m_world.start();
    EXPECT_EQ(logger().logDirectory(), m_world.folder() + "\\");
}

TEST_F(LoggerPlaceTest, LastFolderOfThePathIsMadeWhenThereIsNoneOfTheName)
{
    const CreateHook hook("CreateDirectoryA", [](LPCSTR path, LPSECURITY_ATTRIBUTES security) -> BOOL {
        s_calls.push_back((security == nullptr ? "" : "with security ") + std::string(path));
        return CreateHook::s_original(path, security);
    });
    m_world.start();
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre(m_world.logFolder() + "\\")) << "then it is there";

    s_calls.clear();
    const std::string file = m_world.folder() + "\\file";
    const std::string nested = m_world.folder() + "\\one\\two";
    fixtures::makeFile(file, "");
    m_world.setPreference("logpath", file);
    m_world.start();
    m_world.setPreference("logpath", nested);
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre(file + "\\", nested + "\\")) << "a file of the name is no folder";
    EXPECT_FALSE(std::filesystem::exists(m_world.folder() + "\\one"));
    EXPECT_THAT(said(),
                Contains("ERROR CreateDirectory(directory.c_str(), 0): failure: " + getWindowsErrorText(ERROR_PATH_NOT_FOUND)));
}
