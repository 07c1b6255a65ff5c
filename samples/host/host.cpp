// The KESTA sample host: a native window with a pane that shows a Java control from another process.
//
// What a client does, in this order and one function each:
//   connect       create the object, connect a sink for its events, get the id of its frame
//   takeIn        take the frame's window into a pane and pass the pane's handle to the server
//   feed          send the control its data
//   call          any further call: here whatever the user chose in the window
//   fitFrame      resize pane and frame with the window
//   disconnect    disconnect the sink and release the object, which ends the server process
// The native controls around the pane are in panel.cpp; drive.cpp plays the user where there is none.
#include "host.h"
#include "panel.h"

#include "KESTAserver_h.h"

#include <commctrl.h>
#include <comutil.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstring>
#include <format>
#include <functional>
#include <future>
#include <iterator>
#include <utility>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace {

constexpr UINT WM_CONNECT = WM_APP;
constexpr UINT_PTR FRAME_TIMER = 1;
constexpr UINT FRAME_TIMER_PERIOD = 50;
constexpr ULONGLONG FRAME_TIME_LIMIT = 20000;

// Names of the operations and, for late-bound calls, their member ids.
constexpr const char* OPERATIONS[] = {"callMethod", "setProperty", "getProperty"};
constexpr DISPID DISPIDS[] = {3, 11, 8};
constexpr DISPID DISPID_VALIDATE = 15;
constexpr DISPID DISPID_GET_PROPERTY = 8;

constexpr char SAMPLE_CONTROL[] = "Stations";
constexpr char CONTROL_OPTION[] = "/control ";

// Between COM's strings and those in the system's code page. A null BSTR is an empty string.
_bstr_t wide(const std::string& text)
{
    std::wstring wide(text.size(), L'\0');
    const int size = static_cast<int>(text.size());
    wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), size)));
    return wide.c_str();
}

std::string narrow(const _bstr_t& text)
{
    const int length = static_cast<int>(text.length());
    std::string narrow(size_t{2} * text.length(), '\0');
    const int room = static_cast<int>(narrow.size());
    narrow.resize(static_cast<size_t>(WideCharToMultiByte(CP_ACP, 0, text, length, narrow.data(), room, nullptr, nullptr)));
    return narrow;
}

std::string systemText(HRESULT hr)
{
    char text[256] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr,
                   static_cast<DWORD>(hr), 0, text, sizeof text, nullptr);
    return std::format("0x{:08X}{}{}", static_cast<unsigned>(hr), *text ? " " : "", text);
}

std::string frameName(int frameId)
{
    return std::format("kesta_frame_{}", frameId);
}

// The server's frame: its id is also the server's process. Any program could give a window such a name.
HWND findFrame(int frameId)
{
    HWND window = nullptr;
    while ((window = FindWindowExA(nullptr, window, nullptr, frameName(frameId).c_str())) != nullptr) {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == static_cast<DWORD>(frameId)) {
            break;
        }
    }
    return window;
}

// Receives the control's events as IDispatch calls with one text each, on the thread that connected the sink. The server queues
// them, so the Java thread that raised one does not wait.
class CEventSink final : public IDispatch
{
public:
    using Handler = std::function<void(const char* event, const std::string& text)>;

    explicit CEventSink(Handler handler)
        : m_handler(std::move(handler))
    {
    }
    virtual ~CEventSink() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == __uuidof(_IJavaManagerEvents);
        *object = known ? this : nullptr;
        return known ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) override
    {
        static constexpr const char* EVENTS[] = {"testBridgeEvent", "controlReady", "customEvent"}; // ids 2, 3 and 4
        if (id < 2 || id > 4) {
            return DISP_E_MEMBERNOTFOUND;
        }
        if (params->cArgs != 1 || params->rgvarg[0].vt != VT_BSTR) {
            return DISP_E_TYPEMISMATCH;
        }
        m_handler(EVENTS[id - 2], narrow(_bstr_t(params->rgvarg[0].bstrVal)));
        return S_OK;
    }

private:
    Handler m_handler;
    ULONG m_references = 0;
};

// The control's answer to a call, or the error text when hr is a failure.
struct SResult
{
    HRESULT hr;
    std::string text;
};

