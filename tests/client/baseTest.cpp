// Work that other threads bring to the pane's thread.
#include "client/paneBase.h"

#include <gtest/gtest.h>

#include <thread>

namespace kesta {
namespace {

class PaneBaseTest : public testing::Test
{
protected:
    PaneBaseTest() { base->enter(); }

    // Handles messages until the condition holds; false after ten seconds.
    template <typename Condition>
    static bool pumpUntil(Condition condition)
    {
        const ULONGLONG end = GetTickCount64() + 10000;
        while (!condition()) {
            if (GetTickCount64() > end) {
                return false;
            }
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
            pumpOnce();
        }
        return true;
    }
    static void pumpOnce()
    {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
    }

    const std::shared_ptr<CBase> base = CBase::create();
};

TEST_F(PaneBaseTest, WorkOfOtherThreadsIsDoneHereInItsOrder)
{
    constexpr int COUNT = 2000;
    std::vector<int> done;
    std::thread other([&] {
        for (int number = 0; number < COUNT; ++number) {
            base->post([&done, number, thread = GetCurrentThreadId()] {
                EXPECT_NE(GetCurrentThreadId(), thread);
                done.push_back(number);
            });
        }
    });
    EXPECT_TRUE(pumpUntil([&] { return done.size() == COUNT; }));
    other.join();
    for (int number = 0; number < COUNT; ++number) {
        ASSERT_EQ(done[static_cast<size_t>(number)], number);
    }
    base->leave();
}

// As when a handler opens a dialog.
TEST_F(PaneBaseTest, WorkThatHandlesMessagesItselfLetsTheNextOneBeDone)
{
    std::string order;
    base->post([&] {
        order += "a";
        EXPECT_TRUE(pumpUntil([&] { return order == "ab"; }));
        order += "c";
    });
    base->post([&] { order += "b"; });
    EXPECT_TRUE(pumpUntil([&] { return order == "abc"; }));
    base->leave();
}

TEST_F(PaneBaseTest, WorkThatWasPutOffComesBeforeWhatWaits)
{
    std::string order;
    base->post([&] { order += "c"; });
    std::deque<CBase::Work> putOff;
    putOff.emplace_back([&] { order += "a"; });
    putOff.emplace_back([&] { order += "b"; });
    base->postFirst(std::move(putOff));
    EXPECT_TRUE(pumpUntil([&] { return order.size() == 3; }));
    EXPECT_EQ(order, "abc");
    base->leave();
}

// Posted messages come before input and painting, so work without end must not be posted without end.
TEST_F(PaneBaseTest, WorkWithoutEndLetsPaintingTakePlace)
{
    static bool s_hasPainted = false;
    s_hasPainted = false;
    const WNDPROC procedure = [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        s_hasPainted = s_hasPainted || message == WM_PAINT;
        return DefWindowProcW(window, message, wParam, lParam);
    };
    ASSERT_TRUE(registerClass(L"kesta painting test", procedure, nullptr));
    const HWND window = CreateWindowExW(0, L"kesta painting test", L"", WS_POPUP | WS_VISIBLE, 0, 0, 50, 50, nullptr, nullptr,
                                        moduleInstance(), nullptr);
    bool isGoingOn = true;
    const std::function<void()> work = [&] {
        Sleep(1);
        if (isGoingOn) {
            base->post(work);
        }
    };
    base->post(work);
    base->post(work); // so that there is always a next one
    InvalidateRect(window, nullptr, TRUE);
    EXPECT_TRUE(pumpUntil([] { return s_hasPainted; }));
    isGoingOn = false;
    pumpOnce();
    DestroyWindow(window);
    base->leave();
}

// An exception must not go through Windows' code, which calls the window's procedure.
TEST_F(PaneBaseTest, WorkThatThrowsHarmsNothing)
{
    bool isDone = false;
    base->post([] { throw std::bad_alloc(); });
    base->post([&] { isDone = true; });
    EXPECT_NO_THROW(pumpUntil([&] { return isDone; }));
    EXPECT_TRUE(isDone);
    base->leave();
}

TEST(PaneBaseThreadTest, WorkForAThreadThatHasEndedIsDropped)
{
    std::shared_ptr<CBase> base;
    std::thread([&] {
        base = CBase::create();
        base->enter();
    }).join();
    const auto held = std::make_shared<int>(1);
    base->post([held] {});
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PaneBaseTest, LastOneToLeaveTakesTheWindowAndTheRestOfTheWork)
{
    const auto held = std::make_shared<int>(1);
    base->enter();
    base->leave();
    EXPECT_TRUE(IsWindow(base->window()));
    base->post([held] { ADD_FAILURE() << "was dropped"; });
    base->leave();
    EXPECT_FALSE(IsWindow(base->window()));
    base->post([held] { ADD_FAILURE() << "came too late"; });
    pumpOnce();
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
} // namespace kesta
