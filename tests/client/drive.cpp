// Starts the sample host and uses its window as a person would: fills in its fields, makes calls, reads answers and
// events. Everything goes through the window's messages and the host's output, which it prints on. For what only a person at the
// screen can do (a mouse click, typing, a picture of the window) it prints a line that begins with "@" and waits for the line
// "done" on standard input.
#include "samples/host/host.h"
#include "tests/process/Program.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <format>
#include <iostream>
#include <stdexcept>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds POLL{20};
constexpr const wchar_t* NO_ANSWER = L"(no answer yet)";
constexpr milliseconds PATIENCE{20000};

// The host's clock starts a little later.
const ULONGLONG s_start = GetTickCount64();

std::string utf8(const std::wstring& text)
{
    std::string bytes(3 * text.size(), '\0');
    bytes.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                                         static_cast<int>(bytes.size()), nullptr, nullptr)));
    return bytes;
}

void printStep(const std::string& text)
{
    std::printf("%6llu ms  %s\n", GetTickCount64() - s_start, text.c_str());
    std::fflush(stdout);
}

class CDriver
{
public:
    CDriver()
        : m_host("\"" + hostProgram() + "\"")
    {
    }

    // The exit code of the program: 0 when everything worked.
    int run();

private:
    static std::string hostProgram();
    void useWindow();
    void useControls();
    void raiseEvents();
    void typeInto(const std::string& clickOnField);
    void resize();
    void close();

    static void expect(bool holds, const std::string& what);
    template <typename Condition>
    void waitFor(const std::string& what, Condition condition);
    // The same without a line in the output.
    template <typename Condition>
    void await(const std::string& what, Condition condition);
    void ask(const std::string& request);
    std::wstring call(int operation, const std::wstring& name, const std::wstring& argument = L"");
    HWND item(int id) const { return GetDlgItem(m_window, id); }
    // Across processes, only the message itself reads a control's text.
    std::wstring text(int id) const;
    void setText(int id, const std::wstring& text) const;
    RECT place(int id) const;
    bool hasPrinted(const std::string& text) const { return m_host.output().find(text) != std::string::npos; }
    // Prints what the host has printed since the last time, whole lines only.
    void passOn();

    fixtures::CProgram m_host;
    size_t m_passedOn = 0;
    HWND m_window = nullptr;
};

// Two folders above this program.
std::string CDriver::hostProgram()
{
    const std::string here = fixtures::programFolder();
    const std::string tests = here.substr(0, here.rfind('\\'));
    return tests.substr(0, tests.rfind('\\')) + "\\KESTAhost.exe";
}

void CDriver::useWindow()
{
    await("the window of the host", [this] {
        for (HWND window = nullptr; (window = FindWindowExW(nullptr, window, nullptr, L"KESTA sample host")) != nullptr;) {
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            m_window = process == m_host.process().id() ? window : m_window;
        }
        return m_window != nullptr;
    });
    waitFor("the control is in the window", [this] {
        expect(text(ID_STATUS) != L"No control", utf8(text(ID_PANE) + L" " + text(ID_ANSWER)));
        return text(ID_STATUS).starts_with(L"Connected");
    });
    expect(hasPrinted("event controlReady: "), "the event controlReady has come");
    useControls();
    resize();
    raiseEvents();
    call(GET_PROPERTY, L"title");
}

// Reads every value back, which proves that it has reached the control.
void CDriver::useControls()
{
    expect(call(GET_PROPERTY, L"title") == L"Wind power by site, GWh", "the title is the one the host has set");
    expect(call(CALL_METHOD, L"add", L"Vardo;198") == L"Vardo;198", "a row is added");
    expect(call(GET_PROPERTY, L"rowCount") == L"7", "the control has all seven rows");
    expect(call(GET_PROPERTY, L"rows").find(L"Troms\u00F8;364") != std::wstring::npos,
           "a name beyond ASCII comes back as it was sent");
    expect(call(CALL_METHOD, L"sum") == L"begun", "a method answers");
    const std::string failure = utf8(call(CALL_METHOD, L"nonsense", L"on purpose"));
    const size_t reason = failure.find("Exception: ");
    expect(failure.starts_with("Failed: ") && reason != std::string::npos, "a failing call gives the error text: " + failure);
    printStep("in its error text: " + failure.substr(reason, failure.find_first_of("\r\n", reason) - reason));
}

