// IDispatch of a dual interface, from the type information in a registered type library.
//
// Ownership: type information is loaded by the first call that needs it and kept until the process ends, deliberately: it must
//            not be released once COM has been uninitialised.
// Threads:   the apartment thread.
// Failure:   HRESULTs. When the type information cannot be loaded (the library is not registered, the interface is not in it)
//            the next call tries again.
#pragma once

#include "atl/base.h"

namespace ATL {

// One interface's type information.
class CComTypeInfoHolder
{
public:
    constexpr CComTypeInfoHolder(const IID* iid, const GUID* libid, WORD major, WORD minor) noexcept
        : m_iid(iid)
        , m_libid(libid)
        , m_major(major)
        , m_minor(minor)
    {
    }

    // The type information for the user's language, with a reference for the caller.
    HRESULT GetTI(ITypeInfo** info) noexcept;

private:
    const IID* m_iid;
    const GUID* m_libid;
    WORD m_major;
    WORD m_minor;
    ITypeInfo* m_info = nullptr;
};

// T is the dual interface, e.g. IDispatchImpl<IThing, &IID_IThing, &LIBID_ThingLib, 1, 0>.
template <class T, const IID* iid, const GUID* libid, WORD major, WORD minor>
class IDispatchImpl : public T
{
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        if (count == nullptr) {
            return E_POINTER;
        }
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID /*locale*/, ITypeInfo** info) override
    {
        if (info == nullptr) {
            return E_POINTER;
        }
        *info = nullptr;
        return index == 0 ? s_typeInfo.GetTI(info) : DISP_E_BADINDEX;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID /*reserved*/, LPOLESTR* names, UINT count, LCID /*locale*/,
                                            DISPID* ids) override
    {
        CComPtr<ITypeInfo> info;
        const HRESULT hr = s_typeInfo.GetTI(&info);
        return FAILED(hr) ? hr : info->GetIDsOfNames(names, count, ids);
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID /*reserved*/, LCID /*locale*/, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        CComPtr<ITypeInfo> info;
        const HRESULT hr = s_typeInfo.GetTI(&info);
        return FAILED(hr) ? hr : info->Invoke(static_cast<T*>(this), id, flags, parameters, result, exception, argumentError);
    }

protected:
    ~IDispatchImpl() = default;

private:
    static inline CComTypeInfoHolder s_typeInfo{iid, libid, major, minor};
};

} // namespace ATL
