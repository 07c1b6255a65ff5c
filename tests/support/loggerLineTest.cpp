// Whole lines, at times and on threads that the test names, and the places of scopes in the chain.
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <type_traits>

#define LOG_SOURCE "loggerLineTest"

using fixtures::BEGIN_BANNER;
using fixtures::DebugStream;
using fixtures::END_BANNER;
using fixtures::LoggerWorld;
using testing::ElementsAre;
using testing::IsEmpty;

// Outside of any namespace, for the sake of its name in the lines.
class CSampleControl : public virtual Loggable
{
public:
    explicit CSampleControl(std::string info = {})
        : m_info(std::move(info))
    {
    }
    std::string getLogObjectInfo() const override { return m_info; }

private:
    std::string m_info;
};

namespace {

using ClockHook = ImportHook<decltype(&GetSystemTimeAsFileTime)>;
using ZoneHook = ImportHook<decltype(&FileTimeToLocalFileTime)>;
using CalendarHook = ImportHook<decltype(&FileTimeToSystemTime)>;
using ThreadIdHook = ImportHook<decltype(&GetCurrentThreadId)>;

constexpr LONGLONG MILLISECOND = 10000; // in the clock's units
constexpr LONGLONG HOUR = 3600 * 1000 * MILLISECOND;

LONGLONG s_now;
int s_conversions;

void WINAPI tellNow(FILETIME* time)
{
    *time = {static_cast<DWORD>(s_now), static_cast<DWORD>(s_now >> 32)};
}

// A zone that is an hour ahead.
BOOL WINAPI addAnHour(const FILETIME* time, FILETIME* local)
{
    const LONGLONG ticks = (static_cast<LONGLONG>(time->dwHighDateTime) << 32 | time->dwLowDateTime) + HOUR;
    *local = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return TRUE;
}

BOOL WINAPI countConversion(const FILETIME* time, SYSTEMTIME* parts)
{
    ++s_conversions;
    return CalendarHook::s_original(time, parts);
}

// Only while nothing is asserted: the test framework tells its threads apart by the same call.
DWORD WINAPI shortThreadId()
{
    return 4712;
}

DWORD WINAPI longThreadId()
{
    return 1234567;
}

// 2020-03-04 09:15:02.123 UTC
constexpr LONGLONG MORNING = 132277869021230000;

// A fresh Logger with its file open, whose debugger stream is collected, at a time that the test sets.
class LoggerLineTest : public testing::Test
{
protected:
    LoggerLineTest() { begin(LOGLEVEL_WARN); }
    void begin(int level, int traceLevel = LOGLEVEL_TRACE)
    {
        m_world.setPreference("loglevel", level);
        m_world.setPreference("traceloglevel", traceLevel);
        m_world.start();
        LOG_PLAIN(ALWAYS, "opens the file");
        m_stream.clear();
        s_now = MORNING;
        s_conversions = 0;
    }
    // What was sent, each without the names of product and executable.
    std::vector<std::string> sent() const
    {
        std::vector<std::string> result;
        const std::string names = "UNDEFINEDPRODUCT support_loggerLine_test.exe ";
        for (const std::string& text : m_stream.texts()) {
            result.push_back(text.starts_with(names) ? text.substr(names.size()) : "without names: " + text);
        }
        return result;
    }
    std::vector<std::string> bodies() const
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            result.push_back(line.body);
        }
        return result;
    }

    LoggerWorld m_world;
    DebugStream m_stream;
    const ClockHook m_clock{"GetSystemTimeAsFileTime", tellNow};
    const ZoneHook m_zone{"FileTimeToLocalFileTime", addAnHour};
};

// The scope of a function at line 44 of a module in another folder.
class Scope : public LogScope
{
public:
    explicit Scope(const Loggable* owner)
        : LogScope({"D:\\com\\JavaManagerATLObject", 44, owner}, LOGLEVEL_FINE)
    {
        name("CJavaManagerATLObject::setBounds") << 0 << ", " << 0 << ", " << 100 << ", " << 100;
        writeEntry();
    }
};

// What stands behind the text of the exit line when the scope takes that time.
std::string elapsed(const DebugStream& stream, LONGLONG ticks)
{
    {
        Scope scope(nullptr);
        s_now += ticks;
    }
    const std::string text = stream.texts().back();
    const std::string last = "<- setBounds 0, 0, 100, 100";
    return text.substr(text.find(last) + last.size());
}

} // namespace

