// Statements, scopes, line format and the error backtrace.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerEntryTest"

using fixtures::BEGIN_BANNER;
using fixtures::DebugStream;
using fixtures::END_BANNER;
using fixtures::LoggerWorld;
using fixtures::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// "LEVEL|body" of each line, banners as they are; without the system information block, which has a test of its own.
std::vector<std::string> bodies(const std::vector<LogLine>& lines)
{
    std::vector<std::string> result;
    for (const LogLine& line : lines) {
        if (line.level != "ALWAYS") {
            result.push_back(line.level.empty() ? line.body : line.level + "|" + line.body);
        }
    }
    return result;
}

// Collects the debugger stream of a fresh Logger at the given level.
class LoggerEntryTest : public testing::Test
{
protected:
    LoggerEntryTest() { begin(LOGLEVEL_WARN); }
    void begin(int level, int traceLevel = LOGLEVEL_TRACE)
    {
        m_world.setPreference("loglevel", level);
        m_world.setPreference("traceloglevel", traceLevel);
        m_world.start();
        m_stream.clear();
    }
    std::vector<std::string> written() const { return bodies(m_stream.lines()); }

    LoggerWorld m_world;
    DebugStream m_stream;
};

void third()
{
    LOG_SCOPE_STATIC(FINE, "Sample::third", 3);
    LOG(ERROR, "broken");
}

void second()
{
    LOG_SCOPE_STATIC(FINE, "Sample::second", 2);
    third();
}

void first()
{
    LOG_SCOPE_STATIC(FINE, "Sample::first", 1);
    second();
}

class Control : public virtual Loggable
{
public:
    explicit Control(std::string info)
        : m_info(std::move(info))
    {
        LOG_SCOPE(INFO, "Control::Control", m_info);
    }
    std::string getLogObjectInfo() const override { return m_info; }
    void setBounds(int x, int y) { LOG_SCOPE(FINE, "Control::setBounds", x << ", " << y); }
    void rename(const char* info)
    {
        LOG_SCOPE(FINE, "Control::rename");
        LOG(FINE, "before");
        m_info = info;
        LOG(FINE, "after");
    }
    void fail()
    {
        LOG_SCOPE(FINE, "Control::fail");
        LOG(ERROR, "failed");
    }

private:
    std::string m_info;
};

class Derived : public Control
{
public:
    using Control::Control;
};

class Plain : public virtual Loggable
{
public:
    void call() { LOG_SCOPE(FINE, "Plain::call"); }
};

} // namespace

TEST_F(LoggerEntryTest, ErrorInsideThreeScopesWritesTheChainInnermostFirstAndThenTheExits)
{
    first();
    const std::vector<std::string> expected = {
        BEGIN_BANNER, "ERROR|      broken", "FINE|  -> ", "FINE| -> ", "FINE|-> ",
        END_BANNER,   "FINE|  <- ",         "FINE| <- ",  "FINE|<- ",
    };
    EXPECT_EQ(written(), expected);
    EXPECT_EQ(bodies(m_world.logLines()), expected);
}

TEST_F(LoggerEntryTest, ScopeTextsAreInTheBacktraceWhenTheirLevelIsOn)
{
    begin(LOGLEVEL_FINE);
    first();
    EXPECT_THAT(written(), ElementsAre("FINE|-> first 1", "FINE| -> second 2", "FINE|  -> third 3", BEGIN_BANNER,
                                       "ERROR|      broken", "FINE|  -> third 3", "FINE| -> second 2", "FINE|-> first 1",
                                       END_BANNER, "FINE|  <- third 3", "FINE| <- second 2", "FINE|<- first 1"));
}

