// The methods of IJavaManager: logging, null checks, results, error info, and the test bridge.
#include "tests/com/ComWorld.h"

#include "atl/typelib.h"
#include "beanframe/BeanFrame.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using SinkCall = RecordingSink::Call;

namespace {

const CComBSTR A(L"first");
const CComBSTR B(L"second");

struct Method
{
    const char* name;
    std::string entry;
    // Of the bean frame's operation, behind its object.
    std::string frameEntry;
    // What the last call of a Java method ends in.
    std::string javaCall;
    // With a check of its own for the bean frame.
    bool isChecked;
    HRESULT (*call)(IJavaManager& object, BSTR* result);
};

const Method METHODS[] = {
    {"callMethod", "callMethod first, second", "callMethod first,second", ", callMethod, \"first\", \"second\")", false,
     [](IJavaManager& o, BSTR* r) { return o.callMethod(A, B, r); }},
    {"callMethodCompressed", "callMethodCompressed first, -7, second", "callMethodCompressed first,-7,second",
     ", callMethodCompressed, \"first\", -7, \"second\")", false,
     [](IJavaManager& o, BSTR* r) { return o.callMethodCompressed(A, -7, B, r); }},
    {"displayDebugConsole", "displayDebugConsole ", "displayDebugConsole ", ", displayDebugConsole)", false,
     [](IJavaManager& o, BSTR* r) { return o.displayDebugConsole(r); }},
    {"free", "free ", "free ", ", free)", false, [](IJavaManager& o, BSTR* r) { return o.free(r); }},
    {"getBasisControlVersionInfo", "getBasisControlVersionInfo ", "getBasisControlVersionInfo ", ", getBasisControlVersionInfo)",
     false, [](IJavaManager& o, BSTR* r) { return o.getBasisControlVersionInfo(r); }},
    {"getProperty", "getProperty first", "getProperty first", ", getProperty, \"first\")", false,
     [](IJavaManager& o, BSTR* r) { return o.getProperty(A, r); }},
    {"getVersionInfo", "getVersionInfo first", "getVersionInfo first", ", getVersionInfo, \"first\")", false,
     [](IJavaManager& o, BSTR* r) { return o.getVersionInfo(A, r); }},
    {"setLogLevel", "setLogLevel 3", "setLogLevel ", ", setLogLevel, 3)", false,
     [](IJavaManager& o, BSTR* r) { return o.setLogLevel(3, r); }},
    {"setProperty", "setProperty first, second", "setProperty first,second", ", setProperty, \"first\", \"second\")", false,
     [](IJavaManager& o, BSTR* r) { return o.setProperty(A, B, r); }},
    {"setUsedControl", "setUsedControl first, second", "setUsedControl first,second", ", setUsedControl, \"first\", \"second\")",
     false, [](IJavaManager& o, BSTR* r) { return o.setUsedControl(A, B, r); }},
    {"updateVersion", "updateVersion first", "updateVersion first", ", updateVersion, \"first\")", false,
     [](IJavaManager& o, BSTR* r) { return o.updateVersion(A, r); }},
    {"validate", "validate ", "validate ", ", validate)", true, [](IJavaManager& o, BSTR*) { return o.validate(); }},
    {"setBounds", "setBounds 1, -2, 30, 40", "setBounds 1,-2,30,40", ", setBounds, ...)", true,
     [](IJavaManager& o, BSTR*) { return o.setBounds(1, -2, 30, 40); }},
    {"setEnabled", "enable -1", "setEnabled 1", ", setEnabled, true)", true,
     [](IJavaManager& o, BSTR*) { return o.enable(VARIANT_TRUE); }},
    {"add", "pushWindowHandle 4711", "pushWindowHandle 4711", ", add, global com/orvane/tech/client/qmrt/win/QMRTWinControl)",
     true, [](IJavaManager& o, BSTR*) { return o.pushWindowHandle(4711); }},
    {"testBridge", "testBridge first, 2, 500", "testBridge firstS", ", testBridge, \"firstS\", 1, 500)", false,
     [](IJavaManager& o, BSTR*) { return o.testBridge(A, 2, 500); }},
};

} // namespace

class JavaManagerCallsTest : public ComWorld
{
protected:
    void SetUp() override
    {
        object = create();
        Logger::getErrorEntries();
        stream.clear();
        java.jni.takeCalls();
    }
    void TearDown() override { object.Release(); }

    HRESULT testBridge(const wchar_t* text, int ttl, int delay) { return object->testBridge(CComBSTR(text), ttl, delay); }
    // What the log wrote between the banners of its backtraces.
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

    RecordingSink sink;
    CComPtr<Object> object;
};

