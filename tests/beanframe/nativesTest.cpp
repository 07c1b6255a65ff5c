// Events from the native that Java calls to the sinks: each kind with all its lines.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <format>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Kind
{
    const char* native;
    const char* enqueue;
    DWORD delay;
    const char* process;
    const char* event;
    const char* withoutFrame;
    const char* withoutClient;
};

const Kind KINDS[] = {
    {"NativeOnControlReady", "enqueueOnControlReady a", 0, "processOnControlReady a", "controlReady a",
     "INFO Dropped ControlReady Event, no corresponding bean frame was found...",
     "WARN @frame Dropped ontrolReady Event, client seems to be not alive anymore..."},
    {"NativeOnCustomEvent", "enqueueOnCustomEvent a", 0, "processOnCustomEvent a", "customEvent a",
     "WARN Dropped custom event, no corresponding bean frame was found...",
     "WARN @frame Dropped custom event, client seems to be not alive anymore..."},
    {"NativeTestBridgeEvent", "enqueueTestBridgeEvent ajs,50000", 50000, "processTestBridgeEvent ajs", "testBridgeEvent ajs",
     "WARN Dropped TestBridgeEvent, no corresponding bean frame was found...",
     "WARN @frame Dropped TestBridgeEvent, client seems to be not alive anymore..."},
};

} // namespace

class NativesTest : public BeanFrameWorld
{
protected:
    void call(const Kind& kind, jstring text = NativeEnvironment::text("a"), jint delay = 50000)
    {
        stream.clear();
        if (&kind == &KINDS[0]) {
            CBeanFrame::NativeOnControlReady(environment.env(), nullptr, text);
        } else if (&kind == &KINDS[1]) {
            CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, text);
        } else {
            CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, text, delay);
        }
    }
};

TEST_F(NativesTest, EventsAreQueuedAndThenFired)
{
    createFrame();
    for (const Kind& kind : KINDS) {
        const std::string native = std::string(kind.native) + " ";
        const std::string enqueue = std::string("@frame ") + kind.enqueue;
        const std::string queueEvent = "@frame queueEvent " + std::to_string(kind.delay);
        call(kind);
        EXPECT_THAT(lines({"BeanFrame"}),
                    ElementsAre("FINE -> " + native, "FINE text=a", "FINE -> " + enqueue, "FINE -> @frame isClientAlive ",
                                "TRACE @frame Frame's window not yet set, thus no check!", "FINE <- @frame isClientAlive ",
                                "FINE -> " + queueEvent, "TRACE @frame queued new event: #1", "FINE <- " + queueEvent,
                                "FINE <- " + enqueue, "FINE <- " + native));
        EXPECT_THAT(target.calls, IsEmpty()) << "not on the calling thread";

        const std::string process = std::string("@frame ") + kind.process;
        stream.clear();
        EXPECT_EQ(processAt(s_now + kind.delay), S_OK);
        EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ",
                                         std::format("FINE QueueEntry #1 expired, removing from queue ({0}<={0})", s_now),
                                         "FINE ready to process QueueEntry #1", "TRACE s_Instance!=NULL: true",
                                         "FINE -> @frame processQueueEntry ", "FINE -> " + process, "FINE <- " + process,
                                         "FINE <- @frame processQueueEntry ", "FINE <- processEventQueue "));
        EXPECT_THAT(target.calls, ElementsAre("AddRef", kind.event, "Release")) << "held while its sinks are called";
        target.calls.clear();
    }
}

