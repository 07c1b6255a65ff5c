// Splitting by size, deletion by age, and what happens when the disk or a file does not play along.
#include "support/loggerImplementation.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerSplitTest"

using fixtures::DebugStream;
using fixtures::LoggerWorld;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr std::uintmax_t MEGABYTE = 1 << 20;
constexpr const char* PRODUCT = "UNDEFINEDPRODUCT";

class LoggerSplitTest : public testing::Test
{
protected:
    std::string file(int index = 0) const
    {
        char suffix[16] = "";
        if (index != 0) {
            std::snprintf(suffix, sizeof suffix, "-%04d", index);
        }
        return m_prefix + suffix + ".log";
    }
    void start()
    {
        m_world.start();
        m_prefix = Logger::instance()->logFilePrefix();
    }
    // Numbered lines of about a kilobyte.
    void writeLines(int first, int count)
    {
        const std::string filler(900, 'x');
        for (int number = first; number < first + count; ++number) {
            LOG_PLAIN(WARN, "line " << number << " " << filler << " end");
        }
    }
    // The numbers of the lines in a file; any line that is not whole makes the test fail.
    std::vector<int> numbersIn(int index) const
    {
        std::vector<int> numbers;
        const std::string filler(900, 'x');
        for (const std::string& line : fixtures::splitLines(fixtures::readFile(file(index)))) {
            if (line.find(" ALWAYS ") != std::string::npos) {
                continue;
            }
            const size_t begin = line.find("   line ");
            if (begin == std::string::npos || !line.ends_with(" " + filler + " end\r")) {
                ADD_FAILURE() << "torn line in file " << index << ": " << line.substr(0, 200);
                continue;
            }
            numbers.push_back(std::stoi(line.substr(begin + 8)));
        }
        return numbers;
    }

    LoggerWorld m_world;
    std::string m_prefix;
};

FILETIME secondsAgo(LONGLONG seconds)
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time;
    time.LowPart = now.dwLowDateTime;
    time.HighPart = now.dwHighDateTime;
    time.QuadPart -= static_cast<ULONGLONG>(seconds * 10000000);
    return {time.LowPart, time.HighPart};
}

// Writes a file and gives it that age.
void makeFile(const std::string& path, LONGLONG ageInSeconds)
{
    std::ofstream(path) << "text";
    const HANDLE file = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const FILETIME time = secondsAgo(ageInSeconds);
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &time));
    CloseHandle(file);
}

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

constexpr LONGLONG FOUR_WEEKS = 28 * 24 * 60 * 60;

} // namespace

// A process that got the id of an earlier one goes on in its file, which any line of the facts block may then fill.
TEST_F(LoggerSplitTest, NoLineIsLostWhereverTheSystemInformationFillsAFile)
{
    m_world.setPreference("splitlogfilesize", 1);
    start();
    for (size_t room = 50; room < 1000; room += 50) {
        m_world.stop();
        std::filesystem::remove(file(1));
        const std::string earlier(2 * MEGABYTE - room, 'x');
        std::ofstream(file(), std::ios::binary | std::ios::trunc) << earlier << "\r\n";

        start();
        writeLines(1, 2);

        const std::string written = fixtures::readFile(file()).substr(earlier.size()) + fixtures::readFile(file(1));
        const size_t first = written.find("   line 1 ");
        EXPECT_NE(first, std::string::npos) << room;
        EXPECT_NE(written.find("   line 2 ", first), std::string::npos) << room;
        EXPECT_EQ(fixtures::splitLines(written).size(), 1 + 4 + 2u) << room; // the earlier line's end, the facts, the lines
    }
}

TEST_F(LoggerSplitTest, TwelveMegabytesFillOneFilePastElevenAndGoOnInTheNext)
{
    start();
    const int count = 12800;
    writeLines(0, count);
    const std::uintmax_t size = std::filesystem::file_size(file());
    EXPECT_GE(size, 11 * MEGABYTE);
    EXPECT_LT(size, 11 * MEGABYTE + 2048) << "closed by the line that reached it";
    EXPECT_TRUE(m_prefix.ends_with("-" + std::to_string(GetCurrentProcessId())));
    ASSERT_TRUE(std::filesystem::exists(file(1)));
    EXPECT_FALSE(std::filesystem::exists(file(2)));

    std::vector<int> numbers = numbersIn(0);
    const std::vector<int> more = numbersIn(1);
    numbers.insert(numbers.end(), more.begin(), more.end());
    ASSERT_EQ(numbers.size(), static_cast<size_t>(count));
    for (int number = 0; number < count; ++number) {
        ASSERT_EQ(numbers[static_cast<size_t>(number)], number);
    }
    EXPECT_EQ(fixtures::readFile(file(1)).find("ALWAYS"), std::string::npos) << "system information is in the first file only";
}

