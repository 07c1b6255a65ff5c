// The log file: opening, writing, closing, redirection and splitting.
#include "support/loggerImplementation.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerFileTest"

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

using WriteHook = ImportHook<decltype(&WriteFile)>;

constexpr const char* GIVING_UP = "Could not open log file, giving up logging to files";
constexpr std::uintmax_t MEGABYTE = 1 << 20;

void writeLine(const std::string& text)
{
    LOG_PLAIN(WARN, text);
}

class LoggerFileTest : public fixtures::LoggerWorldTest
{
protected:
    Logger& logger() const { return *Logger::instance(); }
    bool exists(const std::string& path) const { return std::filesystem::exists(path); }
    // "LEVEL|body" of a file's lines after the system information; long ones are cut.
    std::vector<std::string> filed(int index = 0) const
    {
        std::vector<std::string> result;
        for (const std::string& line : fixtures::bodies(m_world.logLines(index))) {
            if (!line.starts_with("ALWAYS|")) {
                result.push_back(line.substr(0, 200));
            }
        }
        return result;
    }
    // Numbered lines of a megabyte and a little more.
    static void writeMegabytes(int first, int count)
    {
        for (int number = first; number < first + count; ++number) {
            LOG_PLAIN(WARN, "line " << number << std::string(MEGABYTE, ' '));
        }
    }
    // The numbers of those lines in a file.
    std::vector<int> numbersIn(int index) const
    {
        std::vector<int> numbers;
        for (const std::string& line : filed(index)) {
            EXPECT_TRUE(line.starts_with("WARN|   line ")) << "torn: " << line;
            numbers.push_back(std::stoi(line.substr(13)));
        }
        return numbers;
    }
};

} // namespace

TEST_F(LoggerFileTest, IsMadeByItsFirstLineWithTheSystemInformationAndAppendedTo)
{
    m_world.start();
    const std::string path = m_world.logFile();
    EXPECT_FALSE(exists(path)) << "nothing was written yet";
    writeLine("one");
    EXPECT_EQ(m_world.logLines().size(), 4 + 1u);
    m_world.stop();

    fixtures::makeFile(path, "of an earlier process\r\n");
    m_world.start();
    writeLine("two\nlines");
    EXPECT_TRUE(fixtures::readFile(path).starts_with("of an earlier process\r\n2"));
    EXPECT_TRUE(fixtures::readFile(path).ends_with("    two\r\nlines\r\n"));
    LOG_PLAIN(ERROR, "three");
    const std::string text = fixtures::readFile(path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), std::count(text.begin(), text.end(), '\n')) << "banners as well";
}

TEST_F(LoggerFileTest, OthersReadAndWriteItWhileItIsOpen)
{
    m_world.start();
    writeLine("ours");
    const HANDLE other = CreateFileA(m_world.logFile().c_str(), GENERIC_READ | FILE_APPEND_DATA,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(other, "theirs\r\n", 8, &written, nullptr));
    writeLine("ours again");
    CloseHandle(other);
    EXPECT_THAT(filed(), ElementsAre("WARN|   ours", "theirs", "WARN|   ours again"));
}

TEST_F(LoggerFileTest, SystemInformationStaysOutOfTheBacktraceThatOpensTheFile)
{
    m_world.start();
    {
        LOG_SCOPE_STATIC(INFO, "Sample::outer");
        LOG(ERROR, "the first line of the file is a banner");
    }
    const std::vector<fixtures::LogLine> lines = m_world.logLines();
    const std::vector<std::string> expected = {fixtures::BEGIN_BANNER, "ERROR|    the first line of the file is a banner",
                                               "INFO|-> ", fixtures::END_BANNER, "INFO|<- "};
    EXPECT_EQ(filed(), expected);
    ASSERT_EQ(lines.size(), 4 + expected.size());
    EXPECT_TRUE(lines[0].body.starts_with("    U")) << "at its own depth: " << lines[0].body;
    EXPECT_THAT(fixtures::bodies(fixtures::parseLogLines(Logger::getErrorEntries())), ElementsAre(expected[1], expected[2]));
}

// ---- Giving up

