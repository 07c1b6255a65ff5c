// The KESTA sample host: a native window with a pane that shows a Java control from another process.
//
// kesta::Pane does what it takes to have the control in the window; what is left is what a client wants of its control:
//   openPane        make the pane, with handlers for what happens
//   feed            send the control its data
//   callFromWindow  any further call: here whatever the user chose in the window
// The native controls around the pane are in panel.cpp.
#include "host.h"
#include "panel.h"

#include "client/kesta_pane.h"
#include "samples/window.h"

#include <commctrl.h>

#include <cstdio>
#include <exception>
#include <iterator>

namespace {

constexpr wchar_t SAMPLE_CONTROL[] = L"Stations";
constexpr wchar_t CONTROL_OPTION[] = L"/control ";
constexpr long GET_BASIS_CONTROL_VERSION_INFO = 7;
constexpr long GET_VERSION_INFO = 9;

std::wstring numberText(HRESULT hr)
{
    wchar_t number[16] = L"";
    wsprintfW(number, L"0x%08lX", hr);
    return number;
}

void printStep(const std::wstring& text)
{
    static const ULONGLONG START = GetTickCount64();
    std::printf("%6llu ms  %s\n", GetTickCount64() - START, utf8(text).c_str());
    std::fflush(stdout);
}

// For what cannot be shown in the window.
void showMessage(const std::wstring& text)
{
    printStep(L"failed: " + text);
    MessageBoxW(nullptr, text.c_str(), L"KESTA sample host", MB_ICONERROR);
}

class CHost
{
public:
    // The control to show, by its name.
    explicit CHost(std::wstring control)
        : m_control(std::move(control))
    {
    }
    HWND open(HINSTANCE instance);
    bool translate(const MSG& message) { return m_pane != nullptr && m_pane->translate(message); }

private:
    void openPane();
    void ready();
    void ended(const kesta::Ended& ended);
    void feed();
    void startAgain();
    void callFromWindow();
    void set(const std::wstring& name, const std::wstring& value);
    kesta::Completion showing(const std::wstring& call);
    INT_PTR handle(UINT message, WPARAM wParam, LPARAM lParam);
    static INT_PTR CALLBACK dialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    const std::wstring m_control;
    HWND m_window = nullptr;
    CPanel m_panel;
    std::unique_ptr<kesta::Pane> m_pane;
};

void CHost::openPane()
{
    kesta::Handlers handlers;
    handlers.ready = [this](const std::wstring&) { ready(); };
    handlers.event = [this](kesta::EventKind kind, const std::wstring& text) {
        static constexpr const wchar_t* NAMES[] = {L"testBridgeEvent", L"controlReady", L"customEvent"};
        const wchar_t* const name = NAMES[static_cast<size_t>(kind)];
        printStep(L"event " + std::wstring(name) + L": " + text);
        m_panel.addEvent(name, text);
    };
    handlers.ended = [this](const kesta::Ended& end) { ended(end); };
    handlers.problem = [this](const std::wstring& text) { m_panel.showAnswer(text); };
    kesta::Options options;
    options.control = m_control;
    std::wstring problem;
    m_pane = kesta::Pane::create(m_window, m_panel.takePlaceOf(ID_PANE), options, handlers, &problem);
    if (m_pane == nullptr) {
        return showMessage(L"There is no pane. " + problem);
    }
    m_panel.putIntoPlace(ID_PANE, m_pane->window());
    m_panel.setPaneText(L"Starting Java ...");
}

void CHost::ready()
{
    const std::wstring id = std::to_wstring(m_pane->process());
    printStep(L"frame id " + id);
    printStep(L"kesta_frame_" + id + L" is in the window");
    m_panel.setPaneText(L"");
    if (m_control == SAMPLE_CONTROL) {
        feed();
    }
    // Each answer comes later; the second one here has the first.
    m_pane->invoke(GET_BASIS_CONTROL_VERSION_INFO, {}, [this, id](const kesta::Result& control) {
        m_pane->invoke(GET_VERSION_INFO, {L"java"}, [this, id, control](const kesta::Result& java) {
            if (!m_pane->isReady()) {
                return; // it has just ended, as ended() shows
            }
            if (control && java) {
                m_panel.setStatus(L"Connected: kesta_frame_" + id + L", " + control.text + L", Java " + java.text);
            } else {
                const std::wstring& problem = control ? java.text : control.text;
                printStep(L"versions -> failed, " + problem);
                m_panel.setStatus(L"Connected: kesta_frame_" + id);
                m_panel.showAnswer(L"Failed: " + problem);
            }
            m_panel.enableCalls(true);
        });
    });
}

void CHost::feed()
{
    set(L"title", L"Wind power by site, GWh");
    set(L"rows", L"Alta;412|Bergen;655|Molde;538|Narvik;287|Stavanger;721");
    m_pane->call(L"add", L"Troms\u00F8;364", showing(L"callMethod(add, Troms\u00F8;364)"));
    set(L"text", L"Hello");
}

// A server that hangs is still there, and may come back; the user decides.
void CHost::ended(const kesta::Ended& ended)
{
    printStep(L"failed: " + ended.text);
    m_panel.showFailure(ended.reason == kesta::Reason::HUNG ? L"The control does not answer." : L"There is no control.",
                        ended.text);
}

void CHost::startAgain()
{
    m_panel.showBeginning();
    m_pane->restart();
}

void CHost::callFromWindow()
{
    const std::wstring name = m_panel.name();
    const std::wstring argument = m_panel.argument();
    switch (m_panel.operation()) {
    case CALL_METHOD:
        m_pane->call(name, argument, showing(L"callMethod(" + name + L", " + argument + L")"));
        break;
    case SET_PROPERTY:
        set(name, argument);
        break;
    default:
        m_pane->get(name, showing(L"getProperty(" + name + L")"));
    }
}

void CHost::set(const std::wstring& name, const std::wstring& value)
{
    m_pane->set(name, value, showing(L"setProperty(" + name + L", " + value + L")"));
}

kesta::Completion CHost::showing(const std::wstring& call)
{
    return [this, call](const kesta::Result& result) {
        printStep(call + L" -> " + (result ? result.text : L"failed, " + numberText(result.hr)));
        m_panel.showAnswer(result ? result.text : L"Failed: " + result.text);
    };
}

HWND CHost::open(HINSTANCE instance)
{
    return CreateDialogParamW(instance, MAKEINTRESOURCEW(ID_WINDOW), nullptr, dialogProcedure, reinterpret_cast<LPARAM>(this));
}

INT_PTR CHost::handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_INITDIALOG:
        m_panel.init(m_window);
        openPane();
        return TRUE;
    case WM_SIZE:
        if (wParam != SIZE_MINIMIZED) {
            m_panel.arrange();
        }
        return TRUE;
    case WM_GETMINMAXINFO:
        reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {scaled(800), scaled(520)};
        return TRUE;
    case WM_COMMAND:
        if (LOWORD(wParam) == ID_CALL) {
            callFromWindow();
        } else if (LOWORD(wParam) == ID_AGAIN) {
            startAgain();
        } else if (LOWORD(wParam) == ID_OPERATION && HIWORD(wParam) == CBN_SELCHANGE) {
            m_panel.suggestNames();
        }
        return TRUE;
    case WM_CLOSE:
        m_pane.reset();
        DestroyWindow(m_window);
        return TRUE;
    case WM_DESTROY:
        PostQuitMessage(0);
        return TRUE;
    default:
        return FALSE;
    }
}

// No exception may leave it: the callers between it and WinMain are Windows' own.
INT_PTR CALLBACK CHost::dialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
        reinterpret_cast<CHost*>(lParam)->m_window = window;
    }
    auto* host = reinterpret_cast<CHost*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    try {
        return host != nullptr ? host->handle(message, wParam, lParam) : FALSE;
    } catch (const std::exception& problem) {
        const std::string text = problem.what();
        showMessage(std::wstring(text.begin(), text.end()));
        return FALSE;
    }
}

} // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR commandLine, int show)
{
    printStep(L"sample host started");
    const INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES};
    InitCommonControlsEx(&classes);

    const std::wstring options = commandLine;
    CHost host(options.rfind(CONTROL_OPTION, 0) == 0 ? options.substr(std::size(CONTROL_OPTION) - 1) : SAMPLE_CONTROL);
    const HWND window = host.open(instance);
    if (window == nullptr) {
        showMessage(L"The window could not be made: error " + std::to_wstring(GetLastError()));
        return 1;
    }
    ShowWindow(window, show);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (!host.translate(message) && !IsDialogMessageW(window, &message)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
    return static_cast<int>(message.wParam);
}
