// The event queue: its calls of Windows, which entry is processed next, and what a handler may do.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <array>
#include <format>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using AllocateHook = ImportHook<decltype(&SysAllocStringLen)>;
using FreeHook = ImportHook<decltype(&SysFreeString)>;
using PeekHook = ImportHook<decltype(&PeekMessageA)>;
using OutputHook = ImportHook<decltype(&OutputDebugStringA)>;
using PostHook = ImportHook<decltype(&PostThreadMessageA)>;
using TimerHook = ImportHook<decltype(&CreateTimerQueueTimer)>;
using DeleteTimerHook = ImportHook<decltype(&DeleteTimerQueueTimer)>;

// Read before a test can replace it.
DWORD(WINAPI* const s_clockOfTheStart)() = FrameAccess::s_TickCount;

std::mutex s_mutex;
std::vector<std::string> s_calls;
bool s_answer = true;
bool s_areTimersReal = false;
UINT_PTR s_timers = 0;
std::set<BSTR> s_texts;
int s_allocationsLeft = 0;

void note(const std::string& call)
{
    EXPECT_FALSE(isQueueLocked());
    const std::lock_guard lock(s_mutex);
    s_calls.push_back(call);
}

BOOL WINAPI notePost(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam)
{
    note(std::format("post {} {} {}{}", message, wParam, lParam, thread == FrameAccess::s_MainThreadId ? "" : " elsewhere"));
    return s_answer ? PostHook::s_original(thread, message, wParam, lParam) : FALSE;
}

// Most tests move the clock themselves: no timer starts.
BOOL WINAPI noteTimer(HANDLE* timer, HANDLE queue, WAITORTIMERCALLBACK callback, void* parameter, DWORD due, DWORD period,
                      ULONG flags)
{
    EXPECT_NE(timer, nullptr);
    EXPECT_EQ(queue, nullptr) << "the default timer queue";
    EXPECT_EQ(callback, &FrameAccess::timerRoutine);
    EXPECT_EQ(parameter, nullptr);
    note(std::format("timer {} {} {}", due, period, flags));
    if (s_areTimersReal) {
        return TimerHook::s_original(timer, queue, callback, parameter, due, period, flags);
    }
    *timer = s_answer ? reinterpret_cast<HANDLE>(++s_timers) : nullptr;
    return BOOL{s_answer};
}

BOOL WINAPI noteDeletion(HANDLE queue, HANDLE timer, HANDLE event)
{
    EXPECT_EQ(queue, nullptr);
    EXPECT_EQ(event, nullptr) << "nobody waits for a routine that is running";
    if (s_areTimersReal) {
        return DeleteTimerHook::s_original(queue, timer, event);
    }
    note(std::format("delete {}", reinterpret_cast<UINT_PTR>(timer)));
    return TRUE;
}

BSTR WINAPI countAllocation(const OLECHAR* text, UINT length)
{
    if (s_allocationsLeft == 0) {
        return nullptr;
    }
    --s_allocationsLeft;
    return *s_texts.insert(AllocateHook::s_original(text, length)).first;
}

void WINAPI countFree(BSTR text)
{
    s_texts.erase(text);
    FreeHook::s_original(text);
}

} // namespace

class EventQueueTest : public BeanFrameWorld
{
protected:
    void SetUp() override
    {
        createFrame();
        takeCalls();
        s_answer = true;
        s_areTimersReal = false;
        s_timers = 0;
    }
    static std::vector<std::string> takeCalls() { return std::exchange(s_calls, {}); }
    // Queued when the clock shows `queuedAt`.
    static void custom(const char* text, DWORD queuedAt, DWORD delay = 0)
    {
        s_now = queuedAt;
        queue(text, &FrameAccess::processOnCustomEvent, delay);
    }
    void testBridge(const char* text, jint delay)
    {
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, NativeEnvironment::text(text), delay);
    }

    static inline const std::string POST = "post 32771 0 0";
    const PostHook postHook{"PostThreadMessageA", notePost};
    const TimerHook timerHook{"CreateTimerQueueTimer", noteTimer};
    const DeleteTimerHook deleteTimerHook{"DeleteTimerQueueTimer", noteDeletion};
};