class CHost
{
public:
    // The control to show, by its name.
    explicit CHost(const std::string& control)
        : m_control(control)
    {
    }
    HWND open(HINSTANCE instance);

private:
    void connect();
    void lookForFrame();
    void takeIn(HWND frame);
    void feed();
    std::string connectionText();
    void callFromWindow();
    SResult call(int operation, const std::string& name, const std::string& argument, bool lateBound = false);
    SResult callEarlyBound(int operation, const _bstr_t& name, const _bstr_t& argument);
    SResult callLateBound(DISPID method, std::vector<_variant_t> arguments);
    void fitFrame();
    void disconnect();
    void fail(const std::string& what, const std::string& why);

    void work(void (CHost::*piece)());
    INT_PTR handle(UINT message, WPARAM wParam, LPARAM lParam);
    static INT_PTR CALLBACK dialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    const std::string m_control;
    HWND m_window = nullptr;
    HWND m_pane = nullptr;
    HWND m_frame = nullptr; // the Java frame's window, which belongs to the server process
    CPanel m_panel;
    ComPtr<IJavaManager> m_manager;
    ComPtr<IConnectionPoint> m_connectionPoint;
    DWORD m_cookie = 0;
    int m_frameID = -1;
    ULONGLONG m_deadline = 0;
    bool m_working = false;
    bool m_closeWanted = false;
};

// Starts a server process for this object alone (the class is single-use), and in it Java, the control and its frame.
void CHost::connect()
{
    HRESULT hr = CoCreateInstance(__uuidof(JavaManager), nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&m_manager));
    if (FAILED(hr)) {
        return fail("JavaManager could not be created. Is the server registered?", systemText(hr));
    }
    printStep("object created");

    ComPtr<IConnectionPointContainer> container;
    ComPtr<IDispatch> sink(new CEventSink([this](const char* event, const std::string& text) { m_panel.addEvent(event, text); }));
    hr = m_manager.As(&container);
    if (SUCCEEDED(hr)) {
        hr = container->FindConnectionPoint(__uuidof(_IJavaManagerEvents), &m_connectionPoint);
    }
    if (SUCCEEDED(hr)) {
        hr = m_connectionPoint->Advise(sink.Get(), &m_cookie);
    }
    if (FAILED(hr)) {
        return fail("The event sink could not be connected.", systemText(hr));
    }

    // Creation succeeds even if Java did not start. The id is then -1, and the next failing call says why.
    hr = m_manager->getBeanFrameID(&m_frameID);
    if (FAILED(hr) || m_frameID == -1) {
        return fail("The server has no control to show: its frame id is -1.", callLateBound(DISPID_VALIDATE, {}).text);
    }
    printStep(std::format("frame id {}", m_frameID));
    m_deadline = GetTickCount64() + FRAME_TIME_LIMIT;
    SetTimer(m_window, FRAME_TIMER, FRAME_TIMER_PERIOD, nullptr);
}

// A Java thread may show the frame some time after the creation of the object; later the same timer notices when it is gone.
void CHost::lookForFrame()
{
    if (m_frame != nullptr) {
        if (!IsWindow(m_frame)) {
            fail("The server process has ended, and the control with it.", "Close this window and start the program again.");
        }
    } else if (HWND frame = findFrame(m_frameID)) {
        takeIn(frame);
    } else if (GetTickCount64() > m_deadline) {
        fail("The control's frame did not appear.",
             std::format("The server has no window with the name {}.", frameName(m_frameID)));
    }
}

// Makes the frame's window a child of the pane, then passes the pane's handle to the server, which puts the control into the
// frame and watches the pane from then on. The pane must be a child window: without a parent it counts as a dead client.
void CHost::takeIn(HWND frame)
{
    m_frame = frame;
    const LONG_PTR style = GetWindowLongPtrA(frame, GWL_STYLE) & ~LONG_PTR{WS_CAPTION | WS_THICKFRAME} & ~LONG_PTR{WS_POPUP};
    SetWindowLongPtrA(frame, GWL_STYLE, style | WS_CHILD | WS_CLIPCHILDREN);
    SetParent(frame, m_pane);

    const HRESULT hr = m_manager->pushWindowHandle(static_cast<int>(reinterpret_cast<INT_PTR>(m_pane)));
    if (FAILED(hr)) {
        return fail("The control could not be put into its frame.", systemText(hr));
    }
    m_panel.setPaneText("");
    fitFrame();
    printStep(frameName(m_frameID) + " is in the window");

    // Chooses the control, and lets the frame take the keyboard focus, so that its text field accepts typing.
    _bstr_t used;
    if (FAILED(m_manager->setUsedControl(wide(m_control), _bstr_t(L""), used.GetAddress()))) {
        return fail("The control is not there.", callLateBound(DISPID_GET_PROPERTY, {_variant_t(L"")}).text);
    }
    if (m_control == SAMPLE_CONTROL) {
        feed();
    }
    m_panel.setStatus(connectionText());
    m_panel.enableCalls(true);
}