TEST_F(NativesTest, EventsWithoutFrameAreDropped)
{
    for (const Kind& kind : KINDS) {
        const std::string native = std::string(kind.native) + " ";
        call(kind);
        EXPECT_THAT(lines({"BeanFrame"}),
                    ElementsAre("FINE -> " + native, "FINE text=a", kind.withoutFrame, "FINE <- " + native));
    }
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

TEST_F(NativesTest, EventsOfADeadClientAreDropped)
{
    createFrame();
    killClient();
    for (const Kind& kind : KINDS) {
        const std::string native = std::string(kind.native) + " ";
        const std::string enqueue = std::string("@frame ") + kind.enqueue;
        call(kind);
        EXPECT_THAT(lines({"BeanFrame"}),
                    ElementsAre("FINE -> " + native, "FINE text=a", "FINE -> " + enqueue, "FINE -> @frame isClientAlive ",
                                "TRACE @frame Frame's window seems not to be alive anymore! (invalid window handle) ",
                                "FINE <- @frame isClientAlive ", kind.withoutClient, "FINE <- " + enqueue, "FINE <- " + native));
    }
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

// The client was alive when the event was queued, which is not checked again.
TEST_F(NativesTest, QueuedEventIsFiredAlsoWhenTheClientHasDiedSince)
{
    createFrame();
    customEvent("text");
    killClient();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent text"));
}

TEST_F(NativesTest, EventsWithoutComObjectAreLostSilently)
{
    createFrame();
    RecordingTarget::s_current = nullptr;
    for (const Kind& kind : KINDS) {
        call(kind, NativeEnvironment::text("a"), 0);
        stream.clear();
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
        EXPECT_THAT(linesWith(lines(), kind.process),
                    ElementsAre(std::string("FINE -> @frame ") + kind.process, std::string("FINE <- @frame ") + kind.process));
        EXPECT_THAT(lines(), testing::SizeIs(9)) << "as with an object";
    }
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(NativesTest, FailingSinksChangeNothing)
{
    createFrame();
    target.answer = E_ACCESSDENIED;
    for (const Kind& kind : KINDS) {
        call(kind, NativeEnvironment::text("a"), 0);
    }
    stream.clear();
    EXPECT_EQ((frame().*&FrameAccess::processQueueEntry)(FrameAccess::s_EventQueue.front()), S_OK);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("controlReady a", "controlReady a", "customEvent a", "testBridgeEvent ajs"));
    EXPECT_THAT(linesWith(lines(), "WARN"), IsEmpty());
    EXPECT_THAT(linesWith(lines(), "ERROR"), IsEmpty());
}

TEST_F(NativesTest, EmptyTextStaysEmpty)
{
    createFrame();
    for (const Kind& kind : KINDS) {
        call(kind, NativeEnvironment::text(""), 0);
    }
    queue(nullptr);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("controlReady ", "customEvent ", "testBridgeEvent js", "customEvent (null)"));
}

// A native that is called on the main thread, inside a forwarded call, only queues.
TEST_F(NativesTest, EventsRaisedInsideACallAreQueued)
{
    createFrame();
    java->insideMethods = [&] { customEvent("inside"); };
    EXPECT_EQ(frame().setVisible(true), S_OK);
    EXPECT_THAT(target.calls, IsEmpty());
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent inside"));
}

// Nothing unwinds into Java.
TEST_F(NativesTest, ExceptionsDropTheEvent)
{
    createFrame();
    JNINativeInterface_ functions = {};
    JNIEnv env = {&functions};
    functions.GetStringUTFChars = [](JNIEnv*, jstring, jboolean*) -> const char* { return nullptr; };
    CBeanFrame::NativeOnControlReady(&env, nullptr, NativeEnvironment::text("a"));
    functions.GetStringUTFChars = [](JNIEnv*, jstring, jboolean*) -> const char* { throw 1; };
    CBeanFrame::NativeOnCustomEvent(&env, nullptr, NativeEnvironment::text("b"));
    CBeanFrame::NativeTestBridgeEvent(&env, nullptr, NativeEnvironment::text("c"), 0);
    EXPECT_THAT(linesWith(lines(), "Dropped"),
                ElementsAre("WARN Dropped event: 8007000e", "WARN Dropped event: 80004005", "WARN Dropped event: 80004005"));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

// Nor does handling the exception need memory: it would unwind into the virtual machine.
TEST_F(NativesTest, ExhaustedMemoryDropsTheEvent)
{
    createFrame();
    const jstring text = NativeEnvironment::text("a");
    {
        const ImportHook<decltype(&OutputDebugStringA)> silence("OutputDebugStringA", [](LPCSTR) {});
        const FailingAllocations failing(FailingAllocations::Kind::All);
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, text);
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, text);
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, text, 0);
    }
    EXPECT_GT(FailingAllocations::refused(), 0);
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    call(KINDS[1]);
    EXPECT_THAT(FrameAccess::s_EventQueue, testing::SizeIs(1));
}
