// The window's native controls: the fields for a call, its answer, the event list and the status line. Window's thread only.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

class CPanel
{
public:
    CPanel() = default;
    ~CPanel();
    CPanel(const CPanel&) = delete;
    CPanel& operator=(const CPanel&) = delete;

    // Fills the controls of the new window.
    void init(HWND window);
    // The right side keeps its width; pane and event list take the rest.
    void arrange();
    // Offers the names that fit the chosen operation; anything else can be typed.
    void suggestNames();

    // Where a control of the dialog is, which is destroyed; another window gets its id and comes first in the tab order.
    RECT takePlaceOf(int id);
    void putIntoPlace(int id, HWND window);

    int operation() const;
    std::wstring name() const;
    std::wstring argument() const;

    void showAnswer(std::wstring text);
    // Appends an event, with the time of day and the thread it came on.
    void addEvent(const wchar_t* event, const std::wstring& text);
    void setPaneText(const std::wstring& text);
    void setStatus(const std::wstring& text);
    void enableCalls(bool enabled);
    // What is wrong, why, and the offer to begin again.
    void showFailure(const std::wstring& what, const std::wstring& why);
    void showBeginning();

private:
    std::wstring text(int id) const;
    void enable(int id, bool enabled);

    HWND m_window = nullptr;
    HFONT m_boldFont = nullptr;
    SIZE m_size = {};
    std::vector<std::pair<int, RECT>> m_places;
};
