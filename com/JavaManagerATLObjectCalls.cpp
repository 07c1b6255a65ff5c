// The methods of IJavaManager, their error info and the test bridge.
#include "com/JavaManagerATLObject.h"

#include "beanframe/BeanFrame.h"

#include <string_view>

#define LOG_SOURCE "JavaManagerATLObject"

namespace {

constexpr std::wstring_view FAILING_TEXT = L"error";

bool beginsWith(BSTR text, std::wstring_view start)
{
    return text != nullptr && std::wstring_view(text, SysStringLen(text)).starts_with(start);
}

} // namespace

template <class Call>
HRESULT CJavaManagerATLObject::forward(Call&& call, FrameCheck check)
{
    const HRESULT hr = AtlGuard([&]() -> HRESULT {
        if (check == FrameCheck::Logged || CBeanFrame::s_Instance == nullptr) {
            RETURN_IF_FALSE(CBeanFrame::s_Instance!=NULL, E_FAIL);
        }
        return call(*CBeanFrame::s_Instance);
    });
    return provideErrorInfo(hr);
}

HRESULT CJavaManagerATLObject::provideErrorInfo(HRESULT hr)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::provideErrorInfo", hr);
    if (hr >= 0) {
        return S_OK; // success codes are flattened, deliberately
    }
    const std::string description = Logger::getErrorEntries();
    LOG(TRACE, "Providing Error Info!");
    return Error(description.c_str(), IID_IJavaManager, hr);
}

STDMETHODIMP CJavaManagerATLObject::InterfaceSupportsErrorInfo(REFIID riid)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::InterfaceSupportsErrorInfo");
    return riid == IID_IJavaManager ? S_OK : S_FALSE;
}

STDMETHODIMP CJavaManagerATLObject::callMethod(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::callMethod", arg0 << ", " << arg1);
    return forward([&](CBeanFrame& frame) { return frame.callMethod(arg0, arg1, result); });
}

STDMETHODIMP CJavaManagerATLObject::callMethodCompressed(BSTR arg0, int arg1, BSTR arg2, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::callMethodCompressed", arg0 << ", " << arg1 << ", " << arg2);
    return forward([&](CBeanFrame& frame) { return frame.callMethodCompressed(arg0, arg1, arg2, result); });
}

STDMETHODIMP CJavaManagerATLObject::displayDebugConsole(BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::displayDebugConsole");
    return forward([&](CBeanFrame& frame) { return frame.displayDebugConsole(result); });
}

STDMETHODIMP CJavaManagerATLObject::free(BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::free");
    return forward([&](CBeanFrame& frame) { return frame.free(result); });
}

STDMETHODIMP CJavaManagerATLObject::getBasisControlVersionInfo(BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::getBasisControlVersionInfo");
    return forward([&](CBeanFrame& frame) { return frame.getBasisControlVersionInfo(result); });
}

STDMETHODIMP CJavaManagerATLObject::getProperty(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::getProperty", arg0);
    return forward([&](CBeanFrame& frame) { return frame.getProperty(arg0, result); });
}

STDMETHODIMP CJavaManagerATLObject::getVersionInfo(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::getVersionInfo", arg0);
    return forward([&](CBeanFrame& frame) { return frame.getVersionInfo(arg0, result); });
}

STDMETHODIMP CJavaManagerATLObject::setLogLevel(int arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::setLogLevel", arg0);
    return forward([&](CBeanFrame& frame) { return frame.setLogLevel(arg0, result); });
}

STDMETHODIMP CJavaManagerATLObject::setProperty(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::setProperty", arg0 << ", " << arg1);
    return forward([&](CBeanFrame& frame) { return frame.setProperty(arg0, arg1, result); });
}

STDMETHODIMP CJavaManagerATLObject::setUsedControl(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::setUsedControl", arg0 << ", " << arg1);
    return forward([&](CBeanFrame& frame) { return frame.setUsedControl(arg0, arg1, result); });
}

STDMETHODIMP CJavaManagerATLObject::updateVersion(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::updateVersion", arg0);
    return forward([&](CBeanFrame& frame) { return frame.updateVersion(arg0, result); });
}

STDMETHODIMP CJavaManagerATLObject::getBeanFrameID(int* uid)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::getBeanFrameID");
    if (uid == nullptr) {
        return E_POINTER;
    }
    if (CBeanFrame::s_Instance != nullptr) {
        *uid = CBeanFrame::s_Instance->frameID;
    } else {
        LOG(WARN, "CBeanFrame::s_Instance==NULL, this object is a zombie; client should release it");
        *uid = -1;
    }
    return S_OK;
}

STDMETHODIMP CJavaManagerATLObject::validate()
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::validate");
    return forward([&](CBeanFrame& frame) { return frame.validate(); }, FrameCheck::Logged);
}

STDMETHODIMP CJavaManagerATLObject::setBounds(int x, int y, int width, int height)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::setBounds", x << ", " << y << ", " << width << ", " << height);
    return forward([&](CBeanFrame& frame) { return frame.setBounds(x, y, width, height); }, FrameCheck::Logged);
}

// Every hop of the bridge appends its letter: "S" on the way down, "s" when the server itself sends the text back.
STDMETHODIMP CJavaManagerATLObject::testBridge(BSTR text, int ttl, int delay)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::testBridge", text << ", " << ttl << ", " << delay);
    const CComPtr<IUnknown> hold(targetUnknown()); // a sink may release the object
    HRESULT result = S_OK;
    const HRESULT thrown = AtlGuard([&] {
        CComBSTR forwarded;
        forwarded.Attach(CComBSTR::CopyOf(text));
        forwarded += L"S";
        if (ttl > 1) {
            result = forward([&](CBeanFrame& frame) { return frame.testBridge(forwarded, ttl - 1, delay); });
            return S_OK;
        }

        forwarded += L"s";
        if (delay > 0) {
            forwarded += L" (delayed only when passed through bean)";
        }
        Fire_testBridgeEvent(forwarded);
        // Lets clients see what a failing call looks like.
        result = beginsWith(text, FAILING_TEXT) ? provideErrorInfo(E_FAIL) : S_OK;
        return S_OK;
    });
    return FAILED(thrown) ? provideErrorInfo(thrown) : result;
}

STDMETHODIMP CJavaManagerATLObject::enable(VARIANT_BOOL enabled)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::enable", enabled);
    // Only VARIANT_TRUE enables; any other non-zero value disables, deliberately.
    return forward([&](CBeanFrame& frame) { return frame.setEnabled(enabled == VARIANT_TRUE); }, FrameCheck::Logged);
}

STDMETHODIMP CJavaManagerATLObject::pushWindowHandle(int wndhandle)
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::pushWindowHandle", wndhandle);
    return forward([&](CBeanFrame& frame) { return frame.pushWindowHandle(wndhandle); }, FrameCheck::Logged);
}
