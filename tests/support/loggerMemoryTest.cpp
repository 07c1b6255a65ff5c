// What the log leaves out when memory runs out, and that everything else is unharmed.
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerMemoryTest"

using fixtures::BEGIN_BANNER;
using fixtures::END_BANNER;
using testing::ElementsAre;
using Strings = std::vector<std::string>;

namespace {

using OutputHook = ImportHook<decltype(&OutputDebugStringA)>;

const std::string LEFT_OUT = "Out of memory, a log line was left out";
const std::string MARK = " [out of memory]";
const std::string LONG_TEXT(600, 'x');
const std::wstring LONG_WIDE_TEXT(600, L'w');

// Needs memory for its text.
class Control : public virtual Loggable
{
public:
    std::string getLogObjectInfo() const override { return "of which there is something to tell"; }
    void log() const { LOG(WARN, LONG_TEXT << L"wide" << 7); }
};

class LoggerMemoryTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerMemoryTest() { open(LOGLEVEL_FINE); }
    // Runs `log` with memory for no allocation, then for one, and so on until it has enough. Each time every line is either
    // whole, or cut and marked, or left out, and the next line is as usual.
    template <class Log>
    void runOut(const Strings& wholeLines, Log log)
    {
        for (const auto then : {FailingAllocations::Then::AllFail, FailingAllocations::Then::OthersSucceed}) {
            bool hasFailed = true;
            for (int successes = 0; hasFailed; ++successes) {
                SCOPED_TRACE("memory for " + std::to_string(successes) + " allocations");
                {
                    const FailingAllocations failing(successes, then);
                    EXPECT_NO_THROW(log());
                    hasFailed = FailingAllocations::refused() > 0;
                }
                LOG_PLAIN(WARN, "next");
                Strings lines = m_stream.said();
                EXPECT_EQ(lines.back(), "WARN|   next");
                EXPECT_EQ(m_world.logLines().back().body, "   next");
                EXPECT_EQ(Logger::getErrorEntries().find("next"), std::string::npos);
                lines.pop_back();
                EXPECT_TRUE(hasFailed || lines == wholeLines) << testing::PrintToString(lines);
                for (const std::string& line : lines) {
                    EXPECT_TRUE(line == LEFT_OUT || isWholeOrMarked(line, wholeLines)) << line;
                }
                m_stream.clear();
            }
        }
        // Lines of other modules come from the Logger's start.
        for (const fixtures::LogLine& line : m_world.logLines()) {
            const bool isOurs = line.level.empty() || line.module() == LOG_SOURCE;
            const std::string text = fixtures::bodies({line}).front();
            EXPECT_TRUE(!isOurs || line.text() == "next" || isWholeOrMarked(text, wholeLines)) << text;
        }
    }

    const OutputHook m_output{"OutputDebugStringA", [](LPCSTR text) {
                                  const FailingAllocations::Pause pause;
                                  OutputHook::s_original(text);
                              }};

private:
    static bool isWholeOrMarked(const std::string& line, const Strings& wholeLines)
    {
        return std::any_of(wholeLines.begin(), wholeLines.end(), [&line](const std::string& whole) {
            return line == whole || (line.ends_with(MARK) && whole.starts_with(line.substr(0, line.size() - MARK.size())));
        });
    }
};

} // namespace

TEST_F(LoggerMemoryTest, StatementIsMarkedOrLeftOut)
{
    runOut({"WARN|   " + LONG_TEXT + std::string(600, 'w') + "7"},
           [] { LOG_PLAIN(WARN, LONG_TEXT << LONG_WIDE_TEXT.c_str() << 7); });
}

TEST_F(LoggerMemoryTest, ScopeAndBacktraceAreMarkedOrLeftOut)
{
    const std::string entry = "FINE|-> scope " + LONG_TEXT;
    runOut({entry, BEGIN_BANNER, "ERROR|    broken", entry, END_BANNER, "FINE|<- scope " + LONG_TEXT}, [] {
        LOG_SCOPE_STATIC(FINE, "Sample::scope", LONG_TEXT);
        LOG(ERROR, "broken");
    });
}

TEST_F(LoggerMemoryTest, ChecksAreMarkedOrLeftOutAndGiveTheirValue)
{
    const std::string failed = "ERROR|   E_FAIL: failure: " + getWindowsErrorText(0x80004005);
    const std::string unknown = "ERROR|   -7: Unknown error (-7)";
    runOut({BEGIN_BANNER, failed, END_BANNER, BEGIN_BANNER, unknown, END_BANNER}, [] {
        EXPECT_EQ(LOG_HRESULT(E_FAIL), E_FAIL);
        [] { RETURN_IF_JNI_FAILED(-7, ); }();
    });
}

TEST_F(LoggerMemoryTest, FileThatCouldNotBeOpenedForWantOfMemoryIsOpenedByTheNextLine)
{
    bool hasFailed = true;
    for (int successes = 0; hasFailed; ++successes) {
        const std::string earlier = m_world.logFile();
        m_world.stop();
        std::filesystem::remove(earlier);
        m_world.start(LOGLEVEL_WARN);
        {
            const FailingAllocations failing(successes, FailingAllocations::Then::AllFail);
            EXPECT_NO_THROW(LOG_PLAIN(WARN, LONG_TEXT));
            hasFailed = FailingAllocations::refused() > 0;
        }
        LOG_PLAIN(WARN, "next");
        EXPECT_EQ(m_world.logLines().back().body, "   next") << successes;
    }
}

TEST_F(LoggerMemoryTest, LineOfAnObjectThatHasNoMemoryForItsTextIsMarked)
{
    const Control control;
    {
        const FailingAllocations failing(0, FailingAllocations::Then::OthersSucceed);
        control.log();
    }
    {
        const FailingAllocations failing(1, FailingAllocations::Then::OthersSucceed);
        control.log();
    }
    control.log();
    const std::string name = "(anonymous namespace)::Control ";
    const std::string text = LONG_TEXT + "wide7";
    EXPECT_THAT(m_stream.said(), ElementsAre("WARN|   " + text + MARK, "WARN|   " + text + MARK,
                                             "WARN|   " + name + "of which there is something to tell " + text));
}

// The exit line copies as much of the entry line as there is.
TEST_F(LoggerMemoryTest, ExitOfAMarkedScopeIsMarked)
{
    {
        LogScope scope({LOG_SOURCE, 1}, LOGLEVEL_FINE);
        {
            const FailingAllocations failing(0, FailingAllocations::Then::AllFail);
            scope.name("Sample::scope") << LONG_TEXT;
        }
        scope.writeEntry();
    }
    const auto cut = [](const char* begin) { return testing::AllOf(testing::StartsWith(begin), testing::EndsWith("x" + MARK)); };
    EXPECT_THAT(m_stream.said(), ElementsAre(cut("FINE|-> scope x"), cut("FINE|<- scope x")));
}

TEST_F(LoggerMemoryTest, MemoryForALongLineIsGivenBack)
{
    const std::string text(50 << 20, 'x');
    const size_t before = FailingAllocations::liveBytes();
    LOG_PLAIN(WARN, text);
    m_stream.clear();
    EXPECT_LT(FailingAllocations::liveBytes(), before + 100000);
    EXPECT_GT(std::filesystem::file_size(m_world.logFile()), text.size());
}
