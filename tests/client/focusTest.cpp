// The keyboard's way into the control and out of it, and what Java hears of it.
#include "tests/client/DialogFixture.h"

#include <format>

namespace fixtures {
namespace {

// The ways of the focus. Each begins and ends wherever the focus is, and none tries anything twice.
class PaneFocusTest : public PaneDialogTest
{
protected:
    void tabThrough();
    void leaveBeforeJavaIsAsked();
    void useKeysOfTheDialog();
    void openDialogOfTheHost();
    void openDialogOfTheControl();
    void useAnotherProgram();
    void move(int distance);
    void goEachOtherWay(int distance)
    {
        tabThrough();
        useKeysOfTheDialog();
        openDialogOfTheHost();
        openDialogOfTheControl();
        useAnotherProgram();
        move(distance);
    }
};

void PaneFocusTest::tabThrough()
{
    clear();
    SetFocus(dialog->before());
    expectTypedIn(dialog->before());
    press(VK_TAB);
    expectJava(L"field");
    expectTypedInJava();
    press(VK_TAB);
    expectJava(L"button");
    press(VK_TAB);
    expectNative(dialog->after());
    expectTypedIn(dialog->after());
    press(VK_SHIFT, VK_TAB);
    expectJava(L"button");
    press(VK_SHIFT, VK_TAB);
    expectJava(L"field");
    expectTypedInJava();
    press(VK_SHIFT, VK_TAB);
    expectNative(dialog->before());
    expectTypedIn(dialog->before());
}

// The control is busy, and its first component would be asked for when the focus is elsewhere again.
void PaneFocusTest::leaveBeforeJavaIsAsked()
{
    SetFocus(dialog->before());
    pane->call(L"sleep", L"800");
    press(VK_TAB);
    pump([] { return false; }, 300); // for Java to take the focus; it cannot be asked
    EXPECT_EQ(GetFocus(), frameOf(*pane)) << state();
    SetFocus(dialog->after());
    expectJava(L""); // answered after the call above
    pump([] { return false; }, 300);
    expectNative(dialog->after());
}

void PaneFocusTest::useKeysOfTheDialog()
{
    clear();
    press(VK_MENU, 'N'); // the dialog's label of the first field
    expectNative(dialog->before());
    press(VK_MENU, 'P');
    EXPECT_TRUE(pump([&] { return !ask(L"focusOwner").empty(); })) << state();
    clickOnJavasField();
    expectTypedInJava();
    press(VK_ESCAPE);
    EXPECT_TRUE(pump([&] { return dialog->isPressed(IDCANCEL); })) << state();
    press(VK_RETURN); // the field's own
    EXPECT_TRUE(pump([&] { return record.hasEvent(EventKind::CUSTOM, L"field: " + std::wstring(1, letter)); })) << state();
    press(VK_MENU, 'S'); // the control's button, not the dialog's
    EXPECT_TRUE(pump([&] { return record.hasEvent(EventKind::CUSTOM, L"button: " + std::wstring(1, letter)); })) << state();
    expectJava(L"button");
    press(VK_RETURN);
    EXPECT_TRUE(pump([&] { return dialog->isPressed(IDOK); })) << state();
    EXPECT_EQ(dialog->takePressed(), (std::vector<WORD>{IDCANCEL, IDOK}));
    press(VK_MENU, 'L');
    expectNative(dialog->after());
    expectTypedIn(dialog->after());
}

// As DialogBox and MessageBox do it, without the message loop of their own.
void PaneFocusTest::openDialogOfTheHost()
{
    clear();
    clickOnJavasField();
    expectTypedInJava();
    expectJava(L"field");
    EnableWindow(dialog->handle(), FALSE);
    const HWND box = CreateWindowExW(0, L"STATIC", L"box", WS_POPUP | WS_CAPTION | WS_VISIBLE, 900, 500, 200, 100,
                                     dialog->handle(), nullptr, nullptr, nullptr);
    SetForegroundWindow(box);
    expectJava(L"");
    const std::wstring text = ask(L"getText");
    clickOnJavasField();
    type();
    EXPECT_FALSE(pump([&] { return ask(L"getText") != text; }, 300)) << "the dialog below is switched off" << state();
    EnableWindow(dialog->handle(), TRUE);
    DestroyWindow(box);
    expectJava(L"field");
    expectTypedInJava();
}

void PaneFocusTest::openDialogOfTheControl()
{
    clear();
    clickOnJavasField();
    expectTypedInJava();
    ask(L"openDialog");
    expectJava(L"inner");
    EXPECT_FALSE(IsWindowEnabled(frameOf(*pane)));
    EXPECT_TRUE(IsWindowEnabled(dialog->handle()));
    press(VK_ESCAPE); // closes it
    expectJava(L"field");
    expectTypedInJava();
    EXPECT_TRUE(dialog->takePressed().empty());
}

void PaneFocusTest::useAnotherProgram()
{
    clear();
    clickOnJavasField();
    expectTypedInJava();
    SetForegroundWindow(window.handle());
    expectJava(L"");
    SetForegroundWindow(dialog->handle());
    expectJava(L"field");
    expectTypedInJava();
}

void PaneFocusTest::move(int distance)
{
    SetWindowPos(dialog->handle(), nullptr, 700 + distance, 40 + distance, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    const RECT place = placeOf(frameOf(*pane));
    const std::wstring expected = std::format(L"{};{}", place.left, place.top);
    EXPECT_TRUE(pump([&] { return ask(L"place") == expected; })) << narrow(ask(L"place")) << " is not " << narrow(expected);
}

TEST_F(PaneFocusTest, KeysFollowClicksTabMnemonicsAndDialogs)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    ask(L"watchFocus");
    clickAndType();
    EXPECT_TRUE(pump([&] { return record.hasEvent(EventKind::CUSTOM, L"field lost the focus"); }));
    goEachOtherWay(50);
    leaveBeforeJavaIsAsked();
}

// No message tells the client of a click from one server's window into another one's.
TEST_F(PaneFocusTest, PanesHandTheFocusOverAndKeepItWhenTheirServerEnds)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    MoveWindow(pane->window(), 60, 26, 200, 300, TRUE);
    SRecord told;
    const auto other = Pane::create(dialog->handle(), {260, 26, 460, 326}, options(), told.handlers());
    EXPECT_TRUE(pump([&] { return !told.readies.empty(); }, TIME_LIMIT));
    ASSERT_TRUE(fills(*other));
    ASSERT_TRUE(fills(*pane));
    for (int round = 0; round < 3; ++round) {
        clickOnFieldOf(*other);
        expectJava(L"");
        EXPECT_TRUE(pump([&] { return ask(*other, L"focusOwner") == L"field"; })) << state();
        clickOnJavasField();
        expectTypedInJava();
        EXPECT_TRUE(pump([&] { return ask(*other, L"focusOwner").empty(); })) << state();
    }

