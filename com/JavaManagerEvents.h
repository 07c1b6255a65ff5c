// The event proxy: fires the events of _IJavaManagerEvents to every connected sink.
//
// Threads: the server's apartment thread only. A sink is called with no lock held and may meanwhile advise, unadvise, call in or
//          release the object (the caller of Fire_... holds a reference).
// Failure: a failing sink does not stop the others; the result is the last sink's. Only exhausted memory throws (CAtlException,
//          E_OUTOFMEMORY).
#pragma once

#include "KESTAserver_h.h"
#include "atl/atl.h"
#include "beanframe/EventTarget.h"

template <class T>
class CProxy_IJavaManagerEvents : public IConnectionPointImpl<T, &DIID__IJavaManagerEvents>, public EventTarget
{
public:
    IUnknown* connectionPoint() override { return this->GetConnectionPoint(); }
    HRESULT Fire_testBridgeEvent(BSTR text) override { return fire(2, text); }
    HRESULT Fire_controlReady(BSTR arg0) override { return fire(3, arg0); }
    HRESULT Fire_customEvent(BSTR arg0) override { return fire(4, arg0); }

private:
    HRESULT fire(DISPID event, BSTR text)
    {
        HRESULT result = S_OK;
        const int slots = this->m_vec.GetSize();
        for (int slot = 0; slot < slots; ++slot) {
            // The previous sink may have changed the array: an emptied slot reads as null.
            const CComPtr<IUnknown> sink(this->m_vec.GetAt(slot));
            if (!sink) {
                continue;
            }
            CComVariant argument(text);
            DISPPARAMS parameters = {&argument, nullptr, 1, 0};
            // The array holds the sink's pointer for the event interface, a dispinterface.
            IDispatch* const dispatch = static_cast<IDispatch*>(sink.p);
            result =
                dispatch->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr);
        }
        return result;
    }
};
