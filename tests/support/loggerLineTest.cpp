// Whole lines and error backtraces, with times and thread ids that the test sets.
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <format>
#include <thread>

#define LOG_SOURCE "loggerLineTest"

using fixtures::BEGIN_BANNER;
using fixtures::END_BANNER;
using fixtures::LoggerWorld;
using testing::ElementsAre;
using testing::EndsWith;

// In no namespace, so that the lines contain its bare name.
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
constexpr LONGLONG MINUTE = 60 * 1000 * MILLISECOND;
constexpr LONGLONG HOUR = 60 * MINUTE;
constexpr LONGLONG MORNING = 132277869021230000; // 2020-03-04 09:15:02.123 UTC

FILETIME fileTime(LONGLONG ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// A fresh Logger with its file open, and a record of the debugger stream.
class LoggerLineTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerLineTest() { start(LOGLEVEL_WARN); }
    void start(int level, int traceLevel = LOGLEVEL_TRACE)
    {
        open(level, traceLevel);
        m_now = MORNING;
    }
    // The lines sent to the debugger stream, without the names of product and executable.
    std::vector<std::string> sent() const
    {
        std::vector<std::string> result;
        const std::string names = LoggerWorld::names();
        for (const std::string& text : m_stream.texts()) {
            result.push_back(text.starts_with(names) ? text.substr(names.size()) : "without names: " + text);
        }
        return result;
    }

    LONGLONG m_now = MORNING;
    LONGLONG m_zone = HOUR; // local time minus UTC
    const ClockHook m_clockHook{"GetSystemTimeAsFileTime", [this](FILETIME* time) { *time = fileTime(m_now); }};
    const ZoneHook m_zoneHook{"FileTimeToLocalFileTime", [this](const FILETIME* time, FILETIME* local) {
                                  const LONGLONG high = time->dwHighDateTime;
                                  *local = fileTime((high << 32 | time->dwLowDateTime) + m_zone);
                                  return TRUE;
                              }};
};

// Only while nothing is asserted: the test framework identifies its threads by the same call.
struct ShortThreadId : ThreadIdHook
{
    ShortThreadId()
        : ThreadIdHook("GetCurrentThreadId", []() -> DWORD { return 4712; })
    {
    }
};

// What LOG_SCOPE creates from a line number and a name.
class Scope : public LogScope
{
public:
    explicit Scope(int line, const char* qualifiedName = "Sample::scope", int level = LOGLEVEL_FINE)
        : LogScope({"module", line}, level)
    {
        if (isLogEnabled("module", line, level)) {
            name(qualifiedName);
            writeEntry();
        }
    }
};

void error(int line)
{
    LogEntry({"module", line}, LOGLEVEL_ERROR).stream() << "broken";
}

std::string banner(const char* text)
{
    return std::string(text) + "\n";
}

// A line of thread 4712.
std::string whole(const char* time, const char* level, int line, const char* body)
{
    return std::format("2020-03-04 {} 04712 {:6} module               {:03} {}\n", time, level, line, body);
}

} // namespace

