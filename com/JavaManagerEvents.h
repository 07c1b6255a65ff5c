// The event proxy: fires the events of _IJavaManagerEvents to every connected sink.
//
// Threads: the server's apartment thread only. A sink is called with no lock held and may do anything meanwhile: advise,
//          unadvise, call in, release the object (whoever fires holds a reference).
// Failure: a failing sink does not stop the others; the result is the last sink's. Only an exhausted memory throws
//          (CAtlException, E_OUTOFMEMORY).
#pragma once

#include "KESTAserver_h.h"
#include "atl/atl.h"

template <class T>
class CProxy_IJavaManagerEvents : public IConnectionPointImpl<T, &DIID__IJavaManagerEvents>
{
public:
    HRESULT Fire_testBridgeEvent(BSTR text) { return fire(2, text); }
    HRESULT Fire_controlReady(BSTR arg0) { return fire(3, arg0); }
    HRESULT Fire_customEvent(BSTR arg0) { return fire(4, arg0); }

private:
    HRESULT fire(DISPID event, BSTR text)
    {
        HRESULT result = S_OK;
        const int slots = this->m_vec.GetSize();
        for (int slot = 0; slot < slots; ++slot) {
            // The array may have changed during the previous call: bounds are read again, and a slot that is gone reads as empty.
            const CComPtr<IUnknown> sink(this->m_vec.GetAt(slot));
            if (!sink) {
                continue;
            }
            CComVariant argument(text);
            DISPPARAMS parameters = {&argument, nullptr, 1, 0};
            // The sink was stored through its query for the event interface, which is a dispinterface.
            IDispatch* const dispatch = static_cast<IDispatch*>(sink.p);
            result =
                dispatch->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr);
        }
        return result;
    }
};