TEST_F(LoggerSplitTest, SizeOneSplitsAtTwoMegabytesAndCountsOn)
{
    m_world.setPreference("splitlogfilesize", 1);
    start();
    writeLines(0, 5000);
    EXPECT_GE(std::filesystem::file_size(file(0)), 2 * MEGABYTE);
    EXPECT_GE(std::filesystem::file_size(file(1)), 2 * MEGABYTE);
    EXPECT_LT(std::filesystem::file_size(file(2)), 2 * MEGABYTE);
    EXPECT_EQ(numbersIn(0).size() + numbersIn(1).size() + numbersIn(2).size(), 5000u);
}

TEST_F(LoggerSplitTest, SizeZeroNeverSplits)
{
    m_world.setPreference("splitlogfilesize", 0);
    start();
    writeLines(0, 2500);
    EXPECT_EQ(numbersIn(0).size(), 2500u);
    EXPECT_FALSE(std::filesystem::exists(file(1)));
}

TEST_F(LoggerSplitTest, NegativeSizeNeverSplits)
{
    m_world.setPreference("splitlogfilesize", -1);
    start();
    writeLines(0, 1100);
    EXPECT_GT(std::filesystem::file_size(file()), MEGABYTE);
    EXPECT_FALSE(std::filesystem::exists(file(1)));
}

// The next line goes on in the file as long as it holds less than two whole megabytes.
TEST_F(LoggerSplitTest, FileIsFullAtTheFirstByteOfTheMegabyteAfterItsSize)
{
    m_world.setPreference("splitlogfilesize", 1);
    start();
    const auto write = [] { LOG_PLAIN(WARN, "text"); };
    write();
    const std::uintmax_t head = std::filesystem::file_size(file());
    for (const bool isFull : {false, true}) {
        m_world.stop();
        std::ofstream(file(), std::ios::binary | std::ios::trunc) << std::string(2 * MEGABYTE - head - (isFull ? 0 : 1), 'x');
        start();
        write();
        EXPECT_EQ(std::filesystem::file_size(file()), 2 * MEGABYTE - (isFull ? 0 : 1));
        write();
        EXPECT_EQ(std::filesystem::exists(file(1)), isFull);
    }
}

TEST_F(LoggerSplitTest, LaterFileThatCannotBeOpenedEndsFileLogging)
{
    m_world.setPreference("splitlogfilesize", 1);
    start();
    std::filesystem::create_directory(file(1));
    DebugStream stream;
    writeLines(0, 2500);
    int reports = 0;
    for (const std::string& text : stream.texts()) {
        reports += static_cast<int>(text == "Could not open log file, giving up logging to files");
    }
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(stream.lines().back().body.substr(0, 12), "   line 2499");
    EXPECT_EQ(Logger::instance()->logFilePrefix(), "");
    EXPECT_FALSE(std::filesystem::exists(file(2)));
}

TEST(LogFileTest, AfterAFailedWriteNothingMoreIsWritten)
{
    LogFile file;
    if (!file.open("\\\\?\\unix\\dev\\full")) {
        GTEST_SKIP() << "needs a device that is always full";
    }
    file.write("one\n");
    EXPECT_EQ(file.position(), 0) << "no reason to split";
    EXPECT_TRUE(file.isOpen());
    file.write("two\n");
    EXPECT_EQ(file.position(), 0);
}

TEST(LogFileTest, PositionIsTheEndOfTheFile)
{
    fixtures::TemporaryFolder folder;
    std::ofstream(folder.path("a.log"), std::ios::binary) << "12345";
    LogFile file;
    ASSERT_TRUE(file.open(folder.path("a.log")));
    EXPECT_EQ(file.position(), 5);
    file.write("6\n");
    EXPECT_EQ(file.position(), 8);
    file.close();
    EXPECT_EQ(fixtures::readFile(folder.path("a.log")), "123456\r\n");
}

