// Servers that end or never begin, and another one in their place.
#include "tests/client/PaneFixture.h"

#include <format>
#include <thread>

namespace fixtures {
namespace {

TEST_F(PaneTest, KilledServerIsToldAndRestartShowsAnother)
{
    const auto pane = openReady();
    expectExit(pane->process(), 77);
    const CProcess server(pane->process());
    std::optional<kesta::Result> answer;
    const kesta::Call sleeping = pane->call(L"sleep", L"60000", [&](const kesta::Result& result) { answer = result; });
    EXPECT_FALSE(sleeping.isDone());
    server.kill(77);
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }, {}, 5000));
    ASSERT_EQ(record.ended.size(), 1u);
    EXPECT_EQ(record.ended[0].reason, Reason::DIED);
    EXPECT_EQ(record.ended[0].hr, kesta::NO_SERVER);
    EXPECT_EQ(record.ended[0].text, L"The server's process has ended with the exit code 77.");
    EXPECT_TRUE(pumpUntil([&] { return answer.has_value(); }));
    EXPECT_EQ(answer->hr, kesta::NO_SERVER);
    EXPECT_FALSE(pane->isReady());
    EXPECT_EQ(pane->process(), 0u);
    EXPECT_EQ(call(*pane, L"echo", L"anybody"),
              L"(callMethod(echo) was not made: The server's process has ended with the exit code 77.)");

    pane->restart();
    awaitReady(record, 2);
    EXPECT_NE(pane->process(), server.id());
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(record.ended.size(), 1u);
}

TEST_F(PaneTest, OfThreePanesOnlyTheOneWhoseServerIsKilledEndsAndComesBack)
{
    SRecord records[3];
    std::unique_ptr<Pane> panes[3];
    for (int number = 0; number < 3; ++number) {
        const RECT place = {number * 200, 0, number * 200 + 190, 300};
        panes[number] = Pane::create(window.handle(), place, options(), records[number].handlers());
    }
    for (const SRecord& told : records) {
        awaitReady(told);
    }
    const DWORD first = panes[0]->process();
    const DWORD last = panes[2]->process();
    const CProcess server(panes[1]->process());
    expectExit(server.id(), 77);
    server.kill(77);
    EXPECT_TRUE(pumpUntil([&] { return records[1].ended.size() == 1; }, {}, 5000));
    EXPECT_EQ(call(*panes[0], L"echo", L"first"), L"first");
    EXPECT_EQ(call(*panes[2], L"echo", L"last"), L"last");
    panes[1]->restart();
    awaitReady(records[1], 2);
    EXPECT_EQ(call(*panes[1], L"echo", L"again"), L"again");
    EXPECT_TRUE(fills(*panes[1]));
    EXPECT_EQ(panes[0]->process(), first);
    EXPECT_EQ(panes[2]->process(), last);
    EXPECT_TRUE(records[0].ended.empty());
    EXPECT_TRUE(records[2].ended.empty());
}

TEST_F(PaneTest, ControlThatEndsItsServerIsToldWithItsExitCode)
{
    const auto pane = openReady();
    expectExit(pane->process(), 3);
    EXPECT_EQ(call(*pane, L"exit", L"3"),
              L"(callMethod(exit) has no answer: The server's process has ended with the exit code 3.)");
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }, {}, 5000));
    EXPECT_EQ(record.ended[0].text, L"The server's process has ended with the exit code 3.");
}

TEST_F(PaneTest, ServerThatIsNotRegisteredIsToldInPlainWords)
{
    ASSERT_EQ(runServer("/UnregServer"), 0u);
    const auto pane = open();
    const kesta::Call waiting = pane->call(L"echo", L"anybody");
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::NOT_STARTED);
    EXPECT_EQ(record.ended[0].hr, REGDB_E_CLASSNOTREG);
    EXPECT_EQ(record.ended[0].text.rfind(L"The server could not be started. Is KESTAx64.exe registered? 0x80040154", 0), 0u);
    EXPECT_EQ(waiting.wait(milliseconds(0)).text.rfind(L"callMethod(echo) has no answer: The server could not be started.", 0),
              0u);
    ASSERT_EQ(runServer("/RegServer"), 0u);
    pane->restart();
    awaitReady(record);
}

