// The server's object, late bound: by member ids alone, so that neither type library nor generated header is needed, and error
// texts arrive with the calls.
//
// One thread, which has entered a single-threaded apartment. Failures are Results with their text.
#pragma once

#include "client/kesta_pane.h"

#include <oleauto.h>
#include <ocidl.h>
#include <wrl/client.h>

namespace kesta {

constexpr DISPID CALL_METHOD = 3;
constexpr DISPID GET_PROPERTY = 8;
constexpr DISPID SET_PROPERTY = 11;
constexpr DISPID SET_USED_CONTROL = 12;
constexpr DISPID GET_BEAN_FRAME_ID = 14;
constexpr DISPID VALIDATE = 15;
constexpr DISPID ENABLE = 18;
constexpr DISPID PUSH_WINDOW_HANDLE = 19;

// "0x80040154 Class not registered", and behind a sentence of our own.
std::wstring errorText(HRESULT hr);
Result failure(HRESULT hr, const std::wstring& what);
// Of GetLastError.
Result lastFailure(const std::wstring& what);

class CSink;

class CServerObject
{
public:
    using EventHandler = std::function<void(EventKind kind, const std::wstring& text)>;

    CServerObject();
    ~CServerObject();
    CServerObject(const CServerObject&) = delete;
    CServerObject& operator=(const CServerObject&) = delete;

    // Starts a server process.
    Result create();
    // Connects the handler, which is called while this thread handles messages or waits for a call.
    Result connect(EventHandler handler);
    Result invoke(DISPID member, const std::vector<Value>& arguments) const;
    // Without a call behind it, the server's process goes on ending for about a second.
    void release();

private:
    Microsoft::WRL::ComPtr<IDispatch> m_object;
    Microsoft::WRL::ComPtr<IConnectionPoint> m_point;
    Microsoft::WRL::ComPtr<CSink> m_sink;
    DWORD m_cookie = 0;
};

} // namespace kesta
