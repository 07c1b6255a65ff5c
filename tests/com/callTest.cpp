// The methods of IJavaManager: their way down to Java, their lines, results and error info, and the test bridge.
#include "tests/com/ComWorld.h"

#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <climits>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const CComBSTR A(L"first");
const CComBSTR B(L"second");

enum Kind { ANSWERS, ANSWERS_NOTHING, CHECKS_FIRST };

struct Method
{
    // The Java method, whose answer is the result if there is one.
    const char* name;
    std::string entry;
    // Of the bean frame's operation.
    std::string frameEntry;
    std::string javaCalls;
    Kind kind;
    HRESULT (*call)(IJavaManager& object, BSTR* result);
};

// What each method becomes on its way down.
const Method METHODS[] = {
    {"callMethod", "callMethod first, second", "callMethod first,second",
     "CallObjectMethod(QMRTWinControl, callMethod, \"first\", \"second\")", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.callMethod(A, B, r); }},
    {"callMethodCompressed", "callMethodCompressed first, -7, second", "callMethodCompressed first,-7,second",
     "CallObjectMethod(QMRTWinControl, callMethodCompressed, \"first\", -7, \"second\")", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.callMethodCompressed(A, -7, B, r); }},
    {"displayDebugConsole", "displayDebugConsole ", "displayDebugConsole ",
     "CallObjectMethod(QMRTWinControl, displayDebugConsole)", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.displayDebugConsole(r); }},
    {"free", "free ", "free ", "CallObjectMethod(QMRTWinControl, free)", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.free(r); }},
    {"getBasisControlVersionInfo", "getBasisControlVersionInfo ", "getBasisControlVersionInfo ",
     "CallObjectMethod(QMRTWinControl, getBasisControlVersionInfo)", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.getBasisControlVersionInfo(r); }},
    {"getProperty", "getProperty first", "getProperty first", "CallObjectMethod(QMRTWinControl, getProperty, \"first\")", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.getProperty(A, r); }},
    {"getVersionInfo", "getVersionInfo first", "getVersionInfo first",
     "CallObjectMethod(QMRTWinControl, getVersionInfo, \"first\")", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.getVersionInfo(A, r); }},
    {"setLogLevel", "setLogLevel 3", "setLogLevel ", "CallObjectMethod(QMRTWinControl, setLogLevel, 3)", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.setLogLevel(3, r); }},
    {"setProperty", "setProperty first, second", "setProperty first,second",
     "CallObjectMethod(QMRTWinControl, setProperty, \"first\", \"second\")", ANSWERS,
     [](IJavaManager& o, BSTR* r) { return o.setProperty(A, B, r); }},
    {"setUsedControl", "setUsedControl first, second", "setUsedControl first,second",
     "CallVoidMethod(KESTAFrame, setFocusableWindowState, true); CallObjectMethod(QMRTWinControl, setUsedControl, \"first\", "
     "\"second\")",
     ANSWERS, [](IJavaManager& o, BSTR* r) { return o.setUsedControl(A, B, r); }},
    {"updateVersion", "updateVersion first", "updateVersion first", "CallObjectMethod(QMRTWinControl, updateVersion, \"first\")",
     ANSWERS, [](IJavaManager& o, BSTR* r) { return o.updateVersion(A, r); }},
    {"validate", "validate ", "validate ", "CallVoidMethod(KESTAFrame, validate); CallVoidMethod(QMRTWinControl, validate)",
     CHECKS_FIRST, [](IJavaManager& o, BSTR*) { return o.validate(); }},
    {"setBounds", "setBounds 1, -2, 30, 40", "setBounds 1,-2,30,40", "CallVoidMethod(KESTAFrame, setBounds, ...)", CHECKS_FIRST,
     [](IJavaManager& o, BSTR*) { return o.setBounds(1, -2, 30, 40); }},
    {"testBridge", "testBridge first, 2, 500", "testBridge firstS",
     "CallVoidMethod(KESTAListener, testBridge, \"firstS\", 1, 500)", ANSWERS_NOTHING,
     [](IJavaManager& o, BSTR*) { return o.testBridge(A, 2, 500); }},
    {"setEnabled", "enable -1", "setEnabled 1", "CallVoidMethod(KESTAFrame, setEnabled, true)", CHECKS_FIRST,
     [](IJavaManager& o, BSTR*) { return o.enable(VARIANT_TRUE); }},
    {"add", "pushWindowHandle 4711", "pushWindowHandle 4711", "CallObjectMethod(KESTAFrame, add, QMRTWinControl)", CHECKS_FIRST,
     [](IJavaManager& o, BSTR*) { return o.pushWindowHandle(4711); }},
};

