// Forwarding of the client's calls: one table of operations, run through success and each failure.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"

#include <functional>

namespace {

const std::string STRING = "Ljava/lang/String;";

// One row of the table. The call passes "first" and "second" where texts are due and 42 where a number is.
struct Forwarded
{
    std::string method;
    std::string parameters; // of the Java method, as the signature writes them
    std::string signature;
    std::string check;
    std::string scope; // the arguments in the entry line
    std::function<HRESULT(CJavaManagerJNIClient&, jobject, BSTR*)> call;
};

const CComBSTR FIRST(L"first");
const CComBSTR SECOND(L"second");

const Forwarded OPERATIONS[] = {
    {"callMethod", STRING + STRING, "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;", "callMethodID != NULL",
     "first, second", [](auto& client, jobject bean, BSTR* result) { return client.callMethod(bean, FIRST, SECOND, result); }},
    {"callMethodCompressed", STRING + "I" + STRING, "(Ljava/lang/String;ILjava/lang/String;)Ljava/lang/String;",
     "callMethodID != NULL", "first, 42, second",
     [](auto& client, jobject bean, BSTR* result) { return client.callMethodCompressed(bean, FIRST, 42, SECOND, result); }},
    {"displayDebugConsole", "", "()Ljava/lang/String;", "displayConsoleID != NULL", "",
     [](auto& client, jobject bean, BSTR* result) { return client.displayDebugConsole(bean, result); }},
    {"free", "", "()Ljava/lang/String;", "freeID != NULL", "",
     [](auto& client, jobject bean, BSTR* result) { return client.free(bean, result); }},
    {"getBasisControlVersionInfo", "", "()Ljava/lang/String;", "getBasisControlVersionInfoID != NULL", "",
     [](auto& client, jobject bean, BSTR* result) { return client.getBasisControlVersionInfo(bean, result); }},
    {"getProperty", STRING, "(Ljava/lang/String;)Ljava/lang/String;", "getPropertyID != NULL", "first",
     [](auto& client, jobject bean, BSTR* result) { return client.getProperty(bean, FIRST, result); }},
    {"getVersionInfo", STRING, "(Ljava/lang/String;)Ljava/lang/String;", "getVersionInfoID != NULL", "first",
     [](auto& client, jobject bean, BSTR* result) { return client.getVersionInfo(bean, FIRST, result); }},
    {"setLogLevel", "I", "(I)Ljava/lang/String;", "setLogLevelID != NULL", "42",
     [](auto& client, jobject bean, BSTR* result) { return client.setLogLevel(bean, 42, result); }},
    {"setProperty", STRING + STRING, "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;", "setPropertyID != NULL",
     "first, second", [](auto& client, jobject bean, BSTR* result) { return client.setProperty(bean, FIRST, SECOND, result); }},
    {"updateVersion", STRING, "(Ljava/lang/String;)Ljava/lang/String;", "updateVersionID != NULL", "first",
     [](auto& client, jobject bean, BSTR* result) { return client.updateVersion(bean, FIRST, result); }},
};

// What the arguments are in the record, and what happens to those that are references.
struct Arguments
{
    explicit Arguments(const std::string& parameters)
    {
        const char* const texts[] = {"first", "second"};
        size_t next = 0;
        for (size_t at = 0; at < parameters.size(); at += parameters[at] == 'I' ? 1 : STRING.size()) {
            if (parameters[at] == 'I') {
                passed += ", 42";
                continue;
            }
            const std::string text = texts[next++];
            passed += ", \"" + text + "\"";
            conversions.push_back("NewStringUTF(" + text + ")");
            deletions.push_back("DeleteLocalRef(\"" + text + "\")");
            references.push_back("\"" + text + "\"");
        }
    }
    std::string passed;
    Strings conversions;
    Strings deletions;
    Strings references;
};

class ForwardTest : public BridgeTest
{
protected:
    ForwardTest() { haveControl(); }

