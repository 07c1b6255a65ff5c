// The base of tests that play the user: a dialog with a pane between native fields, mouse and keys.
#pragma once

#include "tests/client/PaneFixture.h"

#include <optional>

namespace fixtures {

std::wstring textOf(HWND window);
std::string narrow(const std::wstring& text);
RECT placeOf(HWND window);

// A dialog as resource scripts make them, with labels for mnemonics and two buttons: a field, a place for a pane, a field.
class CHostDialog
{
public:
    CHostDialog();
    ~CHostDialog() { DestroyWindow(m_window); }
    CHostDialog(const CHostDialog&) = delete;
    CHostDialog& operator=(const CHostDialog&) = delete;

    // The field behind the pane, and the buttons.
    void addRest() const;
    HWND add(const wchar_t* type, const wchar_t* text, const RECT& place, WORD id = 0, DWORD style = 0) const;
    HWND handle() const { return m_window; }
    HWND before() const { return GetDlgItem(m_window, BEFORE); }
    HWND after() const { return GetDlgItem(m_window, AFTER); }
    // On the screen: places where a click takes no focus, a label, and an edge of its own beside the pane.
    POINT label() const { return onScreen({20, 33}); }
    POINT edge() const { return onScreen({EDGE + 5, 100}); }
    // What was pressed since the last time.
    std::vector<WORD> takePressed() { return std::exchange(m_pressed, {}); }
    bool isPressed(WORD button) const { return std::ranges::count(m_pressed, button) != 0; }

private:
    static constexpr WORD BEFORE = 201;
    static constexpr WORD AFTER = 202;
    static constexpr LONG EDGE = 465;

    POINT onScreen(POINT place) const;
    static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window;
    std::vector<WORD> m_pressed;
};

// The user's input.
void send(std::vector<INPUT> inputs);
INPUT key(WORD code, DWORD flags);
void press(WORD code);
void press(WORD modifier, WORD code);
// To a place in pixels of the screen; the flags are those of mouse inputs, such as MOUSEEVENTF_LEFTDOWN.
INPUT mouse(LONG x, LONG y, DWORD flags = 0);
void click(LONG x, LONG y);
void clickOn(HWND window);

class PaneDialogTest : public PaneTest
{
protected:
    // With the runtime that is set, and when the control is painted if that is to be waited for.
    void begin(bool isPainted = true);
    void TearDown() override;

    // Handles messages as a program with a dialog does.
    bool pump(const std::function<bool()>& done, DWORD limit = 5000);
    static std::wstring ask(Pane& of, const wchar_t* name, const wchar_t* argument = L"")
    {
        return of.call(name, argument).wait(milliseconds(20000)).text;
    }
    std::wstring ask(const wchar_t* name, const wchar_t* argument = L"") { return ask(*pane, name, argument); }
    // The component that has Java's focus, "" for none.
    void expectJava(const wchar_t* component);
    void expectNative(HWND field);
    // The next letter arrives there, behind those that came before.
    void expectTypedInJava();
    // Replaces all that was selected when the focus came by Tab.
    void expectTypedIn(HWND field);
    // Another letter each time.
    wchar_t type();
    void clear();
    // On the field at the control's lower left. Two clicks at one place would select a word.
    void clickOnFieldOf(const Pane& clicked);
    void clickOnJavasField() { clickOnFieldOf(*pane); }
    // Goes to and fro between the program's fields and Java's: one click each, and the key at once after it.
    void clickAndType();
    std::string state();
    // Where Java shows a component of a class, in its own coordinates of the screen; nothing if it does not.
    std::optional<RECT> shown(const std::wstring& type);
    RECT awaitShown(const std::wstring& type);
    // One of the server's windows has the place, and it is on the screen.
    void expectOnScreen(const RECT& place) const;

    std::unique_ptr<CHostDialog> dialog;
    std::unique_ptr<Pane> pane;
    wchar_t letter = L'a';
    int clicks = 0;
};

} // namespace fixtures
