// The keyboard's way into the control and out of it, and what Java hears of it.
#include "tests/client/PaneFixture.h"

#include <algorithm>
#include <format>

namespace fixtures {
namespace {

constexpr WORD BEFORE = 201;
constexpr WORD AFTER = 202;

std::wstring textOf(HWND window)
{
    wchar_t text[100] = L"";
    GetWindowTextW(window, text, static_cast<int>(std::size(text)));
    return text;
}

std::string narrow(const std::wstring& text)
{
    return {text.begin(), text.end()};
}

// A dialog as resource scripts make them, with labels for mnemonics and two buttons: a field, a place for a pane, a field.
class CHostDialog
{
public:
    CHostDialog();
    ~CHostDialog() { DestroyWindow(m_window); }
    CHostDialog(const CHostDialog&) = delete;
    CHostDialog& operator=(const CHostDialog&) = delete;

    HWND add(const wchar_t* type, const wchar_t* text, const RECT& place, WORD id = 0, DWORD style = 0) const;
    HWND handle() const { return m_window; }
    HWND before() const { return GetDlgItem(m_window, BEFORE); }
    HWND after() const { return GetDlgItem(m_window, AFTER); }
    // What was pressed since the last time.
    std::vector<WORD> takePressed() { return std::exchange(m_pressed, {}); }
    bool isPressed(WORD button) const { return std::ranges::count(m_pressed, button) != 0; }

private:
    static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window;
    std::vector<WORD> m_pressed;
};

CHostDialog::CHostDialog()
{
    struct alignas(DWORD)
    {
        DLGTEMPLATE dialog;
        WORD menu;
        WORD type;
        WORD title;
    } description = {{WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 0, 0, 100, 100}, 0, 0, 0};
    m_window = CreateDialogIndirectParamW(nullptr, &description.dialog, nullptr, procedure, reinterpret_cast<LPARAM>(this));
    MoveWindow(m_window, 700, 40, 500, 460, TRUE); // beside the other window of these tests
    add(L"STATIC", L"&Native", {0, 0, 60, 24});
    add(L"EDIT", L"", {60, 0, 300, 24}, BEFORE, WS_TABSTOP);
    add(L"STATIC", L"&Pane", {0, 26, 60, 40});
}

HWND CHostDialog::add(const wchar_t* type, const wchar_t* text, const RECT& place, WORD id, DWORD style) const
{
    return CreateWindowExW(0, type, text, WS_CHILD | WS_VISIBLE | style, static_cast<int>(place.left),
                           static_cast<int>(place.top), static_cast<int>(place.right - place.left),
                           static_cast<int>(place.bottom - place.top), m_window,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), nullptr, nullptr);
}

INT_PTR CALLBACK CHostDialog::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
    }
    auto* dialog = reinterpret_cast<CHostDialog*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (dialog == nullptr || message != WM_COMMAND) {
        return FALSE;
    }
    if (HIWORD(wParam) == BN_CLICKED) {
        dialog->m_pressed.push_back(LOWORD(wParam));
    }
    return TRUE;
}

void send(std::vector<INPUT> inputs)
{
    ASSERT_EQ(SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)), inputs.size());
}

INPUT key(WORD code, DWORD flags)
{
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = code;
    input.ki.dwFlags = flags;
    return input;
}

void press(WORD code)
{
    send({key(code, 0), key(code, KEYEVENTF_KEYUP)});
}

void press(WORD modifier, WORD code)
{
    send({key(modifier, 0), key(code, 0), key(code, KEYEVENTF_KEYUP), key(modifier, KEYEVENTF_KEYUP)});
}

// In pixels of the screen. Both inputs have their place with them, so that nothing that moves the mouse moves the click.
void click(LONG x, LONG y)
{
    constexpr LONG WHOLE = 65536; // the screen's width and height in an input
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dx = (x * WHOLE + GetSystemMetrics(SM_CXSCREEN) - 1) / GetSystemMetrics(SM_CXSCREEN);
    input.mi.dy = (y * WHOLE + GetSystemMetrics(SM_CYSCREEN) - 1) / GetSystemMetrics(SM_CYSCREEN);
    input.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE | MOUSEEVENTF_LEFTDOWN;
    INPUT up = input;
    up.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE | MOUSEEVENTF_LEFTUP;
    send({input, up});
}

void clickOn(HWND window)
{
    RECT place = {};
    GetWindowRect(window, &place);
    click((place.left + place.right) / 2, (place.top + place.bottom) / 2);
}

