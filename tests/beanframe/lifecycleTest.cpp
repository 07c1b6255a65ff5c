// Creation and end of the bean frame.
#include "tests/beanframe/BeanFrameWorld.h"

#include "javabridge/ListenerNatives.h"
#include "tests/beanframe/FailingFrameMemory.h"

#include <gmock/gmock.h>

#include <climits>

using testing::ElementsAre;
using testing::IsEmpty;

class BeanFrameLifecycleTest : public BeanFrameWorld
{
protected:
    static void create() { CBeanFrame::createInstance("C:\\controls\\basis.jar", "com.maker.win", "Control"); }
};

TEST_F(BeanFrameLifecycleTest, CreationLogsItsArgumentsAndTheFrameIdOnceItIsThere)
{
    java.emplace();
    create();
    EXPECT_THAT(lines(), ElementsAre("INFO -> createInstance C:\\controls\\basis.jar,com.maker.win,Control",
                                     "INFO -> CBeanFrame -1 CBeanFrame C:\\controls\\basis.jar,com.maker.win,Control",
                                     "TRACE " + object() + "CHECKPOINT: Successfully created BeanFrame.",
                                     "INFO <- CBeanFrame -1 CBeanFrame C:\\controls\\basis.jar,com.maker.win,Control",
                                     "INFO <- createInstance C:\\controls\\basis.jar,com.maker.win,Control"));
}

TEST_F(BeanFrameLifecycleTest, CreationStartsTheBeanAndThenRegistersTheListener)
{
    java.emplace();
    java->jni.nameFunction(reinterpret_cast<void*>(CBeanFrame::NativeTestBridgeEvent), "NativeTestBridgeEvent");
    java->jni.nameFunction(reinterpret_cast<void*>(CBeanFrame::NativeOnControlReady), "NativeOnControlReady");
    java->jni.nameFunction(reinterpret_cast<void*>(CBeanFrame::NativeOnCustomEvent), "NativeOnCustomEvent");
    create();

    std::vector<std::string> steps;
    for (const std::string& call : java->jni.takeCalls()) {
        if (call.starts_with("NewObject(") || call.starts_with("NewGlobalRef(") || call.starts_with("RegisterNatives(") ||
            call.starts_with("Call")) {
            steps.push_back(call);
        }
    }
    const std::string bean = "com/maker/win/Control";
    const std::string frameClass = "com/velmora/tq/kesta/KESTAFrame";
    const std::string listenerClass = "com/velmora/tq/kesta/KESTAListener";
    EXPECT_THAT(
        steps,
        ElementsAre("NewObject(class " + bean + ", <init>)", "NewGlobalRef(local " + bean + ")",
                    "NewObject(class " + frameClass + ", <init>, \"kesta_frame_" + std::to_string(GetCurrentProcessId()) + "\")",
                    "NewGlobalRef(local " + frameClass + ")",
                    "CallVoidMethod(global " + frameClass + ", setFocusableWindowState, false)",
                    "CallVoidMethod(global " + frameClass + ", setAlwaysOnTop, false)",
                    "CallVoidMethod(global " + frameClass + ", setUndecorated, true)",
                    "NewObject(class " + listenerClass + ", <init>)", "NewGlobalRef(local " + listenerClass + ")",
                    "RegisterNatives(class " + listenerClass + ", testBridgeEvent (Ljava/lang/String;I)V NativeTestBridgeEvent)",
                    "RegisterNatives(class " + listenerClass + ", OnControlReady (Ljava/lang/String;)V NativeOnControlReady)",
                    "RegisterNatives(class " + listenerClass + ", OnCustomEvent (Ljava/lang/String;)V NativeOnCustomEvent)",
                    "CallVoidMethod(global " + bean + ", addORVANEControlListener, global " + listenerClass + ")"));
    EXPECT_EQ(frame().frameID, static_cast<int>(GetCurrentProcessId()));
    EXPECT_EQ(FrameAccess::s_MainThreadId, GetCurrentThreadId());
    EXPECT_EQ(frame().*&FrameAccess::clientWindow, nullptr);
    EXPECT_FALSE(frame().*&FrameAccess::eventsSuspended);
}

