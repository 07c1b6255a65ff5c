// The samples in other languages, and what README.md prints, started as their users start them.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <format>

namespace fixtures {
namespace {

using ATL::CComBSTR;
using testing::HasSubstr;
using testing::StartsWith;

// What a program prints that sends 200 rows and takes the events.
constexpr char TEXTS_AND_EVENTS[] = "Stations;1.0.0\n"
                                    "Troms\xc3\xb8;200|\xe6\x9d\xb1\xe4\xba\xac;200\n"
                                    "200 of 200 events\n"
                                    "a call failed: ";
constexpr char ON_PURPOSE[] =
    "Exception: com.velmora.tq.kesta.control.NoSuchNameException: Stations has no method \"nonsense\"\n";

std::string quoted(const std::string& path)
{
    return "\"" + path + "\"";
}

std::string projectFile(const std::string& name)
{
    return windowsPath(std::getenv("KESTA_PROJECT") + ("/" + name));
}

// Made by the build.
std::string builtFile(const std::string& name)
{
    return programFolder() + "\\" + name;
}

std::string python(const std::string& program)
{
    return quoted(windowsPath(std::getenv("KESTA_WINDOWS_PYTHON"))) + " " + quoted(program);
}

std::string cscript(const std::string& program)
{
    return "cscript.exe //nologo " + quoted(program);
}

// A script of these tests with the functions that authors of scripts copy behind it. Wine's VBScript has neither AscW nor ChrW.
// Asc and Chr, which take their place here, are the same within ASCII.
std::string withVbScriptFunctions(const std::string& name)
{
    std::string script =
        readFile(projectFile("tests/languages/" + name)) + readFile(projectFile("samples/scripts/kestaText.vbs"));
    for (const char* const function : {"AscW(", "ChrW("}) {
        for (size_t place = script.find(function); place != std::string::npos; place = script.find(function, place)) {
            script.erase(place + 3, 1);
        }
    }
    return script;
}

// As the test control tells them.
std::string unitsOf(std::wstring_view text)
{
    std::string units;
    for (const wchar_t unit : text) {
        units += std::format("{:04X}", static_cast<unsigned>(unit));
    }
    return units;
}

// The output of a program that has to succeed.
std::string outputOf(const std::string& commandLine)
{
    CProgram program(commandLine);
    EXPECT_FALSE(program.waitForOutput("no program prints this")); // until its end
    EXPECT_EQ(program.process().exitCode(), 0u) << program.output();
    return program.output();
}

class LanguageTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        settings.removeControl(TEST_CONTROL);
        settings.setControl("Stations", buildFolder());
        setLogLevel(WARNINGS);
        SetEnvironmentVariableA("PYTHONUTF8", "1");
        SetEnvironmentVariableA("PYTHONPATH", projectFile("samples/python").c_str());
    }
};

TEST_F(LanguageTest, PythonScriptTakesEveryEventAndBringsTextsThereAndBack)
{
    const std::string output = outputOf(python(projectFile("samples/python/script.py")) + " 200");
    EXPECT_THAT(output, StartsWith(TEXTS_AND_EVENTS));
    EXPECT_THAT(output, HasSubstr(ON_PURPOSE));
}

TEST_F(LanguageTest, PythonWindowHasTheControlInsideUntilItIsReleased)
{
    EXPECT_EQ(outputOf(python(projectFile("tests/languages/driveWindow.py")) + " " + quoted(projectFile("samples/python"))),
              "ready\n"
              "inside\n"
              "of the server\n"
              "sized\n"
              "with a child's styles\n"
              "no stranger\n"
              "sized anew\n"
              "text there and back\n"
              "200 events\n"
              "failure with its text\n"
              "released\n");
}

TEST_F(LanguageTest, PythonLibrariesTakeEveryEventOfABurst)
{
    settings.removeControl("Stations");
    settings.setControl(TEST_CONTROL, buildFolder());
    for (const char* const library : {"pywin32", "comtypes"}) {
        EXPECT_EQ(outputOf(python(projectFile("tests/languages/takeBurst.py")) + " " + library), "200 of 200 events\n")
            << library;
    }
}

