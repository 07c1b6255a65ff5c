#include "beanframe/BeanFrame.h"

#include "beanframe/DueTimes.h"
#include "beanframe/EventTarget.h"
#include "javabridge/JNIHelper.h"
#include "javabridge/ListenerNatives.h"

#include <memory>
#include <optional>

#define LOG_SOURCE "BeanFrame"

// Never destroyed: threads of Java and of the timer queue may use the queue until the process ends.
CBeanFrame::EntryList& CBeanFrame::s_EventQueue = *new EntryList;
CBeanFrame::EntryIndex& CBeanFrame::s_EventIndex = *new EntryIndex;
CComCriticalSection& CBeanFrame::s_EventQueueLock = *new CComAutoCriticalSection;
OneShotTimers& CBeanFrame::s_Timers = *new OneShotTimers;
std::atomic<bool> CBeanFrame::s_MessagePosted = false;
DWORD(WINAPI* CBeanFrame::s_TickCount)() = GetTickCount;

namespace {

// The steps, in ms, in which GetTickCount advances. Timers may advance in smaller ones.
constexpr DWORD TICK_COUNT_STEP = 16;

// What becomes due later than this after the first look at the queue, in ms, is left to another message. Otherwise threads that
// queue events faster than they are taken out would keep COM's calls waiting for ever, the client's release among them.
constexpr LONG PASS_LIMIT = 1000;

// The capacity of a thread's message queue. Threads that go on queuing events could otherwise keep the removal going.
constexpr int MOST_MESSAGES = 10000;

// C++ exceptions (exhausted memory, a failed code page conversion) end here: they must not unwind into the virtual machine or the
// timer queue.
template <class Body>
void guardNative(Body&& body) noexcept
{
    const HRESULT hr = AtlGuard([&] {
        body();
        return S_OK;
    });
    if (FAILED(hr)) {
        // Only the number: the system's text needs memory, which may have run out.
        LOG_PLAIN(WARN, "Dropped event: " << std::hex << hr);
    }
}

// The object is held while its sinks run, since they may release it.
void fireHeld(HRESULT (EventTarget::*event)(BSTR), BSTR text)
{
    if (EventTarget* const target = eventTarget()) {
        const CComPtr<IUnknown> hold(target->targetUnknown());
        (target->*event)(text);
    }
}

} // namespace

const ListenerNatives& listenerNatives()
{
    static const ListenerNatives NATIVES = {CBeanFrame::NativeTestBridgeEvent, CBeanFrame::NativeOnControlReady,
                                            CBeanFrame::NativeOnCustomEvent};
    return NATIVES;
}

CBeanFrame::InstanceUse::InstanceUse()
{
    // Counts, then reads the pointer; the destructor clears the pointer, then reads the count. So either this thread finds no
    // instance, or the destructor waits for it. A thread that finds none takes its count back at once, so that the destructor
    // does not wait for newcomers.
    ++s_InstanceUsers;
    m_instance = std::atomic_ref(s_Instance).load();
    if (m_instance == nullptr) {
        --s_InstanceUsers;
    }
}

CBeanFrame::InstanceUse::~InstanceUse()
{
    if (m_instance != nullptr) {
        --s_InstanceUsers;
    }
}

template <class Enqueue>
bool CBeanFrame::passOn(JNIEnv* env, jstring javaText, Enqueue&& enqueue)
{
    SharedText text;
    JNIHelper::javaStringToText(&text, env, javaText);
    LOG_PLAIN(FINE, "text=" << text.narrow());
    const InstanceUse instance;
    if (instance.get() == nullptr) {
        return false;
    }
    enqueue(*instance.get(), text);
    return true;
}

void JNICALL CBeanFrame::NativeOnControlReady(JNIEnv* env, jobject, jstring javaText)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeOnControlReady");
        if (!passOn(env, javaText, [](CBeanFrame& frame, SharedText& text) { frame.enqueueOnControlReady(text.bstr()); })) {
            LOG(INFO, "Dropped ControlReady Event, no corresponding bean frame was found...");
        }
    });
}

void JNICALL CBeanFrame::NativeOnCustomEvent(JNIEnv* env, jobject, jstring javaText)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeOnCustomEvent");
        if (!passOn(env, javaText, [](CBeanFrame& frame, SharedText& text) { frame.enqueueOnCustomEvent(text.bstr()); })) {
            LOG(WARN, "Dropped custom event, no corresponding bean frame was found...");
        }
    });
}