TEST_F(LoggerEntryTest, BannersAre124CharactersAndALineFeed)
{
    first();
    const std::vector<std::string> texts = m_stream.texts();
    const std::string names = "UNDEFINEDPRODUCT support_loggerEntry_test.exe ";
    const auto atBegin = std::find(texts.begin(), texts.end(), names + BEGIN_BANNER + "\n");
    const auto atEnd = std::find(texts.begin(), texts.end(), names + END_BANNER + "\n");
    ASSERT_NE(atBegin, texts.end());
    ASSERT_NE(atEnd, texts.end());
    EXPECT_EQ(atBegin->size() - names.size(), 125u);
    EXPECT_EQ(atEnd->size() - names.size(), 125u);
    EXPECT_EQ(atBegin->substr(names.size()),
              "/" + std::string(44, '*') + " error detected - begin backtrace " + std::string(44, '*') + "\\\n");
    EXPECT_EQ(atEnd->substr(names.size()), "\\" + std::string(50, '*') + " end error backtrace " + std::string(51, '*') + "/\n");
}

TEST_F(LoggerEntryTest, ErrorBufferHoldsTheLinesWithoutBannersAndIsEmptiedByReading)
{
    first();
    const std::string entries = Logger::getErrorEntries();
    EXPECT_THAT(bodies(fixtures::parseLogLines(entries)),
                ElementsAre("ERROR|      broken", "FINE|  -> ", "FINE| -> ", "FINE|-> "));
    EXPECT_TRUE(entries.ends_with("-> \n"));
    EXPECT_EQ(entries.find('\r'), std::string::npos);
    EXPECT_EQ(Logger::getErrorEntries(), "");
}

TEST_F(LoggerEntryTest, EveryErrorWritesTheWholeChainAgainFromItsCachedLines)
{
    {
        LOG_SCOPE_STATIC(FINE, "Sample::outer");
        LOG(ERROR, "one");
        LOG(ERROR, "two");
    }
    EXPECT_THAT(written(), ElementsAre(BEGIN_BANNER, "ERROR|    one", "FINE|-> ", END_BANNER, BEGIN_BANNER, "ERROR|    two",
                                       "FINE|-> ", END_BANNER, "FINE|<- "));
    const std::vector<LogLine> lines = fixtures::parseLogLines(Logger::getErrorEntries());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1].time, lines[3].time);
}

TEST_F(LoggerEntryTest, LineIsFormattedOnce)
{
    begin(LOGLEVEL_FINE);
    {
        LOG_SCOPE_STATIC(FINE, "Sample::scope", 1);
        logScope.stream() << " and later";
        LOG(ERROR, "broken");
    }
    EXPECT_THAT(written(), ElementsAre("FINE|-> scope 1", BEGIN_BANNER, "ERROR|    broken", "FINE|-> scope 1", END_BANNER,
                                       "FINE|<- scope 1 and later"));
}

TEST_F(LoggerEntryTest, ErrorWithoutScopeHasNoChain)
{
    LOG_PLAIN(ERROR, "alone");
    EXPECT_THAT(written(), ElementsAre(BEGIN_BANNER, "ERROR|   alone", END_BANNER));
}

TEST_F(LoggerEntryTest, ErrorBufferIsSharedByAllThreadsAndScopesAreNot)
{
    LOG_SCOPE_STATIC(FINE, "Sample::mainThread");
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](void*) -> DWORD {
            LOG_SCOPE_STATIC(FINE, "Sample::otherThread");
            LOG(ERROR, "over there");
            return GetCurrentThreadId();
        },
        nullptr, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    DWORD id = 0;
    GetExitCodeThread(thread, &id);
    CloseHandle(thread);
    const std::vector<LogLine> lines = fixtures::parseLogLines(Logger::getErrorEntries());
    EXPECT_THAT(bodies(lines), ElementsAre("ERROR|    over there", "FINE|-> "));
    EXPECT_EQ(lines[0].thread, id);
    EXPECT_EQ(lines[1].thread, id);
}

TEST_F(LoggerEntryTest, ScopeLineOfAnObjectCarriesClassNameAndObjectText)
{
    begin(LOGLEVEL_FINE);
    Plain().call();
    Control control("frame 7");
    control.setBounds(0, 100);
    EXPECT_THAT(written(),
                ElementsAre("FINE|-> (anonymous namespace)::Plain  call ", "FINE|<- (anonymous namespace)::Plain  call ",
                            "INFO|-> (anonymous namespace)::Control frame 7 Control frame 7",
                            "INFO|<- (anonymous namespace)::Control frame 7 Control frame 7",
                            "FINE|-> (anonymous namespace)::Control frame 7 setBounds 0, 100",
                            "FINE|<- (anonymous namespace)::Control frame 7 setBounds 0, 100"));
}