TEST_F(LanguageTest, PythonOfTheReadmePrintsTheRows)
{
    EXPECT_EQ(outputOf(python(builtFile("readme.py"))), "Stations;1.0.0\n"
                                                        "Alta;1|Troms\xc3\xb8;2.5\n"
                                                        "Alta;1|Troms\xc3\xb8;2.5|\xe6\x9d\xb1\xe4\xba\xac;14\n");
}

TEST_F(LanguageTest, ScriptsBringTextsThereAndBack)
{
    for (const char* const name : {"stations.vbs", "stations.js"}) {
        const std::string output = outputOf(cscript(projectFile(std::string("samples/scripts/") + name)));
        EXPECT_THAT(output, StartsWith("Stations;1.0.0\n"
                                       "Troms\\u00F8;2.5|\\u6771\\u4EAC;14\n"
                                       "The rows are back as they were.\n"
                                       "begun\n"
                                       "a call failed: "))
            << name;
        EXPECT_THAT(output, HasSubstr(ON_PURPOSE)) << name;
    }
}

TEST_F(LanguageTest, ScriptOfTheReadmePrintsTheRowsAndTheReasonOfAFailure)
{
    const std::string output = outputOf(cscript(builtFile("readme.vbs")));
    EXPECT_THAT(output, StartsWith("Stations;1.0.0\n"
                                   "Alta;1|Troms\\u00F8;2.5\n"));
    EXPECT_THAT(output, HasSubstr(ON_PURPOSE));
}

TEST_F(LanguageTest, GoProgramTakesEveryEventAndBringsTextsThereAndBack)
{
    const std::string output = outputOf(quoted(builtFile("stations.exe")) + " 200");
    EXPECT_THAT(output, StartsWith(TEXTS_AND_EVENTS));
    EXPECT_THAT(output, HasSubstr(ON_PURPOSE));
}

TEST_F(LanguageTest, DelphiOfThePageTakesItsEventAndBringsTextsThereAndBack)
{
    const std::string output = outputOf(quoted(builtFile("delphi.exe")));
    EXPECT_THAT(output, StartsWith("Stations;1.0.0\n"
                                   "Alta;1|Troms\\u00F8;2.5\n"
                                   "The rows are back as they were.\n"
                                   "sum;3.5\n"
                                   "a call failed: "));
    EXPECT_THAT(output, HasSubstr(ON_PURPOSE));
}

TEST_F(LanguageTest, ClientWithoutTheLibraryCallsInEachWay)
{
    for (const char* const way : {"late", "early"}) {
        EXPECT_THAT(outputOf(quoted(builtFile("client64.exe")) + " " + way), HasSubstr("the text is back -> 0x00000000\n"))
            << way;
    }
}