TEST_F(EventQueueTest, ClockIsGetTickCount)
{
    using Hook = ImportHook<decltype(&GetTickCount)>;
    const Hook hook("GetTickCount", []() -> DWORD { return 0xFFFF4711; });
    // The address of the function itself, or that of a jump through the table of imports: compilers differ.
    EXPECT_TRUE(s_clockOfTheStart == Hook::s_original || s_clockOfTheStart() == 0xFFFF4711);
}

TEST_F(EventQueueTest, WithoutDelayOneMessageIsPostedAtOnceFromAnyThread)
{
    std::thread([&] {
        customEvent("a");
        testBridge("b", 0);
    }).join();
    EXPECT_THAT(takeCalls(), ElementsAre(POST, POST));
}

TEST_F(EventQueueTest, WithDelayOneTimerIsStartedWhichFiresOnce)
{
    testBridge("a", 1);
    testBridge("b", 500);
    testBridge("c", -1);
    EXPECT_EQ(frame().pushWindowHandle(0), S_OK);
    EXPECT_THAT(takeCalls(), ElementsAre("timer 1 0 8", "timer 500 0 8", "timer 4294967295 0 8", "timer 15000 0 8"));
}

TEST_F(EventQueueTest, TimerRoutinePostsAndLeavesTheQueueAlone)
{
    custom("waiting", 1000);
    takeCalls();
    stream.clear();
    FrameAccess::timerRoutine(nullptr, TRUE);
    std::thread([] { FrameAccess::timerRoutine(reinterpret_cast<void*>(0x10), FALSE); }).join();
    EXPECT_THAT(takeCalls(), ElementsAre(POST, POST));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> timerRoutine ", "FINE <- timerRoutine ", "FINE -> timerRoutine ", "FINE <- timerRoutine "));
}

TEST_F(EventQueueTest, RefusalsOfWindowsAreNotNoticed)
{
    s_answer = false;
    custom("a", 1000);
    custom("b", 1000, 70);
    EXPECT_THAT(takeCalls(), ElementsAre(POST, "timer 70 0 8")) << "not tried again";
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(2)) << "they wait for the next message";
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> @frame queueEvent 0", "TRACE @frame queued new event: #1", "FINE <- @frame queueEvent 0",
                            "FINE -> @frame queueEvent 70", "TRACE @frame queued new event: #2", "FINE <- @frame queueEvent 70"));
}

TEST_F(EventQueueTest, DelayIsWaitedForByATimerOfWindows)
{
    FrameAccess::s_TickCount = GetTickCount;
    const DWORD queued = GetTickCount();
    s_areTimersReal = true;
    queue("delayed", &FrameAccess::processTestBridgeEvent, 200);
    // More than one message when the timer ran ahead of the clock.
    while (target.events.empty() && waitForMessage()) {
        takeMessages();
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    }
    EXPECT_GE(GetTickCount() - queued, 200u);
    EXPECT_THAT(target.events, ElementsAre("testBridgeEvent delayed"));
}

// Otherwise another thread could see an entry's line before the entry, or its removal before the line about that.
TEST_F(EventQueueTest, LinesOfTheQueueAreWrittenUnderItsLock)
{
    static std::vector<std::string> s_locked;
    s_locked.clear();
    {
        const OutputHook hook("OutputDebugStringA", [](LPCSTR text) {
            if (isQueueLocked()) {
                s_locked.emplace_back(text);
            }
            OutputHook::s_original(text);
        });
        custom("future", 1000, 60000);
        custom("now", 1000);
        EXPECT_EQ(processAt(1000), S_OK);
    }
    ASSERT_THAT(s_locked, SizeIs(5));
    for (size_t index = 0;
         const char* part : {"queued new event", "queued new event", "not yet expired", "removing", "not yet"}) {
        EXPECT_THAT(s_locked[index++], testing::HasSubstr(part));
    }
}

