// A call's answer, whoever gives it first.
#include "client/paneCall.h"

#include <gtest/gtest.h>

#include <thread>

namespace kesta {
namespace {

using std::chrono::milliseconds;

class PaneCallTest : public testing::Test
{
protected:
    std::shared_ptr<SCall> make()
    {
        return std::make_shared<SCall>(3, std::vector<Value>(), L"callMethod(sleep)", Completion(),
                                       [this](const std::shared_ptr<SCall>& call) { delivered.push_back(call->result().text); });
    }

    std::vector<std::wstring> delivered;
};

TEST_F(PaneCallTest, FirstAnswerCountsAndIsDeliveredOnce)
{
    const auto call = make();
    EXPECT_FALSE(call->isDone());
    EXPECT_TRUE(call->begin());
    EXPECT_TRUE(call->answer({S_OK, L"first"}));
    EXPECT_FALSE(call->answer({S_OK, L"second"}));
    EXPECT_FALSE(call->cancel());
    EXPECT_TRUE(call->isDone());
    EXPECT_EQ(call->result().text, L"first");
    EXPECT_EQ(delivered, std::vector<std::wstring>{L"first"});
}

TEST_F(PaneCallTest, CancelledBeforeItsBeginItIsNeverMade)
{
    const auto call = make();
    Call(call).cancel();
    EXPECT_FALSE(call->begin());
    EXPECT_EQ(call->result().hr, CANCELLED);
    EXPECT_EQ(call->result().text,
              L"callMethod(sleep) was cancelled and will not be made: the control is busy or not ready yet.");
}

TEST_F(PaneCallTest, WaitCancelsAtItsLimit)
{
    const auto call = make();
    ASSERT_TRUE(call->begin());
    const Result result = Call(call).wait(milliseconds(20));
    EXPECT_EQ(result.hr, TIMED_OUT);
    EXPECT_EQ(result.text, L"callMethod(sleep) was not answered within 20 ms. The control is still busy with it.");
    EXPECT_FALSE(call->answer({S_OK, L"late"}));
    EXPECT_EQ(delivered.size(), 1u);
}

TEST_F(PaneCallTest, WaitEndsWithTheAnswerOfAnotherThread)
{
    const auto call = make();
    std::thread answering([&] {
        Sleep(50);
        call->answer({S_OK, L"there"});
    });
    EXPECT_EQ(Call(call).wait(milliseconds(10000)).text, L"there");
    answering.join();
}

// Another thread's SendMessage would otherwise wait as long as this one.
TEST_F(PaneCallTest, WaitHandlesSentMessagesAndLeavesPostedOnes)
{
    const HWND window = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    PostMessageW(window, WM_APP, 0, 0);
    const auto call = make();
    std::thread sending([&] {
        SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"sent"));
        call->answer({S_OK, L"handled"});
    });
    EXPECT_EQ(Call(call).wait(milliseconds(10000)).text, L"handled");
    sending.join();
    MSG message = {};
    EXPECT_TRUE(PeekMessageW(&message, window, WM_APP, WM_APP, PM_REMOVE));
    DestroyWindow(window);
}

TEST_F(PaneCallTest, CallThatWasNeverIssuedHasAnErrorText)
{
    const Call none;
    EXPECT_FALSE(none.isDone());
    none.cancel();
    EXPECT_EQ(none.wait(milliseconds(10)).hr, E_INVALIDARG);
}

} // namespace
} // namespace kesta
