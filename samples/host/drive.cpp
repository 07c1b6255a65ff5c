// Uses the sample host's window as a person would: fills in its fields, presses its button, reads answers and the event list.
// For what only a person at the screen can do (a mouse click, typing, a picture of the window) it prints a line that begins with
// "@" and waits for the line "done" on standard input.
#include "host.h"

#include <commctrl.h>

#include <algorithm>
#include <format>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds POLL{20};
constexpr const char* NO_ANSWER = "(no answer yet)";
constexpr milliseconds PATIENCE{20000};

class CDriver
{
public:
    explicit CDriver(HWND window)
        : m_window(window)
    {
    }

    void run() const;

private:
    struct SEvent
    {
        std::string name;
        std::string text;
    };

    void expect(bool holds, const std::string& what) const;
    template <typename Condition>
    void waitFor(const std::string& what, Condition condition) const;
    // The same without a line in the output.
    template <typename Condition>
    void await(const std::string& what, Condition condition) const;
    void ask(const std::string& request) const;
    std::string call(int operation, const std::string& name, const std::string& argument = "", bool lateBound = false) const;
    std::string text(int id) const;
    int eventCount() const;
    std::string column(int row, int column) const;
    std::vector<SEvent> events() const;
    bool arrived(const std::string& name, const std::string& text) const;
    int countWith(const std::string& prefix) const;

    void useWindow() const;
    void useControls() const;
    void raiseEvents() const;
    void typeInto(const std::string& clickOnField) const;
    void resize() const;

    HWND m_window;
};

void CDriver::useWindow() const
{
    waitFor("the control is in the window", [this] {
        expect(text(ID_STATUS) != "No control", text(ID_PANE));
        return text(ID_STATUS).starts_with("Connected");
    });
    waitFor("event controlReady arrived", [this] { return countWith("") > 0 && events().front().name == "controlReady"; });
    useControls();
    resize();
    raiseEvents();
    call(GET_PROPERTY, "title");
}

// Reads every value back, which proves that it has reached the control.
void CDriver::useControls() const
{
    expect(call(GET_PROPERTY, "title") == "Wind power by site, GWh", "the title is the one the host has set");
    expect(call(CALL_METHOD, "add", "Vardo;198") == "Vardo;198", "a row is added");
    expect(call(GET_PROPERTY, "rowCount") == "7", "the control has all seven rows");
    expect(call(GET_PROPERTY, "rows").find("Troms\\u00F8;364") != std::string::npos,
           "a name beyond ASCII comes back as it was sent");
    expect(call(CALL_METHOD, "sum") == "begun", "a method answers");
    const std::string failure = call(CALL_METHOD, "nonsense", "on purpose", true);
    const size_t reason = failure.find("Exception: ");
    expect(failure.starts_with("Failed: ") && reason != std::string::npos, "a failing call gives the error text: " + failure);
    printStep("in its error text: " + failure.substr(reason, failure.find_first_of("\r\n", reason) - reason));
}

// From a click, and from a background thread.
void CDriver::raiseEvents() const
{
    // The control's text field is in its lower left corner, its button in the lower right one.
    RECT pane;
    GetWindowRect(GetDlgItem(m_window, ID_PANE), &pane);
    typeInto(std::format("click {} {}", pane.left + 200, pane.bottom - 26));
    ask(std::format("click {} {}", pane.right - 60, pane.bottom - 26));
    waitFor("event of the click arrived", [this] { return arrived("customEvent", "button: Hello, World!"); });

    waitFor("the event of work in the background arrived", [this] { return arrived("customEvent", "sum;3175"); });
}

// The first click also activates the Java frame, and Java may then give the focus to another component: a person would click
// again, and so does this. Reading the text takes the focus from the field, so the typing gets a moment first.
void CDriver::typeInto(const std::string& clickOnField) const
{
    for (int tries = 0; tries < 5; ++tries) {
        call(SET_PROPERTY, "text", "Hello, ");
        ask(clickOnField);
        ask("type World!");
        std::this_thread::sleep_for(50 * POLL);
        if (call(GET_PROPERTY, "text") == "Hello, World!") {
            return;
        }
    }
    expect(false, "what is typed into the control's field does not get there");
}

