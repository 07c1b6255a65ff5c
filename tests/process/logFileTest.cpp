// The log files of real server processes.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>
#include <shlobj.h>

#include <algorithm>
#include <regex>

namespace fixtures {
namespace {

using testing::Contains;
using testing::Not;

constexpr char BEGIN_BANNER[] = "/******************************************** error detected - begin backtrace "
                                "********************************************\\";
constexpr char END_BANNER[] = "\\************************************************** end error backtrace "
                              "***************************************************/";

// The form of every line: time, thread, level, module, line number, indentation or scope marker, text.
const std::regex
    LINE(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \d{5,} (ALWAYS|ERROR |WARN  |INFO  |FINE  |TRACE ) )"
         R"((KESTAserver         |JavaManagerATLObject|BeanFrame           |JavaManagerJNIClient|JNIHelper           )"
         R"(|logger              |registry            |helpers             |version             ) \d{3,} )"
         R"(( {3,23}| {0,20}-> | {0,20}<- )\S.*)");

std::string specialFolder(int id)
{
    char path[MAX_PATH] = {};
    SHGetFolderPathA(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, path);
    return path;
}

class LogFileTest : public ServerTest
{
protected:
    static constexpr char GIVING_UP[] = "Could not open log file, giving up logging to files";

    // A run that needs no Java: the process logs from its first to its last moment like any other.
    DWORD runShortly()
    {
        const CProgram server("\"" + buildFolder() + "\\KESTAx64.exe\" /RegServer");
        EXPECT_EQ(server.process().exitCode(), 0u);
        return server.process().id();
    }

    size_t countRaw(DWORD process, const std::string& text) const
    {
        const std::vector<std::string> lines = monitor.lines(process);
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
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
    manager.object.Release();
    expectEnd(*manager.server);

    const std::string content = readFile(logFile(id));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), std::count(content.begin(), content.end(), '\r'));
    EXPECT_TRUE(content.ends_with("\r\n"));
    const std::vector<std::string> lines = logFileLines(id);
    std::map<std::string, size_t> kinds;
    for (size_t index = 0; index < lines.size(); ++index) {
        const std::string& line = lines[index];
        // A text of two lines: an exception's own line feed, which an empty line shows.
        const bool isRest = line.empty() && index > 0 && lines[index - 1].find("  Exception: java.lang.") != std::string::npos;
        const bool isBanner = line == BEGIN_BANNER || line == END_BANNER;
        ++kinds[isRest ? "rest" : isBanner ? "banner" : "line"];
        if (!isRest && !isBanner) {
            EXPECT_TRUE(std::regex_match(line, LINE)) << "line " << index + 1 << ": \"" << line << "\"";
        }
    }
    EXPECT_EQ(kinds["rest"], 2u);
    EXPECT_EQ(kinds["banner"], 10u);
    EXPECT_LT(1000u, kinds["line"]);
    std::printf("%zu lines, %zu banners, %zu rests of texts\n", kinds["line"], kinds["banner"], kinds["rest"]);

    // What is in the file also went to the debugger stream.
    std::vector<std::string> stream;
    for (const std::string& text : monitor.lines(id)) {
        std::istringstream parts(text.substr(sizeof "KESTA KESTAx64.exe " - 1));
        for (std::string part; std::getline(parts, part);) {
            stream.push_back(part);
        }
        if (text.ends_with('\n')) {
            stream.emplace_back();
        }
    }
    std::vector<std::string> sorted = lines;
    std::sort(sorted.begin(), sorted.end());
    std::sort(stream.begin(), stream.end());
    EXPECT_TRUE(std::includes(stream.begin(), stream.end(), sorted.begin(), sorted.end()));

    // The facts of the system stand at the top.
    std::vector<std::string> facts;
    for (const std::string& line : lines) {
        const auto parsed = parseLogLine(line);
        if (parsed && parsed->level == "ALWAYS") {
            facts.push_back(parsed->message.substr(0, parsed->message.find_first_of(":=") + 1));
        }
    }
    EXPECT_EQ((std::vector<std::string>{"KESTA version:", "Windows version:", "System Metrics:", "Hardware Info:"}), facts);
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
    for (SManager* manager : {&first, &second}) {
        manager->object.Release();
        expectEnd(*manager->server);
    }

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
        EXPECT_TRUE(std::regex_match(line, LINE) || line == "a note of somebody else" || line == BEGIN_BANNER ||
                    line == END_BANNER)
            << line;
    }
}

