// A sample class with everything a class of the server has, on the server's own interface.
#pragma once

#include "atl/atl.h"

#include "KESTAserver_h.h"

#include <gtest/gtest.h>

#include <format>
#include <functional>
#include <string>
#include <vector>

// What happened, in order.
inline std::vector<std::string> s_events;

// What happened since the last call.
inline std::vector<std::string> takeEvents()
{
    return std::exchange(s_events, {});
}

// A module that only counts.
class CCountingModule final : public CAtlModule
{
public:
    LONG Lock() noexcept override
    {
        s_events.push_back("Lock");
        return ++m_count;
    }
    LONG Unlock() noexcept override
    {
        s_events.push_back("Unlock");
        return --m_count;
    }

    LONG m_count = 0;
};

// A virtual base, as the server's classes have one for logging, that records its destruction.
class CVirtualBase
{
protected:
    ~CVirtualBase() { s_events.push_back("~CVirtualBase"); }
};

class CSampleObject : public CComObjectRootEx<CComSingleThreadModel>,
                      public CComCoClass<CSampleObject, &CLSID_JavaManager>,
                      public ISupportErrorInfo,
                      public IConnectionPointContainerImpl<CSampleObject>,
                      public IConnectionPointImpl<CSampleObject, &DIID__IJavaManagerEvents>,
                      public IDispatchImpl<IJavaManager, &IID_IJavaManager, &LIBID_KESTAserverLib, 1, 0>,
                      public virtual CVirtualBase
{
public:
    BEGIN_COM_MAP(CSampleObject)
    COM_INTERFACE_ENTRY(IJavaManager)
    COM_INTERFACE_ENTRY(IDispatch)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    COM_INTERFACE_ENTRY(IConnectionPointContainer)
    END_COM_MAP()

    BEGIN_CONNECTION_POINT_MAP(CSampleObject)
    CONNECTION_POINT_ENTRY(DIID__IJavaManagerEvents)
    END_CONNECTION_POINT_MAP()

    CSampleObject()
    {
        s_events.push_back("CSampleObject");
        if (s_whileConstructing) {
            s_whileConstructing();
        }
    }
    HRESULT FinalConstruct()
    {
        s_events.push_back("FinalConstruct");
        return s_finalConstruct ? s_finalConstruct(*this) : S_OK;
    }
    void FinalRelease()
    {
        s_events.push_back("FinalRelease");
        if (s_finalRelease) {
            s_finalRelease(*this);
        }
    }
    CComDynamicUnkArray& sinks() noexcept { return m_vec; }

    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE callMethod(BSTR arg0, BSTR arg1, BSTR* result) override
    {
        CComBSTR text(arg0);
        text += L"|";
        text += arg1;
        *result = text.Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE callMethodCompressed(BSTR, int, BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE displayDebugConsole(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE free(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE getBasisControlVersionInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE getProperty(BSTR, BSTR*) override
    {
        return Error("no such property", IID_IJavaManager, E_INVALIDARG);
    }
    HRESULT STDMETHODCALLTYPE getVersionInfo(BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE setLogLevel(int, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE setProperty(BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE setUsedControl(BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE updateVersion(BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE getBeanFrameID(int* uid) override
    {
        *uid = 42;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE validate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE setBounds(int x, int y, int width, int height) override
    {
        s_events.push_back(std::format("setBounds {},{},{},{}", x, y, width, height));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE testBridge(BSTR, int, int) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE enable(VARIANT_BOOL enabled) override
    {
        s_events.push_back(std::format("enable {}", enabled));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE pushWindowHandle(int) override { return E_NOTIMPL; }

    static inline std::function<void()> s_whileConstructing;
    static inline std::function<HRESULT(CSampleObject&)> s_finalConstruct;
    static inline std::function<void(CSampleObject&)> s_finalRelease;

protected:
    ~CSampleObject() { s_events.push_back("~CSampleObject"); }
};

// A test with a counting module and COM.
class SampleTest : public testing::Test
{
protected:
    SampleTest()
    {
        CoInitialize(nullptr);
        s_events.clear();
        CSampleObject::s_whileConstructing = nullptr;
        CSampleObject::s_finalConstruct = nullptr;
        CSampleObject::s_finalRelease = nullptr;
    }
    ~SampleTest() override
    {
        EXPECT_EQ(m_module.m_count, 0);
        CoUninitialize();
    }

    static CComPtr<CComObject<CSampleObject>> create()
    {
        CComObject<CSampleObject>* object = nullptr;
        EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), S_OK);
        return object;
    }

    CCountingModule m_module;
};
