// The log files of real server processes.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>
#include <shlobj.h>

#include <algorithm>
#include <set>
#include <sstream>

namespace fixtures {
namespace {

using testing::Contains;

const std::set<std::string> MODULES = {
    "BeanFrame           ", "JNIHelper           ", "JavaManagerATLObject", "JavaManagerJNIClient", "KESTAserver         ",
    "helpers             ", "logger              ", "registry            ", "version             ",
};

std::string specialFolder(int id)
{
    char path[MAX_PATH] = {};
    SHGetFolderPathA(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, path);
    return path;
}

bool isBanner(const std::string& line)
{
    return line == BEGIN_BANNER || line == END_BANNER;
}

bool hasFormat(const std::string& line)
{
    return MODULES.contains(parseLogLine(line).source);
}

class LogFileTest : public ServerTest
{
protected:
    // A run that needs no Java: the process logs from its first to its last moment like any other.
    DWORD runShortly()
    {
        const CProgram server("\"" + buildFolder() + "\\KESTAx64.exe\" /RegServer");
        EXPECT_EQ(server.process().exitCode(), 0u);
        return server.process().id();
    }

    static std::string fileName(DWORD process) { return "KESTA-KESTAx64.exe-" + std::to_string(process) + ".log"; }
};

TEST_F(LogFileTest, EveryLineOfAWholeRunHasTheFormat)
{
    settings.setPreference("logpath", folder.path());
    SManager manager = create();
    const DWORD id = manager.server->id();
    CClientWindow window;
    CSink sink;
    CConnection connection(manager.object, sink);
    EXPECT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    EXPECT_EQ(callMethod(manager.object, "burst", "10;4"), "40");
    EXPECT_EQ(callMethod(manager.object, "throw", "on purpose"), "(failed)");
    EXPECT_EQ(callMethod(manager.object, "throwNoMessage", ""), "(failed)");
    EXPECT_EQ(manager->testBridge(ATL::CComBSTR(L"abc"), 3, 20), S_OK);
    EXPECT_TRUE(pumpUntil([&] { return sink.events.size() == 42; }));
    connection.end();
    release(manager);

    const std::string content = readFile(logFile(id));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), std::count(content.begin(), content.end(), '\r'));
    EXPECT_TRUE(content.ends_with("\r\n"));
    const std::vector<std::string> file = logFileLines(id);
    size_t withHeader = 0;
    size_t banners = 0;
    std::vector<std::string> rests; // of texts with several lines
    for (const std::string& line : file) {
        if (hasFormat(line)) {
            ++withHeader;
        } else if (isBanner(line)) {
            ++banners;
        } else {
            rests.push_back(line);
        }
    }
    EXPECT_LT(1000u, withHeader);
    EXPECT_EQ(banners, 10u);
    // The line feeds of the two exceptions' own texts.
    EXPECT_EQ(rests, (std::vector<std::string>{"", ""}));

    // What is in the file also went to the debugger stream.
    std::vector<std::string> stream;
    for (const CDebugMonitor::Line& sent : monitor.linesFrom(0)) {
        if (sent.process == id) {
            const std::vector<std::string> parts = splitLines(sent.text);
            stream.insert(stream.end(), parts.begin(), parts.end());
            if (sent.text.ends_with('\n')) {
                stream.emplace_back();
            }
        }
    }
    std::vector<std::string> sorted = file;
    std::ranges::sort(sorted);
    std::ranges::sort(stream);
    EXPECT_TRUE(std::ranges::includes(stream, sorted));

    // The facts about the system stand at the top.
    std::vector<std::string> facts;
    for (const std::string& line : file) {
        const LogLine parsed = parseLogLine(line);
        if (parsed.level == "ALWAYS") {
            facts.push_back(parsed.text().substr(0, parsed.text().find_first_of(":=") + 1));
        }
    }
    EXPECT_EQ(facts, (std::vector<std::string>{"KESTA version:", "Windows version:", "System Metrics:", "Hardware Info:"}));
}

