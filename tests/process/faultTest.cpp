// Faults of clients, controls and other programs: what the server does about each, and how it ends.
//
// LongFaultTest takes more than ten seconds for each test and belongs to ./test fault only.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <format>
#include <limits>

namespace fixtures {
namespace {

using ATL::CComBSTR;
using testing::HasSubstr;

constexpr DWORD WATCHDOG_PERIOD = 15000; // ms

class FaultTest : public ServerTest
{
protected:
    // With a sink and the frame in a window.
    struct Client
    {
        explicit Client(SManager& created)
            : manager(created)
            , connection(std::in_place, created.object, sink)
        {
            EXPECT_TRUE(window.takeIn(manager.frameId()));
            EXPECT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
            EXPECT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
        }
        std::string call(const char* name, const std::string& argument) const
        {
            return callMethod(manager.object, name, argument.c_str());
        }
        HRESULT result(const char* name, const std::string& argument) const
        {
            return fixtures::call(manager.object, callMethodId, name, argument.c_str()).result;
        }

        SManager& manager;
        const DISPID callMethodId = memberId(manager.object, L"callMethod");
        CSink sink;
        CClientWindow window;
        std::optional<CConnection> connection;
    };

    // The thread that the process began with. COM's windows do not tell it: Java's window thread has such a window too.
    static DWORD mainThread(DWORD process)
    {
        const ATL::CHandle all(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
        THREADENTRY32 entry = {};
        entry.dwSize = sizeof entry;
        DWORD oldest = 0;
        ULONGLONG oldestTime = std::numeric_limits<ULONGLONG>::max();
        for (BOOL isThere = Thread32First(all, &entry); isThere != FALSE; isThere = Thread32Next(all, &entry)) {
            const ATL::CHandle thread(
                entry.th32OwnerProcessID == process ? OpenThread(THREAD_QUERY_INFORMATION, FALSE, entry.th32ThreadID) : nullptr);
            FILETIME begin = {};
            FILETIME other = {};
            if (thread != nullptr && GetThreadTimes(thread, &begin, &other, &other, &other) != FALSE &&
                ULARGE_INTEGER{{begin.dwLowDateTime, begin.dwHighDateTime}}.QuadPart < oldestTime) {
                oldestTime = ULARGE_INTEGER{{begin.dwLowDateTime, begin.dwHighDateTime}}.QuadPart;
                oldest = entry.th32ThreadID;
            }
        }
        return oldest;
    }
    // Milliseconds.
    template <class Body>
    static ULONGLONG duration(Body&& body)
    {
        const ULONGLONG begin = GetTickCount64();
        body();
        return GetTickCount64() - begin;
    }
    // The window of the frame inside a pane; null without it.
    static HWND frameIn(const CClientWindow& window, int frameId)
    {
        return FindWindowExA(window.pane(), nullptr, nullptr, std::format("kesta_frame_{}", frameId).c_str());
    }
    static bool livesFor(const CProcess& server, DWORD milliseconds)
    {
        return !pumpUntil([&] { return !server.isRunning(); }, {server.handle()}, milliseconds);
    }
    // Also that the server still answers after the last call, and ends.
    void expectFailures(int calls, const char* name, const std::string& argument)
    {
        SManager manager = create();
        Client client(manager);
        for (int number = 0; number < calls; ++number) {
            ASSERT_EQ(client.result(name, argument), E_FAIL);
        }
        EXPECT_EQ(client.call("echo", "there"), "there");
        client.connection.reset();
        release(manager);
    }
};

class LongFaultTest : public FaultTest
{
};

TEST_F(FaultTest, EventsWhileThePaneHasNoParentAreDroppedAndTheServerLives)
{
    SManager manager = create();
    Client client(manager);
    const DWORD id = manager.server->id();
    SetParent(client.window.pane(), nullptr);
    EXPECT_EQ(client.call("raise", "dropped"), "dropped");
    EXPECT_TRUE(
        waitForMessage(id, std::format("CBeanFrame {} Dropped custom event, client seems to be not alive anymore...", id)));
    SetParent(client.window.pane(), client.window.window());
    EXPECT_EQ(client.call("raise", "kept"), "kept");
    EXPECT_TRUE(pumpUntil([&] { return client.sink.has(CUSTOM_EVENT, "kept"); }));
    EXPECT_FALSE(client.sink.has(CUSTOM_EVENT, "dropped"));
    client.connection.reset();
    release(manager);
}

TEST_F(FaultTest, ShutdownHookAndThreadsThatGoOnDoNotKeepTheServer)
{
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("blockTheEnd", "60000"), "60000");
    client.connection.reset();
    EXPECT_LE(duration([&] { release(manager); }), 3000u);
}

TEST_F(FaultTest, BlockedEventThreadBlocksNeitherCallsNorTheEnd)
{
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("sleepInEvents", "30000"), "30000");
    EXPECT_LE(duration([&] {
                  EXPECT_EQ(client.call("echo", "there"), "there");
                  EXPECT_EQ(manager->setBounds(0, 0, 100, 100), S_OK);
                  client.connection.reset();
                  release(manager);
              }),
              5000u);
}

TEST_F(FaultTest, MessageLoopThatAnotherProgramEndsEndsTheServer)
{
    SManager manager = create();
    Client client(manager);
    const auto server = manager.server;
    EXPECT_TRUE(PostThreadMessageA(mainThread(server->id()), WM_QUIT, 0, 0));
    EXPECT_EQ(server->exitCode(), 0u);
    EXPECT_EQ(client.call("echo", "anybody"), "(failed)");
}

TEST_F(FaultTest, FloodOfForeignMessagesDuringABurstLosesNothing)
{
    setLogLevel(WARNINGS);
    SManager manager = create();
    Client client(manager);
    const DWORD thread = mainThread(manager.server->id());
    ASSERT_NE(thread, 0u);
    EXPECT_EQ(client.call("burst", "500;4"), "2000");
    for (int number = 0; number < 20000; ++number) {
        // A full queue may refuse some.
        PostThreadMessageA(thread, number % 2 == 0 ? WM_APP + 3 : WM_APP + 4, 0, 0);
    }
    EXPECT_EQ(client.call("echo", "there"), "there");
    EXPECT_TRUE(pumpUntil([&] { return client.sink.events.size() >= 2001; }));
    for (int sender = 1; sender <= 4; ++sender) {
        for (int number = 1; number <= 500; ++number) {
            ASSERT_EQ(client.sink.count(CUSTOM_EVENT, std::format("burst 1.{}.{}", sender, number)), 1u);
        }
    }
    client.connection.reset();
    release(manager);
}

// The id is taken before the frame is made, so it does not tell.
TEST_F(FaultTest, HeadlessMachineIsToldToTheClient)
{
    settings.setPreference("jvm_option_headless", "-Djava.awt.headless=true");
    SManager manager;
    EXPECT_LE(duration([&] { EXPECT_EQ(create(manager), S_OK); }), 20000u);
    EXPECT_EQ(manager.frameId(), static_cast<int>(manager.server->id()));
    const SCallResult answer = call(manager.object, memberId(manager.object, L"validate"));
    EXPECT_EQ(answer.result, E_FAIL);
    EXPECT_THAT(answer.description, HasSubstr("Exception: java.awt.HeadlessException"));
    release(manager);
}

TEST_F(FaultTest, AgentThatIsMissingFailsTheCreation)
{
    SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", "-agentpath:gone.dll");
    SManager manager;
    EXPECT_TRUE(FAILED(create(manager)));
    SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", nullptr);
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 1);
    EXPECT_EQ(messages(server->id()).back(), "CJavaManagerJNIClient  About to call JNI_CreateJavaVM");
}

