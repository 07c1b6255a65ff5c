// The operations that look a Java method up, call it and check for an exception: one table, run through success and each failure.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"

#include <algorithm>
#include <functional>

namespace {

const CComBSTR FIRST(L"first");
const CComBSTR SECOND(L"second");
const BSTR UNTOUCHED = reinterpret_cast<BSTR>(-1);

struct SReferences
{
    jobject bean;
    jobject frame;
    jobject listener;
};

struct SOperation
{
    std::string method; // of Java
    std::string check;  // of the look-up
    Strings transcript; // of a success
    std::vector<jobject SReferences::*> needs;
    std::function<HRESULT(CJavaManagerJNIClient&, const SReferences&, BSTR*)> call;
    Strings errorsBefore; // where there is neither class nor machine
};

// The transcript of a forwarded call. Parameters: S for each text, I for each number. Texts are "first" and "second", numbers 42.
std::string forwarded(const std::string& object, const std::string& className, const std::string& method,
                      const std::string& parameters, const std::string& check, bool hasAnswer = true)
{
    std::string scope;
    std::string passed;
    std::string signature;
    std::string conversions;
    std::string deletions;
    for (const char parameter : parameters) {
        const std::string text = parameter == 'I' ? "42" : conversions.empty() ? "first" : "second";
        scope += (scope.empty() ? "" : ", ") + text;
        passed += ", " + (parameter == 'I' ? text : "\"" + text + "\"");
        signature += parameter == 'I' ? "I" : "Ljava/lang/String;";
        if (parameter == 'S') {
            conversions += "FINE -> JNIHelper: bstrToJavaString\nNewStringUTF(" + text + ")\n";
            deletions += "DeleteLocalRef(\"" + text + "\")\n";
        }
    }
    const std::string result = hasAnswer ? "Ljava/lang/String;" : "V";
    const std::string answer = "\"answer of " + method + "\"";
    return "FINE -> " + method + (scope.empty() ? "" : " ") + scope + "\nGetMethodID(class " + className + ", " + method + ", (" +
           signature + ")" + result + ")\nTRACE " + check + ": true\n" + conversions +
           (hasAnswer ? "CallObjectMethod(global " : "CallVoidMethod(global ") + object + ", " + method + passed +
           ")\n{checked}\n" + deletions +
           (hasAnswer ? "FINE -> JNIHelper: javaStringToBstr\nTRACE JNIHelper: result!=NULL: true\nTRACE JNIHelper: env!=NULL: "
                        "true\nGetStringUTFChars(" +
                            answer + ")\nReleaseStringUTFChars(" + answer + ")\nDeleteLocalRef(" + answer + ")\n"
                      : "");
}

SOperation beanOperation(const std::string& method, const std::string& parameters, const std::string& check,
                         const std::function<HRESULT(CJavaManagerJNIClient&, jobject, BSTR*)>& call)
{
    return {method,
            check,
            linesOf(forwarded("bean", BEAN, method, parameters, check)),
            {&SReferences::bean},
            [call](auto& client, const SReferences& references, BSTR* result) { return call(client, references.bean, result); },
            {}};
}

SOperation setterOperation(const std::string& operation, const std::string& method, bool value,
                           HRESULT (CJavaManagerJNIClient::*call)(jobject, bool))
{
    return {method,
            "methodID!=NULL",
            linesOf(setterTranscript("global frame", operation, method, value)),
            {&SReferences::frame},
            [=](auto& client, const SReferences& references, BSTR*) { return (client.*call)(references.frame, value); },
            {}};
}

std::vector<SOperation> operations()
{
    using Client = CJavaManagerJNIClient;
    std::vector<SOperation> all = {
        beanOperation("callMethod", "SS", "callMethodID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.callMethod(bean, FIRST, SECOND, result); }),
        beanOperation("callMethodCompressed", "SIS", "callMethodID != NULL",
                      [](Client& client, jobject bean, BSTR* result) {
                          return client.callMethodCompressed(bean, FIRST, 42, SECOND, result);
                      }),
        beanOperation("displayDebugConsole", "", "displayConsoleID != NULL", std::mem_fn(&Client::displayDebugConsole)),
        beanOperation("free", "", "freeID != NULL", std::mem_fn(&Client::free)),
        beanOperation("getBasisControlVersionInfo", "", "getBasisControlVersionInfoID != NULL",
                      std::mem_fn(&Client::getBasisControlVersionInfo)),
        beanOperation("getProperty", "S", "getPropertyID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.getProperty(bean, FIRST, result); }),
        beanOperation("getVersionInfo", "S", "getVersionInfoID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.getVersionInfo(bean, FIRST, result); }),
        beanOperation("setLogLevel", "I", "setLogLevelID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.setLogLevel(bean, 42, result); }),
        beanOperation("setProperty", "SS", "setPropertyID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.setProperty(bean, FIRST, SECOND, result); }),
        beanOperation("updateVersion", "S", "updateVersionID != NULL",
                      [](Client& client, jobject bean, BSTR* result) { return client.updateVersion(bean, FIRST, result); }),
        {"testBridge",
         "debugTextMethodID != NULL",
         linesOf(forwarded("listener", LISTENER, "testBridge", "SII", "debugTextMethodID != NULL", false)),
         {&SReferences::listener},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.testBridge(references.listener, L"first", 42, 42);
         },
         {}},
        {"add",
         "addID!=NULL",
         linesOf(R"(
             FINE -> addBean
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, add, (Ljava/awt/Component;)Ljava/awt/Component;)
             TRACE addID!=NULL: true
             CallObjectMethod(global frame, add, global bean)
             {checked}
             DeleteLocalRef(local answer of add)
             INFO Successfully added Bean to KESTAFrame!)"),
         {&SReferences::frame, &SReferences::bean},
         [](Client& client, const SReferences& references, BSTR*) { return client.addBean(references.frame, references.bean); },
         {}},
        {"setBounds",
         "setBoundsID!=NULL",
         linesOf(R"(
             FINE -> setFrameBounds 1111, -2222, 3333, 4444
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, setBounds, (IIII)V)
             TRACE setBoundsID!=NULL: true
             CallVoidMethod(global frame, setBounds, ...)
             {checked})"),
         {&SReferences::frame},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.setFrameBounds(references.frame, 1111, -2222, 3333, 4444);
         },
         {}},
        {"validate",
         "validateID!=NULL",
         linesOf(R"(
             FINE -> validateFrameAndBean
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, validate, ()V)
             TRACE validateID!=NULL: true
             CallVoidMethod(global frame, validate)
             {checked}
             CallVoidMethod(global bean, validate)
             {checked})"),
         {&SReferences::frame, &SReferences::bean},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.validateFrameAndBean(references.frame, references.bean);
         },
         {}},
    };
    for (const bool value : {false, true}) {
        for (const auto& [operation, method, call] :
             {std::tuple{"setFrameFocusableWindowState", "setFocusableWindowState", &Client::setFrameFocusableWindowState},
              {"setFrameAlwaysOnTop", "setAlwaysOnTop", &Client::setFrameAlwaysOnTop},
              {"setFrameUndecorated", "setUndecorated", &Client::setFrameUndecorated},
              {"setFrameVisible", "setVisible", &Client::setFrameVisible},
              {"setFrameEnabled", "setEnabled", &Client::setFrameEnabled}}) {
            all.push_back(setterOperation(operation, method, value, call));
        }
    }
    SOperation setUsedControl = beanOperation("setUsedControl", "SS", "setUsedControlID != NULL", {});
    const Strings focusable =
        linesOf(setterTranscript("global frame", "setFrameFocusableWindowState", "setFocusableWindowState", true) +
                "TRACE setFrameFocusableWindowState(frame, true): success: 0");
    setUsedControl.transcript.insert(setUsedControl.transcript.begin() + 1, focusable.begin(), focusable.end());
    setUsedControl.call = [](Client& client, const SReferences& references, BSTR* result) {
        return client.setUsedControl(references.frame, references.bean, FIRST, SECOND, result);
    };
    setUsedControl.errorsBefore = {"methodID!=NULL: false", "setFrameFocusableWindowState(frame, true): failure: -2147467259"};
    all.push_back(setUsedControl);
    return all;
}

