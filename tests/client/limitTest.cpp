// Controls that take longer than allowed.
#include "tests/client/PaneFixture.h"

namespace fixtures {
namespace {

constexpr ULONGLONG LONGEST_FREEZE = 200; // ms

// Not one of its threads runs any more.
void suspend(DWORD process)
{
    using Suspend = LONG(WINAPI*)(HANDLE);
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtSuspendProcess");
    const ATL::CHandle handle(OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, process));
    EXPECT_EQ(reinterpret_cast<Suspend>(reinterpret_cast<void*>(function))(handle), 0);
}

template <typename Step>
void expectNoWait(const char* what, Step step)
{
    const ULONGLONG begin = GetTickCount64();
    step();
    EXPECT_LE(GetTickCount64() - begin, LONGEST_FREEZE) << what;
}

TEST_F(PaneTest, SleepingControlFreezesNothingAndItsCallsEndAtTheirLimit)
{
    kesta::Options limited = options();
    limited.callLimit = milliseconds(700);
    limited.hangLimit = milliseconds(1500);
    const auto pane = openReady(limited);
    ASSERT_TRUE(fills(*pane));
    const CPulse pulse;
    std::vector<kesta::Result> answers;
    const auto note = [&](const kesta::Result& result) { answers.push_back(result); };
    const ULONGLONG begin = GetTickCount64();
    pane->call(L"sleep", L"3000", note);
    pane->set(L"mark", L"set all the same", note);
    EXPECT_TRUE(pumpUntil([&] { return answers.size() == 2; }));
    EXPECT_GE(GetTickCount64() - begin, 650u);
    EXPECT_LE(GetTickCount64() - begin, 1500u);
    EXPECT_EQ(answers[0].hr, kesta::TIMED_OUT);
    EXPECT_EQ(answers[0].text, L"callMethod(sleep) was not answered within 700 ms. The control is still busy with it.");
    EXPECT_EQ(answers[1].text,
              L"setProperty(mark) was not answered within 700 ms and will not be made: the control is busy or not ready yet.");

    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::HUNG);
    EXPECT_EQ(record.ended[0].text, L"callMethod(sleep) has not returned for 1500 ms: the control hangs.");
    MoveWindow(pane->window(), 0, 0, 300, 200, TRUE); // reaches Java's window, whose thread is not the one that sleeps
    awaitReady(record, 2);
    EXPECT_GE(GetTickCount64() - begin, 2900u);
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
    std::optional<std::wstring> mark;
    pane->get(L"mark", [&](const kesta::Result& result) { mark = result.text; });
    EXPECT_TRUE(pumpUntil([&] { return mark.has_value(); }));
    EXPECT_EQ(*mark, L"") << "a call that was given up before its turn is never made";
    std::printf("the longest time without messages handled: %llu ms\n", pulse.longestGap());
    EXPECT_LE(pulse.longestGap(), LONGEST_FREEZE);
}

TEST_F(PaneTest, BlockedEventThreadFreezesNothing)
{
    const auto pane = openReady();
    ASSERT_TRUE(fills(*pane));
    const CPulse pulse;
    EXPECT_EQ(call(*pane, L"sleepInEvents", L"2500"), L"2500");
    const ULONGLONG end = GetTickCount64() + 2000;
    int width = 300;
    pumpUntil(
        [&] {
            MoveWindow(pane->window(), 0, 0, width++ % 200 + 200, 200, TRUE);
            return GetTickCount64() > end;
        },
        {}, 5000);
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
    std::printf("the longest time without messages handled: %llu ms\n", pulse.longestGap());
    EXPECT_LE(pulse.longestGap(), LONGEST_FREEZE);
}

TEST_F(PaneTest, WaitEndsAtItsLimitAndTheLateAnswerIsThrownAway)
{
    const auto pane = openReady();
    const kesta::Call sleeping = pane->call(L"sleep", L"1500");
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(sleeping.wait(milliseconds(300)).hr, kesta::TIMED_OUT);
    EXPECT_LE(GetTickCount64() - begin, 1000u);
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
    EXPECT_EQ(sleeping.wait(milliseconds(0)).hr, kesta::TIMED_OUT);
    EXPECT_TRUE(record.ended.empty());
}

