#include "panel.h"
#include "host.h"

#include <commctrl.h>

#include <algorithm>
#include <format>
#include <span>

namespace {

constexpr const char* OPERATIONS[] = {"callMethod", "setProperty", "getProperty"};
constexpr const char* METHODS[] = {"add", "sum"};
constexpr const char* PROPERTIES[] = {"title", "text", "rows", "rowCount"};

struct SColumn
{
    const char* title;
    int percent;
};
constexpr SColumn COLUMNS[] = {{"Time", 25}, {"Thread", 15}, {"Event", 23}, {"Text", 37}};

void addEntries(HWND window, int id, std::span<const char* const> entries)
{
    for (const char* entry : entries) {
        SendDlgItemMessageA(window, id, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(entry));
    }
    SendDlgItemMessageA(window, id, CB_SETCURSEL, 0, 0);
}

} // namespace

CPanel::~CPanel()
{
    if (m_boldFont != nullptr) {
        DeleteObject(m_boldFont);
    }
}

void CPanel::init(HWND window)
{
    m_window = window;
    HINSTANCE program = GetModuleHandleA(nullptr);
    for (int size : {ICON_SMALL, ICON_BIG}) {
        SendMessageA(window, WM_SETICON, static_cast<WPARAM>(size),
                     reinterpret_cast<LPARAM>(LoadIconA(program, MAKEINTRESOURCEA(ID_WINDOW))));
    }
    LOGFONTA font = {};
    GetObjectA(reinterpret_cast<HFONT>(SendMessageA(window, WM_GETFONT, 0, 0)), sizeof font, &font);
    font.lfWeight = FW_BOLD;
    m_boldFont = CreateFontIndirectA(&font);
    for (int id : {ID_CALLS_TITLE, ID_ANSWER_TITLE, ID_EVENTS_TITLE}) {
        SendDlgItemMessageA(window, id, WM_SETFONT, reinterpret_cast<WPARAM>(m_boldFont), TRUE);
    }
    addEntries(window, ID_OPERATION, OPERATIONS);
    suggestNames();
    SetDlgItemTextA(window, ID_ARGUMENT, "Vardo;198");

    HWND events = GetDlgItem(window, ID_EVENTS);
    ListView_SetExtendedListViewStyle(events, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER);
    RECT area;
    GetClientRect(events, &area);
    const int width = static_cast<int>(area.right) - GetSystemMetrics(SM_CXVSCROLL);
    LVCOLUMNA column = {};
    column.mask = LVCF_TEXT | LVCF_WIDTH;
    for (int i = 0; i < static_cast<int>(std::size(COLUMNS)); ++i) {
        column.pszText = const_cast<char*>(COLUMNS[i].title);
        column.cx = width * COLUMNS[i].percent / 100;
        SendMessageA(events, LVM_INSERTCOLUMNA, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&column));
    }

    RECT client;
    GetClientRect(window, &client);
    m_size = {client.right, client.bottom};
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        RECT place;
        GetWindowRect(child, &place);
        MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&place), 2);
        m_places.emplace_back(GetDlgCtrlID(child), place);
    }
}

void CPanel::arrange()
{
    RECT client;
    GetClientRect(m_window, &client);
    const int dx = static_cast<int>(client.right - m_size.cx);
    const int dy = static_cast<int>(client.bottom - m_size.cy);
    for (const auto& [id, place] : m_places) {
        const bool fullWidth = id == ID_PANE || id == ID_STATUS;
        const bool fullHeight = id == ID_PANE || id == ID_EVENTS;
        const int x = static_cast<int>(place.left) + (fullWidth ? 0 : dx);
        const int y = static_cast<int>(place.top) + (id == ID_STATUS ? dy : 0);
        const int width = static_cast<int>(place.right - place.left) + (fullWidth ? dx : 0);
        const int height = static_cast<int>(place.bottom - place.top) + (fullHeight ? dy : 0);
        MoveWindow(GetDlgItem(m_window, id), x, y, std::max(width, 1), std::max(height, 1), FALSE);
    }
    RedrawWindow(m_window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
}

void CPanel::suggestNames()
{
    SendDlgItemMessageA(m_window, ID_NAME, CB_RESETCONTENT, 0, 0);
    if (operation() == CALL_METHOD) {
        addEntries(m_window, ID_NAME, METHODS);
    } else {
        addEntries(m_window, ID_NAME, PROPERTIES);
    }
}

int CPanel::operation() const
{
    return static_cast<int>(SendDlgItemMessageA(m_window, ID_OPERATION, CB_GETCURSEL, 0, 0));
}

std::string CPanel::name() const
{
    return text(ID_NAME);
}

std::string CPanel::argument() const
{
    return text(ID_ARGUMENT);
}

bool CPanel::lateBound() const
{
    return IsDlgButtonChecked(m_window, ID_LATE_BOUND) == BST_CHECKED;
}

void CPanel::showAnswer(std::string text)
{
    // Lines of the server's error texts end in a line feed, those of an edit control in two characters.
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 2)) {
        text.insert(end, 1, '\r');
    }
    SetDlgItemTextA(m_window, ID_ANSWER, text.c_str());
}

void CPanel::addEvent(const char* event, const std::string& text)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    const std::string columns[] = {std::format("{:02}:{:02}:{:02}.{:03}", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds),
                                   std::to_string(GetCurrentThreadId()), event, text};
    HWND events = GetDlgItem(m_window, ID_EVENTS);
    LVITEMA entry = {};
    entry.mask = LVIF_TEXT;
    entry.iItem = ListView_GetItemCount(events);
    for (const std::string& column : columns) {
        entry.pszText = const_cast<char*>(column.c_str());
        SendMessageA(events, entry.iSubItem == 0 ? LVM_INSERTITEMA : LVM_SETITEMA, 0, reinterpret_cast<LPARAM>(&entry));
        ++entry.iSubItem;
    }
    ListView_EnsureVisible(events, entry.iItem, FALSE);
    SetDlgItemTextA(m_window, ID_EVENTS_TITLE, std::format("Events ({})", entry.iItem + 1).c_str());
}

void CPanel::setPaneText(const char* text)
{
    SetDlgItemTextA(m_window, ID_PANE, text);
}

void CPanel::setStatus(const std::string& text)
{
    SetDlgItemTextA(m_window, ID_STATUS, text.c_str());
}

void CPanel::enableCalls(bool enabled)
{
    EnableWindow(GetDlgItem(m_window, ID_CALL), static_cast<WINBOOL>(enabled));
}

std::string CPanel::text(int id) const
{
    std::string text(static_cast<size_t>(GetWindowTextLengthA(GetDlgItem(m_window, id))) + 1, '\0');
    text.resize(GetDlgItemTextA(m_window, id, text.data(), static_cast<int>(text.size())));
    return text;
}
