// Where the log file is, what it is called and what happens to it while it is written.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <shlobj.h>

#define LOG_SOURCE "loggerFileTest"

using fixtures::DebugStream;
using fixtures::LoggerWorld;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

constexpr const char* PRODUCT = "UNDEFINEDPRODUCT";
constexpr const char* EXECUTABLE = "support_loggerFile_test.exe";
constexpr const char* GIVING_UP = "Could not open log file, giving up logging to files";

std::string fileName()
{
    return std::string(PRODUCT) + "-" + EXECUTABLE + "-" + std::to_string(GetCurrentProcessId());
}

class LoggerFileTest : public testing::Test
{
protected:
    const Logger& logger() const { return *Logger::instance(); }
    std::string defaultFolder() const { return m_world.appData() + "\\" + PRODUCT + "-logs"; }
    std::string magicFolder() const { return m_world.desktop() + "\\" + PRODUCT + "-logs"; }
    void writeLine(const std::string& text) { LOG_PLAIN(WARN, text); }
    bool exists(const std::string& path) const { return std::filesystem::exists(path); }

    LoggerWorld m_world;
    DebugStream m_stream;
};

} // namespace

TEST_F(LoggerFileTest, LiesInTheApplicationDataFolderByDefault)
{
    m_world.start();
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\");
    EXPECT_EQ(logger().logFilePrefix(), defaultFolder() + "\\" + fileName());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_WARN);
    EXPECT_EQ(logger().traceLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().oldLogFileAge(), 2419200);
    EXPECT_EQ(logger().splitLogFileSize(), 10);
    EXPECT_FALSE(logger().hasMagicDirectory());
    EXPECT_FALSE(exists(logger().logFilePrefix() + ".log")) << "nothing was written yet";
    writeLine("text");
    EXPECT_EQ(m_world.logLines().back().body, "   text");
}

TEST_F(LoggerFileTest, DesktopFolderWinsOverTheRegistryAndSwitchesOnFullDetail)
{
    std::filesystem::create_directory(magicFolder());
    m_world.setPreference("loglevel", LOGLEVEL_ERROR);
    m_world.setPreference("traceloglevel", LOGLEVEL_ERROR);
    m_world.setPreference("logpath", m_world.folder());
    m_world.setPreference("oldlogfileage", 1);
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start();
    EXPECT_EQ(logger().logFilePrefix(), magicFolder() + "\\" + fileName());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().traceLogLevel(), LOGLEVEL_TRACE);
    EXPECT_EQ(logger().oldLogFileAge(), 2419200);
    EXPECT_EQ(logger().splitLogFileSize(), 10);
    EXPECT_TRUE(logger().hasMagicDirectory());
    EXPECT_FALSE(exists(defaultFolder())) << "only the folder that is used is made";
}

TEST_F(LoggerFileTest, FileOnTheDesktopWithTheFoldersNameIsNoDesktopFolder)
{
    std::ofstream(magicFolder()) << "a file";
    m_world.start();
    EXPECT_FALSE(logger().hasMagicDirectory());
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_WARN);
}

TEST_F(LoggerFileTest, LevelsOutsideTheirRangeGiveWarnAndTrace)
{
    const auto levelsFor = [this](int level, int traceLevel) {
        m_world.setPreference("loglevel", level);
        m_world.setPreference("traceloglevel", traceLevel);
        m_world.start();
        return std::pair(logger().maxLogLevel(), logger().traceLogLevel());
    };
    for (int level = LOGLEVEL_ALWAYS; level <= LOGLEVEL_TRACE; ++level) {
        EXPECT_EQ(levelsFor(level, LOGLEVEL_TRACE - level), std::pair(level, LOGLEVEL_TRACE - level));
    }
    EXPECT_EQ(levelsFor(7, -1), std::pair(2, 5));
    EXPECT_EQ(levelsFor(6, 6), std::pair(2, 5));
    EXPECT_EQ(levelsFor(-1, 7), std::pair(2, 5));
}

