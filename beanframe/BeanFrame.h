// The process-wide mediator between the COM object and the Java side: forwards calls down, carries Java's events up through a
// queue to the main thread, and watches the client's window.
//
//     client -> COM object -> CBeanFrame -> CJavaManagerJNIClient -> Java          calls, on the main thread
//     Java thread -> Native... -> enqueue... -> queueEvent -> s_EventQueue         events, on the Java thread
//     post or timer -> message loop -> processEventQueue -> handler -> EventTarget -> sinks   events, on the main thread
//
// Ownership: at most one instance, s_Instance, created by createInstance and deleted by deleteInstance. It keeps the global
//            references of bean, frame and listener, which stopBean deletes. The queue owns its entries until they are taken out
//            for processing. Queue, lock and timers live until the process ends.
// Threads:   the main thread, except the natives, the enqueue operations, queueEvent and isClientAlive (Java threads) and
//            timerRoutine (timer-queue threads). Java threads reach the instance only through InstanceUse, for which the
//            destructor waits: an event raised while the object is being deleted never meets freed memory.
// Locks:     s_EventQueueLock guards the queue. Held while the list is read or changed, never across a call into Java, COM or a
//            sink.
// Failure:   HRESULTs of the called Java operation, unchanged. The constructor never fails: if a part does not start, its
//            reference stays null, and later calls fail at their own checks. No C++ exception leaves a native.
#pragma once

#include "atl/atl.h"
#include "beanframe/OneShotTimers.h"
#include "javabridge/SharedText.h"
#include "support/logger.h"

#include <jni.h>

#include <atomic>
#include <list>
#include <map>

// The thread message that makes the main thread drain the event queue; no parameters.
constexpr UINT WM_PROCESSEVENTQUEUE = WM_APP + 3;
// For PeekMessage, in place of a window: the messages of the thread itself.
inline const HWND THREAD_MESSAGES = reinterpret_cast<HWND>(-1);

class CBeanFrame : public virtual Loggable
{
public:
    // The path of the basis control archive, the Java package and class of the control. A second creation only warns.
    static void createInstance(const char* basisControlPath, const char* beanPackage, const char* beanClass);
    // Drops pending events and deletes the instance. Without one it only logs the failed check.
    static void deleteInstance();
    // Null before createInstance and after deleteInstance. Written on the main thread only; Java threads use InstanceUse.
    static CBeanFrame* s_Instance;

    // The frame id in decimal, "-1" until the frame exists.
    std::string getLogObjectInfo() const override;

