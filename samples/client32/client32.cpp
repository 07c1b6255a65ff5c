// A 32-bit client of the 64-bit server.
// usage: client32 late|early|events
// Prints one line for each step. The exit code is the number of steps that failed.
//
// late: by name through IDispatch, as scripts do, and Visual Basic without a reference.
// early: through the interface itself.
// events: the control in a window of this program, a sink, and the three events.
// For the last two COM needs the type library's entry for 32-bit programs, which the installer writes.
//
// Window handles have 32 bits in every program, so nothing here differs from a 64-bit client. Built in the archive's folder like
// any 32-bit program:
//     i686-w64-mingw32-g++-posix -std=c++20 -static -I contract samples/client32/client32.cpp -o client32.exe
//     -lole32 -loleaut32 -luuid
#include "KESTAserver_h.h"

#include <comutil.h>
#include <wrl/client.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace {

constexpr DWORD LIMIT = 60000; // ms, for what Java does in its own time
int s_failures = 0;

// What the program prints is ASCII.
std::string narrow(const wchar_t* text)
{
    const std::wstring wide = text == nullptr ? L"" : text;
    return {wide.begin(), wide.end()};
}

void report(const std::string& step, HRESULT result, const std::string& answer = "")
{
    s_failures += FAILED(result) ? 1 : 0;
    std::printf("%s -> 0x%08lX%s%s\n", step.c_str(), static_cast<unsigned long>(result), answer.empty() ? "" : " ",
                answer.c_str());
    std::fflush(stdout);
}

void expect(const std::string& step, bool isAsExpected)
{
    report(step, isAsExpected ? S_OK : E_FAIL);
}

bool pumpUntil(const std::function<bool()>& done)
{
    const DWORD begin = GetTickCount();
    while (!done()) {
        if (GetTickCount() - begin > LIMIT) {
            return false;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
        for (MSG message; PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE);) {
            TranslateMessage(&message);
            DispatchMessageA(&message);
        }
    }
    return true;
}

// Late bound: the name first becomes a member id, then the call goes through IDispatch.
HRESULT call(IDispatch* object, const wchar_t* name, const std::vector<_variant_t>& arguments, _variant_t& answer,
             std::string& error)
{
    LPOLESTR word = const_cast<LPOLESTR>(name);
    DISPID member = DISPID_UNKNOWN;
    const HRESULT found = object->GetIDsOfNames(IID_NULL, &word, 1, LOCALE_USER_DEFAULT, &member);
    if (FAILED(found)) {
        return found;
    }
    std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend()); // the last argument comes first
    DISPPARAMS parameters = {reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    EXCEPINFO exception = {};
    const HRESULT result =
        object->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, &exception, nullptr);
    error = narrow(exception.bstrDescription);
    for (const BSTR text : {exception.bstrSource, exception.bstrDescription, exception.bstrHelpFile}) {
        SysFreeString(text);
    }
    return result;
}

std::string tell(IDispatch* object, const wchar_t* name, const std::vector<_variant_t>& arguments)
{
    _variant_t answer;
    std::string error;
    report(narrow(name), call(object, name, arguments, answer, error));
    return answer.vt == VT_BSTR ? narrow(answer.bstrVal) : "";
}

void bindLate()
{
    ComPtr<IDispatch> control;
    report("CoCreateInstance", CoCreateInstance(__uuidof(JavaManager), nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&control)));
    if (control.Get() == nullptr) {
        return;
    }
    tell(control.Get(), L"setUsedControl", {L"Stations", L""});
    tell(control.Get(), L"setProperty", {L"text", L"from 32 bits"});
    expect("the text is back", tell(control.Get(), L"getProperty", {L"text"}) == "from 32 bits");
    _variant_t answer;
    std::string error;
    const HRESULT refused = call(control.Get(), L"callMethod", {L"nonsense", L""}, answer, error);
    expect("a failing call has its error text", FAILED(refused) && error.find("no method \"nonsense\"") != std::string::npos);
}

void bindEarly()
{
    ComPtr<IUnknown> object;
    ComPtr<IJavaManager> control;
    report("CoCreateInstance", CoCreateInstance(__uuidof(JavaManager), nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&object)));
    if (object.Get() == nullptr) {
        return;
    }
    report("QueryInterface(IJavaManager)", object.As(&control));
    if (control.Get() == nullptr) {
        return;
    }
    _bstr_t answer;
    report("setUsedControl", control->setUsedControl(_bstr_t(L"Stations"), _bstr_t(L""), answer.GetAddress()));
    report("setProperty", control->setProperty(_bstr_t(L"text"), _bstr_t(L"from 32 bits"), answer.GetAddress()));
    report("getProperty", control->getProperty(_bstr_t(L"text"), answer.GetAddress()));
    expect("the text is back", narrow(answer) == "from 32 bits");
    int frameId = -1;
    report("getBeanFrameID", control->getBeanFrameID(&frameId));
    expect("it is a number", frameId > 0);
}

class CSink : public IDispatch
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown = iid == IID_IUnknown || iid == IID_IDispatch || iid == __uuidof(_IJavaManagerEvents);
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; } // it outlives its connection
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*) override
    {
        if (parameters->cArgs != 1 || parameters->rgvarg[0].vt != VT_BSTR) {
            return DISP_E_TYPEMISMATCH;
        }
        m_events.push_back(std::to_string(id) + " " + narrow(parameters->rgvarg[0].bstrVal));
        return S_OK;
    }

    bool has(const std::string& beginning) const
    {
        for (const std::string& event : m_events) {
            if (event.starts_with(beginning)) {
                return true;
            }
        }
        return false;
    }

