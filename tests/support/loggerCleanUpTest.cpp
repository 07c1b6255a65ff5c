// Which old log files are deleted. Runs in a time zone far from UTC, because ages are counted in UTC.
#include "support/loggerImplementation.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerCleanUpTest"

using testing::Contains;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

using FindHook = ImportHook<decltype(&FindFirstFileA)>;
using NextHook = ImportHook<decltype(&FindNextFileA)>;
using CloseHook = ImportHook<decltype(&FindClose)>;
using DeleteHook = ImportHook<decltype(&DeleteFileA)>;

constexpr LONGLONG SECOND = 10000000;
constexpr int FOUR_WEEKS = 28 * 24 * 60 * 60;

FILETIME plus(const FILETIME& time, LONGLONG units)
{
    const LONGLONG sum = ticks(time) + units;
    return {static_cast<DWORD>(sum), static_cast<DWORD>(sum >> 32)};
}

FILETIME now()
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return time;
}

class LoggerCleanUpTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerCleanUpTest()
    {
        std::filesystem::create_directory(m_folder);
        m_world.setPreference("logpath", m_folder);
    }
    std::string path(const std::string& name) const { return m_folder + "\\" + name; }
    // An empty file with a last write that long ago.
    void makeFile(const std::string& name, LONGLONG ageInSeconds) const
    {
        const HANDLE file = CreateFileA(path(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        const FILETIME time = plus(now(), -ageInSeconds * SECOND);
        EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &time)) << name;
        CloseHandle(file);
    }

    std::vector<std::string> m_calls;
    const std::string m_folder = m_world.folder() + "\\logs";
    const std::string m_product = std::string(m_world.PRODUCT) + "-";
};

} // namespace

TEST(OldLogFileTest, IsStrictlyOlderInWholeSeconds)
{
    const FILETIME written = {0xFFFFFFF0, 0x01D00000};
    const auto isOld = [&written](LONGLONG age, int limit) { return isOldLogFile(plus(written, age), written, limit); };
    EXPECT_FALSE(isOld(FOUR_WEEKS * SECOND, FOUR_WEEKS));
    EXPECT_FALSE(isOld((FOUR_WEEKS + 1) * SECOND - 1, FOUR_WEEKS));
    EXPECT_TRUE(isOld((FOUR_WEEKS + 1) * SECOND, FOUR_WEEKS));
    EXPECT_FALSE(isOld(0, 0));
    EXPECT_FALSE(isOld(-100 * SECOND, 0)) << "from the future";
    EXPECT_TRUE(isOld(0, -1)) << "the age is signed";
}

TEST_F(LoggerCleanUpTest, FilesOfTheProductThatAreTooOldAreDeletedTheOwnOneAsWell)
{
    FILETIME local;
    const FILETIME utc = now();
    FileTimeToLocalFileTime(&utc, &local);
    ASSERT_NE(ticks(local), ticks(utc)) << "the test needs another time zone than Greenwich's";

    const std::string own = m_world.fileName() + ".log";
    makeFile(own, FOUR_WEEKS + 1);
    makeFile(m_product + "KESTAx64.exe-1.log", FOUR_WEEKS + 1);
    makeFile(m_product + "other.exe-2-0001.log", FOUR_WEEKS * 100LL);
    makeFile(m_product + "KESTAx64.exe-3.log", FOUR_WEEKS - 60);
    makeFile(m_product + "KESTAx64.exe-4.txt", FOUR_WEEKS + 1);
    makeFile("OTHERPRODUCT-KESTAx64.exe-5.log", FOUR_WEEKS + 1);
    makeFile(m_world.PRODUCT + std::string("2-KESTAx64.exe-6.log"), FOUR_WEEKS + 1);
    m_world.start();
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
        left.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(left, UnorderedElementsAre(m_product + "KESTAx64.exe-3.log", m_product + "KESTAx64.exe-4.txt",
                                           "OTHERPRODUCT-KESTAx64.exe-5.log", "UNDEFINEDPRODUCT2-KESTAx64.exe-6.log"));
}

TEST_F(LoggerCleanUpTest, NegativeAgeDeletesEvenNewFiles)
{
    makeFile(m_product + "a.log", 0);
    m_world.setPreference("oldlogfileage", -1);
    m_world.start();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder));
}

TEST_F(LoggerCleanUpTest, FilesAreListedFirstAndThenEachIsToldBeforeItsDeletionWhoseFailureIsNotReported)
{
    makeFile(m_product + "a.log", 11);
    makeFile(m_product + "b.log", 0);
    makeFile(m_product + "c.log", 12);
    m_world.setPreference("oldlogfileage", 10);
    const FindHook find("FindFirstFileA", [this](LPCSTR pattern, LPWIN32_FIND_DATAA found) -> HANDLE {
        m_calls.push_back("find " + std::string(pattern));
        return FindHook::s_original(pattern, found);
    });
    const NextHook next("FindNextFileA", [this](HANDLE handle, LPWIN32_FIND_DATAA found) -> BOOL {
        const BOOL result = NextHook::s_original(handle, found);
        m_calls.emplace_back(result ? "next" : "end");
        return result;
    });
    const CloseHook close("FindClose", [this](HANDLE handle) -> BOOL {
        m_calls.emplace_back("close");
        return CloseHook::s_original(handle);
    });
    const DeleteHook deletion("DeleteFileA", [this](LPCSTR file) -> BOOL {
        m_calls.push_back("delete " + std::string(file) + " after " + m_stream.said().back());
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    m_world.start(LOGLEVEL_INFO);
    ASSERT_EQ(m_calls.size(), 1 + 4 + 1 + 2u) << "one of the files is that of this process";
    EXPECT_EQ(m_calls[0], "find " + m_folder + "\\" + m_product + "*.log");
    EXPECT_EQ(m_calls[4], "end");
    EXPECT_EQ(m_calls[5], "close");
    for (const std::string& name : {m_product + "a.log", m_product + "c.log"}) {
        EXPECT_THAT(m_calls, Contains("delete " + path(name) + " after INFO|    Deleting old log file " + name));
    }
    EXPECT_EQ(m_stream.said().size(), 4 + 2 + 2u) << "system information, start and deletions";
    LOG_PLAIN(WARN, "goes on");
    EXPECT_EQ(m_world.logLines().back().text(), "goes on");
}

TEST_F(LoggerCleanUpTest, NothingIsListedWhileThereIsNoFileLogging)
{
    const FindHook find("FindFirstFileA", [this](LPCSTR pattern, LPWIN32_FIND_DATAA found) -> HANDLE {
        m_calls.emplace_back(pattern);
        return FindHook::s_original(pattern, found);
    });
    m_world.setPreference("logpath", "");
    m_world.start();
    EXPECT_THAT(m_calls, IsEmpty());

    m_world.setPreference("logpath", m_folder);
    m_world.start();
    std::filesystem::create_directory(m_world.logFile());
    LOG_PLAIN(WARN, "gives up");
    m_calls.clear();
    Logger::instance()->initCleanUpLogFiles();
    EXPECT_THAT(m_calls, IsEmpty());
}