TEST_F(BeanFrameLifecycleTest, SecondCreationOnlyWarns)
{
    createFrame();
    CBeanFrame* const first = CBeanFrame::s_Instance;
    CBeanFrame::createInstance("other.jar", "p", "B");
    EXPECT_EQ(CBeanFrame::s_Instance, first);
    EXPECT_THAT(lines(), ElementsAre("INFO -> createInstance other.jar,p,B", "WARN double creation of BeanFrameInstance",
                                     "INFO <- createInstance other.jar,p,B"));
    EXPECT_THAT(java->jni.takeCalls(), IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, CreationWithoutRuntimeKeepsTheFrameWithoutReferences)
{
    create();
    ASSERT_NE(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(frame().frameID, -1);
    EXPECT_EQ(frame().*&FrameAccess::beanObject, nullptr);
    EXPECT_EQ(frame().*&FrameAccess::frameObject, nullptr);
    EXPECT_EQ(frame().*&FrameAccess::listener, nullptr);
    EXPECT_THAT(linesWith(lines(), "CHECKPOINT"), IsEmpty());

    stream.clear();
    EXPECT_EQ(frame().validate(), E_FAIL);
    EXPECT_THAT(lines(), ElementsAre("INFO -> CBeanFrame -1 validate ", "INFO -> CBeanFrame -1 validate ",
                                     "INFO <- CBeanFrame -1 validate "))
        << "the scope once more in the error backtrace";
}

// Each of the three references and the frame id counts.
TEST_F(BeanFrameLifecycleTest, CheckpointOnlyWhenEverythingIsThere)
{
    for (const char* missing :
         {"com/maker/win/Control", "com/velmora/tq/kesta/KESTAFrame", "com/velmora/tq/kesta/KESTAListener"}) {
        SCOPED_TRACE(missing);
        java.emplace();
        java->jni.missing.insert(missing);
        stream.clear();
        create();
        EXPECT_THAT(linesWith(lines(), "CHECKPOINT"), IsEmpty());
        CBeanFrame::deleteInstance();
    }
}

// One reference alone is refused, the others are there.
TEST_F(BeanFrameLifecycleTest, CheckpointOnlyWithAllThreeReferences)
{
    for (int refused = 0; refused < 3; ++refused) {
        SCOPED_TRACE(refused);
        java.emplace();
        java->globalsUntilRefusal = refused;
        stream.clear();
        create();
        EXPECT_EQ(frame().*&FrameAccess::beanObject == nullptr, refused == 0);
        EXPECT_EQ(frame().*&FrameAccess::frameObject == nullptr, refused == 1);
        EXPECT_EQ(frame().*&FrameAccess::listener == nullptr, refused == 2);
        EXPECT_THAT(linesWith(lines(), "CHECKPOINT"), IsEmpty());
        CBeanFrame::deleteInstance();
    }
}

TEST_F(BeanFrameLifecycleTest, CheckpointOnlyWithAFrameIdThatIsNotZero)
{
    java.emplace();
    java->setLastFrameId(INT_MAX); // zero follows
    create();
    EXPECT_EQ(frame().frameID, 0);
    EXPECT_NE(frame().*&FrameAccess::listener, nullptr);
    EXPECT_THAT(linesWith(lines(), "CHECKPOINT"), IsEmpty());
    EXPECT_EQ(frame().getLogObjectInfo(), "0");
}

TEST_F(BeanFrameLifecycleTest, FrameIdIsLoggedSignedAndInDecimal)
{
    createFrame();
    for (const int id : {INT_MIN, -1, 0, 9, INT_MAX}) {
        frame().frameID = id;
        EXPECT_EQ(frame().getLogObjectInfo(), std::to_string(id));
    }
}

TEST_F(BeanFrameLifecycleTest, CreationWithoutMemoryLeavesNoInstance)
{
    java.emplace();
    {
        const FailingFrameMemory memory;
        create();
    }
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(lines(), ElementsAre("INFO -> createInstance C:\\controls\\basis.jar,com.maker.win,Control",
                                     "INFO <- createInstance C:\\controls\\basis.jar,com.maker.win,Control"));
    EXPECT_THAT(java->jni.takeCalls(), IsEmpty());
    create();
    EXPECT_NE(CBeanFrame::s_Instance, nullptr);
}

TEST_F(BeanFrameLifecycleTest, MainThreadIsKnownBeforeJavaIsCalled)
{
    java.emplace();
    FrameAccess::s_MainThreadId = 0;
    int calls = 0;
    java->insideVoidMethods = [&] {
        ++calls;
        EXPECT_EQ(FrameAccess::s_MainThreadId, GetCurrentThreadId());
    };
    create();
    EXPECT_EQ(calls, 4);
}

// Memory may be exhausted in the middle of the end: the instance goes all the same.
TEST_F(BeanFrameLifecycleTest, DeletionLetsNoExceptionOut)
{
    createFrame();
    java->insideVoidMethods = [] { AtlThrow(E_OUTOFMEMORY); };
    CBeanFrame::deleteInstance();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(lines(), "ERROR"),
                ElementsAre("ERROR " + object() + "Java side was not released: " + getWindowsErrorText(0x8007000E)));
}

// Java answers a listener's registration with an event at once.
TEST_F(BeanFrameLifecycleTest, EventsRaisedDuringConstructionAreDropped)
{
    java.emplace();
    java->insideVoidMethods = [&] {
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text("early"));
    };
    create();
    EXPECT_THAT(linesWith(lines(), "INFO Dropped ControlReady Event, no corresponding bean frame was found..."),
                testing::SizeIs(4))
        << "three setters of the frame and the registration";
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(takeMessages(), IsEmpty());
}

