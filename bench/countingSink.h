// A client's sink that only counts.
#pragma once

#include "KESTAserver_h.h"
#include "atl/atl.h"

#include <stdexcept>

namespace bench {

class CCountingSink final : public IDispatch
{
public:
    explicit CCountingSink(IUnknown* object)
    {
        CComPtr<IConnectionPointContainer> container;
        if (FAILED(object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container))) ||
            FAILED(container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point)) ||
            FAILED(m_point->Advise(this, &m_cookie))) {
            throw std::runtime_error("the sink cannot be connected");
        }
    }
    ~CCountingSink() { m_point->Unadvise(m_cookie); }
    CCountingSink(const CCountingSink&) = delete;
    CCountingSink& operator=(const CCountingSink&) = delete;

    long long events = 0;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == DIID__IJavaManagerEvents;
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    // Lives as long as its owner, which is longer than the connection.
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        ++events;
        return S_OK;
    }

private:
    CComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
};

} // namespace bench