TEST_F(LoggerLineTest, ScopeOfAnObjectIsWrittenWholeAtEntryAndExit)
{
    begin(LOGLEVEL_FINE);
    const CSampleControl control;
    {
        const ThreadIdHook thread("GetCurrentThreadId", shortThreadId);
        const Scope scope(&control);
        s_now += 123 * MILLISECOND;
    }
    EXPECT_THAT(
        sent(),
        ElementsAre("2020-03-04 10:15:02.123 04712 FINE   JavaManagerATLObject 044 -> CSampleControl  setBounds 0, 0, 100, 100\n",
                    "2020-03-04 10:15:02.246 04712 FINE   JavaManagerATLObject 044 <- CSampleControl  setBounds 0, 0, 100, 100 "
                    "[123 ms]\n"));
}

TEST_F(LoggerLineTest, StatementIsWrittenWholeWithTheObjectsTextAndTheTimeOfItsCreation)
{
    const CSampleControl control("frame 7");
    {
        const ThreadIdHook thread("GetCurrentThreadId", longThreadId);
        {
            LogEntry entry({"a/b\\c/d", 5, &control}, LOGLEVEL_WARN);
            s_now += HOUR;
            entry.stream() << "text";
        }
        LogEntry({"plain", 5}, LOGLEVEL_ERROR).stream() << "text";
    }
    EXPECT_THAT(sent(),
                ElementsAre("2020-03-04 10:15:02.123 1234567 WARN   c/d                  005    CSampleControl frame 7 text\n",
                            std::string(BEGIN_BANNER) + "\n",
                            "2020-03-04 11:15:02.123 1234567 ERROR  plain                005    text\n",
                            std::string(END_BANNER) + "\n"));
}

TEST_F(LoggerLineTest, TimeOfAScopeIsToldFromTenWholeMillisecondsOn)
{
    begin(LOGLEVEL_FINE);
    EXPECT_EQ(elapsed(m_stream, 0), "\n");
    EXPECT_EQ(elapsed(m_stream, 9 * MILLISECOND), "\n");
    EXPECT_EQ(elapsed(m_stream, 10 * MILLISECOND - 1), "\n") << "cut off, not rounded";
    EXPECT_EQ(elapsed(m_stream, 10 * MILLISECOND), " [10 ms]\n");
    EXPECT_EQ(elapsed(m_stream, 11 * MILLISECOND - 1), " [10 ms]\n");
    EXPECT_EQ(elapsed(m_stream, 1234 * MILLISECOND), " [1234 ms]\n");
    EXPECT_EQ(elapsed(m_stream, 50 * HOUR), " [180000000 ms]\n");
    EXPECT_EQ(elapsed(m_stream, -HOUR), "\n") << "the clock was put back";
}

TEST_F(LoggerLineTest, ScopeInTheBacktraceHasTheTimeOfItsCreation)
{
    {
        LOG_SCOPE_STATIC(FINE, "Sample::early");
        s_now += 250 * MILLISECOND;
        LOG(ERROR, "late");
        s_now += 250 * MILLISECOND;
    }
    std::vector<std::string> times;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        times.push_back(line.time);
    }
    EXPECT_THAT(times, ElementsAre("", "2020-03-04 10:15:02.373", "2020-03-04 10:15:02.123", "", "2020-03-04 10:15:02.623"));
}

TEST_F(LoggerLineTest, EveryLineIsFormattedOnceHoweverOftenItIsWritten)
{
    begin(LOGLEVEL_FINE);
    {
        LOG_SCOPE_STATIC(FINE, "Sample::scope");
        const CalendarHook calendar("FileTimeToSystemTime", countConversion);
        LOG(ERROR, "one");
        LOG(ERROR, "two");
    }
    EXPECT_EQ(s_conversions, 2) << "the two errors; the scope was formatted when it was entered";
    EXPECT_EQ(m_stream.texts().size(), 1 + 4 + 4 + 1u);
}

