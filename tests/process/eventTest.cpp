// Events of the control at the client's sinks.
#include "tests/process/ServerFixture.h"

#include <format>
#include <set>

namespace fixtures {
namespace {

using ATL::CComBSTR;

// How many presses of a mouse button the pane was told of by its child windows.
int s_pressesTold = 0;
WNDPROC s_paneProcedure = nullptr;

LRESULT CALLBACK countPresses(HWND pane, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_PARENTNOTIFY && LOWORD(wParam) == WM_LBUTTONDOWN) {
        ++s_pressesTold;
    }
    return CallWindowProcA(s_paneProcedure, pane, message, wParam, lParam);
}

class EventTest : public ServerTest
{
protected:
    // The threads that have logged a message beginning like this.
    std::set<DWORD> threadsOf(DWORD process, const std::string& beginning)
    {
        std::set<DWORD> threads;
        for (const LogLine& line : lines(process)) {
            if (messageOf(line).starts_with(beginning)) {
                threads.insert(line.thread);
            }
        }
        return threads;
    }

    // With the mouse.
    // Both inputs have their place with them, so that nothing that moves the mouse in between moves the click.
    static void click(POINT place)
    {
        constexpr LONG WHOLE = 65536; // the screen's width and height in an input
        const LONG width = GetSystemMetrics(SM_CXSCREEN);
        const LONG height = GetSystemMetrics(SM_CYSCREEN);
        INPUT inputs[2] = {};
        for (INPUT& input : inputs) {
            input.type = INPUT_MOUSE;
            input.mi.dx = (place.x * WHOLE + width - 1) / width;
            input.mi.dy = (place.y * WHOLE + height - 1) / height;
            input.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE;
        }
        inputs[0].mi.dwFlags |= MOUSEEVENTF_LEFTDOWN;
        inputs[1].mi.dwFlags |= MOUSEEVENTF_LEFTUP;
        ASSERT_EQ(SendInput(2, inputs, sizeof *inputs), 2u);
    }
    // Wine now and then leaves a click in the queue of the frame's thread until the next input. A hand never holds the mouse
    // still.
    static bool clickUntil(POINT place, const std::function<bool()>& done)
    {
        constexpr DWORD STILL = 500; // ms
        click(place);
        const ULONGLONG deadline = GetTickCount64() + TIME_LIMIT;
        LONG step = 0;
        while (!pumpUntil(done, {}, STILL)) {
            if (GetTickCount64() > deadline) {
                return false;
            }
            step = 1 - step;
            SetCursorPos(place.x + step, place.y);
        }
        return true;
    }
    // What there is to know of a click that nobody has heard.
    static std::string aboutTheClick(POINT place, const CSink& sink)
    {
        POINT mouse = {};
        GetCursorPos(&mouse);
        char hit[64] = "";
        GetWindowTextA(WindowFromPoint(place), hit, sizeof hit);
        char foreground[64] = "";
        GetWindowTextA(GetForegroundWindow(), foreground, sizeof foreground);
        std::string text =
            std::format("clicked at {},{}, the mouse is at {},{}, there is \"{}\", the foreground has \"{}\", events:", place.x,
                        place.y, mouse.x, mouse.y, hit, foreground);
        for (const CSink::Event& event : sink.events) {
            text += std::format(" {} \"{}\"", event.id, event.text);
        }
        return text;
    }
};

TEST_F(EventTest, ClickOnTheButtonReachesTheSinkOnTheServersMainThread)
{
    SManager manager = create();
    CClientWindow window;
    CSink sink;
    CConnection connection(manager.object, sink);
    ASSERT_TRUE(window.takeIn(manager.frameId()));
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    ASSERT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
    EXPECT_EQ(callMethod(manager.object, "setText", "typed"), "typed");

    // The button is in the control's lower right corner.
    const HWND frame =
        FindWindowExA(window.pane(), nullptr, nullptr, ("kesta_frame_" + std::to_string(manager.frameId())).c_str());
    ASSERT_NE(frame, nullptr);
    RECT pane = {};
    RECT area = {};
    GetClientRect(window.pane(), &pane);
    ASSERT_TRUE(pumpUntil([&] { return GetClientRect(frame, &area) && EqualRect(&area, &pane); }));
    POINT button = {area.right - 40, area.bottom - 25};
    ClientToScreen(frame, &button);
    ASSERT_TRUE(pumpUntil([&] { return WindowFromPoint(button) == frame; }));
    s_pressesTold = 0;
    s_paneProcedure =
        reinterpret_cast<WNDPROC>(SetWindowLongPtrA(window.pane(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(countPresses)));
    ASSERT_TRUE(clickUntil(button, [&] { return sink.has(CUSTOM_EVENT, "button: typed"); })) << aboutTheClick(button, sink);
    EXPECT_EQ(GetCurrentThreadId(), sink.events.back().thread);
    EXPECT_EQ(s_pressesTold, 1);
    // Which a style of the frame spares the pane.
    SetWindowLongPtrA(frame, GWL_EXSTYLE, GetWindowLongPtrA(frame, GWL_EXSTYLE) | WS_EX_NOPARENTNOTIFY);
    EXPECT_TRUE(clickUntil(button, [&] { return sink.count(CUSTOM_EVENT, "button: typed") == 2; }))
        << aboutTheClick(button, sink);
    EXPECT_EQ(s_pressesTold, 1);
    connection.end();
    release(manager);
    const DWORD id = manager.server->id();
    const std::set<DWORD> mainThread = threadsOf(id, "-> WinMain ");
    EXPECT_EQ(mainThread.size(), 1u);
    EXPECT_EQ(threadsOf(id, "-> CBeanFrame " + std::to_string(id) + " processOnCustomEvent button: typed"), mainThread);
    // It was raised on another one, Java's event thread.
    const std::set<DWORD> raised = threadsOf(id, "-> CBeanFrame " + std::to_string(id) + " enqueueOnCustomEvent button: typed");
    EXPECT_EQ(raised.size(), 1u);
    EXPECT_NE(raised, mainThread);
}

TEST_F(EventTest, TestBridgeTurnsRoundAtEveryHop)
{
    SManager manager = create();
    CSink sink;
    CConnection connection(manager.object, sink);
    const auto expectAnswer = [&](const char* text, int ttl, int delay, const std::string& answer) {
        EXPECT_EQ(manager->testBridge(CComBSTR(text), ttl, delay), S_OK);
        EXPECT_TRUE(pumpUntil([&] { return sink.has(TEST_BRIDGE_EVENT, answer); })) << answer;
    };
    expectAnswer("abc", 1, 0, "abcSs");
    expectAnswer("abc", 0, 5, "abcSs (delayed only when passed through bean)");
    expectAnswer("abc", 2, 0, "abcSJjs");
    expectAnswer("abc", 3, 0, "abcSJBbjs");

    const ULONGLONG begin = GetTickCount64();
    expectAnswer("late", 5, 500, "lateSJBbjs");
    EXPECT_LE(begin + 500, sink.events.back().time);

    EXPECT_EQ(manager->testBridge(CComBSTR("error-x"), 1, 0), E_FAIL);
    EXPECT_TRUE(pumpUntil([&] { return sink.has(TEST_BRIDGE_EVENT, "error-xSs"); }));
    EXPECT_EQ(sink.events.size(), 6u);
    connection.end();
    release(manager);
}

TEST_F(EventTest, TenThousandEventsFromFourThreadsReachTwoSinks)
{
    constexpr size_t THREADS = 4;
    constexpr size_t EVENTS = 2500;
    setLogLevel(WARNINGS);
    SManager manager = create();
    CSink sinks[2];
    CConnection first(manager.object, sinks[0]);
    CConnection second(manager.object, sinks[1]);
    EXPECT_EQ(callMethod(manager.object, "burst", "2500;4"), "10000");
    // A busy computer may take its time, as long as events keep coming.
    const auto received = [&] { return sinks[0].events.size() + sinks[1].events.size(); };
    size_t before = 0;
    while (before < 2 * THREADS * EVENTS && pumpUntil([&] { return received() > before; })) {
        before = received();
    }
    // An event raised after all the others, and the end of the process, show that nothing follows.
    EXPECT_EQ(callMethod(manager.object, "raise", "last"), "last");
    EXPECT_TRUE(pumpUntil([&] { return sinks[0].has(CUSTOM_EVENT, "last") && sinks[1].has(CUSTOM_EVENT, "last"); }));
    first.end();
    second.end();
    release(manager);

    std::multiset<std::string> expected = {"last"};
    for (size_t thread = 1; thread <= THREADS; ++thread) {
        for (size_t number = 1; number <= EVENTS; ++number) {
            expected.insert("burst 1." + std::to_string(thread) + "." + std::to_string(number));
        }
    }
    for (const CSink& sink : sinks) {
        std::multiset<std::string> texts;
        for (const CSink::Event& event : sink.events) {
            EXPECT_EQ(event.id, CUSTOM_EVENT);
            texts.insert(event.text);
        }
        EXPECT_TRUE(texts == expected) << texts.size() << " events";
    }
}

TEST_F(EventTest, EventsOfFourThreadsAreAllFiredOnTheMainThread)
{
    SManager manager = create();
    CSink sink;
    CConnection connection(manager.object, sink);
    EXPECT_EQ(callMethod(manager.object, "burst", "50;4"), "200");
    EXPECT_TRUE(pumpUntil([&] { return sink.events.size() == 200; }));
    connection.end();
    release(manager);
    const DWORD id = manager.server->id();
    const std::string raise = "-> CBeanFrame " + std::to_string(id) + " enqueueOnCustomEvent burst 1.";
    const std::string fire = "-> CBeanFrame " + std::to_string(id) + " processOnCustomEvent burst 1.";
    EXPECT_EQ(threadsOf(id, raise).size(), 4u);
    EXPECT_EQ(threadsOf(id, fire), threadsOf(id, "-> WinMain "));
}

TEST_F(EventTest, SinkThatUnadvisesItselfGetsNothingMoreAndTheOtherEverything)
{
    SManager manager = create();
    CSink leaving;
    CSink staying;
    CConnection first(manager.object, leaving);
    CConnection second(manager.object, staying);
    EXPECT_EQ(first.cookie(), 1u);
    EXPECT_EQ(second.cookie(), 2u);
    leaving.reaction = [&](const CSink::Event&) { first.end(); };
    callMethod(manager.object, "raise", "one");
    EXPECT_TRUE(pumpUntil([&] { return staying.has(CUSTOM_EVENT, "one"); }));
    callMethod(manager.object, "raise", "two");
    EXPECT_TRUE(pumpUntil([&] { return staying.has(CUSTOM_EVENT, "two"); }));
    EXPECT_EQ(leaving.events.size(), 1u);
    EXPECT_EQ(staying.events.size(), 2u);
    second.end();
    release(manager);
}

TEST_F(EventTest, FailingSinkDoesNotKeepTheOthersFromTheirEvents)
{
    SManager manager = create();
    CSink failing;
    CSink working;
    failing.answer = E_FAIL;
    CConnection first(manager.object, failing);
    CConnection second(manager.object, working);
    callMethod(manager.object, "raise", "one");
    callMethod(manager.object, "raise", "two");
    EXPECT_TRUE(pumpUntil([&] { return working.has(CUSTOM_EVENT, "one") && working.has(CUSTOM_EVENT, "two"); }));
    EXPECT_EQ(failing.events.size(), 2u);
    first.end();
    second.end();
    release(manager);
}

TEST_F(EventTest, SinkThatCallsBackIsAnswered)
{
    SManager manager = create();
    CSink sink;
    CConnection connection(manager.object, sink);
    std::vector<std::string> answers;
    sink.reaction = [&](const CSink::Event& event) {
        if (event.text == "ask") {
            answers.push_back(callMethod(manager.object, "echo", "answer"));
            answers.push_back(callMethod(manager.object, "raise", "raised inside"));
            answers.push_back(callMethod(manager.object, "throw", "inside"));
        }
    };
    callMethod(manager.object, "raise", "ask");
    EXPECT_TRUE(pumpUntil([&] { return sink.has(CUSTOM_EVENT, "raised inside"); }));
    EXPECT_EQ((std::vector<std::string>{"answer", "raised inside", "(failed)"}), answers);
    connection.end();
    release(manager);
}

TEST_F(EventTest, SinkThatReleasesTheObjectEndsTheServerAfterTheEventHasGoneToAll)
{
    SManager manager = create();
    CSink releasing;
    CSink other;
    CConnection first(manager.object, releasing);
    CConnection second(manager.object, other);
    releasing.reaction = [&](const CSink::Event&) {
        releasing.reaction = nullptr;
        first.abandon();
        second.abandon();
        manager.object.Release();
    };
    callMethod(manager.object, "raise", "one");
    expectEnd(*manager.server);
    EXPECT_EQ(releasing.count(CUSTOM_EVENT, "one"), 1u);
    EXPECT_EQ(other.count(CUSTOM_EVENT, "one"), 1u);
    // The server has released both.
    EXPECT_EQ(releasing.references(), 0u);
    EXPECT_EQ(other.references(), 0u);
}

TEST_F(EventTest, SinkThatBlocksHoldsUpOtherSinksButNotJava)
{
    constexpr size_t EVENTS = 100;
    SManager manager = create();
    const DWORD id = manager.server->id();
    const std::string lastRaised =
        "<- CBeanFrame " + std::to_string(id) + " enqueueOnCustomEvent burst 1.1." + std::to_string(EVENTS);
    CSink blocking;
    CSink other;
    CConnection first(manager.object, blocking);
    CConnection second(manager.object, other);
    blocking.reaction = [&](const CSink::Event&) {
        blocking.reaction = nullptr;
        // A sink that handles no messages, until Java has raised everything.
        while (countMessages(id, lastRaised) == 0 && WaitForSingleObject(monitor.changed(), TIME_LIMIT) == WAIT_OBJECT_0) {
        }
        EXPECT_EQ(countMessages(id, lastRaised), 1u);
        pumpUntil([] { return false; }, {}, 0);
        EXPECT_EQ(blocking.events.size(), 1u);
        EXPECT_EQ(other.events.size(), 0u);
    };
    EXPECT_EQ(callMethod(manager.object, "burst", "100;1"), "100");
    EXPECT_TRUE(pumpUntil([&] { return other.events.size() == EVENTS; }));
    EXPECT_EQ(blocking.events.size(), EVENTS);
    first.end();
    second.end();
    release(manager);
    EXPECT_EQ(countMessages(id, "-> NativeOnCustomEvent "), EVENTS);
    EXPECT_EQ(countMessages(id, "<- NativeOnCustomEvent "), EVENTS);
}

TEST_F(EventTest, StartAndReleaseWhileFourThreadsFire)
{
    setLogLevel(WARNINGS);
    CClientWindow window;
    for (int cycle = 1; cycle <= cycles(5); ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        SManager manager = create();
        CSink sink;
        CConnection connection(manager.object, sink);
        if (cycle % 2 == 0) {
            EXPECT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
        }
        // As fast as they can, or with pauses that leave the other threads some time.
        EXPECT_EQ(callMethod(manager.object, "burst", cycle % 5 == 1 ? "100000000;4" : "100000000;4;1"), "400000000");
        EXPECT_TRUE(pumpUntil([&] { return sink.events.size() > 100; }));
        // Released while Java keeps raising, in half of the cycles with the sink still connected.
        if (cycle % 4 < 2) {
            connection.end();
        } else {
            connection.abandon();
        }
        manager.object.Release();
        expectEnd(*manager.server);
        if (HasFailure()) {
            break;
        }
    }
}

} // namespace
} // namespace fixtures