TEST_F(LogFileTest, MissingFolderIsMadeButNotTheOneAboveIt)
{
    settings.setPreference("logpath", folder.file("new"));
    DWORD id = runShortly();
    EXPECT_THAT(filesIn(folder.file("new")), testing::ElementsAre(fileName(id)));
    EXPECT_THAT(messages(id), Contains("CreateDirectory(directory.c_str(), 0): success"));

    settings.setPreference("logpath", folder.file("missing\\new"));
    id = runShortly();
    EXPECT_THAT(messages(id), Contains("CreateDirectory(directory.c_str(), 0): failure: " + systemText(ERROR_PATH_NOT_FOUND)));
    EXPECT_EQ(countRaw(id, GIVING_UP), 1u);
    EXPECT_EQ(GetFileAttributesA(folder.file("missing").c_str()), INVALID_FILE_ATTRIBUTES);

    // Where a file stands in the folder's place.
    writeFile(folder.file("file"), "");
    settings.setPreference("logpath", folder.file("file"));
    id = runShortly();
    EXPECT_EQ(countRaw(id, GIVING_UP), 1u);
    EXPECT_EQ(readFile(folder.file("file")), "");
}

TEST_F(LogFileTest, EmptyPathTurnsFilesOffAndNoPathMeansTheUsersFolder)
{
    const std::string usersFolder = specialFolder(CSIDL_LOCAL_APPDATA) + "\\KESTA-logs";
    const DWORD without = runShortly();
    EXPECT_THAT(filesIn(usersFolder), Not(Contains(fileName(without))));
    EXPECT_EQ(countRaw(without, GIVING_UP), 0u);

    settings.removePreference("logpath");
    const DWORD with = runShortly();
    EXPECT_THAT(filesIn(usersFolder), Contains(fileName(with)));
    DeleteFileA((usersFolder + "\\" + fileName(with)).c_str());
}

TEST_F(LogFileTest, OldFilesAreDeletedUnlessSomebodyHasThemOpen)
{
    constexpr ULONGLONG SECOND = 10000000;
    constexpr ULONGLONG DAY = 86400 * SECOND;
    ULARGE_INTEGER now = {};
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    now.LowPart = time.dwLowDateTime;
    now.HighPart = time.dwHighDateTime;
    const auto makeFile = [&](const char* name, ULONGLONG age) {
        writeFile(folder.file(name), "old");
        ULARGE_INTEGER written = {};
        written.QuadPart = now.QuadPart - age;
        const FILETIME writeTime = {written.LowPart, written.HighPart};
        const HANDLE file =
            CreateFileA(folder.file(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        SetFileTime(file, nullptr, nullptr, &writeTime);
        return file;
    };
    const HANDLE locked = makeFile("KESTA-locked.log", 29 * DAY);
    CloseHandle(makeFile("KESTA-old.log", 28 * DAY + SECOND));
    CloseHandle(makeFile("KESTA-young.log", 28 * DAY - 60 * SECOND));
    CloseHandle(makeFile("other-old.log", 29 * DAY));
    settings.setPreference("logpath", folder.path());
    const DWORD id = runShortly();
    CloseHandle(locked);

    EXPECT_THAT(messages(id), Contains("Deleting old log file KESTA-locked.log"));
    EXPECT_THAT(messages(id), Contains("Deleting old log file KESTA-old.log"));
    EXPECT_THAT(filesIn(folder.path()),
                testing::UnorderedElementsAre(fileName(id), "KESTA-locked.log", "KESTA-young.log", "other-old.log"));
    EXPECT_FALSE(logFileLines(id).empty());
}

// A folder on the desktop, gone at the end of the test.
class DesktopFolderTest : public LogFileTest, public testing::WithParamInterface<int>
{
protected:
    void SetUp() override
    {
        LogFileTest::SetUp();
        removeFolder();
        ASSERT_TRUE(CreateDirectoryA(desktopFolder.c_str(), nullptr));
    }
    void TearDown() override
    {
        removeFolder();
        LogFileTest::TearDown();
    }
    void removeFolder() const
    {
        for (const std::string& name : filesIn(desktopFolder)) {
            DeleteFileA((desktopFolder + "\\" + name).c_str());
        }
        RemoveDirectoryA(desktopFolder.c_str());
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
    manager.object.Release();
    expectEnd(*manager.server);

    EXPECT_EQ(GetFileAttributesA(folder.file("elsewhere").c_str()), INVALID_FILE_ATTRIBUTES);
    const std::string prefix = desktopFolder + "\\KESTA-KESTAx64.exe-" + std::to_string(id);
    const std::vector<std::string> log = messagesOf(readFile(prefix + ".log"));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  Adding additional JVM options for extra logging\r"));
    EXPECT_THAT(log, Contains("-> CJavaManagerATLObject  callMethod echo, Hello\r"));
    EXPECT_NE(readFile(prefix + "-jvm.log"), "");
    EXPECT_EQ(readFile(prefix + "-jvm-error.log"), "");
}

} // namespace
} // namespace fixtures