TEST_F(EventQueueTest, EntriesAreLoggedByTheirAddress)
{
    custom("text", 1000);
    std::ostringstream address;
    address << static_cast<const void*>(FrameAccess::s_EventQueue.back());
    EXPECT_TRUE(stream.lines().at(1).body.ends_with("queued new event: " + address.str()));
}

TEST_F(EventQueueTest, SameTickComesInQueuingOrderFromOneMessage)
{
    custom("one", 1000);
    custom("two", 1000);
    custom("three", 1000);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent one", "customEvent two", "customEvent three"));
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE <- processEventQueue ")) << "of the next message";
}

TEST_F(EventQueueTest, OfOverdueEntriesTheLatestDueComesFirst)
{
    custom("due 30000", 1000, 29000);
    custom("due 50000", 1000, 49000);
    custom("due 40000", 1000, 39000);
    custom("due 50000 too", 2000, 48000);
    EXPECT_EQ(processAt(60000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent due 50000", "customEvent due 50000 too", "customEvent due 40000",
                                           "customEvent due 30000"));
}

// Future entries are named in queuing order, once in each pass, due ones not at all.
TEST_F(EventQueueTest, ClockIsReadOnceForEachEntryQueuedAndOnceForEachPass)
{
    FrameAccess::s_TickCount = []() -> DWORD { return s_now++; };
    queue("first", &FrameAccess::processOnCustomEvent, 60000);  // due 61000
    queue("second", &FrameAccess::processOnCustomEvent, 30000); // due 31001
    queue("now");                                               // due 1002
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(linesWith(lines(), "FINE QueueEntry"),
                ElementsAre("FINE QueueEntry not yet expired (61000>1003)", "FINE QueueEntry not yet expired (31001>1003)",
                            "FINE QueueEntry #1 expired, removing from queue (1002<=1003)",
                            "FINE QueueEntry not yet expired (61000>1004)", "FINE QueueEntry not yet expired (31001>1004)"));
    EXPECT_EQ(lines().at(lines().size() - 2), "FINE could not find QueueEntry to process");
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(2));
}

TEST_F(EventQueueTest, ClockMayWrap)
{
    custom("wrapped", 0xFFFFFFF6, 100);
    stream.clear();
    EXPECT_EQ(processAt(0), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE QueueEntry not yet expired (90>0)",
                                     "FINE could not find QueueEntry to process", "FINE <- processEventQueue "));
    EXPECT_EQ(processAt(89), S_OK);
    EXPECT_THAT(target.events, IsEmpty());
    custom("before", 0xFFFFFFFE);
    stream.clear();
    EXPECT_EQ(processAt(90), S_OK);
    EXPECT_EQ(lines().at(1), "FINE QueueEntry #1 expired, removing from queue (90<=90)");
    EXPECT_THAT(target.events, ElementsAre("customEvent wrapped", "customEvent before"));
}

