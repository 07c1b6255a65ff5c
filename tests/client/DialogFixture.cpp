#include "tests/client/DialogFixture.h"

#include <windowsx.h>

#include <algorithm>
#include <format>

namespace fixtures {

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

RECT placeOf(HWND window)
{
    RECT place = {};
    GetWindowRect(window, &place);
    return place;
}

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
    // Beside the other window of these tests, if the screen has room.
    MoveWindow(m_window, std::min(700, GetSystemMetrics(SM_CXSCREEN) - 500), 40, 500, 460, TRUE);
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

void CHostDialog::addRest() const
{
    add(L"STATIC", L"&Last", {0, 330, 60, 354});
    add(L"EDIT", L"", {60, 330, 360, 354}, AFTER, WS_TABSTOP);
    add(L"BUTTON", L"OK", {0, 360, 100, 390}, IDOK, WS_TABSTOP | BS_DEFPUSHBUTTON);
    add(L"BUTTON", L"&Stop", {110, 360, 210, 390}, IDCANCEL, WS_TABSTOP);
}

POINT CHostDialog::onScreen(POINT place) const
{
    ClientToScreen(m_window, &place);
    return place;
}

INT_PTR CALLBACK CHostDialog::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
    }
    if (message == WM_NCHITTEST) {
        POINT place = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        ScreenToClient(window, &place);
        SetWindowLongPtrW(window, DWLP_MSGRESULT, HTBORDER);
        return place.x >= EDGE ? TRUE : FALSE;
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

// Each input has its place with it, so that nothing that moves the mouse moves a click.
INPUT mouse(LONG x, LONG y, DWORD flags)
{
    constexpr LONG WHOLE = 65536; // the screen's width and height in an input
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dx = (x * WHOLE + GetSystemMetrics(SM_CXSCREEN) - 1) / GetSystemMetrics(SM_CXSCREEN);
    input.mi.dy = (y * WHOLE + GetSystemMetrics(SM_CYSCREEN) - 1) / GetSystemMetrics(SM_CYSCREEN);
    input.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE | flags;
    return input;
}

void click(LONG x, LONG y)
{
    send({mouse(x, y, MOUSEEVENTF_LEFTDOWN), mouse(x, y, MOUSEEVENTF_LEFTUP)});
}

void clickOn(HWND window)
{
    const RECT place = placeOf(window);
    click((place.left + place.right) / 2, (place.top + place.bottom) / 2);
}

void PaneDialogTest::begin(bool isPainted)
{
    dialog = std::make_unique<CHostDialog>();
    pane = Pane::create(dialog->handle(), {60, 26, 460, 326}, options(), record.handlers());
    dialog->addRest();
    awaitReady(record);
    if (isPainted) {
        ASSERT_TRUE(fills(*pane));
    }
    SetForegroundWindow(dialog->handle());
    ASSERT_TRUE(pump([&] { return GetForegroundWindow() == dialog->handle(); }));
}

void PaneDialogTest::TearDown()
{
    pane.reset();
    dialog.reset();
    PaneTest::TearDown();
}

bool PaneDialogTest::pump(const std::function<bool()>& done, DWORD limit)
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

void PaneDialogTest::expectJava(const wchar_t* component)
{
    EXPECT_TRUE(pump([&] { return ask(L"focusOwner") == component; }))
        << "Java's is not \"" << narrow(component) << "\"" << state();
}

void PaneDialogTest::expectNative(HWND field)
{
    EXPECT_TRUE(pump([&] { return GetFocus() == field; })) << state();
    expectJava(L"");
}

void PaneDialogTest::expectTypedInJava()
{
    std::wstring text = ask(L"getText");
    text += type();
    EXPECT_TRUE(pump([&] { return ask(L"getText") == text; })) << state();
}

void PaneDialogTest::expectTypedIn(HWND field)
{
    const std::wstring text(1, type());
    EXPECT_TRUE(pump([&] { return textOf(field) == text; })) << state();
}

wchar_t PaneDialogTest::type()
{
    letter = letter == L'z' ? L'a' : static_cast<wchar_t>(letter + 1);
    press(static_cast<WORD>(letter - L'a' + L'A'));
    return letter;
}

void PaneDialogTest::clear()
{
    SetWindowTextW(dialog->before(), L"");
    SetWindowTextW(dialog->after(), L"");
    ask(L"setText", L"");
    dialog->takePressed();
    record.events.clear();
}

void PaneDialogTest::clickOnFieldOf(const Pane& clicked)
{
    constexpr int STEP = 12;
    constexpr int STEPS = 3;
    const RECT place = placeOf(frameOf(clicked));
    click(place.left + 40 + STEP * (clicks++ % STEPS), place.bottom - 22);
}

void PaneDialogTest::clickAndType()
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

std::string PaneDialogTest::state()
{
    const auto describe = [](HWND window) {
        wchar_t type[60] = L"";
        GetClassNameW(window, type, static_cast<int>(std::size(type)));
        return std::format("{} {} \"{}\"", reinterpret_cast<void*>(window), narrow(type), narrow(textOf(window)));
    };
    return std::format("; focus {}, foreground {}, active {}, Java's \"{}\", texts \"{}\" \"{}\" \"{}\"", describe(GetFocus()),
                       describe(GetForegroundWindow()), describe(GetActiveWindow()), narrow(ask(L"focusOwner")),
                       narrow(textOf(dialog->before())), narrow(ask(L"getText")), narrow(textOf(dialog->after())));
}

std::optional<RECT> PaneDialogTest::shown(const std::wstring& type)
{
    const std::wstring begin = type + L" ";
    std::wstring told;
    record.events.clear();
    ask(L"where", type.c_str());
    EXPECT_TRUE(pump([&] {
        for (const auto& [kind, text] : record.events) {
            told = text.starts_with(begin) ? text.substr(begin.size()) : told;
        }
        return !told.empty();
    })) << state();
    RECT place = {};
    LONG width = 0;
    LONG height = 0;
    if (std::swscanf(told.c_str(), L"%ld;%ld;%ld;%ld", &place.left, &place.top, &width, &height) != 4) {
        return {};
    }
    place.right = place.left + width;
    place.bottom = place.top + height;
    return place;
}

RECT PaneDialogTest::awaitShown(const std::wstring& type)
{
    std::optional<RECT> place;
    EXPECT_TRUE(pump([&] { return (place = shown(type)).has_value(); })) << narrow(type) << " is not shown" << state();
    return place.value_or(RECT{});
}

void PaneDialogTest::expectOnScreen(const RECT& place) const
{
    const std::string text = std::format("{};{} to {};{}", place.left, place.top, place.right, place.bottom);
    EXPECT_GE(place.left, 0) << text;
    EXPECT_GE(place.top, 0) << text;
    EXPECT_LE(place.right, GetSystemMetrics(SM_CXSCREEN)) << text;
    EXPECT_LE(place.bottom, GetSystemMetrics(SM_CYSCREEN)) << text;
    DWORD process = 0;
    GetWindowThreadProcessId(WindowFromPoint({(place.left + place.right) / 2, (place.top + place.bottom) / 2}), &process);
    EXPECT_EQ(process, pane->process()) << text;
}

} // namespace fixtures
