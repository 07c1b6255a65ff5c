// Creation and end of the bean frame.
#include "tests/beanframe/BeanFrameWorld.h"

#include "javabridge/ListenerNatives.h"
#include "tests/support/FailingAllocations.h"

#include <gmock/gmock.h>

#include <climits>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class BeanFrameLifecycleTest : public BeanFrameWorld
{
protected:
    static void create() { CBeanFrame::createInstance("C:\\controls\\basis.jar", "com.maker.win", "Control"); }
    // The frame's lines and its calls of the Java bridge.
    std::vector<std::string> linesAndBridgeCalls() const
    {
        std::vector<std::string> result = lines({"BeanFrame", "JavaManagerJNIClient"});
        std::erase_if(result, [](const std::string& line) {
            return line.find("@java ") != std::string::npos && !line.starts_with("FINE -> @java startBean") &&
                   !line.starts_with("FINE -> @java regEventListener") && !line.starts_with("FINE -> @java stopBean");
        });
        return result;
    }
};

TEST_F(BeanFrameLifecycleTest, CreationStartsTheBeanThenRegistersTheListener)
{
    java.emplace();
    stream.clear();
    create();
    EXPECT_THAT(linesAndBridgeCalls(),
                ElementsAre("INFO -> createInstance C:\\controls\\basis.jar,com.maker.win,Control",
                            "INFO -> CBeanFrame -1 CBeanFrame C:\\controls\\basis.jar,com.maker.win,Control",
                            "FINE -> createInstance ", "TRACE CHECKPOINT: Successfully created JavaManagerJNIClient Singleton.",
                            "FINE <- createInstance ", "FINE -> @java startBean com.maker.win, Control",
                            "FINE -> @java regEventListener ", "TRACE @frame CHECKPOINT: Successfully created BeanFrame.",
                            "INFO <- CBeanFrame -1 CBeanFrame C:\\controls\\basis.jar,com.maker.win,Control",
                            "INFO <- createInstance C:\\controls\\basis.jar,com.maker.win,Control"));
    EXPECT_EQ(java->takeMethodCalls().back(), "CallVoidMethod(Control, addORVANEControlListener, KESTAListener)");
    EXPECT_THAT(java->jni.liveGlobals(), ElementsAre("global com/maker/win/Control", "global com/velmora/tq/kesta/KESTAFrame",
                                                     "global com/velmora/tq/kesta/KESTAListener"));
    EXPECT_EQ(frame().frameID, static_cast<int>(GetCurrentProcessId()));
    EXPECT_EQ(frame().*&FrameAccess::clientWindow, nullptr);
    EXPECT_FALSE(frame().*&FrameAccess::eventsSuspended);
}

TEST_F(BeanFrameLifecycleTest, ListenerNativesAreTheFrameNatives)
{
    EXPECT_EQ(listenerNatives().testBridgeEvent, CBeanFrame::NativeTestBridgeEvent);
    EXPECT_EQ(listenerNatives().OnControlReady, CBeanFrame::NativeOnControlReady);
    EXPECT_EQ(listenerNatives().OnCustomEvent, CBeanFrame::NativeOnCustomEvent);
}

TEST_F(BeanFrameLifecycleTest, SecondCreationOnlyWarns)
{
    createFrame();
    CBeanFrame* const first = CBeanFrame::s_Instance;
    CBeanFrame::createInstance("other.jar", "p", "B");
    EXPECT_EQ(CBeanFrame::s_Instance, first);
    EXPECT_THAT(lines(), ElementsAre("INFO -> createInstance other.jar,p,B", "WARN double creation of BeanFrameInstance",
                                     "INFO <- createInstance other.jar,p,B"));
}

