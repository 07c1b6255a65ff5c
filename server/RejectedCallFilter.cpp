#include "server/RejectedCallFilter.h"

#include "support/logger.h"

#define LOG_SOURCE "KESTAserver"

namespace {

constexpr DWORD RETRY_LIMIT = 5000; // ms. Later events and the watchdog wait as long.
constexpr DWORD RETRY_PAUSE = 100;  // ms; COM takes a smaller number for "at once"
constexpr DWORD GIVE_UP = static_cast<DWORD>(-1);

} // namespace

CRejectedCallFilter::CRejectedCallFilter()
{
    const HRESULT hr = CoRegisterMessageFilter(this, nullptr);
    if (FAILED(hr)) {
        LOG(WARN, "Calls that a client rejects are not retried: " << std::hex << hr);
    }
}

CRejectedCallFilter::~CRejectedCallFilter()
{
    CoRegisterMessageFilter(nullptr, nullptr);
}

HRESULT CRejectedCallFilter::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = iid == IID_IUnknown || iid == IID_IMessageFilter ? static_cast<IMessageFilter*>(this) : nullptr;
    return *object != nullptr ? S_OK : E_NOINTERFACE;
}

DWORD CRejectedCallFilter::HandleInComingCall(DWORD, HTASK, DWORD, INTERFACEINFO*)
{
    return SERVERCALL_ISHANDLED;
}

DWORD CRejectedCallFilter::MessagePending(HTASK, DWORD, DWORD)
{
    return PENDINGMSG_WAITDEFPROCESS;
}

DWORD CRejectedCallFilter::RetryRejectedCall(HTASK, DWORD elapsed, DWORD)
{
    if (elapsed < RETRY_LIMIT) {
        return RETRY_PAUSE;
    }
    LOG(WARN, "A call was given up: the client has rejected it for " << elapsed << " ms.");
    return GIVE_UP;
}
