// From static initialisation to the end of static destruction.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstdio>

#define LOG_SOURCE "loggerLifecycleTest"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int LEVELS[] = {-1000000, -1, LOGLEVEL_ALWAYS, LOGLEVEL_ERROR, LOGLEVEL_TRACE};

bool isAnyLevelOn()
{
    return std::any_of(std::begin(LEVELS), std::end(LEVELS), [](int level) { return isLogEnabled(LOG_SOURCE, 1, level); });
}

// Called by the runtime before it constructs static objects, the Logger's guard among them.
bool s_wasAnyLevelOn = true;
int noteLevels()
{
    s_wasAnyLevelOn = isAnyLevelOn();
    return 0;
}
[[gnu::used, gnu::section(".CRT$XIY")]] int (*const s_noteLevels)() = noteLevels;

const std::string END = "End of logging, further static deinitializers can not log anymore";

class LoggerLifecycleTest : public fixtures::LoggerWorldTest
{
};

std::string probePath()
{
    return (std::filesystem::path(fixtures::modulePath()).parent_path() / "support_logger_probe.exe").string();
}

} // namespace

TEST(LoggerGuardTest, HasMadeALoggerBeforeMain)
{
    EXPECT_FALSE(s_wasAnyLevelOn);
    EXPECT_NE(Logger::instance(), nullptr);
}

TEST_F(LoggerLifecycleTest, ReferencesAreCountedAndTheLastOneEndsTheLog)
{
    m_world.start(LOGLEVEL_FINE);
    Logger* const logger = Logger::instance();
    const std::string file = m_world.logFile();
    m_stream.clear();

    Logger::getErrorEntries();
    Logger::setMaxLogLevel(-3);
    LOG_PLAIN(ALWAYS, "unheard");
    EXPECT_EQ(logger->maxLogLevel(), -3);
    Logger::setMaxLogLevel(LOGLEVEL_FINE);
    Logger::addRefCount();
    Logger::release();
    EXPECT_EQ(Logger::instance(), logger);
    Logger::release();
    EXPECT_EQ(Logger::instance(), nullptr);
    LOG_PLAIN(ERROR, "unheard");

    EXPECT_THAT(m_stream.said("logger"),
                ElementsAre("FINE|-> getErrorEntries ", "FINE|<- getErrorEntries ", "FINE|-> setMaxLogLevel -3",
                            "FINE|<- setMaxLogLevel -3", "FINE|-> addRefCount logging already initialized",
                            "FINE|<- addRefCount logging already initialized", "FINE|-> release not time to deinitialize log yet",
                            "FINE|<- release not time to deinitialize log yet", "FINE|   " + END))
        << "an exit line follows its entry line, whatever the level has become";
    EXPECT_EQ(m_stream.said(), m_stream.said("logger"));
    EXPECT_TRUE(fixtures::readFile(file).ends_with("    " + END + "\r\n"));
    EXPECT_TRUE(std::filesystem::remove(file)) << "it is closed";
}

TEST_F(LoggerLifecycleTest, WithoutALoggerNoLevelIsOnAndNothingIsWrittenOrKept)
{
    for (int round = 0; round < 2; ++round) {
        Logger::setMaxLogLevel(LOGLEVEL_TRACE);
        EXPECT_FALSE(isAnyLevelOn());
        EXPECT_FALSE(Loggable().isLogEnabled(LOG_SOURCE, 1, LOGLEVEL_ALWAYS));
        LogEntry({LOG_SOURCE, 1}, LOGLEVEL_ERROR).stream() << "unheard";
        {
            LogScope scope({LOG_SOURCE, 1}, LOGLEVEL_INFO);
            scope.name("Sample::scope");
            scope.writeEntry();
        }
        EXPECT_EQ(Logger::getErrorEntries(), "");
        EXPECT_THAT(m_stream.texts(), IsEmpty());
        m_world.start(LOGLEVEL_TRACE);
        m_world.stop();
        m_stream.clear();
    }
}

TEST_F(LoggerLifecycleTest, ScopesReachOverBeginAndEndOfALoggerWithoutHarm)
{
    m_world.start(LOGLEVEL_FINE);
    m_stream.clear();
    {
        LOG_SCOPE_STATIC(INFO, "CJavaManagerATLObject::ObjectMain", false);
        Logger::release();
    }
    EXPECT_THAT(m_stream.said("loggerLifecycleTest"), ElementsAre("INFO|-> ObjectMain 0")) << "the Logger of its exit is gone";
    {
        LogScope scope({LOG_SOURCE, 1}, LOGLEVEL_WARN);
        LogEntry entry({LOG_SOURCE, 2}, LOGLEVEL_WARN);
        entry.stream() << "statement";
        Logger::addRefCount();
        LOG_PLAIN(ALWAYS, "opens the file");
        m_stream.clear();
        scope.name("Sample::scope");
        scope.writeEntry();
        LOG_PLAIN(ERROR, "broken");
    }
    EXPECT_THAT(m_stream.said(),
                ElementsAre("WARN|scope ", fixtures::BEGIN_BANNER, "ERROR|   broken", fixtures::END_BANNER, "WARN|statement"))
        << "what was begun without a Logger is not indented, and in no chain";
}

TEST_F(LoggerLifecycleTest, ScopeOfAnEndedLoggerIsNotInTheNextOnesChain)
{
    m_world.start(LOGLEVEL_INFO);
    {
        LOG_SCOPE_STATIC(INFO, "Sample::old");
        Logger::release();
        Logger::addRefCount();
        {
            LOG_SCOPE_STATIC(INFO, "Sample::next");
            LOG(ALWAYS, "opens the file");
            m_stream.clear();
            LOG(WARN, "inside of the next one's");
        }
    }
    LOG_PLAIN(WARN, "outside");
    EXPECT_THAT(m_stream.said(), ElementsAre("WARN|    inside of the next one's", "INFO|<- next ", "WARN|   outside"))
        << "nor has it an exit there";
}

// The message is never written, because the level is always WARN at that time, but it must be there: so this looks for the text
// in the program itself.
TEST_F(LoggerLifecycleTest, FirstMessageIsKeptAlthoughItIsNeverWritten)
{
    const std::string text = "Beginning logging to debug stream (logging parameters not yet initialized)";
    EXPECT_NE(fixtures::readFile(probePath()).find(text), std::string::npos);
    m_world.start(LOGLEVEL_TRACE);
    EXPECT_FALSE(m_stream.contains("INFO " + text));
}

TEST(LoggerProbeTest, StaticObjectsLogFromTheirConstructionToTheirEnd)
{
    FILE* const probe = _popen(("\"" + probePath() + "\"").c_str(), "rb");
    ASSERT_NE(probe, nullptr);
    std::string output;
    for (int byte = std::fgetc(probe); byte != EOF; byte = std::fgetc(probe)) {
        output += static_cast<char>(byte);
    }
    EXPECT_EQ(_pclose(probe), 0);
    const std::vector<fixtures::LogLine> lines = fixtures::parseLogLines(output);
    EXPECT_THAT(fixtures::bodies(lines, "probe"),
                ElementsAre("WARN|   early static begins", "WARN|   ordinary static begins", "WARN|   main",
                            "WARN|   ordinary static ends", "WARN|   early static ends"));
    EXPECT_EQ(lines.back().text(), END);
}