TEST_F(LoggerEntryTest, ScopeKeepsTheObjectTextOfItsCreationAndStatementsTakeTheCurrentOne)
{
    begin(LOGLEVEL_FINE);
    Control control("old");
    m_stream.clear();
    control.rename("new");
    const std::string name = "(anonymous namespace)::Control ";
    EXPECT_THAT(written(), ElementsAre("FINE|-> " + name + "old rename ", "FINE|    " + name + "old before",
                                       "FINE|    " + name + "new after", "FINE|<- " + name + "old rename "));
}

TEST_F(LoggerEntryTest, ClassNameIsThatOfTheObjectsRunTimeType)
{
    Derived derived("x");
    m_stream.clear();
    derived.fail();
    EXPECT_THAT(written(), ElementsAre(BEGIN_BANNER, "ERROR|    (anonymous namespace)::Derived x failed",
                                       "FINE|-> (anonymous namespace)::Derived x ", END_BANNER,
                                       "FINE|<- (anonymous namespace)::Derived x "));
    EXPECT_EQ(derived.getLogClassName(), Derived("y").getLogClassName()) << "one text a type";
}

TEST_F(LoggerEntryTest, BacktraceDoesNotTouchAnObjectThatIsGone)
{
    {
        auto control = std::make_unique<Control>("short-lived");
        LogScope scope({LOG_SOURCE, __LINE__, control.get()}, LOGLEVEL_FINE);
        control.reset();
        LOG_PLAIN(ERROR, "after its end");
    }
    EXPECT_THAT(written(),
                ElementsAre(BEGIN_BANNER, "ERROR|    after its end", "FINE|-> (anonymous namespace)::Control short-lived ",
                            END_BANNER, "FINE|<- (anonymous namespace)::Control short-lived "));
}

TEST_F(LoggerEntryTest, HeaderIsAsLogReadersExpectIt)
{
    SYSTEMTIME before;
    SYSTEMTIME after;
    GetLocalTime(&before);
    LogEntry({"D:\\build\\server\\abcdefghijklmnopqrstuvwxy", 7}, LOGLEVEL_WARN).stream() << "text";
    LogEntry({"short", 12345}, LOGLEVEL_WARN).stream() << "text";
    GetLocalTime(&after);
    const std::vector<std::string> texts = m_stream.texts();
    char thread[16];
    std::snprintf(thread, sizeof thread, "%05lu", GetCurrentThreadId());
    const std::string names = "UNDEFINEDPRODUCT support_loggerEntry_test.exe ";
    const auto timeOf = [](const SYSTEMTIME& t) {
        char text[64];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                      t.wSecond, t.wMilliseconds);
        return std::string(text);
    };
    std::vector<std::string> lines;
    for (const std::string& text : texts) {
        if (text.find("ALWAYS") == std::string::npos) {
            lines.push_back(text);
        }
    }
    ASSERT_EQ(lines.size(), 2u);
    for (std::string& line : lines) {
        ASSERT_EQ(line.substr(0, names.size()), names);
        const std::string time = line.substr(names.size(), 23);
        EXPECT_LE(timeOf(before), time);
        EXPECT_GE(timeOf(after), time);
        line.erase(0, names.size() + 24);
    }
    EXPECT_EQ(lines[0], std::string(thread) + " WARN   abcdefghijklmnopqrst 007    text\n");
    EXPECT_EQ(lines[1], std::string(thread) + " WARN   short                12345    text\n");
}

TEST_F(LoggerEntryTest, LevelNamesAreSixWideInTheHeader)
{
    begin(LOGLEVEL_TRACE);
    m_stream.clear();
    LOG_PLAIN(ALWAYS, "x");
    LOG_PLAIN(WARN, "x");
    LOG_PLAIN(INFO, "x");
    LOG_PLAIN(FINE, "x");
    LOG_PLAIN(TRACE, "x");
    std::vector<std::string> levels;
    for (const std::string& text : m_stream.texts()) {
        const std::string line = DebugStream::withoutNames(text);
        if (line.ends_with(" x")) {
            levels.push_back(line.substr(30, 8));
        }
    }
    EXPECT_THAT(levels, ElementsAre("ALWAYS l", "WARN   l", "INFO   l", "FINE   l", "TRACE  l"));
}

