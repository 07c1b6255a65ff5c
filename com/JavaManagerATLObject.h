// The creatable COM class JavaManager: a thin, logged forwarder from IJavaManager to the bean frame, and the container of the
// connection point through which events reach the client.
//
// Ownership: the first object of a process creates the bean frame; the destruction of any object deletes it.
// Threads:   the server's single apartment thread only.
// Failure:   creation never fails; getBeanFrameID returns -1 when there is no frame. A failing call returns its HRESULT
//            with COM error info whose description is the log's error backtrace. No C++ exception leaves a method.
#pragma once

#include "KESTAserver_h.h"
#include "atl/atl.h"
#include "com/JavaManagerEvents.h"
#include "support/logger.h"

class CJavaManagerATLObject : public CComObjectRootEx<CComSingleThreadModel>,
                              public CComCoClass<CJavaManagerATLObject, &CLSID_JavaManager>,
                              public ISupportErrorInfo,
                              public IConnectionPointContainerImpl<CJavaManagerATLObject>,
                              public CProxy_IJavaManagerEvents<CJavaManagerATLObject>,
                              public IDispatchImpl<IJavaManager, &IID_IJavaManager, &LIBID_KESTAserverLib, 1, 0>,
                              public virtual Loggable
{
public:
    CJavaManagerATLObject();
    ~CJavaManagerATLObject() override;

    BEGIN_COM_MAP(CJavaManagerATLObject)
    COM_INTERFACE_ENTRY(IJavaManager)
    COM_INTERFACE_ENTRY(IDispatch)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    COM_INTERFACE_ENTRY(IConnectionPointContainer)
    END_COM_MAP()

    BEGIN_CONNECTION_POINT_MAP(CJavaManagerATLObject)
    CONNECTION_POINT_ENTRY(DIID__IJavaManagerEvents)
    END_CONNECTION_POINT_MAP()

    DECLARE_REGISTRY_RESOURCEID(102)

    // The first object constructed in the process. Deliberately never reset or replaced: later objects create no bean frame, and
    // only a bean frame, which ends with this object, uses it.
    static CJavaManagerATLObject* s_Instance;

    // Called by the module at start and end of the server: keeps the Logger alive in between.
    static void ObjectMain(bool starting);
    HRESULT FinalConstruct();
    void FinalRelease();

    // This class's name, not that of CComObject, the object's run-time type.
    const char* getLogClassName() const override;

    STDMETHOD(InterfaceSupportsErrorInfo)(REFIID riid) override;

    STDMETHOD(callMethod)(BSTR arg0, BSTR arg1, BSTR* result) override;
    STDMETHOD(callMethodCompressed)(BSTR arg0, int arg1, BSTR arg2, BSTR* result) override;
    STDMETHOD(displayDebugConsole)(BSTR* result) override;
    STDMETHOD(free)(BSTR* result) override;
    STDMETHOD(getBasisControlVersionInfo)(BSTR* result) override;
    STDMETHOD(getProperty)(BSTR arg0, BSTR* result) override;
    STDMETHOD(getVersionInfo)(BSTR arg0, BSTR* result) override;
    STDMETHOD(setLogLevel)(int arg0, BSTR* result) override;
    STDMETHOD(setProperty)(BSTR arg0, BSTR arg1, BSTR* result) override;
    STDMETHOD(setUsedControl)(BSTR arg0, BSTR arg1, BSTR* result) override;
    STDMETHOD(updateVersion)(BSTR arg0, BSTR* result) override;
    STDMETHOD(getBeanFrameID)(int* uid) override;
    STDMETHOD(validate)() override;
    STDMETHOD(setBounds)(int x, int y, int width, int height) override;
    STDMETHOD(testBridge)(BSTR text, int ttl, int delay) override;
    STDMETHOD(enable)(VARIANT_BOOL enabled) override;
    STDMETHOD(pushWindowHandle)(int wndhandle) override;

    IUnknown* targetUnknown() override;

protected:
    // Success codes become S_OK; a failure sets the COM error info from the log's error entries and is returned.
    HRESULT provideErrorInfo(HRESULT hr);
    bool doesFileExist(const std::string& path);

private:
    // Finds the basis control, creates the bean frame and shows it. May throw.
    void createBeanFrame();
    // Makes a method's one call of the bean frame and passes the result to provideErrorInfo. Deliberately, some methods log the
    // check for a bean frame in either case, the others only when it fails.
    enum class FrameCheck { Logged, LoggedOnFailure };
    template <class Call>
    HRESULT forward(Call&& call, FrameCheck check = FrameCheck::LoggedOnFailure);
};
