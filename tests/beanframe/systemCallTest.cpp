// What the queue asks of Windows, with every argument, and what happens when Windows refuses.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <mutex>
#include <set>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using PostHook = ImportHook<decltype(&PostThreadMessageA)>;
using TimerHook = ImportHook<decltype(&CreateTimerQueueTimer)>;
using AllocateHook = ImportHook<decltype(&SysAllocStringLen)>;
using FreeHook = ImportHook<decltype(&SysFreeString)>;

// Captured before any test could set another one.
DWORD(WINAPI* const s_clockOfTheStart)() = FrameAccess::s_TickCount;

struct Post
{
    DWORD thread;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    bool operator==(const Post&) const = default;
};

struct Timer
{
    HANDLE queue;
    WAITORTIMERCALLBACK callback;
    void* parameter;
    DWORD due;
    DWORD period;
    ULONG flags;
    bool operator==(const Timer&) const = default;
};

std::mutex s_mutex;
std::vector<Post> s_posts;
std::vector<Timer> s_timers;
BOOL s_answer = TRUE;
std::set<BSTR> s_texts;
int s_allocationsLeft = 0;

BOOL WINAPI notePost(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam)
{
    const std::lock_guard lock(s_mutex);
    s_posts.push_back({thread, message, wParam, lParam});
    SetLastError(s_answer ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_QUOTA);
    return s_answer;
}

BOOL WINAPI noteTimer(HANDLE* timer, HANDLE queue, WAITORTIMERCALLBACK callback, void* parameter, DWORD due, DWORD period,
                      ULONG flags)
{
    EXPECT_NE(timer, nullptr);
    s_timers.push_back({queue, callback, parameter, due, period, flags});
    SetLastError(s_answer ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
    return s_answer;
}

BSTR WINAPI countAllocation(const OLECHAR* text, UINT length)
{
    if (s_allocationsLeft == 0) {
        return nullptr;
    }
    --s_allocationsLeft;
    const BSTR result = AllocateHook::s_original(text, length);
    s_texts.insert(result);
    return result;
}

void WINAPI countFree(BSTR text)
{
    s_texts.erase(text);
    FreeHook::s_original(text);
}

} // namespace

class QueueSystemCallsTest : public BeanFrameWorld
{
protected:
    void SetUp() override
    {
        createFrame();
        s_posts.clear();
        s_timers.clear();
        s_answer = TRUE;
    }
    static Post post() { return {GetCurrentThreadId(), 32771, 0, 0}; }
    // On the default timer queue, without parameter, fired once.
    static Timer timer(DWORD due) { return {nullptr, &FrameAccess::timerRoutine, nullptr, due, 0, 8}; }
    void native(const char* text, jint delay)
    {
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, NativeEnvironment::text(text), delay);
    }
};

TEST_F(QueueSystemCallsTest, ClockIsGetTickCount)
{
    const ImportHook<decltype(&GetTickCount)> hook("GetTickCount", []() -> DWORD { return 0xFFFF4711; });
    EXPECT_EQ(s_clockOfTheStart(), 0xFFFF4711);
}

// The queue's lock is one of this kind, made before any bean frame exists.
TEST_F(QueueSystemCallsTest, LockIsMadeWithoutSpinningAndFlags)
{
    static std::vector<DWORD> s_arguments;
    const ImportHook<decltype(&InitializeCriticalSectionEx)> hook(
        "InitializeCriticalSectionEx", [](LPCRITICAL_SECTION section, DWORD spins, DWORD flags) -> BOOL {
            s_arguments.insert(s_arguments.end(), {spins, flags});
            return ImportHook<decltype(&InitializeCriticalSectionEx)>::s_original(section, spins, flags);
        });
    const CComAutoCriticalSection section;
    EXPECT_THAT(s_arguments, ElementsAre(0, 0));
    EXPECT_TRUE(isQueueUnlocked());
}

TEST_F(QueueSystemCallsTest, EventsWithoutDelayArePostedAtOnceToTheMainThreadAndStartNoTimer)
{
    const PostHook postHook("PostThreadMessageA", notePost);
    const TimerHook timerHook("CreateTimerQueueTimer", noteTimer);
    std::thread([&] {
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text("a"));
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("b"));
        native("c", 0);
    }).join();
    EXPECT_THAT(s_posts, ElementsAre(post(), post(), post()));
    EXPECT_THAT(s_timers, IsEmpty());
}