using SourceHook = ImportHook<decltype(&ProgIDFromCLSID)>;

// As if the class were registered.
HRESULT WINAPI registeredSource(REFCLSID clsid, LPOLESTR* progId)
{
    EXPECT_EQ(clsid, CLSID_JavaManager);
    const std::wstring name = L"KESTAserver.JavaManager.1";
    *progId = static_cast<LPOLESTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR)));
    (*progId)[name.copy(*progId, name.size())] = L'\0';
    return S_OK;
}

} // namespace

class JavaManagerCallsTest : public ComWorld
{
protected:
    void SetUp() override
    {
        object = create();
        Logger::getErrorEntries();
        java.jni.takeCalls();
        stream.clear();
    }
    void TearDown() override { object.Release(); }

    HRESULT testBridge(const wchar_t* text, int ttl, int delay) { return object->testBridge(CComBSTR(text), ttl, delay); }
    HRESULT provideErrorInfo(HRESULT hr) { return (access(object)->*&ObjectAccess::provideErrorInfo)(hr); }
    // The object's lines, and the frame's operations: its other lines are tested with the frame.
    std::vector<std::string> callLines() const
    {
        std::vector<std::string> result = lines({"JavaManagerATLObject", "BeanFrame"});
        std::erase_if(result, [](const std::string& line) { return line.find("INFO ") && line.find("@frame") != line.npos; });
        return result;
    }
    std::string joinedCalls()
    {
        std::string result;
        for (const std::string& call : java.takeMethodCalls()) {
            result += (result.empty() ? "" : "; ") + call;
        }
        return result;
    }
    // The lines between the banners of backtraces.
    std::string backtraces() const
    {
        std::string result;
        bool isInside = false;
        for (const std::string& text : stream.texts()) {
            const std::string line = fixtures::DebugStream::withoutNames(text);
            if (line == fixtures::BEGIN_BANNER || line == fixtures::END_BANNER) {
                isInside = line == fixtures::BEGIN_BANNER;
            } else if (isInside) {
                result += line + "\n";
            }
        }
        return result;
    }
    // Of every method.
    void expectFailure(HRESULT expected)
    {
        for (const Method& method : METHODS) {
            SCOPED_TRACE(method.name);
            stream.clear();
            CComBSTR result;
            EXPECT_EQ(method.call(*object, &result), expected);
            EXPECT_EQ(result.m_str, nullptr);
            EXPECT_EQ(takeErrorText(), backtraces());
            EXPECT_EQ(linesWith(lines(), "-> @object").back(), "INFO -> @object provideErrorInfo " + std::to_string(expected));
        }
    }

    RecordingSink sink;
    CComPtr<Object> object;
};

TEST_F(JavaManagerCallsTest, ForwardOnceAndEndInProvideErrorInfo)
{
    for (const Method& method : METHODS) {
        SCOPED_TRACE(method.name);
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(method.call(*object, &result), S_OK);
        std::vector<std::string> expected = {"INFO -> @object " + method.entry,     "INFO -> @frame " + method.frameEntry,
                                             "INFO <- @frame " + method.frameEntry, "INFO -> @object provideErrorInfo 0",
                                             "INFO <- @object provideErrorInfo 0",  "INFO <- @object " + method.entry};
        if (method.kind == CHECKS_FIRST) {
            expected.insert(expected.begin() + 1, "TRACE @object CBeanFrame::s_Instance!=NULL: true");
        }
        EXPECT_EQ(callLines(), expected);
        EXPECT_EQ(joinedCalls(), method.javaCalls);
        EXPECT_EQ(narrowText(result.m_str), method.kind == ANSWERS ? std::string("answer of ") + method.name : "");
        EXPECT_EQ(takeErrorText(), "(no error info)");
    }
}

