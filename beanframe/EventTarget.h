// What the bean frame needs from the layer above: the object whose sinks an event reaches. Declared here and defined in com/, so
// that events travel up without the bean frame knowing the COM classes.
#pragma once

#include <windows.h>
#include <unknwn.h>
#include <oaidl.h>

// Main thread only. Firing calls every connected sink and may therefore re-enter the server: while it runs the client may call
// in, release the object or die. The caller holds a reference.
class EventTarget
{
public:
    // Neither is counted. The connection point is part of the object, but a COM identity of its own.
    virtual IUnknown* targetUnknown() = 0;
    virtual IUnknown* connectionPoint() = 0;
    // Each returns the last sink's result, S_OK without sinks.
    virtual HRESULT Fire_testBridgeEvent(BSTR text) = 0;
    virtual HRESULT Fire_controlReady(BSTR arg0) = 0;
    virtual HRESULT Fire_customEvent(BSTR arg0) = 0;

protected:
    ~EventTarget() = default;
};

// The process's COM object, null before the first one is constructed.
EventTarget* eventTarget();