TEST_F(LoggerEntryTest, IndentationGrowsWithDepthUpToTwenty)
{
    begin(LOGLEVEL_FINE);
    std::vector<std::unique_ptr<LogScope>> scopes;
    for (int depth = 0; depth < 26; ++depth) {
        scopes.push_back(std::make_unique<LogScope>(LogPlace{LOG_SOURCE, __LINE__}, LOGLEVEL_FINE));
        scopes.back()->name("scope") << depth;
        scopes.back()->writeEntry();
    }
    LOG_PLAIN(FINE, "inside");
    while (!scopes.empty()) {
        scopes.pop_back();
    }
    const std::vector<std::string> lines = written();
    ASSERT_EQ(lines.size(), 53u);
    EXPECT_EQ(lines[0], "FINE|-> scope 0");
    EXPECT_EQ(lines[19], "FINE|" + std::string(19, ' ') + "-> scope 19");
    EXPECT_EQ(lines[20], "FINE|" + std::string(20, ' ') + "-> scope 20");
    EXPECT_EQ(lines[25], "FINE|" + std::string(20, ' ') + "-> scope 25");
    EXPECT_EQ(lines[26], "FINE|" + std::string(23, ' ') + "inside");
    EXPECT_EQ(lines[27], "FINE|" + std::string(20, ' ') + "<- scope 25");
    EXPECT_EQ(lines[52], "FINE|<- scope 0");
}

namespace {
// A scope that began the given time ago.
class AgedScope : public LogScope
{
public:
    explicit AgedScope(int milliseconds)
        : LogScope({LOG_SOURCE, __LINE__}, LOGLEVEL_FINE)
    {
        ULARGE_INTEGER time;
        time.LowPart = m_time.dwLowDateTime;
        time.HighPart = m_time.dwHighDateTime;
        time.QuadPart -= static_cast<ULONGLONG>(milliseconds) * 10000;
        m_time = {time.LowPart, time.HighPart};
        name("aged");
        writeEntry();
    }
};

ULONGLONG clockNow()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return static_cast<ULONGLONG>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
}

// The exit line of a scope of that duration. Tried again when the machine took a millisecond or more of its own.
std::string exitLine(DebugStream& stream, int milliseconds)
{
    for (;;) {
        stream.clear();
        const ULONGLONG begin = clockNow();
        {
            AgedScope scope(milliseconds);
        }
        if (clockNow() - begin < 10000) {
            return DebugStream::withoutNames(stream.texts().back()).substr(62);
        }
    }
}
} // namespace

TEST_F(LoggerEntryTest, ExitLineTellsTheTimeFromTenMillisecondsOn)
{
    begin(LOGLEVEL_FINE);
    EXPECT_EQ(exitLine(m_stream, 0), "<- aged ");
    EXPECT_EQ(exitLine(m_stream, 9), "<- aged ");
    EXPECT_EQ(exitLine(m_stream, 10), "<- aged  [10 ms]");
    EXPECT_EQ(exitLine(m_stream, 1234), "<- aged  [1234 ms]");
}

TEST_F(LoggerEntryTest, ScopeAboveTheTraceLevelIsNeitherLinkedNorClosed)
{
    begin(LOGLEVEL_FINE, LOGLEVEL_INFO);
    {
        LOG_SCOPE_STATIC(INFO, "Sample::linked");
        {
            LOG_SCOPE_STATIC(FINE, "Sample::notLinked");
            LOG(ERROR, "broken");
        }
    }
    EXPECT_THAT(written(), ElementsAre("INFO|-> linked ", "FINE|    notLinked ", BEGIN_BANNER, "ERROR|    broken",
                                       "INFO|-> linked ", END_BANNER, "INFO|<- linked "));
}

