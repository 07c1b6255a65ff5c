// The way of an event from Java's thread to the sinks, step by step: who is asked first, what is logged, what is held meanwhile.
#include "tests/beanframe/BeanFrameWorld.h"

#include <gmock/gmock.h>

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class DeliveryTest : public BeanFrameWorld
{
protected:
    void SetUp() override { createFrame(); }

    void native(const char* text) { CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text(text)); }
    static std::string newest() { return address(FrameAccess::s_EventQueue.back()); }

    // A client that has died.
    static void killClient() { frame().*& FrameAccess::clientWindow = reinterpret_cast<HWND>(-2); }
};

TEST_F(DeliveryTest, ClientIsAskedForOnceBeforeAnEventIsQueued)
{
    native("text");
    const std::string entry = newest();
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> NativeOnCustomEvent ", "FINE text=text", "FINE -> " + object() + "enqueueOnCustomEvent text",
                            "FINE -> " + object() + "isClientAlive ",
                            "TRACE " + object() + "Frame's window not yet set, thus no check!",
                            "FINE <- " + object() + "isClientAlive ", "FINE -> " + object() + "queueEvent 0",
                            "TRACE " + object() + "queued new event: " + entry, "FINE <- " + object() + "queueEvent 0",
                            "FINE <- " + object() + "enqueueOnCustomEvent text", "FINE <- NativeOnCustomEvent "));
}

TEST_F(DeliveryTest, EventOfADeadClientIsNotQueued)
{
    killClient();
    native("text");
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> NativeOnCustomEvent ", "FINE text=text", "FINE -> " + object() + "enqueueOnCustomEvent text",
                            "FINE -> " + object() + "isClientAlive ",
                            "TRACE " + object() + "Frame's window seems not to be alive anymore! (invalid window handle) ",
                            "FINE <- " + object() + "isClientAlive ",
                            "WARN " + object() + "Dropped custom event, client seems to be not alive anymore...",
                            "FINE <- " + object() + "enqueueOnCustomEvent text", "FINE <- NativeOnCustomEvent "));
}

// The client was alive when it was queued; whether it still is, is not asked again.
TEST_F(DeliveryTest, QueuedEventIsFiredAlsoWhenTheClientHasDiedSince)
{
    native("text");
    killClient();
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent text"));
    EXPECT_THAT(linesWith(lines(), "isClientAlive"), IsEmpty());
}

TEST_F(DeliveryTest, EachHandlerLogsItsNameAndTheText)
{
    queue("a", &FrameAccess::processOnControlReady, 0);
    queue("b", &FrameAccess::processOnCustomEvent, 0);
    queue("c", &FrameAccess::processTestBridgeEvent, 0);
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    const std::string ready = object() + "processOnControlReady a";
    const std::string custom = object() + "processOnCustomEvent b";
    const std::string bridge = object() + "processTestBridgeEvent c";
    std::vector<std::string> handlers;
    for (const std::string& line : lines()) {
        if (line.find("processOn") != std::string::npos || line.find("processTestBridgeEvent") != std::string::npos) {
            handlers.push_back(line);
        }
    }
    EXPECT_THAT(handlers, ElementsAre("FINE -> " + ready, "FINE <- " + ready, "FINE -> " + custom, "FINE <- " + custom,
                                      "FINE -> " + bridge, "FINE <- " + bridge));
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "controlReady a", "Release", "AddRef", "customEvent b", "Release", "AddRef",
                                          "testBridgeEvent c", "Release"));
}

TEST_F(DeliveryTest, WatchdogLogsItsText)
{
    (frame().*&FrameAccess::processWatchDogEvent)(CComBSTR(L"text"));
    EXPECT_EQ(lines().front(), "FINE -> " + object() + "processWatchDogEvent text");
}

TEST_F(DeliveryTest, FailingSinksChangeNothing)
{
    target.answer = E_ACCESSDENIED;
    queue("a", &FrameAccess::processOnCustomEvent, 0);
    FrameAccess::QueueEntry* const entry = FrameAccess::s_EventQueue.front();
    EXPECT_EQ((frame().*&FrameAccess::processQueueEntry)(entry), S_OK);
    queue("b", &FrameAccess::processOnControlReady, 0);
    queue("c", &FrameAccess::processTestBridgeEvent, 0);
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent a", "customEvent a", "controlReady b", "testBridgeEvent c"));
    EXPECT_THAT(linesWith(lines(), "WARN"), IsEmpty());
    EXPECT_THAT(linesWith(lines(), "ERROR"), IsEmpty());
}

