// The operations that pass a call on to the Java bridge.
#include "tests/beanframe/BeanFrameWorld.h"

#include <gmock/gmock.h>

#include <climits>

using testing::ElementsAre;

namespace {

const std::string BEAN = "global com/maker/win/Control";
const std::string FRAME = "global com/velmora/tq/kesta/KESTAFrame";
const std::string LISTENER = "global com/velmora/tq/kesta/KESTAListener";

struct Forwarding
{
    const char* name;
    // Of the scope, behind the object.
    std::string entry;
    std::string javaCall;
    // The Java method's answer comes back as the result.
    std::string answer;
    HRESULT (*call)(CBeanFrame& frame, BSTR* result);
};

const CComBSTR A(L"first");
const CComBSTR B(L"second");

const Forwarding FORWARDINGS[] = {
    {"callMethod", "callMethod first,second", "CallObjectMethod(" + BEAN + ", callMethod, \"first\", \"second\")",
     "answer of callMethod", [](CBeanFrame& frame, BSTR* result) { return frame.callMethod(A, B, result); }},
    {"callMethodCompressed", "callMethodCompressed first,-7,second",
     "CallObjectMethod(" + BEAN + ", callMethodCompressed, \"first\", -7, \"second\")", "answer of callMethodCompressed",
     [](CBeanFrame& frame, BSTR* result) { return frame.callMethodCompressed(A, -7, B, result); }},
    {"displayDebugConsole", "displayDebugConsole ", "CallObjectMethod(" + BEAN + ", displayDebugConsole)",
     "answer of displayDebugConsole", [](CBeanFrame& frame, BSTR* result) { return frame.displayDebugConsole(result); }},
    {"free", "free ", "CallObjectMethod(" + BEAN + ", free)", "answer of free",
     [](CBeanFrame& frame, BSTR* result) { return frame.free(result); }},
    {"getBasisControlVersionInfo", "getBasisControlVersionInfo ", "CallObjectMethod(" + BEAN + ", getBasisControlVersionInfo)",
     "answer of getBasisControlVersionInfo",
     [](CBeanFrame& frame, BSTR* result) { return frame.getBasisControlVersionInfo(result); }},
    {"getProperty", "getProperty first", "CallObjectMethod(" + BEAN + ", getProperty, \"first\")", "answer of getProperty",
     [](CBeanFrame& frame, BSTR* result) { return frame.getProperty(A, result); }},
    {"getVersionInfo", "getVersionInfo first", "CallObjectMethod(" + BEAN + ", getVersionInfo, \"first\")",
     "answer of getVersionInfo", [](CBeanFrame& frame, BSTR* result) { return frame.getVersionInfo(A, result); }},
    {"setProperty", "setProperty first,second", "CallObjectMethod(" + BEAN + ", setProperty, \"first\", \"second\")",
     "answer of setProperty", [](CBeanFrame& frame, BSTR* result) { return frame.setProperty(A, B, result); }},
    {"setLogLevel", "setLogLevel ", "CallObjectMethod(" + BEAN + ", setLogLevel, 3)", "answer of setLogLevel",
     [](CBeanFrame& frame, BSTR* result) { return frame.setLogLevel(3, result); }},
    {"updateVersion", "updateVersion first", "CallObjectMethod(" + BEAN + ", updateVersion, \"first\")",
     "answer of updateVersion", [](CBeanFrame& frame, BSTR* result) { return frame.updateVersion(A, result); }},
    {"setUsedControl", "setUsedControl first,second", "CallObjectMethod(" + BEAN + ", setUsedControl, \"first\", \"second\")",
     "answer of setUsedControl", [](CBeanFrame& frame, BSTR* result) { return frame.setUsedControl(A, B, result); }},
    {"setBounds", "setBounds 1,-2,30,40", "CallVoidMethod(" + FRAME + ", setBounds, ...)", "",
     [](CBeanFrame& frame, BSTR*) { return frame.setBounds(1, -2, 30, 40); }},
    {"setEnabled", "setEnabled 1", "CallVoidMethod(" + FRAME + ", setEnabled, true)", "",
     [](CBeanFrame& frame, BSTR*) { return frame.setEnabled(true); }},
    {"setDisabled", "setEnabled 0", "CallVoidMethod(" + FRAME + ", setEnabled, false)", "",
     [](CBeanFrame& frame, BSTR*) { return frame.setEnabled(false); }},
    {"setVisible", "setVisible ", "CallVoidMethod(" + FRAME + ", setVisible, true)", "",
     [](CBeanFrame& frame, BSTR*) { return frame.setVisible(true); }},
    {"testBridge", "testBridge first", "CallVoidMethod(" + LISTENER + ", testBridge, \"first\", 2, 500)", "",
     [](CBeanFrame& frame, BSTR*) { return frame.testBridge(A, 2, 500); }},
};

} // namespace

using BeanFrameForwardingTest = BeanFrameWorld;