TEST_F(LoggerFileTest, RegistryValuesAreUsedAndReported)
{
    const std::string path = m_world.folder() + "\\elsewhere";
    m_world.setPreference("loglevel", LOGLEVEL_FINE);
    m_world.setPreference("traceloglevel", LOGLEVEL_INFO);
    m_world.setPreference("logpath", path);
    m_world.setPreference("oldlogfileage", -5);
    m_world.setPreference("splitlogfilesize", -1);
    m_world.start();
    EXPECT_EQ(logger().logFilePrefix(), path + "\\" + fileName());
    EXPECT_EQ(logger().oldLogFileAge(), -5);
    EXPECT_EQ(logger().splitLogFileSize(), -1);
    const std::vector<std::string> messages = m_stream.messages();
    EXPECT_THAT(messages, Contains("FINE Log level parameters from registry: loglevel=FINE, traceloglevel=INFO"));
    EXPECT_THAT(messages, Contains("FINE Log file parameters after reading from registry: logpath=" + path +
                                   ", oldlogfileage=-5, splitlogfilesize=-1"));
    EXPECT_THAT(messages, Contains("INFO Beginning logging with log level FINE, log file prefix is " + path + "\\" + fileName()));
    char own[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, own, MAX_PATH);
    EXPECT_THAT(messages, Contains("INFO Executable path: " + std::string(own)));
}

TEST_F(LoggerFileTest, LookupsAndFolderAreLoggedAtFullDetail)
{
    m_world.start();
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    m_stream.clear();
    std::filesystem::remove_all(defaultFolder());
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    const std::string lookup = ", 0, SHGFP_TYPE_CURRENT, ";
    const std::string success = ": success: " + getWindowsErrorText(0);
    std::vector<std::string> messages;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        if (line.source.starts_with("logger ") && line.body.find("-> ") == std::string::npos &&
            line.body.find("<- ") == std::string::npos) {
            messages.push_back(line.level + " " + line.text());
        }
    }
    EXPECT_THAT(messages,
                ElementsAre("TRACE SHGetFolderPath(0, CSIDL_LOCAL_APPDATA" + lookup + "localappdatadir)" + success,
                            "FINE default log file path is " + defaultFolder(),
                            "TRACE SHGetFolderPath(0, CSIDL_DESKTOPDIRECTORY" + lookup + "desktopdir)" + success,
                            "TRACE file attributes are ffffffff", "FINE did not find magic logging directory " + magicFolder()));

    std::filesystem::create_directory(magicFolder());
    std::filesystem::remove(magicFolder());
    m_stream.clear();
    m_world.setPreference("loglevel", LOGLEVEL_TRACE);
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    messages = m_stream.messages();
    EXPECT_THAT(messages, Contains("TRACE ensuring directory " + defaultFolder() + "\\ exisits..."));
    EXPECT_THAT(messages, Contains("TRACE file attributes are 10"));

    std::filesystem::remove_all(defaultFolder());
    m_stream.clear();
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    EXPECT_THAT(m_stream.messages(), Contains("TRACE CreateDirectory(directory.c_str(), 0): success"));
    EXPECT_TRUE(exists(defaultFolder()));
}

TEST_F(LoggerFileTest, DesktopFolderIsReported)
{
    std::filesystem::create_directory(magicFolder());
    m_world.start();
    m_stream.clear();
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    EXPECT_TRUE(m_stream.contains("TRACE file attributes are 10"));
    EXPECT_TRUE(m_stream.contains("INFO found magic logging directory " + magicFolder()));
}

namespace {
std::string lookupFailure(int folder)
{
    char path[MAX_PATH + 1] = {};
    const HRESULT result = SHGetFolderPathA(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, path);
    EXPECT_TRUE(FAILED(result)) << "the test needs a folder that cannot be found";
    return ": failure: " + getWindowsErrorText(static_cast<unsigned>(result));
}
} // namespace

TEST_F(LoggerFileTest, FailedLookupOfTheApplicationDataFolderLeavesTheDirectoryAsItWas)
{
    std::filesystem::remove(m_world.appData());
    m_world.start();
    const std::string failure = lookupFailure(CSIDL_LOCAL_APPDATA);
    EXPECT_TRUE(
        m_stream.contains("ERROR SHGetFolderPath(0, CSIDL_LOCAL_APPDATA, 0, SHGFP_TYPE_CURRENT, localappdatadir)" + failure));
    EXPECT_EQ(logger().logDirectory(), "");
    EXPECT_EQ(logger().logFilePrefix(), "");

    m_world.setPreference("logpath", m_world.folder());
    m_world.start();
    EXPECT_EQ(logger().logDirectory(), m_world.folder() + "\\") << "the registry is read all the same";
}

