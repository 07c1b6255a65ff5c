#include "tests/beanframe/BeanFrameWorld.h"

#include <sstream>

EventTarget* eventTarget()
{
    return RecordingTarget::s_current;
}

HRESULT RecordingTarget::fire(const char* event, BSTR text)
{
    const std::string call = std::string(event) + " " + (text != nullptr ? narrowText(text) : "(null)");
    calls.push_back(call);
    events.push_back(call);
    if (onFire) {
        onFire(call);
    }
    return answer;
}

HRESULT STDMETHODCALLTYPE RecordingTarget::QueryInterface(REFIID iid, void** object)
{
    *object = iid == IID_IMarshal ? &m_marshaler : nullptr;
    return *object != nullptr ? S_OK : E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE RecordingTarget::AddRef()
{
    calls.push_back("AddRef");
    return ++references;
}

ULONG STDMETHODCALLTYPE RecordingTarget::Release()
{
    calls.push_back("Release");
    const ULONG count = --references;
    if (count == 0 && onLastRelease) {
        onLastRelease();
    }
    return count;
}

HRESULT STDMETHODCALLTYPE RecordingTarget::Marshaler::DisconnectObject(DWORD)
{
    m_target.calls.push_back("DisconnectObject");
    if (m_target.onDisconnect) {
        m_target.onDisconnect();
    }
    return S_OK;
}

BeanFrameWorld::BeanFrameWorld()
{
    world.setPreference("loglevel", LOGLEVEL_TRACE);
    world.setPreference("logpath", "");
    world.start();
    s_now = 1000;
    FrameAccess::s_TickCount = testClock;
    FrameAccess::s_MessagePosted = false;
    takeMessages(); // gives this thread its message queue
    stream.clear();
}

BeanFrameWorld::~BeanFrameWorld()
{
    if (java) {
        java->insideVoidMethods = java->insideObjectMethods = nullptr;
    }
    if (CBeanFrame::s_Instance != nullptr) {
        CBeanFrame::deleteInstance();
    }
    EXPECT_TRUE(isQueueUnlocked()) << "every path gives the lock back";
    FrameAccess::s_EventQueue.clear();
    FrameAccess::s_EventIndex.clear();
    if (!java) {
        CJavaManagerJNIClient::cleanUp();
    }
    FrameAccess::s_TickCount = GetTickCount;
    takeMessages();
}

void BeanFrameWorld::createFrame()
{
    java.emplace();
    CBeanFrame::createInstance("C:\\controls\\basis.jar", "com.maker.win", "Control");
    java->jni.takeCalls();
    stream.clear();
}

void BeanFrameWorld::queue(const char* text, FrameAccess::Handler handler, DWORD delay)
{
    (frame().*&FrameAccess::queueEvent)(CComBSTR(text), handler, delay);
}

std::string BeanFrameWorld::address(const void* pointer)
{
    std::ostringstream text;
    text << pointer;
    return text.str();
}

std::vector<BeanFrameWorld::Message> BeanFrameWorld::takeMessages()
{
    std::vector<Message> result;
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.hwnd == nullptr) {
            result.push_back({message.message, message.wParam, message.lParam});
        }
    }
    return result;
}

bool BeanFrameWorld::waitForMessage()
{
    return MsgWaitForMultipleObjectsEx(0, nullptr, 10000, QS_POSTMESSAGE, MWMO_INPUTAVAILABLE) == WAIT_OBJECT_0;
}

bool BeanFrameWorld::isQueueUnlocked()
{
    const auto take = [](void*) -> DWORD {
        const CComCritSecLock lock(FrameAccess::s_EventQueueLock);
        return 0;
    };
    // Waited for to its very end: one that still ended while the next one began has been seen to block the process for good.
    const CHandle thread(CreateThread(nullptr, 0, take, nullptr, 0, nullptr));
    return WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0;
}