    static std::string lookUp(const Forwarded& operation)
    {
        return "GetMethodID(class a/b/Bean, " + operation.method + ", " + operation.signature + ")";
    }
    static std::string call(const Forwarded& operation)
    {
        return "CallObjectMethod(global bean, " + operation.method + Arguments(operation.parameters).passed + ")";
    }
    const Strings classes = {"class a/b/Bean", "class " + FRAME, "class " + LISTENER};
};

TEST_F(ForwardTest, EveryOperationLooksUpConvertsCallsAndReleases)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        const Arguments arguments(operation.parameters);
        const std::string answer = "\"answer of " + operation.method + "\"";
        CComBSTR result;
        EXPECT_EQ(operation.call(client, bean, &result), S_OK);
        EXPECT_STREQ(result, CComBSTR(("answer of " + operation.method).c_str()));
        EXPECT_STRINGS(java.takeCalls(), Strings{lookUp(operation)} + arguments.conversions +
                                             Strings{call(operation), "ExceptionCheck()"} + arguments.deletions +
                                             Strings{"GetStringUTFChars(" + answer + ")", "ReleaseStringUTFChars(" + answer + ")",
                                                     "DeleteLocalRef(" + answer + ")"});
        EXPECT_STRINGS(java.liveLocals(), classes);
        EXPECT_STRINGS(log.takeScopes(),
                       Strings{"FINE " + operation.method + " " + operation.scope, "FINE checkNoJNIException "});
        EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE " + operation.check + ": true", "TRACE checkNoJNIException(): true",
                                                     "TRACE result!=NULL: true", "TRACE env!=NULL: true"});
    }
}

TEST_F(ForwardTest, MissingMethodEndsTheOperation)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        java.missing = {operation.method};
        BSTR result = reinterpret_cast<BSTR>(-1);
        const Strings cleared = java.isPending() ? Strings{"ExceptionClear() [pending]"} : Strings{};
        EXPECT_EQ(operation.call(client, bean, &result), E_FAIL);
        EXPECT_EQ(result, reinterpret_cast<BSTR>(-1)) << "the result is not written";
        EXPECT_STRINGS(java.takeCalls(), cleared + Strings{lookUp(operation)});
        EXPECT_STRINGS(java.liveLocals(), classes);
        EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR " + operation.check + ": false"});
    }
}

TEST_F(ForwardTest, ErrorOfAFailedLookUpIsClearedJustBeforeTheNextUseOfJni)
{
    java.missing = {"callMethod"};
    CComBSTR result;
    EXPECT_EQ(client.callMethod(bean, FIRST, SECOND, &result), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{lookUp(OPERATIONS[0])});
    EXPECT_TRUE(java.isPending());
    EXPECT_EQ(client.getProperty(nullptr, FIRST, &result), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{});
    EXPECT_EQ(client.free(bean, &result), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"ExceptionClear() [pending]", "GetMethodID(class a/b/Bean, free, ()Ljava/lang/String;)",
                           "CallObjectMethod(global bean, free)", "ExceptionCheck()", "GetStringUTFChars(\"answer of free\")",
                           "ReleaseStringUTFChars(\"answer of free\")", "DeleteLocalRef(\"answer of free\")"});
    EXPECT_EQ(client.free(bean, &result), S_OK);
    EXPECT_EQ(java.takeCalls().front(), "GetMethodID(class a/b/Bean, free, ()Ljava/lang/String;)") << "it is cleared once";
}

