// Creation and release of frame, bean and listener, and what is left behind when a step fails.
#include "tests/javabridge/BridgeFixture.h"
#include "tests/support/FailingAllocations.h"

#include "atl/atl.h"

#include <algorithm>
#include <climits>
#include <functional>

namespace {

const std::string FRAME_NAME = "\"kesta_frame_" + std::to_string(GetCurrentProcessId()) + "\"";

// The transcripts of creating the frame and the listener.
const std::string START = R"(
    FINE -> startBean a.b, Bean
    TRACE beanObject!=NULL: true
    TRACE frameObject!=NULL: true
    TRACE frameID!=NULL: true
    TRACE bean_package!=NULL: true
    TRACE bean_class!=NULL: true
    FindClass(a/b/Bean)
    TRACE m_BeanClass!=NULL: true
    GetMethodID(class a/b/Bean, <init>, ()V)
    TRACE constructID!=NULL: true
    NewObject(class a/b/Bean, <init>)
    {checked}
    TRACE localReference != NULL: true
    NewGlobalRef(local a/b/Bean)
    DeleteLocalRef(local a/b/Bean)
    FindClass(com/velmora/tq/kesta/KESTAFrame)
    GetMethodID(class com/velmora/tq/kesta/KESTAFrame, <init>, (Ljava/lang/String;)V)
    FINE -> createUniqueID
    INFO Unique Window ID was not initialized yet (-1)
    INFO Unique Window ID={pid}
    FINE -> helpers: buildIdentifierString kesta_frame_, {pid}
    NewStringUTF(kesta_frame_{pid})
    NewObject(class com/velmora/tq/kesta/KESTAFrame, <init>, "kesta_frame_{pid}")
    TRACE localReference!=NULL: true
    NewGlobalRef(local com/velmora/tq/kesta/KESTAFrame)
    DeleteLocalRef(local com/velmora/tq/kesta/KESTAFrame)
)";
const std::string REGISTRATION = R"(
    FINE -> regEventListener
    TRACE listener!=NULL: true
    FindClass(com/velmora/tq/kesta/KESTAListener)
    GetMethodID(class com/velmora/tq/kesta/KESTAListener, <init>, ()V)
    NewObject(class com/velmora/tq/kesta/KESTAListener, <init>)
    TRACE localReference!=NULL: true
    NewGlobalRef(local com/velmora/tq/kesta/KESTAListener)
)";

// A step that fails: the number of JNI calls before it, what is done between the capture of an exception and the check, and the
// check.
struct SFailedStep
{
    SFailure failure;
    int calls;
    std::string check;
    Strings callsBehind = {};
};

class ControlTest : public BridgeTest
{
protected:
    HRESULT startBean() { return client.startBean(&newBean, &newFrame, &frameID, "a.b", "Bean"); }
    HRESULT regEventListener() { return client.regEventListener(&newListener, frame, bean); }
    // Expects the operation to fail at that step.
    void expectFailure(const SFailedStep& step, const Strings& calls, const std::function<HRESULT()>& operation)
    {
        SCOPED_TRACE(step.calls);
        arrange(step.failure);
        EXPECT_EQ(operation(), E_FAIL);
        EXPECT_LINES(callsOf(log.take()), Strings(calls.begin(), calls.begin() + step.calls) + step.failure.captured +
                                              step.callsBehind + Strings{"ERROR " + step.check + ": false"});
    }

    const int pid = static_cast<int>(GetCurrentProcessId());
    jobject newBean = nullptr;
    jobject newFrame = nullptr;
    jobject newListener = nullptr;
    int frameID = -5;
};

