// The natives that Java calls, on Java's threads and while the frame comes and goes.
#include "tests/beanframe/BeanFrameWorld.h"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class NativesTest : public BeanFrameWorld
{
protected:
    void controlReady(const char* text)
    {
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text(text));
    }
    void customEvent(const char* text)
    {
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text(text));
    }
    void testBridge(const char* text, jint delay)
    {
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, NativeEnvironment::text(text), delay);
    }
    // A client window that has no parent.
    static void killClient() { frame().*& FrameAccess::clientWindow = GetDesktopWindow(); }
    // Lines of natives and enqueue operations, without those of what they call.
    std::vector<std::string> eventLines()
    {
        std::vector<std::string> result;
        for (const std::string& line : lines()) {
            if (line.find("isClientAlive") == std::string::npos && line.find("queueEvent") == std::string::npos &&
                line.find("queued new event") == std::string::npos && line.find("Frame's window") == std::string::npos) {
                result.push_back(line);
            }
        }
        return result;
    }
};

TEST_F(NativesTest, ControlReadyIsQueued)
{
    createFrame();
    controlReady("ready");
    EXPECT_THAT(eventLines(),
                ElementsAre("FINE -> NativeOnControlReady ", "FINE text=ready",
                            "FINE -> " + object() + "enqueueOnControlReady ready",
                            "FINE <- " + object() + "enqueueOnControlReady ready", "FINE <- NativeOnControlReady "));
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_THAT(target.calls, IsEmpty()) << "not on the calling thread";
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("controlReady ready"));
}

TEST_F(NativesTest, CustomEventIsQueued)
{
    createFrame();
    customEvent("custom");
    EXPECT_THAT(eventLines(), ElementsAre("FINE -> NativeOnCustomEvent ", "FINE text=custom",
                                          "FINE -> " + object() + "enqueueOnCustomEvent custom",
                                          "FINE <- " + object() + "enqueueOnCustomEvent custom", "FINE <- NativeOnCustomEvent "));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent custom"));
}

TEST_F(NativesTest, TestBridgeEventGetsItsLettersAndKeepsItsDelay)
{
    createFrame();
    testBridge("abc", 50000);
    EXPECT_THAT(eventLines(),
                ElementsAre("FINE -> NativeTestBridgeEvent ", "FINE text=abc",
                            "FINE -> " + object() + "enqueueTestBridgeEvent abcjs,50000",
                            "FINE <- " + object() + "enqueueTestBridgeEvent abcjs,50000", "FINE <- NativeTestBridgeEvent "));
    EXPECT_THAT(takeMessages(), IsEmpty());
    s_now += 49999;
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, IsEmpty());
    s_now += 1;
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("testBridgeEvent abcjs"));
}

TEST_F(NativesTest, TestBridgeEventWithoutDelayIsPostedAtOnce)
{
    createFrame();
    testBridge("abc", 0);
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("testBridgeEvent abcjs"));
}

TEST_F(NativesTest, NegativeDelayIsTakenAsUnsigned)
{
    createFrame();
    testBridge("abc", -1);
    EXPECT_THAT(linesWith(lines(), "-> " + object() + "enqueueTestBridgeEvent"),
                ElementsAre("FINE -> " + object() + "enqueueTestBridgeEvent abcjs,4294967295"));
    EXPECT_THAT(takeMessages(), IsEmpty());
    customEvent("next");
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent next", "testBridgeEvent abcjs"));
}

TEST_F(NativesTest, EmptyTextStaysEmpty)
{
    createFrame();
    customEvent("");
    testBridge("", 0);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent ", "testBridgeEvent js"));
}