TEST_F(PaneTest, RestartEndsAHungServerAndShowsAnother)
{
    kesta::Options limited = options();
    limited.hangLimit = milliseconds(700);
    std::unique_ptr<Pane> pane;
    kesta::Handlers handlers = record.handlers();
    handlers.ended = [&](const kesta::Ended& end) {
        record.ended.push_back(end);
        pane->restart();
    };
    pane = Pane::create(window.handle(), PLACE, limited, handlers);
    awaitReady(record);
    const auto hung = killed(pane->process());
    std::optional<kesta::Result> answer;
    pane->call(L"sleep", L"60000", [&](const kesta::Result& result) { answer = result; });
    awaitReady(record, 2);
    EXPECT_FALSE(hung->isRunning()) << "it was to be ended at once";
    ASSERT_EQ(record.ended.size(), 1u);
    EXPECT_EQ(record.ended[0].reason, Reason::HUNG);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->hr, kesta::NO_SERVER);
    EXPECT_EQ(answer->text, L"callMethod(sleep) has no answer: the pane was closed or started anew");
    EXPECT_NE(pane->process(), hung->id());
    EXPECT_EQ(hung->exitCode(), kesta::ENDED_BY_CLIENT);
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
    EXPECT_TRUE(fills(*pane));
}

TEST_F(PaneTest, ControlThatHangsWhileItClosesIsEndedAtTheLimit)
{
    kesta::Options limited = options();
    limited.closeLimit = milliseconds(2000);
    auto pane = openReady(limited);
    EXPECT_EQ(call(*pane, L"blockClose", L"60000"), L"60000");
    const auto server = killed(pane->process());
    const CPulse pulse;
    pane.reset();
    EXPECT_TRUE(pumpUntil([&] { return !server->isRunning(); }, {server->handle()}, 8000));
    EXPECT_LE(pulse.longestGap(), LONGEST_FREEZE);
}

// The thread of Java's windows stands still too. The focus is outside: in one of them, Windows would wait for it at each change.
TEST_F(PaneTest, ServerThatStandsStillFreezesNothing)
{
    kesta::Options limited = options();
    limited.callLimit = milliseconds(300);
    const auto pane = openReady(limited);
    ASSERT_TRUE(fills(*pane));
    const auto server = killed(pane->process());
    SetFocus(window.handle());
    suspend(server->id());
    expectNoWait("size", [&] { MoveWindow(pane->window(), 0, 0, 300, 200, TRUE); });
    expectNoWait("focus", [&] { pane->focus(kesta::Way::FORWARD); });
    expectNoWait("the pane's window takes the focus", [&] { SetFocus(pane->window()); });
    expectNoWait("off", [&] { EnableWindow(pane->window(), FALSE); });
    expectNoWait("on", [&] { EnableWindow(pane->window(), TRUE); });
    expectNoWait("hidden", [&] { ShowWindow(pane->window(), SW_HIDE); });
    expectNoWait("shown", [&] { ShowWindow(pane->window(), SW_SHOW); });
    const CPulse pulse;
    pane->call(L"echo", L"anybody");
    ASSERT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::HUNG);
    expectNoWait("another server", [&] { pane->restart(); });
    awaitReady(record, 2);
    EXPECT_TRUE(pumpUntil([&] { return !server->isRunning(); }, {server->handle()}, 8000));
    EXPECT_LE(pulse.longestGap(), LONGEST_FREEZE);
}

TEST_F(PaneTest, ServerThatStandsStillWithoutACallIsLeftAtOnceAndEndedAtTheLimit)
{
    kesta::Options limited = options();
    limited.closeLimit = milliseconds(1000);
    auto pane = openReady(limited);
    ASSERT_TRUE(fills(*pane));
    const auto server = killed(pane->process());
    SetFocus(window.handle());
    suspend(server->id());
    expectNoWait("the end", [&] { pane.reset(); });
    EXPECT_TRUE(server->isRunning());
    EXPECT_EQ(WaitForSingleObject(server->handle(), 5000), WAIT_OBJECT_0);
}

TEST_F(PaneTest, SecondCallThatHangsIsToldAsWell)
{
    kesta::Options limited = options();
    limited.callLimit = milliseconds::max();
    limited.hangLimit = milliseconds(700);
    const auto pane = openReady(limited);
    killed(pane->process());
    pane->call(L"sleep", L"1200");
    pane->call(L"sleep", L"60000");
    awaitReady(record, 2);
    EXPECT_EQ(record.ended.size(), 1u);
    EXPECT_TRUE(pumpUntil([&] { return record.ended.size() == 2; }, {}, 4000));
}

