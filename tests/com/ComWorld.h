// Fixture of the COM object's tests: a recording Java side, a module that counts, and sinks.
#pragma once

#include "beanframe/BeanFrame.h"
#include "com/JavaManagerATLObject.h"
#include "tests/beanframe/JavaSide.h"
#include "tests/beanframe/LoggedTest.h"

#include <functional>
#include <string>
#include <vector>

// A module that counts, and writes its unlock to the debugger stream.
class CountingModule final : public CAtlModule
{
public:
    LONG Lock() noexcept override { return ++locks; }
    LONG Unlock() noexcept override
    {
        OutputDebugStringA("Unlock\n");
        return --locks;
    }

    LONG locks = 0;
};

struct ObjectAccess : CJavaManagerATLObject
{
    using CJavaManagerATLObject::doesFileExist;
    using CJavaManagerATLObject::provideErrorInfo;
};

// A client's sink: records each call, calls back into the test and returns what the test has set.
class RecordingSink final : public IDispatch
{
public:
    // Member id and text of each event.
    std::vector<std::string> calls;
    HRESULT answer = S_OK;
    std::function<void()> onCall;
    // The BSTR of the current call; invalid afterwards.
    BSTR lastText = nullptr;
    ULONG references = 0;
    ULONG referencesInCall = 0;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID event, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                                     EXCEPINFO* exception, UINT* argumentError) override;
};

class ComWorld : public LoggedTest
{
protected:
    ComWorld();
    ~ComWorld() override;

    using Object = CComObject<CJavaManagerATLObject>;
    // A new object. The first one of a test finds a basis control and the recording Java side.
    static CComPtr<Object> create();
    static CComPtr<IConnectionPoint> point(Object* object);
    static DWORD advise(Object* object, RecordingSink& sink);
    static int frameId(Object* object);
    static ObjectAccess* access(Object* object)
    {
        return static_cast<ObjectAccess*>(static_cast<CJavaManagerATLObject*>(object));
    }
    // The description in this thread's COM error info, or "(no error info)". Expects an interface and no help file in the info.
    static std::string takeErrorText();

    CountingModule module;
    fixtures::RegistryScratch classes{HKEY_CLASSES_ROOT};
    fixtures::TemporaryFolder folder;
    const std::string basisControl = folder.path("basis.jar");
    JavaSide java;
};
