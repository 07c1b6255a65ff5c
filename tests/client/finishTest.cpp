// The library's end: of a program, of a DLL, and finish.
#include "tests/client/PaneFixture.h"

namespace fixtures {
namespace {

class PaneEndTest : public PaneTest
{
protected:
    static std::string command(const char* how) { return "\"" + programFolder() + "\\pane_program.exe\" " + how; }
};

class PaneProgramEndTest : public PaneEndTest, public testing::WithParamInterface<const char*>
{
};

// The server's own watch over the window would take up to 15 seconds.
TEST_P(PaneProgramEndTest, TakesTheServerWithIt)
{
    CProgram program(command(GetParam()));
    ASSERT_TRUE(program.waitForOutput("ends")) << program.output();
    EXPECT_EQ(program.process().exitCode(8000), 0u) << program.output();
    EXPECT_TRUE(processesNamed("KESTAx64.exe").empty()) << "the program has waited for its server";
}
INSTANTIATE_TEST_SUITE_P(, PaneProgramEndTest, testing::Values("leak", "static"));

// Its library's threads are not there any more when it hears of the end.
TEST_F(PaneEndTest, ProgramWithThePaneInADllEndsWithoutFinish)
{
    CProgram program(command("dll"));
    ASSERT_TRUE(program.waitForOutput("ends")) << program.output();
    EXPECT_EQ(program.process().exitCode(3000), 0u) << program.output();
    for (const DWORD left : processesNamed("KESTAx64.exe")) {
        killed(left)->kill(kesta::ENDED_BY_CLIENT); // it would notice by itself, but not soon
    }
}

TEST_F(PaneEndTest, DllIsUnloadedAfterFinishAndUsedAgain)
{
    CProgram program(command("unload"));
    EXPECT_EQ(program.process().exitCode(), 0u) << program.output();
}

} // namespace
} // namespace fixtures
