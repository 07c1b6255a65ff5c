// A pane with a live server: its windows, calls, events and errors.
#include "tests/client/PaneFixture.h"
#include "tests/client/paneInC.h"

#include <gmock/gmock.h>

#include <format>
#include <thread>

namespace fixtures {
namespace {

TEST_F(PaneTest, IsThereAtOnceAndReadyLater)
{
    std::unique_ptr<Pane> pane;
    const ULONGLONG begin = GetTickCount64();
    pane = open();
    EXPECT_LE(GetTickCount64() - begin, 200u);
    ASSERT_NE(pane, nullptr);
    EXPECT_EQ(GetParent(pane->window()), window.handle());
    EXPECT_FALSE(pane->isReady());
    EXPECT_FALSE(pane->focus()) << "there is nothing yet to take it";
    awaitReady(record);
    EXPECT_TRUE(pane->isReady());
    ASSERT_EQ(record.readies.size(), 1u);
    EXPECT_EQ(record.readies.front().rfind(L"TestControl;", 0), 0u);
    EXPECT_EQ(processesNamed("KESTAx64.exe"), std::vector<DWORD>{pane->process()});
    EXPECT_TRUE(record.hasEvent(EventKind::CONTROL_READY, L"QMRTWinControl 1.0.0"));
    EXPECT_FALSE(record.isOtherThread);
    EXPECT_TRUE(record.ended.empty());
}

TEST_F(PaneTest, IsReadyOnlyAfterTheControlHasSaidThatItCanBeSeen)
{
    kesta::Handlers handlers = record.handlers();
    bool hasSaidSo = false;
    handlers.ready = [&](const std::wstring& control) {
        hasSaidSo = record.hasEvent(EventKind::CONTROL_READY, L"QMRTWinControl 1.0.0");
        record.readies.push_back(control);
    };
    const auto pane = Pane::create(window.handle(), PLACE, options(), handlers);
    awaitReady(record);
    EXPECT_TRUE(hasSaidSo);
}

TEST_F(PaneTest, ShowsTheFrameInAHolderThatTheServerWatches)
{
    const auto pane = openReady();
    const HWND frame = frameOf(*pane);
    DWORD process = 0;
    GetWindowThreadProcessId(frame, &process);
    EXPECT_EQ(process, pane->process());
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(GetWindowLongPtrW(frame, GWL_STYLE) & static_cast<LONG_PTR>(WS_CHILD | WS_POPUP | WS_CAPTION), WS_CHILD);
    EXPECT_NE(GetWindowLongPtrW(frame, GWL_EXSTYLE) & WS_EX_NOPARENTNOTIFY, 0);
    MoveWindow(pane->window(), 0, 0, 500, 350, TRUE);
    EXPECT_TRUE(fills(*pane)) << "after a new size";
    RECT area = {};
    GetClientRect(frame, &area);
    EXPECT_EQ(area.right, 500);
    const int pushed = static_cast<int>(reinterpret_cast<INT_PTR>(holderOf(*pane)));
    EXPECT_THAT(messages(process), testing::Contains(testing::HasSubstr(std::format("pushWindowHandle {}", pushed))));
}

TEST_F(PaneTest, CallsAreAnsweredInTheirOrderOnThePanesThread)
{
    const auto pane = open();
    std::vector<std::wstring> answers;
    bool isOtherThread = false;
    const auto note = [&, thread = GetCurrentThreadId()](const kesta::Result& result) {
        isOtherThread = isOtherThread || GetCurrentThreadId() != thread;
        answers.push_back(result.text);
    };
    pane->set(L"text", L"before the start's end", note);
    pane->get(L"text", note);
    pane->call(L"echo", L"echoed", note);
    pane->invoke(7, {}, note); // getBasisControlVersionInfo
    pane->enable(true, note);
    EXPECT_TRUE(pumpUntil([&] { return answers.size() == 5; }));
    EXPECT_THAT(answers, testing::ElementsAre(L"before the start's end", L"before the start's end", L"echoed",
                                              L"ORVANEControl 1.0.0", L""));
    EXPECT_FALSE(isOtherThread);
    EXPECT_EQ(record.readies.size(), 1u) << "before the first answer";
}

TEST_F(PaneTest, OtherThreadsCallAndWait)
{
    const auto pane = openReady();
    std::wstring answer;
    bool isDone = false;
    std::thread other([&] {
        answer = pane->call(L"echo", L"from the other thread").wait(milliseconds(20000)).text;
        isDone = true;
        PostMessageW(pane->window(), WM_NULL, 0, 0);
    });
    EXPECT_TRUE(pumpUntil([&] { return isDone; }));
    other.join();
    EXPECT_EQ(answer, L"from the other thread");
    EXPECT_EQ(pane->call(L"echo", L"from this one").wait(milliseconds(20000)).text, L"from this one");
}

TEST_F(PaneTest, EventsOfTheControlArrive)
{
    const auto pane = openReady();
    EXPECT_EQ(call(*pane, L"raise", L"first"), L"first");
    EXPECT_TRUE(pumpUntil([&] { return record.hasEvent(EventKind::CUSTOM, L"first"); }));
    setLogLevel(WARNINGS);
    record.events.clear();
    EXPECT_EQ(call(*pane, L"burst", L"300"), L"300");
    EXPECT_TRUE(pumpUntil([&] { return record.events.size() == 300; }));
    for (int number = 1; number <= 300; ++number) {
        ASSERT_TRUE(record.hasEvent(EventKind::CUSTOM, std::format(L"burst 1.1.{}", number)));
    }
    pane->invoke(17, {L"bridge", 1, 0}); // testBridge
    EXPECT_TRUE(pumpUntil([&] { return record.hasEvent(EventKind::TEST_BRIDGE, L"bridgeSs"); }));
}

TEST_F(PaneTest, FailingCallBringsTheControlsReason)
{
    const auto pane = openReady();
    const kesta::Result result = pane->call(L"throw", L"on purpose").wait(milliseconds(20000));
    EXPECT_EQ(result.hr, E_FAIL);
    EXPECT_NE(result.text.find(L"Exception: java.lang.IllegalStateException: on purpose"), std::wstring::npos);
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
}

TEST_F(PaneTest, HandlerThatThrowsIsToldAndHarmsNothing)
{
    kesta::Handlers handlers = record.handlers();
    std::wstring problem;
    handlers.event = [](EventKind, const std::wstring&) { throw std::runtime_error("on purpose"); };
    handlers.problem = [&](const std::wstring& text) { problem = text; };
    const auto pane = Pane::create(window.handle(), PLACE, options(), handlers);
    awaitReady(record);
    EXPECT_EQ(problem, L"A handler of the pane has thrown: on purpose");
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
}

TEST_F(PaneTest, HandlerMayDestroyThePane)
{
    std::unique_ptr<Pane> pane;
    kesta::Handlers handlers = record.handlers();
    handlers.event = [&](EventKind, const std::wstring&) { pane.reset(); };
    pane = Pane::create(window.handle(), PLACE, options(), handlers);
    EXPECT_TRUE(pumpUntil([&] { return pane == nullptr; }));
    EXPECT_EQ(GetWindow(window.handle(), GW_CHILD), nullptr);
    EXPECT_TRUE(record.readies.empty());
}

// A client's window may close in the handler of a message that the focus's way into the control sends.
TEST_F(PaneTest, ClientMayDestroyThePaneWhileItTakesTheFocus)
{
    static std::unique_ptr<Pane> s_pane;
    const HWND field =
        CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE, 420, 0, 100, 24, window.handle(), nullptr, nullptr, nullptr);
    const WNDPROC destroying = [](HWND target, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_KILLFOCUS) {
            s_pane.reset();
        }
        return DefWindowProcW(target, message, wParam, lParam);
    };
    SetFocus(field);
    s_pane = openReady();
    SetWindowLongPtrW(field, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(destroying));
    EXPECT_FALSE(s_pane->focus());
    EXPECT_EQ(s_pane, nullptr);
}

