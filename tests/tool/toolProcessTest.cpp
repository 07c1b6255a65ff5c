// KESTAtool itself, beside the server and with real runtimes: a healthy machine, the faults that only a start shows, and the
// choice.
#include "tests/process/Program.h"
#include "tests/process/Settings.h"
#include "tests/support/places.h"
#include "tests/tool/Unzip.h"

#include "KESTAserver_h.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace fixtures {
namespace {

using testing::HasSubstr;

constexpr DWORD LONG_LIMIT = 3 * TIME_LIMIT;

class ToolProcessTest : public testing::Test
{
protected:
    ToolProcessTest()
        : m_buildFolder(std::filesystem::path(programFolder()).parent_path().parent_path().string())
    {
        runServer("/RegServer");
        settings.setRuntime("21.0.8", runtimeLibrary(21));
        settings.setPreference("logpath", folder.path());
    }
    ~ToolProcessTest() override
    {
        for (const DWORD id : processesNamed("KESTAx64.exe")) {
            EXPECT_TRUE(CProcess(id).exitCode()) << "a server is left";
        }
        runServer("/UnregServer");
        if (HasFailure()) {
            std::printf("%s\n", output.c_str());
        }
    }
    void runServer(const std::string& word) const
    {
        const CProgram server("\"" + m_buildFolder + "\\KESTAx64.exe\" " + word);
        EXPECT_EQ(server.process().exitCode(), 0u);
    }
    // The exit code; what the tool printed is in `output`.
    DWORD run(const std::string& arguments)
    {
        CProgram tool("\"" + m_buildFolder + "\\KESTAtool.exe\" " + arguments);
        const std::optional<DWORD> exitCode = tool.process().exitCode(LONG_LIMIT);
        EXPECT_TRUE(exitCode) << arguments << " does not end";
        tool.waitForOutput("(to its end)");
        output = tool.output();
        return exitCode.value_or(ERROR_TIMEOUT);
    }

    CSettings settings;
    TemporaryFolder folder{TemporaryFolder::Removal::MayFail};
    std::string output;
    std::string m_buildFolder;
};

TEST_F(ToolProcessTest, HealthyMachineHasNoFinding)
{
    settings.setControl("TestControl", m_buildFolder);
    EXPECT_EQ(run("check --live"), 0u);
    EXPECT_THAT(output, HasSubstr("0 findings. Next: nothing to do.\n"));
    EXPECT_THAT(output, HasSubstr("the frame fills a window of the client"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +event +came back through Java in \\d+ ms"));
    EXPECT_THAT(output, HasSubstr("JRE\\21.0.8"));
    EXPECT_THAT(output, testing::ContainsRegex("start +JRE.21.0.8 +starts in \\d+ ms: Java 21"));
    EXPECT_THAT(output, HasSubstr("frame, listener and control are there"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +server +created in \\d+ ms"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +frame +kesta_frame_\\d+"));
    EXPECT_THAT(output, testing::ContainsRegex("live start +call +answered in \\d+ ms"));
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

TEST_F(ToolProcessTest, StartThatFailsIsNamedWithWhatTheLogSays)
{
    settings.setPreference("jvm_option_1", "-XX:+UseNothing -bad");
    settings.setPreference("jvm_option_2", "-Xmx1k"); // Java refuses so little memory
    EXPECT_GT(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +start +JRE.21.0.8 +does not start: "));
}

TEST_F(ToolProcessTest, MissingControlIsNamed)
{
    settings.setPreference("basiscontrol", m_buildFolder + "\\KESTAx64.exe"); // there, and no archive
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("not in the class path, or not loadable: com/velmora/tq/kesta/KESTAFrame, "
                                  "com/velmora/tq/kesta/KESTAListener, com/orvane/tech/client/qmrt/QMRTControlListenerI, "
                                  "com/orvane/tech/client/qmrt/win/QMRTWinControl\n"));
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +live start +frame +the server runs without Java or without a frame"));
}

TEST_F(ToolProcessTest, UnregisteredServerIsNamedAndLiveStartFails)
{
    runServer("/UnregServer");
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("is registered neither for this user nor for the machine"));
    EXPECT_THAT(output, HasSubstr("(80040154)"));
    EXPECT_THAT(output, HasSubstr("2 findings. Next: as administrator, run in the program's folder: KESTAx64.exe /RegServer\n"));
    runServer("/RegServer");
}

class RealRuntimeTest : public ToolProcessTest, public testing::WithParamInterface<int>
{
};

TEST_P(RealRuntimeTest, IsUsedStartedAndTakenBack)
{
    settings.removeRuntimes();
    const std::filesystem::path library = runtimeLibrary(GetParam());
    const std::string home = library.parent_path().parent_path().parent_path().string();
    if (GetParam() == 17) { // this build finds its zip.dll on the search path only
        const char* const path = std::getenv("PATH");
        SetEnvironmentVariableA("PATH", (home + "\\bin;" + (path != nullptr ? path : "")).c_str());
    }
    EXPECT_EQ(run("java use \"" + home + "\""), 0u);
    EXPECT_THAT(output, HasSubstr("is what the server takes from its next start on"));
    const std::string name = keyText(HKEY_LOCAL_MACHINE, "SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt", "javavm");
    EXPECT_THAT(name, testing::StartsWith("KESTA_" + std::to_string(GetParam())));
    EXPECT_EQ(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("start +JRE.KESTA_\\S+ +starts in \\d+ ms: Java " + std::to_string(GetParam())));
    EXPECT_EQ(run("java remove"), 0u);
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, "SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt", "javavm"), "(none)");
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft\\JRE"));
}

INSTANTIATE_TEST_SUITE_P(Pinned, RealRuntimeTest, testing::Values(11, 17, 21, 25),
                         [](const auto& version) { return "Java" + std::to_string(version.param); });

TEST_F(ToolProcessTest, RuntimeThatDoesNotStartIsNotUsed)
{
    std::filesystem::create_directories(folder.path("java\\bin\\server"));
    std::filesystem::copy_file(m_buildFolder + "\\tests\\standins\\jvm\\jvm.dll", folder.path("java\\bin\\server\\jvm.dll"));
    makeFile(folder.path("java\\bin\\server\\jvm.orders"), "create -4\n");
    EXPECT_EQ(run("java use \"" + folder.path("java") + "\""), 1u);
    EXPECT_THAT(output,
                HasSubstr("does not start and was not registered: CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): "
                          "JNI_ENOMEN"));
    makeFile(folder.path("java\\bin\\server\\jvm.orders"), "exit 77\n");
    EXPECT_EQ(run("java use \"" + folder.path("java") + "\""), 1u);
    EXPECT_THAT(output, HasSubstr("its process ended with exit code 0000004d"));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft\\JRE\\KESTA_java"));
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