TEST_F(JavaManagerCallsTest, LogTheirArgumentsAndEndInProvideErrorInfo)
{
    for (const Method& method : METHODS) {
        SCOPED_TRACE(method.name);
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(method.call(*object, &result), S_OK);
        const std::vector<std::string> check = {"TRACE " + OBJECT + "CBeanFrame::s_Instance!=NULL: true"};
        EXPECT_THAT(lines(), ElementsAreArray(methodLines(method.entry, method.isChecked ? check : std::vector<std::string>())));
        EXPECT_THAT(java.takeMethodCalls().back(), testing::EndsWith(method.javaCall));
        // One operation of the frame, with the same arguments.
        EXPECT_THAT(
            linesWith(moduleLines(stream, "BeanFrame"), "INFO -> "),
            ElementsAre("INFO -> CBeanFrame " + std::to_string(CBeanFrame::s_Instance->frameID) + " " + method.frameEntry));
        const bool hasAnswer = !method.isChecked && method.name != std::string("testBridge");
        EXPECT_EQ(narrowText(result.m_str), hasAnswer ? std::string("answer of ") + method.name : "");
        EXPECT_FALSE(takeErrorInfo());
    }
}

TEST_F(JavaManagerCallsTest, NullTextsLeaveTheirPlaceInTheEntryEmpty)
{
    CComBSTR result;
    EXPECT_EQ(object->callMethodCompressed(nullptr, INT_MIN, nullptr, &result), S_OK);
    EXPECT_EQ(object->setProperty(nullptr, B, &result), S_OK);
    EXPECT_EQ(object->getProperty(nullptr, &result), S_OK);
    EXPECT_THAT(linesWith(linesWith(lines(), "-> "), "roperty"),
                ElementsAre("INFO -> " + OBJECT + "setProperty , second", "INFO -> " + OBJECT + "getProperty "));
    EXPECT_EQ(lines().front(), "INFO -> " + OBJECT + "callMethodCompressed , -2147483648, ");
}

// In the system's code page; what it has no character for becomes a question mark.
TEST_F(JavaManagerCallsTest, TextsAreLoggedNarrow)
{
    ASSERT_EQ(GetACP(), 1252u);
    const CComBSTR text(L"\u00fc\u20ac\u0416");
    CComBSTR result;
    EXPECT_EQ(object->getProperty(text, &result), S_OK);
    EXPECT_EQ(lines().front(), "INFO -> " + OBJECT + "getProperty \xfc\x80?");
    EXPECT_THAT(linesWith(moduleLines(stream, "BeanFrame"), "-> ").front(), testing::EndsWith(" getProperty \xfc\x80?"));
}

TEST_F(JavaManagerCallsTest, ReturnTheAnswerAsANewString)
{
    CComBSTR result;
    EXPECT_EQ(object->callMethod(A, B, &result), S_OK);
    EXPECT_STREQ(result.m_str, L"answer of callMethod");
    EXPECT_EQ(object->getProperty(A, &result), S_OK);
    EXPECT_STREQ(result.m_str, L"answer of getProperty");
}

TEST_F(JavaManagerCallsTest, FailureCarriesTheBacktraceAsErrorText)
{
    for (const Method& method : METHODS) {
        SCOPED_TRACE(method.name);
        java.jni.outcomes[method.name] = RecordingJni::throws("java.lang.IllegalStateException", "not now");
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(method.call(*object, &result), E_FAIL);
        const std::optional<ErrorInfo> info = takeErrorInfo();
        ASSERT_TRUE(info);
        EXPECT_EQ(info->description, backtraces());
        EXPECT_THAT(info->description, testing::HasSubstr("Exception: java.lang.IllegalStateException: not now"));
        EXPECT_THAT(info->description, testing::HasSubstr("CJavaManagerATLObject  " + method.entry + "\n"));
        EXPECT_THAT(info->description, testing::Not(testing::HasSubstr("backtrace ***")));
        EXPECT_EQ(info->iid, IID_IJavaManager);
        EXPECT_FALSE(info->hasHelpFile);
        EXPECT_EQ(info->helpContext, 0u);
    }
}

TEST_F(JavaManagerCallsTest, WithoutBeanFrameFailWithErrorInfo)
{
    CBeanFrame::deleteInstance();
    for (const Method& method : METHODS) {
        SCOPED_TRACE(method.name);
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(method.call(*object, &result), E_FAIL);
        const std::vector<std::string> check = {"ERROR " + OBJECT + "CBeanFrame::s_Instance!=NULL: false",
                                                "INFO -> " + OBJECT + method.entry};
        EXPECT_THAT(lines(), ElementsAreArray(methodLines(method.entry, check, E_FAIL)));
        const std::optional<ErrorInfo> info = takeErrorInfo();
        ASSERT_TRUE(info);
        EXPECT_EQ(info->description, backtraces());
    }
}

