// A class with everything a class of the server has, on the server's own interface: what the tests create, call and listen to.
#pragma once

#include "atl/atl.h"

#include "KESTAserver_h.h"

#include <functional>
#include <string>
#include <vector>

// What happened, in order.
inline std::vector<std::string> s_events;

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

// A virtual base that tells of its end, as the logging base of the server's classes is one.
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
    static HRESULT UpdateRegistry(BOOL registering) noexcept
    {
        s_events.push_back(registering ? "UpdateRegistry 1" : "UpdateRegistry 0");
        return s_updateResult;
    }
    static void ObjectMain(bool starting) { s_events.push_back(starting ? "ObjectMain 1" : "ObjectMain 0"); }

    BEGIN_COM_MAP(CSampleObject)
    COM_INTERFACE_ENTRY(IJavaManager)
    COM_INTERFACE_ENTRY2(IDispatch, IJavaManager)
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

    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override
    {
        return IsEqualIID(iid, IID_IJavaManager) ? S_OK : S_FALSE;
    }
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
        s_events.push_back("setBounds " + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(width) + "," +
                           std::to_string(height));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE testBridge(BSTR, int, int) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE enable(VARIANT_BOOL enabled) override
    {
        s_events.push_back("enable " + std::to_string(enabled));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE pushWindowHandle(int) override { return E_NOTIMPL; }

    static inline HRESULT s_updateResult = S_OK;
    static inline std::function<void()> s_whileConstructing;
    static inline std::function<HRESULT(CSampleObject&)> s_finalConstruct;
    static inline std::function<void(CSampleObject&)> s_finalRelease;

protected:
    ~CSampleObject() { s_events.push_back("~CSampleObject"); }
};

// A client's sink. It counts its references and can be made to answer for other interfaces than the event interface.
class CSink final : public IDispatch
{
public:
    explicit CSink(const IID& answers = DIID__IJavaManagerEvents)
        : m_answers(answers)
    {
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        m_queried.push_back(iid);
        *object = nullptr;
        if (FAILED(m_queryResult)) {
            return m_queryResult;
        }
        if (!IsEqualIID(iid, m_answers) && !IsEqualIID(iid, IID_IUnknown)) {
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_references); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        --m_references;
        if (m_whenReleased) {
            m_whenReleased();
        }
        return static_cast<ULONG>(m_references);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return S_OK;
    }

    HRESULT m_queryResult = S_OK;
    int m_references = 0;
    std::vector<IID> m_queried;
    std::function<void()> m_whenReleased;

private:
    IID m_answers;
};
