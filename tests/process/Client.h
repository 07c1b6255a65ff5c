// The parts of a client: object, window, sink. Used by the tests and by the client process.
//
// Threads: one, which has entered a single-threaded apartment and handles messages.
#pragma once

#include "KESTAserver_h.h"
#include "tests/process/Program.h"

#include <functional>
#include <string>
#include <vector>

namespace fixtures {

std::string narrow(BSTR text);

// A top-level window with a child pane, whose handle the server gets.
class CClientWindow
{
public:
    CClientWindow();
    ~CClientWindow();
    CClientWindow(const CClientWindow&) = delete;
    CClientWindow& operator=(const CClientWindow&) = delete;

    HWND window() const { return m_window; }
    HWND pane() const { return m_pane; }
    // The pane's handle as the server takes it.
    int handle() const { return static_cast<int>(reinterpret_cast<INT_PTR>(m_pane)); }
    void destroy();
    // Makes the frame's window a child that fills the pane. False when there is no such frame.
    bool takeIn(int frameId) const;

private:
    HWND m_window;
    HWND m_pane;
};

// Records its events. Not reference counted: it must outlive its connection.
class CSink : public IDispatch
{
public:
    struct Event
    {
        DISPID id;
        std::string text;
        DWORD thread;
        ULONGLONG time; // GetTickCount64
    };

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override { return --m_references; }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*) override;

    std::vector<Event> events;
    // Called inside the sink with each event, after it was recorded.
    std::function<void(const Event&)> reaction;
    HRESULT answer = S_OK;

    // How often the event came.
    size_t count(DISPID id, const std::string& text) const;
    bool has(DISPID id, const std::string& text) const { return count(id, text) != 0; }
    ULONG references() const { return m_references; }

private:
    ULONG m_references = 0;
};

constexpr DISPID TEST_BRIDGE_EVENT = 2;
constexpr DISPID CONTROL_READY = 3;
constexpr DISPID CUSTOM_EVENT = 4;

// The event connection of an object.
class CConnection
{
public:
    CConnection(IUnknown* object, CSink& sink);
    ~CConnection() { end(); }
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    DWORD cookie() const { return m_cookie; }
    void end();
    // Drops the reference and leaves the sink connected.
    void abandon() { m_point.Release(); }

private:
    ATL::CComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
};

// A call's result, its answer as text, and what the caller learns about a failure.
struct SCallResult
{
    HRESULT result;
    std::string answer;
    std::string description;
    std::string source;
};

// A late-bound argument.
class CArgument
{
public:
    CArgument(const char* text);
    CArgument(int number);
    const VARIANT& variant() const { return m_variant; }

private:
    ATL::CComVariant m_variant;
};

// Calls as scripts do, by member id.
SCallResult invoke(IDispatch* object, DISPID member, const std::vector<const VARIANT*>& arguments);
template <class... Arguments>
SCallResult call(IDispatch* object, DISPID member, const Arguments&... arguments)
{
    const CArgument converted[] = {CArgument(arguments)..., CArgument(0)};
    std::vector<const VARIANT*> pointers;
    for (size_t index = 0; index < sizeof...(arguments); ++index) {
        pointers.push_back(&converted[index].variant());
    }
    return invoke(object, member, pointers);
}
DISPID memberId(IDispatch* object, const wchar_t* name);

// Early-bound callMethod; "(failed)" when it fails.
std::string callMethod(IJavaManager* manager, const char* name, const char* argument);

} // namespace fixtures