// The JNI calls up to the first that begins with one text and contains the other, which is the last.
Strings callsUpTo(const SOperation& operation, const std::string& start, const std::string& part = "")
{
    Strings calls = callsOf(operation.transcript);
    const auto last = std::find_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.starts_with(start) && call.find(part) != std::string::npos;
    });
    EXPECT_NE(last, calls.end());
    calls.erase(last == calls.end() ? last : last + 1, calls.end());
    return calls;
}

bool hasAnswer(const SOperation& operation)
{
    return operation.transcript.back().starts_with("DeleteLocalRef(\"answer");
}

class OperationTest : public BridgeTest
{
protected:
    OperationTest() { haveControl(); }

    HRESULT call(const SOperation& operation, BSTR* result) { return operation.call(client, references(), result); }
    SReferences references() const { return {bean, frame, listener}; }
    // Expects it to fail and to write no result.
    void expectFailure(const SOperation& operation, const SReferences& given, const Strings& errors, const Strings& calls)
    {
        BSTR result = UNTOUCHED;
        EXPECT_EQ(operation.call(client, given, &result), E_FAIL);
        EXPECT_EQ(result, UNTOUCHED);
        EXPECT_LINES(log.takeErrors(), errors);
        EXPECT_LINES(java.takeCalls(), calls);
        EXPECT_FALSE(java.isPending());
    }
    // References that the operation left behind, sorted. `before` are those from before the operation.
    Strings newReferences(const Strings& before) const
    {
        Strings kept;
        const Strings live = java.liveLocals();
        std::set_difference(live.begin(), live.end(), before.begin(), before.end(), std::back_inserter(kept));
        return kept;
    }

