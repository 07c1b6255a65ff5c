// Faults at the start and the end of a server process.
#include "tests/process/FaultFixture.h"

#include <gmock/gmock.h>

#include <array>
#include <random>
#include <string_view>

namespace fixtures {
namespace {

using testing::Contains;

constexpr const char* ABOUT_TO_START = "CJavaManagerJNIClient  About to call JNI_CreateJavaVM";

class InstalledFaultTest : public FaultTest
{
protected:
    // A folder with the executable and the control's jar, as on a user's machine, from which the server is registered.
    std::string install()
    {
        for (const char* const name : {"KESTAx64.exe", "ORVANEControl.jar"}) {
            std::filesystem::copy_file(buildFolder() + "\\" + name, folder.file(name));
        }
        EXPECT_EQ(runServer(folder.path(), "/RegServer"), 0u);
        return folder.path();
    }
    void TearDown() override
    {
        EXPECT_EQ(runServer("/RegServer"), 0u); // the folder goes
        FaultTest::TearDown();
    }
};

// With a policy file beside the executable the server asks for a security manager, which Java 24 and newer refuse.
class PolicyFaultTest : public InstalledFaultTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Pinned, PolicyFaultTest, testing::Values(11, 17, 21, 25), testing::PrintToStringParamName());

TEST_P(PolicyFaultTest, StartsAMachineThatKnowsSecurityManagersAndNoOther)
{
    install();
    writeFile(folder.file("KESTAx64.policy"), "grant { permission java.security.AllPermission; };\n");
    useRuntime(GetParam());
    SManager manager;
    if (GetParam() < 24) {
        EXPECT_EQ(create(manager), S_OK);
        Client client(manager);
        EXPECT_THAT(messages(manager.server->id()),
                    Contains("CJavaManagerJNIClient  Enabled Java Security Manager with " + folder.file("KESTAx64.policy")));
        EXPECT_EQ(client.call("echo", "there"), "there");
        client.connection.reset();
        release(manager);
        return;
    }
    EXPECT_LE(duration([&] { EXPECT_TRUE(FAILED(create(manager))); }), 10000u);
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 1);
    EXPECT_EQ(messages(server->id()).back(), ABOUT_TO_START);
}

class ExitFaultTest : public FaultTest
{
};

class ExitingCallFaultTest : public FaultTest, public testing::WithParamInterface<const char*>
{
};

INSTANTIATE_TEST_SUITE_P(Exits, ExitingCallFaultTest, testing::Values("exit", "exitInEvents"),
                         [](const auto& info) { return std::string(info.param); });

// The client is a process of its own: Wine's side of a call to a server that has ended may fault in the client.
TEST_P(ExitingCallFaultTest, EndsTheServerWithItsCode)
{
    CProgram client(clientCommand(GetParam()));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(client.waitForOutput("calling"));
    EXPECT_LE(duration([&] { expectEnd(*server, 3); }), 5000u);
}

TEST_F(ExitFaultTest, ControlThatExitsWhileItOpensEndsTheServerWithItsCode)
{
    settings.setPreference("jvm_option_exit", "-Dkesta.test.exitInOpen=true");
    CProgram client(clientCommand("hold"));
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 3);
}

class FactoryFaultTest : public FaultTest
{
};

// The frame belongs to the process: the second object shares it, and takes it away at its end.
TEST_F(FactoryFaultTest, SecondObjectOfAProcessTakesTheFrameWithIt)
{
    ATL::CComPtr<IClassFactory> factory;
    ASSERT_EQ(CoGetClassObject(CLSID_JavaManager, CLSCTX_LOCAL_SERVER, nullptr, IID_PPV_ARGS(&factory)), S_OK);
    SManager first;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_PPV_ARGS(&first.object)), S_OK);
    first.server = waitForNewServer({});
    ASSERT_TRUE(first.server);
    const DWORD id = first.server->id();
    ATL::CComPtr<IJavaManager> second;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_PPV_ARGS(&second)), S_OK);
    EXPECT_THAT(messages(id), Contains("CJavaManagerATLObject  s_Instance == NULL: false"));
    int frameId = 0;
    EXPECT_EQ(second->getBeanFrameID(&frameId), S_OK);
    EXPECT_EQ(frameId, first.frameId());
    EXPECT_EQ(callMethod(second, "echo", "there"), "there");
    second.Release();
    EXPECT_EQ(callMethod(first.object, "echo", "anybody"), "(failed)");
    EXPECT_TRUE(first.server->isRunning());
    factory.Release();
    release(first);
}

