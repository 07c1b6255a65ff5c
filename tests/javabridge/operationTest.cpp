// The operations that look a Java method up, call it and check for an exception: one table, run through success and each failure.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"

#include <algorithm>
#include <functional>

namespace {

using Client = CJavaManagerJNIClient;

const CComBSTR FIRST(L"first");
const CComBSTR SECOND(L"second");
const std::string FRAME_FAILED = "ERROR setFrameFocusableWindowState(frame, true): failure: -2147467259";
const BSTR UNTOUCHED = reinterpret_cast<BSTR>(-1);

struct SReferences
{
    jobject bean;
    jobject frame;
    jobject listener;
};

struct SOperation
{
    std::string method;     // of Java
    std::string check;      // of the look-up
    std::string transcript; // of a success
    std::vector<jobject SReferences::*> needs;
    std::function<HRESULT(Client&, const SReferences&, BSTR*)> call;
    Strings errorsBefore = {}; // where there is neither class nor machine
};

template <class Call, class... Arguments>
SOperation beanOperation(const std::string& method, const std::string& check, Call call, Arguments... arguments)
{
    const std::string parameters = (std::string() + ... + (std::is_same_v<Arguments, int> ? "I" : "S"));
    return {method,
            check,
            forwardedTranscript("bean", BEAN, method, parameters, check),
            {&SReferences::bean},
            [=](Client& client, const SReferences& references, BSTR* result) {
                return (client.*call)(references.bean, arguments..., result);
            }};
}

SOperation setterOperation(const std::string& operation, const std::string& method, bool value,
                           HRESULT (Client::*call)(jobject, bool))
{
    return {method,
            "methodID!=NULL",
            setterTranscript("global frame", operation, method, value),
            {&SReferences::frame},
            [=](Client& client, const SReferences& references, BSTR*) { return (client.*call)(references.frame, value); }};
}

std::vector<SOperation> operations()
{
    const BSTR first = FIRST;
    const BSTR second = SECOND;
    std::vector<SOperation> all = {
        beanOperation("callMethod", "callMethodID != NULL", &Client::callMethod, first, second),
        beanOperation("callMethodCompressed", "callMethodID != NULL", &Client::callMethodCompressed, first, 42, second),
        beanOperation("displayDebugConsole", "displayConsoleID != NULL", &Client::displayDebugConsole),
        beanOperation("free", "freeID != NULL", &Client::free),
        beanOperation("getBasisControlVersionInfo", "getBasisControlVersionInfoID != NULL", &Client::getBasisControlVersionInfo),
        beanOperation("getProperty", "getPropertyID != NULL", &Client::getProperty, first),
        beanOperation("getVersionInfo", "getVersionInfoID != NULL", &Client::getVersionInfo, first),
        beanOperation("setLogLevel", "setLogLevelID != NULL", &Client::setLogLevel, 42),
        beanOperation("setProperty", "setPropertyID != NULL", &Client::setProperty, first, second),
        beanOperation("updateVersion", "updateVersionID != NULL", &Client::updateVersion, first),
        {"testBridge",
         "debugTextMethodID != NULL",
         forwardedTranscript("listener", LISTENER, "testBridge", "SII", "debugTextMethodID != NULL", false),
         {&SReferences::listener},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.testBridge(references.listener, L"first", 42, 42);
         }},
        {"add",
         "addID!=NULL",
         R"(
             FINE -> addBean
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, add, (Ljava/awt/Component;)Ljava/awt/Component;)
             TRACE addID!=NULL: true
             CallObjectMethod(global frame, add, global bean)
             {checked}
             DeleteLocalRef(local answer of add)
             INFO Successfully added Bean to KESTAFrame!)",
         {&SReferences::frame},
         [](Client& client, const SReferences& references, BSTR*) { return client.addBean(references.frame, references.bean); }},
        {"setBounds",
         "setBoundsID!=NULL",
         R"(
             FINE -> setFrameBounds 1111, -2222, 3333, 4444
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, setBounds, (IIII)V)
             TRACE setBoundsID!=NULL: true
             CallVoidMethod(global frame, setBounds, ...)
             {checked})",
         {&SReferences::frame},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.setFrameBounds(references.frame, 1111, -2222, 3333, 4444);
         }},
        {"validate",
         "validateID!=NULL",
         R"(
             FINE -> validateFrameAndBean
             GetMethodID(class com/velmora/tq/kesta/KESTAFrame, validate, ()V)
             TRACE validateID!=NULL: true
             CallVoidMethod(global frame, validate)
             {checked}
             CallVoidMethod(global bean, validate)
             {checked})",
         {&SReferences::frame, &SReferences::bean},
         [](Client& client, const SReferences& references, BSTR*) {
             return client.validateFrameAndBean(references.frame, references.bean);
         }},
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
    const std::string check = "setUsedControlID != NULL";
    std::string setUsedControl = forwardedTranscript("bean", BEAN, "setUsedControl", "SS", check);
    setUsedControl.insert(setUsedControl.find('\n') + 1,
                          setterTranscript("global frame", "setFrameFocusableWindowState", "setFocusableWindowState", true) +
                              "TRACE setFrameFocusableWindowState(frame, true): success: 0\n");
    all.push_back({"setUsedControl",
                   check,
                   setUsedControl,
                   {&SReferences::bean},
                   [](Client& client, const SReferences& references, BSTR* result) {
                       return client.setUsedControl(references.frame, references.bean, FIRST, SECOND, result);
                   },
                   {"ERROR methodID!=NULL: false", FRAME_FAILED}});
    return all;
}

