// What a control's user expects of any window, inside a window of another program: clipboard, drag, tool tips, menus, contrast.
#include "tests/client/DialogFixture.h"

#include <algorithm>
#include <format>

namespace fixtures {
namespace {

const std::wstring TEXT = L"Troms\u00F8 \u65E5\u672C \U0001F600";

void setClipboard(const std::wstring& text)
{
    ASSERT_TRUE(OpenClipboard(nullptr));
    EmptyClipboard();
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
    std::copy_n(text.c_str(), text.size() + 1, static_cast<wchar_t*>(GlobalLock(memory)));
    GlobalUnlock(memory);
    EXPECT_NE(SetClipboardData(CF_UNICODETEXT, memory), nullptr); // it is the clipboard's from now on
    CloseClipboard();
}

std::wstring clipboard()
{
    std::wstring text;
    if (OpenClipboard(nullptr)) {
        if (const HANDLE memory = GetClipboardData(CF_UNICODETEXT)) {
            text = static_cast<const wchar_t*>(GlobalLock(memory));
            GlobalUnlock(memory);
        }
        CloseClipboard();
    }
    return text;
}

class PaneInsideTest : public PaneDialogTest
{
protected:
    // With the frame's lower right corner in that of the screen.
    void moveToTheScreensCorner()
    {
        const RECT frame = placeOf(frameOf(*pane));
        const RECT outer = placeOf(dialog->handle());
        SetWindowPos(dialog->handle(), nullptr, static_cast<int>(outer.left + GetSystemMetrics(SM_CXSCREEN) - frame.right),
                     static_cast<int>(outer.top + GetSystemMetrics(SM_CYSCREEN) - frame.bottom), 0, 0, SWP_NOSIZE | SWP_NOZORDER);
        const RECT moved = placeOf(frameOf(*pane));
        const std::wstring expected = std::format(L"{};{}", moved.left, moved.top);
        EXPECT_TRUE(pump([&] { return ask(L"place") == expected; }));
    }
    void drag(POINT from, POINT to)
    {
        constexpr int STEPS = 8;
        send({mouse(from.x, from.y, MOUSEEVENTF_LEFTDOWN)});
        for (int step = 1; step <= STEPS; ++step) {
            pump([] { return false; }, 30); // as a hand moves: Java begins a drag with a move of its own
            send({mouse(from.x + (to.x - from.x) * step / STEPS, from.y + (to.y - from.y) * step / STEPS)});
        }
        pump([] { return false; }, 30);
        send({mouse(to.x, to.y, MOUSEEVENTF_LEFTUP)});
    }
};

TEST_F(PaneInsideTest, ClipboardIsTheSameOnBothSides)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    setClipboard(TEXT);
    clickOnJavasField();
    expectTypedInJava();
    ask(L"setText", L"");
    press(VK_CONTROL, 'V');
    EXPECT_TRUE(pump([&] { return ask(L"getText") == TEXT; })) << state();
    ask(L"setText", L"");
    const std::wstring back = TEXT + L" back";
    ask(L"setText", back.c_str());
    press(VK_CONTROL, 'A');
    press(VK_CONTROL, 'C');
    EXPECT_TRUE(pump([&] { return clipboard() == back; })) << state();
    // A cut text goes into a native field by the native field's own key.
    press(VK_CONTROL, 'A');
    press(VK_CONTROL, 'X');
    EXPECT_TRUE(pump([&] { return ask(L"getText").empty(); })) << state();
    clickOn(dialog->after());
    expectNative(dialog->after());
    press(VK_CONTROL, 'V');
    EXPECT_TRUE(pump([&] { return textOf(dialog->after()) == back; })) << state();
}

TEST_F(PaneInsideTest, MouseSelectsAndDragsTextInTheControl)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    ask(L"addParts");
    EXPECT_TRUE(pump([&] { return record.hasEvent(EventKind::CUSTOM, L"parts are there"); }));
    const RECT frame = placeOf(frameOf(*pane));
    const POINT field = {frame.left + 200, frame.bottom - 22};
    ask(L"setText", L"replaced");
    drag({frame.left + 200, frame.bottom - 22}, {frame.left + 12, frame.bottom - 22});
    const wchar_t typed = type();
    EXPECT_TRUE(pump([&] { return ask(L"getText") == std::wstring(1, typed); })) << state();
    drag({frame.left + 30, frame.top + 20}, field);
    EXPECT_TRUE(pump([&] { return ask(L"getText") == std::wstring(1, typed) + L"dragged"; })) << state();
}

TEST_F(PaneInsideTest, MenuAndToolTipStayOnTheScreen)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    ask(L"addParts");
    clickOnJavasField();
    expectTypedInJava();
    ask(L"openMenu");
    const RECT below = awaitShown(L"JPopupMenu");
    expectOnScreen(below);
    const RECT frame = placeOf(frameOf(*pane));
    EXPECT_EQ(below.left, frame.left + 10) << "at the field";
    EXPECT_EQ(below.top, frame.bottom - 10);
    press(VK_ESCAPE);
    EXPECT_TRUE(pump([&] { return ask(L"menu") == L"closed"; })) << state();

    moveToTheScreensCorner();
    ask(L"openMenu");
    expectOnScreen(awaitShown(L"JPopupMenu"));
    press(VK_ESCAPE);
    EXPECT_TRUE(pump([&] { return ask(L"menu") == L"closed"; })) << state();

    const RECT corner = placeOf(frameOf(*pane));
    send({mouse(corner.right - 60, corner.bottom - 24)});
    pump([] { return false; }, 50);
    send({mouse(corner.right - 50, corner.bottom - 22)});
    expectOnScreen(awaitShown(L"JToolTip"));
}

} // namespace
} // namespace fixtures