    expectExit(pane->process(), 77);
    CProcess(pane->process()).kill(77);
    EXPECT_TRUE(pump([&] { return !record.ended.empty() && GetFocus() == pane->window(); })) << state();
    pane->restart();
    EXPECT_TRUE(pump([&] { return record.readies.size() == 2; }, TIME_LIMIT));
    expectJava(L"field");
    expectTypedInJava();
}

TEST_F(PaneFocusTest, FocusStaysWithThePaneThatIsStartedAnew)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    clickOnJavasField();
    expectTypedInJava();
    pane->restart();
    EXPECT_EQ(GetFocus(), pane->window());
    EXPECT_TRUE(pump([&] { return record.readies.size() == 2; }, TIME_LIMIT));
    clear();
    expectJava(L"field");
    expectTypedInJava();
}

// In another process, by clicks and as Alt+Tab does it.
TEST_F(PaneFocusTest, FocusComesBackFromAnotherProcess)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    CProgram program("\"" + programFolder() + "\\other_program.exe\"");
    ASSERT_TRUE(program.waitForOutput("\n"));
    const HWND other = reinterpret_cast<HWND>(std::stoull(program.output(), nullptr, 16));
    const auto typedInOther = [&] {
        wchar_t text[100] = L"";
        SendMessageW(other, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text));
        return std::wstring(text);
    };
    std::wstring typed;
    for (int round = 0; round < 3; ++round) {
        clear();
        clickOnJavasField();
        expectTypedInJava();
        clickOn(other);
        expectJava(L"");
        typed += type();
        EXPECT_TRUE(pump([&] { return typedInOther() == typed; })) << narrow(typedInOther()) << state();
        SetForegroundWindow(dialog->handle());
        expectJava(L"field");
        expectTypedInJava();
        clickOn(other);
        expectJava(L"");
        clickOnJavasField();
        expectJava(L"field"); // until then the keys are the other program's
        expectTypedInJava();
    }
}

// Wherever the click goes, and where it leaves the focus in the control, too.
TEST_F(PaneFocusTest, MenuOfTheControlClosesWithAClickInTheClient)
{
    ASSERT_NO_FATAL_FAILURE(begin());
    const auto open = [this] {
        clear();
        clickOnJavasField();
        expectTypedInJava();
        ask(L"openMenu");
        EXPECT_TRUE(pump([&] { return ask(L"menu") == L"open"; })) << state();
    };
    for (const POINT place : {dialog->label(), dialog->edge()}) {
        SCOPED_TRACE(place.x);
        open();
        click(place.x, place.y);
        EXPECT_TRUE(pump([&] { return ask(L"menu") == L"closed"; })) << state();
        expectJava(L"field");
        expectTypedInJava();
    }
    open();
    clickOn(dialog->after());
    EXPECT_TRUE(pump([&] { return ask(L"menu") == L"closed"; })) << state();
    open();
    SetForegroundWindow(window.handle());
    EXPECT_TRUE(pump([&] { return ask(L"menu") == L"closed"; })) << state();
}

class LongPaneFocusTest : public PaneFocusTest, public testing::WithParamInterface<int>
{
};

TEST_P(LongPaneFocusTest, HundredRoundsOfEachWay)
{
    setLogLevel(WARNINGS);
    useRuntime(GetParam());
    ASSERT_NO_FATAL_FAILURE(begin());
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        clickAndType();
        goEachOtherWay(round % 2 == 0 ? 50 : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(LongPane, LongPaneFocusTest, testing::Values(11, 17, 21, 25), testing::PrintToStringParamName());

} // namespace
} // namespace fixtures