TEST_F(QueueSystemCallsTest, DelayedEventsStartOneTimerEachAndPostNothing)
{
    const PostHook postHook("PostThreadMessageA", notePost);
    const TimerHook timerHook("CreateTimerQueueTimer", noteTimer);
    native("a", 1);
    native("b", 500);
    native("c", -1);
    EXPECT_EQ(frame().pushWindowHandle(0), S_OK);
    EXPECT_THAT(s_timers, ElementsAre(timer(1), timer(500), timer(0xFFFFFFFF), timer(15000)));
    EXPECT_THAT(s_posts, IsEmpty());
}

TEST_F(QueueSystemCallsTest, SuspendedEventsNeitherPostNorStartATimer)
{
    const PostHook postHook("PostThreadMessageA", notePost);
    const TimerHook timerHook("CreateTimerQueueTimer", noteTimer);
    frame().*& FrameAccess::eventsSuspended = true;
    native("a", 0);
    native("b", 500);
    EXPECT_THAT(s_posts, IsEmpty());
    EXPECT_THAT(s_timers, IsEmpty());
}

TEST_F(QueueSystemCallsTest, RefusalsOfWindowsAreNotNoticed)
{
    const PostHook postHook("PostThreadMessageA", notePost);
    const TimerHook timerHook("CreateTimerQueueTimer", noteTimer);
    s_answer = FALSE;
    queue("a", &FrameAccess::processOnCustomEvent, 0);
    queue("b", &FrameAccess::processOnCustomEvent, 70);
    FrameAccess::timerRoutine(nullptr, TRUE);
    EXPECT_THAT(s_posts, ElementsAre(post(), post())) << "not tried again";
    EXPECT_THAT(s_timers, ElementsAre(timer(70)));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(2)) << "they wait for the next message";
    const std::string first = address(FrameAccess::s_EventQueue.front());
    const std::string second = address(FrameAccess::s_EventQueue.back());
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + object() + "queueEvent 0", "TRACE " + object() + "queued new event: " + first,
                                     "FINE <- " + object() + "queueEvent 0", "FINE -> " + object() + "queueEvent 70",
                                     "TRACE " + object() + "queued new event: " + second, "FINE <- " + object() + "queueEvent 70",
                                     "FINE -> timerRoutine ", "FINE <- timerRoutine "));
}

TEST_F(QueueSystemCallsTest, TimerRoutineIgnoresItsArgumentsAndLeavesTheQueueAlone)
{
    queue("waiting", &FrameAccess::processOnCustomEvent, 0);
    takeMessages();
    const PostHook postHook("PostThreadMessageA", notePost);
    for (const bool fired : {false, true}) {
        std::thread([fired] { FrameAccess::timerRoutine(reinterpret_cast<void*>(0x10), fired); }).join();
    }
    EXPECT_THAT(s_posts, ElementsAre(post(), post()));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(QueueSystemCallsTest, NothingOfAnEventIsLeftOnceItIsProcessed)
{
    s_texts.clear();
    s_allocationsLeft = 1000;
    const AllocateHook allocateHook("SysAllocStringLen", countAllocation);
    const FreeHook freeHook("SysFreeString", countFree);
    CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text("a"));
    CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("b"));
    native("c", 0);
    EXPECT_THAT(s_texts, SizeIs(3)) << "the callbacks have released theirs";
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, SizeIs(3));
    EXPECT_THAT(s_texts, IsEmpty());
    EXPECT_LT(s_allocationsLeft, 1000);
}

TEST_F(QueueSystemCallsTest, ExhaustedMemoryForATextIsRaisedAndQueuesNothing)
{
    const CComBSTR text(L"text");
    s_allocationsLeft = 0;
    const AllocateHook allocateHook("SysAllocStringLen", countAllocation);
    const PostHook postHook("PostThreadMessageA", notePost);
    const auto failure = [&](auto call) {
        try {
            call();
            return S_OK;
        } catch (const CAtlException& error) {
            return error.m_hr;
        }
    };
    EXPECT_EQ(failure([&] { (frame().*&FrameAccess::queueEvent)(text, &FrameAccess::processOnCustomEvent, 0); }), E_OUTOFMEMORY);
    EXPECT_TRUE(isQueueUnlocked());
    EXPECT_EQ(failure([&] { frame().enqueueOnControlReady(text); }), E_OUTOFMEMORY);
    EXPECT_EQ(failure([&] { frame().enqueueOnCustomEvent(text); }), E_OUTOFMEMORY);
    EXPECT_EQ(failure([&] { frame().enqueueTestBridgeEvent(text, 5); }), E_OUTOFMEMORY);
    // A native lets nothing unwind into Java.
    native("text", 0);
    EXPECT_THAT(linesWith(lines(), "WARN"), ElementsAre("WARN Dropped event: " + getWindowsErrorText(0x8007000E)));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(FrameAccess::s_EventIndex, IsEmpty());
    EXPECT_THAT(s_posts, IsEmpty());
}
