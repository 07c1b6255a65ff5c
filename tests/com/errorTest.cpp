// What a failing call leaves with COM, and exhausted memory.
#include "tests/com/ComWorld.h"

#include "beanframe/BeanFrame.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using SourceHook = ImportHook<decltype(&ProgIDFromCLSID)>;
using CopyHook = ImportHook<decltype(&SysAllocStringByteLen)>;
using ClearHook = ImportHook<decltype(&VariantClear)>;

std::vector<CLSID> s_sources;
std::function<void(VARIANT*)> s_onClear;

// As if the class were registered.
HRESULT WINAPI registeredSource(REFCLSID clsid, LPOLESTR* progId)
{
    s_sources.push_back(clsid);
    const std::wstring name = L"KESTAserver.JavaManager.1";
    *progId = static_cast<LPOLESTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR)));
    name.copy(*progId, name.size());
    (*progId)[name.size()] = L'\0';
    return S_OK;
}

BSTR WINAPI noCopy(LPCSTR, UINT)
{
    return nullptr;
}

HRESULT WINAPI noteClear(VARIANT* variant)
{
    s_onClear(variant);
    return ClearHook::s_original(variant);
}

const CComBSTR A(L"first");
const CComBSTR B(L"second");

using Method = HRESULT (*)(IJavaManager& object, BSTR* result);

// All that forward.
const Method METHODS[] = {
    [](IJavaManager& o, BSTR* r) { return o.callMethod(A, B, r); },
    [](IJavaManager& o, BSTR* r) { return o.callMethodCompressed(A, 1, B, r); },
    [](IJavaManager& o, BSTR* r) { return o.displayDebugConsole(r); },
    [](IJavaManager& o, BSTR* r) { return o.free(r); },
    [](IJavaManager& o, BSTR* r) { return o.getBasisControlVersionInfo(r); },
    [](IJavaManager& o, BSTR* r) { return o.getProperty(A, r); },
    [](IJavaManager& o, BSTR* r) { return o.getVersionInfo(A, r); },
    [](IJavaManager& o, BSTR* r) { return o.setLogLevel(3, r); },
    [](IJavaManager& o, BSTR* r) { return o.setProperty(A, B, r); },
    [](IJavaManager& o, BSTR* r) { return o.setUsedControl(A, B, r); },
    [](IJavaManager& o, BSTR* r) { return o.updateVersion(A, r); },
    [](IJavaManager& o, BSTR*) { return o.validate(); },
    [](IJavaManager& o, BSTR*) { return o.setBounds(1, 2, 3, 4); },
    [](IJavaManager& o, BSTR*) { return o.testBridge(A, 2, 0); },
    [](IJavaManager& o, BSTR*) { return o.enable(VARIANT_TRUE); },
    [](IJavaManager& o, BSTR*) { return o.pushWindowHandle(0); },
};

} // namespace

class JavaManagerErrorsTest : public ComWorld
{
protected:
    void SetUp() override
    {
        object = create();
        Logger::getErrorEntries();
        stream.clear();
    }
    void TearDown() override { object.Release(); }

    HRESULT provideErrorInfo(HRESULT hr)
    {
        ObjectAccess* const access = static_cast<ObjectAccess*>(static_cast<CJavaManagerATLObject*>(object.p));
        return (access->*&ObjectAccess::provideErrorInfo)(hr);
    }

    RecordingSink first;
    RecordingSink second;
    CComPtr<Object> object;
};

TEST_F(JavaManagerErrorsTest, NameTheClassAsTheirSourceAndTheInterface)
{
    const SourceHook hook("ProgIDFromCLSID", registeredSource);
    CBeanFrame::deleteInstance();
    for (const Method method : METHODS) {
        s_sources.clear();
        CComBSTR result;
        EXPECT_EQ(method(*object, &result), E_FAIL);
        CComPtr<IErrorInfo> info;
        ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
        CComBSTR source;
        EXPECT_EQ(info->GetSource(&source), S_OK);
        EXPECT_STREQ(source.m_str, L"KESTAserver.JavaManager.1");
        IID iid = GUID_NULL;
        EXPECT_EQ(info->GetGUID(&iid), S_OK);
        EXPECT_EQ(iid, IID_IJavaManager);
        EXPECT_THAT(s_sources, ElementsAre(CLSID_JavaManager));
    }
    EXPECT_EQ(object->testBridge(CComBSTR(L"error"), 1, 0), E_FAIL);
    const std::optional<ErrorInfo> info = takeErrorInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->iid, IID_IJavaManager);
    EXPECT_FALSE(info->hasHelpFile);
    EXPECT_EQ(info->helpContext, 0u);
    EXPECT_THAT(s_sources, SizeIs(2));
}

// Whatever failure the bean frame returns, the client gets that one.
TEST_F(JavaManagerErrorsTest, CarryEveryFailureToTheClient)
{
    java.insideVoidMethods = java.insideObjectMethods = [] { AtlThrow(E_ACCESSDENIED); };
    for (const Method method : METHODS) {
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(method(*object, &result), E_ACCESSDENIED);
        EXPECT_TRUE(takeErrorInfo());
        EXPECT_THAT(linesWith(lines(), "provideErrorInfo"), ElementsAre("INFO -> " + OBJECT + "provideErrorInfo -2147024891",
                                                                        "INFO <- " + OBJECT + "provideErrorInfo -2147024891"));
    }
    java.insideVoidMethods = java.insideObjectMethods = nullptr;
}

