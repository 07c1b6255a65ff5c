// Each fault that "check" can name without starting anything, planted in a machine of the test's own.
#include "tests/tool/ToolTest.h"

#include "atl/atl.h"
#include "tool/Check.h"
#include "tool/Runtimes.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string REMEDY_CHOOSE = "choose a runtime: KESTAtool java list, then KESTAtool java use FOLDER";
const std::string REMEDY_AGAIN = "install this runtime again, or choose another one: KESTAtool java list";
const std::string REMEDY_64_BIT = "install a 64-bit (x64) Java runtime and choose it: KESTAtool java use FOLDER";

class CheckRuntimeTest : public ToolTest
{
protected:
    Lines lines() { return linesOf(checkRuntimes(readJVMChoice(nullptr))); }
};

TEST_F(CheckRuntimeTest, NamesAMachineWithoutRuntime)
{
    EXPECT_THAT(lines(), ElementsAre("ok javavm: is not set: CurrentVersion decides",
                                     "FAULT chosen: no runtime is registered below JavaSoft -> " + REMEDY_CHOOSE));
    install("17.0.1", standIn("jvm.dll"));
    EXPECT_THAT(lines(), ElementsAre("ok javavm: is not set: CurrentVersion decides",
                                     "FAULT chosen: none of the registered runtimes is chosen -> " + REMEDY_CHOOSE,
                                     "ok JRE\\17.0.1: not chosen: its name has no underscore, so only CurrentVersion could "
                                     "choose it, " +
                                         standIn("jvm.dll")));
}

TEST_F(CheckRuntimeTest, FindsNothingWrongWithACurrentRuntime)
{
    install("17.0.1", standIn("jvm.dll"));
    makeCurrent("17.0.1");
    EXPECT_THAT(lines(), ElementsAre("ok javavm: is not set: CurrentVersion decides",
                                     "ok JRE\\17.0.1: chosen: CurrentVersion names it, " + standIn("jvm.dll")));
}

TEST_F(CheckRuntimeTest, NamesWhatIsWrongWithTheChosenLibrary)
{
    makeCurrent("21");
    const std::string chosen = "FAULT JRE\\21: chosen: CurrentVersion names it, but ";
    fixtures::makeFile(folder.path("text.dll"), "no library");
    const struct
    {
        std::string library;
        std::string state;
    } faults[] = {
        {"", "the key has no value RuntimeLib -> choose a runtime by its folder: KESTAtool java use FOLDER"},
        {folder.path("none.dll"), "the file is not there: " + folder.path("none.dll") + " -> " + REMEDY_AGAIN},
        {folder.path("text.dll"), "the file is no library -> " + REMEDY_AGAIN},
        {libraryFor("x86.dll", 0x014C), "the runtime is a 32-bit one -> " + REMEDY_64_BIT},
        {libraryFor("arm.dll", 0xAA64), "the runtime is one for ARM processors -> " + REMEDY_64_BIT},
        {libraryFor("mips.dll", 0x0166), "the runtime is for another processor (0166) -> " + REMEDY_64_BIT},
        {standIn("nojvm.dll"), "the library does not export JNI_CreateJavaVM -> " + REMEDY_AGAIN},
    };
    for (const auto& fault : faults) {
        install("21", fault.library);
        EXPECT_THAT(faultsOf(checkRuntimes(readJVMChoice(nullptr))), ElementsAre(chosen + fault.state));
    }
    install("21", libraryFor("x64.dll", 0x8664)); // damaged behind its header
    EXPECT_THAT(faultsOf(checkRuntimes(readJVMChoice(nullptr))),
                ElementsAre(testing::AllOf(testing::StartsWith(chosen + "Windows cannot load the library: "),
                                           testing::EndsWith(" -> " + REMEDY_AGAIN))));
}

