#include "panel.h"
#include "host.h"

#include <commctrl.h>

#include <algorithm>
#include <format>
#include <span>

namespace {

constexpr const wchar_t* OPERATIONS[] = {L"callMethod", L"setProperty", L"getProperty"};
constexpr const wchar_t* METHODS[] = {L"add", L"sum"};
constexpr const wchar_t* PROPERTIES[] = {L"title", L"text", L"rows", L"rowCount"};

struct SColumn
{
    const wchar_t* title;
    int percent;
};
constexpr SColumn COLUMNS[] = {{L"Time", 25}, {L"Thread", 15}, {L"Event", 23}, {L"Text", 37}};

void addEntries(HWND window, int id, std::span<const wchar_t* const> entries)
{
    for (const wchar_t* entry : entries) {
        SendDlgItemMessageW(window, id, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(entry));
    }
    SendDlgItemMessageW(window, id, CB_SETCURSEL, 0, 0);
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
    HINSTANCE program = GetModuleHandleW(nullptr);
    for (int size : {ICON_SMALL, ICON_BIG}) {
        SendMessageW(window, WM_SETICON, static_cast<WPARAM>(size),
                     reinterpret_cast<LPARAM>(LoadIconW(program, MAKEINTRESOURCEW(ID_WINDOW))));
    }
    LOGFONTW font = {};
    GetObjectW(reinterpret_cast<HFONT>(SendMessageW(window, WM_GETFONT, 0, 0)), sizeof font, &font);
    font.lfWeight = FW_BOLD;
    m_boldFont = CreateFontIndirectW(&font);
    for (int id : {ID_CALLS_TITLE, ID_ANSWER_TITLE, ID_EVENTS_TITLE}) {
        SendDlgItemMessageW(window, id, WM_SETFONT, reinterpret_cast<WPARAM>(m_boldFont), TRUE);
    }
    addEntries(window, ID_OPERATION, OPERATIONS);
    suggestNames();
    SetDlgItemTextW(window, ID_ARGUMENT, L"Vardo;198");

    HWND events = GetDlgItem(window, ID_EVENTS);
    ListView_SetExtendedListViewStyle(events, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER);
    RECT area;
    GetClientRect(events, &area);
    const int width = static_cast<int>(area.right) - GetSystemMetrics(SM_CXVSCROLL);
    LVCOLUMNW column = {};
    column.mask = LVCF_TEXT | LVCF_WIDTH;
    for (int i = 0; i < static_cast<int>(std::size(COLUMNS)); ++i) {
        column.pszText = const_cast<wchar_t*>(COLUMNS[i].title);
        column.cx = width * COLUMNS[i].percent / 100;
        SendMessageW(events, LVM_INSERTCOLUMNW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&column));
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
    SendDlgItemMessageW(m_window, ID_NAME, CB_RESETCONTENT, 0, 0);
    if (operation() == CALL_METHOD) {
        addEntries(m_window, ID_NAME, METHODS);
    } else {
        addEntries(m_window, ID_NAME, PROPERTIES);
    }
}

int CPanel::operation() const
{
    return static_cast<int>(SendDlgItemMessageW(m_window, ID_OPERATION, CB_GETCURSEL, 0, 0));
}

std::wstring CPanel::name() const
{
    return text(ID_NAME);
}

std::wstring CPanel::argument() const
{
    return text(ID_ARGUMENT);
}

void CPanel::showAnswer(std::wstring text)
{
    // Lines of the server's error texts end in a line feed, those of an edit control in two characters.
    for (size_t end = text.find(L'\n'); end != std::wstring::npos; end = text.find(L'\n', end + 2)) {
        text.insert(end, 1, L'\r');
    }
    SetDlgItemTextW(m_window, ID_ANSWER, text.c_str());
}

void CPanel::addEvent(const wchar_t* event, const std::wstring& text)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    const std::wstring columns[] = {
        std::format(L"{:02}:{:02}:{:02}.{:03}", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds),
        std::to_wstring(GetCurrentThreadId()), event, text};
    HWND events = GetDlgItem(m_window, ID_EVENTS);
    LVITEMW entry = {};
    entry.mask = LVIF_TEXT;
    entry.iItem = ListView_GetItemCount(events);
    for (const std::wstring& column : columns) {
        entry.pszText = const_cast<wchar_t*>(column.c_str());
        SendMessageW(events, entry.iSubItem == 0 ? LVM_INSERTITEMW : LVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&entry));
        ++entry.iSubItem;
    }
    ListView_EnsureVisible(events, entry.iItem, FALSE);
    SetDlgItemTextW(m_window, ID_EVENTS_TITLE, std::format(L"Events ({})", entry.iItem + 1).c_str());
}

void CPanel::setPaneText(const std::wstring& text)
{
    SetDlgItemTextW(m_window, ID_PANE, text.c_str());
}

void CPanel::setStatus(const std::wstring& text)
{
    SetDlgItemTextW(m_window, ID_STATUS, text.c_str());
}

void CPanel::enableCalls(bool enabled)
{
    enable(ID_CALL, enabled);
    enable(ID_AGAIN, !enabled);
}

void CPanel::showFailure(const std::wstring& what, const std::wstring& why)
{
    setPaneText(what);
    setStatus(L"No control");
    showAnswer(why);
    enableCalls(false);
}

void CPanel::showBeginning()
{
    setPaneText(L"Starting Java ...");
    setStatus(L"Creating the object ...");
    showAnswer(L"");
    enable(ID_AGAIN, false);
}

RECT CPanel::takePlaceOf(int id)
{
    HWND const former = GetDlgItem(m_window, id);
    RECT place = {};
    GetWindowRect(former, &place);
    MapWindowPoints(nullptr, m_window, reinterpret_cast<POINT*>(&place), 2);
    DestroyWindow(former);
    return place;
}

void CPanel::putIntoPlace(int id, HWND window)
{
    SetWindowLongPtrW(window, GWLP_ID, id);
    SetWindowLongPtrW(window, GWL_EXSTYLE, GetWindowLongPtrW(window, GWL_EXSTYLE) | WS_EX_STATICEDGE);
    SetWindowPos(window, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_FRAMECHANGED);
    SendMessageW(window, WM_SETFONT, static_cast<WPARAM>(SendMessageW(m_window, WM_GETFONT, 0, 0)), FALSE);
}

void CPanel::enable(int id, bool enabled)
{
    EnableWindow(GetDlgItem(m_window, id), static_cast<WINBOOL>(enabled));
}

std::wstring CPanel::text(int id) const
{
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(GetDlgItem(m_window, id))) + 1, L'\0');
    text.resize(GetDlgItemTextW(m_window, id, text.data(), static_cast<int>(text.size())));
    return text;
}
