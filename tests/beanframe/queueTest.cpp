// The event queue: what is posted when, which entry is processed next, and what a handler may do meanwhile.
#include "tests/beanframe/BeanFrameWorld.h"

#include <gmock/gmock.h>

#include <array>
#include <random>

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class EventQueueTest : public BeanFrameWorld
{
protected:
    void SetUp() override { createFrame(); }

    // Queued at the given reading of the clock.
    static void custom(const char* text, DWORD queuedAt, DWORD delay = 0)
    {
        s_now = queuedAt;
        queue(text, &FrameAccess::processOnCustomEvent, delay);
    }
    static HRESULT processAt(DWORD now)
    {
        s_now = now;
        return CBeanFrame::processEventQueue();
    }
    static std::string newest() { return address(FrameAccess::s_EventQueue.back()); }
};

TEST_F(EventQueueTest, SameTickComesInQueuingOrderFromOneMessage)
{
    custom("one", 1000);
    custom("two", 1000);
    custom("three", 1000);
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE, PROCESS_QUEUE, PROCESS_QUEUE));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent one", "customEvent two", "customEvent three"));

    // The later messages find an empty queue.
    stream.clear();
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE <- processEventQueue "));
}

TEST_F(EventQueueTest, LaterTickComesFirst)
{
    custom("first", 1000);
    custom("second", 1001);
    custom("third", 1001);
    EXPECT_EQ(processAt(1001), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent second", "customEvent third", "customEvent first"));
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

TEST_F(EventQueueTest, LinesOfOneEntry)
{
    custom("text", 1000);
    const std::string entry = newest();
    EXPECT_EQ(processAt(1003), S_OK);
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> " + object() + "queueEvent 0", "TRACE " + object() + "queued new event: " + entry,
                            "FINE <- " + object() + "queueEvent 0", "FINE -> processEventQueue ",
                            "FINE QueueEntry " + entry + " expired, removing from queue (1000<=1003)",
                            "FINE ready to process QueueEntry " + entry, "TRACE s_Instance!=NULL: true",
                            "FINE -> " + object() + "processQueueEntry ", "FINE -> " + object() + "processOnCustomEvent text",
                            "FINE <- " + object() + "processOnCustomEvent text", "FINE <- " + object() + "processQueueEntry ",
                            "FINE <- processEventQueue "));
}

TEST_F(EventQueueTest, ClockMayWrap)
{
    custom("wrapped", 0xFFFFFFF6, 100);
    EXPECT_EQ(FrameAccess::s_EventQueue.back()->dueTime, 90u);
    const std::string entry = newest();
    stream.clear();
    EXPECT_EQ(processAt(0), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE QueueEntry not yet expired (90>0)",
                                     "FINE could not find QueueEntry to process", "FINE <- processEventQueue "));
    EXPECT_EQ(processAt(89), S_OK);
    EXPECT_THAT(target.events, IsEmpty());

    stream.clear();
    EXPECT_EQ(processAt(90), S_OK);
    EXPECT_EQ(lines().at(1), "FINE QueueEntry " + entry + " expired, removing from queue (90<=90)");
    EXPECT_THAT(target.events, ElementsAre("customEvent wrapped"));
}