TEST_F(NativesTest, EventsWithoutFrameAreDroppedWithTheirLines)
{
    controlReady("a");
    customEvent("b");
    testBridge("c", 100);
    EXPECT_THAT(lines(), ElementsAre("FINE -> NativeOnControlReady ", "FINE text=a",
                                     "INFO Dropped ControlReady Event, no corresponding bean frame was found...",
                                     "FINE <- NativeOnControlReady ", "FINE -> NativeOnCustomEvent ", "FINE text=b",
                                     "WARN Dropped custom event, no corresponding bean frame was found...",
                                     "FINE <- NativeOnCustomEvent ", "FINE -> NativeTestBridgeEvent ", "FINE text=c",
                                     "WARN Dropped TestBridgeEvent, no corresponding bean frame was found...",
                                     "FINE <- NativeTestBridgeEvent "));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

TEST_F(NativesTest, EventsOfADeadClientAreDroppedWithTheirLines)
{
    createFrame();
    killClient();
    controlReady("a");
    customEvent("b");
    testBridge("c", 100);
    EXPECT_THAT(linesWith(lines(), "Dropped"),
                ElementsAre("WARN " + object() + "Dropped ontrolReady Event, client seems to be not alive anymore...",
                            "WARN " + object() + "Dropped custom event, client seems to be not alive anymore...",
                            "WARN " + object() + "Dropped TestBridgeEvent, client seems to be not alive anymore..."));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(takeMessages(), IsEmpty());
}

// The text could not be had from Java: nothing unwinds into the caller.
TEST_F(NativesTest, FailedConversionDropsTheEvent)
{
    createFrame();
    JNINativeInterface_ functions = {};
    functions.GetStringUTFChars = [](JNIEnv*, jstring, jboolean*) -> const char* { return nullptr; };
    JNIEnv env = {&functions};
    CBeanFrame::NativeOnCustomEvent(&env, nullptr, NativeEnvironment::text("text"));
    EXPECT_THAT(linesWith(lines(), "WARN"), ElementsAre("WARN Dropped event: " + getWindowsErrorText(0x8007000E)));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

namespace {

// A frame whose memory cannot be touched any more once it is gone.
class GuardedFrame : public CBeanFrame
{
public:
    GuardedFrame()
        : CBeanFrame("basis.jar", "com.maker.win", "Control")
    {
    }
    ~GuardedFrame() override = default;

    static void create() { std::atomic_ref(s_Instance).store(new GuardedFrame); }

    static void* operator new(size_t size)
    {
        void* const memory = VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        return memory;
    }
    static void operator delete(void* memory, size_t size)
    {
        DWORD before;
        VirtualProtect(memory, size, PAGE_NOACCESS, &before);
    }
};

// Calls the natives in turn on several threads until it goes.
class FiringThreads
{
public:
    explicit FiringThreads(int count)
    {
        for (int index = 0; index < count; ++index) {
            m_threads.emplace_back([this, index] { fire(index); });
        }
    }
    ~FiringThreads()
    {
        m_stopped = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    int fired() const { return m_fired; }

private:
    void fire(int index)
    {
        for (int round = index; !m_stopped; ++round, ++m_fired, SwitchToThread()) {
            const jstring text = NativeEnvironment::text("event");
            if (round % 3 == 0) {
                CBeanFrame::NativeOnControlReady(m_environment.env(), nullptr, text);
            } else if (round % 3 == 1) {
                CBeanFrame::NativeOnCustomEvent(m_environment.env(), nullptr, text);
            } else {
                CBeanFrame::NativeTestBridgeEvent(m_environment.env(), nullptr, text, 0);
            }
        }
    }

    NativeEnvironment m_environment;
    std::atomic<bool> m_stopped = false;
    std::atomic<int> m_fired = 0;
    std::vector<std::thread> m_threads;
};

} // namespace

class NativesUnderLoadTest : public NativesTest
{
protected:
    void SetUp() override
    {
        java.emplace();
        Logger::setMaxLogLevel(-1);
    }
    // Each cycle lets the threads meet the living frame before it goes. Nothing is posted: the passes come by themselves.
    void cycles(int count)
    {
        const FiringThreads threads(4);
        for (int cycle = 0; cycle < count; ++cycle) {
            GuardedFrame::create();
            FrameAccess::s_MainThreadId = 0;
            const int fired = threads.fired();
            while (threads.fired() < fired + 4) {
                SwitchToThread();
            }
            EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
            CBeanFrame::deleteInstance();
            EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
        }
    }
};

TEST_F(NativesUnderLoadTest, FrameComesAndGoesUnderFiringThreads)
{
    cycles(1000);
    EXPECT_THAT(target.events, testing::Not(IsEmpty()));
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
}

TEST_F(NativesUnderLoadTest, FrameComesAndGoesUnderFiringThreadsThatLog)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    cycles(20);
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
}

TEST_F(NativesUnderLoadTest, SinkThatEndsTheFrameLeavesItUntouched)
{
    for (int round = 0; round < 3; ++round) {
        GuardedFrame::create();
        target.onFire = [&](const std::string&) { CBeanFrame::deleteInstance(); };
        round == 0 ? customEvent("x") : round == 1 ? controlReady("x") : testBridge("x", 0);
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
        EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    }
    EXPECT_THAT(target.events, SizeIs(3));
}

TEST_F(NativesUnderLoadTest, WatchdogThatEndsTheFrameLeavesItUntouched)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    GuardedFrame::create();
    killClient();
    queue("", &FrameAccess::processWatchDogEvent, 15000);
    target.references = 2;
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    s_now += 15000;
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(lines().back(), "FINE <- processEventQueue ");
}

TEST_F(NativesUnderLoadTest, NothingIsLostAndNothingDoubled)
{
    FrameAccess::s_TickCount = GetTickCount;
    GuardedFrame::create();
    std::vector<std::thread> threads;
    std::set<std::string> expected;
    constexpr int EACH = 1000;
    for (int index = 0; index < 4; ++index) {
        for (int number = 0; number < EACH; ++number) {
            expected.insert("customEvent " + std::to_string(index) + "-" + std::to_string(number));
        }
        threads.emplace_back([&, index] {
            for (int number = 0; number < EACH; ++number) {
                customEvent((std::to_string(index) + "-" + std::to_string(number)).c_str());
            }
        });
    }
    while (target.events.size() < expected.size() && waitForMessage()) {
        takeMessages();
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    takeMessages();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, SizeIs(expected.size()));
    EXPECT_EQ(std::set<std::string>(target.events.begin(), target.events.end()), expected);
}

// The frame is not gone before a native that found it has returned.
TEST_F(NativesUnderLoadTest, DeletionWaitsForANativeThatUsesTheFrame)
{
    GuardedFrame::create();
    std::atomic<bool> isLocked = false;
    std::atomic<bool> isDeleted = false;
    bool wasDeletedMeanwhile = true;
    int usersMeanwhile = 0;
    std::thread holder;
    std::thread javaThread;
    // The queue was emptied, the frame is still there: now its lock keeps a native inside.
    java->insideVoidMethods = [&] {
        java->insideVoidMethods = nullptr;
        holder = std::thread([&] {
            const CComCritSecLock lock(FrameAccess::s_EventQueueLock);
            isLocked = true;
            while (std::atomic_ref(CBeanFrame::s_Instance).load()) {
                SwitchToThread();
            }
            // The deletion is in its wait, or past it when it does not wait.
            Sleep(20);
            wasDeletedMeanwhile = isDeleted;
            usersMeanwhile = FrameAccess::s_InstanceUsers;
        });
        while (!isLocked) {
            SwitchToThread();
        }
        javaThread = std::thread([&] { customEvent("inside"); });
        while (FrameAccess::s_InstanceUsers == 0) {
            SwitchToThread();
        }
    };
    CBeanFrame::deleteInstance();
    isDeleted = true;
    holder.join();
    javaThread.join();
    EXPECT_FALSE(wasDeletedMeanwhile);
    EXPECT_EQ(usersMeanwhile, 1);
    EXPECT_EQ(FrameAccess::s_InstanceUsers, 0);
}
