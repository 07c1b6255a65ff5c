// Many threads at once. KESTA_STRESS_SECONDS makes it last longer than the moment it takes by default.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#define LOG_SOURCE "loggerThreadsTest"

using fixtures::LoggerWorld;
using fixtures::LogLine;

namespace {

constexpr int THREAD_COUNT = 16;

std::chrono::milliseconds duration()
{
    const char* seconds = std::getenv("KESTA_STRESS_SECONDS");
    return std::chrono::milliseconds(seconds != nullptr ? std::atoi(seconds) * 1000 : 300);
}

// Every text ends in the thread's id, so that a line of another thread is seen.
class Worker : public virtual Loggable
{
public:
    explicit Worker(const std::atomic<bool>& stop)
        : m_stop(stop)
    {
    }
    std::string getLogObjectInfo() const override { return "of " + std::to_string(GetCurrentThreadId()); }
    void run()
    {
        while (!m_stop) {
            descend(0);
        }
    }

private:
    void descend(int depth)
    {
        LOG_SCOPE(FINE, "Worker::descend", depth << " thread " << GetCurrentThreadId());
        LOG(FINE, "statement thread " << GetCurrentThreadId());
        if (depth < 4) {
            descend(depth + 1);
        } else if (++m_round % 3 == 0) {
            LOG(ERROR, "error thread " << GetCurrentThreadId());
        }
        LOG(INFO, "after thread " << GetCurrentThreadId());
    }

    const std::atomic<bool>& m_stop;
    int m_round = 0;
};

std::string suffix(unsigned long thread)
{
    return " thread " + std::to_string(thread);
}

// What one thread's lines must be: scopes properly nested, each error followed by its own chain, innermost first.
class ThreadChecker
{
public:
    void check(const LogLine& line)
    {
        ASSERT_TRUE(m_failed == 0) << "stopped at the first fault of this thread";
        ++m_failed;
        const std::string owner = "Worker of " + std::to_string(line.thread) + " ";
        ASSERT_NE(line.body.find(owner), std::string::npos) << line.body;
        ASSERT_TRUE(line.body.ends_with(suffix(line.thread))) << line.body;
        const size_t marker = line.body.find_first_not_of(' ');
        const std::string kind = line.body.substr(marker, 3);
        if (!m_chain.empty()) {
            ASSERT_EQ(line.body, m_chain.back());
            m_chain.pop_back();
        } else if (kind == "-> ") {
            ASSERT_EQ(marker, m_scopes.size());
            m_scopes.push_back(line.body);
        } else if (kind == "<- ") {
            ASSERT_FALSE(m_scopes.empty());
            ASSERT_EQ(marker + 1, m_scopes.size());
            std::string entry = line.body;
            entry.replace(marker, 2, "->");
            ASSERT_EQ(entry, m_scopes.back());
            m_scopes.pop_back();
        } else {
            ASSERT_EQ(marker, m_scopes.size() + 3);
            if (line.level == "ERROR") {
                m_chain = m_scopes;
                ++m_errors;
            }
        }
        --m_failed;
    }
    bool finished() const { return m_failed == 0 && m_chain.empty() && m_scopes.empty(); }
    int errors() const { return m_errors; }

private:
    std::vector<std::string> m_scopes;
    std::vector<std::string> m_chain; // still to come after an error; its last one comes first
    int m_failed = 0;
    int m_errors = 0;
};

} // namespace

TEST(LoggerThreadsTest, EveryLineIsWholeAndEveryThreadHasItsOwnChain)
{
    LoggerWorld world;
    world.setPreference("loglevel", LOGLEVEL_FINE);
    world.setPreference("splitlogfilesize", 1);
    world.start();
    const std::string prefix = Logger::instance()->logFilePrefix();
    const size_t before = fixtures::splitLines(world.logText()).size();

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREAD_COUNT; ++i) {
        threads.emplace_back([&stop] { Worker(stop).run(); });
    }
    std::this_thread::sleep_for(duration());
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string errorText = Logger::getErrorEntries();

    std::map<unsigned long, ThreadChecker> checkers;
    int begins = 0;
    int ends = 0;
    int files = 0;
    size_t lineNumber = 0;
    for (; files == 0 || std::filesystem::exists(prefix + "-" + std::to_string(10000 + files).substr(1) + ".log"); ++files) {
        for (const LogLine& line : fixtures::parseLogLines(world.logText(files))) {
            if (lineNumber++ < before || line.source.starts_with("logger ")) {
                continue;
            }
            if (line.body == fixtures::BEGIN_BANNER) {
                ++begins;
            } else if (line.body == fixtures::END_BANNER) {
                ++ends;
            } else {
                ASSERT_FALSE(line.level.empty()) << "torn line: " << line.body;
                checkers[line.thread].check(line);
                ASSERT_FALSE(testing::Test::HasFatalFailure());
            }
        }
    }
    int errors = 0;
    for (const auto& [thread, checker] : checkers) {
        EXPECT_TRUE(checker.finished()) << thread;
        errors += checker.errors();
    }
    EXPECT_EQ(checkers.size(), static_cast<size_t>(THREAD_COUNT));
    EXPECT_GT(errors, 0);
    EXPECT_EQ(begins, errors);
    EXPECT_EQ(ends, errors);
    const std::vector<std::string> entries = fixtures::splitLines(errorText);
    EXPECT_EQ(entries.size(), static_cast<size_t>(errors) * 6) << "each error and its five scopes";
    RecordProperty("lines", static_cast<int>(lineNumber));
    RecordProperty("files", files);
}