TEST_F(LogFileTest, TwoServersWriteTwoFilesWhichOthersMayReadAndWrite)
{
    logToFile();
    SManager first = create();
    SManager second = create();
    EXPECT_EQ((std::vector<std::string>{"one", "two"}),
              (std::vector<std::string>{callMethod(first.object, "echo", "one"), callMethod(second.object, "echo", "two")}));
    {
        const HANDLE file = CreateFileA(logFile(first.server->id()).c_str(), GENERIC_READ | FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        char begin[5] = {};
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(file, begin, 4, &count, nullptr));
        EXPECT_STREQ(std::string(begin, 1).c_str(), "2");
        SetFilePointer(file, 0, nullptr, FILE_END);
        EXPECT_TRUE(WriteFile(file, "a note of somebody else\r\n", 25, &count, nullptr));
        CloseHandle(file);
    }
    EXPECT_EQ(callMethod(first.object, "echo", "three"), "three");
    release(first);
    release(second);

    EXPECT_EQ(std::ranges::count_if(filesIn(folder.path()), [](const std::string& name) { return name.ends_with(".log"); }), 2);
    const std::string firstCall = "-> CJavaManagerATLObject  callMethod echo, ";
    const std::string contentOfFirst = readFile(logFile(first.server->id()));
    const std::string contentOfSecond = readFile(logFile(second.server->id()));
    const size_t one = contentOfFirst.find(firstCall + "one\r\n");
    const size_t note = contentOfFirst.find("\r\na note of somebody else\r\n");
    const size_t three = contentOfFirst.find(firstCall + "three\r\n");
    EXPECT_LT(one, note);
    EXPECT_LT(note, three);
    EXPECT_NE(std::string::npos, three);
    EXPECT_EQ(std::string::npos, contentOfFirst.find(firstCall + "two"));
    EXPECT_NE(std::string::npos, contentOfSecond.find(firstCall + "two\r\n"));
    EXPECT_EQ(std::string::npos, contentOfSecond.find(firstCall + "one"));
    for (const std::string& line : logFileLines(first.server->id())) {
        EXPECT_TRUE(hasFormat(line) || isBanner(line) || line == "a note of somebody else") << line;
    }
}

TEST_F(LogFileTest, WithoutAPathTheFileIsInTheUsersFolder)
{
    const std::string usersFolder = specialFolder(CSIDL_LOCAL_APPDATA) + "\\KESTA-logs";
    settings.removePreference("logpath");
    const DWORD id = runShortly();
    EXPECT_THAT(filesIn(usersFolder), Contains(fileName(id)));
    DeleteFileA((usersFolder + "\\" + fileName(id)).c_str());
}

// A folder on the desktop, gone at the end of the test.
class DesktopFolderTest : public LogFileTest, public testing::WithParamInterface<int>
{
protected:
    void SetUp() override
    {
        LogFileTest::SetUp();
        std::filesystem::create_directory(desktopFolder);
    }
    void TearDown() override
    {
        std::filesystem::remove_all(desktopFolder);
        LogFileTest::TearDown();
    }

    const std::string desktopFolder = specialFolder(CSIDL_DESKTOPDIRECTORY) + "\\KESTA-logs";
};

INSTANTIATE_TEST_SUITE_P(Runtimes, DesktopFolderTest, testing::Values(11, 17, 21, 25),
                         [](const auto& info) { return "Java" + std::to_string(info.param); });

TEST_P(DesktopFolderTest, SwitchesToFullDetailWithTheMachinesOwnLogOnEveryRuntime)
{
    // One of the runtimes looks for its neighbours on the search path.
    const std::string library = runtimeLibrary(GetParam());
    const std::string bin = library.substr(0, library.find("\\server\\"));
    SetEnvironmentVariableA("PATH", (bin + ";C:\\windows\\system32;C:\\windows").c_str());
    settings.setRuntime("current", library);
    setLogLevel(WARNINGS);
    settings.setPreference("logpath", folder.file("elsewhere"));
    monitor.stop();

    SManager manager = create();
    const DWORD id = manager.server->id();
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "Hello");
    release(manager);

    EXPECT_FALSE(std::filesystem::exists(folder.file("elsewhere")));
    const std::string prefix = desktopFolder + "\\KESTA-KESTAx64.exe-" + std::to_string(id);
    const std::vector<std::string> log = messagesOf(readFile(prefix + ".log"));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  Adding additional JVM options for extra logging\r"));
    EXPECT_THAT(log, Contains("-> CJavaManagerATLObject  callMethod echo, Hello\r"));
    EXPECT_NE(readFile(prefix + "-jvm.log"), "");
    EXPECT_FALSE(std::filesystem::exists(prefix + "-jvm-error.log"));
}

} // namespace
} // namespace fixtures