TEST_F(JavaManagerCallsTest, SuccessCodesAreFlattened)
{
    ObjectAccess* const access = static_cast<ObjectAccess*>(static_cast<CJavaManagerATLObject*>(object.p));
    EXPECT_EQ((access->*&ObjectAccess::provideErrorInfo)(S_FALSE), S_OK);
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + OBJECT + "provideErrorInfo 1", "INFO <- " + OBJECT + "provideErrorInfo 1"));
    EXPECT_FALSE(takeErrorInfo());
}

TEST_F(JavaManagerCallsTest, FailureCodesArePassedThrough)
{
    ObjectAccess* const access = static_cast<ObjectAccess*>(static_cast<CJavaManagerATLObject*>(object.p));
    EXPECT_EQ((access->*&ObjectAccess::provideErrorInfo)(E_INVALIDARG), E_INVALIDARG);
    const std::string scope = OBJECT + "provideErrorInfo -2147024809";
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + scope, "TRACE " + OBJECT + "Providing Error Info!", "INFO <- " + scope));
    EXPECT_EQ(takeErrorText(), "") << "no error line since the last call";
}

TEST_F(JavaManagerCallsTest, ErrorTextHoldsWhatCameSinceTheLastFailure)
{
    CBeanFrame::deleteInstance();
    EXPECT_EQ(object->validate(), E_FAIL);
    const std::string firstText = takeErrorText();
    stream.clear();
    EXPECT_EQ(object->validate(), E_FAIL);
    EXPECT_EQ(takeErrorText(), backtraces());
    EXPECT_THAT(firstText, testing::HasSubstr("validate"));
}

TEST_F(JavaManagerCallsTest, OnlyVariantTrueEnables)
{
    EXPECT_EQ(object->enable(VARIANT_TRUE), S_OK);
    EXPECT_EQ(object->enable(1), S_OK);
    EXPECT_EQ(object->enable(VARIANT_FALSE), S_OK);
    EXPECT_EQ(object->enable(-2), S_OK);
    const std::string frame = "CallVoidMethod(global com/velmora/tq/kesta/KESTAFrame, setEnabled, ";
    EXPECT_THAT(java.takeMethodCalls(), ElementsAre(frame + "true)", frame + "false)", frame + "false)", frame + "false)"));
    EXPECT_THAT(linesWith(lines(), "-> " + OBJECT + "enable"),
                ElementsAre("INFO -> " + OBJECT + "enable -1", "INFO -> " + OBJECT + "enable 1", "INFO -> " + OBJECT + "enable 0",
                            "INFO -> " + OBJECT + "enable -2"));
}

TEST_F(JavaManagerCallsTest, FrameIdIsTheFramesOrThatOfAZombie)
{
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, CBeanFrame::s_Instance->frameID);
    EXPECT_GT(id, 0);
    const std::string scope = OBJECT + "getBeanFrameID ";
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + scope, "INFO <- " + scope));

    CBeanFrame::deleteInstance();
    stream.clear();
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, -1);
    EXPECT_THAT(lines(),
                ElementsAre("INFO -> " + scope,
                            "WARN " + OBJECT + "CBeanFrame::s_Instance==NULL, this object is a zombie; client should release it",
                            "INFO <- " + scope));
    EXPECT_FALSE(takeErrorInfo());
    EXPECT_EQ(object->getBeanFrameID(nullptr), E_POINTER);
}

TEST_F(JavaManagerCallsTest, TestBridgeAnswersItselfAtTheEndOfItsHops)
{
    advise(object, sink);
    struct Case
    {
        const wchar_t* text;
        int ttl;
        int delay;
        const char* fired;
        HRESULT result;
    };
    const std::string tail = " (delayed only when passed through bean)";
    const std::string abcDelayed = "abcSs" + tail;
    const Case cases[] = {
        {L"abc", 1, 0, "abcSs", S_OK},
        {L"abc", 0, 5, abcDelayed.c_str(), S_OK},
        {L"abc", 0, 0, "abcSs", S_OK},
        {L"abc", -3, -5, "abcSs", S_OK},
        {L"abc", INT_MIN, 0, "abcSs", S_OK},
        {L"error-x", 1, 0, "error-xSs", E_FAIL},
        {L"error", 1, 0, "errorSs", E_FAIL},
        {L"erro", 1, 0, "erroSs", S_OK},
        {L"Error-x", 1, 0, "Error-xSs", S_OK},
        {L"an error", 1, 0, "an errorSs", S_OK},
        {L"", 1, 0, "Ss", S_OK},
        {nullptr, 1, 0, "Ss", S_OK},
    };
    for (const Case& tested : cases) {
        SCOPED_TRACE(tested.fired);
        sink.calls.clear();
        stream.clear();
        EXPECT_EQ(testBridge(tested.text, tested.ttl, tested.delay), tested.result);
        EXPECT_THAT(sink.calls, ElementsAre(SinkCall{2, tested.fired}));
        const std::optional<ErrorInfo> info = takeErrorInfo();
        EXPECT_EQ(info.has_value(), tested.result == E_FAIL);
        if (info) {
            EXPECT_EQ(info->description, "") << "nothing went wrong in the log";
        } else {
            EXPECT_THAT(linesWith(lines(), "provideErrorInfo"), IsEmpty()) << "success does not pass through it";
        }
    }
    EXPECT_THAT(java.takeMethodCalls(), IsEmpty());
}

