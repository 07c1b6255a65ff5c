// Natives on several threads while the frame comes and goes.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <thread>

using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A frame whose memory becomes inaccessible when it is deleted.
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

// Four threads that call the natives in turn, each as often as ordered, and then wait.
class FiringThreads
{
public:
    FiringThreads()
    {
        for (int index = 0; index < COUNT; ++index) {
            m_threads.emplace_back([this, index] { run(index); });
        }
    }
    ~FiringThreads()
    {
        m_ordered = -1;
        m_ordered.notify_all();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    FiringThreads(const FiringThreads&) = delete;
    FiringThreads& operator=(const FiringThreads&) = delete;

    // Lets each thread call `calls` more natives.
    void order(int calls)
    {
        m_ordered += calls;
        m_ordered.notify_all();
    }
    // Waits until the threads have returned from so many calls altogether.
    void waitFor(int returned) const
    {
        for (int now = m_returned; now < returned; now = m_returned) {
            m_returned.wait(now);
        }
    }

    static constexpr int COUNT = 4;

private:
    void run(int index)
    {
        for (int called = 0;; ++called) {
            m_ordered.wait(called);
            if (m_ordered < 0) {
                return;
            }
            const jstring text = NativeEnvironment::text("event");
            if ((called + index) % 3 == 0) {
                CBeanFrame::NativeOnControlReady(m_environment.env(), nullptr, text);
            } else if ((called + index) % 3 == 1) {
                CBeanFrame::NativeOnCustomEvent(m_environment.env(), nullptr, text);
            } else {
                CBeanFrame::NativeTestBridgeEvent(m_environment.env(), nullptr, text, 0);
            }
            ++m_returned;
            m_returned.notify_all();
        }
    }

    NativeEnvironment m_environment;
    std::atomic<int> m_ordered = 0; // calls of each thread; negative ends them
    std::atomic<int> m_returned = 0;
    std::vector<std::thread> m_threads;
};

// Executes the code of the calling thread instruction by instruction, from construction until stop().
class SingleSteps
{
public:
    // `atStep` is called with the number of the instruction that comes next.
    explicit SingleSteps(void (*atStep)(int step))
        : m_handler(AddVectoredExceptionHandler(1, handle))
    {
        s_atStep = atStep;
        s_step = 0;
        s_isStepping = true;
        asm volatile("pushfq; orq $0x100, (%%rsp); popfq" ::: "cc", "memory");
    }
    ~SingleSteps() { RemoveVectoredExceptionHandler(m_handler); }
    SingleSteps(const SingleSteps&) = delete;
    SingleSteps& operator=(const SingleSteps&) = delete;

    static void stop() { s_isStepping = false; }

private:
    static constexpr DWORD TRAP_FLAG = 0x100;

    static LONG CALLBACK handle(EXCEPTION_POINTERS* exception)
    {
        if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_SINGLE_STEP) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        DWORD& flags = exception->ContextRecord->EFlags;
        flags = s_isStepping ? flags | TRAP_FLAG : flags & ~TRAP_FLAG;
        s_atStep(s_step++);
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static inline void (*s_atStep)(int step);
    static inline int s_step;
    static inline volatile bool s_isStepping;
    void* m_handler;
};

} // namespace

class NativesUnderLoadTest : public BeanFrameWorld
{
protected:
    void SetUp() override
    {
        java.emplace();
        Logger::setMaxLogLevel(-1);
        GuardedFrame::create();
    }
    // In each cycle a frame is created, the threads call their natives, and the frame is deleted. The threads' orders limit the
    // queue's length, however slowly it is emptied. Pass and deletion happen at a different moment of the calls each time.
    void cycles(int count)
    {
        constexpr int CALLS = 3;
        CBeanFrame::deleteInstance();
        FiringThreads threads;
        for (int cycle = 0; cycle < count; ++cycle) {
            const int before = cycle * CALLS * FiringThreads::COUNT;
            threads.order(CALLS);
            threads.waitFor(before + cycle % 5);
            GuardedFrame::create();
            FrameAccess::s_MainThreadId = 0; // no message is posted
            threads.waitFor(before + 1 + cycle % 11);
            EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
            CBeanFrame::deleteInstance();
            EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
            threads.waitFor(before + CALLS * FiringThreads::COUNT);
        }
    }
};