    const std::vector<SOperation> all = operations();
    const Strings classes = {"class " + BEAN, "class " + FRAME, "class " + LISTENER};
};

TEST_F(OperationTest, LooksUpConvertsCallsChecksAndReleases)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        forget();
        CComBSTR result;
        EXPECT_EQ(call(operation, &result), S_OK);
        EXPECT_LINES(log.take(), operation.transcript);
        EXPECT_LINES(java.liveLocals(), classes);
        if (hasAnswer(operation)) {
            EXPECT_STREQ(result, CComBSTR(("answer of " + operation.method).c_str()));
        } else {
            EXPECT_EQ(result.m_str, nullptr);
        }
    }
}

TEST_F(OperationTest, LooksItsMethodUpAtEveryCall)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        haveControl();
        CComBSTR result;
        call(operation, &result);
        forget();
        client.m_BeanClass = client.m_FrameClass = client.m_ListenerClass = java.localClass("x/Other");
        call(operation, &result);
        Strings expected = callsOf(operation.transcript);
        for (std::string& line : expected) {
            if (line.starts_with("GetMethodID(")) {
                line.replace(0, line.find(','), "GetMethodID(class x/Other");
            }
        }
        EXPECT_LINES(java.takeCalls(), expected);
    }
}

TEST_F(OperationTest, MissingMethodEndsItWithItsCause)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        const Strings before = java.liveLocals();
        java.missing = {operation.method};
        expectFailure(operation, references(),
                      {"Exception: java.lang.NoSuchMethodError: " + operation.method + "\\n", operation.check + ": false"},
                      callsUpTo(operation, "GetMethodID(", ", " + operation.method + ",") +
                          captureCalls("java.lang.NoSuchMethodError", operation.method));
        EXPECT_LINES(newReferences(before), Strings{"class java.lang.NoSuchMethodError", "class java/lang/Class"});
    }
}