TEST_F(LoggerLineTest, ExitHasTheLineNumberModuleAndLevelOfTheEntry)
{
    begin(LOGLEVEL_TRACE);
    {
        const Scope fine(nullptr);
        LogScope info({"other", 7}, LOGLEVEL_INFO);
        info.name("Sample::info");
        info.writeEntry();
    }
    std::vector<std::string> places;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        places.push_back(line.source + std::to_string(line.line) + " " + line.level +
                         line.body.substr(line.body.find_first_not_of(' '), 3));
    }
    EXPECT_THAT(places, ElementsAre("JavaManagerATLObject44 FINE-> ", "other               7 INFO-> ",
                                    "other               7 INFO<- ", "JavaManagerATLObject44 FINE<- "));
}

TEST_F(LoggerLineTest, ClosedScopeIsOutOfTheChainAlsoWhenItsLineWasNeverWritten)
{
    {
        LOG_SCOPE_STATIC(FINE, "Sample::outer");
        {
            LOG_SCOPE_STATIC(FINE, "Sample::closed");
        }
        LOG(ERROR, "inside");
    }
    LOG_PLAIN(ERROR, "outside");
    EXPECT_THAT(bodies(),
                ElementsAre(BEGIN_BANNER, "    inside", "-> ", END_BANNER, "<- ", BEGIN_BANNER, "   outside", END_BANNER));
}

TEST_F(LoggerLineTest, ChainAndDepthLeaveOutScopesAboveTheTraceLevel)
{
    begin(LOGLEVEL_ERROR, LOGLEVEL_INFO);
    {
        LOG_SCOPE_STATIC(INFO, "Sample::outer");
        {
            LOG_SCOPE_STATIC(FINE, "Sample::notLinked");
            {
                LOG_SCOPE_STATIC(INFO, "Sample::inner");
                LOG(ERROR, "broken");
            }
        }
    }
    EXPECT_THAT(bodies(), ElementsAre(BEGIN_BANNER, "     broken", " -> ", "-> ", END_BANNER, " <- ", "<- "));
}

TEST_F(LoggerLineTest, NestedScopesOfOneFunctionsLoopHaveTheSameDepthEachTime)
{
    begin(LOGLEVEL_FINE);
    LOG_SCOPE_STATIC(FINE, "Sample::loop");
    for (int round = 0; round < 2; ++round) {
        LOG_SCOPE_STATIC(FINE, "Sample::round", round);
        LOG(FINE, "text");
    }
    LOG(FINE, "text");
    EXPECT_THAT(bodies(), ElementsAre("-> loop ", " -> round 0", "     text", " <- round 0", " -> round 1", "     text",
                                      " <- round 1", "    text"));
}

TEST_F(LoggerLineTest, WhatWasBegunWithoutALoggerIsNotIndented)
{
    m_world.stop();
    {
        LogScope scope({LOG_SOURCE, 1}, LOGLEVEL_WARN);
        LogEntry entry({LOG_SOURCE, 2}, LOGLEVEL_WARN);
        entry.stream() << "statement";
        m_world.start();
        LOG_PLAIN(ALWAYS, "opens the file");
        m_stream.clear();
        scope.name("Sample::scope");
        scope.writeEntry();
        EXPECT_THAT(bodies(), ElementsAre("scope ")) << "no marker either";
        LOG_PLAIN(WARN, "text");
    }
    EXPECT_THAT(bodies(), ElementsAre("scope ", "   text", "statement")) << "and no exit line";
}

TEST_F(LoggerLineTest, FileAndLineDoNotChangeWhetherALevelIsOn)
{
    const CSampleControl control;
    for (const char* file : {static_cast<const char*>(nullptr), "", "logger", "a\\b"}) {
        for (const int line : {-1, 0, 1000000}) {
            EXPECT_TRUE(isLogEnabled(file, line, LOGLEVEL_WARN));
            EXPECT_FALSE(isLogEnabled(file, line, LOGLEVEL_INFO));
            EXPECT_TRUE(control.isLogEnabled(file, line, LOGLEVEL_WARN));
            EXPECT_FALSE(control.isLogEnabled(file, line, LOGLEVEL_INFO));
        }
    }
    m_world.stop();
    EXPECT_FALSE(control.isLogEnabled(LOG_SOURCE, 1, LOGLEVEL_ALWAYS)) << "no Logger";
}