TEST_F(JavaManagerErrorsTest, NegativeResultsAreFailuresAndAllOthersSuccesses)
{
    for (const HRESULT success : {S_OK, S_FALSE, static_cast<HRESULT>(0x7FFFFFFF)}) {
        EXPECT_EQ(provideErrorInfo(success), S_OK);
        EXPECT_FALSE(takeErrorInfo());
    }
    EXPECT_THAT(linesWith(lines(), "Providing"), IsEmpty());
    for (const HRESULT failure : {static_cast<HRESULT>(0x80000000), E_FAIL, RPC_E_DISCONNECTED, static_cast<HRESULT>(-1)}) {
        EXPECT_EQ(provideErrorInfo(failure), failure);
        EXPECT_TRUE(takeErrorInfo());
    }
    EXPECT_THAT(linesWith(lines(), "Providing"), SizeIs(4));
}

TEST_F(JavaManagerErrorsTest, SuccessLeavesTheCollectedTextToTheNextFailure)
{
    const CComPtr<Object> other = create(); // its constructor has an error line
    EXPECT_EQ(object->validate(), S_OK);
    EXPECT_FALSE(takeErrorInfo());
    EXPECT_EQ(object->testBridge(CComBSTR(L"error"), 1, 0), E_FAIL);
    EXPECT_THAT(takeErrorText(), testing::HasSubstr("CJavaManagerATLObject  s_Instance == NULL: false\n"));
    EXPECT_EQ(object->testBridge(CComBSTR(L"error"), 1, 0), E_FAIL);
    EXPECT_EQ(takeErrorText(), "") << "told once";
}

// The sinks have heard of the text before the call turns out to fail.
TEST_F(JavaManagerErrorsTest, FailingTestBridgeFiresFirst)
{
    advise(object, first);
    first.onCall = [&] { EXPECT_THAT(linesWith(lines(), "provideErrorInfo"), IsEmpty()); };
    EXPECT_EQ(object->testBridge(CComBSTR(L"error-x"), 1, 9), E_FAIL);
    EXPECT_THAT(first.calls, ElementsAre(RecordingSink::Call{2, "error-xSs (delayed only when passed through bean)"}));
    EXPECT_THAT(lines(), ElementsAreArray(methodLines("testBridge error-x, 1, 9", {}, E_FAIL)));
}

// Each object has its own sinks; what Java raises goes to those of the process's object.
TEST_F(JavaManagerErrorsTest, TestBridgeAnswersTheSinksOfTheObjectThatWasCalled)
{
    const CComPtr<Object> other = create();
    advise(object, first);
    advise(other, second);
    EXPECT_EQ(other->testBridge(CComBSTR(L"abc"), 1, 0), S_OK);
    EXPECT_THAT(first.calls, IsEmpty());
    EXPECT_THAT(second.calls, ElementsAre(RecordingSink::Call{2, "abcSs"}));
    NativeEnvironment environment;
    CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("raised"));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(RecordingSink::Call{4, "raised"}));
    EXPECT_THAT(second.calls, SizeIs(1));
}

TEST_F(JavaManagerErrorsTest, ExhaustedMemoryForTheTextOfTheTestBridge)
{
    advise(object, first);
    java.jni.takeCalls();
    const CComBSTR text(L"error");
    const CopyHook hook("SysAllocStringByteLen", noCopy);
    EXPECT_EQ(object->testBridge(text, 1, 0), E_OUTOFMEMORY);
    EXPECT_EQ(object->testBridge(text, 2, 0), E_OUTOFMEMORY);
    EXPECT_THAT(first.calls, IsEmpty());
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
}

TEST_F(JavaManagerErrorsTest, ExhaustedMemoryForTheCopyOfAnEventIsRaised)
{
    advise(object, first);
    const ULONG references = first.references;
    const CComBSTR text(L"text");
    const CopyHook hook("SysAllocStringByteLen", noCopy);
    const auto failure = [&](HRESULT (Object::*fire)(BSTR)) {
        try {
            return (object.p->*fire)(text);
        } catch (const CAtlException& error) {
            EXPECT_EQ(first.references, references);
            return error.m_hr;
        }
    };
    EXPECT_EQ(failure(&Object::Fire_testBridgeEvent), E_OUTOFMEMORY);
    EXPECT_EQ(failure(&Object::Fire_controlReady), E_OUTOFMEMORY);
    EXPECT_EQ(failure(&Object::Fire_customEvent), E_OUTOFMEMORY);
    EXPECT_THAT(first.calls, IsEmpty());
}

TEST_F(JavaManagerErrorsTest, CopyOfAnEventIsClearedBeforeItsSinkIsReleased)
{
    advise(object, first);
    advise(object, second);
    const ULONG references = first.references;
    std::vector<std::string> cleared;
    s_onClear = [&](VARIANT* variant) {
        ASSERT_EQ(variant->vt, VT_BSTR);
        const RecordingSink& sink = cleared.empty() ? first : second;
        EXPECT_EQ(variant->bstrVal, sink.lastText);
        EXPECT_EQ(sink.references, references + 1) << "still held";
        EXPECT_EQ(second.calls.size(), cleared.size()) << "the next sink comes afterwards";
        cleared.push_back(narrowText(variant->bstrVal));
    };
    {
        const ClearHook hook("VariantClear", noteClear);
        EXPECT_EQ(object->Fire_customEvent(CComBSTR(L"text")), S_OK);
    }
    EXPECT_THAT(cleared, ElementsAre("text", "text"));
    EXPECT_EQ(first.references, references);
    EXPECT_EQ(second.references, references);
}
