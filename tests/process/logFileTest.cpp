// The log files of real server processes.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>
#include <shlobj.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <set>

namespace fixtures {
namespace {

using testing::Contains;
using testing::Not;

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

// Header, then indentation or the marker of a scope, then text.
bool hasFormat(const std::string& line)
{
    static const std::regex s_begin(R"(( {3,23}| {0,20}-> | {0,20}<- )\S.*)");
    const LogLine parsed = parseLogLine(line);
    return MODULES.contains(parsed.source) && std::regex_match(parsed.body.substr(0, 30), s_begin);
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

    // Of everything that a process has sent, with and without header.
    auto countSent(DWORD process, const std::string& text) const
    {
        return std::ranges::count_if(
            monitor.linesFrom(0), [&](const CDebugMonitor::Line& line) { return line.process == process && line.text == text; });
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
    EXPECT_EQ(callMethod(manager.object, "echo", "counted"), "counted");
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
    std::string previous;
    for (const std::string& line : file) {
        if (hasFormat(line)) {
            ++withHeader;
        } else if (isBanner(line)) {
            ++banners;
        } else {
            EXPECT_THAT(previous, testing::HasSubstr("  Exception: java.lang."));
            rests.push_back(line);
        }
        previous = line;
    }
    EXPECT_LT(1000u, withHeader);
    EXPECT_EQ(banners, 10u);
    // The line feeds of the two exceptions' own texts.
    EXPECT_EQ(rests, (std::vector<std::string>{"", ""}));

    // Some twenty lines for a call, on the thread that handles it.
    const std::string call = "CJavaManagerATLObject  callMethod echo, counted";
    int ofCall = 0;
    unsigned long mainThread = 0;
    for (const std::string& line : file) {
        const LogLine parsed = parseLogLine(line);
        if (messageOf(parsed) == "-> " + call) {
            mainThread = parsed.thread;
        }
        ofCall += mainThread != 0 && parsed.thread == mainThread ? 1 : 0;
        if (messageOf(parsed) == "<- " + call) {
            break;
        }
    }
    EXPECT_THAT(ofCall, testing::AllOf(testing::Ge(15), testing::Le(25)));

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

    // The facts about the system are at the top.
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

TEST_F(LogFileTest, MissingFolderIsMadeButNotTheOneAboveIt)
{
    settings.setPreference("logpath", folder.file("new"));
    DWORD id = runShortly();
    EXPECT_THAT(filesIn(folder.file("new")), testing::ElementsAre(fileName(id)));
    EXPECT_THAT(messages(id), Contains("CreateDirectory(directory.c_str(), 0): success"));

    settings.setPreference("logpath", folder.file("missing\\new"));
    id = runShortly();
    EXPECT_THAT(messages(id), Contains("CreateDirectory(directory.c_str(), 0): failure: " + systemText(ERROR_PATH_NOT_FOUND)));
    EXPECT_EQ(countSent(id, GIVING_UP), 1);
    EXPECT_FALSE(std::filesystem::exists(folder.file("missing")));

    // Where a file stands in the folder's place.
    writeFile(folder.file("file"), "");
    settings.setPreference("logpath", folder.file("file"));
    id = runShortly();
    EXPECT_EQ(countSent(id, GIVING_UP), 1);
    EXPECT_EQ(readFile(folder.file("file")), "");
}

TEST_F(LogFileTest, EmptyPathTurnsFilesOffAndNoPathMeansTheUsersFolder)
{
    const std::string usersFolder = specialFolder(CSIDL_LOCAL_APPDATA) + "\\KESTA-logs";
    const DWORD without = runShortly();
    EXPECT_THAT(filesIn(usersFolder), Not(Contains(fileName(without))));
    EXPECT_EQ(countSent(without, GIVING_UP), 0);

    settings.removePreference("logpath");
    const DWORD with = runShortly();
    EXPECT_THAT(filesIn(usersFolder), Contains(fileName(with)));
    std::filesystem::remove(usersFolder + "\\" + fileName(with));
}

TEST_F(LogFileTest, OldFilesAreDeletedUnlessSomebodyHasThemOpen)
{
    using std::chrono::days;
    using std::chrono::seconds;
    const auto writeAged = [&](const char* name, seconds age) {
        writeFile(folder.file(name), "old");
        std::filesystem::last_write_time(folder.file(name), std::filesystem::file_time_type::clock::now() - age);
    };
    writeAged("KESTA-locked.log", days(29));
    writeAged("KESTA-old.log", days(28) + seconds(1));
    writeAged("KESTA-young.log", days(28) - seconds(60));
    writeAged("other-old.log", days(29));
    writeAged("hs_err_pid42.log", days(29));
    const ATL::CHandle locked(
        CreateFileA(folder.file("KESTA-locked.log").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    settings.setPreference("logpath", folder.path());
    const DWORD id = runShortly();

    EXPECT_THAT(messages(id),
                testing::IsSupersetOf({"Deleting old log file KESTA-locked.log", "Deleting old log file KESTA-old.log"}));
    EXPECT_THAT(filesIn(folder.path()), testing::UnorderedElementsAre(fileName(id), "KESTA-locked.log", "KESTA-young.log",
                                                                      "other-old.log", "hs_err_pid42.log"));
    EXPECT_FALSE(logFileLines(id).empty());
}

// Java's newer key is there, the older one and the preferences are not. Each error's backtrace is in the client's text as well.
TEST_F(LogFileTest, MachineWithoutPreferencesAndOlderKeyTellsSevenErrors)
{
    const std::string missingKey = "CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false";
    settings.removePreferences();
    SManager manager = create();
    const DWORD id = manager.server->id();
    const std::string path = specialFolder(CSIDL_LOCAL_APPDATA) + "\\KESTA-logs\\" + fileName(id);
    const auto linesOfFile = [&path] {
        std::string content = readFile(path);
        std::erase(content, '\r');
        return parseLogLines(content);
    };
    const std::vector<LogLine> start = linesOfFile();
    const SCallResult failed = call(manager.object, 3, "nothing", "");
    EXPECT_EQ(failed.result, E_FAIL);
    const std::vector<std::string> text = messagesOf(failed.description);
    EXPECT_EQ(std::ranges::count(text, missingKey), 7);
    EXPECT_EQ(text.front(), missingKey);
    EXPECT_EQ(countMessages(id, missingKey), 7u);
    const auto isMissingKey = [&](const LogLine& line) { return messageOf(line) == missingKey; };
    // Who asked for the key each time: the first function below the registry's.
    std::vector<std::string> modules;
    std::set<std::pair<std::string, int>> functions;
    const std::vector<LogLine> told = parseLogLines(failed.description);
    for (auto line = told.begin(); (line = std::find_if(line, told.end(), isMissingKey)) != told.end();) {
        line = std::find_if(line, told.end(), [](const LogLine& below) { return below.module() != "registry"; });
        modules.push_back(line->module());
        functions.insert({line->module(), line->line});
    }
    EXPECT_THAT(modules, testing::ElementsAre("logger", "JavaManagerATLObject", "JavaManagerJNIClient", "JavaManagerJNIClient",
                                              "JavaManagerJNIClient", "JavaManagerJNIClient", "JavaManagerJNIClient"));
    EXPECT_EQ(functions.size(), 5u) << "one looks for a runtime with two keys, and one for two kinds of options";
    EXPECT_EQ(std::ranges::count_if(start, isMissingKey), 6) << "the first one came before the file";
    ASSERT_LE(5u, start.size());
    EXPECT_TRUE(std::all_of(start.begin(), start.begin() + 4, [](const LogLine& line) { return line.level == "ALWAYS"; }));
    EXPECT_EQ(start[4].marker(), "<- ");
    // Some twenty lines for a failing call.
    EXPECT_THAT(linesOfFile().size() - start.size(), testing::AllOf(testing::Ge(15u), testing::Le(25u)));
    release(manager);
    std::filesystem::remove(path);
}

class LogLevelTest : public LogFileTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Levels, LogLevelTest, testing::Values(2, 3, 4, 5), testing::PrintToStringParamName());

TEST_P(LogLevelTest, ShowsArgumentsFromInfoOnEventsFromFineOnAndAnswersNever)
{
    setLogLevel(static_cast<DWORD>(GetParam()));
    logToFile();
    SManager manager = create();
    CSink sink;
    CConnection connection(manager.object, sink);
    EXPECT_EQ(callMethod(manager.object, "throw", "of an exception"), "(failed)");
    EXPECT_EQ(callMethod(manager.object, "nullDereference", "of a failed call"), "(failed)");
    EXPECT_EQ(callMethod(manager.object, "units", "argument"), "0061007200670075006D0065006E0074");
    EXPECT_EQ(call(manager.object, 11, "property", "value").answer, "value");
    EXPECT_EQ(callMethod(manager.object, "burst", "1"), "1");
    EXPECT_TRUE(pumpUntil([&] { return sink.has(CUSTOM_EVENT, "burst 1.1.1"); }));
    connection.end();
    release(manager);
    const std::string content = readFile(logFile(manager.server->id()));
    const auto isShown = [&content](const char* text) { return content.find(text) != std::string::npos; };
    EXPECT_TRUE(isShown("Exception: java.lang.IllegalStateException: of an exception"));
    EXPECT_EQ(isShown("callMethod units, argument"), GetParam() >= 3);
    EXPECT_EQ(isShown("setProperty property, value"), GetParam() >= 3);
    EXPECT_EQ(isShown("burst 1.1.1"), GetParam() >= 4);
    EXPECT_FALSE(isShown("0061007200670075006D0065006E0074"));
    const std::string ofControl = readFile(folder.file("KESTA-control-" + std::to_string(manager.server->id()) + ".log"));
    EXPECT_THAT(ofControl, testing::HasSubstr("callMethod(nullDereference, of a failed call)"));
    EXPECT_THAT(ofControl, Not(testing::HasSubstr("0061007200670075006D0065006E0074")));
}

// A folder on the desktop, removed at the end of the test.
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
    useRuntime(GetParam());
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