// From a click, and from a background thread.
void CDriver::raiseEvents()
{
    // The control's text field is in its lower left corner, its button in the lower right one.
    const RECT pane = place(ID_PANE);
    typeInto(std::format("click {} {}", pane.left + 200, pane.bottom - 26));
    ask(std::format("click {} {}", pane.right - 60, pane.bottom - 26));
    waitFor("event of the click arrived", [this] { return hasPrinted("event customEvent: button: Hello, World!"); });
    waitFor("the event of work in the background arrived", [this] { return hasPrinted("event customEvent: sum;3175"); });
}

// One click has to be enough.
void CDriver::typeInto(const std::string& clickOnField)
{
    call(SET_PROPERTY, L"text", L"Hello, ");
    ask(clickOnField);
    ask("type World!");
    waitFor("what is typed is in the control's field", [this] { return call(GET_PROPERTY, L"text") == L"Hello, World!"; });
}

void CDriver::resize()
{
    RECT window = {};
    GetWindowRect(m_window, &window);
    SetWindowPos(m_window, nullptr, 0, 0, window.right - window.left + 40, window.bottom - window.top + 20,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    waitFor("the frame has the pane's new size", [this] {
        const HWND pane = item(ID_PANE);
        RECT inner = {};
        RECT outer = {};
        GetClientRect(pane, &outer);
        const HWND frame = GetWindow(GetWindow(pane, GW_CHILD), GW_CHILD);
        return frame != nullptr && GetClientRect(frame, &inner) && EqualRect(&inner, &outer);
    });
}

void CDriver::close()
{
    PostMessageW(m_window, WM_CLOSE, 0, 0);
    const std::optional<DWORD> exitCode = m_host.process().exitCode();
    passOn();
    expect(exitCode == 0u, "the host ends with the exit code 0");
}

void CDriver::expect(bool holds, const std::string& what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

template <typename Condition>
void CDriver::waitFor(const std::string& what, Condition condition)
{
    await(what, condition);
    printStep(what);
}

template <typename Condition>
void CDriver::await(const std::string& what, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        passOn();
        expect(m_host.process().isRunning(), "the host has ended before: " + what);
        expect(std::chrono::steady_clock::now() < end, "not seen in time: " + what);
        std::this_thread::sleep_for(POLL);
    }
    passOn();
}

void CDriver::passOn()
{
    const std::string output = m_host.output();
    const size_t end = output.rfind('\n') + 1;
    if (end > m_passedOn) {
        std::fputs(output.substr(m_passedOn, end - m_passedOn).c_str(), stdout);
        std::fflush(stdout);
        m_passedOn = end;
    }
}

void CDriver::ask(const std::string& request)
{
    printStep("@" + request);
    std::string answer;
    expect(std::getline(std::cin, answer) && answer == "done", "nobody did: " + request);
}

std::wstring CDriver::call(int operation, const std::wstring& name, const std::wstring& argument)
{
    SendDlgItemMessageW(m_window, ID_OPERATION, CB_SETCURSEL, static_cast<WPARAM>(operation), 0);
    SendMessageW(m_window, WM_COMMAND, MAKEWPARAM(ID_OPERATION, CBN_SELCHANGE), 0);
    setText(ID_NAME, name);
    setText(ID_ARGUMENT, argument);
    setText(ID_ANSWER, NO_ANSWER);
    // What the button tells its dialog. A click on it would take the focus from the control.
    PostMessageW(m_window, WM_COMMAND, MAKEWPARAM(ID_CALL, BN_CLICKED), reinterpret_cast<LPARAM>(item(ID_CALL)));
    await("the answer of " + utf8(name), [this] { return text(ID_ANSWER) != NO_ANSWER; });
    return text(ID_ANSWER);
}

std::wstring CDriver::text(int id) const
{
    std::wstring text(65536, L'\0');
    text.resize(
        static_cast<size_t>(SendDlgItemMessageW(m_window, id, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

void CDriver::setText(int id, const std::wstring& text) const
{
    SendDlgItemMessageW(m_window, id, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

RECT CDriver::place(int id) const
{
    RECT place = {};
    GetWindowRect(item(id), &place);
    return place;
}

// Takes the picture even after a failure, to show the state of the window.
int CDriver::run()
{
    std::string failure;
    try {
        useWindow();
    } catch (const std::runtime_error& problem) {
        failure = problem.what();
        printStep("failed: " + failure);
    }
    ask("picture");
    close();
    expect(failure.empty(), "not everything worked");
    return 0;
}

} // namespace

int main()
{
    try {
        CDriver driver;
        const int result = driver.run();
        printStep("everything worked");
        return result;
    } catch (const std::exception& problem) {
        printStep(std::string("failed: ") + problem.what());
        return 1;
    }
}
