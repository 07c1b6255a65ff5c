#include "atl/dispatch.h"

namespace ATL {

HRESULT CComTypeInfoHolder::GetTI(ITypeInfo** info) noexcept
{
    if (m_info == nullptr) {
        CComPtr<ITypeLib> library;
        // Falls back from the user's language to the neutral one.
        if (const HRESULT hr = LoadRegTypeLib(*m_libid, m_major, m_minor, LOCALE_USER_DEFAULT, &library); FAILED(hr)) {
            return hr;
        }
        if (const HRESULT hr = library->GetTypeInfoOfGuid(*m_iid, &m_info); FAILED(hr)) {
            m_info = nullptr;
            return hr;
        }
    }
    m_info->AddRef();
    *info = m_info;
    return S_OK;
}

} // namespace ATL