TEST_F(JavaManagerCallsTest, TestBridgeForwardsWhileHopsAreLeft)
{
    advise(object, sink);
    EXPECT_EQ(testBridge(L"abc", 3, 0), S_OK);
    EXPECT_EQ(testBridge(L"abc", 2, 500), S_OK);
    EXPECT_EQ(testBridge(L"error", INT_MAX, -1), S_OK);
    const std::string listener = "CallVoidMethod(global com/velmora/tq/kesta/KESTAListener, testBridge, ";
    EXPECT_THAT(java.takeMethodCalls(), ElementsAre(listener + "\"abcS\", 2, 0)", listener + "\"abcS\", 1, 500)",
                                                    listener + "\"errorS\", 2147483646, -1)"));
    EXPECT_THAT(sink.calls, IsEmpty());
}

TEST_F(JavaManagerCallsTest, TestBridgeLogsWhatTheClientPassed)
{
    EXPECT_EQ(testBridge(L"abc", 1, 7), S_OK);
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + OBJECT + "testBridge abc, 1, 7", "INFO <- " + OBJECT + "testBridge abc, 1, 7"));
}

TEST_F(JavaManagerCallsTest, TestBridgeAnswersAlsoWithoutBeanFrame)
{
    advise(object, sink);
    CBeanFrame::deleteInstance();
    EXPECT_EQ(testBridge(L"abc", 1, 0), S_OK);
    EXPECT_THAT(sink.calls, ElementsAre(SinkCall{2, "abcSs"}));
}

// Java calls back into the client while the client's call is still on its way.
TEST_F(JavaManagerCallsTest, SinkMayCallIn)
{
    advise(object, sink);
    sink.onCall = [&] {
        CComBSTR result;
        EXPECT_EQ(object->callMethod(A, B, &result), S_OK);
    };
    EXPECT_EQ(testBridge(L"abc", 1, 0), S_OK);
    EXPECT_THAT(java.takeMethodCalls(), testing::SizeIs(1));
}

TEST_F(JavaManagerCallsTest, SinkMayReleaseTheObject)
{
    advise(object, sink);
    IJavaManager* const manager = object.p;
    sink.onCall = [&] { object.Release(); };
    EXPECT_EQ(manager->testBridge(CComBSTR(L"error"), 1, 0), E_FAIL);
    EXPECT_EQ(module.locks, 0);
    // It goes when the call has done its work, not under its feet.
    const std::vector<std::string> all = lines();
    const auto place = [&](const char* part) {
        return std::find_if(all.begin(), all.end(),
                            [&](const std::string& line) { return line.find(part) != std::string::npos; });
    };
    EXPECT_LT(place("provideErrorInfo"), place("FinalRelease"));
    EXPECT_NE(place("FinalRelease"), all.end());
}

TEST_F(JavaManagerCallsTest, AreReachedByNameThroughTheTypeLibrary)
{
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    ASSERT_EQ(AtlRegisterTypeLib(path, CRegistrationScope::Machine), S_OK);
    const CComPtr<IDispatch> dispatch(object.p);
    const auto invoke = [&](const wchar_t* name, std::vector<VARIANT> arguments, VARIANT* result, EXCEPINFO* exception) {
        LPOLESTR text = const_cast<LPOLESTR>(name);
        DISPID id = 0;
        EXPECT_EQ(dispatch->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &id), S_OK);
        DISPPARAMS parameters = {arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
        return dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, result, exception, nullptr);
    };
    CComVariant first(A.m_str);
    CComVariant second(B.m_str);
    CComVariant result;
    EXPECT_EQ(invoke(L"callMethod", {second, first}, &result, nullptr), S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_STREQ(result.bstrVal, L"answer of callMethod");

    CBeanFrame::deleteInstance();
    stream.clear();
    EXCEPINFO exception = {};
    EXPECT_EQ(invoke(L"validate", {}, nullptr, &exception), DISP_E_EXCEPTION);
    EXPECT_EQ(exception.scode, E_FAIL);
    EXPECT_EQ(narrowText(exception.bstrDescription), backtraces());
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
}