// A native called on the main thread, inside a forwarded call, only queues.
TEST_F(BeanFrameLifecycleTest, EventsRaisedInsideACallAreQueued)
{
    createFrame();
    java->insideVoidMethods = [&] {
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("inside"));
    };
    EXPECT_EQ(frame().setVisible(true), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent inside"));
}

// So does one called while the frame ends, whose event is lost.
TEST_F(BeanFrameLifecycleTest, EventsRaisedDuringDestructionReachNobody)
{
    createFrame();
    java->insideVoidMethods = [&] {
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("late"));
    };
    CBeanFrame::deleteInstance();
    EXPECT_EQ(CBeanFrame::processEventQueue(), E_FAIL);
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, DeletionStopsTheBeanAndLeavesNoInstance)
{
    createFrame();
    CBeanFrame::deleteInstance();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(lines(),
                ElementsAre("INFO -> deleteInstance ", "TRACE s_Instance!=NULL: true", "INFO -> " + object() + "~CBeanFrame ",
                            "INFO <- " + object() + "~CBeanFrame ", "INFO <- deleteInstance "));
    const std::string bean = "global com/maker/win/Control";
    EXPECT_THAT(
        java->takeMethodCalls(),
        ElementsAre("CallObjectMethod(" + bean + ", free)",
                    "CallVoidMethod(" + bean + ", removeORVANEControlListener, global com/velmora/tq/kesta/KESTAListener)",
                    "CallVoidMethod(" + bean + ", removeAll)",
                    "CallVoidMethod(global com/velmora/tq/kesta/KESTAFrame, remove, " + bean + ")",
                    "CallVoidMethod(global com/velmora/tq/kesta/KESTAFrame, dispose)"));
    EXPECT_THAT(java->jni.liveGlobals(), IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, DeletionWithoutInstanceLogsTheFailedCheck)
{
    CBeanFrame::deleteInstance();
    EXPECT_THAT(stream.messages(), ElementsAre("INFO deleteInstance ", fixtures::BEGIN_BANNER, "ERROR s_Instance!=NULL: false",
                                               "INFO deleteInstance ", fixtures::END_BANNER, "INFO deleteInstance "));
}

TEST_F(BeanFrameLifecycleTest, DeletionDropsPendingEvents)
{
    createFrame();
    queue("now", &FrameAccess::processOnCustomEvent, 0);
    queue("later", &FrameAccess::processTestBridgeEvent, 60000);
    CBeanFrame::deleteInstance();
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(FrameAccess::s_EventIndex, IsEmpty());

    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE)) << "posted before";
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, NewInstanceMayFollowADeletedOne)
{
    createFrame();
    CBeanFrame::deleteInstance();
    create();
    EXPECT_EQ(frame().frameID, static_cast<int>(GetCurrentProcessId()) + 1);
}

TEST_F(BeanFrameLifecycleTest, ListenerNativesAreTheFrameNatives)
{
    EXPECT_EQ(listenerNatives().testBridgeEvent, CBeanFrame::NativeTestBridgeEvent);
    EXPECT_EQ(listenerNatives().OnControlReady, CBeanFrame::NativeOnControlReady);
    EXPECT_EQ(listenerNatives().OnCustomEvent, CBeanFrame::NativeOnCustomEvent);
}