TEST_F(DeliveryTest, ClockIsReadOnceForEachEntryQueuedAndOnceForEachPass)
{
    FrameAccess::s_TickCount = []() -> DWORD { return s_now++; };
    queue("first", &FrameAccess::processOnCustomEvent, 60000);  // due 61000
    queue("second", &FrameAccess::processOnCustomEvent, 30000); // due 31001
    queue("now", &FrameAccess::processOnCustomEvent, 0);        // due 1002
    const std::string entry = newest();
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    // Future entries are named in queuing order, due ones not at all.
    std::vector<std::string> choices;
    for (const std::string& line : lines()) {
        if (line.find("QueueEntry ") != std::string::npos && line.find("->") == std::string::npos &&
            line.find("<-") == std::string::npos) {
            choices.push_back(line);
        }
    }
    EXPECT_THAT(choices,
                ElementsAre("FINE QueueEntry not yet expired (61000>1003)", "FINE QueueEntry not yet expired (31001>1003)",
                            "FINE QueueEntry " + entry + " expired, removing from queue (1002<=1003)",
                            "FINE ready to process QueueEntry " + entry, "FINE QueueEntry not yet expired (61000>1004)",
                            "FINE QueueEntry not yet expired (31001>1004)", "FINE could not find QueueEntry to process"));
    EXPECT_EQ(s_now, 1005u);
}

// Other threads go on queuing while a sink or Java takes its time.
TEST_F(DeliveryTest, NothingIsLockedWhileASinkOrJavaIsCalled)
{
    int calls = 0;
    const auto look = [&] {
        ++calls;
        EXPECT_TRUE(isQueueUnlocked());
    };
    target.onFire = [&](const std::string&) { look(); };
    java->insideVoidMethods = look;
    java->insideObjectMethods = look;
    native("a");
    queue("b", &FrameAccess::processOnControlReady, 0);
    queue("c", &FrameAccess::processTestBridgeEvent, 0);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_EQ(calls, 3);
    CComBSTR result;
    EXPECT_EQ(frame().free(&result), S_OK);
    EXPECT_EQ(frame().setVisible(true), S_OK);
    EXPECT_EQ(frame().pushWindowHandle(0), S_OK);
    EXPECT_EQ(calls, 6);
    CBeanFrame::deleteInstance();
    EXPECT_EQ(calls, 11) << "five calls of the end";
}

TEST_F(DeliveryTest, NothingIsLockedWhileTheComObjectIsReleased)
{
    killClient();
    int calls = 0;
    const auto look = [&] {
        ++calls;
        EXPECT_TRUE(isQueueUnlocked());
    };
    target.onDisconnect = look;
    target.onLastRelease = look;
    queue("", &FrameAccess::processWatchDogEvent, 0);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_EQ(calls, 2);
}

// An event that Java raises as soon as the bean is in the frame is already measured by the new window.
TEST_F(DeliveryTest, PushedWindowCountsBeforeTheBeanIsAdded)
{
    java->insideObjectMethods = [&] {
        EXPECT_EQ(frame().*&FrameAccess::clientWindow, reinterpret_cast<HWND>(-2));
        EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty()) << "the chain starts afterwards";
        native("raised inside");
    };
    EXPECT_EQ(frame().pushWindowHandle(-2), S_OK);
    EXPECT_THAT(linesWith(lines(), "Dropped custom event"), SizeIs(1));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
}

// Each round asks anew which object there is.
TEST_F(DeliveryTest, ForcedReleaseFollowsTheProcessesObject)
{
    killClient();
    target.references = 1;
    RecordingTarget other;
    other.references = 2;
    RecordingTarget::s_current = &target;
    target.onDisconnect = [&] {
        target.references = 3;
        RecordingTarget::s_current = &other;
    };
    queue("", &FrameAccess::processWatchDogEvent, 0);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "DisconnectObject", "Release"));
    EXPECT_THAT(other.calls, ElementsAre("Release", "Release"));
    EXPECT_THAT(linesWith(lines(), "More objects to release..."), SizeIs(2));
}

// Java raised them while the instance was going.
TEST_F(DeliveryTest, WithoutInstanceAPassEndsAtTheFirstDueEntry)
{
    java->insideVoidMethods = [&] {
        java->insideVoidMethods = nullptr;
        native("first");
        native("second");
    };
    CBeanFrame::deleteInstance();
    ASSERT_THAT(FrameAccess::s_EventQueue, SizeIs(2));
    EXPECT_EQ(CBeanFrame::processEventQueue(), E_FAIL);
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1)) << "the taken one is lost, the other waits";
    EXPECT_EQ(CBeanFrame::processEventQueue(), E_FAIL);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
}

// Code that Java runs may throw anything.
TEST_F(DeliveryTest, NativeLetsNoExceptionOut)
{
    JNINativeInterface_ functions = {};
    functions.GetStringUTFChars = [](JNIEnv*, jstring, jboolean*) -> const char* { throw 1; };
    JNIEnv env = {&functions};
    CBeanFrame::NativeOnControlReady(&env, nullptr, NativeEnvironment::text("text"));
    EXPECT_THAT(linesWith(lines(), "WARN"), ElementsAre("WARN Dropped event: unexpected exception"));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}
