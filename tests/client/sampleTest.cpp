// The sample clients, as programs.
#include "tests/client/PaneFixture.h"

#include <gmock/gmock.h>

namespace fixtures {
namespace {

// Screens at 150 % for programs that start from now on. This program does not know about scales, and goes on to see lengths as
// they would be at 100 %.
class CScaledScreens
{
public:
    CScaledScreens()
    {
        DWORD size = sizeof m_former;
        RegGetValueA(HKEY_CURRENT_USER, KEY, VALUE, RRF_RT_REG_DWORD, nullptr, &m_former, &size);
        set(DPI);
    }
    ~CScaledScreens() { set(m_former); }
    CScaledScreens(const CScaledScreens&) = delete;
    CScaledScreens& operator=(const CScaledScreens&) = delete;

    static constexpr UINT DPI = 144;

private:
    static void set(DWORD dpi) { RegSetKeyValueA(HKEY_CURRENT_USER, KEY, VALUE, REG_DWORD, &dpi, sizeof dpi); }

    static constexpr char KEY[] = "Control Panel\\Desktop";
    static constexpr char VALUE[] = "LogPixels";
    DWORD m_former = USER_DEFAULT_SCREEN_DPI;
};

// A program's manifest.
std::string manifestOf(const std::string& program)
{
    const HMODULE module = LoadLibraryExA(program.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(1), reinterpret_cast<LPCWSTR>(RT_MANIFEST));
    const auto* const text = found == nullptr ? nullptr : static_cast<const char*>(LockResource(LoadResource(module, found)));
    std::string manifest = text == nullptr ? "" : std::string(text, SizeofResource(module, found));
    FreeLibrary(module);
    return manifest;
}

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
    // As its manifest declares; otherwise Windows would stretch it.
    static void expectKnowsTheScale(HWND window)
    {
        EXPECT_EQ(GetAwarenessFromDpiAwarenessContext(GetWindowDpiAwarenessContext(window)), DPI_AWARENESS_SYSTEM_AWARE);
        EXPECT_EQ(GetDpiForWindow(window), CScaledScreens::DPI);
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

    const CScaledScreens scaledScreens;
};

TEST_F(SampleClientTest, ProgramsDeclareTheVersionOfWindowsThatTheyKnow)
{
    for (const char* const program : {"KESTAhost.exe", "KESTApanes.exe"}) {
        EXPECT_THAT(manifestOf(buildFolder() + "\\" + program),
                    testing::HasSubstr("<supportedOS Id=\"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}\"/>"))
            << program;
    }
}

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
    expectKnowsTheScale(main);
    RECT place = {};
    GetWindowRect(main, &place);
    EXPECT_EQ(place.right - place.left, 1100);
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

TEST_F(SampleClientTest, ThreePanesKeepTheirSizesInAMinimisedWindow)
{
    CProgram program(command("KESTApanes.exe"));
    ASSERT_TRUE(hasPrinted(program, " is ready: Stations", 3)) << program.output();
    const HWND main = windowOf(program);
    const auto sizes = [main] {
        std::vector<std::pair<LONG, LONG>> all;
        for (HWND child = GetWindow(main, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
            RECT area = {};
            GetClientRect(child, &area);
            all.emplace_back(area.right, area.bottom);
        }
        return all;
    };
    const std::vector<std::pair<LONG, LONG>> before = sizes();
    EXPECT_EQ(before.size(), 9u) << "a pane, a line of text and a button, three times";
    SendMessageW(main, WM_SYSCOMMAND, SC_MINIMIZE, 0);
    EXPECT_TRUE(IsIconic(main));
    EXPECT_EQ(sizes(), before);
    SendMessageW(main, WM_SYSCOMMAND, SC_RESTORE, 0);
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
    expectKnowsTheScale(windowOf(program));
    PostMessageW(GetDlgItem(windowOf(program), AGAIN), BM_CLICK, 0, 0);
    EXPECT_TRUE(hasPrinted(program, "setProperty(text, Hello) -> Hello", 2));
    close(program);
}

// Java's side of another test, which answers setUsedControl and fails at the next call.
TEST_F(SampleClientTest, HostSaysWhichCallOfItsOwnFailsAndLetsTheUserCall)
{
    constexpr int CALL = 110; // as in the host's resources
    constexpr int ANSWER = 112;
    settings.setPreference("basiscontrol", buildFolder() + "\\tests\\tool\\Faults.jar");
    settings.setPreference("jvm_option_1", "-Dkesta.fault=call");
    CProgram program(command("KESTAhost.exe") + " /control Stations of another kind");
    ASSERT_TRUE(program.waitForOutput("versions -> failed, ")) << program.output();
    const HWND main = windowOf(program);
    EXPECT_TRUE(eventually([&] { return IsWindowEnabled(GetDlgItem(main, CALL)) != FALSE; }));
    wchar_t answer[4000] = L"";
    SendDlgItemMessageW(main, ANSWER, WM_GETTEXT, std::size(answer), reinterpret_cast<LPARAM>(answer));
    EXPECT_THAT(std::wstring(answer), testing::StartsWith(L"Failed: "));
    EXPECT_THAT(std::wstring(answer), testing::HasSubstr(L"planted in call"));
    close(program);
}

} // namespace
} // namespace fixtures