    // Forwarding; results are new BSTRs that the caller owns.
    HRESULT callMethod(BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT callMethodCompressed(BSTR arg0, int arg1, BSTR arg2, BSTR* result);
    HRESULT displayDebugConsole(BSTR* result);
    HRESULT free(BSTR* result);
    HRESULT getBasisControlVersionInfo(BSTR* result);
    HRESULT getProperty(BSTR arg0, BSTR* result);
    HRESULT getVersionInfo(BSTR arg0, BSTR* result);
    HRESULT setLogLevel(int arg0, BSTR* result);
    HRESULT setProperty(BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT setUsedControl(BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT updateVersion(BSTR arg0, BSTR* result);
    HRESULT setBounds(int x, int y, int width, int height);
    HRESULT setEnabled(bool enabled);
    HRESULT setVisible(bool visible);
    HRESULT validate();
    HRESULT testBridge(BSTR text, int ttl, int delay);

    // Keeps the client's window, which must be a child window, adds the bean to its frame and starts a watchdog chain. A second
    // push starts a second chain; both watch the latest handle.
    HRESULT pushWindowHandle(int wndhandle);
    // Whether the client's window still exists and has a proper parent; true until a window is pushed. Any thread.
    bool isClientAlive();

    // Called by Java: exported from the executable and bound to the listener's native methods.
    __declspec(dllexport) static void JNICALL NativeOnControlReady(JNIEnv* env, jobject caller, jstring text);
    __declspec(dllexport) static void JNICALL NativeOnCustomEvent(JNIEnv* env, jobject caller, jstring text);
    __declspec(dllexport) static void JNICALL NativeTestBridgeEvent(JNIEnv* env, jobject caller, jstring text, jint delay);

    // Java threads. The text is copied; the delay is in milliseconds.
    void enqueueOnControlReady(BSTR text);
    void enqueueOnCustomEvent(BSTR text);
    void enqueueTestBridgeEvent(BSTR text, DWORD delay);

    // Called by the message loop for each WM_PROCESSEVENTQUEUE: processes the due entries one by one, the latest due first, and
    // entries of the same due time in queuing order, then removes the messages that this pass has served. Entries that became due
    // more than a second after the first look are left to another message, so that calls come in between. Returns S_OK, or E_FAIL
    // when an entry is due and there is no bean frame.
    static HRESULT processEventQueue();
    // Called by the message loop after each dispatched message. Other modal loops (for instance COM's while it waits for a sink)
    // drop thread messages; if they have dropped ours, this posts a new one.
    static void repostSwallowedMessage();

    int frameID = -1;

protected:
    using Handler = void (CBeanFrame::*)(BSTR text);
    struct QueueEntry;
    using EntryList = std::list<QueueEntry*>;
    using EntryIndex = std::multimap<DWORD, QueueEntry*>; // by due time; equal ones stay in queuing order

    struct QueueEntry
    {
        SharedText text;
        Handler handler;
        DWORD dueTime; // GetTickCount milliseconds, modulo 2^32
        EntryList::iterator place;
        EntryIndex::iterator indexPlace;
    };

    // Keeps s_Instance from being deleted during a native callback. Null without an instance.
    class InstanceUse
    {
    public:
        InstanceUse();
        ~InstanceUse();
        InstanceUse(const InstanceUse&) = delete;
        InstanceUse& operator=(const InstanceUse&) = delete;
        CBeanFrame* get() const { return m_instance; }

    private:
        CBeanFrame* m_instance;
    };

    CBeanFrame(const char* basisControlPath, const char* beanPackage, const char* beanClass);
    ~CBeanFrame() override;
    CBeanFrame(const CBeanFrame&) = delete;
    CBeanFrame& operator=(const CBeanFrame&) = delete;

    // Converts the text and passes it to the instance; false without one.
    template <class Enqueue>
    static bool passOn(JNIEnv* env, jstring javaText, Enqueue&& enqueue);
    // When the client is dead, logs the text `dropped` instead.
    void queueUnlessDead(BSTR text, Handler handler, DWORD delay, const char* dropped);
    void queueEvent(BSTR text, Handler handler, DWORD delay);
    static void CALLBACK timerRoutine(void* parameter, BOOLEAN timerOrWaitFired);
    static void postProcessEventQueue();
    // Null when no entry is due.
    static QueueEntry* findDueEntry(DWORD now);
    static DWORD delayOfNearEntry(DWORD now);
    // Posts a new message when an event is due all the same.
    static void removeServedMessages(bool isRestDue);
    static void dropEvents();

    HRESULT processQueueEntry(QueueEntry* entry);
    void processOnControlReady(BSTR text);
    void processOnCustomEvent(BSTR text);
    void processTestBridgeEvent(BSTR text);
    void processWatchDogEvent(BSTR text);

    std::atomic<HWND> clientWindow = nullptr;
    std::atomic<bool> eventsSuspended = false; // true discards every new event; no operation sets it
    jobject beanObject = nullptr;
    jobject frameObject = nullptr;
    jobject listener = nullptr;

    static DWORD s_MainThreadId;
    static EntryList& s_EventQueue;
    static EntryIndex& s_EventIndex;
    static CComCriticalSection& s_EventQueueLock;
    static OneShotTimers& s_Timers;
    static std::atomic<int> s_InstanceUsers;
    static std::atomic<bool> s_MessagePosted; // since the last pass over the queue began
    // The queue's clock, GetTickCount. Unit tests replace it.
    static DWORD(WINAPI* s_TickCount)();
};