// The JNI calls up to the first that begins with one text and contains the other, which is the last.
Strings callsUpTo(const SOperation& operation, const std::string& start, const std::string& part = "")
{
    Strings calls = callsOf(linesOf(operation.transcript));
    const auto last = std::find_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.starts_with(start) && call.find(part) != std::string::npos;
    });
    EXPECT_NE(last, calls.end());
    calls.erase(last == calls.end() ? last : last + 1, calls.end());
    return calls;
}

bool hasAnswer(const SOperation& operation)
{
    return operation.transcript.find("(\"answer of ") != std::string::npos;
}

class OperationTest : public BridgeTest
{
protected:
    OperationTest() { haveControl(); }

    HRESULT call(const SOperation& operation, BSTR* result) { return operation.call(client, references(), result); }
    SReferences references() const { return {bean, frame, listener}; }
    // Expects it to fail at a check, after these calls and errors, and to write no result.
    void expectFailure(const SOperation& operation, const SReferences& given, const Strings& before, const std::string& check)
    {
        BSTR result = UNTOUCHED;
        EXPECT_EQ(operation.call(client, given, &result), E_FAIL);
        EXPECT_EQ(result, UNTOUCHED);
        EXPECT_LINES(callsOf(log.take()), before + Strings{"ERROR " + check + ": false"});
    }
    // Expects it to fail in Java, and these references to stay besides those of the exception.
    void expectFailure(const SOperation& operation, const SFailure& failure, const Strings& calls, const std::string& check,
                       const std::string& exceptionClass, const Strings& texts = {})
    {
        const Strings before = java.liveLocals();
        arrange(failure);
        expectFailure(operation, references(), calls + failure.captured, check);
        Strings kept;
        std::ranges::set_difference(java.liveLocals(), before, std::back_inserter(kept));
        EXPECT_LINES(kept, texts + Strings{"class " + exceptionClass, "class java/lang/Class"});
    }

    const std::vector<SOperation> all = operations();
};

TEST_F(OperationTest, LooksUpConvertsCallsChecksAndReleasesAtEveryCall)
{
    for (const bool hasOtherClasses : {false, true}) {
        for (const SOperation& operation : all) {
            SCOPED_TRACE(operation.transcript);
            Strings expected = linesOf(operation.transcript);
            for (std::string& line : expected) {
                if (hasOtherClasses && line.starts_with("GetMethodID(")) {
                    line.replace(0, line.find(','), "GetMethodID(global other");
                }
            }
            forget();
            CComBSTR result;
            EXPECT_EQ(call(operation, &result), S_OK);
            EXPECT_LINES(log.take(), expected);
            EXPECT_LINES(java.liveLocals(), CLASSES);
            EXPECT_STREQ(result, hasAnswer(operation) ? CComBSTR(("answer of " + operation.method).c_str()).m_str : nullptr);
        }
        client.m_BeanClass = client.m_FrameClass = client.m_ListenerClass = static_cast<jclass>(java.global("other"));
    }
}

TEST_F(OperationTest, MissingMethodEndsItWithItsCause)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript);
        expectFailure(operation, SFailure::missingMethod(operation.method),
                      callsUpTo(operation, "GetMethodID(", ", " + operation.method + ","), operation.check,
                      "java.lang.NoSuchMethodError");
    }
}

TEST_F(OperationTest, ExceptionEndsItAndKeepsTheReferencesOfTheTexts)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript);
        Strings texts;
        for (const std::string text : {"first", "second"}) {
            if (operation.transcript.find("NewStringUTF(" + text) != std::string::npos) {
                texts.push_back("\"" + text + "\"");
            }
        }
        expectFailure(operation, SFailure::throwing(operation.method), callsUpTo(operation, "Call", ", " + operation.method),
                      "checkNoJNIException()", "java.lang.Error", texts);
    }
}

TEST_F(OperationTest, TextThatJavaHasNoMemoryForEndsItBeforeTheCall)
{
    for (const SOperation& operation : all) {
        for (int failing = 1; failing <= 2; failing++) {
            const std::string conversion = failing == 1 ? "NewStringUTF(first)" : "NewStringUTF(second)";
            if (operation.transcript.find(conversion) != std::string::npos) {
                SCOPED_TRACE(operation.transcript + conversion);
                expectFailure(operation, SFailure::noText(failing), callsUpTo(operation, conversion), "checkNoJNIException()",
                              "java.lang.OutOfMemoryError", failing == 2 ? Strings{"\"first\""} : Strings{});
            }
        }
    }
}