void JNICALL CBeanFrame::NativeTestBridgeEvent(JNIEnv* env, jobject, jstring javaText, jint delay)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeTestBridgeEvent");
        const auto enqueue = [&](CBeanFrame& frame, SharedText& text) {
            text.append("js"); // this hop's letters in the round trip
            frame.enqueueTestBridgeEvent(text.bstr(), static_cast<DWORD>(delay));
        };
        if (!passOn(env, javaText, enqueue)) {
            LOG(WARN, "Dropped TestBridgeEvent, no corresponding bean frame was found...");
        }
    });
}

void CBeanFrame::queueUnlessDead(BSTR text, Handler handler, DWORD delay, const char* dropped)
{
    if (isClientAlive()) {
        queueEvent(text, handler, delay);
    } else {
        LOG(WARN, dropped);
    }
}

void CBeanFrame::enqueueOnControlReady(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueOnControlReady", text);
    // The spelling is deliberate.
    queueUnlessDead(text, &CBeanFrame::processOnControlReady, 0,
                    "Dropped ontrolReady Event, client seems to be not alive anymore...");
}

void CBeanFrame::enqueueOnCustomEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueOnCustomEvent", text);
    queueUnlessDead(text, &CBeanFrame::processOnCustomEvent, 0, "Dropped custom event, client seems to be not alive anymore...");
}

void CBeanFrame::enqueueTestBridgeEvent(BSTR text, DWORD delay)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueTestBridgeEvent", text << "," << delay);
    queueUnlessDead(text, &CBeanFrame::processTestBridgeEvent, delay,
                    "Dropped TestBridgeEvent, client seems to be not alive anymore...");
}

void CBeanFrame::queueEvent(BSTR text, Handler handler, DWORD delay)
{
    LOG_SCOPE(FINE, "CBeanFrame::queueEvent", delay);
    DWORD dueTime = 0;
    {
        CComCritSecLock lock(s_EventQueueLock);
        if (eventsSuspended) {
            return;
        }
        dueTime = s_TickCount() + delay;
        auto entry = std::make_unique<QueueEntry>(SharedText(text), handler, dueTime);
        EntryList node{entry.get()};
        entry->place = node.begin();
        entry->indexPlace = s_EventIndex.emplace(entry->dueTime, entry.get());
        s_EventQueue.splice(s_EventQueue.end(), node);
        const void* const queued = entry.release(); // owned by the queue now
        LOG(TRACE, "queued new event: " << queued);
    }
    // With a delay of 0xFFFFFFFF the timer never fires, but the entry is due at once and is processed with the next message.
    if (delay != 0) {
        s_Timers.start(timerRoutine, delay, dueTime);
    } else {
        postProcessEventQueue();
    }
}

void CALLBACK CBeanFrame::timerRoutine(void*, BOOLEAN)
{
    guardNative([] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::timerRoutine");
        postProcessEventQueue();
    });
}

void CBeanFrame::postProcessEventQueue()
{
    // A full message queue may refuse the post, which does no harm: a message already in it drains every due entry.
    s_MessagePosted = true;
    PostThreadMessageA(s_MainThreadId, WM_PROCESSEVENTQUEUE, 0, 0);
}

void CBeanFrame::repostSwallowedMessage()
{
    MSG message;
    if (s_MessagePosted && !PeekMessageA(&message, THREAD_MESSAGES, WM_PROCESSEVENTQUEUE, WM_PROCESSEVENTQUEUE, PM_NOREMOVE)) {
        postProcessEventQueue();
    }
}

// Called under the queue's lock. All arithmetic is unsigned and 32 bits wide, so that the clock may wrap.
CBeanFrame::QueueEntry* CBeanFrame::findDueEntry(DWORD now)
{
    if (::isLogEnabled(LOG_SOURCE, __LINE__, LOGLEVEL_FINE)) {
        for (const QueueEntry* const entry : s_EventQueue) {
            const DWORD elapsed = now - entry->dueTime;
            const DWORD ahead = entry->dueTime - now;
            if (elapsed > ahead) {
                LOG_PLAIN(FINE, "QueueEntry not yet expired (" << entry->dueTime << ">" << now << ")");
            }
        }
    }
    // Deliberately the entry that became due last, not the oldest.
    const auto place = findLatestDue(s_EventIndex, now);
    return place == s_EventIndex.end() ? nullptr : s_EventIndex.lower_bound(place->first)->second;
}

