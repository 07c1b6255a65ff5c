// What is left undone when there is no memory for it, and that nothing else suffers.
#include "support/version.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "memoryTest"

using fixtures::BEGIN_BANNER;
using fixtures::DebugStream;
using fixtures::END_BANNER;
using testing::ElementsAre;

namespace {

constexpr const char* LEFT_OUT = "Out of memory, a log line was left out";
const std::string TOO_LONG(2 * FailingAllocations::LARGE, 'x');

class LoggerMemoryTest : public testing::Test
{
protected:
    LoggerMemoryTest()
    {
        m_world.setPreference("loglevel", LOGLEVEL_FINE);
        m_world.start();
        m_stream.clear();
    }
    std::vector<std::string> bodies() const
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            result.push_back(line.body.size() < FailingAllocations::LARGE ? line.body : "long");
        }
        return result;
    }

    fixtures::LoggerWorld m_world;
    DebugStream m_stream;
};

// Writes a statement for whose line there is no memory.
void writeTooLong(int level)
{
    auto entry = std::make_unique<LogEntry>(LogPlace{LOG_SOURCE, 1}, level);
    entry->stream() << TOO_LONG;
    const FailingAllocations failing(FailingAllocations::Kind::Large);
    entry.reset();
}

} // namespace

TEST_F(LoggerMemoryTest, StatementIsLeftOutAndTheNextOneIsWritten)
{
    writeTooLong(LOGLEVEL_WARN);
    LOG_PLAIN(WARN, "next");
    EXPECT_THAT(bodies(), ElementsAre(LEFT_OUT, "   next"));
    EXPECT_EQ(m_world.logLines().back().body, "   next");
    EXPECT_EQ(m_world.logText().find(LEFT_OUT), std::string::npos) << "for the debugger only";
}

TEST_F(LoggerMemoryTest, ErrorThatIsLeftOutDoesNotMakeLaterLinesPartOfIt)
{
    writeTooLong(LOGLEVEL_ERROR);
    LOG_PLAIN(WARN, "no part of it");
    LOG_PLAIN(ERROR, "next");
    EXPECT_THAT(bodies(), ElementsAre(BEGIN_BANNER, LEFT_OUT, "   no part of it", BEGIN_BANNER, "   next", END_BANNER));
    const std::vector<fixtures::LogLine> entries = fixtures::parseLogLines(Logger::getErrorEntries());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].body, "   next");
}

TEST_F(LoggerMemoryTest, ExitThatIsLeftOutClosesItsScopeAllTheSame)
{
    std::optional<LogScope> scope;
    scope.emplace(LogPlace{LOG_SOURCE, 1}, LOGLEVEL_FINE);
    scope->name("Sample::scope");
    scope->writeEntry();
    scope->stream() << TOO_LONG;
    {
        const FailingAllocations failing(FailingAllocations::Kind::Large);
        scope.reset();
    }
    LOG_PLAIN(ERROR, "next");
    EXPECT_THAT(bodies(), ElementsAre("-> scope ", LEFT_OUT, BEGIN_BANNER, "   next", END_BANNER));
}

namespace {
using QueryHook = ImportHook<decltype(&VerQueryValueA)>;

BOOL WINAPI refuseQuery(LPCVOID, LPCSTR, LPVOID*, PUINT)
{
    return FALSE;
}

std::string ownPath()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}
} // namespace

TEST(VersionMemoryTest, ResourceForWhichThereIsNoMemoryGivesEmptyTexts)
{
    const std::string path = ownPath();
    ASSERT_EQ(CVersion::getVersionInfo(path.c_str()), "7.0.0.1");
    ASSERT_EQ(CVersion::getProductName(path.c_str()), "MEMORYTEST");
    const FailingAllocations failing(FailingAllocations::Kind::NothrowArrays);
    EXPECT_EQ(CVersion::getVersionInfo(path.c_str()), "");
    EXPECT_EQ(CVersion::getProductName(path.c_str()), "") << "and not the default";
}

TEST(VersionMemoryTest, ResourceThatTellsNothingGivesTheDefaults)
{
    const QueryHook hook("VerQueryValueA", refuseQuery);
    EXPECT_EQ(CVersion::getVersionInfo(ownPath().c_str()), "");
    EXPECT_EQ(CVersion::getProductName(ownPath().c_str()), "UNDEFINEDPRODUCT");
}

TEST(VersionMemoryTest, ResourceIsFreedOnEveryWay)
{
    const std::string path = ownPath();
    CVersion::getVersionInfo(path.c_str());
    EXPECT_EQ(FailingAllocations::lastNothrowArray(), nullptr);
    CVersion::getProductName(path.c_str());
    EXPECT_EQ(FailingAllocations::lastNothrowArray(), nullptr);
    const QueryHook hook("VerQueryValueA", refuseQuery);
    CVersion::getProductName(path.c_str());
    EXPECT_EQ(FailingAllocations::lastNothrowArray(), nullptr);
}