TEST_F(FactoryFaultTest, ClientThatDiesWithTheClassObjectEndsItsServer)
{
    CProgram client(clientCommand("hold-factory"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    client.process().kill(9);
    EXPECT_LE(duration([&] { expectEnd(*server); }), 20000u);
}

// There is no watchdog yet. On Windows COM drops the dead client's references after some minutes; Wine does not, and the test
// ends the server itself.
TEST_F(FactoryFaultTest, ClientThatDiesWhileJavaStartsLeavesAServerThatGoesOn)
{
    CProgram client(clientCommand("hold"));
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    ASSERT_TRUE(waitForMessage(server->id(), ABOUT_TO_START));
    client.process().kill(9);
    EXPECT_TRUE(
        waitForMessage(server->id(), std::format("CBeanFrame {} CHECKPOINT: Successfully created BeanFrame.", server->id())));
    EXPECT_TRUE(livesFor(*server, 2000));
    expectExit(server->id(), ERROR_PROCESS_ABORTED);
    server->kill(ERROR_PROCESS_ABORTED);
}

// Paths are texts of the code page, which has no such letters.
TEST_F(FaultTest, ExecutableInAFolderOutsideTheCodePageIsNotRegistered)
{
    ASSERT_EQ(GetACP(), 1252u);
    ASSERT_EQ(runServer("/UnregServer"), 0u);
    const std::filesystem::path home = std::filesystem::path(folder.path()) / L"\u0422\u0435\u0441\u0442";
    std::filesystem::create_directory(home);
    std::filesystem::copy_file(buildFolder() + "\\KESTAx64.exe", home / "KESTAx64.exe");
    std::wstring command = L"\"" + (home / "KESTAx64.exe").wstring() + L"\" /RegServer";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started = {};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started));
    const ATL::CHandle thread(started.hThread);
    const CProcess server(started.dwProcessId, started.hProcess);
    const std::optional<DWORD> result = server.exitCode();
    ASSERT_TRUE(result);
    expectExit(server.id(), *result);
    EXPECT_EQ(static_cast<HRESULT>(*result), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, "Software\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}"));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, "Software\\Classes\\TypeLib\\{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}\\1.0"));
    EXPECT_EQ(runServer("/RegServer"), 0u);
}

// Through the removal of the control, the frame's end and the process's.
TEST_F(LongFaultTest, ControlThatFiresAfterItsEndHarmsNobody)
{
    constexpr int CYCLES = 200;
    size_t dropped = 0;
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        SManager manager = create();
        const DWORD id = manager.server->id();
        Client client(manager);
        ASSERT_EQ(client.call("raiseForEver", "4"), "4");
        client.connection.reset();
        release(manager);
        dropped += countMessages(id, "Dropped custom event, no corresponding bean frame was found...");
        if (cycle % 20 == 19) {
            std::printf("%d cycles, %zu events dropped\n", cycle + 1, dropped);
            std::fflush(stdout);
        }
    }
    EXPECT_LT(0u, dropped);
}

// The titles of all frames' windows.
std::vector<std::string> frames()
{
    std::vector<std::string> titles;
    EnumWindows(
        [](HWND window, LPARAM found) -> BOOL {
            std::array<char, 40> title = {};
            GetWindowTextA(window, title.data(), static_cast<int>(title.size()));
            if (std::string_view(title.data()).starts_with("kesta_frame_")) {
                reinterpret_cast<std::vector<std::string>*>(found)->emplace_back(title.data());
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&titles));
    return titles;
}

// A client or its server is killed at a random moment of its life.
TEST_F(LongFaultTest, RandomKillsLeaveNothingBehind)
{
    constexpr int STARTS = 500;
    constexpr DWORD LIFE = 5000; // ms, by which the control is shown
    constexpr UINT KILLED = 9;
    std::mt19937 random(1);
    setLogLevel(WARNINGS);
    for (int start = 0; start < STARTS; ++start) {
        const bool isClientKilled = random() % 2 == 0;
        CProgram client(clientCommand("hold"));
        Sleep(random() % LIFE);
        const std::vector<DWORD> servers = processesNamed("KESTAx64.exe");
        ASSERT_LE(servers.size(), 1u) << "start " << start;
        if (isClientKilled) {
            client.process().kill(KILLED);
        }
        for (const DWORD id : servers) {
            const CProcess server(id);
            // Wine's COM never notices a client that dies before it has pushed its window.
            if (!isClientKilled || !server.exitCode(WATCHDOG_PERIOD + 5000)) {
                server.kill(KILLED);
                server.exitCode();
            }
        }
        client.process().kill(KILLED);
        EXPECT_TRUE(processesNamed("KESTAx64.exe").empty()) << "start " << start;
        EXPECT_THAT(frames(), testing::IsEmpty()) << "start " << start;
        if (start % 50 == 49) {
            std::printf("%d starts\n", start + 1);
            std::fflush(stdout);
        }
    }
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("echo", "there"), "there");
    client.connection.reset();
    release(manager);
}

} // namespace
} // namespace fixtures