TEST_F(ForwardTest, ExceptionKeepsReferencesAndResult)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        const Arguments arguments(operation.parameters);
        const Strings before = java.liveLocals();
        java.outcomes[operation.method] = RecordingJni::throws("java.lang.IllegalStateException", "said why");
        BSTR result = reinterpret_cast<BSTR>(-1);
        EXPECT_EQ(operation.call(client, bean, &result), E_FAIL);
        EXPECT_EQ(result, reinterpret_cast<BSTR>(-1)) << "the result is not written";
        EXPECT_STRINGS(java.takeCalls(), Strings{lookUp(operation)} + arguments.conversions + Strings{call(operation)} +
                                             captureCalls("java.lang.IllegalStateException", "said why"));
        EXPECT_EQ(java.liveLocals().size(), before.size() + arguments.references.size() + 2)
            << "the arguments, the exception's class and java/lang/Class stay";
        Strings kept = before + arguments.references + Strings{"class java.lang.IllegalStateException", "class java/lang/Class"};
        std::sort(kept.begin(), kept.end());
        EXPECT_STRINGS(java.liveLocals(), kept);
        EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE " + operation.check + ": true",
                                                     "ERROR Exception: java.lang.IllegalStateException: said why\n",
                                                     "ERROR checkNoJNIException(): false"});
    }
}

TEST_F(ForwardTest, NullAnswerGivesAnEmptyResult)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        const Arguments arguments(operation.parameters);
        java.outcomes[operation.method] = RecordingJni::answersNull();
        CComBSTR result;
        EXPECT_EQ(operation.call(client, bean, &result), S_OK);
        EXPECT_NE(result.m_str, nullptr);
        EXPECT_EQ(result.Length(), 0u);
        EXPECT_STRINGS(java.takeCalls(), Strings{lookUp(operation)} + arguments.conversions +
                                             Strings{call(operation), "ExceptionCheck()"} + arguments.deletions);
        EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{});
    }
}

TEST_F(ForwardTest, WithoutResultPointerTheCallIsMadeAllTheSame)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        EXPECT_EQ(operation.call(client, bean, nullptr), S_OK);
        const Arguments arguments(operation.parameters);
        EXPECT_STRINGS(java.takeCalls(), Strings{lookUp(operation)} + arguments.conversions +
                                             Strings{call(operation), "ExceptionCheck()"} + arguments.deletions +
                                             Strings{"DeleteLocalRef(\"answer of " + operation.method + "\")"});
        EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"result!=NULL: false"});
        EXPECT_STRINGS(java.liveLocals(), classes);
    }
}

TEST_F(ForwardTest, NullBeanAndMissingMachineFailWithoutJni)
{
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        CComBSTR result;
        EXPECT_EQ(operation.call(client, nullptr, &result), E_FAIL);
        EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR " + operation.check + ": false"});
    }
    client.m_BeanClass = nullptr;
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        CComBSTR result;
        EXPECT_EQ(operation.call(client, bean, &result), E_FAIL);
        EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR " + operation.check + ": false"});
    }
    haveControl();
    haveNoMachine();
    for (const Forwarded& operation : OPERATIONS) {
        SCOPED_TRACE(operation.method);
        CComBSTR result;
        EXPECT_EQ(operation.call(client, bean, &result), E_FAIL);
        EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR " + operation.check + ": false"});
    }
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(ForwardTest, MethodIsLookedUpAtEveryCall)
{
    CComBSTR result;
    client.callMethod(bean, FIRST, SECOND, &result);
    java.takeCalls();
    client.m_BeanClass = java.localClass("x/Other");
    client.callMethod(bean, FIRST, SECOND, &result);
    EXPECT_EQ(java.takeCalls().front(), "GetMethodID(class x/Other, callMethod, (" + STRING + STRING + ")" + STRING + ")");
}

TEST_F(ForwardTest, NullTextReachesJavaAsEmptyText)
{
    CComBSTR result;
    EXPECT_EQ(client.callMethod(bean, nullptr, nullptr, &result), S_OK);
    const Strings calls = java.takeCalls();
    EXPECT_STRINGS(Strings(calls.begin() + 1, calls.begin() + 6),
                   Strings{"NewStringUTF()", "NewStringUTF()", "CallObjectMethod(global bean, callMethod, \"\", \"\")",
                           "ExceptionCheck()", "DeleteLocalRef(\"\")"});
    EXPECT_EQ(log.takeScopes().front(), "FINE callMethod , ");
}

