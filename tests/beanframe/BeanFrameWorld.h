// What the tests of the bean frame share: a COM object that records, a recording Java side, and access to what the frame keeps to
// itself.
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

// The process's COM object as the frame sees it. Records what is called and expects the queue to be unlocked meanwhile.
class RecordingTarget final : public EventTarget, public IUnknown
{
public:
    RecordingTarget() { s_current = this; }
    ~RecordingTarget() { s_current = nullptr; }
    RecordingTarget(const RecordingTarget&) = delete;
    RecordingTarget& operator=(const RecordingTarget&) = delete;

    // "AddRef", "Release" and the events with their texts.
    std::vector<std::string> calls;
    // The events alone.
    std::vector<std::string> events;
    ULONG references = 1;
    HRESULT answer = S_OK; // to an event
    std::function<void(const std::string& event)> onFire;
    std::function<void()> onLastRelease;

    // What eventTarget() answers.
    static inline EventTarget* s_current = nullptr;

    IUnknown* targetUnknown() override { return this; }
    HRESULT Fire_testBridgeEvent(BSTR text) override { return fire("testBridgeEvent ", text); }
    HRESULT Fire_controlReady(BSTR arg0) override { return fire("controlReady ", arg0); }
    HRESULT Fire_customEvent(BSTR arg0) override { return fire("customEvent ", arg0); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

private:
    HRESULT fire(const std::string& event, BSTR text);
};

// A clock that stands still until the test moves it, and no bean frame yet.
class BeanFrameWorld : public LoggedTest
{
protected:
    BeanFrameWorld();
    ~BeanFrameWorld() override;

    // With a recording Java side below; from here on the log is collected anew.
    void createFrame();
    static CBeanFrame& frame() { return *CBeanFrame::s_Instance; }
    // A client whose window is gone.
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
    // Takes the messages out of this thread's queue.
    static std::vector<UINT> takeMessages();
    // Until a thread message is there, at most ten seconds. It stays in the queue.
    static bool waitForMessage();

    static DWORD WINAPI testClock();
    static inline DWORD s_now = 0;

    NativeEnvironment environment;
    std::optional<JavaSide> java;
    RecordingTarget target;
};

// Whether this thread holds the queue's lock.
bool isQueueLocked();