TEST_F(JavaManagerCallsTest, FailureOfJavaCarriesItsBacktraceToTheClient)
{
    for (const Method& method : METHODS) {
        java.jni.outcomes[method.name] = RecordingJni::throws("java.lang.IllegalStateException", "not now");
    }
    expectFailure(E_FAIL);
    EXPECT_THAT(backtraces(), testing::HasSubstr("Exception: java.lang.IllegalStateException: not now"));
    EXPECT_THAT(backtraces(), testing::HasSubstr("CJavaManagerATLObject  pushWindowHandle 4711\n"));
}

TEST_F(JavaManagerCallsTest, ExceptionReachesTheClientAsItsResult)
{
    java.insideMethods = [] { AtlThrow(E_ACCESSDENIED); };
    expectFailure(E_ACCESSDENIED);
    java.insideMethods = nullptr;
}

TEST_F(JavaManagerCallsTest, WithoutJavaBridgeTheyFail)
{
    CJavaManagerJNIClient* const bridge = std::exchange(CJavaManagerJNIClient::s_Instance, nullptr);
    expectFailure(E_FAIL);
    CJavaManagerJNIClient::s_Instance = bridge;
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
}

TEST_F(JavaManagerCallsTest, WithoutBeanFrameTheyFailWithTheFailedCheck)
{
    CBeanFrame::deleteInstance();
    expectFailure(E_FAIL);
    for (const Method& method : METHODS) {
        stream.clear();
        CComBSTR result;
        method.call(*object, &result);
        EXPECT_THAT(lines({"JavaManagerATLObject"}),
                    ElementsAre("INFO -> @object " + method.entry, "ERROR @object CBeanFrame::s_Instance!=NULL: false",
                                "INFO -> @object " + method.entry, "INFO -> @object provideErrorInfo -2147467259",
                                "TRACE @object Providing Error Info!", "INFO <- @object provideErrorInfo -2147467259",
                                "INFO <- @object " + method.entry))
            << "the scope once more in the error backtrace";
    }
}

TEST_F(JavaManagerCallsTest, NegativeResultsAreFailuresAndAllOthersSuccesses)
{
    for (const HRESULT success : {S_OK, S_FALSE, static_cast<HRESULT>(0x7FFFFFFF)}) {
        EXPECT_EQ(provideErrorInfo(success), S_OK);
        EXPECT_EQ(takeErrorText(), "(no error info)");
    }
    for (const HRESULT failure : {static_cast<HRESULT>(0x80000000), RPC_E_DISCONNECTED, static_cast<HRESULT>(-1)}) {
        stream.clear();
        EXPECT_EQ(provideErrorInfo(failure), failure);
        EXPECT_EQ(takeErrorText(), "") << "no error line since the last call";
        const std::string scope = "@object provideErrorInfo " + std::to_string(failure);
        EXPECT_THAT(lines(), ElementsAre("INFO -> " + scope, "FINE -> getErrorEntries ", "FINE <- getErrorEntries ",
                                         "TRACE @object Providing Error Info!", "INFO <- " + scope));
    }
}

TEST_F(JavaManagerCallsTest, FailureNamesTheClassAsItsSource)
{
    const SourceHook hook("ProgIDFromCLSID", registeredSource);
    EXPECT_EQ(provideErrorInfo(E_FAIL), E_FAIL);
    CComPtr<IErrorInfo> info;
    ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
    CComBSTR source;
    EXPECT_EQ(info->GetSource(&source), S_OK);
    EXPECT_STREQ(source.m_str, L"KESTAserver.JavaManager.1");
}

TEST_F(JavaManagerCallsTest, SuccessLeavesTheCollectedTextToTheNextFailure)
{
    const CComPtr<Object> other = create(); // its constructor logs an error
    EXPECT_EQ(object->validate(), S_OK);
    EXPECT_EQ(testBridge(L"error", 1, 0), E_FAIL);
    EXPECT_THAT(takeErrorText(), testing::HasSubstr("CJavaManagerATLObject  s_Instance == NULL: false\n"));
    EXPECT_EQ(testBridge(L"error", 1, 0), E_FAIL);
    EXPECT_EQ(takeErrorText(), "") << "told once";
}