TEST_F(PaneTest, ServerWithoutJavaIsToldWithTheServersReason)
{
    settings.removeRuntimes();
    const auto pane = open();
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::NOT_STARTED);
    EXPECT_EQ(record.ended[0].text.rfind(L"The server has no control to show. ", 0), 0u);
    EXPECT_NE(record.ended[0].text.find(L"m_DLLHandle != NULL"), std::wstring::npos);
}

TEST_F(PaneTest, ControlThatIsNotRegisteredIsTold)
{
    kesta::Options wrong = options();
    wrong.control = L"Nowhere";
    const auto pane = open(wrong);
    EXPECT_TRUE(pumpUntil([&] { return !record.ended.empty(); }));
    EXPECT_EQ(record.ended[0].reason, Reason::NOT_STARTED);
    EXPECT_EQ(record.ended[0].hr, E_FAIL);
    EXPECT_EQ(record.ended[0].text.rfind(L"The control \"Nowhere\" is not there. ", 0), 0u);
    EXPECT_NE(record.ended[0].text.find(L"TestControl"), std::wstring::npos) << "it says which there are";
}

// Nobody destroys the pane before its thread ends.
TEST_F(PaneTest, ServerEndsWithThePanesThread)
{
    std::unique_ptr<Pane> pane;
    DWORD process = 0;
    kesta::Call late;
    std::thread([&] {
        const CHostWindow own;
        SRecord told;
        pane = Pane::create(own.handle(), PLACE, options(), told.handlers());
        awaitReady(told);
        process = pane->process();
        pane->call(L"sleep", L"1000");
        late = pane->call(L"echo", L"after that");
        pumpUntil([] { return false; }, {}, 200);
    }).join();
    EXPECT_EQ(late.wait(milliseconds(5000)).hr, kesta::NO_SERVER);
    EXPECT_EQ(pane->call(L"echo", L"anybody").wait(milliseconds(5000)).hr, kesta::NO_SERVER);
    const CProcess server(process);
    EXPECT_EQ(server.exitCode(8000), 0u) << "sooner than by its own watch over the window";
    EXPECT_TRUE(kesta::finish(milliseconds(5000)));
}

TEST_F(PaneTest, ServerWhoseCallDoesNotReturnEndsAtTheLimitAfterThePanesThread)
{
    kesta::Options limited = options();
    limited.closeLimit = milliseconds(1000);
    std::unique_ptr<Pane> pane;
    std::shared_ptr<CProcess> server;
    kesta::Call hanging;
    std::thread([&] {
        const CHostWindow own;
        SRecord told;
        pane = Pane::create(own.handle(), PLACE, limited, told.handlers());
        awaitReady(told);
        server = killed(pane->process());
        hanging = pane->call(L"sleep", L"60000");
        pumpUntil([] { return false; }, {}, 200);
    }).join();
    EXPECT_EQ(hanging.wait(milliseconds(1000)).hr, kesta::NO_SERVER);
    EXPECT_EQ(WaitForSingleObject(server->handle(), 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(kesta::finish(milliseconds(5000)));
}

// In front of all others, so that a search by name finds it first.
TEST_F(PaneTest, ForeignWindowWithTheFramesNameIsNotTakenIn)
{
    const auto pane = open();
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    const std::string name = std::format("kesta_frame_{}", server->id());
    const HWND foreign = CreateWindowExA(WS_EX_TOPMOST, "STATIC", name.c_str(), WS_POPUP | WS_VISIBLE, 0, 0, 50, 50, nullptr,
                                         nullptr, nullptr, nullptr);
    awaitReady(record);
    EXPECT_EQ(FindWindowA(nullptr, name.c_str()), foreign) << "the frame is no top-level window any more";
    EXPECT_EQ(GetAncestor(foreign, GA_PARENT), GetDesktopWindow());
    DWORD process = 0;
    GetWindowThreadProcessId(frameOf(*pane), &process);
    EXPECT_EQ(process, server->id());
    DestroyWindow(foreign);
}

} // namespace
} // namespace fixtures
