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

void work()
{
    for (int round = 0; round < rounds(); ++round) {
        Worker().descend(0, round % 3 == 0);
    }
}

} // namespace

TEST(LoggerThreadsTest, EachThreadLogsAmongOthersWhatOneLogsAlone)
{
    fixtures::LoggerWorld world;
    world.setPreference("splitlogfilesize", 1);
    world.start(LOGLEVEL_FINE);
    work();
    std::vector<std::thread> threads;
    for (int i = 0; i < THREAD_COUNT; ++i) {
        threads.emplace_back(work);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const size_t errorLines = fixtures::splitLines(Logger::getErrorEntries()).size();

    std::map<unsigned long, Strings> linesByThread; // without the thread's id
    std::map<std::string, int> banners;
    for (int file = 0; file == 0 || std::filesystem::exists(world.logFile(file)); ++file) {
        for (const fixtures::LogLine& line : world.logLines(file)) {
            const std::string id = std::to_string(line.thread);
            if (line.level.empty()) {
                ++banners[line.body];
            } else if (line.module() == LOG_SOURCE) {
                std::string text = line.level + "|" + line.body;
                linesByThread[line.thread].push_back(text.replace(text.find(id), id.size(), "this thread"));
            }
        }
    }
    ASSERT_EQ(linesByThread.size(), THREAD_COUNT + 1u);
    for (const auto& [thread, lines] : linesByThread) {
        EXPECT_TRUE(lines == linesByThread[GetCurrentThreadId()]) << thread; // the lists are too long to be printed
    }
    const int errors = (THREAD_COUNT + 1) * ((rounds() + 2) / 3);
    EXPECT_EQ(banners, (std::map<std::string, int>{{fixtures::BEGIN_BANNER, errors}, {fixtures::END_BANNER, errors}}));
    EXPECT_EQ(errorLines, static_cast<size_t>(errors) * (1 + DEPTH + 1)) << "each error and its scopes";
    EXPECT_TRUE(std::filesystem::exists(world.logFile(1))) << "the files are split meanwhile";
}