TEST_F(EventQueueTest, EntriesOnBothSidesOfTheWrapKeepTheOrderOfTheirDueTimes)
{
    custom("before", 0xFFFFFFFE);
    custom("after", 3);
    EXPECT_EQ(processAt(5), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent after", "customEvent before"));
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
    EXPECT_THAT(linesWith(lines(), "could not find QueueEntry to process"), SizeIs(1));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(3));

    // The future one lies 0x7FFFFFFF ahead: it comes when it is due, and by then the other two look like future ones.
    EXPECT_EQ(processAt(0x0FFFFFFF), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent still chosen", "customEvent future"));
}

namespace {

// The rule as it is stated: every entry is looked at, in queuing order.
FrameAccess::QueueEntry* plainScan(DWORD now)
{
    DWORD best = 0x7FFFFFFF;
    FrameAccess::QueueEntry* chosen = nullptr;
    for (FrameAccess::QueueEntry* const entry : FrameAccess::s_EventQueue) {
        const DWORD elapsed = now - entry->dueTime;
        const DWORD ahead = entry->dueTime - now;
        if (elapsed > ahead) {
            continue;
        }
        if (elapsed < best) {
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
    FrameAccess::s_MainThreadId = 0; // nothing is posted
    std::mt19937 random(20261121);
    constexpr std::array<DWORD, 8> CORNERS = {0, 1, 0x7FFFFFFD, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF};
    int chosen = 0;
    int none = 0;
    for (int round = 0; round < 5000; ++round) {
        const DWORD base = round % 3 == 0 ? 0 : round % 3 == 1 ? 0xFFFFFFF0 : static_cast<DWORD>(random());
        const size_t count = random() % 12;
        for (size_t index = 0; index < count; ++index) {
            // Near each other (ties), at the edges of the rule, or anywhere.
            const DWORD offset = random() % 3 == 0   ? CORNERS[random() % CORNERS.size()]
                                 : random() % 2 == 0 ? static_cast<DWORD>(random()) % 6 - 3
                                                     : static_cast<DWORD>(random());
            custom("", base + offset);
        }
        const DWORD now = base + static_cast<DWORD>(random()) % 4;
        for (;;) {
            FrameAccess::QueueEntry* const expected = plainScan(now);
            if (FrameAccess::s_EventQueue.empty()) { // nobody asks an empty queue
                break;
            }
            ASSERT_EQ(FrameAccess::takeDueEntry(now), expected) << "round " << round;
            if (expected == nullptr) {
                break;
            }
            ++chosen;
            FrameAccess::s_EventQueue.erase(expected->place);
            FrameAccess::s_EventIndex.erase(expected->indexPlace);
            delete expected;
        }
        none += FrameAccess::s_EventQueue.empty() ? 0 : 1;
        for (FrameAccess::QueueEntry* const left : FrameAccess::s_EventQueue) {
            delete left;
        }
        FrameAccess::s_EventQueue.clear();
        FrameAccess::s_EventIndex.clear();
    }
    EXPECT_GT(chosen, 10000);
    EXPECT_GT(none, 1000) << "rounds that left entries behind";
}

TEST_F(EventQueueTest, NoDelayPostsOneMessageAtOnce)
{
    custom("now", 1000);
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
}

TEST_F(EventQueueTest, DelayPostsFromATimerAndNotBefore)
{
    FrameAccess::s_TickCount = GetTickCount;
    const DWORD queued = GetTickCount();
    queue("delayed", &FrameAccess::processTestBridgeEvent, 200);
    EXPECT_THAT(takeMessages(), IsEmpty());
    // More than one message when the timer ran ahead of the clock.
    while (target.events.empty() && waitForMessage()) {
        EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    }
    EXPECT_GE(GetTickCount() - queued, 200u);
    EXPECT_THAT(target.events, ElementsAre("testBridgeEvent delayed"));

    // The timer's thread may still be on its way out of the routine that posted the message.
    std::vector<std::string> fromTimer;
    for (const ULONGLONG end = GetTickCount64() + 10000; fromTimer.size() < 2 && GetTickCount64() < end; SwitchToThread()) {
        fromTimer.clear();
        for (const fixtures::LogLine& line : stream.lines()) {
            if (line.thread != GetCurrentThreadId()) {
                fromTimer.push_back(line.level + " " + line.body);
            }
        }
    }
    ASSERT_GE(fromTimer.size(), 2u);
    EXPECT_EQ(fromTimer[0], "FINE -> timerRoutine ");
    EXPECT_EQ(fromTimer[1], "FINE <- timerRoutine ");
}

TEST_F(EventQueueTest, MessageOfAnotherEventLeavesTheFutureOne)
{
    custom("later", 1000, 60000);
    custom("now", 1000);
    stream.clear();
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent now"));
    EXPECT_THAT(linesWith(lines(), "not yet expired"),
                ElementsAre("FINE QueueEntry not yet expired (61000>1000)", "FINE QueueEntry not yet expired (61000>1000)"));
    EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
}

// A Java int of -1 is a delay of 2^32 - 1 ms: due one millisecond ago, with a timer that never fires.
TEST_F(EventQueueTest, NegativeDelayIsDueAtOnceAndWaitsForTheNextMessage)
{
    custom("minus one", 1000, 0xFFFFFFFF);
    EXPECT_EQ(FrameAccess::s_EventQueue.back()->dueTime, 999u);
    // A timer of 1 ms that was started later has fired by the time its message is here.
    custom("one", 1000, 1);
    ASSERT_TRUE(waitForMessage());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent minus one"));
    EXPECT_EQ(processAt(1001), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent minus one", "customEvent one"));
}

// Timers may go on in smaller steps than the queue's clock: the message is here, the entry still lies in the future by a step.
TEST_F(EventQueueTest, TimerThatRanAheadOfTheClockIsFollowedByAnother)
{
    custom("near", 1000, 10);
    ASSERT_TRUE(waitForMessage());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, IsEmpty());
    ASSERT_TRUE(waitForMessage());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(processAt(1010), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent near"));
}

// Also where the next entry's due time lies behind the wrap.
TEST_F(EventQueueTest, TimerThatRanAheadOfTheClockIsFollowedByAnotherAcrossTheWrap)
{
    custom("near", 0xFFFFFFF8, 16);
    ASSERT_TRUE(waitForMessage());
    takeMessages();
    EXPECT_EQ(processAt(0xFFFFFFFF), S_OK);
    EXPECT_THAT(target.events, IsEmpty());
    ASSERT_TRUE(waitForMessage());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
}

TEST_F(EventQueueTest, TimerOfADeletedFrameStillPostsAndFindsAnEmptyQueue)
{
    custom("lost", 1000, 30);
    CBeanFrame::deleteInstance();
    ASSERT_TRUE(waitForMessage());
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    stream.clear();
    EXPECT_EQ(processAt(2000), S_OK);
    EXPECT_THAT(lines(), ElementsAre("FINE -> processEventQueue ", "FINE <- processEventQueue "));
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(EventQueueTest, SuspendedEventsAreDiscardedSilently)
{
    frame().*& FrameAccess::eventsSuspended = true;
    custom("discarded", 1000);
    custom("discarded", 1000, 5);
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + object() + "queueEvent 0", "FINE <- " + object() + "queueEvent 0",
                                     "FINE -> " + object() + "queueEvent 5", "FINE <- " + object() + "queueEvent 5"));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_THAT(takeMessages(), IsEmpty());
}

TEST_F(EventQueueTest, DelayIsLoggedUnsigned)
{
    custom("", 1000, 0xFFFFFFFF);
    EXPECT_EQ(lines().front(), "FINE -> " + object() + "queueEvent 4294967295");
}

TEST_F(EventQueueTest, DueEntryWithoutFrameIsLostWithTheFailedCheck)
{
    // Queued while the frame ends: after the queue was emptied, before there is none.
    java->insideVoidMethods = [&] {
        java->insideVoidMethods = nullptr;
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("late"));
    };
    CBeanFrame::deleteInstance();
    CBeanFrame::deleteInstance(); // without an instance nothing is emptied
    ASSERT_THAT(FrameAccess::s_EventQueue, SizeIs(1));
    const std::string entry = newest();
    stream.clear();
    EXPECT_EQ(processAt(1000), E_FAIL);
    EXPECT_THAT(stream.messages(),
                ElementsAre("FINE processEventQueue ", "FINE QueueEntry " + entry + " expired, removing from queue (1000<=1000)",
                            "FINE ready to process QueueEntry " + entry, fixtures::BEGIN_BANNER, "ERROR s_Instance!=NULL: false",
                            "FINE processEventQueue ", fixtures::END_BANNER, "FINE processEventQueue "));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    EXPECT_EQ(processAt(1000), S_OK);
}

TEST_F(EventQueueTest, EventsWithoutComObjectAreLostSilently)
{
    RecordingTarget::s_current = nullptr;
    custom("a", 1000);
    queue("b", &FrameAccess::processOnControlReady, 0);
    queue("c", &FrameAccess::processTestBridgeEvent, 0);
    stream.clear();
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(linesWith(lines(), "processOnCustomEvent"),
                ElementsAre("FINE -> " + object() + "processOnCustomEvent a", "FINE <- " + object() + "processOnCustomEvent a"));
    EXPECT_THAT(lines(), Each(AnyOf(testing::StartsWith("FINE "), "TRACE s_Instance!=NULL: true")));
    EXPECT_THAT(target.calls, IsEmpty());
}

TEST_F(EventQueueTest, FiringHoldsTheComObject)
{
    custom("a", 1000);
    queue("b", &FrameAccess::processOnControlReady, 0);
    queue("c", &FrameAccess::processTestBridgeEvent, 0);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "customEvent a", "Release", "AddRef", "controlReady b", "Release", "AddRef",
                                          "testBridgeEvent c", "Release"));
    EXPECT_EQ(target.references, 1u);
}

TEST_F(EventQueueTest, TextOfAnEntryIsACopy)
{
    CComBSTR text(L"before");
    (frame().*&FrameAccess::queueEvent)(text, &FrameAccess::processOnCustomEvent, 0);
    text.m_str[0] = L'X';
    queue(nullptr, &FrameAccess::processOnCustomEvent, 0);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent before", "customEvent (null)"));
}

TEST_F(EventQueueTest, EventsQueuedInsideASinkComeInTheSamePass)
{
    target.onFire = [&](const std::string& event) {
        if (event == "customEvent outer") {
            custom("inner", 1000);
        }
    };
    custom("outer", 1000);
    custom("next", 1000);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent outer", "customEvent next", "customEvent inner"));
}

// COM calls out to a sink in a loop of its own, which may come back to the queue.
TEST_F(EventQueueTest, PassInsideASinkTakesWhatIsLeftAndNothingTwice)
{
    target.onFire = [&](const std::string& event) {
        if (event == "customEvent outer") {
            EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
        }
    };
    custom("outer", 1000);
    custom("next", 1000);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent outer", "customEvent next"));
}

TEST_F(EventQueueTest, SinkThatEndsTheFrameEndsThePassWithEverythingElse)
{
    target.onFire = [&](const std::string&) { CBeanFrame::deleteInstance(); };
    custom("last", 1000);
    custom("dropped", 1000);
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent last"));
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "customEvent last", "Release"));
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

