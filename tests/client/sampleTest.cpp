// The sample clients, as programs.
#include "tests/client/PaneFixture.h"

namespace fixtures {
namespace {

class SampleClientTest : public PaneTest
{
protected:
    SampleClientTest() { settings.setControl("Stations", buildFolder()); }

    std::string command(const char* program) const { return "\"" + buildFolder() + "\\" + program + "\""; }
    // The program's visible top-level window.
    static HWND windowOf(const CProgram& program)
    {
        for (HWND found = nullptr; (found = FindWindowExW(nullptr, found, nullptr, nullptr)) != nullptr;) {
            DWORD process = 0;
            GetWindowThreadProcessId(found, &process);
            if (process == program.process().id() && IsWindowVisible(found)) {
                return found;
            }
        }
        return nullptr;
    }
    void close(CProgram& program)
    {
        PostMessageW(windowOf(program), WM_CLOSE, 0, 0);
        EXPECT_EQ(program.process().exitCode(), 0u);
        EXPECT_TRUE(processesNamed("KESTAx64.exe").empty()) << "the program has waited for its servers";
    }
    // Whether it was printed so often, waiting for it.
    static bool hasPrinted(CProgram& program, const std::string& text, size_t times)
    {
        return eventually([&] {
            const std::string output = program.output();
            size_t count = 0;
            for (size_t place = output.find(text); place != std::string::npos; place = output.find(text, place + 1)) {
                ++count;
            }
            return count >= times;
        });
    }
};

TEST_F(SampleClientTest, ThreePanesGoOnWithoutTheOneWhoseServerIsKilled)
{
    CProgram program(command("KESTApanes.exe"));
    ASSERT_TRUE(hasPrinted(program, " is ready: Stations", 3)) << program.output();
    const std::vector<DWORD> servers = processesNamed("KESTAx64.exe");
    ASSERT_EQ(servers.size(), 3u);
    expectExit(servers[1], 77);
    CProcess(servers[1]).kill(77);
    ASSERT_TRUE(hasPrinted(program, " has ended: The server's process has ended with the exit code 77.", 1));
    const HWND main = windowOf(program);
    HWND again = nullptr;
    for (int id = 100; id < 103; ++id) {
        again = IsWindowEnabled(GetDlgItem(main, id)) ? GetDlgItem(main, id) : again;
    }
    ASSERT_NE(again, nullptr) << "the button offers to start it again";
    PostMessageW(again, BM_CLICK, 0, 0);
    EXPECT_TRUE(hasPrinted(program, " is ready: Stations", 4));
    EXPECT_EQ(processesNamed("KESTAx64.exe").size(), 3u);
    close(program);
}

TEST_F(SampleClientTest, HostSaysWhatIsWrongAndStartsAgain)
{
    constexpr int AGAIN = 109; // as in the host's resources
    CProgram program(command("KESTAhost.exe"));
    ASSERT_TRUE(program.waitForOutput("setProperty(text, Hello) -> Hello")) << program.output();
    const std::vector<DWORD> servers = processesNamed("KESTAx64.exe");
    ASSERT_EQ(servers.size(), 1u);
    expectExit(servers[0], 77);
    CProcess(servers[0]).kill(77);
    ASSERT_TRUE(program.waitForOutput("failed: The server's process has ended with the exit code 77."));
    PostMessageW(GetDlgItem(windowOf(program), AGAIN), BM_CLICK, 0, 0);
    EXPECT_TRUE(hasPrinted(program, "setProperty(text, Hello) -> Hello", 2));
    close(program);
}

} // namespace
} // namespace fixtures