TEST_F(LoggerLineTest, EveryKindOfLineIsAsLogReadersExpectIt)
{
    start(LOGLEVEL_TRACE);
    const CSampleControl control;
    const CSampleControl frame("frame 7");
    {
        const ShortThreadId thread;
        LogScope scope({"D:\\com\\JavaManagerATLObject", 44, &control}, LOGLEVEL_FINE);
        scope.name("CJavaManagerATLObject::setBounds") << 0 << ", " << 100;
        scope.writeEntry();
        LogEntry early({"a/b\\c/d", 5, &frame}, LOGLEVEL_INFO);
        m_now += 123 * MILLISECOND;
        LogEntry({"D:\\build\\abcdefghijklmnopqrstuvwxy", 12345}, LOGLEVEL_ALWAYS).stream() << "text";
        early.stream() << "the time of its creation";
    }
    {
        const ThreadIdHook thread("GetCurrentThreadId", []() -> DWORD { return 1234567; });
        LogEntry({"a", 0}, LOGLEVEL_WARN).stream() << "first\nsecond";
        LogEntry({"a", 1}, LOGLEVEL_TRACE).stream() << "text";
        LogEntry({"a", 2, &frame}, LOGLEVEL_ERROR).stream() << "text";
    }
    const std::string begin = "/" + std::string(44, '*') + " error detected - begin backtrace " + std::string(44, '*') + "\\\n";
    const std::string end = "\\" + std::string(50, '*') + " end error backtrace " + std::string(51, '*') + "/\n";
    const std::vector<std::string> expected = {
        "2020-03-04 10:15:02.123 04712 FINE   JavaManagerATLObject 044 -> CSampleControl  setBounds 0, 100\n",
        "2020-03-04 10:15:02.246 04712 ALWAYS abcdefghijklmnopqrst 12345     text\n",
        "2020-03-04 10:15:02.123 04712 INFO   c/d                  005     CSampleControl frame 7 the time of its creation\n",
        "2020-03-04 10:15:02.246 04712 FINE   JavaManagerATLObject 044 <- CSampleControl  setBounds 0, 100 [123 ms]\n",
        "2020-03-04 10:15:02.246 1234567 WARN   a                    000    first\nsecond\n",
        "2020-03-04 10:15:02.246 1234567 TRACE  a                    001    text\n",
        begin,
        "2020-03-04 10:15:02.246 1234567 ERROR  a                    002    CSampleControl frame 7 text\n",
        end,
    };
    EXPECT_EQ(sent(), expected);
}

TEST_F(LoggerLineTest, TimeOfAScopeIsToldFromTenWholeMillisecondsOn)
{
    start(LOGLEVEL_FINE);
    const auto elapsed = [this](LONGLONG ticks) {
        {
            const Scope scope(1);
            m_now += ticks;
        }
        const std::string text = m_stream.texts().back();
        return text.substr(text.find("<- scope ") + 9);
    };
    EXPECT_EQ(elapsed(0), "\n");
    EXPECT_EQ(elapsed(10 * MILLISECOND - 1), "\n") << "cut off, not rounded";
    EXPECT_EQ(elapsed(10 * MILLISECOND), " [10 ms]\n");
    EXPECT_EQ(elapsed(11 * MILLISECOND - 1), " [10 ms]\n");
    EXPECT_EQ(elapsed(50 * HOUR), " [180000000 ms]\n");
    EXPECT_EQ(elapsed(-HOUR), "\n") << "the clock was put back";
}

TEST_F(LoggerLineTest, IndentationGrowsWithDepthUpToTwenty)
{
    start(LOGLEVEL_FINE);
    std::vector<std::string> expected;
    std::vector<std::unique_ptr<Scope>> scopes;
    for (size_t depth = 0; depth < 26; ++depth) {
        scopes.push_back(std::make_unique<Scope>(1));
        expected.push_back("FINE|" + std::string(std::min<size_t>(depth, 20), ' ') + "-> scope ");
    }
    LOG_PLAIN(FINE, "inside");
    expected.push_back("FINE|" + std::string(23, ' ') + "inside");
    while (!scopes.empty()) {
        scopes.pop_back();
        expected.push_back("FINE|" + std::string(std::min<size_t>(scopes.size(), 20), ' ') + "<- scope ");
    }
    EXPECT_EQ(m_stream.said(), expected);
}

TEST_F(LoggerLineTest, ErrorWritesTheScopesAroundItInnermostFirstAndTheirExitsFollow)
{
    {
        const ShortThreadId thread;
        const Scope outer(1);
        {
            const Scope closed(2);
        }
        m_now += MILLISECOND;
        const Scope middle(3);
        const Scope inner(4);
        m_now += 20 * MILLISECOND;
        error(5);
    }
    const std::vector<std::string> expected = {
        banner(BEGIN_BANNER),
        whole("10:15:02.144", "ERROR", 5, "      broken"),
        whole("10:15:02.124", "FINE", 4, "  -> "),
        whole("10:15:02.124", "FINE", 3, " -> "),
        whole("10:15:02.123", "FINE", 1, "-> "),
        banner(END_BANNER),
        whole("10:15:02.144", "FINE", 4, "  <-  [20 ms]"),
        whole("10:15:02.144", "FINE", 3, " <-  [20 ms]"),
        whole("10:15:02.144", "FINE", 1, "<-  [21 ms]"),
    };
    EXPECT_EQ(sent(), expected);
    const std::string backtrace = expected[1] + expected[2] + expected[3] + expected[4];
    EXPECT_EQ(Logger::getErrorEntries(), backtrace);
    EXPECT_THAT(m_world.logText(),
                EndsWith("opens the file\n" + expected[0] + backtrace + expected[5] + expected[6] + expected[7] + expected[8]));
    EXPECT_EQ(Logger::getErrorEntries(), "");
    m_stream.clear();
    error(6);
    EXPECT_THAT(m_stream.said(), ElementsAre(BEGIN_BANNER, "ERROR|   broken", END_BANNER)) << "outside of them all";
}