TEST_F(LoggerFileTest, FailedLookupOfTheDesktopMeansTheRegistry)
{
    std::filesystem::remove(m_world.desktop());
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.start();
    const std::string failure = lookupFailure(CSIDL_DESKTOPDIRECTORY);
    EXPECT_TRUE(
        m_stream.contains("ERROR SHGetFolderPath(0, CSIDL_DESKTOPDIRECTORY, 0, SHGFP_TYPE_CURRENT, desktopdir)" + failure));
    EXPECT_EQ(logger().maxLogLevel(), LOGLEVEL_INFO);
    EXPECT_EQ(logger().logDirectory(), defaultFolder() + "\\");
}

TEST_F(LoggerFileTest, EmptyLogPathTurnsFileLoggingOff)
{
    m_world.setPreference("logpath", "");
    m_world.start();
    EXPECT_EQ(logger().logDirectory(), "");
    EXPECT_EQ(logger().logFilePrefix(), "");
    writeLine("text");
    EXPECT_TRUE(m_stream.contains("WARN text"));
    EXPECT_THAT(m_stream.texts(), Not(Contains(GIVING_UP)));
}

TEST_F(LoggerFileTest, FolderThatIsMissingOneLevelIsMade)
{
    m_world.setPreference("logpath", m_world.folder() + "\\one\\");
    m_world.start();
    EXPECT_EQ(logger().logDirectory(), m_world.folder() + "\\one\\");
    writeLine("text");
    EXPECT_EQ(m_world.logLines().back().body, "   text");
}

TEST_F(LoggerFileTest, FolderThatIsMissingTwoLevelsEndsFileLogging)
{
    m_world.setPreference("logpath", m_world.folder() + "\\one\\two");
    m_world.start();
    EXPECT_THAT(m_stream.messages(),
                Contains("ERROR CreateDirectory(directory.c_str(), 0): failure: " + getWindowsErrorText(ERROR_PATH_NOT_FOUND)));
    // The exit lines of the scopes in the error's backtrace are the first lines for the file.
    EXPECT_EQ(logger().logFilePrefix(), "");
    m_stream.clear();
    writeLine("goes on");
    writeLine("and on");
    EXPECT_THAT(m_stream.messages(), ElementsAre("WARN goes on", "WARN and on")) << "no second attempt";
    EXPECT_FALSE(exists(m_world.folder() + "\\one"));
}

TEST_F(LoggerFileTest, FirstFileThatCannotBeOpenedEndsFileLogging)
{
    m_world.start();
    std::filesystem::create_directory(logger().logFilePrefix() + ".log");
    m_stream.clear();
    writeLine("text");
    writeLine("more");
    EXPECT_EQ(m_stream.texts().size(), 3u);
    EXPECT_EQ(m_stream.texts()[1], GIVING_UP);
    EXPECT_EQ(logger().logFilePrefix(), "");
}

