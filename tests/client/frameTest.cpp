// Finding a server's frame among the windows of all programs, and panes that cannot be made.
#include "client/paneFrame.h"

#include <gtest/gtest.h>

namespace kesta {
namespace {

class PaneFrameTest : public testing::Test
{
protected:
    // A top-level window of this process.
    static HWND makeWindow(const std::wstring& name)
    {
        return CreateWindowExW(WS_EX_TOPMOST, L"STATIC", name.c_str(), WS_POPUP, 0, 0, 50, 50, nullptr, nullptr, nullptr,
                               nullptr);
    }
};

TEST_F(PaneFrameTest, IsFoundByItsNameInItsProcessOnly)
{
    const DWORD own = GetCurrentProcessId();
    const DWORD other = own + 1;
    const HWND frame = makeWindow(frameName(own));
    const HWND stranger = makeWindow(frameName(other));
    EXPECT_EQ(findFrame(own).window, frame);
    EXPECT_EQ(findFrame(own).strangerProcess, 0u);
    EXPECT_EQ(findFrame(other).window, nullptr);
    EXPECT_EQ(findFrame(other).strangerProcess, own);
    DestroyWindow(stranger);
    EXPECT_EQ(findFrame(other).strangerProcess, 0u);
    DestroyWindow(frame);
}

TEST_F(PaneFrameTest, IsTakenInAsAChildThatTellsNoParentOfClicks)
{
    const HWND window = makeWindow(L"host");
    const HWND frame =
        CreateWindowExW(0, L"STATIC", L"frame", WS_OVERLAPPEDWINDOW | WS_POPUP, 0, 0, 50, 50, nullptr, nullptr, nullptr, nullptr);
    const Result result = takeIn(frame, window);
    EXPECT_TRUE(result) << "error " << result.hr;
    EXPECT_EQ(GetParent(frame), window);
    const LONG_PTR style = GetWindowLongPtrW(frame, GWL_STYLE);
    EXPECT_EQ(style & (WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS), WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS);
    EXPECT_EQ(style & static_cast<LONG_PTR>(WS_POPUP | WS_CAPTION | WS_THICKFRAME | WS_SYSMENU), 0);
    EXPECT_NE(GetWindowLongPtrW(frame, GWL_EXSTYLE) & WS_EX_NOPARENTNOTIFY, 0);
    RECT area = {};
    GetClientRect(frame, &area);
    EXPECT_EQ(area.bottom, 51) << "first a size that differs";
    DestroyWindow(window);
}

TEST_F(PaneFrameTest, WindowThatHasGoneCannotBeTakenIn)
{
    const HWND window = makeWindow(L"host");
    const HWND frame = makeWindow(L"frame");
    DestroyWindow(frame);
    const Result result = takeIn(frame, window);
    EXPECT_EQ(result.hr, HRESULT_FROM_WIN32(ERROR_INVALID_WINDOW_HANDLE));
    EXPECT_EQ(result.text.rfind(L"The control's window could not be taken into the pane. 0x80070578 ", 0), 0u);
    DestroyWindow(window);
}

TEST_F(PaneFrameTest, PaneWithoutAParentIsNotMadeAndSaysWhy)
{
    std::wstring problem;
    EXPECT_EQ(Pane::create(nullptr, {0, 0, 100, 100}, {}, {}, &problem), nullptr);
    EXPECT_EQ(problem.rfind(L"The pane's window could not be made. 0x8007", 0), 0u);
}

} // namespace
} // namespace kesta
