#include "beanframe/BeanFrame.h"

#include "atl/enumerator.h"
#include "beanframe/EventTarget.h"
#include "javabridge/JavaManagerJNIClient.h"

#define LOG_SOURCE "BeanFrame"

namespace {

constexpr DWORD WATCHDOG_PERIOD = 15000; // ms

// Drops the references that COM holds for clients on the object, on its connection point and on enumerators, without needing
// memory. The enumerators come last: their end releases sinks, and meanwhile COM may handle another client's call, which must
// find nothing to get a new reference from.
void disconnectClients(EventTarget* target)
{
    CoDisconnectObject(target->targetUnknown(), 0);
    CoDisconnectObject(target->connectionPoint(), 0);
    AtlDisconnectEnumerators();
}

} // namespace

HRESULT CBeanFrame::pushWindowHandle(int wndhandle)
{
    LOG_SCOPE(INFO, "CBeanFrame::pushWindowHandle", wndhandle);
    // Window handles have 32 significant bits; Windows widens them by sign extension.
    clientWindow = reinterpret_cast<HWND>(static_cast<INT_PTR>(wndhandle));
    CJavaManagerJNIClient* const client = CJavaManagerJNIClient::s_Instance;
    const HRESULT result = client != nullptr ? client->addBean(frameObject, beanObject) : E_FAIL;
    LOG(TRACE, "Starting WatchDog on server side...");
    queueEvent(nullptr, &CBeanFrame::processWatchDogEvent, WATCHDOG_PERIOD);
    return result;
}

bool CBeanFrame::isClientAlive()
{
    LOG_SCOPE(FINE, "CBeanFrame::isClientAlive");
    const HWND window = clientWindow;
    if (window == nullptr) {
        LOG(TRACE, "Frame's window not yet set, thus no check!");
        return true;
    }
    if (!IsWindow(window)) {
        LOG(TRACE, "Frame's window seems not to be alive anymore! (invalid window handle) ");
        return false;
    }
    if (GetParent(window) == nullptr || GetParent(window) == GetDesktopWindow()) {
        LOG(TRACE, "Frame's window has no valid parent anymore!");
        return false;
    }
    return true;
}

void CBeanFrame::processWatchDogEvent(BSTR text)
{
    LOG_SCOPE(FINE, "CBeanFrame::processWatchDogEvent", text);
    if (eventTarget() == nullptr || isClientAlive()) {
        queueEvent(nullptr, &CBeanFrame::processWatchDogEvent, WATCHDOG_PERIOD);
        return;
    }
    LOG(WARN, "Client seems to be not alive... releasing event sinks.");
    LOG(WARN, "Releasing ATL object.");

    // COM holds references on behalf of the dead client and would use them after the object is gone, so they are dropped first.
    // Then every remaining reference is released, no matter who holds it.
    IUnknown* const object = eventTarget()->targetUnknown();
    object->AddRef();
    disconnectClients(eventTarget());
    ULONG count = object->Release();
    while (count != 0) {
        LOG(TRACE, "More objects to release...");
        count = eventTarget()->targetUnknown()->Release();
    }
    // The bean frame was deleted with the object: no member may be used from here on.
    LOG_PLAIN(INFO, "Releasing all sinks and objects done");
}