TEST_F(LoggerFileTest, FileThatAnotherProgramKeepsForItselfEndsFileLogging)
{
    m_world.start();
    const HANDLE other =
        CreateFileA((logger().logFilePrefix() + ".log").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    m_stream.clear();
    writeLine("text");
    EXPECT_THAT(m_stream.texts(), Contains(GIVING_UP));
    EXPECT_EQ(logger().logFilePrefix(), "");
    CloseHandle(other);
    m_stream.clear();
    writeLine("goes on");
    EXPECT_THAT(m_stream.messages(), ElementsAre("WARN goes on"));
}

TEST_F(LoggerFileTest, FolderThatCannotBeWrittenEndsFileLogging)
{
    constexpr const char* READ_ONLY = "Z:\\proc";
    if (!std::filesystem::is_directory(READ_ONLY)) {
        GTEST_SKIP() << "needs a folder in which nobody can make a file";
    }
    m_world.setPreference("logpath", READ_ONLY);
    m_world.start();
    m_stream.clear();
    writeLine("text");
    writeLine("goes on");
    ASSERT_EQ(m_stream.texts().size(), 3u);
    EXPECT_EQ(m_stream.texts()[1], GIVING_UP);
    EXPECT_EQ(m_stream.messages()[2], "WARN goes on");
}

TEST_F(LoggerFileTest, AppendsToAFileThatIsThere)
{
    m_world.start();
    std::ofstream(logger().logFilePrefix() + ".log", std::ios::binary) << "of an earlier process\r\n";
    writeLine("text");
    const std::vector<std::string> lines = fixtures::splitLines(m_world.logText());
    EXPECT_EQ(lines.front(), "of an earlier process");
    EXPECT_TRUE(lines.back().ends_with("    text"));
}

TEST_F(LoggerFileTest, LinesEndInCarriageReturnAndLineFeed)
{
    m_world.start();
    writeLine("one\ntwo");
    LOG_PLAIN(ERROR, "three");
    const std::string text = fixtures::readFile(logger().logFilePrefix() + ".log");
    EXPECT_NE(text.find("    one\r\ntwo\r\n"), std::string::npos);
    EXPECT_NE(text.find(std::string(fixtures::BEGIN_BANNER) + "\r\n"), std::string::npos);
    EXPECT_TRUE(text.ends_with(std::string(fixtures::END_BANNER) + "\r\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), std::count(text.begin(), text.end(), '\n'));
}

TEST_F(LoggerFileTest, OthersReadAndWriteItWhileItIsOpen)
{
    m_world.start();
    writeLine("ours");
    const std::string path = logger().logFilePrefix() + ".log";
    const HANDLE other = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    SetFilePointer(other, 0, nullptr, FILE_END);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(other, "theirs\r\n", 8, &written, nullptr));
    writeLine("ours again");
    CloseHandle(other);
    const std::vector<std::string> lines = fixtures::splitLines(m_world.logText());
    ASSERT_GE(lines.size(), 3u);
    EXPECT_TRUE(lines[lines.size() - 3].ends_with("    ours"));
    EXPECT_EQ(lines[lines.size() - 2], "theirs");
    EXPECT_TRUE(lines[lines.size() - 1].ends_with("    ours again"));
}

TEST_F(LoggerFileTest, ReInitialisationElsewhereRedirectsTheOpenFile)
{
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.start();
    const std::string before = logger().logFilePrefix();
    const std::string elsewhere = m_world.folder() + "\\elsewhere";
    m_world.setPreference("logpath", elsewhere);
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    EXPECT_EQ(logger().logFilePrefix(), elsewhere + "\\" + fileName());
    EXPECT_TRUE(fixtures::readFile(before + ".log").ends_with("Re-directing logging, closing this log file\r\n"));
    const std::vector<fixtures::LogLine> lines = m_world.logLines();
    ASSERT_EQ(lines.size(), 1u) << "the system information is written once a process";
    EXPECT_EQ(lines[0].text(), "Re-directing logging with log level INFO, log file prefix is " + elsewhere + "\\" + fileName());
}

TEST_F(LoggerFileTest, ReInitialisationWithTheSameNameKeepsTheFile)
{
    m_world.start();
    writeLine("one");
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    writeLine("two");
    const std::vector<fixtures::LogLine> lines = m_world.logLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2].text(), "one");
    EXPECT_EQ(lines[lines.size() - 1].text(), "two");
}

TEST_F(LoggerFileTest, GiveUpIsFinalAlsoForAReInitialisation)
{
    m_world.start();
    std::filesystem::create_directory(logger().logFilePrefix() + ".log");
    writeLine("gives up");
    std::filesystem::remove(defaultFolder() + "\\" + fileName() + ".log");
    Logger::instance()->initParametersFromRegistryOrSpecialFolder();
    writeLine("text");
    EXPECT_FALSE(exists(defaultFolder() + "\\" + fileName() + ".log"));
}

TEST_F(LoggerFileTest, EndOfTheLoggerIsItsLastLine)
{
    m_world.setPreference("loglevel", LOGLEVEL_FINE);
    m_world.start();
    const std::string path = logger().logFilePrefix() + ".log";
    Logger::release();
    EXPECT_TRUE(fixtures::readFile(path).ends_with("    End of logging, further static deinitializers can not log anymore\r\n"));
    EXPECT_TRUE(std::filesystem::remove(path)) << "closed";
}