// The ways of the focus. Each begins and ends wherever the focus is, and none tries anything twice.
class PaneFocusTest : public PaneTest
{
protected:
    // With the runtime that is set.
    void begin()
    {
        dialog = std::make_unique<CHostDialog>();
        pane = Pane::create(dialog->handle(), {60, 26, 460, 326}, options(), record.handlers());
        dialog->add(L"STATIC", L"&Last", {0, 330, 60, 354});
        dialog->add(L"EDIT", L"", {60, 330, 360, 354}, AFTER, WS_TABSTOP);
        dialog->add(L"BUTTON", L"OK", {0, 360, 100, 390}, IDOK, WS_TABSTOP | BS_DEFPUSHBUTTON);
        dialog->add(L"BUTTON", L"Cancel", {110, 360, 210, 390}, IDCANCEL, WS_TABSTOP);
        awaitReady(record);
        ASSERT_TRUE(fills(*pane));
        SetForegroundWindow(dialog->handle());
        ASSERT_TRUE(pump([&] { return GetForegroundWindow() == dialog->handle(); }));
    }
    void TearDown() override
    {
        pane.reset();
        dialog.reset();
        PaneTest::TearDown();
    }

    // Handles messages as a program with a dialog does.
    bool pump(const std::function<bool()>& done, DWORD limit = 5000)
    {
        const ULONGLONG end = GetTickCount64() + limit;
        while (!done()) {
            if (GetTickCount64() > end) {
                return false;
            }
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
                if (!pane->translate(message) && !IsDialogMessageW(dialog->handle(), &message)) {
                    TranslateMessage(&message);
                    DispatchMessageW(&message);
                }
            }
        }
        return true;
    }
    static std::wstring ask(Pane& of, const wchar_t* name, const wchar_t* argument = L"")
    {
        return of.call(name, argument).wait(milliseconds(20000)).text;
    }
    std::wstring ask(const wchar_t* name, const wchar_t* argument = L"") { return ask(*pane, name, argument); }
    // The component that has Java's focus, "" for none.
    void expectJava(const wchar_t* component)
    {
        EXPECT_TRUE(pump([&] { return ask(L"focusOwner") == component; }))
            << "Java's is not \"" << narrow(component) << "\"" << state();
    }
    void expectNative(HWND field)
    {
        EXPECT_TRUE(pump([&] { return GetFocus() == field; })) << state();
        expectJava(L"");
    }
    // The next letter arrives there, behind those that came before.
    void expectTypedInJava()
    {
        std::wstring text = ask(L"getText");
        text += type();
        EXPECT_TRUE(pump([&] { return ask(L"getText") == text; })) << state();
    }
    // Replaces all that was selected when the focus came by Tab.
    void expectTypedIn(HWND field)
    {
        const std::wstring text(1, type());
        EXPECT_TRUE(pump([&] { return textOf(field) == text; })) << state();
    }
    // Another letter each time.
    wchar_t type()
    {
        letter = letter == L'z' ? L'a' : static_cast<wchar_t>(letter + 1);
        press(static_cast<WORD>(letter - L'a' + L'A'));
        return letter;
    }
    void clear()
    {
        SetWindowTextW(dialog->before(), L"");
        SetWindowTextW(dialog->after(), L"");
        ask(L"setText", L"");
        dialog->takePressed();
        record.events.clear();
    }
    // On the field at the control's lower left.
    // Two clicks at one place would select a word.
    void clickOnFieldOf(const Pane& clicked)
    {
        constexpr int STEP = 12;
        constexpr int STEPS = 3;
        RECT place = {};
        GetWindowRect(frameOf(clicked), &place);
        click(place.left + 40 + STEP * (clicks++ % STEPS), place.bottom - 22);
    }
    void clickOnJavasField() { clickOnFieldOf(*pane); }
    std::string state()
    {
        const auto describe = [](HWND window) {
            wchar_t type[60] = L"";
            GetClassNameW(window, type, static_cast<int>(std::size(type)));
            return std::format("{} {} \"{}\"", reinterpret_cast<void*>(window), narrow(type), narrow(textOf(window)));
        };
        return std::format("; focus {}, foreground {}, active {}, Java's \"{}\", texts \"{}\" \"{}\" \"{}\"",
                           describe(GetFocus()), describe(GetForegroundWindow()), describe(GetActiveWindow()),
                           narrow(ask(L"focusOwner")), narrow(textOf(dialog->before())), narrow(ask(L"getText")),
                           narrow(textOf(dialog->after())));
    }

    void clickAndType();
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

    std::unique_ptr<CHostDialog> dialog;
    std::unique_ptr<Pane> pane;
    wchar_t letter = L'a';
    int clicks = 0;
};

// One click each, and the key at once after it.
void PaneFocusTest::clickAndType()
{
    clear();
    clickOn(dialog->before());
    expectTypedIn(dialog->before());
    expectJava(L"");
    clickOnJavasField();
    expectTypedInJava();
    expectJava(L"field");
    clickOn(dialog->after());
    expectTypedIn(dialog->after());
    expectJava(L"");
    clickOnJavasField();
    expectTypedInJava();
}

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
    press(VK_MENU, 'S'); // the control's button
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
    RECT place = {};
    GetWindowRect(frameOf(*pane), &place);
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
