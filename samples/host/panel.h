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

    int operation() const;
    std::string name() const;
    std::string argument() const;
    bool lateBound() const;

    void showAnswer(std::string text);
    // Appends an event, with the time of day and the thread it came on.
    void addEvent(const char* event, const std::string& text);
    void setPaneText(const char* text);
    void setStatus(const std::string& text);
    void enableCalls(bool enabled);

private:
    std::string text(int id) const;

    HWND m_window = nullptr;
    HFONT m_boldFont = nullptr;
    SIZE m_size = {};
    std::vector<std::pair<int, RECT>> m_places;
};