TEST_F(CheckRuntimeTest, ExplainsThePatternItemByItem)
{
    install("1.8.0_20", standIn("jvm.dll"));
    install("1.8.0_151", standIn("jvm.dll"));
    install("21", standIn("jvm.dll"));
    makeCurrent("21");
    prefer("1.7.0_80,1.8.0_00-1.8.0_99,1.9");
    EXPECT_THAT(
        lines(),
        ElementsAre("ok javavm item \"1.7.0_80\": exactly this name: matches no runtime whose name has an underscore",
                    "ok javavm item \"1.8.0_00-1.8.0_99\": range, as texts: takes 1.8.0_20, the last match",
                    "ok javavm item \"1.9\": is not looked at: an item before it has a match", "ok javavm: picks 1.8.0_20",
                    "ok JRE\\1.8.0_151: not chosen: the pattern \"1.7.0_80,1.8.0_00-1.8.0_99,1.9\" picks another one or none, " +
                        standIn("jvm.dll"),
                    "ok JRE\\1.8.0_20: chosen: the pattern \"1.7.0_80,1.8.0_00-1.8.0_99,1.9\" picks it, " + standIn("jvm.dll"),
                    "ok JRE\\21: not chosen: CurrentVersion names it, but the pattern picks another one, " + standIn("jvm.dll")));
    prefer("1.8");
    EXPECT_THAT(faultsOf(checkRuntimes(readJVMChoice(nullptr))),
                ElementsAre("FAULT javavm: the pattern \"1.8\" matches no runtime -> KESTAtool java use FOLDER, or name an "
                            "installed version in javavm"));
}

TEST_F(CheckRuntimeTest, BrokenRuntimeThatIsNotChosenIsNoFault)
{
    install("21", standIn("jvm.dll"));
    makeCurrent("21");
    install("1.8.0_20", libraryFor("x86.dll", 0x014C));
    EXPECT_THAT(lines(), testing::Contains("note JRE\\1.8.0_20: not chosen: there is no javavm, and CurrentVersion does not name "
                                           "it; the runtime is a 32-bit one"));
    EXPECT_THAT(faultsOf(checkRuntimes(readJVMChoice(nullptr))), IsEmpty());
}

TEST_F(CheckRuntimeTest, ReadsJavasVersionFromTheFileBesideTheRuntime)
{
    std::filesystem::create_directories(folder.path("jdk\\bin\\server"));
    std::filesystem::copy_file(standIn("jvm.dll"), folder.path("jdk\\bin\\server\\jvm.dll"));
    fixtures::makeFile(folder.path("jdk\\release"), "IMPLEMENTOR=\"X\"\r\nJAVA_VERSION=\"21.0.8\"\r\n");
    EXPECT_EQ(libraryBelow(folder.path("jdk")), folder.path("jdk\\bin\\server\\jvm.dll"));
    EXPECT_EQ(inspectRuntime(folder.path("jdk\\bin\\server\\jvm.dll")).javaVersion, "21.0.8");
    EXPECT_EQ(javaFeatureVersion("21.0.8"), 21);
    EXPECT_EQ(javaFeatureVersion("1.8.0_151"), 8);
    EXPECT_EQ(javaFeatureVersion(""), 0);
}

using CheckSettingTest = ToolTest;

TEST_F(CheckSettingTest, MissingArchivesOfTheClassPathAreNamed)
{
    fixtures::makeFile(folder.path("A.jar"), "");
    for (const char* const name : {"A", "B"}) {
        machine.setString(PREFERENCES + "\\" + name, "installpath", folder.path(), KEY_WOW64_32KEY);
    }
    machine.createKey(PREFERENCES + "\\C", KEY_WOW64_32KEY);
    const std::string basis = folder.path("basis.jar");
    EXPECT_THAT(linesOf(checkClassPath(readControlClassPath(basis.c_str(), nullptr), basis)),
                ElementsAre("ok A: " + folder.path("A.jar"),
                            "FAULT B: is not there: " + folder.path("B.jar") +
                                " -> install this control again, or remove its key below Prefs\\com\\orvane\\qmrt",
                            "note C: has no installpath, so the class path contains \\C.jar",
                            "FAULT basis control: is not there: " + basis +
                                " -> put ORVANEControl.jar beside KESTAx64.exe, or name it in the value basiscontrol"));
}

