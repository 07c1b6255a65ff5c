// Panes that are docked elsewhere, whose window is recreated, and what is in it without a control.
#include "tests/client/PaneFixture.h"

namespace fixtures {
namespace {

constexpr RECT ELSEWHERE = {0, 0, 250, 150};

TEST_F(PaneTest, MovesToAnotherWindowWithItsControl)
{
    const auto pane = openReady();
    const HWND frame = frameOf(*pane);
    const CHostWindow other;
    EXPECT_TRUE(pane->setParent(other.handle(), ELSEWHERE));
    EXPECT_EQ(GetParent(pane->window()), other.handle());
    EXPECT_EQ(frameOf(*pane), frame);
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(call(*pane, L"raise", L"elsewhere"), L"elsewhere");
    EXPECT_TRUE(pumpUntil([&] { return record.hasEvent(EventKind::CUSTOM, L"elsewhere"); }));
    ShowWindow(other.handle(), SW_HIDE);        // the pane is looked at on the screen
    SetParent(pane->window(), window.handle()); // as a framework would do it
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(call(*pane, L"echo", L"back"), L"back");
}

TEST_F(PaneTest, ControlOutlivesItsPanesWindow)
{
    const auto pane = openReady();
    const HWND frame = frameOf(*pane);
    const HWND holder = holderOf(*pane);
    window.destroy();
    EXPECT_EQ(pane->window(), nullptr);
    EXPECT_TRUE(IsWindow(frame));
    EXPECT_NE(GetParent(holder), nullptr);
    EXPECT_NE(GetParent(holder), GetDesktopWindow());
    EXPECT_FALSE(IsWindowVisible(frame));
    EXPECT_EQ(call(*pane, L"raise", L"without a window"), L"without a window");
    EXPECT_TRUE(pumpUntil([&] { return record.hasEvent(EventKind::CUSTOM, L"without a window"); })) << "nothing is dropped";

    const CHostWindow other;
    EXPECT_TRUE(pane->setParent(other.handle(), ELSEWHERE));
    EXPECT_EQ(GetParent(pane->window()), other.handle());
    EXPECT_EQ(frameOf(*pane), frame);
    EXPECT_TRUE(fills(*pane));
    EXPECT_TRUE(record.ended.empty());
}

// Destroyed and recreated ten times, as frameworks do when a style changes.
TEST_F(PaneTest, WindowMadeAnewOftenKeepsItsControl)
{
    const auto pane = openReady();
    const HWND frame = frameOf(*pane);
    for (int round = 0; round < 10; ++round) {
        DestroyWindow(pane->window());
        EXPECT_EQ(pane->window(), nullptr);
        ASSERT_TRUE(pane->setParent(window.handle(), PLACE));
        ASSERT_EQ(frameOf(*pane), frame);
    }
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
}

TEST_F(PaneTest, WindowMayGoWhileTheServerStarts)
{
    const auto pane = open();
    DestroyWindow(pane->window());
    awaitReady(record);
    EXPECT_TRUE(pane->setParent(window.handle(), PLACE));
    EXPECT_TRUE(fills(*pane));
}

TEST_F(PaneTest, ParentThatHasGoneIsRefused)
{
    const auto pane = openReady();
    CHostWindow other;
    const HWND gone = other.handle();
    other.destroy();
    EXPECT_FALSE(pane->setParent(gone, ELSEWHERE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
    EXPECT_EQ(GetParent(pane->window()), window.handle());
}

TEST_F(LongPaneTest, ControlWithoutAPanesWindowOutlivesTheServersChecks)
{
    const auto pane = openReady();
    window.destroy();
    const CProcess server(pane->process());
    EXPECT_FALSE(pumpUntil([&] { return !server.isRunning(); }, {server.handle()}, 2 * WATCHDOG_PERIOD + 5000));
    const CHostWindow other;
    EXPECT_TRUE(pane->setParent(other.handle(), ELSEWHERE));
    EXPECT_TRUE(fills(*pane));
    EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
}

} // namespace
} // namespace fixtures
