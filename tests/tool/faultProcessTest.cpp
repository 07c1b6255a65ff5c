// Faults of a machine that only its real registry or a start shows, each planted.
#include "tests/tool/ToolProcessTest.h"

namespace fixtures {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

const std::string OPTIONS_NEXT = "         -> correct what Java names: see the rows \"option\", \"policy\" and \"variable\" of "
                                 "KESTAtool check; if none of them is "
                                 "to blame, choose another runtime: KESTAtool java list\r?\n";
const std::string LOG_NEXT = "         -> read the newest file: KESTAtool log FILE \\(the folder stands in the row \"log\"\\)";

class FaultTest : public ToolProcessTest
{
protected:
    // The Java side of the tests instead of the basis control, with one fault.
    void plant(const std::string& fault)
    {
        settings.setPreference("basiscontrol", programFolder() + "\\Faults.jar");
        settings.setPreference("jvm_option_1", "-Dkesta.fault=" + fault);
    }
    // The lines of the faults that "check" prints, with their remedies.
    std::string faults(const std::string& arguments)
    {
        run("check " + arguments);
        return output.substr(0, output.find("note "));
    }
    static void endServers()
    {
        for (const DWORD id : processesNamed("KESTAx64.exe")) {
            CProcess(id).kill(1);
        }
    }
};

TEST_F(FaultTest, JavaSideOfTheTestsHasNoneByItself)
{
    plant("none");
    EXPECT_EQ(run("check --live"), 0u);
    EXPECT_THAT(output, ContainsRegex("ok +live start +customEvent +the control has raised some, and 1 came\r?\n"));
}

TEST_F(FaultTest, OtherProgramInThe32BitViewIsNamed)
{
    const char* const key = "SOFTWARE\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\LocalServer32";
    HKEY other = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &other, nullptr),
              ERROR_SUCCESS);
    const std::string program = "C:\\old\\KESTA.exe";
    RegSetValueExA(other, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(program.c_str()),
                   static_cast<DWORD>(program.size() + 1));
    RegCloseKey(other);
    EXPECT_THAT(faults("--static"),
                ContainsRegex("^FAULT  registration  machine, 32-bit view +names another program: C:.old.KESTA.exe\r?\n"
                              "         -> remove that registration \\(KESTAx64.exe /UnregServer of that version\\), then "
                              "register again\r?\n$"));
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, key, KEY_WOW64_32KEY, 0);
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}", KEY_WOW64_32KEY, 0);
}

TEST_F(FaultTest, StartThatFailsIsNamedWithWhatJavaSays)
{
    const struct
    {
        const char* first;
        const char* second;
        std::string words;
    } faulty[] = {
        {"-XX:+UseNothing", "-Xmx1k", "Too small maximum heap"}, // Java ignores the first
        {"-XX:+UseSerialGC", "-XX:+UseParallelGC", "Multiple garbage collectors selected"},
        {"-Xmx64m", "-agentlib:kestanothing", "Could not find agent library kestanothing"},
    };
    for (const auto& options : faulty) {
        settings.setPreference("jvm_option_1", options.first);
        settings.setPreference("jvm_option_2", options.second);
        EXPECT_THAT(faults(""), ContainsRegex("FAULT +start +JRE.21.0.8 +does not start: .*; Java says: .*" + options.words +
                                              ".*\r?\n" + OPTIONS_NEXT));
        endServers();
    }
}

TEST_F(FaultTest, StartThatHangsIsNamed)
{
    settings.setPreference("jvm_option_1", "-XX:+UnlockDiagnosticVMOptions");
    settings.setPreference("jvm_option_2", "-XX:+PauseAtStartup"); // as long as its file exists
    settings.setPreference("jvm_option_3", "-XX:PauseAtStartupFile=" + folder.path("paused"));
    const std::string lines = faults("--limit 5");
    EXPECT_THAT(lines, ContainsRegex("FAULT  start +JRE.21.0.8 +does not start: it had not come back after 5 s\r?\n"
                                     "         -> choose a runtime: KESTAtool java list, then KESTAtool java use FOLDER\r?\n"
                                     "FAULT  live start +server +the client that tried it failed: it had not come back after 5 "
                                     "s\r?\n" +
                                     LOG_NEXT));
    endServers();
}

TEST_F(FaultTest, ServerThatHangsOrEndsIsNamed)
{
    plant("hang");
    EXPECT_THAT(faults("--limit 15"), ContainsRegex("^FAULT  live start +server +the client that tried it failed: it had not "
                                                    "come back after 15 s\r?\n" +
                                                    LOG_NEXT));
    EXPECT_THAT(output, ContainsRegex("note   live start +process +a server that was not there before is still running: \\d+\r?\n"
                                      "         -> end it in the task manager unless a program shows its control\r?\n"));
    endServers();
    plant("end");
    EXPECT_THAT(faults(""), ContainsRegex("^FAULT  live start +server +cannot be created: .*\r?\n" + LOG_NEXT));
    endServers();
}