TEST_F(PaneTest, HungServerThatIsKilledIsNotReadyAgain)
{
    kesta::Options limited = options();
    limited.hangLimit = milliseconds(700);
    const auto pane = openReady(limited);
    pane->call(L"sleep", L"60000");
    ASSERT_TRUE(pumpUntil([&] { return !record.ended.empty(); }, {}, 4000));
    expectExit(pane->process(), 77);
    CProcess(pane->process()).kill(77);
    EXPECT_TRUE(pumpUntil([&] { return record.ended.size() == 2; }, {}, 5000));
    EXPECT_EQ(record.ended.back().reason, Reason::DIED);
    EXPECT_EQ(record.readies.size(), 1u);
}

TEST_F(PaneTest, LimitsWithoutEndAreNoLimits)
{
    kesta::Options endless = options();
    endless.startLimit = milliseconds::max();
    endless.callLimit = milliseconds::max();
    endless.closeLimit = milliseconds::max();
    auto pane = openReady(endless);
    EXPECT_EQ(call(*pane, L"sleep", L"500"), L"500");
    EXPECT_TRUE(record.ended.empty()) << "it was said to hang";
    const CProcess server(pane->process());
    pane.reset();
    EXPECT_EQ(server.exitCode(), 0u);
}

TEST_F(PaneTest, ServerThatHangsAtItsEndIsEndedWhileThisThreadIsBusy)
{
    kesta::Options limited = options();
    limited.closeLimit = milliseconds(1000);
    auto pane = openReady(limited);
    EXPECT_EQ(call(*pane, L"blockClose", L"60000"), L"60000");
    const auto server = killed(pane->process());
    pane.reset();
    EXPECT_EQ(WaitForSingleObject(server->handle(), 5000), WAIT_OBJECT_0) << "no message was handled meanwhile";
}

TEST_F(PaneTest, StartThatHangsIsToldAtItsLimit)
{
    settings.setPreference("jvm_option_sleep", std::string("-Dkesta.test.sleepInConstructor=7000"));
    kesta::Options limited = options();
    limited.startLimit = milliseconds(2500);
    auto pane = open(limited);
    const kesta::Call waiting = pane->call(L"echo", L"anybody");
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }, {}, 4000));
    ASSERT_EQ(record.ended.size(), 1u);
    EXPECT_EQ(record.ended[0].reason, Reason::NOT_STARTED);
    EXPECT_EQ(record.ended[0].hr, kesta::TIMED_OUT);
    EXPECT_EQ(record.ended[0].text, L"The control was not there within 2500 ms; at that time the pane was starting the server.");
    EXPECT_EQ(waiting.wait(milliseconds(0)).hr, kesta::NO_SERVER);
    EXPECT_EQ(pane->process(), 0u);
    EXPECT_FALSE(processesNamed("KESTAx64.exe").empty()) << "which process it is cannot be known yet";
    std::unique_ptr<Pane> more[2];
    for (std::unique_ptr<Pane>& another : more) {
        another = open(limited);
        another.reset();
    }
    pane.reset();
    const ULONGLONG begin = GetTickCount64();
    EXPECT_FALSE(kesta::finish(milliseconds(100)));
    EXPECT_LE(GetTickCount64() - begin, 1500u) << "there is no process to wait for";
    EXPECT_TRUE(eventually([] { return processesNamed("KESTAx64.exe").empty(); }, 30000))
        << "they are let go when they are there";
}

TEST_F(PaneTest, StartThatTakesTooLongIsToldAndEnds)
{
    kesta::Options limited = options();
    limited.startLimit = milliseconds(100);
    const auto pane = open(limited);
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::NOT_STARTED);
    EXPECT_EQ(record.ended[0].hr, kesta::TIMED_OUT);
    EXPECT_EQ(record.ended[0].text.rfind(L"The control was not there within 100 ms; at that time the pane was ", 0), 0u);
    EXPECT_TRUE(eventually([] { return !processesNamed("KESTAx64.exe").empty(); }));
    EXPECT_TRUE(eventually([] { return processesNamed("KESTAx64.exe").empty(); }, 10000)) << "it was let go when it was there";
}

} // namespace
} // namespace fixtures