TEST_F(BeanFrameForwardingTest, LogsItsTextsAndCallsTheRightObject)
{
    createFrame();
    for (const Forwarding& forwarding : FORWARDINGS) {
        SCOPED_TRACE(forwarding.name);
        stream.clear();
        CComBSTR result;
        EXPECT_EQ(forwarding.call(frame(), &result), S_OK);
        EXPECT_THAT(lines(), ElementsAre("INFO -> " + object() + forwarding.entry, "INFO <- " + object() + forwarding.entry));
        EXPECT_EQ(java->takeMethodCalls().back(), forwarding.javaCall);
        EXPECT_EQ(narrowText(result.m_str), forwarding.answer);
    }
}

TEST_F(BeanFrameForwardingTest, ReturnsTheFailureOfTheCalledOperation)
{
    createFrame();
    for (const char* method : {"callMethod", "callMethodCompressed", "displayDebugConsole", "free", "getBasisControlVersionInfo",
                               "getProperty", "getVersionInfo", "setProperty", "setLogLevel", "updateVersion", "setUsedControl",
                               "setBounds", "setEnabled", "setVisible", "testBridge"}) {
        java->jni.outcomes[method] = RecordingJni::throws("java.lang.IllegalStateException", "no");
    }
    for (const Forwarding& forwarding : FORWARDINGS) {
        SCOPED_TRACE(forwarding.name);
        CComBSTR result;
        EXPECT_EQ(forwarding.call(frame(), &result), E_FAIL);
        EXPECT_EQ(result.m_str, nullptr);
    }
}

// The bridge is gone, the frame is still there: nothing is called.
TEST_F(BeanFrameForwardingTest, FailsWithoutTheJavaBridge)
{
    createFrame();
    CJavaManagerJNIClient* const bridge = CJavaManagerJNIClient::s_Instance;
    CJavaManagerJNIClient::s_Instance = nullptr;
    for (const Forwarding& forwarding : FORWARDINGS) {
        SCOPED_TRACE(forwarding.name);
        CComBSTR result;
        EXPECT_EQ(forwarding.call(frame(), &result), E_FAIL);
    }
    CJavaManagerJNIClient::s_Instance = bridge;
    EXPECT_THAT(java->jni.takeCalls(), testing::IsEmpty());
}

TEST_F(BeanFrameForwardingTest, SetUsedControlPassesTheFrameToo)
{
    createFrame();
    CComBSTR result;
    EXPECT_EQ(frame().setUsedControl(A, B, &result), S_OK);
    EXPECT_EQ(java->takeMethodCalls().front(), "CallVoidMethod(" + FRAME + ", setFocusableWindowState, true)");
}

TEST_F(BeanFrameForwardingTest, ValidateGoesToFrameAndBean)
{
    createFrame();
    EXPECT_EQ(frame().validate(), S_OK);
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + object() + "validate ", "INFO <- " + object() + "validate "));
    EXPECT_THAT(java->takeMethodCalls(),
                ElementsAre("CallVoidMethod(" + FRAME + ", validate)", "CallVoidMethod(" + BEAN + ", validate)"));
}

TEST_F(BeanFrameForwardingTest, NullTextsLeaveTheirPlaceInTheEntryEmpty)
{
    createFrame();
    CComBSTR result;
    EXPECT_EQ(frame().callMethod(nullptr, nullptr, &result), S_OK);
    EXPECT_EQ(lines().front(), "INFO -> " + object() + "callMethod ,");
}

// What the bridge hands to Java of them is the bridge's matter; the frame passes on all four as they are.
TEST_F(BeanFrameForwardingTest, IntegersReachTheBridgeUnchanged)
{
    createFrame();
    CComBSTR result;
    EXPECT_EQ(frame().setBounds(INT_MIN, -2, 30, INT_MAX), S_OK);
    EXPECT_THAT(linesWith(moduleLines(stream, "JavaManagerJNIClient"), "-> ").front(),
                testing::EndsWith(" setFrameBounds -2147483648, -2, 30, 2147483647"));
    for (const int number : {INT_MIN, -1, 0, 10, INT_MAX}) {
        stream.clear();
        EXPECT_EQ(frame().callMethodCompressed(A, number, B, &result), S_OK);
        EXPECT_EQ(lines().front(), "INFO -> " + object() + "callMethodCompressed first," + std::to_string(number) + ",second");
        EXPECT_EQ(java->takeMethodCalls().back(),
                  "CallObjectMethod(" + BEAN + ", callMethodCompressed, \"first\", " + std::to_string(number) + ", \"second\")");
        EXPECT_EQ(frame().setLogLevel(number, &result), S_OK);
        EXPECT_EQ(java->takeMethodCalls().back(), "CallObjectMethod(" + BEAN + ", setLogLevel, " + std::to_string(number) + ")");
        EXPECT_EQ(frame().testBridge(A, number, 7), S_OK);
        EXPECT_EQ(java->takeMethodCalls().back(),
                  "CallVoidMethod(" + LISTENER + ", testBridge, \"first\", " + std::to_string(number) + ", 7)");
        EXPECT_EQ(frame().testBridge(A, 7, number), S_OK);
        EXPECT_EQ(java->takeMethodCalls().back(),
                  "CallVoidMethod(" + LISTENER + ", testBridge, \"first\", 7, " + std::to_string(number) + ")");
    }
}
