// The samples in other languages, and what README.md prints, started as their users start them.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace fixtures {
namespace {

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

// The functions that authors of scripts copy.
TEST(ScriptTextTest, EveryVectorHoldsInJScript)
{
    EXPECT_EQ(outputOf(cscript(projectFile("tests/languages/vectors.js")) + " " +
                       quoted(projectFile("samples/scripts/kestaText.js")) + " " +
                       quoted(projectFile("tests/texts/encoding.txt"))),
              "81 held, 0 failed\n");
}

// Wine's VBScript has neither AscW nor ChrW. Asc and Chr, which take their place here, are the same within ASCII.
TEST(ScriptTextTest, VectorsWithinAsciiHoldInVbScript)
{
    std::string script =
        readFile(projectFile("tests/languages/vectors.vbs")) + readFile(projectFile("samples/scripts/kestaText.vbs"));
    for (const char* const function : {"AscW(", "ChrW("}) {
        for (size_t place = script.find(function); place != std::string::npos; place = script.find(function, place)) {
            script.erase(place + 3, 1);
        }
    }
    const CTestFolder folder;
    writeFile(folder.file("vectors.vbs"), script);
    EXPECT_EQ(outputOf(cscript(folder.file("vectors.vbs")) + " " + quoted(projectFile("tests/texts/encoding.txt"))),
              "53 held, 0 failed\n");
}

} // namespace
} // namespace fixtures