TEST_F(OperationTest, ExceptionEndsItAndKeepsTheReferencesOfTheTexts)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        const Strings before = java.liveLocals();
        java.outcomes = {{operation.method, RecordingJni::throws("java.lang.Error", "said why")}};
        expectFailure(operation, references(), {"Exception: java.lang.Error: said why\\n", "checkNoJNIException(): false"},
                      callsUpTo(operation, "Call", ", " + operation.method) + captureCalls("java.lang.Error", "said why"));
        Strings kept = {"class java.lang.Error", "class java/lang/Class"};
        for (const std::string& line : operation.transcript) {
            if (line.starts_with("NewStringUTF(")) {
                kept.push_back("\"" + line.substr(13, line.size() - 14) + "\"");
            }
        }
        std::sort(kept.begin(), kept.end());
        EXPECT_LINES(newReferences(before), kept);
    }
}

TEST_F(OperationTest, TextThatJavaHasNoMemoryForEndsItBeforeTheCall)
{
    for (const SOperation& operation : all) {
        const Strings calls = callsOf(operation.transcript);
        const auto texts =
            std::count_if(calls.begin(), calls.end(), [](const std::string& call) { return call.starts_with("NewStringUTF("); });
        for (int failing = 1; failing <= texts; failing++) {
            SCOPED_TRACE(operation.transcript.front() + ", text " + std::to_string(failing));
            const Strings before = java.liveLocals();
            java.nullFrom = {{"NewStringUTF", failing}};
            expectFailure(operation, references(),
                          {"Exception: java.lang.OutOfMemoryError: Java heap space\\n", "checkNoJNIException(): false"},
                          callsUpTo(operation, failing == 1 ? "NewStringUTF(first)" : "NewStringUTF(second)") +
                              captureCalls("java.lang.OutOfMemoryError", "Java heap space"));
            Strings kept = {"class java.lang.OutOfMemoryError", "class java/lang/Class"};
            if (failing == 2) {
                kept.insert(kept.begin(), "\"first\"");
            }
            EXPECT_LINES(newReferences(before), kept);
        }
    }
}

TEST_F(OperationTest, WithoutObjectClassOrMachineItFailsAtItsCheckWithoutJni)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        const Strings lookUps = callsUpTo(operation, "GetMethodID(", ", " + operation.method + ",");
        for (jobject SReferences::* const needed : operation.needs) {
            haveControl();
            SReferences given = references();
            given.*needed = nullptr;
            expectFailure(operation, given, {operation.check + ": false"}, Strings(lookUps.begin(), lookUps.end() - 1));
        }
        client.m_BeanClass = client.m_FrameClass = client.m_ListenerClass = nullptr;
        expectFailure(operation, references(), operation.errorsBefore + Strings{operation.check + ": false"}, {});
        haveControl();
        client.m_ENV = nullptr;
        expectFailure(operation, references(), operation.errorsBefore + Strings{operation.check + ": false"}, {});
        client.m_ENV = java.env();
    }
}

TEST_F(OperationTest, NullAnswerIsAnEmptyResult)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        java.outcomes = {{operation.method, RecordingJni::answersNull()}};
        CComBSTR result;
        EXPECT_EQ(call(operation, &result), S_OK);
        EXPECT_EQ(result.m_str != nullptr, hasAnswer(operation));
        EXPECT_EQ(result.Length(), 0u);
        Strings expected = callsOf(operation.transcript);
        std::erase_if(expected, [](const std::string& call) { return call.find("(\"answer") != std::string::npos; });
        std::erase(expected, "DeleteLocalRef(local answer of add)");
        EXPECT_LINES(java.takeCalls(), expected);
        EXPECT_LINES(log.takeErrors(), Strings{});
    }
}

TEST_F(OperationTest, WithoutResultPointerTheCallIsMadeAllTheSame)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript.front());
        EXPECT_EQ(call(operation, nullptr), S_OK);
        Strings expected = callsOf(operation.transcript);
        std::erase_if(expected, [](const std::string& call) { return call.find("StringUTFChars(") != std::string::npos; });
        EXPECT_LINES(java.takeCalls(), expected);
        EXPECT_LINES(log.takeErrors(), hasAnswer(operation) ? Strings{"JNIHelper: result!=NULL: false"} : Strings{});
        EXPECT_LINES(java.liveLocals(), classes);
    }
}