// The chain is printed each time, with the same formatted lines.
TEST_F(LoggerLineTest, ScopeIsFormattedOnceHoweverOftenItsLineIsWritten)
{
    start(LOGLEVEL_FINE);
    int conversions = 0;
    {
        Scope scope(1);
        scope.stream() << "and later";
        const CalendarHook calendar("FileTimeToSystemTime", [&](const FILETIME* time, SYSTEMTIME* parts) {
            ++conversions;
            return CalendarHook::s_original(time, parts);
        });
        error(2);
        error(3);
    }
    EXPECT_THAT(m_stream.said(),
                ElementsAre("FINE|-> scope ", BEGIN_BANNER, "ERROR|    broken", "FINE|-> scope ", END_BANNER, BEGIN_BANNER,
                            "ERROR|    broken", "FINE|-> scope ", END_BANNER, "FINE|<- scope and later"));
    EXPECT_EQ(conversions, 2) << "the two errors";
}

// The time zone changes as well. The elapsed time comes from the clock, so a clock change inside a scope is part of it.
TEST_F(LoggerLineTest, ScopesKeepTheTimeOfTheirCreationWhateverTheClockDoesUntilTheyAreWritten)
{
    {
        const ShortThreadId thread;
        const Scope outer(1);
        m_now -= HOUR;
        {
            const Scope putBack(2);
            m_now += HOUR + 2 * MINUTE;
            {
                const Scope inner(3);
                m_now += 3 * MINUTE;
                error(4);
                m_zone -= HOUR;
            }
            m_now -= HOUR;
        }
        m_now += HOUR;
    }
    EXPECT_THAT(sent(), ElementsAre(banner(BEGIN_BANNER), whole("10:20:02.123", "ERROR", 4, "      broken"),
                                    whole("10:17:02.123", "FINE", 3, "  -> "), whole("09:15:02.123", "FINE", 2, " -> "),
                                    whole("10:15:02.123", "FINE", 1, "-> "), banner(END_BANNER),
                                    whole("09:20:02.123", "FINE", 3, "  <-  [180000 ms]"),
                                    whole("08:20:02.123", "FINE", 2, " <-  [300000 ms]"),
                                    whole("09:20:02.123", "FINE", 1, "<-  [300000 ms]")));
}

TEST_F(LoggerLineTest, ScopeAboveTheTraceLevelIsNotLinkedAndHasNoExit)
{
    start(LOGLEVEL_FINE, LOGLEVEL_INFO);
    {
        const Scope outer(1, "Sample::outer", LOGLEVEL_INFO);
        const Scope notLinked(2, "Sample::notLinked", LOGLEVEL_FINE);
        const Scope inner(3, "Sample::inner", LOGLEVEL_INFO);
        error(4);
    }
    EXPECT_THAT(m_stream.said(),
                ElementsAre("INFO|-> outer ", "FINE|    notLinked ", "INFO| -> inner ", BEGIN_BANNER, "ERROR|     broken",
                            "INFO| -> inner ", "INFO|-> outer ", END_BANNER, "INFO| <- inner ", "INFO|<- outer "));
}

TEST_F(LoggerLineTest, ScopesOfOtherThreadsAreNoPartOfABacktraceButAllThreadsErrorsGoToTheClient)
{
    const Scope scope(1);
    DWORD id = 0;
    std::thread([&id] {
        const Scope other(2);
        error(3);
        id = GetCurrentThreadId();
    }).join();
    const std::vector<fixtures::LogLine> lines = fixtures::parseLogLines(Logger::getErrorEntries());
    ASSERT_THAT(fixtures::bodies(lines), ElementsAre("ERROR|    broken", "FINE|-> "));
    EXPECT_EQ(lines[0].thread, id);
    EXPECT_EQ(lines[1].thread, id);
}
