#include "tests/process/Client.h"

#include <algorithm>
#include <stdexcept>

namespace fixtures {

using namespace ATL;

std::string narrow(BSTR text)
{
    const int length = static_cast<int>(SysStringLen(text));
    if (length == 0) {
        return {};
    }
    const int needed = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, length, result.data(), needed, nullptr, nullptr);
    return result;
}

CClientWindow::CClientWindow()
    : m_window(CreateWindowExA(0, "STATIC", "client", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 40, 40, 640, 400,
                               nullptr, nullptr, nullptr, nullptr))
    , m_pane(CreateWindowExA(0, "STATIC", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 600, 360, m_window, nullptr, nullptr,
                             nullptr))
{
    if (m_pane == nullptr) {
        throw std::runtime_error("the client's window cannot be created");
    }
}

CClientWindow::~CClientWindow()
{
    destroy();
}

void CClientWindow::destroy()
{
    if (m_window != nullptr) {
        DestroyWindow(m_window);
    }
    m_window = nullptr;
}

bool CClientWindow::takeIn(int frameId) const
{
    const std::string name = "kesta_frame_" + std::to_string(frameId);
    const HWND frame = FindWindowA(nullptr, name.c_str());
    if (frame == nullptr) {
        return false;
    }
    const LONG_PTR style = GetWindowLongPtrA(frame, GWL_STYLE) & ~LONG_PTR{WS_CAPTION | WS_THICKFRAME} & ~LONG_PTR{WS_POPUP};
    SetWindowLongPtrA(frame, GWL_STYLE, style | WS_CHILD | WS_CLIPCHILDREN);
    SetParent(frame, m_pane);
    RECT area;
    GetClientRect(m_pane, &area);
    return SetWindowPos(frame, nullptr, 0, 0, area.right, area.bottom,
                        SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_ASYNCWINDOWPOS) != 0;
}

STDMETHODIMP CSink::QueryInterface(REFIID iid, void** object)
{
    const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == DIID__IJavaManagerEvents;
    *object = known ? this : nullptr;
    return known ? (AddRef(), S_OK) : E_NOINTERFACE;
}

STDMETHODIMP CSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*)
{
    if (parameters->cArgs != 1 || parameters->rgvarg[0].vt != VT_BSTR) {
        return DISP_E_TYPEMISMATCH;
    }
    const Event event{id, narrow(parameters->rgvarg[0].bstrVal), GetCurrentThreadId(), GetTickCount64()};
    events.push_back(event);
    if (const auto react = reaction) { // a copy: it may put another one in its place
        react(event);
    }
    return answer;
}

size_t CSink::count(DISPID id, const std::string& text) const
{
    return static_cast<size_t>(
        std::count_if(events.begin(), events.end(), [&](const Event& event) { return event.id == id && event.text == text; }));
}

CConnection::CConnection(IUnknown* object, CSink& sink)
{
    CComPtr<IConnectionPointContainer> container;
    HRESULT hr = object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
    if (SUCCEEDED(hr)) {
        hr = container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point);
    }
    if (SUCCEEDED(hr)) {
        hr = m_point->Advise(&sink, &m_cookie);
    }
    if (FAILED(hr)) {
        throw std::runtime_error("the sink cannot be connected: " + std::to_string(hr));
    }
}

void CConnection::end()
{
    if (m_point != nullptr) {
        m_point->Unadvise(m_cookie);
    }
    m_point.Release();
}

CArgument::CArgument(const char* text)
    : m_variant(CComBSTR(text))
{
}

CArgument::CArgument(int number)
    : m_variant(number)
{
}

SCallResult invoke(IDispatch* object, DISPID member, const std::vector<const VARIANT*>& arguments)
{
    std::vector<VARIANT> reversed; // the last argument comes first; the texts stay the caller's
    for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument) {
        reversed.push_back(**argument);
    }
    DISPPARAMS parameters = {reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    CComVariant answer;
    EXCEPINFO exception = {};
    const HRESULT hr =
        object->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, &exception, nullptr);
    CComBSTR description;
    CComBSTR source;
    CComBSTR help;
    description.Attach(exception.bstrDescription);
    source.Attach(exception.bstrSource);
    help.Attach(exception.bstrHelpFile);
    SCallResult result{hr == DISP_E_EXCEPTION ? exception.scode : hr, "", narrow(description), narrow(source)};
    if (SUCCEEDED(hr) && answer.vt != VT_EMPTY && SUCCEEDED(answer.ChangeType(VT_BSTR))) {
        result.answer = narrow(answer.bstrVal);
    }
    return result;
}

DISPID memberId(IDispatch* object, const wchar_t* name)
{
    std::wstring text = name;
    LPOLESTR names = text.data();
    DISPID id = DISPID_UNKNOWN;
    object->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id);
    return id;
}

std::string callMethod(IJavaManager* manager, const char* name, const char* argument)
{
    CComBSTR answer;
    if (FAILED(manager->callMethod(CComBSTR(name), CComBSTR(argument), &answer))) {
        return "(failed)";
    }
    return narrow(answer);
}

} // namespace fixtures
