// The support file: what is in it, and that no text of a call is.
#include "tests/tool/ToolTest.h"
#include "tests/tool/Unzip.h"

#include "tool/LogLine.h"
#include "tool/LogMask.h"
#include "tool/SupportFile.h"
#include "tool/ZipFile.h"

#include <format>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

using ZipTest = ToolTest;

TEST_F(ZipTest, FilesOfAllSizesComeOutAsTheyWentIn)
{
    std::string noise;
    for (unsigned number = 1; noise.size() < 1000000; number = number * 1103515245 + 12345) {
        noise += static_cast<char>(number >> 16);
    }
    const std::map<std::string, std::string> files = {
        {"empty", ""}, {"a/small.txt", "x"}, {"long", std::string(5000000, 'x')}, {"noise", noise}};
    {
        CZipFile archive(folder.path("a.zip"));
        for (const auto& [name, content] : files) {
            archive.add(name, [&, &text = content](const CZipFile::Sink& sink) {
                for (size_t place = 0; place < text.size(); place += 70000) {
                    sink(std::string_view(text).substr(place, 70000));
                }
            });
        }
        archive.end();
    }
    EXPECT_EQ(unzip(folder.path("a.zip")), files);
    EXPECT_LT(std::filesystem::file_size(folder.path("a.zip")), 1020000U);
    EXPECT_THROW(CZipFile(folder.path("none\\a.zip")), std::runtime_error);
}

const std::string HEADER = "2020-03-04 10:15:02.123 04712 INFO   ";
const std::string OBJECT = HEADER + "JavaManagerATLObject 044 ";
const std::string FRAME = HEADER + "BeanFrame            044 ";
const std::string BRIDGE = HEADER + "JavaManagerJNIClient 044 ";

// Lines as the server writes them, each with a secret in the place of a text, and what may be given away.
const std::vector<std::pair<std::string, std::string>> SECRET_LINES = {
    {OBJECT + "-> CJavaManagerATLObject  callMethod SECRET, SECRET", OBJECT + "-> CJavaManagerATLObject  callMethod ***"},
    {OBJECT + "<- CJavaManagerATLObject  callMethod SECRET, [SECRET [12 ms]",
     OBJECT + "<- CJavaManagerATLObject  callMethod *** [12 ms]"},
    {OBJECT + " -> CJavaManagerATLObject  setProperty SECRET, : true", OBJECT + " -> CJavaManagerATLObject  setProperty ***"},
    {FRAME + "-> CBeanFrame -1 enqueueOnCustomEvent SECRET", FRAME + "-> CBeanFrame -1 enqueueOnCustomEvent ***"},
    {FRAME + "-> CBeanFrame 7 testBridge SECRET", FRAME + "-> CBeanFrame 7 testBridge ***"},
    {FRAME + "   text=SECRET", FRAME + "   ***"},
    {FRAME + "   text=SECRET(): true", FRAME + "   ***"},
    {BRIDGE + "-> CJavaManagerJNIClient  getProperty SECRET", BRIDGE + "-> CJavaManagerJNIClient  getProperty ***"},
    {BRIDGE + "   CJavaManagerJNIClient  Exception: java.lang.X: SECRET: SECRET",
     BRIDGE + "   CJavaManagerJNIClient  Exception: java.lang.X: ***"},
    {BRIDGE + "   CJavaManagerJNIClient  a statement of a later version: SECRET", BRIDGE + "   CJavaManagerJNIClient  ***"},
    {"2020-03-04 10:15:02.123 00012 ERROR  ORVANEControl            0    [main] SECRET",
     "2020-03-04 10:15:02.123 00012 ERROR  ORVANEControl            0    ***"},
    {"SECRET in a second line", "***"},
};
const std::vector<std::string> OPEN_LINES = {
    std::string(BACKTRACE_BEGIN),
    "",
    OBJECT + "-> CJavaManagerATLObject  ",
    OBJECT + "<- CJavaManagerATLObject  free ",
    OBJECT + "<- CJavaManagerATLObject  free  [12 ms]",
    OBJECT + "   CJavaManagerATLObject  s_Instance == NULL: true",
    OBJECT + "   CJavaManagerATLObject  CHECKPOINT: Successfully created ATL object.",
    FRAME + "-> CBeanFrame 7 setBounds 0,0,100,100",
    BRIDGE + "   CJavaManagerJNIClient  m_DLLHandle != NULL: failure: Module not found. (0000007e)",
    BRIDGE + "   CJavaManagerJNIClient  Found Java 21.0.8 (* USED)",
    HEADER + "registry             017  -> CRegistry  getStringValue javavm, ",
};

TEST(LogMaskTest, TextsOfCallsAreMaskedAndTheRestStays)
{
    for (const auto& [line, masked] : SECRET_LINES) {
        EXPECT_EQ(maskedLogLine(line), masked);
    }
    for (const std::string& line : OPEN_LINES) {
        EXPECT_EQ(maskedLogLine(line), line);
    }
}