void CHost::feed()
{
    call(SET_PROPERTY, "title", "Wind power by site, GWh");
    call(SET_PROPERTY, "rows", "Alta;412|Bergen;655|Molde;538|Narvik;287|Stavanger;721");
    call(CALL_METHOD, "add", "Troms\\u00F8;364"); // beyond ASCII texts are encoded
    call(SET_PROPERTY, "text", "Hello");
}

void CHost::callFromWindow()
{
    const SResult result = call(m_panel.operation(), m_panel.name(), m_panel.argument(), m_panel.lateBound());
    m_panel.showAnswer(FAILED(result.hr) ? "Failed: " + result.text : result.text);
}

std::string CHost::connectionText()
{
    _bstr_t control;
    _bstr_t java;
    m_manager->getBasisControlVersionInfo(control.GetAddress());
    m_manager->getVersionInfo(_bstr_t(L"java"), java.GetAddress());
    return std::format("Connected: kesta_frame_{}, {}, Java {}", m_frameID, narrow(control), narrow(java));
}

SResult CHost::call(int operation, const std::string& name, const std::string& argument, bool lateBound)
{
    const _bstr_t first = wide(name);
    const _bstr_t second = wide(argument);
    std::vector<_variant_t> arguments = {first, second};
    arguments.resize(operation == GET_PROPERTY ? 1 : 2);
    SResult result = lateBound ? callLateBound(DISPIDS[operation], arguments) : callEarlyBound(operation, first, second);
    const std::string given = operation == GET_PROPERTY ? name : name + ", " + argument;
    const std::string answer = FAILED(result.hr) ? "failed, " + systemText(result.hr) : result.text;
    printStep(std::format("{}({}) -> {}", OPERATIONS[operation], given, answer));
    return result;
}

// A plain C++ call through the dual interface. The answer is a BSTR that we free. The text of a failure, the server's log lines
// about it, is in the thread's COM error information.
SResult CHost::callEarlyBound(int operation, const _bstr_t& name, const _bstr_t& argument)
{
    _bstr_t answer;
    HRESULT hr = S_OK;
    if (operation == CALL_METHOD) {
        hr = m_manager->callMethod(name, argument, answer.GetAddress());
    } else if (operation == SET_PROPERTY) {
        hr = m_manager->setProperty(name, argument, answer.GetAddress());
    } else {
        hr = m_manager->getProperty(name, answer.GetAddress());
    }
    if (SUCCEEDED(hr)) {
        return {hr, narrow(answer)};
    }
    ComPtr<IErrorInfo> info;
    _bstr_t description;
    if (GetErrorInfo(0, &info) == S_OK) {
        info->GetDescription(description.GetAddress());
    }
    return {hr, description.length() > 0 ? narrow(description) : systemText(hr)};
}

// The same through IDispatch, as scripts do. The text of a failure comes with the call itself.
SResult CHost::callLateBound(DISPID method, std::vector<_variant_t> arguments)
{
    std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend()); // the last argument comes first
    DISPPARAMS params = {reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    _variant_t answer;
    EXCEPINFO exception = {};
    HRESULT hr = m_manager->Invoke(method, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &answer, &exception, nullptr);
    const _bstr_t source(exception.bstrSource, false);
    const _bstr_t description(exception.bstrDescription, false);
    const _bstr_t help(exception.bstrHelpFile, false);
    if (SUCCEEDED(hr)) {
        return {hr, answer.vt == VT_BSTR ? narrow(answer.bstrVal) : ""};
    }
    hr = hr == DISP_E_EXCEPTION ? exception.scode : hr;
    return {hr, description.length() > 0 ? narrow(description) : systemText(hr)};
}

// The server's setBounds does not pass its values to Java, so the client itself moves the frame; it does not wait, so that a busy
// server cannot block this window.
void CHost::fitFrame()
{
    RECT pane;
    GetClientRect(m_pane, &pane);
    SetWindowPos(m_frame, nullptr, 0, 0, pane.right, pane.bottom,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_ASYNCWINDOWPOS);
}

