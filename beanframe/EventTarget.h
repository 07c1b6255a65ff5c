// What the bean frame needs from the room above: the object whose sinks an event reaches. Declared here and defined by the COM
// object's room, so that events travel up without the bean frame knowing the COM classes.
#pragma once

#include <windows.h>
#include <unknwn.h>
#include <oaidl.h>

// Main thread only. Firing calls every connected sink and may therefore re-enter the server: while it runs the client may call
// in, release the object or die.
class EventTarget
{
public:
    virtual IUnknown* targetUnknown() = 0; // not counted
    virtual HRESULT fireControlReady(BSTR text) = 0;
    virtual HRESULT fireCustomEvent(BSTR text) = 0;
    virtual HRESULT fireTestBridgeEvent(BSTR text) = 0;

protected:
    ~EventTarget() = default;
};

// The process's COM object, null before the first one is constructed.
EventTarget* eventTarget();
