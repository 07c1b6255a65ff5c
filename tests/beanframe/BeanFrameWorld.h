// What the tests of the bean frame share: a process of its own for the log, a COM object that records, and ways to what the frame
// keeps to itself.
#pragma once

#include "beanframe/BeanFrame.h"
#include "tests/beanframe/JavaSide.h"
#include "tests/beanframe/ModuleLines.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Opens the frame's protected parts.
struct FrameAccess : CBeanFrame
{
    using CBeanFrame::beanObject;
    using CBeanFrame::clientWindow;
    using CBeanFrame::EntryIndex;
    using CBeanFrame::EntryList;
    using CBeanFrame::eventsSuspended;
    using CBeanFrame::frameObject;
    using CBeanFrame::Handler;
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
    using CBeanFrame::takeDueEntry;
    using CBeanFrame::timerRoutine;
};

// The process's COM object as the frame sees it. Counts its references, notes what is called, and does what the test hangs in.
class RecordingTarget final : public EventTarget, private IUnknown
{
public:
    RecordingTarget() { s_current = this; }
    ~RecordingTarget() { s_current = nullptr; }
    RecordingTarget(const RecordingTarget&) = delete;
    RecordingTarget& operator=(const RecordingTarget&) = delete;

    IUnknown* targetUnknown() override { return this; }
    HRESULT fireControlReady(BSTR text) override { return fire("controlReady", text); }
    HRESULT fireCustomEvent(BSTR text) override { return fire("customEvent", text); }
    HRESULT fireTestBridgeEvent(BSTR text) override { return fire("testBridgeEvent", text); }

    // "AddRef", "Release", "DisconnectObject" and the events with their texts.
    std::vector<std::string> calls;
    // The events alone.
    std::vector<std::string> events;
    ULONG references = 1;
    // What firing returns.
    HRESULT answer = S_OK;
    std::function<void(const std::string& event)> onFire;
    std::function<void()> onDisconnect;
    std::function<void()> onLastRelease;

    // What eventTarget() answers.
    static inline EventTarget* s_current = nullptr;

private:
    // COM asks an object that marshals itself to take back its clients' references. Not counted with the object.
    class Marshaler final : public IMarshal
    {
    public:
        explicit Marshaler(RecordingTarget& target)
            : m_target(target)
        {
        }
        HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD reserved) override;
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID*) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD, DWORD*) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE MarshalInterface(IStream*, REFIID, void*, DWORD, void*, DWORD) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream*, REFIID, void**) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream*) override { return E_NOTIMPL; }

    private:
        RecordingTarget& m_target;
    };

    HRESULT fire(const char* event, BSTR text);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    Marshaler m_marshaler{*this};
};

// A log at TRACE that goes to the debugger stream only, an empty registry (no Java runtime there), a clock that stands still
// until the test moves it, and no bean frame yet.
class BeanFrameWorld : public testing::Test
{
protected:
    BeanFrameWorld();
    ~BeanFrameWorld() override;

    // With a recording Java side below; from here on the log is collected anew.
    void createFrame();
    static CBeanFrame& frame() { return *CBeanFrame::s_Instance; }
    static void queue(const char* text, FrameAccess::Handler handler, DWORD delay);

    std::vector<std::string> lines() const { return moduleLines(stream, "BeanFrame"); }
    // What stands between the level and the text in the lines of the frame.
    static std::string object() { return "CBeanFrame " + std::to_string(GetCurrentProcessId()) + " "; }
    static std::string address(const void* pointer);

    // The messages in this thread's queue, taken out: message, wParam and lParam.
    struct Message
    {
        UINT number;
        WPARAM wParam;
        LPARAM lParam;
        bool operator==(const Message&) const = default;
    };
    static std::vector<Message> takeMessages();
    // Until the next thread message is there, at most ten seconds. It stays in the queue.
    static bool waitForMessage();
    // Whether another thread gets the queue's lock, within ten seconds.
    static bool isQueueUnlocked();

    static constexpr Message PROCESS_QUEUE = {0x8003, 0, 0};

    static DWORD WINAPI testClock() { return s_now; }
    static inline DWORD s_now = 0;

    fixtures::LoggerWorld world;
    NativeEnvironment environment;
    std::optional<JavaSide> java;
    RecordingTarget target;
    fixtures::DebugStream stream;
};