// A message that another thread has sent is handled while the pane waits for the frame.
TEST_F(PaneTest, ClientMayDestroyThePaneWhileItsFrameIsAsked)
{
    static std::unique_ptr<Pane> s_pane;
    const WNDPROC destroying = [](HWND target, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_APP) {
            s_pane.reset();
        }
        return DefWindowProcW(target, message, wParam, lParam);
    };
    s_pane = openReady();
    SetWindowLongPtrW(window.handle(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(destroying));
    std::thread sender([target = window.handle()] { SendMessageW(target, WM_APP, 0, 0); });
    while ((HIWORD(GetQueueStatus(QS_SENDMESSAGE)) & QS_SENDMESSAGE) == 0) {
        Sleep(1);
    }
    EXPECT_FALSE(s_pane->focus());
    EXPECT_EQ(s_pane, nullptr);
    sender.join();
}

TEST_F(PaneTest, CompletionMayThrowAndDestroyThePane)
{
    kesta::Handlers handlers = record.handlers();
    std::wstring problem;
    handlers.problem = [&](const std::wstring& text) { problem = text; };
    auto pane = Pane::create(window.handle(), PLACE, options(), handlers);
    pane->call(L"echo", L"first", [](const kesta::Result&) { throw 1; });
    pane->call(L"echo", L"second", [&](const kesta::Result&) {
        pane.reset();
        throw std::runtime_error("thrown at the end");
    });
    pane->call(L"echo", L"third", [](const kesta::Result&) { ADD_FAILURE() << "its pane is gone"; });
    EXPECT_TRUE(pumpUntil([&] { return pane == nullptr; }));
    EXPECT_EQ(problem, L"A handler of the pane has thrown: thrown at the end");
    pumpUntil([] { return false; }, {}, 300);
}