TEST_F(LoggerFileTest, FileThatCannotBeOpenedEndsFileLoggingForGood)
{
    m_world.setPreference("splitlogfilesize", 1);
    for (const int index : {0, 1}) { // the first file, and a later one
        m_world.start();
        const std::string path = m_world.logFile(index);
        std::filesystem::create_directory(path);
        writeMegabytes(0, 2 * index);
        m_stream.clear();
        writeLine("gives up");
        EXPECT_EQ(logger().logFilePrefix(), "");
        std::filesystem::remove(path);
        writeLine("goes on");
        logger().initParametersFromRegistryOrSpecialFolder();
        writeLine("and on");
        EXPECT_THAT(m_stream.said(), ElementsAre("WARN|   gives up", GIVING_UP, "WARN|   goes on", "WARN|   and on"));
        EXPECT_FALSE(exists(path)) << "not even a new beginning tries again";
    }
}

// ---- Failing writes

TEST_F(LoggerFileTest, FailedWriteEndsTheFileWithoutAReportAndTheNextFileBeginsAnew)
{
    for (const DWORD taken : {0UL, 30UL}) { // bytes of the line
        m_world.setPreference("logpath", m_world.folder());
        m_world.start();
        writeLine("before");
        const std::string path = m_world.logFile();
        const std::string content = fixtures::readFile(path);
        m_stream.clear();
        {
            int writes = 0;
            const WriteHook hook("WriteFile", [&](HANDLE file, LPCVOID bytes, DWORD, LPDWORD written, LPOVERLAPPED) {
                ++writes;
                const bool succeeded = taken > 0 && WriteHook::s_original(file, bytes, taken, written, nullptr);
                *written = taken;
                return succeeded;
            });
            writeLine("fails");
            writeLine("later");
            EXPECT_EQ(writes, 1) << "one call a line, and none after the failed one";
        }
        writeLine("and later");
        EXPECT_THAT(m_stream.said(), ElementsAre("WARN|   fails", "WARN|   later", "WARN|   and later"));
        EXPECT_EQ(m_world.logFile(), path);
        EXPECT_EQ(fixtures::readFile(path).size(), content.size() + taken);

        m_world.setPreference("logpath", m_world.folder() + "\\" + std::to_string(taken));
        logger().initParametersFromRegistryOrSpecialFolder();
        writeLine("in a file of its own");
        EXPECT_THAT(fixtures::bodies(m_world.logLines()), ElementsAre("WARN|   in a file of its own"))
            << "the system information is not repeated";
    }
}

TEST(LogFileTest, PositionIsTheEndOfTheFileAndAFullDiskIsNoReasonToSplit)
{
    const fixtures::TemporaryFolder folder;
    fixtures::makeFile(folder.path("a.log"), "12345");
    LogFile file;
    ASSERT_TRUE(file.open(folder.path("a.log")));
    EXPECT_EQ(file.position(), 5);
    file.write("6\n");
    EXPECT_EQ(file.position(), 8);
    {
        const WriteHook hook("WriteFile", [](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) -> BOOL { return FALSE; });
        file.write("7\n");
    }
    EXPECT_EQ(file.position(), 0);
    EXPECT_TRUE(file.isOpen());
    file.close();
    EXPECT_EQ(fixtures::readFile(folder.path("a.log")), "123456\r\n");
}

// ---- Another place while the process runs

TEST_F(LoggerFileTest, NewPlaceOfAnOpenFileIsToldInBothFiles)
{
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start(LOGLEVEL_INFO);
    writeMegabytes(0, 2);
    writeLine("in the second file");
    const std::string before = logger().logFilePrefix();
    const std::string after = m_world.folder() + "\\elsewhere\\" + m_world.fileName();
    m_world.setPreference("logpath", m_world.folder() + "\\elsewhere");
    m_stream.clear();
    logger().initParametersFromRegistryOrSpecialFolder();
    EXPECT_EQ(logger().logFilePrefix(), after);
    EXPECT_THAT(fixtures::readFile(m_world.logFile(before, 1)), EndsWith("Re-directing logging, closing this log file\r\n"));
    const std::string opened = "INFO|     Re-directing logging with log level INFO, log file prefix is ";
    EXPECT_THAT(fixtures::bodies(m_world.logLines(1)), ElementsAre(opened + after))
        << "files are counted on, and the system information is in the first one alone";

    m_stream.clear();
    logger().initParametersFromRegistryOrSpecialFolder();
    EXPECT_THAT(m_stream.texts(), IsEmpty()) << "the same place";
    writeLine("the same file");
    EXPECT_EQ(m_world.logLines(1).back().body, "   the same file");

    m_world.setPreference("logpath", "");
    logger().initParametersFromRegistryOrSpecialFolder();
    EXPECT_EQ(logger().logFilePrefix(), "");
    writeLine("in no file");
    EXPECT_THAT(m_stream.said(), ElementsAre("WARN|   the same file", "INFO|     Re-directing logging, closing this log file",
                                             opened, "WARN|   in no file"));
    EXPECT_TRUE(std::filesystem::remove(m_world.logFile(after, 1))) << "closed";
}