void CDriver::resize() const
{
    HWND pane = GetDlgItem(m_window, ID_PANE);
    RECT window;
    GetWindowRect(m_window, &window);
    SetWindowPos(m_window, nullptr, 0, 0, window.right - window.left + 40, window.bottom - window.top + 20,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    waitFor("the frame has the pane's new size", [pane] {
        RECT inner;
        RECT outer;
        GetClientRect(pane, &outer);
        HWND frame = GetWindow(pane, GW_CHILD);
        return frame && GetClientRect(frame, &inner) && EqualRect(&inner, &outer);
    });
}

void CDriver::expect(bool holds, const std::string& what) const
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

template <typename Condition>
void CDriver::waitFor(const std::string& what, Condition condition) const
{
    await(what, condition);
    printStep(what);
}

template <typename Condition>
void CDriver::await(const std::string& what, Condition condition) const
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        expect(std::chrono::steady_clock::now() < end, "not seen in time: " + what);
        std::this_thread::sleep_for(POLL);
    }
}

void CDriver::ask(const std::string& request) const
{
    printStep("@" + request);
    std::string answer;
    expect(std::getline(std::cin, answer) && answer == "done", "nobody did: " + request);
}

std::string CDriver::call(int operation, const std::string& name, const std::string& argument, bool lateBound) const
{
    SendDlgItemMessageA(m_window, ID_OPERATION, CB_SETCURSEL, static_cast<WPARAM>(operation), 0);
    SendMessageA(m_window, WM_COMMAND, MAKEWPARAM(ID_OPERATION, CBN_SELCHANGE), 0);
    SetDlgItemTextA(m_window, ID_NAME, name.c_str());
    SetDlgItemTextA(m_window, ID_ARGUMENT, argument.c_str());
    SendDlgItemMessageA(m_window, ID_LATE_BOUND, BM_SETCHECK, lateBound ? BST_CHECKED : BST_UNCHECKED, 0);
    SetDlgItemTextA(m_window, ID_ANSWER, NO_ANSWER);
    // Posted, not sent: Windows refuses calls to other processes while a sent message is handled.
    PostMessageA(GetDlgItem(m_window, ID_CALL), BM_CLICK, 0, 0);
    await("the answer of " + name, [this] { return text(ID_ANSWER) != NO_ANSWER; });
    return text(ID_ANSWER);
}

std::string CDriver::text(int id) const
{
    std::string text(65536, '\0');
    text.resize(GetDlgItemTextA(m_window, id, text.data(), static_cast<int>(text.size())));
    return text;
}

int CDriver::eventCount() const
{
    return ListView_GetItemCount(GetDlgItem(m_window, ID_EVENTS));
}

std::string CDriver::column(int row, int column) const
{
    char text[256] = "";
    LVITEMA item = {};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    SendDlgItemMessageA(m_window, ID_EVENTS, LVM_GETITEMTEXTA, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    return text;
}

std::vector<CDriver::SEvent> CDriver::events() const
{
    std::vector<SEvent> events;
    events.reserve(static_cast<size_t>(eventCount()));
    for (int row = 0; row < eventCount(); ++row) {
        events.push_back({column(row, COLUMN_EVENT), column(row, COLUMN_TEXT)});
    }
    return events;
}

bool CDriver::arrived(const std::string& name, const std::string& text) const
{
    const std::vector<SEvent> all = events();
    return std::any_of(all.begin(), all.end(), [&](const SEvent& event) { return event.name == name && event.text == text; });
}

int CDriver::countWith(const std::string& prefix) const
{
    const std::vector<SEvent> all = events();
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&](const SEvent& event) { return event.text.starts_with(prefix); }));
}

// Takes the picture even after a failure, to show the state of the window.
void CDriver::run() const
{
    std::string failure;
    try {
        useWindow();
    } catch (const std::runtime_error& problem) {
        failure = problem.what();
        printStep("failed: " + failure);
    }
    ask("picture");
    expect(failure.empty(), "not everything worked");
}

} // namespace

int drive(HWND window)
{
    int result = 0;
    try {
        const CDriver driver(window);
        driver.run();
        printStep("everything worked");
    } catch (const std::exception& problem) {
        printStep(std::string("failed: ") + problem.what());
        result = 1;
    }
    PostMessageA(window, WM_CLOSE, 0, 0);
    return result;
}
