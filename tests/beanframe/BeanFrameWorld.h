// Fixture of the bean frame's tests: a recording COM object, a recording Java side, and access to the frame's protected members.
#pragma once

#include "beanframe/BeanFrame.h"
#include "beanframe/EventTarget.h"
#include "tests/beanframe/JavaSide.h"
#include "tests/beanframe/LoggedTest.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct FrameAccess : CBeanFrame
{
    using CBeanFrame::beanObject;
    using CBeanFrame::clientWindow;
    using CBeanFrame::eventsSuspended;
    using CBeanFrame::findDueEntry;
    using CBeanFrame::frameObject;
    using CBeanFrame::Handler;
    using CBeanFrame::InstanceUse;
    using CBeanFrame::listener;
    using CBeanFrame::processOnControlReady;
    using CBeanFrame::processOnCustomEvent;
    using CBeanFrame::processQueueEntry;
    using CBeanFrame::processTestBridgeEvent;
    using CBeanFrame::processWatchDogEvent;
    using CBeanFrame::QueueEntry;
    using CBeanFrame::queueEvent;
    using CBeanFrame::s_EventIndex;
    using CBeanFrame::s_EventQueue;
    using CBeanFrame::s_EventQueueLock;
    using CBeanFrame::s_InstanceUsers;
    using CBeanFrame::s_MainThreadId;
    using CBeanFrame::s_MessagePosted;
    using CBeanFrame::s_TickCount;
    using CBeanFrame::timerRoutine;
};

// The process's COM object as the frame sees it. Records its calls, and expects the queue to be unlocked in each.
class RecordingTarget final : public EventTarget, public IUnknown
{
public:
    RecordingTarget() { s_current = this; }
    ~RecordingTarget() { s_current = nullptr; }
    RecordingTarget(const RecordingTarget&) = delete;
    RecordingTarget& operator=(const RecordingTarget&) = delete;

    // "AddRef", "Release" and the events with their texts.
    std::vector<std::string> calls;
    // Only the events.
    std::vector<std::string> events;
    ULONG references = 1;
    class Point final : public IUnknown
    {
    public:
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
    } point;
    HRESULT answer = S_OK; // to an event
    std::function<void(const std::string& event)> onFire;
    std::function<void()> onLastRelease;

    // The result of eventTarget().
    static inline EventTarget* s_current = nullptr;

    IUnknown* targetUnknown() override { return this; }
    IUnknown* connectionPoint() override { return &point; }
    HRESULT Fire_testBridgeEvent(BSTR text) override { return fire("testBridgeEvent ", text); }
    HRESULT Fire_controlReady(BSTR arg0) override { return fire("controlReady ", arg0); }
    HRESULT Fire_customEvent(BSTR arg0) override { return fire("customEvent ", arg0); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

private:
    HRESULT fire(const std::string& event, BSTR text);
};

// Starts without a bean frame, and with a clock that only the test moves.
class BeanFrameWorld : public LoggedTest
{
protected:
    BeanFrameWorld();
    ~BeanFrameWorld() override;

    // On a recording Java side. Clears the collected log.
    void createFrame();
    static CBeanFrame& frame() { return *CBeanFrame::s_Instance; }
    // Makes the client one whose window is gone.
    static void killClient() { frame().*& FrameAccess::clientWindow = reinterpret_cast<HWND>(-2); }
    void customEvent(const char* text)
    {
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text(text));
    }
    static void queue(const char* text, FrameAccess::Handler handler = &FrameAccess::processOnCustomEvent, DWORD delay = 0)
    {
        (frame().*&FrameAccess::queueEvent)(CComBSTR(text), handler, delay);
    }
    static HRESULT processAt(DWORD now)
    {
        s_now = now;
        return CBeanFrame::processEventQueue();
    }
    // Removes and returns the messages in this thread's queue.
    static std::vector<UINT> takeMessages();
    // Waits up to ten seconds for a thread message and leaves it in the queue.
    static bool waitForMessage();

    static DWORD WINAPI testClock();
    static inline DWORD s_now = 0;

    NativeEnvironment environment;
    std::optional<JavaSide> java;
    RecordingTarget target;
};

// Whether this thread holds the queue's lock.
bool isQueueLocked();