TEST_F(ForwardTest, EntryLineHoldsTextsInTheAnsiCodePageAndNegativeNumbers)
{
    ASSERT_EQ(GetACP(), 1252u) << "the text of this test is in Windows-1252";
    CComBSTR result;
    EXPECT_EQ(client.callMethodCompressed(bean, CComBSTR(L"\u00E4 \u20AC"), -5, CComBSTR(L""), &result), S_OK);
    EXPECT_EQ(log.takeScopes().front(), "FINE callMethodCompressed \xE4 \x80, -5, ");
    EXPECT_EQ(java.takeCalls()[3], "CallObjectMethod(global bean, callMethodCompressed, \"\xE4 \x80\", -5, \"\")");
}

TEST_F(ForwardTest, TextThatCouldNotBeMadeIsNotDeleted)
{
    java.nullFrom["NewStringUTF"] = 1;
    CComBSTR result;
    EXPECT_EQ(client.setProperty(bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class a/b/Bean, setProperty, (" + STRING + STRING + ")" + STRING + ")",
                                             "NewStringUTF(first)", "NewStringUTF(second)",
                                             "CallObjectMethod(global bean, setProperty, null, null)", "ExceptionCheck()"});
}

class SetUsedControlTest : public ForwardTest
{
protected:
    const std::string beanLookUp =
        "GetMethodID(class a/b/Bean, setUsedControl, (Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;)";
    const Strings beanCalls = {
        beanLookUp,
        "NewStringUTF(first)",
        "NewStringUTF(second)",
        "CallObjectMethod(global bean, setUsedControl, \"first\", \"second\")",
        "ExceptionCheck()",
        "DeleteLocalRef(\"first\")",
        "DeleteLocalRef(\"second\")",
        "GetStringUTFChars(\"answer of setUsedControl\")",
        "ReleaseStringUTFChars(\"answer of setUsedControl\")",
        "DeleteLocalRef(\"answer of setUsedControl\")",
    };
    CComBSTR result;
};

TEST_F(SetUsedControlTest, MakesTheFrameFocusableFirst)
{
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STRINGS(java.takeCalls(), setterCalls("global frame", "setFocusableWindowState", "true") + beanCalls);
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE setUsedControl first, second", "FINE setFrameFocusableWindowState 1",
                                             "FINE callBooleanSetterOnFrame setFocusableWindowState, 1",
                                             "FINE checkNoJNIException ", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{"TRACE methodID!=NULL: true", "TRACE checkNoJNIException(): true",
                           "TRACE setFrameFocusableWindowState(frame, true): success: 0", "TRACE setUsedControlID != NULL: true",
                           "TRACE checkNoJNIException(): true", "TRACE result!=NULL: true", "TRACE env!=NULL: true"});
}

TEST_F(SetUsedControlTest, ReachesTheBeanWhenTheFrameFails)
{
    java.missing = {"setFocusableWindowState"};
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", setFocusableWindowState, (Z)V)", "ExceptionClear() [pending]"} +
                       beanCalls);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"methodID!=NULL: false", "setFrameFocusableWindowState(frame, true): failure: -2147467259"});
    EXPECT_EQ(client.setUsedControl(nullptr, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STRINGS(java.takeCalls(), beanCalls);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"methodID!=NULL: false", "setFrameFocusableWindowState(frame, true): failure: -2147467259"});
}

TEST_F(SetUsedControlTest, MissingMethodEndsTheOperation)
{
    java.missing = {"setUsedControl"};
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), setterCalls("global frame", "setFocusableWindowState", "true") + Strings{beanLookUp});
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"setUsedControlID != NULL: false"});
}

