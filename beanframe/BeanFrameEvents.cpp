#include "beanframe/BeanFrame.h"

#include "javabridge/JNIHelper.h"
#include "javabridge/ListenerNatives.h"

#include <memory>

#define LOG_SOURCE "BeanFrame"

// Java's and the timer queue's threads may reach the queue until the process ends: its pieces are never destroyed.
CBeanFrame::EntryList& CBeanFrame::s_EventQueue = *new EntryList;
CBeanFrame::EntryIndex& CBeanFrame::s_EventIndex = *new EntryIndex;
CComCriticalSection& CBeanFrame::s_EventQueueLock = *new CComAutoCriticalSection;
std::atomic<bool> CBeanFrame::s_MessagePosted = false;
DWORD(WINAPI* CBeanFrame::s_TickCount)() = GetTickCount;

namespace {

// An entry that became due longer ago than this is never chosen.
constexpr DWORD NEVER_CHOSEN = 0x7FFFFFFF;

// The steps, in ms, in which GetTickCount goes on. Timers may go on in smaller ones.
constexpr DWORD TICK_COUNT_STEP = 16;

// C++ exceptions (exhausted memory, a failed code page conversion) end here: they must not unwind into the virtual machine or the
// timer queue.
template <class Body>
void guardNative(Body&& body) noexcept
{
    try {
        body();
    } catch (const CAtlException& error) {
        LOG_PLAIN(WARN, "Dropped event: " << getWindowsErrorText(static_cast<unsigned>(error.m_hr)));
    } catch (...) {
        LOG_PLAIN(WARN, "Dropped event: unexpected exception");
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
    // Count first, look afterwards: the destructor clears the pointer first and counts afterwards, so one of the two sees the
    // other. Whoever finds nothing gives the count back at once: the destructor waits for the users it still has, not for
    // newcomers.
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

void JNICALL CBeanFrame::NativeOnControlReady(JNIEnv* env, jobject, jstring javaText)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeOnControlReady");
        SharedText text;
        JNIHelper::javaStringToText(&text, env, javaText);
        LOG(FINE, "text=" << text.narrow());
        const InstanceUse instance;
        if (instance.get()) {
            instance.get()->enqueueOnControlReady(text.bstr());
        } else {
            LOG(INFO, "Dropped ControlReady Event, no corresponding bean frame was found...");
        }
    });
}

void JNICALL CBeanFrame::NativeOnCustomEvent(JNIEnv* env, jobject, jstring javaText)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeOnCustomEvent");
        SharedText text;
        JNIHelper::javaStringToText(&text, env, javaText);
        LOG(FINE, "text=" << text.narrow());
        const InstanceUse instance;
        if (instance.get()) {
            instance.get()->enqueueOnCustomEvent(text.bstr());
        } else {
            LOG(WARN, "Dropped custom event, no corresponding bean frame was found...");
        }
    });
}

void JNICALL CBeanFrame::NativeTestBridgeEvent(JNIEnv* env, jobject, jstring javaText, jint delay)
{
    guardNative([&] {
        LOG_SCOPE_STATIC(FINE, "CBeanFrame::NativeTestBridgeEvent");
        SharedText text;
        JNIHelper::javaStringToText(&text, env, javaText);
        LOG(FINE, "text=" << text.narrow());
        text.append("js"); // this hop's letters in the round trip
        const InstanceUse instance;
        if (instance.get()) {
            instance.get()->enqueueTestBridgeEvent(text.bstr(), static_cast<DWORD>(delay));
        } else {
            LOG(WARN, "Dropped TestBridgeEvent, no corresponding bean frame was found...");
        }
    });
}

void CBeanFrame::enqueueOnControlReady(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueOnControlReady", text);
    if (isClientAlive()) {
        queueEvent(text, &CBeanFrame::processOnControlReady, 0);
    } else {
        LOG(WARN, "Dropped ontrolReady Event, client seems to be not alive anymore..."); // spelled so; log readers search for it
    }
}

void CBeanFrame::enqueueOnCustomEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueOnCustomEvent", text);
    if (isClientAlive()) {
        queueEvent(text, &CBeanFrame::processOnCustomEvent, 0);
    } else {
        LOG(WARN, "Dropped custom event, client seems to be not alive anymore...");
    }
}

void CBeanFrame::enqueueTestBridgeEvent(BSTR text, DWORD delay)
{
    LOG_SCOPE(FINE, "CBeanFrame::enqueueTestBridgeEvent", text << "," << delay);
    if (isClientAlive()) {
        queueEvent(text, &CBeanFrame::processTestBridgeEvent, delay);
    } else {
        LOG(WARN, "Dropped TestBridgeEvent, client seems to be not alive anymore...");
    }
}

