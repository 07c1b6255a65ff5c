// From static initialisation to the end of static destruction.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerLifecycleTest"

using fixtures::DebugStream;
using fixtures::LoggerWorld;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(LoggerLifecycleTest, GuardHasMadeALoggerBeforeMain)
{
    EXPECT_NE(Logger::instance(), nullptr);
}

TEST(LoggerLifecycleTest, SecondReferenceKeepsTheLoggerAndTheLastReleaseEndsIt)
{
    LoggerWorld world;
    world.setPreference("loglevel", LOGLEVEL_FINE);
    world.start();
    DebugStream stream;
    Logger* const logger = Logger::instance();

    Logger::addRefCount();
    EXPECT_THAT(stream.messages(),
                ElementsAre("FINE addRefCount logging already initialized", "FINE addRefCount logging already initialized"));
    stream.clear();
    Logger::release();
    EXPECT_EQ(Logger::instance(), logger);
    EXPECT_THAT(stream.messages(),
                ElementsAre("FINE release not time to deinitialize log yet", "FINE release not time to deinitialize log yet"));
    stream.clear();
    Logger::release();
    EXPECT_EQ(Logger::instance(), nullptr);
    EXPECT_THAT(stream.messages(), ElementsAre("FINE End of logging, further static deinitializers can not log anymore"));
    stream.clear();

    LOG_PLAIN(ALWAYS, "unheard");
    LOG_PLAIN(ERROR, "unheard");
    EXPECT_THAT(stream.texts(), IsEmpty());
    EXPECT_FALSE(isLogEnabled(LOG_SOURCE, __LINE__, LOGLEVEL_ALWAYS));
}

TEST(LoggerLifecycleTest, WithoutLoggerEverythingIsSilentAndNothingIsKept)
{
    LoggerWorld world;
    DebugStream stream;
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    EXPECT_FALSE(isLogEnabled(LOG_SOURCE, __LINE__, LOGLEVEL_ALWAYS));
    LogEntry({LOG_SOURCE, __LINE__}, LOGLEVEL_ERROR).stream() << "unheard";
    {
        LogScope scope({LOG_SOURCE, __LINE__}, LOGLEVEL_INFO);
        scope.name("Sample::scope");
        scope.writeEntry();
    }
    EXPECT_EQ(Logger::getErrorEntries(), "");
    EXPECT_THAT(stream.texts(), IsEmpty());
}

TEST(LoggerLifecycleTest, ScopeAliveAcrossTheEndIsHarmless)
{
    LoggerWorld world;
    world.setPreference("loglevel", LOGLEVEL_FINE);
    world.start();
    DebugStream stream;
    {
        LOG_SCOPE_STATIC(INFO, "CJavaManagerATLObject::ObjectMain", false);
        Logger::release();
    }
    EXPECT_THAT(stream.messages(),
                ElementsAre("INFO ObjectMain 0", "FINE End of logging, further static deinitializers can not log anymore"));

    stream.clear();
    {
        LOG_SCOPE_STATIC(INFO, "CJavaManagerATLObject::ObjectMain", true);
        Logger::addRefCount();
        stream.clear();
        LOG(ERROR, "first error of the new one");
    }
    EXPECT_THAT(stream.messages(), ElementsAre(fixtures::BEGIN_BANNER, "ERROR first error of the new one", fixtures::END_BANNER));
}

TEST(LoggerLifecycleTest, ScopeOfAnEndedLoggerIsNotInTheNextOnesChain)
{
    LoggerWorld world;
    world.start();
    DebugStream stream;
    {
        LOG_SCOPE_STATIC(INFO, "Sample::old");
        Logger::release();
        Logger::addRefCount();
        {
            LOG_SCOPE_STATIC(INFO, "Sample::next");
            LOG(WARN, "opens the file");
            stream.clear();
            LOG(WARN, "text");
            EXPECT_EQ(stream.lines().back().body, "    text");
        }
    }
    stream.clear();
    LOG_PLAIN(WARN, "text");
    EXPECT_EQ(stream.lines().back().body, "   text") << "the next Logger's chain is empty again";
}

TEST(LoggerLifecycleTest, SetMaxLogLevelStoresAnyInteger)
{
    LoggerWorld world;
    world.setPreference("loglevel", LOGLEVEL_FINE);
    world.start();
    DebugStream stream;
    Logger::setMaxLogLevel(-3);
    EXPECT_EQ(Logger::instance()->maxLogLevel(), -3);
    // The exit line follows the entry line whatever the level has become meanwhile.
    EXPECT_THAT(stream.messages(), ElementsAre("FINE setMaxLogLevel -3", "FINE setMaxLogLevel -3"));
    stream.clear();
    LOG_PLAIN(ALWAYS, "unheard");
    EXPECT_THAT(stream.texts(), IsEmpty());
}

namespace {
std::string probePath()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return (std::filesystem::path(path).parent_path() / "support_logger_probe.exe").string();
}
} // namespace

// The level is always WARN when it is told, so that nobody hears it; it is kept all the same. This program holds the text itself.
TEST(LoggerLifecycleTest, FirstMessageIsKeptAlthoughItIsNeverWritten)
{
    EXPECT_NE(fixtures::readFile(probePath()).find("Beginning logging to debug stream (logging parameters not yet initialized)"),
              std::string::npos);
    LoggerWorld world;
    DebugStream stream;
    for (int level = LOGLEVEL_ALWAYS; level <= LOGLEVEL_TRACE; ++level) {
        world.setPreference("loglevel", level);
        world.start();
    }
    for (const std::string& text : stream.texts()) {
        EXPECT_EQ(text.find("Beginning logging to debug stream"), std::string::npos);
    }
}

TEST(LoggerLifecycleTest, StaticObjectsLogFromTheirConstructionToTheirEnd)
{
    const std::string probe = probePath();

    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    ASSERT_TRUE(CreatePipe(&read, &write, &inherit, 0));
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = write;
    PROCESS_INFORMATION process = {};
    std::string command = "\"" + probe + "\"";
    ASSERT_TRUE(CreateProcessA(probe.c_str(), command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process));
    CloseHandle(write);
    std::string output;
    char buffer[4096];
    for (DWORD size = 0; ReadFile(read, buffer, sizeof buffer, &size, nullptr) && size > 0;) {
        output.append(buffer, size);
    }
    CloseHandle(read);
    DWORD exitCode = 1;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);

    EXPECT_EQ(exitCode, 0u);
    std::vector<std::string> messages;
    for (const fixtures::LogLine& line : fixtures::parseLogLines(output)) {
        if (line.source.starts_with("probe ") || line.body.find("End of logging") != std::string::npos) {
            messages.push_back(line.level + " " + line.text());
        }
    }
    EXPECT_THAT(messages,
                ElementsAre("WARN early static begins", "WARN ordinary static begins", "WARN main", "WARN ordinary static ends",
                            "WARN early static ends", "FINE End of logging, further static deinitializers can not log anymore"));
}
