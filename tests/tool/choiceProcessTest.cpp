// The choice of a runtime, with real ones.
#include "tests/tool/ToolProcessTest.h"

namespace fixtures {
namespace {

using testing::HasSubstr;

const std::string PREFERENCES = "SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

class RealRuntimeTest : public ToolProcessTest, public testing::WithParamInterface<int>
{
};

TEST_P(RealRuntimeTest, IsUsedStartedAndTakenBack)
{
    settings.removeRuntimes();
    if (GetParam() == 17) {
        putOnSearchPath(17);
    }
    EXPECT_EQ(run("java use \"" + runtimeHome(GetParam()) + "\""), 0u);
    EXPECT_THAT(output, HasSubstr("is what the server takes from its next start on"));
    EXPECT_THAT(keyText(HKEY_LOCAL_MACHINE, PREFERENCES, "javavm"), testing::StartsWith("KESTA_" + std::to_string(GetParam())));
    EXPECT_EQ(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("start +JRE.KESTA_\\S+ +starts in \\d+ ms: Java " + std::to_string(GetParam())));
    EXPECT_EQ(run("java remove"), 0u);
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, PREFERENCES, "javavm"), "(none)");
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft\\JRE"));
}

INSTANTIATE_TEST_SUITE_P(Pinned, RealRuntimeTest, testing::Values(11, 17, 21, 25),
                         [](const auto& version) { return "Java" + std::to_string(version.param); });

TEST_F(ToolProcessTest, ExportIsTheSameBeforeUsingFourRuntimesInTurnAndAfterRemovingTheLast)
{
    settings.setPreference("javavm", "1.8.0_00-1.8.0_99");
    putOnSearchPath(17);
    const std::string before = exportedMachine();
    EXPECT_GT(before.size(), 100000u) << "that is not the whole of it";
    for (const int version : {11, 17, 21, 25}) {
        EXPECT_EQ(run("java use \"" + runtimeHome(version) + "\""), 0u);
        EXPECT_THAT(keyText(HKEY_LOCAL_MACHINE, PREFERENCES, "javavm"), testing::StartsWith("KESTA_" + std::to_string(version)));
    }
    EXPECT_NE(exportedMachine(), before);
    EXPECT_EQ(run("java remove"), 0u);
    EXPECT_TRUE(exportedMachine() == before) << "the machine's keys differ";
}

TEST_F(ToolProcessTest, RuntimeThatRefusesTheServersPolicyIsNotUsed)
{
    moveProgramsTo(folder.path("programs"));
    makeFile(m_programs + "\\KESTAx64.policy", "");
    EXPECT_EQ(run("java use \"" + runtimeHome(25) + "\""), 1u);
    EXPECT_THAT(output, HasSubstr("does not start and was not registered: "));
    EXPECT_EQ(run("java use \"" + runtimeHome(21) + "\""), 0u);
    EXPECT_EQ(run("java remove"), 0u);
    settings.setRuntime("25.0.2", runtimeLibrary(25));
    run("check");
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +start +JRE.25.0.2 +does not start: "));
}

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

} // namespace
} // namespace fixtures