// Null texts are logged as empty. Characters that the system's code page lacks become question marks.
TEST_F(JavaManagerCallsTest, TextsAreLoggedNarrow)
{
    ASSERT_EQ(GetACP(), 1252u);
    CComBSTR result;
    EXPECT_EQ(object->callMethodCompressed(nullptr, 0, nullptr, &result), S_OK);
    EXPECT_EQ(object->setProperty(nullptr, CComBSTR(L"\u00fc\u20ac\u0416"), &result), S_OK);
    EXPECT_THAT(linesWith(callLines(), "-> "),
                ElementsAre("INFO -> @object callMethodCompressed , 0, ", "INFO -> @frame callMethodCompressed ,0,",
                            "INFO -> @object provideErrorInfo 0", "INFO -> @object setProperty , \xfc\x80?",
                            "INFO -> @frame setProperty ,\xfc\x80?", "INFO -> @object provideErrorInfo 0"));
}

// The bridge gets all four bounds, although it does not pass them to Java.
TEST_F(JavaManagerCallsTest, IntegersArriveUnchanged)
{
    CComBSTR result;
    EXPECT_EQ(object->setBounds(INT_MIN, -2, 30, INT_MAX), S_OK);
    EXPECT_THAT(linesWith(lines(), "-> @java").front(), testing::EndsWith("setFrameBounds -2147483648, -2, 30, 2147483647"));
    for (const int number : {INT_MIN, -1, 0, 10, INT_MAX}) {
        java.takeMethodCalls();
        const std::string text = std::to_string(number);
        stream.clear();
        EXPECT_EQ(object->callMethodCompressed(A, number, B, &result), S_OK);
        EXPECT_EQ(linesWith(lines(), "-> @frame").front(), "INFO -> @frame callMethodCompressed first," + text + ",second");
        EXPECT_EQ(object->setLogLevel(number, &result), S_OK);
        EXPECT_EQ(testBridge(L"a", INT_MAX, number), S_OK);
        EXPECT_THAT(java.takeMethodCalls(),
                    ElementsAre("CallObjectMethod(QMRTWinControl, callMethodCompressed, \"first\", " + text + ", \"second\")",
                                "CallObjectMethod(QMRTWinControl, setLogLevel, " + text + ")",
                                "CallVoidMethod(KESTAListener, testBridge, \"aS\", 2147483646, " + text + ")"));
    }
}

TEST_F(JavaManagerCallsTest, OnlyVariantTrueEnables)
{
    for (const VARIANT_BOOL enabled : {VARIANT_TRUE, VARIANT_BOOL{1}, VARIANT_FALSE, VARIANT_BOOL{-2}}) {
        stream.clear();
        EXPECT_EQ(object->enable(enabled), S_OK);
        EXPECT_EQ(lines().front(), "INFO -> @object enable " + std::to_string(enabled));
        EXPECT_THAT(java.takeMethodCalls(), ElementsAre(std::string("CallVoidMethod(KESTAFrame, setEnabled, ") +
                                                        (enabled == VARIANT_TRUE ? "true)" : "false)")));
    }
}

TEST_F(JavaManagerCallsTest, FrameIdIsTheFramesOrThatOfAZombie)
{
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, CBeanFrame::s_Instance->frameID);
    EXPECT_EQ(object->getBeanFrameID(nullptr), E_POINTER);
    CBeanFrame::deleteInstance();
    EXPECT_EQ(object->getBeanFrameID(nullptr), E_POINTER);
    const std::vector<std::string> scope = {"INFO -> @object getBeanFrameID ", "INFO <- @object getBeanFrameID "};
    EXPECT_THAT(lines({"JavaManagerATLObject"}), ElementsAre(scope[0], scope[1], scope[0], scope[1], scope[0], scope[1]));

    stream.clear();
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, -1);
    EXPECT_THAT(lines(),
                ElementsAre(scope[0],
                            "WARN @object CBeanFrame::s_Instance==NULL, this object is a zombie; client should release it",
                            scope[1]));
    EXPECT_EQ(takeErrorText(), "(no error info)");
}