TEST_F(CheckSettingTest, ArchiveThatCannotBeReadIsNotCalledMissingAndAFolderWillDo)
{
    const std::string basis = folder.path("basis.jar");
    fixtures::makeFile(basis, "");
    {
        const ATL::CHandle held(CreateFileA(basis.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_THAT(linesOf(checkClassPath({}, basis)),
                    ElementsAre("FAULT basis control: cannot be read: " + basis +
                                " -> let this user read the file, and close the program that holds it"));
    }
    EXPECT_THAT(linesOf(checkClassPath({}, folder.path())), ElementsAre("ok basis control: " + folder.path()));
}

TEST_F(CheckSettingTest, BasisControlIsTheOneThatTheServerTakes)
{
    const std::string program = folder.path("KESTAx64.exe");
    const std::string beside = folder.path("ORVANEControl.jar");
    const std::string named = folder.path("named.jar");
    machine.setString(PREFERENCES, "basiscontrol", named, KEY_WOW64_32KEY);
    EXPECT_EQ(basisControlOf(program), named);
    fixtures::makeFile(beside, "");
    EXPECT_EQ(basisControlOf(program), beside);
    fixtures::makeFile(named, "");
    const ATL::CHandle held(CreateFileA(named.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(basisControlOf(program), named) << "it is there, though nobody can read it";
}

TEST_F(CheckSettingTest, OptionsStandInTheirOrderAndHarmfulOnesAreNamed)
{
    machine.setString(PREFERENCES, "jvm_option_b", "-Xmx64m", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_a", "Xms64m", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_c", "", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_d", "-Djava.class.path=C:\\x.jar", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_e", "-Dx=y ", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_f", "-Djava.awt.headless=true", KEY_WOW64_32KEY);
    Lines lines = linesOf(checkOptions(readMachineOptions("C:\\none.exe", currentLogSettings(), nullptr)));
    ASSERT_GE(lines.size(), 7U);
    lines.resize(7);
    const auto remedy = [](const std::string& name) {
        return " -> correct or delete the value jvm_option_" + name + " of Prefs\\com\\orvane\\qmrt";
    };
    EXPECT_THAT(lines,
                ElementsAre("FAULT 2 jvm_option_a: Xms64m does not begin with a dash: Java ignores it" + remedy("a"),
                            "ok 3 jvm_option_b: -Xmx64m",
                            "FAULT 4 jvm_option_c:  is empty or longer than 254 characters" + remedy("c"),
                            "FAULT 5 jvm_option_d: -Djava.class.path=C:\\x.jar replaces the class path, so that the control is "
                            "not found" +
                                remedy("d"),
                            "FAULT 6 jvm_option_e: -Dx=y  has a blank at its end" + remedy("e"),
                            "FAULT 7 jvm_option_f: -Djava.awt.headless=true keeps Java from showing a window" + remedy("f"),
                            "ok 8 (server): -Dsun.awt.noerasebackground=true"));
}

TEST_F(CheckSettingTest, PolicyFileIsRefusedByNewJavaOnly)
{
    const std::string policy = machinePolicyFile(folder.path("KESTAx64.exe").c_str());
    EXPECT_EQ(policy, folder.path("KESTAx64.policy"));
    EXPECT_THAT(linesOf(checkPolicy(policy, "25.0.2")), ElementsAre("ok security manager: off, since there is no " + policy));
    fixtures::makeFile(policy, "");
    EXPECT_THAT(linesOf(checkPolicy(policy, "23.0.1")), ElementsAre("ok security manager: on, with " + policy));
    EXPECT_THAT(linesOf(checkPolicy(policy, "24")),
                ElementsAre("FAULT security manager: " + policy +
                            " switches it on, and Java 24 refuses to start with one -> "
                            "delete or rename the file, or choose Java 23 or older: KESTAtool java use FOLDER"));
}

TEST_F(CheckSettingTest, LogFolderThatCannotBeWrittenIsNamed)
{
    EXPECT_THAT(linesOf(checkLogFolder(folder.path() + "\\")),
                ElementsAre("ok folder: " + folder.path() + "\\ can be written to"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    const Lines faults = faultsOf(checkLogFolder(folder.path("none") + "\\"));
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_THAT(faults[0], testing::StartsWith("FAULT folder: " + folder.path("none") + "\\ cannot be written to: "));
    EXPECT_THAT(linesOf(checkLogFolder("")), ElementsAre("note folder: logpath is empty: no log files are written"));
}

TEST_F(CheckSettingTest, VariablesThatChangeJavaAreNoted)
{
    _putenv_s("JAVA_TOOL_OPTIONS", "");
    _putenv_s("_JAVA_OPTIONS", "");
    _putenv_s("JDK_JAVA_OPTIONS", "-Xmx1m");
    _putenv_s("CLASSPATH", "C:\\x.jar");
    EXPECT_THAT(linesOf(checkVariables()), ElementsAre("ok Java's variables: none is set"));
    _putenv_s("_JAVA_OPTIONS", "-Xmx1m");
    EXPECT_THAT(linesOf(checkVariables()),
                ElementsAre("note _JAVA_OPTIONS: is set for this console and may change Java's start: -Xmx1m"));
}

} // namespace
