// Retries calls that a client rejects because it is busy, for instance while it shows a modal dialog. Without it, COM gives up at
// once, and the event is lost.
//
// Ownership: registered from construction to destruction. COM's references are not counted: they end with the registration.
// Threads:   the apartment thread. While COM waits for the next try, it handles incoming calls.
// Failure:   a filter that cannot be registered and a call that is given up leave a WARN line each.
#pragma once

#include <windows.h>
#include <objidl.h>

class CRejectedCallFilter final : public IMessageFilter
{
public:
    CRejectedCallFilter();
    ~CRejectedCallFilter();
    CRejectedCallFilter(const CRejectedCallFilter&) = delete;
    CRejectedCallFilter& operator=(const CRejectedCallFilter&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    // Incoming calls and pending messages are handled as without a filter.
    DWORD STDMETHODCALLTYPE HandleInComingCall(DWORD callType, HTASK caller, DWORD elapsed, INTERFACEINFO* info) override;
    DWORD STDMETHODCALLTYPE MessagePending(HTASK callee, DWORD elapsed, DWORD pendingType) override;
    // `elapsed` is the time in ms since the first try.
    DWORD STDMETHODCALLTYPE RetryRejectedCall(HTASK callee, DWORD elapsed, DWORD rejectType) override;
};