class RuntimeFaultTest : public FaultTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Pinned, RuntimeFaultTest, testing::Values(11, 17, 21, 25), testing::PrintToStringParamName());

TEST_P(RuntimeFaultTest, RecursionWithoutEndFailsTheCallOnly)
{
    useRuntime(GetParam());
    SManager manager = create();
    Client client(manager);
    const SCallResult answer = call(manager.object, memberId(manager.object, L"callMethod"), "recurse", "");
    EXPECT_EQ(answer.result, E_FAIL);
    EXPECT_THAT(answer.description, HasSubstr("Exception: java.lang.StackOverflowError"));
    EXPECT_EQ(client.call("echo", "there"), "there");
    client.connection.reset();
    release(manager);
}

TEST_F(LongFaultTest, NullDereferenceInCompiledCodeFailsEachCall)
{
    setLogLevel(0);
    expectFailures(20000, "nullDereference", "");
}

TEST_F(LongFaultTest, ExhaustedHeapFailsCallsAndCrashesNothing)
{
    setLogLevel(WARNINGS);
    settings.setPreference("jvm_option_heap", "-Xmx64m");
    expectFailures(500, "throw", std::string(256 * 1024, 'x'));
}

TEST_F(LongFaultTest, MemoryDoesNotGrowWithDelayedEvents)
{
    setLogLevel(0);
    SManager manager = create();
    Client client(manager);
    const auto privateBytes = [&] {
        const ATL::CHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, manager.server->id()));
        PROCESS_MEMORY_COUNTERS_EX counters = {};
        EXPECT_TRUE(GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters));
        return counters.PrivateUsage;
    };
    size_t expected = client.sink.events.size();
    const auto raise = [&](int count) {
        for (int number = 0; number < count; ++number) {
            ASSERT_EQ(manager->testBridge(CComBSTR("delayed"), 3, number % 50 + 1), S_OK);
        }
        expected += static_cast<size_t>(count);
        EXPECT_TRUE(pumpUntil([&] { return client.sink.events.size() >= expected; }));
        client.sink.events.clear();
        expected = 0;
    };
    raise(10000); // Java's heap and compiled code grow first
    const SIZE_T before = privateBytes();
    raise(100000);
    const SIZE_T after = privateBytes();
    std::printf("private bytes: %zu before, %zu after\n", before, after);
    EXPECT_LE(after, before + 2 * 1024 * 1024);
    client.connection.reset();
    release(manager);
}