// The last release ends the server process. The frame goes with it, before the pane does.
void CHost::disconnect()
{
    KillTimer(m_window, FRAME_TIMER);
    if (m_cookie != 0) {
        m_connectionPoint->Unadvise(m_cookie);
        m_cookie = 0;
    }
    m_connectionPoint.Reset();
    m_manager.Reset();
    m_frame = nullptr;
}

// Shows in the pane what is wrong, and why in the answer field. The rest of the connection is released with the window.
void CHost::fail(const std::string& what, const std::string& why)
{
    printStep(std::format("failed: {} {}", what, why));
    KillTimer(m_window, FRAME_TIMER);
    m_frame = nullptr;
    m_panel.setPaneText(what.c_str());
    m_panel.setStatus("No control");
    m_panel.showAnswer(why);
    m_panel.enableCalls(false);
}

HWND CHost::open(HINSTANCE instance)
{
    return CreateDialogParamA(instance, MAKEINTRESOURCEA(ID_WINDOW), nullptr, dialogProcedure, reinterpret_cast<LPARAM>(this));
}

// While a call to the other process is running, this window handles messages. None of them may start another call, and closing
// the window waits until the call has returned.
void CHost::work(void (CHost::*piece)())
{
    if (m_working) {
        return;
    }
    m_working = true;
    (this->*piece)();
    m_working = false;
    if (m_closeWanted) {
        PostMessageA(m_window, WM_CLOSE, 0, 0);
    }
}

INT_PTR CHost::handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_INITDIALOG:
        m_pane = GetDlgItem(m_window, ID_PANE);
        m_panel.init(m_window);
        PostMessageA(m_window, WM_CONNECT, 0, 0); // posted, so that the window appears before Java starts
        return TRUE;
    case WM_CONNECT:
        work(&CHost::connect);
        return TRUE;
    case WM_TIMER:
        work(&CHost::lookForFrame);
        return TRUE;
    case WM_SIZE:
        if (wParam != SIZE_MINIMIZED) {
            m_panel.arrange();
            if (m_frame != nullptr) {
                fitFrame();
            }
        }
        return TRUE;
    case WM_GETMINMAXINFO:
        reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {800, 520};
        return TRUE;
    case WM_COMMAND:
        if (LOWORD(wParam) == ID_CALL) {
            work(&CHost::callFromWindow);
        } else if (LOWORD(wParam) == ID_OPERATION && HIWORD(wParam) == CBN_SELCHANGE) {
            m_panel.suggestNames();
        }
        return TRUE;
    case WM_CLOSE:
        if (m_working) {
            m_closeWanted = true;
        } else {
            work(&CHost::disconnect);
            DestroyWindow(m_window);
        }
        return TRUE;
    case WM_DESTROY:
        PostQuitMessage(0);
        return TRUE;
    default:
        return FALSE;
    }
}

INT_PTR CALLBACK CHost::dialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrA(window, GWLP_USERDATA, lParam);
        reinterpret_cast<CHost*>(lParam)->m_window = window;
    }
    auto* host = reinterpret_cast<CHost*>(GetWindowLongPtrA(window, GWLP_USERDATA));
    return host != nullptr ? host->handle(message, wParam, lParam) : FALSE;
}

} // namespace

void printStep(const std::string& text)
{
    static const ULONGLONG START = GetTickCount64();
    std::printf("%6llu ms  %s\n", GetTickCount64() - START, text.c_str());
    std::fflush(stdout);
}

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR commandLine, int show)
{
    printStep("sample host started");
    const HRESULT hr = CoInitialize(nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    const INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES};
    InitCommonControlsEx(&classes);

    int exitCode = 0;
    {
        const bool isNamed = std::strncmp(commandLine, CONTROL_OPTION, std::strlen(CONTROL_OPTION)) == 0;
        CHost host(isNamed ? commandLine + std::strlen(CONTROL_OPTION) : SAMPLE_CONTROL);
        HWND window = host.open(instance);
        ShowWindow(window, show);
        std::future<int> driver;
        if (std::strcmp(commandLine, "/drive") == 0) {
            driver = std::async(std::launch::async, drive, window);
        }
        MSG message;
        while (GetMessageA(&message, nullptr, 0, 0) > 0) {
            if (!IsDialogMessageA(window, &message)) {
                TranslateMessage(&message);
                DispatchMessageA(&message);
            }
        }
        exitCode = driver.valid() ? driver.get() : static_cast<int>(message.wParam);
    }
    CoUninitialize();
    return exitCode;
}