TEST_F(PaneTest, ThrownTextIsToldWhole)
{
    kesta::Handlers handlers = record.handlers();
    std::wstring problem;
    handlers.ready = [](const std::wstring&) { throw std::runtime_error("Troms\xC3\xB8"); };
    handlers.problem = [&](const std::wstring& text) { problem = text; };
    const auto pane = Pane::create(window.handle(), PLACE, options(), handlers);
    EXPECT_TRUE(pumpUntil([&] { return !problem.empty(); }));
    EXPECT_EQ(problem, L"A handler of the pane has thrown: Troms\u00F8");
}

// What they hold may belong to it.
TEST_F(PaneTest, CompletionsAreDestroyedOnThePanesThread)
{
    DWORD thread = 0;
    const auto noting = [&] {
        return std::shared_ptr<int>(new int(0), [&](const int* held) {
            thread = GetCurrentThreadId();
            delete held;
        });
    };
    const auto pane = openReady();
    kesta::Call kept = pane->call(L"echo", L"kept", [held = noting()](const kesta::Result&) {});
    EXPECT_TRUE(pumpUntil([&] { return thread != 0; }, {}, 5000)) << "while the call is kept";
    EXPECT_EQ(thread, GetCurrentThreadId());
    thread = 0;
    kept = pane->call(L"sleep", L"300", [held = noting()](const kesta::Result&) {});
    kept.cancel();
    EXPECT_TRUE(pumpUntil([&] { return thread != 0; }, {}, 5000)) << "when it was cancelled";
    EXPECT_EQ(thread, GetCurrentThreadId());
}

TEST_F(PaneTest, HandlerHearsWhenTheFocusComesAndGoes)
{
    const HWND field =
        CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE, 420, 0, 100, 24, window.handle(), nullptr, nullptr, nullptr);
    kesta::Handlers handlers = record.handlers();
    std::vector<bool> told;
    handlers.focusChanged = [&](bool inControl) { told.push_back(inControl); };
    const auto pane = Pane::create(window.handle(), PLACE, options(), handlers);
    awaitReady(record);
    SetForegroundWindow(window.handle());
    SetFocus(field);
    EXPECT_TRUE(pane->focus());
    EXPECT_TRUE(told.empty()) << "never inside one of the pane's functions";
    EXPECT_TRUE(pumpUntil([&] { return told == std::vector<bool>{true}; }, {}, 5000));
    SetFocus(field);
    EXPECT_TRUE(pumpUntil([&] { return told == std::vector<bool>{true, false}; }, {}, 5000));
    EXPECT_TRUE(pane->focus());
    EXPECT_TRUE(pumpUntil([&] { return told.size() == 3; }, {}, 5000));
    killed(pane->process())->kill(kesta::ENDED_BY_CLIENT);
    EXPECT_TRUE(pumpUntil([&] { return told.size() == 4; }, {}, 5000)) << "it has gone with the control";
    EXPECT_FALSE(told.back());
}

