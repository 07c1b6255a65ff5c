// Clients that go away without releasing their object.
//
// A client that dies before it has pushed its window leaves no watchdog. On Windows, COM then drops the dead client's references
// after some minutes without pings, which ends the server; Wine does not, and the test ends that server itself.
#include "tests/process/ServerFixture.h"

#include <algorithm>

namespace fixtures {
namespace {

constexpr DWORD CLOCK_STEP = 100; // by which the clocks of two processes may differ

class GoneClientTest : public ServerTest
{
protected:
    // The watchdog releases the object, no matter how often it has to, and the process ends as usual.
    void expectForcedRelease(const CProcess& server)
    {
        expectEnd(server);
        const std::string frame = "CBeanFrame " + std::to_string(server.id()) + " ";
        const std::vector<std::string> expected = {
            frame + "Client seems to be not alive... releasing event sinks.",
            frame + "Releasing ATL object.",
            "-> CJavaManagerATLObject  ~CJavaManagerATLObject ",
            "-> " + frame + "~CBeanFrame ",
            "Releasing all sinks and objects done",
            "CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.",
        };
        std::vector<std::string> found = messages(server.id());
        std::erase_if(found, [&](const std::string& message) { return std::ranges::count(expected, message) == 0; });
        EXPECT_EQ(found, expected);
    }
};

TEST_F(GoneClientTest, DestroyedWindowEndsTheServerOfALivingProcess)
{
    SManager manager = create();
    const DWORD id = manager.server->id();
    CClientWindow window;
    CSink sink;
    CConnection connection(manager.object, sink);
    const ULONGLONG begin = GetTickCount64();
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    ASSERT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
    EXPECT_EQ(callMethod(manager.object, "raise", "before"), "before");
    ASSERT_TRUE(pumpUntil([&] { return sink.has(CUSTOM_EVENT, "before"); }));
    // The client's other references do not keep the server either.
    ATL::CComPtr<IConnectionPointContainer> container;
    ATL::CComPtr<IEnumConnectionPoints> points;
    ATL::CComPtr<IConnectionPoint> point;
    ATL::CComPtr<IEnumConnections> connections;
    ASSERT_EQ(manager->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container)), S_OK);
    ASSERT_EQ(container->EnumConnectionPoints(&points), S_OK);
    ASSERT_EQ(container->FindConnectionPoint(DIID__IJavaManagerEvents, &point), S_OK);
    ASSERT_EQ(point->EnumConnections(&connections), S_OK);

    window.destroy();
    EXPECT_EQ(callMethod(manager.object, "raise", "after"), "after");
    EXPECT_EQ(manager->testBridge(ATL::CComBSTR("late"), 3, 0), S_OK);
    const std::string frame = "CBeanFrame " + std::to_string(id) + " ";
    EXPECT_TRUE(waitForMessage(id, frame + "Frame's window seems not to be alive anymore! (invalid window handle) "));
    EXPECT_TRUE(waitForMessage(id, frame + "Dropped custom event, client seems to be not alive anymore..."));
    EXPECT_TRUE(waitForMessage(id, frame + "Dropped TestBridgeEvent, client seems to be not alive anymore..."));

    EXPECT_TRUE(waitForMessage(id, frame + "Releasing ATL object."));
    EXPECT_LE(begin + WATCHDOG_PERIOD - CLOCK_STEP, GetTickCount64());
    expectForcedRelease(*manager.server);
    EXPECT_EQ(sink.events.size(), 2u);
    // The client's references lead nowhere now.
    EXPECT_EQ(callMethod(manager.object, "echo", "anybody there"), "(failed)");
}

TEST_F(GoneClientTest, TopLevelWindowCountsAsDeadAndAHandlePushedTwiceIsWatchedAsTheLatest)
{
    SManager manager = create();
    const DWORD id = manager.server->id();
    CClientWindow window;
    CSink sink;
    CConnection connection(manager.object, sink);
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    ASSERT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
    ASSERT_EQ(manager->pushWindowHandle(static_cast<int>(reinterpret_cast<INT_PTR>(window.window()))), S_OK);

    EXPECT_EQ(callMethod(manager.object, "raise", "lost"), "lost");
    const std::string frame = "CBeanFrame " + std::to_string(id) + " ";
    EXPECT_TRUE(waitForMessage(id, frame + "Frame's window has no valid parent anymore!"));
    EXPECT_TRUE(waitForMessage(id, frame + "Dropped custom event, client seems to be not alive anymore..."));
    EXPECT_EQ(countMessages(id, "-> " + frame + "queueEvent 15000"), 2u);

    // Two chains, and the latest handle in both: a good one keeps the server.
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    EXPECT_EQ(callMethod(manager.object, "raise", "kept"), "kept");
    EXPECT_TRUE(pumpUntil([&] { return sink.has(CUSTOM_EVENT, "kept"); }));
    connection.end();
    release(manager);
    EXPECT_EQ(countMessages(id, frame + "Releasing ATL object."), 0u);
}

TEST_F(GoneClientTest, TopLevelWindowThatIsPushedLastEndsTheServer)
{
    SManager manager = create();
    CClientWindow window;
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    ASSERT_EQ(manager->pushWindowHandle(static_cast<int>(reinterpret_cast<INT_PTR>(window.window()))), S_OK);
    expectForcedRelease(*manager.server);
    EXPECT_EQ(countMessages(manager.server->id(), "-> CBeanFrame " + std::to_string(manager.server->id()) + " queueEvent 15000"),
              2u);
}

TEST_F(GoneClientTest, ProcessThatDiesInsideItsSinkEndsItsServer)
{
    CProgram client(clientCommand("die-in-sink"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    EXPECT_EQ(client.process().exitCode(), 7u);
    const ULONGLONG death = GetTickCount64();
    expectForcedRelease(*server);
    EXPECT_LE(GetTickCount64() - death, WATCHDOG_PERIOD + 2000);
    // Events were on their way when it died, and Java went on raising.
    EXPECT_LT(0u, countMessages(server->id(), "CBeanFrame " + std::to_string(server->id()) +
                                                  " Dropped custom event, client seems to be not alive anymore..."));
}

TEST_F(GoneClientTest, ProcessThatDiesBeforeItPushedItsWindowLeavesAServerThatGoesOn)
{
    CProgram client(clientCommand("hold-unpushed"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    client.process().kill(9);
    EXPECT_EQ(client.process().exitCode(), 9u);
    EXPECT_TRUE(server->isRunning());
    EXPECT_EQ(countMessages(server->id(), "-> CBeanFrame " + std::to_string(server->id()) + " queueEvent 15000"), 0u);
    // Nothing else ends it here.
    expectExit(server->id(), ERROR_PROCESS_ABORTED);
    server->kill(ERROR_PROCESS_ABORTED);
}

} // namespace
} // namespace fixtures