namespace {
std::vector<std::string> systemInformation(const std::vector<fixtures::LogLine>& lines)
{
    std::vector<std::string> result;
    for (const fixtures::LogLine& line : lines) {
        if (line.level == "ALWAYS") {
            result.push_back(line.body);
        }
    }
    return result;
}
} // namespace

TEST_F(LoggerFileTest, BeginsWithTheSystemInformation)
{
    m_world.start();
    {
        LOG_SCOPE_STATIC(INFO, "Sample::outer");
        LOG(WARN, "text");
    }
    const std::vector<fixtures::LogLine> lines = m_world.logLines();
    ASSERT_EQ(lines.size(), 5u);
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    const std::string gcc = std::to_string(__GNUC__ * 10000 + __GNUC_MINOR__ * 100 + __GNUC_PATCHLEVEL__);
    EXPECT_EQ(lines[0].body, "    " + std::string(PRODUCT) + " version: , ATL version: 0x100, compiler version: " + gcc);
    EXPECT_TRUE(std::regex_match(lines[1].body, std::regex("    Windows version: \\d+\\.\\d+\\.\\d+, service pack \\d+\\.\\d+, "
                                                           "suite mask: [0-9a-f]+, product type \\d+, WOW64 process: false")))
        << lines[1].body;
    EXPECT_EQ(lines[2].body, "    System Metrics: SM_REMOTECONTROL=" + std::to_string(GetSystemMetrics(SM_REMOTECONTROL)) +
                                 ", SM_REMOTESESSION=" + std::to_string(GetSystemMetrics(SM_REMOTESESSION)) +
                                 ", SM_SLOWMACHINE=" + std::to_string(GetSystemMetrics(SM_SLOWMACHINE)) +
                                 ", SM_NETWORK=" + std::to_string(GetSystemMetrics(SM_NETWORK)) +
                                 ", SM_MEDIACENTER=" + std::to_string(GetSystemMetrics(SM_MEDIACENTER)) +
                                 ", SM_PENWINDOWS=" + std::to_string(GetSystemMetrics(SM_PENWINDOWS)) +
                                 ", SM_TABLETPC=" + std::to_string(GetSystemMetrics(SM_TABLETPC)));
    std::ostringstream mask;
    mask << "0x" << std::hex << system.dwActiveProcessorMask;
    EXPECT_EQ(lines[3].body, "    Hardware Info: processor type=" + std::to_string(system.dwProcessorType) +
                                 ", level=" + std::to_string(system.wProcessorLevel) +
                                 ", revision=" + std::to_string(system.wProcessorRevision) +
                                 ", number of processors=" + std::to_string(system.dwNumberOfProcessors) +
                                 ", processor mask=" + mask.str() + ", page size=" + std::to_string(system.dwPageSize));
    EXPECT_EQ(lines[4].body, "    text");
}

TEST_F(LoggerFileTest, SystemInformationStaysOutOfTheBacktraceThatOpensTheFile)
{
    m_world.start();
    m_stream.clear();
    {
        LOG_SCOPE_STATIC(INFO, "Sample::outer");
        LOG(ERROR, "the first line of the file is a banner");
    }
    const std::vector<fixtures::LogLine> lines = m_world.logLines();
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(systemInformation(lines).size(), 4u);
    EXPECT_EQ(lines[4].body, fixtures::BEGIN_BANNER);
    EXPECT_EQ(lines[5].body, "    the first line of the file is a banner");
    EXPECT_EQ(lines[6].body, "-> ");
    EXPECT_EQ(lines[7].body, fixtures::END_BANNER);
    EXPECT_EQ(lines[8].body, "<- ");
    EXPECT_EQ(lines[0].body.substr(0, 5), "    U") << "at its own depth";
    const std::vector<fixtures::LogLine> entries = fixtures::parseLogLines(Logger::getErrorEntries());
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].text(), "the first line of the file is a banner");
    EXPECT_EQ(entries[1].body, "-> ");
}

TEST_F(LoggerFileTest, SystemInformationIsLoggedWithItsCheckAtFullDetail)
{
    m_world.setPreference("loglevel", LOGLEVEL_TRACE);
    m_world.start();
    EXPECT_TRUE(m_stream.contains("TRACE GetVersionEx((OSVERSIONINFO*)&versionInfo): true"));
}