TEST_F(PaneTest, ProgramMayGoOnStepByStep)
{
    const auto pane = open();
    PostQuitMessage(7);
    const kesta::Result early = pane->waitReady(milliseconds(50));
    EXPECT_EQ(early.hr, kesta::TIMED_OUT);
    EXPECT_EQ(early.text, L"The control was not there within 50 ms; at that time the pane was starting the server.");
    MSG message;
    EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) << "the program's loop ends with it";
    EXPECT_EQ(message.wParam, 7u);
    PostMessageW(window.handle(), WM_NULL, 0, 0);
    const kesta::Result ready = pane->waitReady(milliseconds(40000));
    EXPECT_TRUE(ready) << "error " << ready.hr;
    EXPECT_EQ(ready.text.rfind(L"TestControl;", 0), 0u);
    EXPECT_EQ(pane->call(L"echo", L"there").wait(milliseconds(20000)).text, L"there");
    EXPECT_TRUE(record.readies.empty() && record.events.empty()) << "handlers come later";
    EXPECT_TRUE(PeekMessageW(&message, window.handle(), WM_NULL, WM_NULL, PM_REMOVE)) << "other messages are left alone";
    std::vector<std::wstring> order;
    pane->call(L"echo", L"answered", [&](const kesta::Result& result) {
        order = record.readies;
        order.push_back(result.text);
    });
    EXPECT_TRUE(pumpUntil([&] { return !order.empty(); }));
    EXPECT_EQ(order, (std::vector<std::wstring>{ready.text, L"answered"}));
    EXPECT_EQ(pane->waitReady(milliseconds(0)).text, ready.text);
}

TEST_F(PaneTest, WaitForAControlThatIsNotThereEndsWithTheReason)
{
    kesta::Options wrong = options();
    wrong.control = L"Nowhere";
    const auto pane = open(wrong);
    const ULONGLONG begin = GetTickCount64();
    const kesta::Result result = pane->waitReady(milliseconds(40000));
    EXPECT_LT(GetTickCount64() - begin, 40000u) << "it waits for nothing that cannot come";
    EXPECT_EQ(result.hr, E_FAIL);
    EXPECT_EQ(result.text.rfind(L"The control \"Nowhere\" is not there. ", 0), 0u);
    EXPECT_TRUE(record.ended.empty()) << "handlers come later";
    EXPECT_TRUE(pumpUntil([&] { return record.ended.size() == 1; }));
}

TEST_F(PaneTest, EndOfAServerThatWasReplacedDuringTheWaitIsNotToldLater)
{
    kesta::Options wrong = options();
    wrong.control = L"Nowhere";
    const auto pane = open(wrong);
    EXPECT_EQ(pane->waitReady(milliseconds(40000)).hr, E_FAIL);
    pane->restart();
    EXPECT_EQ(pane->waitReady(milliseconds(40000)).hr, E_FAIL);
    pumpUntil([] { return false; }, {}, 300);
    EXPECT_EQ(record.ended.size(), 1u);
}

TEST_F(PaneTest, SampleInReadmeWorks)
{
    settings.setControl("Stations", buildFolder());
    const CProgram client("\"" + programFolder() + "\\readme_pane.exe\"");
    EXPECT_EQ(client.process().exitCode(), 0u);
}

TEST_F(PaneTest, WorksFromC)
{
    EXPECT_EQ(usePaneFromC(window.handle()), 0);
}

} // namespace
} // namespace fixtures
