// What the tests of the COM object share: a registry and a log of their own, a recording Java side, a module that counts, and
// sinks.
#pragma once

#include "com/JavaManagerATLObject.h"
#include "tests/beanframe/JavaSide.h"
#include "tests/beanframe/ModuleLines.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// A module that counts and tells of its unlock in the log's stream.
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

// Opens the object's protected parts.
struct ObjectAccess : CJavaManagerATLObject
{
    using CJavaManagerATLObject::doesFileExist;
    using CJavaManagerATLObject::provideErrorInfo;
};

// A client's sink: notes each call whole, answers what the test says and does what it hangs in.
class RecordingSink final : public IDispatch
{
public:
    struct Call
    {
        DISPID event;
        std::string text;
        bool operator==(const Call&) const = default;
    };
    std::vector<Call> calls;
    HRESULT answer = S_OK;
    std::function<void()> onCall;
    // The BSTR that came with the last call; gone when the call is over.
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

// The COM error info that the last call left on this thread.
struct ErrorInfo
{
    std::string description;
    GUID iid = GUID_NULL;
    bool hasHelpFile = false;
    DWORD helpContext = 0;
};

class ComWorld : public testing::Test
{
protected:
    ComWorld();
    ~ComWorld() override;

    using Object = CComObject<CJavaManagerATLObject>;
    // A reference to a new object. The first one of a test finds a basis control and a recording Java side.
    CComPtr<Object> create();
    static DWORD advise(Object* object, RecordingSink& sink);
    static HRESULT unadvise(Object* object, DWORD cookie);

    std::vector<std::string> lines() const { return moduleLines(stream, "JavaManagerATLObject"); }
    // Entry and exit line of a method and of provideErrorInfo within it, with other lines before the latter.
    static std::vector<std::string> methodLines(const std::string& entry, const std::vector<std::string>& between = {},
                                                HRESULT result = S_OK);
    static std::optional<ErrorInfo> takeErrorInfo();
    // Its description; "(no error info)" when there is none.
    static std::string takeErrorText();
    // What stands between the level and the text in the lines of the object.
    static inline const std::string OBJECT = "CJavaManagerATLObject  ";

    CountingModule module;
    fixtures::LoggerWorld world;
    fixtures::RegistryScratch classes;
    fixtures::TemporaryFolder folder;
    std::string basisControl;
    JavaSide java;
    fixtures::DebugStream stream;
};