TEST_F(LoggerLineTest, OperationsOfTheLogAreScopesOfItsOwnModule)
{
    begin(LOGLEVEL_FINE);
    Logger::getErrorEntries();
    Logger::addRefCount();
    Logger::release();
    Logger::setMaxLogLevel(LOGLEVEL_FINE);
    std::vector<std::string> lines;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        EXPECT_EQ(line.source, "logger              ");
        lines.push_back(line.level + "|" + line.body);
    }
    EXPECT_THAT(
        lines,
        ElementsAre("FINE|-> getErrorEntries ", "FINE|<- getErrorEntries ", "FINE|-> addRefCount logging already initialized",
                    "FINE|<- addRefCount logging already initialized", "FINE|-> release not time to deinitialize log yet",
                    "FINE|<- release not time to deinitialize log yet", "FINE|-> setMaxLogLevel 4", "FINE|<- setMaxLogLevel 4"));
}

TEST_F(LoggerLineTest, LevelIsSetAfterTheScopeThatTellsIt)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    EXPECT_THAT(m_stream.texts(), IsEmpty());
    EXPECT_EQ(Logger::instance()->maxLogLevel(), LOGLEVEL_TRACE);
    Logger::setMaxLogLevel(100);
    EXPECT_EQ(Logger::instance()->maxLogLevel(), 100);
}

namespace {
ULONGLONG clockNow()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return static_cast<ULONGLONG>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
}

// As the header of a line has it.
std::string localText(ULONGLONG time)
{
    const FILETIME utc = {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    FILETIME local;
    SYSTEMTIME parts;
    FileTimeToLocalFileTime(&utc, &local);
    FileTimeToSystemTime(&local, &parts);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.wYear, parts.wMonth, parts.wDay, parts.wHour,
                  parts.wMinute, parts.wSecond, parts.wMilliseconds);
    return text;
}
} // namespace

// By the real clock: only the outermost of these scopes has read it.
TEST(LoggerTimesTest, EveryScopeOfABacktraceHasTheTimeOfItsCreation)
{
    LoggerWorld world;
    DebugStream stream;
    world.setPreference("loglevel", LOGLEVEL_WARN);
    world.start();
    LOG_PLAIN(ALWAYS, "opens the file");
    stream.clear();
    std::vector<ULONGLONG> moments = {clockNow()};
    {
        LOG_SCOPE_STATIC(FINE, "Sample::outer");
        moments.push_back(clockNow());
        Sleep(40);
        moments.push_back(clockNow());
        {
            LOG_SCOPE_STATIC(FINE, "Sample::middle");
            moments.push_back(clockNow());
            Sleep(80);
            moments.push_back(clockNow());
            {
                LOG_SCOPE_STATIC(FINE, "Sample::inner");
                moments.push_back(clockNow());
                Sleep(20);
                LOG(ERROR, "broken");
            }
        }
    }
    const std::vector<fixtures::LogLine> lines = stream.lines();
    ASSERT_EQ(lines.size(), 1 + 4 + 1 + 3u);
    for (size_t scope = 0; scope < 3; ++scope) {
        const std::string& time = lines[4 - scope].time;
        EXPECT_GE(time, localText(moments[2 * scope] - 10000)) << scope;
        EXPECT_LE(time, localText(moments[2 * scope + 1] + 10000)) << scope;
    }
    EXPECT_TRUE(stream.texts()[6].ends_with(" ms]\n")) << "the inner one has taken 20 ms: " << stream.texts()[6];
}

namespace {
// The place in the table of virtual functions: a pointer to a virtual member function is one more than its offset.
template <class Function>
std::size_t slotOf(Function function)
{
    static_assert(sizeof function >= sizeof(std::size_t));
    std::size_t offset = 0;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

template <class Derived>
concept DerivesDirectly = requires(Loggable* loggable) { static_cast<Derived*>(loggable); };
} // namespace

TEST(LoggerObjectsTest, VirtualOperationsHaveTheirOrder)
{
    EXPECT_EQ(slotOf(&Loggable::getLogClassName), 0u);
    EXPECT_EQ(slotOf(&Loggable::getLogObjectInfo), 1u);
    EXPECT_EQ(slotOf(&Loggable::isLogEnabled), 2u);
    EXPECT_TRUE(std::has_virtual_destructor_v<Loggable>);
    EXPECT_FALSE(DerivesDirectly<CSampleControl>);
    EXPECT_EQ(Loggable().getLogObjectInfo(), "");
    EXPECT_STREQ(Loggable().getLogClassName(), "Loggable");
}