private:
    std::vector<std::string> m_events;
};

// The window of the server's frame. Any program can give a window this name, so it has to belong to the server's process.
HWND frameOf(DWORD server)
{
    const std::string name = "kesta_frame_" + std::to_string(server);
    HWND window = nullptr;
    DWORD process = 0;
    while (process != server && (window = FindWindowExA(nullptr, window, nullptr, name.c_str())) != nullptr) {
        GetWindowThreadProcessId(window, &process);
    }
    return window;
}

// In the server's own time, so that a busy server does not hold up this program.
void fit(HWND frame, int width, int height)
{
    SetWindowPos(frame, nullptr, 0, 0, width, height,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_ASYNCWINDOWPOS);
}

// Makes the frame a child of the pane. Its first size differs from every later one: Java paints all of it when that changes.
void takeIn(HWND frame, HWND pane)
{
    const DWORD style = static_cast<DWORD>(GetWindowLongA(frame, GWL_STYLE)) & ~(WS_POPUP | WS_CAPTION | WS_THICKFRAME);
    SetWindowLongA(frame, GWL_STYLE, static_cast<LONG>(style | WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS));
    // Or each click in the control would wait until this program has handled a message about it.
    SetWindowLongA(frame, GWL_EXSTYLE, GetWindowLongA(frame, GWL_EXSTYLE) | WS_EX_NOPARENTNOTIFY);
    SetParent(frame, pane);
    fit(frame, 1, 1);
}

bool hasChildStyles(HWND frame)
{
    constexpr DWORD ONES_OF_INTEREST = WS_CHILD | WS_POPUP | WS_CAPTION | WS_THICKFRAME;
    return (static_cast<DWORD>(GetWindowLongA(frame, GWL_STYLE)) & ONES_OF_INTEREST) == WS_CHILD &&
           (GetWindowLongA(frame, GWL_EXSTYLE) & WS_EX_NOPARENTNOTIFY) != 0;
}

bool hasSizeOf(HWND frame, HWND pane)
{
    RECT inner = {};
    RECT outer = {};
    GetClientRect(frame, &inner);
    GetClientRect(pane, &outer);
    return inner.right == outer.right && inner.bottom == outer.bottom;
}

// Null, with the reason reported, when there is no frame, for instance because Java was not found.
HWND findFrame(IDispatch* control)
{
    _variant_t id;
    _variant_t answer;
    std::string error;
    report("getBeanFrameID", call(control, L"getBeanFrameID", {}, id, error), error);
    const HRESULT valid = call(control, L"validate", {}, answer, error);
    report("validate", valid, error);
    const HWND frame = SUCCEEDED(valid) ? frameOf(static_cast<DWORD>(static_cast<long>(id))) : nullptr;
    expect("the frame is there", frame != nullptr);
    return frame;
}

void useControl(IDispatch* control, const CSink& sink, HWND frame, HWND pane)
{
    takeIn(frame, pane);
    expect("the frame is in the window", GetParent(frame) == pane);
    expect("the frame has a child's styles", hasChildStyles(frame));
    tell(control, L"pushWindowHandle", {static_cast<long>(reinterpret_cast<LONG_PTR>(pane))});
    tell(control, L"setUsedControl", {L"Stations", L""});
    expect("controlReady", pumpUntil([&] { return sink.has("3 "); }));
    fit(frame, 480, 300); // the control is in it, and can be seen
    expect("the control fills the pane", pumpUntil([&] { return hasSizeOf(frame, pane); }));
    tell(control, L"testBridge", {L"abc", 1L, 0L});
    expect("testBridgeEvent", pumpUntil([&] { return sink.has("2 abc"); }));
    tell(control, L"callMethod", {L"sum", L""});
    expect("customEvent", pumpUntil([&] { return sink.has("4 sum"); }));
}

void takeEvents()
{
    CSink sink;
    ComPtr<IDispatch> control;
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    report("CoCreateInstance", CoCreateInstance(__uuidof(JavaManager), nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&control)));
    if (control.Get() == nullptr || FAILED(control.As(&container))) {
        return report("IConnectionPointContainer", E_NOINTERFACE);
    }
    report("FindConnectionPoint", container->FindConnectionPoint(__uuidof(_IJavaManagerEvents), &point));
    const HRESULT advised = point.Get() == nullptr ? E_POINTER : point->Advise(&sink, &cookie);
    report("Advise", advised);
    if (FAILED(advised)) {
        return;
    }
    const HWND window = CreateWindowExA(0, "STATIC", "32-bit client", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 40, 40,
                                        500, 340, nullptr, nullptr, nullptr, nullptr);
    const HWND pane = CreateWindowExA(0, "STATIC", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 480, 300, window, nullptr,
                                      nullptr, nullptr);
    if (const HWND frame = findFrame(control.Get()); frame != nullptr) {
        useControl(control.Get(), sink, frame, pane);
    }
    point->Unadvise(cookie);
    CoDisconnectObject(&sink, 0);
    point.Reset();
    container.Reset();
    control.Reset(); // before the pane is destroyed
    DestroyWindow(window);
}

} // namespace

int main(int count, char** words)
{
    const std::string mode = count == 2 ? words[1] : "";
    CoInitialize(nullptr);
    if (mode == "late") {
        bindLate();
    } else if (mode == "early") {
        bindEarly();
    } else if (mode == "events") {
        takeEvents();
    } else {
        expect("usage: client32 late|early|events", false);
    }
    CoUninitialize();
    return s_failures;
}