TEST_F(LongFaultTest, PaneThatIsTopLevelAtTheCheckEndsTheServer)
{
    SManager manager = create();
    Client client(manager);
    const auto server = manager.server;
    SetParent(client.window.pane(), nullptr);
    EXPECT_FALSE(livesFor(*server, WATCHDOG_PERIOD + 10000));
    EXPECT_EQ(server->exitCode(), 0u);
    EXPECT_EQ(HRESULT_FACILITY(client.result("echo", "anybody")), FACILITY_WIN32);
}

TEST_F(LongFaultTest, PaneThatIsMadeAnewAndPushedInTimeKeepsTheServer)
{
    SManager manager = create();
    Client client(manager);
    CClientWindow next;
    const HWND frame = frameIn(client.window, manager.frameId());
    ASSERT_NE(frame, nullptr);
    SetParent(frame, next.pane());
    client.window.destroy();
    ASSERT_EQ(manager->pushWindowHandle(next.handle()), S_OK);
    EXPECT_TRUE(livesFor(*manager.server, 2 * WATCHDOG_PERIOD + 2000));
    EXPECT_EQ(client.call("raise", "there"), "there");
    EXPECT_TRUE(pumpUntil([&] { return client.sink.has(CUSTOM_EVENT, "there"); }));
    EXPECT_EQ(frameIn(next, manager.frameId()), frame);
    client.connection.reset();
    release(manager);
}

TEST_F(LongFaultTest, MinimisedHiddenAndDisabledWindowsAreAlive)
{
    SManager manager = create();
    Client client(manager);
    ShowWindow(client.window.window(), SW_MINIMIZE);
    EXPECT_TRUE(livesFor(*manager.server, WATCHDOG_PERIOD));
    ShowWindow(client.window.window(), SW_HIDE);
    EnableWindow(client.window.window(), FALSE);
    EXPECT_TRUE(livesFor(*manager.server, 25000));
    EXPECT_EQ(client.call("raise", "there"), "there");
    EXPECT_TRUE(pumpUntil([&] { return client.sink.has(CUSTOM_EVENT, "there"); }));
    for (const std::string& message : messages(manager.server->id())) {
        EXPECT_THAT(message, testing::Not(HasSubstr("seems to be not alive")));
    }
    client.connection.reset();
    release(manager);
}

// Java cannot be interrupted: the watchdog's next check comes when the call has returned.
TEST_F(LongFaultTest, ClientThatDiesWhileJavaIsBusyEndsItsServerWhenTheCallReturns)
{
    CProgram client("\"" + programFolder() + "\\process_client.exe\" die-in-call");
    ASSERT_TRUE(client.waitForOutput("frame "));
    const DWORD id = static_cast<DWORD>(std::stoul(client.output().substr(client.output().find("frame ") + 6)));
    const std::shared_ptr<CProcess> server = monitor.senders().at(id);
    ASSERT_TRUE(client.waitForOutput("sleeping"));
    Sleep(1000);
    client.process().kill(7);
    EXPECT_FALSE(server->exitCode(25000).has_value()) << "Java is still busy";
    expectEnd(*server);
}

TEST_F(LongFaultTest, ControlThatHangsWhileItClosesKeepsTheServerAsLong)
{
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("blockClose", "20000"), "20000");
    client.connection.reset();
    const auto server = manager.server;
    manager.object.Release();
    EXPECT_FALSE(server->exitCode(15000).has_value());
    expectEnd(*server);
}

} // namespace
} // namespace fixtures