// Even without a bean frame.
TEST_F(JavaManagerCallsTest, TestBridgeAnswersItselfAtTheEndOfItsHops)
{
    advise(object, sink);
    CBeanFrame::deleteInstance();
    const struct
    {
        const wchar_t* text;
        int ttl;
        int delay;
        const char* fired;
        HRESULT result = S_OK;
    } cases[] = {
        {L"abc", 1, 0, "2 abcSs"},
        {L"abc", 0, 1, "2 abcSs (delayed only when passed through bean)"},
        {L"abc", INT_MIN, -5, "2 abcSs"},
        {L"error-x", 1, 9, "2 error-xSs (delayed only when passed through bean)", E_FAIL},
        {L"error", 1, 0, "2 errorSs", E_FAIL},
        {L"erro", 1, 0, "2 erroSs"},
        {L"Error-x", 1, 0, "2 Error-xSs"},
        {L"an error", 1, 0, "2 an errorSs"},
        {L"", 1, 0, "2 Ss"},
        {nullptr, 1, 0, "2 Ss"},
    };
    for (const auto& tested : cases) {
        SCOPED_TRACE(tested.fired);
        sink.calls.clear();
        stream.clear();
        sink.onCall = [&] { EXPECT_THAT(lines(), testing::SizeIs(1)) << "fired before the call turns out to fail"; };
        EXPECT_EQ(testBridge(tested.text, tested.ttl, tested.delay), tested.result);
        EXPECT_THAT(sink.calls, ElementsAre(tested.fired));
        EXPECT_EQ(takeErrorText(), FAILED(tested.result) ? "" : "(no error info)") << "nothing went wrong in the log";
        EXPECT_THAT(lines(), testing::SizeIs(FAILED(tested.result) ? 7 : 2)) << "success does not pass through provideErrorInfo";
    }
}

TEST_F(JavaManagerCallsTest, TestBridgeLogsWhatTheClientPassed)
{
    EXPECT_EQ(testBridge(L"abc", 1, 7), S_OK);
    EXPECT_THAT(lines(), ElementsAre("INFO -> @object testBridge abc, 1, 7", "INFO <- @object testBridge abc, 1, 7"));
}

TEST_F(JavaManagerCallsTest, TestBridgeForwardsWhileHopsAreLeft)
{
    advise(object, sink);
    EXPECT_EQ(testBridge(L"abc", 3, 0), S_OK);
    EXPECT_EQ(testBridge(L"error", 2, 500), S_OK);
    EXPECT_THAT(java.takeMethodCalls(), ElementsAre("CallVoidMethod(KESTAListener, testBridge, \"abcS\", 2, 0)",
                                                    "CallVoidMethod(KESTAListener, testBridge, \"errorS\", 1, 500)"));
    EXPECT_THAT(sink.calls, IsEmpty());
}

TEST_F(JavaManagerCallsTest, TestBridgeWithoutMemoryForItsText)
{
    advise(object, sink);
    const CComBSTR text(L"error");
    const ImportHook<decltype(&SysAllocStringByteLen)> hook("SysAllocStringByteLen",
                                                            [](LPCSTR, UINT) -> BSTR { return nullptr; });
    for (const int ttl : {1, 2}) {
        stream.clear();
        EXPECT_EQ(object->testBridge(text, ttl, 0), E_OUTOFMEMORY);
        EXPECT_THAT(linesWith(lines(), "Providing Error Info!"), testing::SizeIs(1));
    }
    EXPECT_THAT(sink.calls, IsEmpty());
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
}

// The object is destroyed only after the call.
TEST_F(JavaManagerCallsTest, SinkMayCallInAndReleaseTheObject)
{
    advise(object, sink);
    IJavaManager* const manager = object.p;
    sink.onCall = [&] {
        EXPECT_EQ(object->validate(), S_OK);
        object.Release();
    };
    EXPECT_EQ(manager->testBridge(CComBSTR(L"error"), 1, 0), E_FAIL);
    EXPECT_EQ(module.locks, 0);
    const std::vector<std::string> order = linesWith(lines(), "-> @object");
    ASSERT_GT(order.size(), 3u);
    EXPECT_EQ(order[order.size() - 3], "INFO -> @object provideErrorInfo -2147467259");
    EXPECT_EQ(order[order.size() - 2], "INFO -> @object FinalRelease ");
}