TEST_F(NativesUnderLoadTest, FrameComesAndGoesUnderFiringThreads)
{
    cycles(2000);
    EXPECT_THAT(target.events, testing::Not(IsEmpty()));
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
}

TEST_F(NativesUnderLoadTest, FrameComesAndGoesUnderFiringThreadsThatLog)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    cycles(20);
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
}

TEST_F(NativesUnderLoadTest, SinkThatEndsTheFrameEndsThePassAndLeavesTheFrameUntouched)
{
    target.onFire = [&](const std::string&) { CBeanFrame::deleteInstance(); };
    for (const FrameAccess::Handler handler :
         {&FrameAccess::processOnControlReady, &FrameAccess::processOnCustomEvent, &FrameAccess::processTestBridgeEvent}) {
        queue("last", handler);
        queue("dropped");
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
        EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
        EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
        GuardedFrame::create();
    }
    EXPECT_THAT(target.events, testing::ElementsAre("controlReady last", "customEvent last", "testBridgeEvent last"));
}

TEST_F(NativesUnderLoadTest, WatchdogThatEndsTheFrameLeavesItUntouched)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    killClient();
    queue("", &FrameAccess::processWatchDogEvent);
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(lines().back(), "FINE <- processEventQueue ");
}

TEST_F(NativesUnderLoadTest, NothingIsLostAndNothingDoubled)
{
    FrameAccess::s_TickCount = GetTickCount;
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
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, SizeIs(expected.size()));
    EXPECT_EQ(std::set<std::string>(target.events.begin(), target.events.end()), expected);
}

// The frame is not deleted before a native that found it has returned.
TEST_F(NativesUnderLoadTest, DeletionWaitsForANativeThatUsesTheFrame)
{
    static std::atomic<bool> s_isReleased;
    static std::atomic<int> s_waits;
    s_isReleased = false;
    s_waits = 0;
    std::atomic<bool> isUsed = false;
    std::thread javaThread([&] {
        const FrameAccess::InstanceUse use;
        isUsed = true;
        isUsed.notify_all();
        s_isReleased.wait(false);
    });
    isUsed.wait(false);
    {
        const ImportHook<decltype(&SwitchToThread)> wait("SwitchToThread", []() -> BOOL {
            EXPECT_EQ(CBeanFrame::s_Instance, nullptr) << "newcomers find no frame";
            ++s_waits;
            s_isReleased = true;
            s_isReleased.notify_all();
            return ImportHook<decltype(&SwitchToThread)>::s_original();
        });
        CBeanFrame::deleteInstance();
    }
    EXPECT_GT(s_waits, 0);
    s_isReleased = true;
    s_isReleased.notify_all();
    javaThread.join();
}

// The destructor clears the pointer and then reads the count. No matter at which instruction of a beginning use it does so,
// either it sees the count, or the use finds no frame.
TEST_F(NativesUnderLoadTest, BeginningUseIsCountedOrFindsNoFrame)
{
    static int s_clearedAt;
    static int s_usersThen;
    CBeanFrame* const guarded = CBeanFrame::s_Instance;
    bool hasHappened = true;
    for (s_clearedAt = 0; hasHappened; ++s_clearedAt) {
        s_usersThen = -1;
        CBeanFrame* found = nullptr;
        {
            const SingleSteps steps([](int step) {
                if (step == s_clearedAt) {
                    CBeanFrame::s_Instance = nullptr;
                    s_usersThen = FrameAccess::s_InstanceUsers;
                }
            });
            const FrameAccess::InstanceUse use;
            found = use.get();
            SingleSteps::stop();
        }
        hasHappened = s_usersThen >= 0;
        EXPECT_TRUE(found == nullptr || s_usersThen != 0) << "instruction " << s_clearedAt;
        CBeanFrame::s_Instance = guarded;
    }
    EXPECT_GT(s_clearedAt, 10);
    EXPECT_EQ(FrameAccess::s_InstanceUsers, 0);
}