// Called under the queue's lock. Timers may run ahead of the queue's clock: the message then arrives before the entry is due, and
// no other would follow. Returns the ms until such an entry is due, for another timer, or 0 without one.
DWORD CBeanFrame::delayOfNearEntry(DWORD now)
{
    auto next = s_EventIndex.upper_bound(now);
    if (next == s_EventIndex.end()) {
        next = s_EventIndex.begin();
    }
    const DWORD ahead = next->first - now;
    return ahead <= TICK_COUNT_STEP ? ahead : 0;
}

// A burst leaves a message for each of its events. They would fill the thread's queue, through which COM's calls arrive, too.
void CBeanFrame::removeServedMessages(bool isRestDue)
{
    MSG message;
    int removed = 0;
    while (removed < MOST_MESSAGES &&
           PeekMessageA(&message, THREAD_MESSAGES, WM_PROCESSEVENTQUEUE, WM_PROCESSEVENTQUEUE, PM_REMOVE | PM_QS_POSTMESSAGE)) {
        if (message.message == WM_QUIT) { // comes whatever one asks for
            PostQuitMessage(static_cast<int>(message.wParam));
            return;
        }
        ++removed;
    }
    if (removed == 0 && !isRestDue) {
        return;
    }
    // An event may have been queued since the pass, and its message be among the removed ones. One that is queued from now on
    // posts its own.
    s_MessagePosted = false;
    DWORD now = 0;
    DWORD delay = 0;
    bool isDue = false;
    {
        CComCritSecLock lock(s_EventQueueLock);
        if (s_EventQueue.empty()) {
            return;
        }
        now = s_TickCount();
        isDue = findLatestDue(s_EventIndex, now) != s_EventIndex.end();
        delay = isDue ? 0 : delayOfNearEntry(now);
    }
    if (isDue) {
        postProcessEventQueue(); // instead of another pass at once: COM's calls come in between
    } else if (delay != 0) {
        s_Timers.start(timerRoutine, delay, now + delay);
    }
}

HRESULT CBeanFrame::processEventQueue()
{
    LOG_SCOPE_STATIC(FINE, "CBeanFrame::processEventQueue");
    s_MessagePosted = false; // this pass serves everything posted so far
    HRESULT hr = S_OK;
    bool isRestDue = false;
    for (std::optional<DWORD> begin;;) {
        std::unique_ptr<QueueEntry> entry;
        DWORD now = 0;
        DWORD delay = 0;
        {
            CComCritSecLock lock(s_EventQueueLock);
            if (s_EventQueue.empty()) {
                break;
            }
            now = s_TickCount();
            begin = begin.value_or(now);
            QueueEntry* const due = findDueEntry(now);
            isRestDue = due != nullptr && static_cast<LONG>(due->dueTime - *begin) > PASS_LIMIT;
            if (isRestDue) {
                LOG(FINE, "leaving QueueEntries to the next message");
                break;
            }
            entry.reset(due);
            if (entry) {
                s_EventQueue.erase(entry->place);
                s_EventIndex.erase(entry->indexPlace);
                LOG(FINE, "QueueEntry " << static_cast<const void*>(entry.get()) << " expired, removing from queue ("
                                        << entry->dueTime << "<=" << now << ")");
            } else {
                delay = delayOfNearEntry(now);
            }
        }
        s_Timers.deleteDue(now);
        if (!entry) {
            if (delay != 0) {
                s_Timers.start(timerRoutine, delay, now + delay);
            }
            LOG(FINE, "could not find QueueEntry to process");
            break;
        }
        LOG(FINE, "ready to process QueueEntry " << static_cast<const void*>(entry.get()));
        if (!LOG_CONDITION(s_Instance!=NULL)) {
            hr = E_FAIL;
            break;
        }
        s_Instance->processQueueEntry(entry.get());
    }
    removeServedMessages(isRestDue);
    return hr;
}

// The handler may delete this object (a client that releases it inside its sink, or the watchdog): it is not used afterwards.
HRESULT CBeanFrame::processQueueEntry(QueueEntry* entry)
{
    LOG_SCOPE(FINE, "CBeanFrame::processQueueEntry");
    (this->*entry->handler)(entry->text.bstr());
    return S_OK;
}

void CBeanFrame::processOnControlReady(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processOnControlReady", text);
    fireHeld(&EventTarget::Fire_controlReady, text);
}

void CBeanFrame::processOnCustomEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processOnCustomEvent", text);
    fireHeld(&EventTarget::Fire_customEvent, text);
}

void CBeanFrame::processTestBridgeEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processTestBridgeEvent", text);
    fireHeld(&EventTarget::Fire_testBridgeEvent, text);
}