TEST_F(LoggerEntryTest, NameIsWhatStandsAfterTheFirstColons)
{
    begin(LOGLEVEL_FINE);
    {
        LOG_SCOPE_STATIC(FINE, "A::B::c", "p");
    }
    {
        LOG_SCOPE_STATIC(FINE, "plain");
    }
    EXPECT_THAT(written(), ElementsAre("FINE|-> B::c p", "FINE|<- B::c p", "FINE|-> plain ", "FINE|<- plain "));
}

TEST_F(LoggerEntryTest, TextIsStreamedAsItStands)
{
    const char* none = nullptr;
    char* alsoNone = nullptr;
    const wchar_t* wideNone = nullptr;
    const wchar_t umlaut[] = {0xE4, 0};
    LOG_PLAIN(WARN, "a" << none << "b" << alsoNone << "c" << wideNone << "d");
    LOG_PLAIN(WARN, L"wide " << umlaut << std::string(" string"));
    LOG_PLAIN(WARN, std::hex << 255 << " " << std::dec << 255 << " " << HRESULT(-2147467259) << " " << 'c' << " " << 4294967295u);
    const char narrow[] = {static_cast<char>(0xE4), 0};
    EXPECT_THAT(written(), ElementsAre("WARN|   abcd", "WARN|   wide " + std::string(narrow) + " string",
                                       "WARN|   ff 255 -2147467259 c 4294967295"));
}

TEST_F(LoggerEntryTest, TextOfSeveralLinesGoesOnAsItStands)
{
    LOG_PLAIN(WARN, "before");
    m_stream.clear();
    LOG_PLAIN(WARN, "first\nsecond");
    const std::vector<std::string> texts = m_stream.texts();
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_TRUE(texts[0].ends_with("    first\nsecond\n"));
}

TEST_F(LoggerEntryTest, DisabledStatementEvaluatesNothing)
{
    const auto fail = []() -> const char* {
        ADD_FAILURE() << "evaluated";
        return "";
    };
    LOG_SCOPE_STATIC(FINE, "Sample::quiet", fail());
    LOG(INFO, fail());
    LOG(FINE, fail());
    LOG(TRACE, fail());
    LOG_PLAIN(INFO, fail());
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(LoggerEntryTest, LevelDecidesWhatIsWritten)
{
    for (int level = LOGLEVEL_ALWAYS; level <= LOGLEVEL_TRACE; ++level) {
        begin(level);
        m_stream.clear();
        for (int statement = LOGLEVEL_ALWAYS; statement <= LOGLEVEL_TRACE; ++statement) {
            EXPECT_EQ(isLogEnabled(LOG_SOURCE, __LINE__, statement), statement <= level);
            EXPECT_EQ(Plain().isLogEnabled(LOG_SOURCE, __LINE__, statement), statement <= level);
        }
    }
}

TEST(LoggerTextsTest, LevelNames)
{
    const std::vector<std::string> expected = {"ALWAYS", "ERROR", "WARN", "INFO", "FINE", "TRACE", "(invalid)"};
    for (int level = 0; level <= 6; ++level) {
        EXPECT_EQ(getLogLevelName(level), expected[static_cast<size_t>(level)]);
    }
}

TEST(LoggerTextsTest, JniResultNames)
{
    std::vector<std::string> names;
    for (int code = 1; code >= -7; --code) {
        names.push_back(getJNIErrorName(code));
    }
    EXPECT_THAT(names, ElementsAre("Unknown error (1)", "successfull", "JNI_ERR", "JNI_EDETACHED", "JNI_EVERSION", "JNI_ENOMEN",
                                   "JNI_EEXIST", "JNI_EINVAL", "Unknown error (-7)"));
}

TEST(LoggerTextsTest, WindowsErrorTextIsTheFirstLineAndTheCode)
{
    char system[512] = {};
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, ERROR_FILE_NOT_FOUND, 0, system,
                   sizeof system, nullptr);
    std::string expected = system;
    expected.erase(expected.find_first_of("\r\n"));
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(getWindowsErrorText(ERROR_FILE_NOT_FOUND), expected + " (00000002)");
    EXPECT_EQ(getWindowsErrorText(0xE0ABCDEF), " (e0abcdef)");
}