TEST_F(EventQueueTest, SwallowedMessageIsPostedAnew)
{
    custom("waiting", 1000);
    ASSERT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE)); // as a foreign modal loop does
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
    EXPECT_EQ(processAt(1000), S_OK);
    EXPECT_THAT(target.events, ElementsAre("customEvent waiting"));
}

TEST_F(EventQueueTest, NoMessageIsPostedAnewWhileOneIsQueued)
{
    custom("waiting", 1000);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
}

TEST_F(EventQueueTest, NoMessageIsPostedAnewWhenNoneWasPosted)
{
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), IsEmpty());

    custom("answered", 1000);
    takeMessages();
    EXPECT_EQ(processAt(1000), S_OK);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), IsEmpty()) << "the pass answered it";

    custom("future", 1000, 60000);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), IsEmpty()) << "a timer of its own posts for it";
}

// Posted during the pass: that message is not answered by it.
TEST_F(EventQueueTest, MessageSwallowedInsideASinkIsPostedAnew)
{
    target.onFire = [&](const std::string&) {
        (frame().*&FrameAccess::queueEvent)(nullptr, &FrameAccess::processWatchDogEvent, 0);
        takeMessages(); // the loop in which COM waits for the sink
    };
    custom("event", 1000);
    takeMessages();
    EXPECT_EQ(processAt(1000), S_OK);
    CBeanFrame::repostSwallowedMessage();
    EXPECT_THAT(takeMessages(), ElementsAre(PROCESS_QUEUE));
}