TEST_F(LoggerFileTest, NewPlaceIsJustTakenWhileNoFileIsOpen)
{
    m_world.start();
    m_world.setPreference("loglevel", LOGLEVEL_INFO);
    m_world.setPreference("logpath", m_world.folder());
    m_stream.clear();
    logger().initParametersFromRegistryOrSpecialFolder();
    EXPECT_THAT(m_stream.texts(), IsEmpty());
    EXPECT_EQ(logger().logFilePrefix(), m_world.folder() + "\\" + m_world.fileName());
    EXPECT_TRUE(std::filesystem::is_empty(m_world.logFolder()));
}

// ---- Splitting

TEST_F(LoggerFileTest, TwelveMegabytesFillOneFilePastElevenAndGoOnInTheNext)
{
    m_world.start();
    writeMegabytes(0, 12);
    EXPECT_THAT(numbersIn(0), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_THAT(numbersIn(1), ElementsAre(11));
    EXPECT_TRUE(m_world.logFile(1).ends_with("-" + std::to_string(GetCurrentProcessId()) + "-0001.log"));
    EXPECT_EQ(m_world.logLines(1).size(), 1u) << "the system information is in the first file only";
}

TEST_F(LoggerFileTest, SizeOfZeroOrLessNeverSplits)
{
    for (const int size : {0, -1}) {
        m_world.setPreference("splitlogfilesize", size);
        m_world.start();
        writeMegabytes(0, 2);
        EXPECT_FALSE(exists(m_world.logFile(1)));
    }
}

// A line still goes to the same file if that holds less than two whole megabytes.
TEST_F(LoggerFileTest, FileIsFullAtTheFirstByteOfTheMegabyteAfterItsSize)
{
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start();
    writeLine("text");
    const std::string path = m_world.logFile();
    const std::uintmax_t head = std::filesystem::file_size(path);
    for (const bool isFull : {false, true}) {
        m_world.stop();
        fixtures::makeFile(path, std::string(2 * MEGABYTE - head - (isFull ? 0 : 1), 'x'));
        m_world.start();
        writeLine("text");
        EXPECT_EQ(std::filesystem::file_size(path), 2 * MEGABYTE - (isFull ? 0 : 1));
        writeLine("text");
        EXPECT_EQ(exists(m_world.logFile(1)), isFull);
    }
    writeMegabytes(0, 2);
    writeLine("text");
    EXPECT_TRUE(exists(m_world.logFile(2))) << "files are counted on";
}

// A process with the id of an earlier one continues that one's file, which any line of the system information may then fill.
TEST_F(LoggerFileTest, NoLineIsLostWhereverTheSystemInformationFillsAFile)
{
    m_world.setPreference("splitlogfilesize", 1);
    m_world.start();
    const std::string path = m_world.logFile();
    for (size_t room = 50; room < 1000; room += 50) {
        m_world.stop();
        std::filesystem::remove(path.substr(0, path.size() - 4) + "-0001.log");
        const std::string earlier(2 * MEGABYTE - room, 'x');
        fixtures::makeFile(path, earlier + "\r\n");
        m_world.start();
        writeLine(std::string(1000, '1'));
        writeLine("2");
        const std::string written = m_world.logText().substr(earlier.size()) + m_world.logText(1);
        EXPECT_EQ(fixtures::splitLines(written).size(), 1 + 4 + 2u) << room; // the earlier line's end, the information, the lines
        EXPECT_THAT(written, testing::HasSubstr("    " + std::string(1000, '1') + "\n")) << room;
        EXPECT_THAT(written, EndsWith("    2\n")) << room;
    }
}