TEST_F(ControlTest, StartBeanCreatesBeanThenFrame)
{
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_LINES(log.take(),
                 START + setterTranscript("global " + FRAME, "setFrameFocusableWindowState", "setFocusableWindowState", false) +
                     "TRACE setFrameFocusableWindowState(*frameObject, false): success: 0\n" +
                     setterTranscript("global " + FRAME, "setFrameAlwaysOnTop", "setAlwaysOnTop", false) +
                     "TRACE setFrameAlwaysOnTop(*frameObject, false): success: 0\n" +
                     setterTranscript("global " + FRAME, "setFrameUndecorated", "setUndecorated", true) + R"(
        TRACE setFrameUndecorated(*frameObject, true): success: 0
        TRACE CHECKPOINT: Successfully started bean.
    )");
    EXPECT_EQ(frameID, pid);
    EXPECT_LINES(java.liveLocals(), Strings{FRAME_NAME, "class a/b/Bean", "class " + FRAME});
    EXPECT_LINES(java.liveGlobals(),
                 Strings{"global a/b/Bean", "global bean", "global " + FRAME, "global frame", "global listener"});
}

TEST_F(ControlTest, StartBeanChecksItsArgumentsInOrder)
{
    EXPECT_EQ(client.startBean(nullptr, nullptr, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(client.startBean(&newBean, nullptr, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(client.startBean(&newBean, &newFrame, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(client.startBean(&newBean, &newFrame, &frameID, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(client.startBean(&newBean, &newFrame, &frameID, "", nullptr), E_FAIL);
    EXPECT_LINES(callsOf(log.take()), R"(
        ERROR beanObject!=NULL: false
        ERROR frameObject!=NULL: false
        ERROR frameID!=NULL: false
        ERROR bean_package!=NULL: false
        ERROR bean_class!=NULL: false
    )");
}

TEST_F(ControlTest, ClassNameJoinsPackageAndClassWithSlashes)
{
    for (const auto& [package, name, expected] : {std::tuple{"com.example.ui", "MyControl", "com/example/ui/MyControl"},
                                                  {"", "x.y.Z", "x/y/Z"},
                                                  {"", "Z", "Z"},
                                                  {"a.b", "C.D", "a/b/C/D"}}) {
        client.startBean(&newBean, &newFrame, &frameID, package, name);
        EXPECT_EQ(java.takeCalls().front(), std::string("FindClass(") + expected + ")");
    }
}

TEST_F(ControlTest, StartBeanThatFailsLeavesWhatItHas)
{
    const std::string noFrame = "localReference!=NULL";
    const Strings nameCall = {"NewStringUTF(kesta_frame_" + std::to_string(pid) + ")"};
    for (const SFailedStep& step : std::initializer_list<SFailedStep>{
             {SFailure::missingClass(BEAN), 1, "m_BeanClass!=NULL"},
             {SFailure::missingMethod(BEAN + ".<init>"), 2, "constructID!=NULL"},
             {SFailure::throwing(BEAN + ".<init>"), 3, "checkNoJNIException()"},
             {SFailure::noObject(1), 4, "localReference != NULL"},
             {SFailure::missingClass(FRAME), 7, noFrame, nameCall},
             {SFailure::missingMethod(FRAME + ".<init>"), 8, noFrame, nameCall},
             {SFailure::noText(1), 9, noFrame},
             {SFailure::throwing(FRAME + ".<init>"), 10, noFrame},
             {SFailure::noObject(2), 10, noFrame, {"ExceptionCheck()"}},
         }) {
        newBean = nullptr;
        frameID = -5;
        client.m_UniqueWindowID = -1;
        const auto names = std::ranges::count(java.liveLocals(), FRAME_NAME);
        expectFailure(step, callsOf(linesOf(START)), [&] { return startBean(); });
        const bool hasBean = step.calls > 4;
        EXPECT_EQ(newBean != nullptr, hasBean);
        EXPECT_EQ(newFrame, nullptr);
        EXPECT_EQ(frameID, hasBean ? pid : -5);
        EXPECT_EQ(std::ranges::count(java.liveLocals(), FRAME_NAME) - names, hasBean && step.calls != 9 ? 1 : 0);
        EXPECT_EQ(client.stopBean(newBean, newFrame, nullptr), S_OK);
        EXPECT_LINES(log.takeErrors(), Strings{});
        EXPECT_LINES(java.liveGlobals(), Strings{"global bean", "global frame", "global listener"});
    }
}

TEST_F(ControlTest, FailedSettersOfTheFrameAreLoggedOnly)
{
    java.missing = {"setFocusableWindowState", "setUndecorated"};
    java.outcomes["setAlwaysOnTop"] = RecordingJni::throws("java.lang.SecurityException", "no");
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_LINES(log.takeErrors(), R"(
        Exception: java.lang.NoSuchMethodError: setFocusableWindowState\n
        methodID!=NULL: false
        setFrameFocusableWindowState(*frameObject, false): failure: -2147467259
        Exception: java.lang.SecurityException: no\n
        checkNoJNIException(): false
        setFrameAlwaysOnTop(*frameObject, false): failure: -2147467259
        Exception: java.lang.NoSuchMethodError: setUndecorated\n
        methodID!=NULL: false
        setFrameUndecorated(*frameObject, true): failure: -2147467259
    )");
}

TEST_F(ControlTest, ExhaustedMemoryFailsStartBeanAndIsLogged)
{
    const std::string name(FailingAllocations::LARGE, 'x');
    log.take();
    {
        const FailingAllocations failing(FailingAllocations::Kind::Large);
        EXPECT_EQ(client.startBean(&newBean, &newFrame, &frameID, "", name.c_str()), E_FAIL);
    }
    EXPECT_LINES(log.takeErrors(), "The bean was not started: out of memory");
    EXPECT_LINES(java.takeCalls(), Strings{});
}

TEST_F(ControlTest, FramesAreNumberedFromTheProcessIdToTheWrapAndBack)
{
    for (const auto& [former, next] :
         {std::pair{-1, pid}, {pid, pid + 1}, {INT_MAX - 1, INT_MAX}, {INT_MAX, 0}, {0, pid}, {1, 2}, {-7, pid}}) {
        client.m_UniqueWindowID = former;
        EXPECT_EQ(startBean(), S_OK);
        EXPECT_EQ(frameID, next);
        EXPECT_EQ(client.m_UniqueWindowID, next);
        const std::string was = former < 0 ? "not initialized yet (-1)" : std::to_string(former);
        EXPECT_LINES(log.take("INFO"), Strings{"Unique Window ID was " + was, "Unique Window ID=" + std::to_string(next)});
    }
}

TEST_F(ControlTest, RegEventListenerBindsTheNativesBeforeTheBeanHearsOfTheListener)
{
    haveControl();
    EXPECT_EQ(client.regEventListener(&newListener, nullptr, bean), S_OK) << "the frame is not used";
    EXPECT_LINES(log.take(), REGISTRATION + R"(
        FINE -> registerNative testBridgeEvent, (Ljava/lang/String;I)V
        RegisterNatives(class com/velmora/tq/kesta/KESTAListener, testBridgeEvent (Ljava/lang/String;I)V testBridgeEvent)
        {checked}
        FINE -> registerNative OnControlReady, (Ljava/lang/String;)V
        RegisterNatives(class com/velmora/tq/kesta/KESTAListener, OnControlReady (Ljava/lang/String;)V onControlReady)
        {checked}
        FINE -> registerNative OnCustomEvent, (Ljava/lang/String;)V
        RegisterNatives(class com/velmora/tq/kesta/KESTAListener, OnCustomEvent (Ljava/lang/String;)V onCustomEvent)
        {checked}
        GetMethodID(class a/b/Bean, addORVANEControlListener, (Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;)V)
        TRACE addORVListenerID!=NULL: true
        TRACE call addORVANEControlListener method
        CallVoidMethod(global bean, addORVANEControlListener, global com/velmora/tq/kesta/KESTAListener)
        {checked}
        DeleteLocalRef(local com/velmora/tq/kesta/KESTAListener)
        TRACE CHECKPOINT: Successfully registered event listener.
    )");
    EXPECT_LINES(java.liveGlobals(), Strings{"global bean", "global " + LISTENER, "global frame", "global listener"});
}

TEST_F(ControlTest, ListenerThatIsNotCreatedEndsItsRegistration)
{
    const std::string noListener = "localReference!=NULL";
    haveControl();
    for (const SFailedStep& step : std::initializer_list<SFailedStep>{
             {SFailure::missingClass(LISTENER), 1, noListener},
             {SFailure::missingMethod(LISTENER + ".<init>"), 2, noListener},
             {SFailure::throwing(LISTENER + ".<init>"), 3, noListener},
             {SFailure::noObject(1), 3, noListener, {"ExceptionCheck()"}},
         }) {
        expectFailure(step, callsOf(linesOf(REGISTRATION)), [&] { return regEventListener(); });
        EXPECT_EQ(newListener, nullptr);
    }
    expectFailure({{}, 0, "listener!=NULL"}, {}, [&] { return client.regEventListener(nullptr, frame, bean); });
}

// The global reference is what stopBean deletes; the local one stays.
TEST_F(ControlTest, BeanThatDoesNotTakeTheListenerLeavesBothReferences)
{
    haveControl();
    regEventListener();
    const Strings calls = java.takeCalls();
    const std::string setter = "addORVANEControlListener";
    for (const SFailedStep& step : std::initializer_list<SFailedStep>{
             {SFailure::missingMethod(setter), 11, "addORVListenerID!=NULL"},
             {SFailure::throwing(setter), 12, "checkNoJNIException()"},
         }) {
        haveControl();
        const auto locals = std::ranges::count(java.liveLocals(), "local " + LISTENER);
        expectFailure(step, calls, [&] { return regEventListener(); });
        EXPECT_EQ(std::ranges::count(java.liveLocals(), "local " + LISTENER), locals + 1);
        EXPECT_EQ(client.stopBean(nullptr, nullptr, newListener), S_OK);
        EXPECT_LINES(callsOf(log.take()), Strings{"DeleteGlobalRef(global " + LISTENER + ")"});
    }
    expectFailure({{}, 10, "addORVListenerID!=NULL"}, calls,
                  [&] { return client.regEventListener(&newListener, frame, nullptr); });
}

TEST_F(ControlTest, NativesAreAllRegisteredWhateverBecomesOfTheOthers)
{
    haveControl();
    java.missing = {"testBridgeEvent", "OnControlReady", "OnCustomEvent"};
    EXPECT_EQ(regEventListener(), S_OK);
    EXPECT_LINES(log.takeErrors(), R"(
        Exception: java.lang.NoSuchMethodError: testBridgeEvent\n
        checkNoJNIException(): false
        Exception: java.lang.NoSuchMethodError: OnControlReady\n
        checkNoJNIException(): false
        Exception: java.lang.NoSuchMethodError: OnCustomEvent\n
        checkNoJNIException(): false
    )");
}

TEST_F(ControlTest, RegisterNativeFailsOnAnExceptionOnly)
{
    haveControl();
    java.registerResult = JNI_ERR;
    EXPECT_EQ(client.registerNative(client.m_ListenerClass, "name", "(I)V", nullptr), S_OK);
    java.missing = {"name"};
    EXPECT_EQ(client.registerNative(client.m_ListenerClass, "name", "(I)V", nullptr), E_FAIL);
}

TEST_F(ControlTest, ClassesOfAnEarlierControlAreReplacedAndNotDeleted)
{
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_EQ(client.regEventListener(&newListener, newFrame, newBean), S_OK);
    const jclass classes[] = {client.m_BeanClass, client.m_FrameClass, client.m_ListenerClass};
    EXPECT_EQ(client.stopBean(newBean, newFrame, newListener), S_OK);
    EXPECT_TRUE(client.m_BeanClass == classes[0] && client.m_FrameClass == classes[1] && client.m_ListenerClass == classes[2]);
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_EQ(client.regEventListener(&newListener, newFrame, newBean), S_OK);
    EXPECT_LINES(java.liveLocals(),
                 Strings{FRAME_NAME, "\"kesta_frame_" + std::to_string(pid + 1) + "\"", "class a/b/Bean", "class a/b/Bean",
                         "class " + FRAME, "class " + FRAME, "class " + LISTENER, "class " + LISTENER});
}

TEST_F(ControlTest, WithoutMachineNothingIsStarted)
{
    haveNoMachine();
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_EQ(regEventListener(), E_FAIL);
    EXPECT_LINES(callsOf(log.take()), Strings{"ERROR m_BeanClass!=NULL: false", "ERROR localReference!=NULL: false"});
}

} // namespace