TEST_F(OperationTest, WithoutObjectClassOrMachineItFailsAtItsCheckWithoutJni)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript);
        const Strings lookUps = callsUpTo(operation, "GetMethodID(", ", " + operation.method + ",");
        for (jobject SReferences::* const needed : operation.needs) {
            haveControl();
            SReferences given = references();
            given.*needed = nullptr;
            expectFailure(operation, given, Strings(lookUps.begin(), lookUps.end() - 1), operation.check);
        }
        client.m_BeanClass = client.m_FrameClass = client.m_ListenerClass = nullptr;
        expectFailure(operation, references(), operation.errorsBefore, operation.check);
        haveControl();
        client.m_ENV = nullptr;
        expectFailure(operation, references(), operation.errorsBefore, operation.check);
        client.m_ENV = java.env();
    }
}

TEST_F(OperationTest, NullAnswerIsAnEmptyResult)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript);
        java.outcomes = {{operation.method, RecordingJni::answersNull()}};
        CComBSTR result;
        EXPECT_EQ(call(operation, &result), S_OK);
        EXPECT_EQ(result.m_str != nullptr, hasAnswer(operation));
        EXPECT_EQ(result.Length(), 0u);
        Strings expected = callsOf(linesOf(operation.transcript));
        std::erase_if(expected, [](const std::string& call) { return call.find("(\"answer") != std::string::npos; });
        std::erase(expected, "DeleteLocalRef(local answer of add)");
        EXPECT_LINES(callsOf(log.take()), expected);
    }
}

TEST_F(OperationTest, WithoutResultPointerTheCallIsMadeAllTheSame)
{
    for (const SOperation& operation : all) {
        SCOPED_TRACE(operation.transcript);
        EXPECT_EQ(call(operation, nullptr), S_OK);
        Strings expected = callsOf(linesOf(operation.transcript));
        if (std::erase_if(expected, [](const std::string& call) { return call.find("StringUTFChars(") != std::string::npos; })) {
            expected.insert(expected.end() - 1, "ERROR JNIHelper: result!=NULL: false");
        }
        EXPECT_LINES(callsOf(log.take()), expected);
        EXPECT_LINES(java.liveLocals(), CLASSES);
    }
}

TEST_F(OperationTest, TextsReachJavaAndTheLogInTheAnsiCodePageAndNullTextsAsEmptyOnes)
{
    ASSERT_EQ(GetACP(), 1252u) << "the texts of this test are in Windows-1252";
    CComBSTR result;
    EXPECT_EQ(client.callMethodCompressed(bean, CComBSTR(L"\u00E4 \u20AC"), -5, nullptr, &result), S_OK);
    EXPECT_EQ(log.take().front(), "FINE -> callMethodCompressed \xE4 \x80, -5,");
    EXPECT_EQ(java.takeCalls()[3], "CallObjectMethod(global bean, callMethodCompressed, \"\xE4 \x80\", -5, \"\")");
    EXPECT_EQ(client.testBridge(listener, L"\u00E4 \u20AC", 3, -7), S_OK);
    EXPECT_EQ(log.take().front(), "FINE -> testBridge \xE4 \x80, 3, -7");
    EXPECT_EQ(java.takeCalls()[2], "CallVoidMethod(global listener, testBridge, \"\xE4 \x80\", 3, -7)");
    EXPECT_EQ(client.testBridge(listener, nullptr, 0, 0), S_OK);
    EXPECT_EQ(java.takeCalls()[2], "CallVoidMethod(global listener, testBridge, \"\", 0, 0)");
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
    arrange(SFailure::throwing("global bean: validate"));
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_LINES(callsOf(log.take()),
                 Strings{"GetMethodID(class " + FRAME + ", validate, ()V)", "CallVoidMethod(global frame, validate)",
                         "ExceptionCheck()", "CallVoidMethod(global bean, validate)"} +
                     capture("java.lang.Error", "said why") + Strings{"ERROR checkNoJNIException(): false"});
}

TEST_F(OperationTest, UsedControlIsSetAlsoWhenTheFrameFails)
{
    const std::string setter = "setFocusableWindowState";
    for (const auto& [failure, given, errors] :
         {std::tuple{SFailure::missingMethod(setter), frame,
                     Strings{"Exception: java.lang.NoSuchMethodError: " + setter + "\\n", "methodID!=NULL: false"}},
          {SFailure::throwing(setter), frame, {"Exception: java.lang.Error: said why\\n", "checkNoJNIException(): false"}},
          {SFailure(), nullptr, {"methodID!=NULL: false"}}}) {
        arrange(failure);
        CComBSTR result;
        EXPECT_EQ(client.setUsedControl(given, bean, FIRST, SECOND, &result), S_OK);
        EXPECT_STREQ(result, L"answer of setUsedControl");
        EXPECT_LINES(log.takeErrors(), errors + Strings{FRAME_FAILED.substr(6)});
    }
}

} // namespace