TEST_F(EventQueueTest, LongOverdueEntriesAreDueButNeverChosen)
{
    constexpr DWORD NOW = 0x90000000;
    custom("still chosen", NOW - 0x7FFFFFFE);
    custom("never", NOW - 0x7FFFFFFF);
    custom("never either", NOW - 0x80000000);
    custom("future", NOW - 0x80000001);
    stream.clear();
    EXPECT_EQ(processAt(NOW), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent still chosen"));
    const std::string future = "FINE QueueEntry not yet expired (268435455>2415919104)";
    EXPECT_THAT(linesWith(lines(), "not yet expired"), ElementsAre(future, future)) << "once in each of the two passes";

    // The future one lies 0x7FFFFFFF ahead: it comes when it is due, and by then the other two look like future ones.
    EXPECT_EQ(processAt(0x0FFFFFFF), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent still chosen", "customEvent future"));
}

namespace {

// The rule itself: looks at every entry, in queuing order.
FrameAccess::QueueEntry* plainScan(DWORD now)
{
    DWORD best = 0x7FFFFFFF;
    FrameAccess::QueueEntry* chosen = nullptr;
    for (FrameAccess::QueueEntry* const entry : FrameAccess::s_EventQueue) {
        const DWORD elapsed = now - entry->dueTime;
        const DWORD ahead = entry->dueTime - now;
        if (elapsed <= ahead && elapsed < best) {
            best = elapsed;
            chosen = entry;
        }
    }
    return chosen;
}

} // namespace

TEST_F(EventQueueTest, ChoiceEqualsAPlainScanForRandomQueues)
{
    Logger::setMaxLogLevel(-1);
    std::mt19937 random(20261121);
    constexpr std::array<DWORD, 8> CORNERS = {0, 1, 0x7FFFFFFD, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF};
    int chosen = 0;
    int none = 0;
    for (int round = 0; round < 5000; ++round) {
        const DWORD base = round % 3 == 0 ? 0 : round % 3 == 1 ? 0xFFFFFFF0 : static_cast<DWORD>(random());
        for (size_t count = random() % 12; count > 0; --count) {
            // At the edges of the rule, near each other (ties), or anywhere. Neither timers nor messages are real here.
            const DWORD offset = random() % 3 == 0   ? CORNERS[random() % CORNERS.size()]
                                 : random() % 2 == 0 ? static_cast<DWORD>(random()) % 6 - 3
                                                     : static_cast<DWORD>(random());
            custom("", base + offset - 1, 1);
        }
        const DWORD now = base + static_cast<DWORD>(random()) % 4;
        while (!FrameAccess::s_EventQueue.empty()) {
            FrameAccess::QueueEntry* const expected = plainScan(now);
            ASSERT_EQ(FrameAccess::findDueEntry(now), expected) << "round " << round;
            none += expected == nullptr ? 1 : 0;
            chosen += expected == nullptr ? 0 : 1;
            FrameAccess::QueueEntry* const gone = expected == nullptr ? FrameAccess::s_EventQueue.front() : expected;
            FrameAccess::s_EventQueue.erase(gone->place);
            FrameAccess::s_EventIndex.erase(gone->indexPlace);
            delete gone;
        }
    }
    EXPECT_GT(chosen, 10000);
    EXPECT_GT(none, 1000);
}

// A Java int of -1 is a delay of 2^32 - 1 ms: due one millisecond ago, with a timer that never fires.
TEST_F(EventQueueTest, NegativeDelayIsDueAtOnceAndWaitsForTheNextMessage)
{
    testBridge("minus one", -1);
    EXPECT_THAT(linesWith(lines(), "FINE -> @frame enqueue"),
                ElementsAre("FINE -> @frame enqueueTestBridgeEvent minus onejs,4294967295"));
    EXPECT_THAT(linesWith(lines(), "FINE -> @frame queue"), ElementsAre("FINE -> @frame queueEvent 4294967295"));
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("testBridgeEvent minus onejs"));
}

// Timers may advance in smaller steps than the queue's clock: the message may arrive a step before the entry is due.
TEST_F(EventQueueTest, TimerThatRanAheadOfTheClockIsFollowedByAnother)
{
    custom("near", 0xFFFFFFF8, 17); // due 9
    for (const auto& [now, calls] : std::initializer_list<std::pair<DWORD, std::vector<std::string>>>{
             {0xFFFFFFF8, {}},
             {0xFFFFFFF9, {"timer 16 0 8"}},
             {0xFFFFFFFF, {"timer 10 0 8"}},
             {8, {"timer 1 0 8"}},
             {9, {"delete 4", "delete 3", "delete 2", "delete 1"}}}) {
        takeCalls();
        EXPECT_THAT(target.events, IsEmpty());
        EXPECT_EQ(processAt(now), S_OK);
        EXPECT_EQ(takeCalls(), calls);
    }
    EXPECT_THAT(target.events, ElementsAre("customEvent near"));
}

TEST_F(EventQueueTest, SuspendedEventsAreDiscardedSilently)
{
    frame().*& FrameAccess::eventsSuspended = true;
    custom("discarded", 1000);
    custom("discarded", 1000, 5);
    EXPECT_THAT(lines(), ElementsAre("FINE -> @frame queueEvent 0", "FINE <- @frame queueEvent 0", "FINE -> @frame queueEvent 5",
                                     "FINE <- @frame queueEvent 5"));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(EventQueueTest, TextOfAnEntryIsACopy)
{
    const CComBSTR text(L"before");
    (frame().*&FrameAccess::queueEvent)(text, &FrameAccess::processOnCustomEvent, 0);
    text.m_str[0] = L'X';
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent before"));
}

TEST_F(EventQueueTest, NothingOfAnEventIsLeftOnceItIsProcessed)
{
    s_texts.clear();
    s_allocationsLeft = 1000;
    const AllocateHook allocateHook("SysAllocStringLen", countAllocation);
    const FreeHook freeHook("SysFreeString", countFree);
    customEvent("a");
    testBridge("b", 0);
    EXPECT_THAT(s_texts, SizeIs(2)) << "the natives have released theirs";
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, SizeIs(2));
    EXPECT_THAT(s_texts, IsEmpty());
}

TEST_F(EventQueueTest, ExhaustedMemoryForATextIsRaisedAndQueuesNothing)
{
    const CComBSTR text(L"text");
    s_allocationsLeft = 0;
    const AllocateHook allocateHook("SysAllocStringLen", countAllocation);
    const auto failure = [&](auto call) {
        return AtlGuard([&] {
            call();
            return S_OK;
        });
    };
    EXPECT_EQ(failure([&] { (frame().*&FrameAccess::queueEvent)(text, &FrameAccess::processOnCustomEvent, 0); }), E_OUTOFMEMORY);
    EXPECT_FALSE(isQueueLocked());
    EXPECT_EQ(failure([&] { frame().enqueueOnControlReady(text); }), E_OUTOFMEMORY);
    EXPECT_EQ(failure([&] { frame().enqueueOnCustomEvent(text); }), E_OUTOFMEMORY);
    EXPECT_EQ(failure([&] { frame().enqueueTestBridgeEvent(text, 5); }), E_OUTOFMEMORY);
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(FrameAccess::s_EventIndex, IsEmpty());
    EXPECT_THAT(takeCalls(), IsEmpty());
}

// COM calls a sink from its own message loop, which may come back to the queue.
TEST_F(EventQueueTest, PassInsideASinkTakesWhatIsLeftAndWhatTheSinkQueuedAndNothingTwice)
{
    target.onFire = [&](const std::string& event) {
        if (event == "customEvent outer") {
            custom("inner", 1000);
            EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
            custom("after", 1000);
        }
    };
    custom("outer", 1000);
    custom("next", 1000);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent outer", "customEvent next", "customEvent inner", "customEvent after"));
}

TEST_F(EventQueueTest, SwallowedMessageIsPostedAnew)
{
    custom("waiting", 1000);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), ElementsAre(POST)) << "not while one is queued";
    EXPECT_THAT(takeMessages(), ElementsAre(32771)); // as a foreign modal loop does
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), ElementsAre(POST));

    // A message that is posted during a pass is not served by it.
    target.onFire = [&](const std::string&) {
        queue("", &FrameAccess::processWatchDogEvent);
        takeMessages(); // the loop in which COM waits for the sink
        takeCalls();
    };
    EXPECT_EQ(processAt(1000), S_OK);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), ElementsAre("timer 15000 0 8", POST));
}