TEST_F(BeanFrameLifecycleTest, CreationWithoutRuntimeKeepsTheFrameWithoutReferences)
{
    create();
    ASSERT_NE(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(frame().frameID, -1);
    EXPECT_THAT(linesWith(lines(), "CHECKPOINT: Successfully created BeanFrame"), IsEmpty());
    stream.clear();
    EXPECT_EQ(frame().validate(), E_FAIL);
    EXPECT_EQ(lines({"BeanFrame"}).front(), "INFO -> CBeanFrame -1 validate ");
}

// In each case one reference is missing, or the frame id is 0.
TEST_F(BeanFrameLifecycleTest, CheckpointOnlyWhenEverythingIsThere)
{
    for (int refused = 0; refused < 4; ++refused) {
        SCOPED_TRACE(refused);
        java.emplace();
        java->globalsUntilRefusal = refused < 3 ? refused : -1;
        java->setLastFrameId(refused < 3 ? 0 : INT_MAX);
        stream.clear();
        create();
        EXPECT_EQ(frame().*&FrameAccess::beanObject == nullptr, refused == 0);
        EXPECT_EQ(frame().*&FrameAccess::frameObject == nullptr, refused == 1);
        EXPECT_EQ(frame().*&FrameAccess::listener == nullptr, refused == 2);
        EXPECT_EQ(frame().frameID == 0, refused == 3);
        EXPECT_THAT(linesWith(lines({"BeanFrame"}), "CHECKPOINT"), IsEmpty());
        CBeanFrame::deleteInstance();
    }
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
    stream.clear();
    {
        const FailingAllocations memory(FailingAllocations::Kind::NothrowObjects);
        create();
    }
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(lines(), SizeIs(2)) << "the scope of the creation";
    EXPECT_THAT(java->jni.takeCalls(), IsEmpty());
}

// Every Java method raises an event at once.
TEST_F(BeanFrameLifecycleTest, EventsRaisedDuringConstructionAreDropped)
{
    java.emplace();
    FrameAccess::s_MainThreadId = 0;
    java->insideMethods = [&] {
        EXPECT_EQ(FrameAccess::s_MainThreadId, GetCurrentThreadId());
        customEvent("early");
    };
    create();
    EXPECT_THAT(linesWith(lines(), "WARN Dropped custom event, no corresponding bean frame was found..."), SizeIs(4))
        << "three setters of the frame and the registration";
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, DeletionStopsTheBeanAndLeavesNoInstance)
{
    createFrame();
    CBeanFrame::deleteInstance();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesAndBridgeCalls(),
                ElementsAre("INFO -> deleteInstance ", "TRACE s_Instance!=NULL: true", "INFO -> @frame ~CBeanFrame ",
                            "FINE -> @java stopBean ", "INFO <- @frame ~CBeanFrame ", "INFO <- deleteInstance "));
    EXPECT_THAT(java->jni.liveGlobals(), IsEmpty());
    create();
    EXPECT_EQ(frame().frameID, static_cast<int>(GetCurrentProcessId()) + 1) << "a new one may follow";
}

TEST_F(BeanFrameLifecycleTest, DeletionWithoutInstanceLogsTheFailedCheck)
{
    CBeanFrame::deleteInstance();
    EXPECT_THAT(lines(), ElementsAre("INFO -> deleteInstance ", fixtures::BEGIN_BANNER, "ERROR s_Instance!=NULL: false",
                                     "INFO -> deleteInstance ", fixtures::END_BANNER, "INFO <- deleteInstance "));
}

// Messages and timers of the dropped events find the queue empty.
TEST_F(BeanFrameLifecycleTest, DeletionDropsPendingEvents)
{
    createFrame();
    queue("now");
    queue("later", &FrameAccess::processTestBridgeEvent, 60000);
    CBeanFrame::deleteInstance();
    EXPECT_THAT(FrameAccess::s_EventIndex, IsEmpty());
    stream.clear();
    EXPECT_EQ(processAt(61000), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE <- processEventQueue "));
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, EventsRaisedDuringDeletionAreDroppedAsWell)
{
    createFrame();
    java->insideMethods = [&] {
        java->insideMethods = nullptr;
        customEvent("late");
        customEvent("later");
    };
    CBeanFrame::deleteInstance();
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(FrameAccess::s_EventIndex, IsEmpty());
    EXPECT_EQ(processAt(1003), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(BeanFrameLifecycleTest, EventsAreLostOneByOneWithTheFailedCheckWithoutInstance)
{
    createFrame();
    customEvent("first");
    customEvent("second");
    CBeanFrame* const hidden = std::exchange(CBeanFrame::s_Instance, nullptr);
    stream.clear();
    EXPECT_EQ(processAt(1003), E_FAIL);
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> processEventQueue ", "FINE QueueEntry #1 expired, removing from queue (1000<=1003)",
                            "FINE ready to process QueueEntry #1", fixtures::BEGIN_BANNER, "ERROR s_Instance!=NULL: false",
                            "FINE -> processEventQueue ", fixtures::END_BANNER, "FINE <- processEventQueue "));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
    EXPECT_EQ(CBeanFrame::processEventQueue(), E_FAIL);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
    CBeanFrame::s_Instance = hidden;
}

// Memory may run out in the middle: the instance is deleted nevertheless.
TEST_F(BeanFrameLifecycleTest, DeletionLetsNoExceptionOut)
{
    createFrame();
    java->insideMethods = [] { AtlThrow(E_OUTOFMEMORY); };
    CBeanFrame::deleteInstance();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
}

TEST_F(BeanFrameLifecycleTest, TextThatCannotBeConvertedFailsItsCallAndIsLogged)
{
    createFrame();
    java->insideMethods = [] { AtlThrow(E_OUTOFMEMORY); };
    stream.clear();
    EXPECT_EQ(frame().setVisible(true), E_OUTOFMEMORY);
    EXPECT_THAT(linesWith(lines(), "ERROR"), ElementsAre("ERROR A text of the call was not converted: 8007000e"));
}

TEST_F(BeanFrameLifecycleTest, NothingIsLockedWhileJavaIsCalled)
{
    createFrame();
    int calls = 0;
    java->insideMethods = [&] {
        ++calls;
        EXPECT_FALSE(isQueueLocked());
    };
    CComBSTR result;
    EXPECT_EQ(frame().free(&result), S_OK);
    EXPECT_EQ(frame().setVisible(true), S_OK);
    EXPECT_EQ(frame().pushWindowHandle(0), S_OK);
    CBeanFrame::deleteInstance();
    EXPECT_EQ(calls, 8) << "five calls of the deletion";
}