TEST_F(SetUsedControlTest, ExceptionEndsTheOperation)
{
    java.outcomes["setUsedControl"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: x\n", "checkNoJNIException(): false"});
    EXPECT_EQ(result.m_str, nullptr);
    EXPECT_STRINGS(java.takeCalls(), setterCalls("global frame", "setFocusableWindowState", "true") +
                                         Strings(beanCalls.begin(), beanCalls.begin() + 4) +
                                         captureCalls("java.lang.Error", "x"));
    EXPECT_STRINGS(java.liveLocals(), Strings{"\"first\"", "\"second\"", "class a/b/Bean", "class " + FRAME, "class " + LISTENER,
                                              "class java.lang.Error", "class java/lang/Class"});
}

TEST_F(SetUsedControlTest, ExceptionOfTheFrameIsLoggedAndCleared)
{
    java.outcomes["setFocusableWindowState"] = RecordingJni::throws("java.lang.Error", "frame");
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STREQ(result, L"answer of setUsedControl");
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setFocusableWindowState, (Z)V)",
                                             "CallVoidMethod(global frame, setFocusableWindowState, true)"} +
                                         captureCalls("java.lang.Error", "frame") + beanCalls);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: frame\n", "checkNoJNIException(): false",
                                                        "setFrameFocusableWindowState(frame, true): failure: -2147467259"});
}

TEST_F(SetUsedControlTest, NullAnswerAndNullResultPointer)
{
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, nullptr), S_OK);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"result!=NULL: false"});
    java.outcomes["setUsedControl"] = RecordingJni::answersNull();
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    ASSERT_NE(result.m_str, nullptr);
    EXPECT_EQ(result.Length(), 0u);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{});
    EXPECT_STRINGS(java.liveLocals(), classes);
}

class TestBridgeTest : public ForwardTest
{
protected:
    const std::string lookUpCall = "GetMethodID(class " + LISTENER + ", testBridge, (Ljava/lang/String;II)V)";
};

TEST_F(TestBridgeTest, CallsTheListener)
{
    EXPECT_EQ(client.testBridge(listener, L"hello", 3, -7), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{lookUpCall, "NewStringUTF(hello)", "CallVoidMethod(global listener, testBridge, \"hello\", 3, -7)",
                           "ExceptionCheck()", "DeleteLocalRef(\"hello\")"});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE testBridge hello, 3, -7", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE debugTextMethodID != NULL: true", "TRACE checkNoJNIException(): true"});
    EXPECT_STRINGS(java.liveLocals(), classes);
}

TEST_F(TestBridgeTest, NullTextReachesJavaAsEmptyText)
{
    EXPECT_EQ(client.testBridge(listener, nullptr, 0, 0), S_OK);
    EXPECT_EQ(java.takeCalls()[1], "NewStringUTF()");
}

TEST_F(TestBridgeTest, TextReachesJavaInTheAnsiCodePage)
{
    ASSERT_EQ(GetACP(), 1252u) << "the text of this test is in Windows-1252";
    EXPECT_EQ(client.testBridge(listener, L"\u00E4 \u20AC", 0, 0), S_OK);
    EXPECT_EQ(java.takeCalls()[1], "NewStringUTF(\xE4 \x80)");
    EXPECT_EQ(log.takeScopes().front(), "FINE testBridge \xE4 \x80, 0, 0");
}

TEST_F(TestBridgeTest, Failures)
{
    java.outcomes["testBridge"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.testBridge(listener, L"kept", 1, 2), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{lookUpCall, "NewStringUTF(kept)", "CallVoidMethod(global listener, testBridge, \"kept\", 1, 2)"} +
                       captureCalls("java.lang.Error", "x"));
    EXPECT_EQ(java.liveLocals().front(), "\"kept\"");
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: x\n", "checkNoJNIException(): false"});
    java.missing = {"testBridge"};
    EXPECT_EQ(client.testBridge(listener, L"kept", 1, 2), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{lookUpCall});
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR debugTextMethodID != NULL: false"});
    EXPECT_EQ(client.testBridge(nullptr, L"kept", 1, 2), E_FAIL);
    haveNoMachine();
    EXPECT_EQ(client.testBridge(listener, L"kept", 1, 2), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{});
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{"ERROR debugTextMethodID != NULL: false", "ERROR debugTextMethodID != NULL: false"});
}

} // namespace