// On Windows a burst would fill the thread's queue, through which COM's calls arrive.
TEST_F(EventQueueTest, PassLeavesNoMessageOfItsOwnBehind)
{
    for (int number = 0; number < 500; ++number) {
        custom("burst", 1000);
    }
    PostHook::s_original(GetCurrentThreadId(), WM_APP + 4, 0, 0);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, SizeIs(500));
    EXPECT_THAT(takeMessages(), ElementsAre(WM_APP + 4)) << "other messages stay";
    takeCalls();
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(EventQueueTest, EventOfWhichThePassTookTheMessageOnlyGetsAnother)
{
    for (const auto& [delay, calls, messages] : {std::tuple{DWORD{0}, std::vector{POST, POST}, std::vector<UINT>{32771}},
                                                 {DWORD{16}, {std::string("timer 16 0 8"), std::string("timer 16 0 8")}, {}},
                                                 {DWORD{17}, {std::string("timer 17 0 8")}, {}}}) {
        custom("first", 1000);
        takeCalls();
        bool isQueued = false;
        {
            const PeekHook hook("PeekMessageA", [&](LPMSG message, HWND window, UINT first, UINT last, UINT flags) -> BOOL {
                if (!std::exchange(isQueued, true)) {
                    custom("second", 1000, delay);
                }
                return PeekHook::s_original(message, window, first, last, flags);
            });
            EXPECT_EQ(processAt(1000), S_OK);
        }
        EXPECT_EQ(takeCalls(), calls) << delay;
        EXPECT_EQ(takeMessages(), messages) << delay;
        EXPECT_EQ(processAt(1000 + delay), S_OK);
        EXPECT_THAT(std::exchange(target.events, {}), ElementsAre("customEvent first", "customEvent second"));
        takeCalls();
    }
}

