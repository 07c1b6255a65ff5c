#include "tests/beanframe/BeanFrameWorld.h"

EventTarget* eventTarget()
{
    return RecordingTarget::s_current;
}

bool isQueueLocked()
{
    // The critical section is the class's first member.
    const auto& section = reinterpret_cast<const CRITICAL_SECTION&>(FrameAccess::s_EventQueueLock);
    return section.OwningThread == ULongToHandle(GetCurrentThreadId());
}

HRESULT RecordingTarget::fire(const std::string& event, BSTR text)
{
    EXPECT_FALSE(isQueueLocked());
    const std::string call = event + (text != nullptr ? narrowText(text) : "(null)");
    calls.push_back(call);
    events.push_back(call);
    if (onFire) {
        onFire(call);
    }
    return answer;
}

HRESULT STDMETHODCALLTYPE RecordingTarget::QueryInterface(REFIID, void** object)
{
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE RecordingTarget::AddRef()
{
    calls.emplace_back("AddRef");
    return ++references;
}

ULONG STDMETHODCALLTYPE RecordingTarget::Release()
{
    EXPECT_FALSE(isQueueLocked());
    calls.emplace_back("Release");
    const ULONG count = --references;
    if (count == 0 && onLastRelease) {
        onLastRelease();
    }
    return count;
}

BeanFrameWorld::BeanFrameWorld()
{
    s_now = 1000;
    FrameAccess::s_TickCount = testClock;
    FrameAccess::s_MessagePosted = false;
    takeMessages(); // creates this thread's message queue
}

BeanFrameWorld::~BeanFrameWorld()
{
    if (java) {
        java->insideMethods = nullptr;
    }
    if (CBeanFrame::s_Instance != nullptr) {
        CBeanFrame::deleteInstance();
    }
    EXPECT_FALSE(isQueueLocked()) << "every path gives the lock back";
    FrameAccess::s_EventQueue.clear();
    FrameAccess::s_EventIndex.clear();
    if (!java) {
        CJavaManagerJNIClient::cleanUp();
    }
    FrameAccess::s_TickCount = GetTickCount;
}

void BeanFrameWorld::createFrame()
{
    java.emplace();
    CBeanFrame::createInstance("C:\\controls\\basis.jar", "com.maker.win", "Control");
    java->jni.takeCalls();
    stream.clear();
}

std::vector<UINT> BeanFrameWorld::takeMessages()
{
    std::vector<UINT> result;
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.hwnd == nullptr) {
            result.push_back(message.message);
        }
    }
    return result;
}

bool BeanFrameWorld::waitForMessage()
{
    return MsgWaitForMultipleObjectsEx(0, nullptr, 10000, QS_POSTMESSAGE, MWMO_INPUTAVAILABLE) == WAIT_OBJECT_0;
}

// The queue must read its clock under its lock: otherwise an entry could get an older due time than one queued before it.
DWORD WINAPI BeanFrameWorld::testClock()
{
    EXPECT_TRUE(isQueueLocked());
    return s_now;
}