TEST(OldLogFileTest, IsStrictlyOlderInWholeSeconds)
{
    const FILETIME written = {0xFFFFFFF0, 0x01D00000};
    const auto later = [&written](LONGLONG ticks) {
        ULARGE_INTEGER time;
        time.LowPart = written.dwLowDateTime;
        time.HighPart = written.dwHighDateTime;
        time.QuadPart += static_cast<ULONGLONG>(ticks);
        return FILETIME{time.LowPart, time.HighPart};
    };
    constexpr LONGLONG SECOND = 10000000;
    constexpr int AGE = static_cast<int>(FOUR_WEEKS);
    EXPECT_FALSE(isOldLogFile(later(FOUR_WEEKS * SECOND), written, AGE));
    EXPECT_FALSE(isOldLogFile(later((FOUR_WEEKS + 1) * SECOND - 1), written, AGE));
    EXPECT_TRUE(isOldLogFile(later((FOUR_WEEKS + 1) * SECOND), written, AGE));
    EXPECT_FALSE(isOldLogFile(later(0), written, 0));
    EXPECT_FALSE(isOldLogFile(later(-100 * SECOND), written, 0)) << "from the future";
    EXPECT_TRUE(isOldLogFile(later(0), written, -1)) << "the age is signed";
}

TEST_F(LoggerSplitTest, CleanUpDeletesTheProductsFilesThatAreTooOld)
{
    const std::string folder = m_world.folder() + "\\logs";
    std::filesystem::create_directory(folder);
    m_world.setPreference("logpath", folder);
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    const std::string names = std::string(PRODUCT) + "-";
    makeFile(folder + "\\" + names + "KESTAx64.exe-1.log", FOUR_WEEKS + 1);
    makeFile(folder + "\\" + names + "other.exe-2-0001.log", FOUR_WEEKS * 100);
    makeFile(folder + "\\" + names + "KESTAx64.exe-3.log", FOUR_WEEKS);
    makeFile(folder + "\\" + names + "KESTAx64.exe-4.txt", FOUR_WEEKS + 1);
    makeFile(folder + "\\OTHERPRODUCT-KESTAx64.exe-5.log", FOUR_WEEKS + 1);
    DebugStream stream;
    start();
    std::vector<std::string> deleted;
    for (const std::string& message : stream.messages()) {
        if (message.find("Deleting") != std::string::npos) {
            deleted.push_back(message);
        }
    }
    EXPECT_THAT(deleted, UnorderedElementsAre("INFO Deleting old log file " + names + "KESTAx64.exe-1.log",
                                              "INFO Deleting old log file " + names + "other.exe-2-0001.log"));
    EXPECT_THAT(namesIn(folder),
                UnorderedElementsAre(names + "KESTAx64.exe-3.log", names + "KESTAx64.exe-4.txt",
                                     "OTHERPRODUCT-KESTAx64.exe-5.log", std::filesystem::path(file()).filename().string()));
}

TEST_F(LoggerSplitTest, OldFileThatIsInUseStaysAndLoggingGoesOn)
{
    const std::string folder = m_world.folder() + "\\logs";
    std::filesystem::create_directory(folder);
    m_world.setPreference("logpath", folder);
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.setPreference("oldlogfileage", 60);
    const std::string inUse = folder + "\\" + PRODUCT + "-a.log";
    const std::string free = folder + "\\" + PRODUCT + "-b.log";
    makeFile(inUse, 61);
    makeFile(free, 61);
    const HANDLE user = CreateFileA(inUse.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(user, INVALID_HANDLE_VALUE);
    DebugStream stream;
    start();
    EXPECT_TRUE(stream.contains("INFO Deleting old log file " + std::string(PRODUCT) + "-a.log"));
    EXPECT_TRUE(stream.contains("INFO Deleting old log file " + std::string(PRODUCT) + "-b.log"));
    EXPECT_TRUE(std::filesystem::exists(inUse));
    EXPECT_FALSE(std::filesystem::exists(free));
    CloseHandle(user);
    LOG_PLAIN(WARN, "goes on");
    EXPECT_EQ(m_world.logLines().back().text(), "goes on");
}

TEST_F(LoggerSplitTest, WithoutFileLoggingNothingIsCleanedUp)
{
    const std::string folder = m_world.appData() + "\\" + PRODUCT + "-logs";
    std::filesystem::create_directory(folder);
    makeFile(folder + "\\" + PRODUCT + "-a.log", FOUR_WEEKS + 1);
    m_world.setPreference("logpath", "");
    start();
    EXPECT_THAT(namesIn(folder), ElementsAre(std::string(PRODUCT) + "-a.log"));
}
