// Faults of clients, controls and other programs while a server runs: what it does about each.
#include "tests/process/FaultFixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <thread>

namespace fixtures {
namespace {

using ATL::CComBSTR;
using testing::HasSubstr;

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
    EXPECT_EQ(warnings(id).size(), 1u);
    client.connection.reset();
    release(manager);
}

// In front of all others, so that a search by name finds it first.
TEST_F(FaultTest, ForeignWindowWithTheFramesNameIsNotTakenIn)
{
    CProgram host("\"" + buildFolder() + "\\KESTAhost.exe\" /control TestControl");
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    const std::string name = std::format("kesta_frame_{}", server->id());
    const HWND foreign = CreateWindowExA(WS_EX_TOPMOST, "STATIC", name.c_str(), WS_POPUP | WS_VISIBLE, 0, 0, 50, 50, nullptr,
                                         nullptr, nullptr, nullptr);
    EXPECT_TRUE(host.waitForOutput(name + " is in the window"));
    EXPECT_EQ(FindWindowA(nullptr, name.c_str()), foreign) << "the frame is no top-level window any more";
    EXPECT_EQ(GetAncestor(foreign, GA_PARENT), GetDesktopWindow());
    DestroyWindow(foreign);
    closeWindows(host);
    expectEnd(*server);
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
    const HWND frame = frameIn(client.window, manager.frameId());
    EXPECT_EQ(client.call("sleepInEvents", "30000"), "30000");
    EXPECT_LE(duration([&] {
                  EXPECT_EQ(client.call("echo", "there"), "there");
                  EXPECT_EQ(manager->setBounds(0, 0, 100, 100), S_OK);
                  EXPECT_TRUE(SetWindowPos(frame, nullptr, 0, 0, 300, 200, SWP_NOZORDER | SWP_NOACTIVATE | SWP_ASYNCWINDOWPOS));
                  EXPECT_TRUE(pumpUntil([&] {
                      RECT place = {};
                      GetWindowRect(frame, &place);
                      return place.right - place.left == 300 && place.bottom - place.top == 200;
                  }));
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
    EXPECT_EQ(client.result("echo", "anybody"), HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
    EXPECT_EQ(frameIn(client.window, static_cast<int>(server->id())), nullptr);
}

TEST_F(FaultTest, ServerThatIsEndedDuringACallFailsIt)
{
    CProgram client(clientCommand("sleep"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(waitForMessage(server->id(), "-> CJavaManagerATLObject  callMethod sleep, 60000"));
    server->kill(9);
    expectEnd(*server, 9);
    expectRpcErrors(client);
}

// Another thread of the client, with a proxy of its own.
template <class Body>
std::thread onAnotherThread(const SManager& manager, Body body)
{
    IStream* stream = nullptr;
    EXPECT_EQ(CoMarshalInterThreadInterfaceInStream(IID_IJavaManager, manager.object, &stream), S_OK);
    return std::thread([stream, body] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
            ATL::CComPtr<IJavaManager> object;
            CoGetInterfaceAndReleaseStream(stream, IID_PPV_ARGS(&object));
            body(object);
        }
        CoUninitialize();
    });
}

TEST_F(FaultTest, MethodThatDoesNotReturnHoldsUpOtherCallsEventsAndTheRelease)
{
    constexpr ULONGLONG HELD = 1000; // ms at least, by a method that takes twice as long
    SManager manager = create();
    Client client(manager);
    const DWORD id = manager.server->id();
    const auto sleepOnAnotherThread = [&](const char* milliseconds) {
        std::thread thread = onAnotherThread(manager, [milliseconds](IJavaManager* object) {
            EXPECT_EQ(callMethod(object, "sleep", milliseconds), milliseconds);
        });
        EXPECT_TRUE(waitForMessage(id, std::string("-> CJavaManagerATLObject  callMethod sleep, ") + milliseconds));
        return thread;
    };
    EXPECT_EQ(client.call("startTimer", "50"), "50");
    std::thread first = sleepOnAnotherThread("2000");
    const ptrdiff_t before = std::ssize(client.sink.events);
    const ULONGLONG begin = GetTickCount64();
    EXPECT_GE(duration([&] { EXPECT_EQ(client.call("echo", "there"), "there"); }), HELD);
    EXPECT_EQ(std::ranges::count_if(client.sink.events.begin() + before, client.sink.events.end(),
                                    [&](const CSink::Event& event) { return event.time < begin + HELD; }),
              0);
    EXPECT_TRUE(pumpUntil([&] { return client.sink.has(CUSTOM_EVENT, "timer 20"); })) << "they come when it has returned";
    first.join();

    std::thread second = sleepOnAnotherThread("2001");
    EXPECT_GE(duration([&] { manager.object.Release(); }), HELD);
    client.connection.reset();
    second.join();
    expectEnd(*manager.server);
}

TEST_F(FaultTest, CallsThatFailKeepTheirTextsAndOthersDoNot)
{
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("watchTexts", ""), "");
    for (int number = 0; number < 10; ++number) {
        EXPECT_EQ(client.call("echo", std::format("answered {}", number)), std::format("answered {}", number));
        EXPECT_EQ(client.result("throw", std::format("failed {}", number)), E_FAIL);
    }
    // The last one is that of the question itself.
    EXPECT_THAT(client.call("heap", ""), testing::EndsWith(";11"));
    client.connection.reset();
    release(manager);
}

TEST_F(FaultTest, FloodOfForeignMessagesDuringABurstLosesNothing)
{
    setLogLevel(WARNINGS);
    SManager manager = create();
    Client client(manager);
    const DWORD thread = mainThread(manager.server->id());
    ASSERT_NE(thread, 0u);
    EXPECT_EQ(client.call("burst", "500;4"), "2000");
    int posted = 0; // a full queue may refuse some
    for (int number = 0; number < 20000; ++number) {
        posted += PostThreadMessageA(thread, number % 2 == 0 ? WM_APP + 3 : WM_APP + 4, 0, 0) != FALSE ? 1 : 0;
    }
    EXPECT_GE(posted, 5000);
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

// A machine without a screen, by an option among the preferences or by Java's environment variable.
class HeadlessFaultTest : public FaultTest, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        FaultTest::SetUp();
        constexpr char HEADLESS[] = "-Djava.awt.headless=true";
        if (GetParam() == std::string("Variable")) {
            SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", HEADLESS);
        } else {
            settings.setPreference("jvm_option_headless", HEADLESS);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(By, HeadlessFaultTest, testing::Values("Option", "Variable"),
                         [](const auto& info) { return std::string(info.param); });

// The id is taken before the frame is made, so it does not tell.
TEST_P(HeadlessFaultTest, MachineIsToldToTheClient)
{
    SManager manager;
    EXPECT_LE(duration([&] { EXPECT_EQ(create(manager), S_OK); }), 20000u);
    EXPECT_EQ(manager.frameId(), static_cast<int>(manager.server->id()));
    const SCallResult answer = call(manager.object, memberId(manager.object, L"validate"));
    EXPECT_EQ(answer.result, E_FAIL);
    EXPECT_THAT(answer.description, HasSubstr("Exception: java.awt.HeadlessException"));
    release(manager);
}

TEST_P(HeadlessFaultTest, MachineIsReportedByTheHost)
{
    CProgram host("\"" + buildFolder() + "\\KESTAhost.exe\" /control TestControl");
    EXPECT_LE(duration([&] { EXPECT_TRUE(host.waitForOutput("failed: The server has no control to show. ")); }), 20000u);
    EXPECT_TRUE(host.waitForOutput("Exception: java.awt.HeadlessException")) << host.output();
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server);
    closeWindows(host);
}

TEST_F(FaultTest, AgentThatIsMissingFailsTheCreation)
{
    const auto fail = [&] {
        SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", "-agentpath:gone.dll");
        SManager manager;
        EXPECT_TRUE(FAILED(create(manager)));
        SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", nullptr);
        std::shared_ptr<CProcess> server = waitForNewServer({});
        EXPECT_TRUE(server);
        return server;
    };
    const std::shared_ptr<CProcess> detailed = fail();
    expectEnd(*detailed, 1);
    EXPECT_EQ(messages(detailed->id()).back(), "CJavaManagerJNIClient  About to call JNI_CreateJavaVM");

    // At the default level there is the harmless error of each start only.
    setLogLevel(WARNINGS);
    const std::shared_ptr<CProcess> server = fail();
    expectEnd(*server, 1);
    std::vector<std::string> told;
    for (const LogLine& line : lines(server->id())) {
        if (line.level == "ERROR" || line.level == "WARN") {
            told.push_back(messageOf(line));
        }
    }
    EXPECT_THAT(told, testing::ElementsAre("CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false"));
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
    expectFailures(20000, "nullDereference", "", [](Client& client) { EXPECT_EQ(client.call("echo", "there"), "there"); });
}

TEST_F(LongFaultTest, ExhaustedHeapFailsCallsAndCrashesNothing)
{
    setLogLevel(WARNINGS);
    settings.setPreference("jvm_option_heap", "-Xmx64m");
    const std::string text(256 * 1024, 'x');
    // Failed calls keep their texts, so the heap has no room left for another one's, and may have none for a short one.
    expectFailures(500, "throw", text, [&](Client& client) {
        const SCallResult answer = call(client.manager.object, client.callMethodId, "echo", text.c_str());
        EXPECT_EQ(answer.result, E_FAIL);
        EXPECT_THAT(answer.description, HasSubstr("Exception: java.lang.OutOfMemoryError"));
        const HRESULT result = client.result("echo", "there");
        EXPECT_TRUE(result == S_OK || result == E_FAIL) << result;
    });
}

TEST_F(LongFaultTest, MemoryDoesNotGrowWithDelayedEvents)
{
    setLogLevel(0);
    // Java compiles nothing, collects with one thread and uses its whole heap from the start: only the server can grow.
    settings.setPreference("jvm_option_interpreted", "-Xint");
    settings.setPreference("jvm_option_collector", "-XX:+UseSerialGC");
    settings.setPreference("jvm_option_heap", "-Xms32m");
    settings.setPreference("jvm_option_limit", "-Xmx32m");
    settings.setPreference("jvm_option_touch", "-XX:+AlwaysPreTouch");
    SManager manager = create();
    Client client(manager);
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
    // The threads that carry calls end some seconds after the last call, with their stacks.
    const auto privateBytesAtRest = [&] {
        EXPECT_TRUE(livesFor(*manager.server, 15000));
        const SIZE_T bytes = manager.server->privateBytes();
        std::printf("private bytes: %zu, with %zu threads\n", bytes, threadsOf(manager.server->id()).size());
        return bytes;
    };
    raise(10000);
    const SIZE_T before = privateBytesAtRest();
    raise(100000);
    const SIZE_T after = privateBytesAtRest();
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
    EXPECT_EQ(client.result("echo", "anybody"), HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
}

TEST_F(LongFaultTest, PaneThatHasAParentAgainAtTheCheckKeepsTheServer)
{
    SManager manager = create();
    Client client(manager);
    SetParent(client.window.pane(), nullptr);
    EXPECT_TRUE(livesFor(*manager.server, WATCHDOG_PERIOD / 3));
    SetParent(client.window.pane(), client.window.window());
    EXPECT_TRUE(livesFor(*manager.server, WATCHDOG_PERIOD + 2000));
    EXPECT_EQ(client.call("raise", "there"), "there");
    EXPECT_TRUE(pumpUntil([&] { return client.sink.has(CUSTOM_EVENT, "there"); }));
    client.connection.reset();
    release(manager);
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
    EXPECT_TRUE(IsWindowVisible(frame));
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
    EXPECT_THAT(warnings(manager.server->id()), testing::IsEmpty());
    client.connection.reset();
    release(manager);
}

// All threads of the process, also those of COM: "NtSuspendProcess" or "NtResumeProcess".
void stopOrGoOn(const char* function, const CProcess& process)
{
    const auto change = reinterpret_cast<LONG(WINAPI*)(HANDLE)>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("ntdll.dll"), function)));
    ASSERT_NE(change, nullptr);
    EXPECT_EQ(change(process.handle()), 0);
}

// Stops the client for a minute. Its events wait in the server's memory.
void stopInItsSink(const CProgram& client, const CProcess& server)
{
    constexpr SIZE_T MOST_MEMORY = 16 * 1024 * 1024; // for 6,000 events, and for what Java takes meanwhile
    stopOrGoOn("NtSuspendProcess", client.process());
    const SIZE_T before = server.privateBytes();
    EXPECT_EQ(server.exitCode(60000), std::nullopt);
    const SIZE_T after = server.privateBytes();
    std::printf("private bytes: %zu before, %zu after 60 s\n", before, after);
    EXPECT_LE(after, before + MOST_MEMORY);
}

TEST_F(LongFaultTest, ClientThatIsStoppedInItsSinkGetsEveryEventWhenItGoesOn)
{
    setLogLevel(WARNINGS);
    CProgram client(clientCommand("wait-in-sink"));
    ASSERT_TRUE(client.waitForOutput("waiting"));
    const CProcess server(onlyServer());
    stopInItsSink(client, server);
    stopOrGoOn("NtResumeProcess", client.process());
    client.send("go on");
    for (int events = 1000; events <= 6000; events += 1000) {
        ASSERT_TRUE(client.waitForOutput(std::format("got {0} events, {0} different", events))) << client.output();
    }
    client.send("end");
    EXPECT_EQ(client.process().exitCode(), 0u);
    expectEnd(server);
}

TEST_F(LongFaultTest, ClientThatIsStoppedInItsSinkAndDiesEndsItsServer)
{
    setLogLevel(WARNINGS);
    CProgram client(clientCommand("wait-in-sink"));
    ASSERT_TRUE(client.waitForOutput("waiting"));
    const CProcess server(onlyServer());
    stopInItsSink(client, server);
    client.process().kill(7);
    EXPECT_LE(duration([&] { expectEnd(server); }), LONGEST_WITHOUT_CLIENT);
}

// There is no window any more, but the check waits for the sink. Once the client has died, the server's wait for it fails.
TEST_F(LongFaultTest, ClientThatHangsInItsSinkAndDiesEndsItsServer)
{
    setLogLevel(WARNINGS);
    CProgram client(clientCommand("hang-in-sink"));
    ASSERT_TRUE(client.waitForOutput("hanging"));
    const CProcess server(onlyServer());
    EXPECT_TRUE(livesFor(server, 2 * WATCHDOG_PERIOD));
    stopOrGoOn("NtSuspendProcess", client.process());
    EXPECT_TRUE(livesFor(server, WATCHDOG_PERIOD));
    client.process().kill(7);
    EXPECT_LE(duration([&] { expectEnd(server); }), LONGEST_WITHOUT_CLIENT);
}

// The latest comes first, so the first one waits until the burst is over.
TEST_F(LongFaultTest, OverloadLosesNothingAndCallsAreAnsweredMeanwhile)
{
    constexpr size_t EVENTS = 20000;
    constexpr DWORD BURST = 20000; // ms
    setLogLevel(0);
    SManager manager = create();
    Client client(manager);
    bool isMarked = false;
    size_t seen = 0;
    ULONGLONG longest = 0;
    ULONGLONG longestOfOtherThread = 0;
    int callsOfOtherThread = 0;
    ULONGLONG end = 0;
    client.sink.reaction = [&](const CSink::Event& event) {
        if (event.text == "begin") {
            EXPECT_EQ(client.call("raise", "marked"), "marked");
            Sleep(100);
            EXPECT_EQ(client.call("burst", "5000;4;4"), "20000");
            Sleep(100);
            isMarked = true;
            end = GetTickCount64() + BURST;
        } else if (isMarked && GetTickCount64() < end + 2000) {
            Sleep(3);
        }
        if (++seen % 500 == 0) {
            longest = std::max(longest, duration([&] { EXPECT_EQ(client.call("echo", "there"), "there"); }));
        }
    };
    client.sink.events.clear();
    EXPECT_EQ(client.call("raise", "begin"), "begin");
    std::atomic<bool> isOver = false;
    std::thread other = onAnotherThread(manager, [&](IJavaManager* object) {
        for (; !isOver; ++callsOfOtherThread, Sleep(500)) {
            longestOfOtherThread =
                std::max(longestOfOtherThread, duration([&] { EXPECT_EQ(callMethod(object, "echo", "there"), "there"); }));
        }
    });
    EXPECT_TRUE(pumpUntil([&] { return client.sink.events.size() == EVENTS + 2; }, {}, 120000));
    isOver = true;
    other.join();
    EXPECT_EQ(client.sink.events.back().text, "marked");
    std::set<std::string> different;
    for (const CSink::Event& event : client.sink.events) {
        different.insert(event.text);
    }
    EXPECT_EQ(different.size(), EVENTS + 2) << "each once";
    std::printf("a call took at most %llu ms; of %d of the other thread, at most %llu ms\n", longest, callsOfOtherThread,
                longestOfOtherThread);
    EXPECT_LE(longest, 1000u);
    EXPECT_LE(longestOfOtherThread, 1000u);
    client.connection.reset();
    release(manager);
}

// Java cannot be interrupted: the watchdog's next check comes when the call has returned.
TEST_F(LongFaultTest, ClientThatDiesWhileJavaIsBusyEndsItsServerWhenTheCallReturns)
{
    CProgram client(clientCommand("sleep"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(waitForMessage(server->id(), "-> CJavaManagerATLObject  callMethod sleep, 60000"));
    client.process().kill(7);
    EXPECT_FALSE(server->exitCode(30000).has_value()) << "Java is still busy";
    EXPECT_TRUE(waitForMessage(server->id(), "<- CJavaManagerATLObject  callMethod sleep, 60000"));
    EXPECT_LE(duration([&] { expectEnd(*server); }), LONGEST_WITHOUT_CLIENT);
}

TEST_F(LongFaultTest, ControlThatHangsWhileItClosesKeepsTheServerAsLong)
{
    SManager manager = create();
    Client client(manager);
    EXPECT_EQ(client.call("blockClose", "20000"), "20000");
    client.connection.reset();
    const auto server = manager.server;
    const ULONGLONG held = duration([&] {
        manager.object.Release();
        expectEnd(*server);
    });
    EXPECT_GE(held, 20000u);
    EXPECT_LE(held, 25000u);
}

// The watchdog's release waits for the control as a client's does.
TEST_F(LongFaultTest, ControlThatHangsWhileItClosesKeepsTheServerOfADeadClientAsLong)
{
    CProgram client(clientCommand("block-close"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(client.waitForOutput("blocked"));
    client.process().kill(7);
    EXPECT_TRUE(waitForMessage(server->id(), std::format("CBeanFrame {} Releasing ATL object.", server->id())));
    EXPECT_FALSE(server->exitCode(15000).has_value());
    EXPECT_LE(duration([&] { expectEnd(*server); }), 20000u);
}

} // namespace
} // namespace fixtures