TEST(CrashMaskTest, TextsInMemoryAreMaskedWithAllTheirLines)
{
    const std::pair<const char*, const char*> lines[] = {
        {"# JRE version: 21", "# JRE version: 21"},
        {" - string: \"SECRET\"", " - string: \"***\""},
        {"RBX=0x01 is an oop: java.lang.String", "RBX=0x01 is an oop: java.lang.String"},
        {" - string: \"first SECRET", " - string: \"***\""},
        {"SECRET \"quoted\"", "***"},
        {"", "***"},
        {"last SECRET\"", "***"},
        {"R8 =0x02 points into unknown memory", "R8 =0x02 points into unknown memory"},
        {" - string: \"SECRET", " - string: \"***\""},
        {"SECRET\"", "***"},
        {" - ---- fields (total size 3 words):", " - ---- fields (total size 3 words):"},
        {" - private 'hash' 'I' @12  0", " - private 'hash' 'I' @12  0"},
    };
    CCrashMask mask;
    for (const auto& [line, masked] : lines) {
        EXPECT_EQ(mask(line), masked);
    }
}

class ReportTest : public ToolTest
{
protected:
    explicit ReportTest(const std::string& logFolder = "logs")
        : logs(folder.path(logFolder))
    {
        std::string log;
        for (const auto& [line, masked] : SECRET_LINES) {
            log += line + "\r\r\n"; // as behind the first line of a text with line ends of its own
        }
        std::filesystem::create_directory(toPath(logs));
        fixtures::makeFile(logs + "\\KESTA-KESTAx64.exe-1.log", log);
        fixtures::makeFile(logs + "\\KESTA-KESTAx64.exe-1-jvm-error.log", "# error\nstring: \"SECRET\"\n");
        fixtures::makeFile(logs + "\\hs_err_pid1.log", "string: \"SECRET\nSECRET\"\n");
        fixtures::makeFile(logs + "\\other.log", "not ours");
        fixtures::makeFile(logs + "\\KESTA-KESTAtool.exe-1.log", "the tool's own");
    }
    std::map<std::string, std::string> write(bool withTexts)
    {
        const ReportOrder order = {folder.path("out.zip"), {logs + "\\", "", false, 2, 77, 5}, withTexts, CheckDepth::Static};
        findings = writeReport(order);
        return unzip(order.archive);
    }
    std::string logs;
    CFindings findings;
};

class UmlautReportTest : public ReportTest
{
protected:
    UmlautReportTest()
        : ReportTest(UMLAUT + "-jvm")
    {
    }
};

TEST_F(UmlautReportTest, ContainsTheFilesOfAFolderWithAnUmlaut)
{
    const auto files = write(true);
    EXPECT_EQ(files.at("logs/KESTA-KESTAx64.exe-1.log"), fixtures::readFile(logs + "\\KESTA-KESTAx64.exe-1.log"));
    EXPECT_EQ(files.at("crashes/hs_err_pid1.log"), "string: \"SECRET\nSECRET\"\n");
}

TEST_F(ReportTest, ContainsWhatSupportNeedsAndNoTextOfACall)
{
    const auto files = write(false);
    Lines names;
    for (const auto& [name, content] : files) {
        if (name.find("hs_err_pid") == std::string::npos || name.find("pid1.") != std::string::npos) { // of other tests
            names.push_back(name);
        }
        EXPECT_THAT(content, Not(HasSubstr("SECRET"))) << name;
    }
    EXPECT_THAT(names, ElementsAre("check.json", "check.txt", "crashes/KESTA-KESTAx64.exe-1-jvm-error.log",
                                   "crashes/hs_err_pid1.log", "logs/KESTA-KESTAx64.exe-1.log", "versions.txt"));
    EXPECT_THAT(files.at("check.txt"), HasSubstr("is registered neither for this user nor for the machine"));
    EXPECT_THAT(files.at("check.txt"), HasSubstr(" findings. Next: "));
    EXPECT_THAT(files.at("check.json"), HasSubstr("\"findings\""));
    EXPECT_THAT(files.at("versions.txt"), HasSubstr("Windows: 10."));
    EXPECT_EQ(findings.faultCount(), 0);
    EXPECT_EQ(findings.nextStep(), "Next: look through " + folder.path("out.zip") + " and send it to support.");
}

TEST_F(ReportTest, ContainsTheTextsWhenAskedForThem)
{
    const auto files = write(true);
    EXPECT_EQ(files.at("logs/KESTA-KESTAx64.exe-1.log"), fixtures::readFile(folder.path("logs\\KESTA-KESTAx64.exe-1.log")));
    EXPECT_THAT(files.at("crashes/hs_err_pid1.log"), HasSubstr("SECRET"));
}

TEST_F(ReportTest, CrashFilesThatAreLeftOutAreNamed)
{
    for (int number = 10; number < 20; number++) {
        fixtures::makeFile(std::format("{}\\hs_err_pid{}.log", logs, number), "x");
    }
    write(false);
    EXPECT_THAT(linesOf(findings), testing::Contains(testing::StartsWith(
                                       "note crashes: only 10 are in the archive; left out: " + logs + "\\hs_err_pid")));
}

TEST_F(ReportTest, FileThatIsHeldByAnotherProgramIsNamed)
{
    const HANDLE held =
        CreateFileA(folder.path("logs\\KESTA-KESTAx64.exe-1.log").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_EQ(write(false).count("logs/KESTA-KESTAx64.exe-1.log"), 0U);
    CloseHandle(held);
    EXPECT_THAT(faultsOf(findings), ElementsAre("FAULT logs/KESTA-KESTAx64.exe-1.log: cannot be read: " +
                                                folder.path("logs\\KESTA-KESTAx64.exe-1.log") +
                                                " -> close the program that holds the file, and repeat the command"));
}

} // namespace