TEST_F(OperationTest, NullTextsReachJavaAsEmptyOnes)
{
    CComBSTR result;
    EXPECT_EQ(client.callMethod(bean, nullptr, nullptr, &result), S_OK);
    EXPECT_EQ(java.takeCalls()[3], "CallObjectMethod(global bean, callMethod, \"\", \"\")");
    EXPECT_EQ(log.take().front(), "FINE -> callMethod ,");
    EXPECT_EQ(client.testBridge(listener, nullptr, 0, 0), S_OK);
    EXPECT_EQ(java.takeCalls()[2], "CallVoidMethod(global listener, testBridge, \"\", 0, 0)");
}

TEST_F(OperationTest, TextsReachJavaAndTheLogInTheAnsiCodePage)
{
    ASSERT_EQ(GetACP(), 1252u) << "the texts of this test are in Windows-1252";
    CComBSTR result;
    EXPECT_EQ(client.callMethodCompressed(bean, CComBSTR(L"\u00E4 \u20AC"), -5, CComBSTR(L""), &result), S_OK);
    EXPECT_EQ(log.take().front(), "FINE -> callMethodCompressed \xE4 \x80, -5,");
    EXPECT_EQ(java.takeCalls()[3], "CallObjectMethod(global bean, callMethodCompressed, \"\xE4 \x80\", -5, \"\")");
    EXPECT_EQ(client.testBridge(listener, L"\u00E4 \u20AC", 3, -7), S_OK);
    EXPECT_EQ(log.take().front(), "FINE -> testBridge \xE4 \x80, 3, -7");
    EXPECT_EQ(java.takeCalls()[2], "CallVoidMethod(global listener, testBridge, \"\xE4 \x80\", 3, -7)");
}

// Java reads whatever is in their place: that depends on the build, but not on the values.
TEST_F(OperationTest, BoundsDoNotReachJava)
{
    EXPECT_EQ(client.setFrameBounds(frame, 1111, -2222, 3333, 4444), S_OK);
    for (const jint value : java.lastBounds) {
        EXPECT_TRUE(value != 1111 && value != -2222 && value != 3333 && value != 4444) << value;
    }
}

TEST_F(OperationTest, BeanThatDoesNotValidateFailsTheOperation)
{
    java.outcomes["global bean: validate"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_LINES(java.takeCalls(),
                 Strings{"GetMethodID(class " + FRAME + ", validate, ()V)", "CallVoidMethod(global frame, validate)",
                         "ExceptionCheck()", "CallVoidMethod(global bean, validate)"} +
                     captureCalls("java.lang.Error", "x"));
    EXPECT_LINES(log.takeErrors(), Strings{"Exception: java.lang.Error: x\\n", "checkNoJNIException(): false"});
}

TEST_F(OperationTest, UsedControlIsSetAlsoWhenTheFrameFails)
{
    CComBSTR result;
    java.missing = {"setFocusableWindowState"};
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STREQ(result, L"answer of setUsedControl");
    const Strings failed = {"methodID!=NULL: false", "setFrameFocusableWindowState(frame, true): failure: -2147467259"};
    EXPECT_LINES(log.takeErrors(), Strings{"Exception: java.lang.NoSuchMethodError: setFocusableWindowState\\n"} + failed);
    java.missing = {};
    java.outcomes["setFocusableWindowState"] = RecordingJni::throws("java.lang.Error", "frame");
    EXPECT_EQ(client.setUsedControl(frame, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_LINES(log.takeErrors(),
                 Strings{"Exception: java.lang.Error: frame\\n", "checkNoJNIException(): false", failed.back()});
    EXPECT_EQ(client.setUsedControl(nullptr, bean, FIRST, SECOND, &result), S_OK);
    EXPECT_STREQ(result, L"answer of setUsedControl");
    EXPECT_LINES(log.takeErrors(), failed);
}

} // namespace
