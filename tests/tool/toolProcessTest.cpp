// KESTAtool itself, beside the server and with a real runtime: a healthy machine, a log in use, and the report.
#include "tests/tool/ToolProcessTest.h"
#include "tests/tool/Unzip.h"

#include "KESTAserver_h.h"

#include <nlohmann/json.hpp>

#include <chrono>

namespace fixtures {
namespace {

using testing::HasSubstr;

TEST_F(ToolProcessTest, HealthyMachineHasNoFinding)
{
    settings.setControl("TestControl", m_buildFolder);
    EXPECT_EQ(run("check --live"), 0u);
    EXPECT_THAT(output, HasSubstr("0 findings. Next: nothing to do.\n"));
    EXPECT_THAT(output, HasSubstr("the frame fills a window of the client"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +event +came back through Java in \\d+ ms"));
    EXPECT_THAT(output, testing::ContainsRegex("note +live start +customEvent +was not tried: when the control raises one"));
    EXPECT_THAT(output, HasSubstr("JRE\\21.0.8"));
    EXPECT_THAT(output, testing::ContainsRegex("start +JRE.21.0.8 +starts in \\d+ ms: Java 21"));
    EXPECT_THAT(output, HasSubstr("frame, listener and control are there"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +server +created in \\d+ ms"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +frame +kesta_frame_\\d+"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +call +answered in \\d+ ms"));
    EXPECT_THAT(output, testing::Not(HasSubstr("is still running")));
    EXPECT_THAT(processesNamed("KESTAx64.exe"), testing::IsEmpty());
}

TEST_F(ToolProcessTest, MachineWithNoneOrSeveralControlsHasNoFinding)
{
    EXPECT_EQ(run("check --live"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("note +live start +setUsedControl +was not tried, since there is no control"));
    settings.setControl("Stations", m_buildFolder);
    settings.setControl("TestControl", m_buildFolder);
    EXPECT_EQ(run("check --live"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("ok +live start +setUsedControl +takes keyboard input from now on"));
}

TEST_F(ToolProcessTest, FoldersOfProgramAndUserMayHaveAnUmlaut)
{
    const std::string place = folder.path("J\xFCrgen"); // in the system's code page
    moveProgramsTo(place);
    settings.setPreference("logpath", place);
    SetEnvironmentVariableA("TEMP", place.c_str());
    SetEnvironmentVariableA("TMP", place.c_str());
    EXPECT_EQ(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("start +JRE.21.0.8 +starts in \\d+ ms: Java 21"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +call +answered in \\d+ ms"));
    EXPECT_EQ(run("report \"" + place + "\\out.zip\""), 0u);
}

TEST_F(ToolProcessTest, JsonTellsWhatTheServerUses)
{
    settings.setPreference("jvm_option_1", "-Xmx99m");
    EXPECT_EQ(run("check --static --json"), 0u);
    const nlohmann::json result = nlohmann::json::parse(output);
    EXPECT_EQ(result["findings"], 0);
    EXPECT_EQ(result["server"], m_buildFolder + "\\KESTAx64.exe");
    EXPECT_EQ(result["runtime"], (nlohmann::json{{"version", "21.0.8"}, {"library", runtimeLibrary(21)}}));
    EXPECT_EQ(result["classPath"], m_buildFolder + "\\ORVANEControl.jar");
    EXPECT_EQ(result["options"][0], (nlohmann::json{{"value", "jvm_option_1"}, {"option", "-Xmx99m"}}));
}

TEST_F(ToolProcessTest, OldLogsStayAndAreReported)
{
    const std::string file = folder.path("KESTA-KESTAx64.exe-1.log");
    makeFile(file, "x");
    const auto written = std::filesystem::last_write_time(file);
    std::filesystem::last_write_time(file, written - std::chrono::days(40));
    run("check --static");
    EXPECT_EQ(run("report \"" + folder.path("out.zip") + "\" --static"), 0u);
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(unzip(folder.path("out.zip")).count("logs/KESTA-KESTAx64.exe-1.log"), 1U);
}

TEST_F(ToolProcessTest, LogIsFollowedIntoTheProcessesNextFile)
{
    const std::string line = "2020-03-04 10:15:02.123 04712 ERROR  BeanFrame            044    x: false ";
    const std::string file = folder.path("KESTA-KESTAx64.exe-1.log");
    makeFile(file, line + "one\r\n" + line + "cut");
    CProgram tool("\"" + m_buildFolder + "\\KESTAtool.exe\" log --follow \"" + file + "\"");
    EXPECT_TRUE(tool.waitForOutput("x: false one"));
    std::ofstream(file, std::ios::app | std::ios::binary) << " off\r\n";
    EXPECT_TRUE(tool.waitForOutput("x: false cut off"));
    makeFile(folder.path("KESTA-KESTAx64.exe-1-0001.log"), line + "two\r\n");
    EXPECT_TRUE(tool.waitForOutput("x: false two"));
    EXPECT_TRUE(tool.process().isRunning());
    output = tool.output();
}

// The texts are those of real calls, so that a new line of the server's log cannot give one away unnoticed.
TEST_F(ToolProcessTest, ReportOfRealCallsHasNoneOfTheirTexts)
{
    settings.setPreference("loglevel", 5);
    CoInitialize(nullptr);
    {
        ATL::CComPtr<IJavaManager> object;
        ASSERT_EQ(object.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER), S_OK);
        const ATL::CComBSTR secret(L"Secret_7Q");
        BSTR result = nullptr;
        object->setProperty(ATL::CComBSTR(L"title"), secret, &result);
        object->getProperty(secret, &result);
        object->callMethod(secret, secret, &result); // an unknown method: Java's exception names it
        object->callMethodCompressed(secret, 3, secret, &result);
        object->getVersionInfo(secret, &result);
        object->updateVersion(secret, &result);
        object->setUsedControl(secret, secret, &result);
        object->testBridge(secret, 2, 0); // comes back from Java as an event
        object->free(&result);
    }
    CoUninitialize();
    for (const DWORD id : processesNamed("KESTAx64.exe")) {
        EXPECT_TRUE(CProcess(id).exitCode());
    }
    std::string logs;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        logs += readFile(entry.path().string());
    }
    for (const char* const text : {"testBridge Secret_7Q", "callMethod Secret_7Q, Secret_7Q", "text=Secret_7Q", "Exception: "}) {
        EXPECT_THAT(logs, HasSubstr(text)) << "nothing to mask";
    }
    EXPECT_EQ(run("report \"" + folder.path("out.zip") + "\" --static"), 0u);
    EXPECT_THAT(output, HasSubstr("logs/KESTA-KESTAx64.exe-"));
    std::string reported;
    for (const auto& [name, content] : unzip(folder.path("out.zip"))) {
        reported += content;
    }
    EXPECT_THAT(reported, testing::AllOf(HasSubstr("callMethod ***"), testing::Not(HasSubstr("Secret_7Q"))));
}

} // namespace
} // namespace fixtures