TEST_F(FaultTest, FrameThatRefusesItsControlIsNamed)
{
    plant("window");
    EXPECT_THAT(
        faults("--live"),
        ContainsRegex("^FAULT  live start +window +the frame did not become a child of the client's window\r?\n" + LOG_NEXT));
}

TEST_F(FaultTest, ControlThatCannotBeChosenIsNamed)
{
    plant("setUsedControl");
    settings.setControl("TestControl", m_buildFolder);
    EXPECT_THAT(faults("--live"),
                ContainsRegex("^FAULT  live start +setUsedControl +the call failed: .+\\(80004005\\)\r?\n" + LOG_NEXT));
}

TEST_F(FaultTest, EventThatDoesNotComeIsNamed)
{
    plant("event");
    EXPECT_THAT(faults("--live"), ContainsRegex("^FAULT  live start +event +none came back in 1\\d\\d\\d\\d ms\r?\n" + LOG_NEXT));
}

TEST_F(FaultTest, ControlThatDoesNotSayThatItIsReadyIsNamed)
{
    plant("ready");
    EXPECT_THAT(
        faults("--live"),
        ContainsRegex("^FAULT  live start +controlReady +did not come, so that clients wait for it in vain\r?\n" + LOG_NEXT));
}

// Wine does not carry the exception's text across processes for an early bound call.
TEST_F(FaultTest, CallThatFailsIsNamed)
{
    plant("call");
    EXPECT_THAT(faults(""), ContainsRegex("^FAULT  live start +call +a call failed: .+\\(80004005\\)\r?\n" + LOG_NEXT));
}

TEST_F(FaultTest, MissingControlIsNamed)
{
    settings.setPreference("basiscontrol", m_buildFolder + "\\KESTAx64.exe"); // there, and no archive
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("not in the class path, or not loadable: com/velmora/tq/kesta/KESTAFrame, "
                                  "com/velmora/tq/kesta/KESTAListener, com/orvane/tech/client/qmrt/QMRTControlListenerI, "
                                  "com/orvane/tech/client/qmrt/win/QMRTWinControl\n"));
    EXPECT_THAT(output, ContainsRegex("FAULT +live start +frame +the server runs without Java or without a frame"));
}

// With the jars of the bridge's tests.
TEST_F(FaultTest, ControlThatCannotBeStartedIsNamed)
{
    const std::string archiveNext =
        "\r?\n         -> put the control archive \\(ORVANEControl.jar\\) beside KESTAx64.exe or name it "
        "in basiscontrol\r?\n";
    const std::string makersNext = "\r?\n         -> install the control again; if that does not help, tell its makers what Java "
                                   "says\r?\n";
    const std::string notLoadable = "FAULT  classes +JRE.21.0.8 +not in the class path, or not loadable: "
                                    "com/orvane/tech/client/qmrt/win/QMRTWinControl";
    const struct
    {
        const char* jar;
        const char* failing;
        std::string line;
    } faulty[] = {
        {"without-QMRTWinControl.jar", "", notLoadable + archiveNext},
        {"without-Control.jar", "", notLoadable + "; Java says: java.lang.NoClassDefFoundError: kestatest/Control" + makersNext},
        {"whole.jar", "initialiser", notLoadable + "; Java says: java.lang.ExceptionInInitializerError.*" + makersNext},
        {"whole.jar", "frame", "FAULT  live start +frame +the server runs without Java or without a frame\r?\n" + LOG_NEXT},
        {"whole.jar", "listener", "FAULT  live start +event +none came back in \\d+ ms\r?\n" + LOG_NEXT},
    };
    for (const auto& control : faulty) {
        SCOPED_TRACE(std::string(control.jar) + " " + control.failing);
        settings.setPreference("basiscontrol", m_buildFolder + "\\tests\\vm\\" + control.jar);
        settings.setPreference("jvm_option_1", std::string("-Dkestatest.failing=") + control.failing);
        EXPECT_THAT(faults("--live"), ContainsRegex(control.line));
    }
}

TEST_F(FaultTest, UnregisteredServerIsNamedAndLiveStartFails)
{
    runServer("/UnregServer");
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("is registered neither for this user nor for the machine"));
    EXPECT_THAT(output, ContainsRegex("cannot be created: .*\\(80040154\\)\r?\n"
                                      "         -> correct what the rows about registration name\r?\n"));
    EXPECT_THAT(output, HasSubstr("2 findings. Next: as administrator, run in the program's folder: KESTAx64.exe /RegServer\n"));
    runServer("/RegServer");
}

} // namespace
} // namespace fixtures
