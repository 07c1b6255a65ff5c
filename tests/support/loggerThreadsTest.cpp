// Many threads at once, briefly by default; KESTA_STRESS_ROUNDS makes it longer.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>
#include <thread>

#define LOG_SOURCE "loggerThreadsTest"

using Strings = std::vector<std::string>;

namespace {

constexpr int THREAD_COUNT = 16;
constexpr int DEPTH = 4;

int rounds()
{
    const char* rounds = std::getenv("KESTA_STRESS_ROUNDS");
    return rounds != nullptr ? std::atoi(rounds) : 200;
}

bool fails(int round)
{
    return round % 3 == 0;
}

// Every text repeats the thread's id, so that a line of another thread is noticed.
class Worker : public virtual Loggable
{
public:
    std::string getLogObjectInfo() const override { return "of " + std::to_string(GetCurrentThreadId()); }
    void descend(int depth, bool fails)
    {
        LOG_SCOPE(FINE, "Worker::descend", depth);
        if (depth < DEPTH) {
            descend(depth + 1, fails);
        } else if (fails) {
            LOG(ERROR, "error");
        }
        LOG(INFO, "after");
    }
};

// What the worker's lines must be: scopes properly nested, each error followed by its own chain, innermost first.
class ExpectedLines
{
public:
    explicit ExpectedLines(unsigned long thread)
        : m_name("(anonymous namespace)::Worker of " + std::to_string(thread) + " ")
    {
    }
    void descend(size_t depth, bool fails)
    {
        const std::string text = m_name + "descend " + std::to_string(depth);
        m_chain.push_back("FINE|" + std::string(depth, ' ') + "-> " + text);
        lines.push_back(m_chain.back());
        if (depth < DEPTH) {
            descend(depth + 1, fails);
        } else if (fails) {
            lines.push_back("ERROR|" + std::string(depth + 4, ' ') + m_name + "error");
            lines.insert(lines.end(), m_chain.rbegin(), m_chain.rend());
        }
        lines.push_back("INFO|" + std::string(depth + 4, ' ') + m_name + "after");
        lines.push_back("FINE|" + std::string(depth, ' ') + "<- " + text);
        m_chain.pop_back();
    }

    Strings lines;

private:
    const std::string m_name;
    Strings m_chain;
};

} // namespace

TEST(LoggerThreadsTest, EveryLineIsWholeAndEveryThreadHasItsOwnChain)
{
    fixtures::LoggerWorld world;
    world.setPreference("splitlogfilesize", 1);
    world.start(LOGLEVEL_FINE);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREAD_COUNT; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < rounds(); ++round) {
                Worker().descend(0, fails(round));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const size_t errorLines = fixtures::splitLines(Logger::getErrorEntries()).size();

    std::map<unsigned long, Strings> linesByThread;
    std::map<std::string, int> banners;
    for (int file = 0; file == 0 || std::filesystem::exists(world.logFile(file)); ++file) {
        for (const fixtures::LogLine& line : world.logLines(file)) {
            if (line.level.empty()) {
                ++banners[line.body];
            } else if (line.module() == LOG_SOURCE) {
                linesByThread[line.thread].push_back(line.level + "|" + line.body);
            }
        }
    }
    ASSERT_EQ(linesByThread.size(), static_cast<size_t>(THREAD_COUNT));
    for (const auto& [thread, lines] : linesByThread) {
        ExpectedLines expected(thread);
        for (int round = 0; round < rounds(); ++round) {
            expected.descend(0, fails(round));
        }
        EXPECT_TRUE(lines == expected.lines) << thread; // the lists are too long to be printed
    }
    const int errors = THREAD_COUNT * ((rounds() + 2) / 3);
    EXPECT_EQ(banners, (std::map<std::string, int>{{fixtures::BEGIN_BANNER, errors}, {fixtures::END_BANNER, errors}}));
    EXPECT_EQ(errorLines, static_cast<size_t>(errors) * (1 + DEPTH + 1)) << "each error and its scopes";
    EXPECT_TRUE(std::filesystem::exists(world.logFile(1))) << "the files are split meanwhile";
}