TEST_F(LanguageTest, ClientWithoutTheLibraryTakesInTheFrameAndNoOtherWindowOfItsName)
{
    CProgram client(quoted(builtFile("client64.exe")) + " events");
    std::vector<DWORD> servers;
    const UINT_PTR timer = SetTimer(nullptr, 0, 20, nullptr);
    ASSERT_TRUE(pumpUntil([&] { return !(servers = processesNamed("KESTAx64.exe")).empty(); }));
    KillTimer(nullptr, timer);
    // Long before the frame, and found before it.
    const HWND decoy = CreateWindowExA(WS_EX_TOPMOST, "STATIC", ("kesta_frame_" + std::to_string(servers[0])).c_str(), WS_POPUP,
                                       0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    EXPECT_FALSE(client.waitForOutput("no program prints this")); // until its end
    EXPECT_EQ(client.process().exitCode(), 0u) << client.output();
    EXPECT_THAT(client.output(), HasSubstr("the frame has a child's styles -> 0x00000000\n"));
    EXPECT_THAT(client.output(), HasSubstr("the control fills the pane -> 0x00000000\n"));
    EXPECT_EQ(GetAncestor(decoy, GA_PARENT), GetDesktopWindow());
    DestroyWindow(decoy);
}

TEST_F(LanguageTest, ClientsSayWhyThereIsNoFrame)
{
    SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", "-Djava.awt.headless=true");
    constexpr char WHY[] = "Exception: java.awt.HeadlessException";
    for (const char* const arguments : {"client64.exe\" events", "delphi.exe\""}) {
        CProgram client("\"" + builtFile(arguments));
        EXPECT_FALSE(client.waitForOutput("no program prints this")); // until its end
        EXPECT_NE(client.process().exitCode(), 0u) << arguments;
        EXPECT_THAT(client.output(), HasSubstr(WHY)) << arguments;
    }
    writeFile(folder.file("noFrame.py"), "from window import Control\n"
                                         "control = Control('Stations', 0)\n"
                                         "control.start()\n"
                                         "print(*control.news.get())\n"
                                         "control.join()\n");
    const std::string output = outputOf(python(folder.file("noFrame.py")));
    EXPECT_THAT(output, StartsWith("ended "));
    EXPECT_THAT(output, HasSubstr(WHY));
}

TEST_F(LanguageTest, JsonReachesTheControlAsItWasWritten)
{
    const std::string plain = unitsOf(L"{\"site\":\"Troms\u00f8 \U0001f600\",\"path\":\"C:\\\\users\"}");
    const std::string numbered = unitsOf(LR"({"site":"Troms\u00f8 \ud83d\ude00","path":"C:\\users"})");
    settings.removeControl("Stations");
    settings.setControl(TEST_CONTROL, buildFolder());
    writeFile(folder.file("jsonText.vbs"), withVbScriptFunctions("jsonText.vbs"));
    const std::string functions = quoted(projectFile("samples/scripts/kestaText.js"));
    EXPECT_EQ(outputOf(python(projectFile("tests/languages/jsonText.py"))), plain + "\n" + numbered + "\n");
    EXPECT_EQ(outputOf(cscript(projectFile("tests/languages/jsonText.js")) + " " + functions), plain + "\n" + numbered + "\n");
    EXPECT_EQ(outputOf(cscript(folder.file("jsonText.vbs"))), numbered + "\n");
}

TEST_F(LanguageTest, EventReachesTheSinksThatAreConnectedWhenItIsDueNotWhenItIsRaised)
{
    setLogLevel(FULL_DETAIL);
    SManager manager = create();
    EXPECT_EQ(manager->testBridge(CComBSTR("early"), 5, 0), S_OK);
    EXPECT_TRUE(waitForMessage(manager.server->id(),
                               "<- CBeanFrame " + std::to_string(manager.server->id()) + " processTestBridgeEvent earlySJBbjs"));
    EXPECT_EQ(manager->testBridge(CComBSTR("delayed"), 5, 2000), S_OK);
    CSink sink;
    CConnection connection(manager.object, sink);
    EXPECT_TRUE(pumpUntil([&] { return sink.has(TEST_BRIDGE_EVENT, "delayedSJBbjs"); }));
    EXPECT_EQ(sink.events.size(), 1u);
    connection.end();
    release(manager);
}

// The functions that authors of scripts copy.
TEST(ScriptTextTest, EveryVectorHoldsInJScript)
{
    EXPECT_EQ(outputOf(cscript(projectFile("tests/languages/vectors.js")) + " " +
                       quoted(projectFile("samples/scripts/kestaText.js")) + " " +
                       quoted(projectFile("tests/texts/encoding.txt"))),
              "81 held, 0 failed\n");
}

TEST(ScriptTextTest, VectorsWithinAsciiHoldInVbScript)
{
    const CTestFolder folder;
    writeFile(folder.file("vectors.vbs"), withVbScriptFunctions("vectors.vbs"));
    EXPECT_EQ(outputOf(cscript(folder.file("vectors.vbs")) + " " + quoted(projectFile("tests/texts/encoding.txt"))),
              "53 held, 0 failed\n");
}

} // namespace
} // namespace fixtures