// Calls come in between, the release of the object among them.
TEST_F(EventQueueTest, EventsThatComeFasterThanTheyAreFiredAreLeftToAnotherMessage)
{
    target.onFire = [&](const std::string&) { custom("next", s_now + 500); };
    custom("first", 1000);
    takeCalls();
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, SizeIs(3)) << "due at 1000, 1500 and 2000";
    EXPECT_THAT(takeMessages(), ElementsAre(32771));
    target.onFire = nullptr;
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, SizeIs(4));
    EXPECT_THAT(takeMessages(), IsEmpty());
}

// Another modal loop may have swallowed all messages.
TEST_F(EventQueueTest, EventsThatAreLeftGetAMessageOfTheirOwn)
{
    target.onFire = [&](const std::string&) {
        custom("next", s_now + 1001);
        takeMessages();
    };
    custom("first", 1000);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, SizeIs(1));
    EXPECT_THAT(takeMessages(), ElementsAre(32771));
}

TEST_F(EventQueueTest, RemovalTakesNoMoreMessagesThanAQueueHolds)
{
    int calls = 0;
    const PeekHook hook("PeekMessageA", [&](LPMSG message, HWND, UINT, UINT, UINT) -> BOOL {
        ++calls;
        message->message = WM_PROCESSEVENTQUEUE;
        return TRUE;
    });
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_EQ(calls, 10000);
}

TEST_F(EventQueueTest, EndOfTheMessageLoopIsNotRemoved)
{
    custom("first", 1000);
    PostQuitMessage(7);
    EXPECT_EQ(processAt(1000), S_OK);
    MSG message = {};
    EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), FALSE);
    EXPECT_EQ(message.wParam, 7u);
}

// Windows keeps the memory of a timer that fired until it is deleted.
TEST_F(EventQueueTest, TimersAreDeletedOnceTheyAreDue)
{
    custom("1", 1000, 70);
    custom("2", 1000, 5);
    custom("3", 1000, 0x80000001); // never chosen now, and due in 25 days
    s_answer = false;
    custom("without timer", 1000, 60);
    takeCalls();
    EXPECT_EQ(processAt(1004), S_OK);
    EXPECT_THAT(takeCalls(), ElementsAre("timer 1 0 8"));
    s_answer = true;
    EXPECT_EQ(processAt(1005), S_OK);
    EXPECT_THAT(takeCalls(), ElementsAre("delete 2"));
    EXPECT_EQ(processAt(1100), S_OK);
    EXPECT_THAT(takeCalls(), ElementsAre("delete 1"));
    EXPECT_EQ(processAt(1100), S_OK);
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_EQ(processAt(1000 + 0x80000001), S_OK);
    EXPECT_THAT(takeCalls(), ElementsAre("delete 3"));
    custom("now", s_now);
    takeCalls();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(takeCalls(), IsEmpty()) << "and not again";
}

TEST_F(EventQueueTest, NoMessageIsPostedAnewWhenNoneWasPosted)
{
    CBeanFrame::repostSwallowedMessage();
    custom("future", 1000, 60000);
    takeCalls();
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), IsEmpty()) << "its timer posts for it";

    custom("answered", 1000);
    takeMessages();
    EXPECT_EQ(processAt(1000), S_OK);
    takeCalls();
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeCalls(), IsEmpty()) << "the pass answered it";
}