void CBeanFrame::queueEvent(BSTR text, Handler handler, DWORD delay)
{
    LOG_SCOPE(FINE, "CBeanFrame::queueEvent", delay);
    {
        CComCritSecLock lock(s_EventQueueLock);
        if (eventsSuspended) {
            return;
        }
        auto entry = std::make_unique<QueueEntry>(SharedText(text), handler, s_TickCount() + delay);
        EntryList node{entry.get()};
        entry->place = node.begin();
        entry->indexPlace = s_EventIndex.emplace(entry->dueTime, entry.get());
        s_EventQueue.splice(s_EventQueue.end(), node);
        const void* const queued = entry.release(); // owned by the queue now
        LOG(TRACE, "queued new event: " << queued);
    }
    // A timer of 0xFFFFFFFF never fires; its entry is due at once and goes out with the next message.
    if (delay != 0) {
        startTimer(delay);
    } else {
        postProcessEventQueue();
    }
}

// The timer is never deleted: it fires once, and the default timer queue ends with the process.
void CBeanFrame::startTimer(DWORD delay)
{
    HANDLE timer = nullptr;
    CreateTimerQueueTimer(&timer, nullptr, timerRoutine, nullptr, delay, 0, WT_EXECUTEONLYONCE);
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
    // A full message queue refuses the post, which needs no care: each of the messages in it drains every due entry.
    s_MessagePosted = true;
    PostThreadMessageA(s_MainThreadId, WM_PROCESSEVENTQUEUE, 0, 0);
}

void CBeanFrame::repostSwallowedMessage()
{
    MSG message;
    const HWND threadMessages = reinterpret_cast<HWND>(-1);
    if (s_MessagePosted && !PeekMessageA(&message, threadMessages, WM_PROCESSEVENTQUEUE, WM_PROCESSEVENTQUEUE, PM_NOREMOVE)) {
        postProcessEventQueue();
    }
}

// Under the queue's lock; null when nothing is to be processed now. Unsigned 32-bit arithmetic throughout, so that the clock may
// wrap.
CBeanFrame::QueueEntry* CBeanFrame::takeDueEntry(DWORD now)
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
    // Of the due entries the one that became due last is required, not the oldest: clients rely on the latest state coming first.
    // Going back from now around the circle of 2^32, the first due time met is the one with the smallest elapsed time; when that
    // is not below the limit, everything in the queue lies in the future or became due too long ago.
    auto place = s_EventIndex.upper_bound(now);
    if (place == s_EventIndex.begin()) {
        place = s_EventIndex.end();
    }
    --place;
    if (now - place->first >= NEVER_CHOSEN) {
        return nullptr;
    }
    return s_EventIndex.lower_bound(place->first)->second;
}

// Under the queue's lock. A timer that ran ahead of the queue's clock has posted its message while its entry still lay in the
// future: nothing else would come for that entry, so one more timer is started.
void CBeanFrame::awaitNearEntry(DWORD now)
{
    auto next = s_EventIndex.upper_bound(now);
    if (next == s_EventIndex.end()) {
        next = s_EventIndex.begin();
    }
    const DWORD ahead = next->first - now;
    if (ahead != 0 && ahead <= TICK_COUNT_STEP) {
        startTimer(ahead);
    }
}

HRESULT CBeanFrame::processEventQueue()
{
    LOG_SCOPE_STATIC(FINE, "CBeanFrame::processEventQueue");
    s_MessagePosted = false; // what was posted so far is answered by this pass
    for (;;) {
        std::unique_ptr<QueueEntry> entry;
        {
            CComCritSecLock lock(s_EventQueueLock);
            if (s_EventQueue.empty()) {
                return S_OK;
            }
            const DWORD now = s_TickCount();
            entry.reset(takeDueEntry(now));
            if (entry) {
                s_EventQueue.erase(entry->place);
                s_EventIndex.erase(entry->indexPlace);
                LOG(FINE, "QueueEntry " << static_cast<const void*>(entry.get()) << " expired, removing from queue ("
                                        << entry->dueTime << "<=" << now << ")");
            } else {
                awaitNearEntry(now);
            }
        }
        if (!entry) {
            LOG(FINE, "could not find QueueEntry to process");
            return S_OK;
        }
        LOG(FINE, "ready to process QueueEntry " << static_cast<const void*>(entry.get()));
        RETURN_IF_FALSE(s_Instance!=NULL, E_FAIL);
        s_Instance->processQueueEntry(entry.get());
    }
}

// The handler may end this object (a client that releases inside its sink, the watchdog): nothing of it is touched afterwards.
HRESULT CBeanFrame::processQueueEntry(QueueEntry* entry)
{
    LOG_SCOPE(FINE, "CBeanFrame::processQueueEntry");
    (this->*entry->handler)(entry->text.bstr());
    return S_OK;
}

void CBeanFrame::processOnControlReady(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processOnControlReady", text);
    if (EventTarget* const target = eventTarget()) {
        const CComPtr<IUnknown> hold(target->targetUnknown());
        target->fireControlReady(text);
    }
}

void CBeanFrame::processOnCustomEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processOnCustomEvent", text);
    if (EventTarget* const target = eventTarget()) {
        const CComPtr<IUnknown> hold(target->targetUnknown());
        target->fireCustomEvent(text);
    }
}

void CBeanFrame::processTestBridgeEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processTestBridgeEvent", text);
    if (EventTarget* const target = eventTarget()) {
        const CComPtr<IUnknown> hold(target->targetUnknown());
        target->fireTestBridgeEvent(text);
    }
}
