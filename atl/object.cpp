#include "atl/object.h"

#include "atl/module.h"

namespace ATL {

void AtlLockModule() noexcept
{
    _pAtlModule->Lock();
}

void AtlUnlockModule() noexcept
{
    _pAtlModule->Unlock();
}

HRESULT AtlInternalQueryInterface(void* self, const ATL_INTMAP_ENTRY* entries, REFIID iid, void** object) noexcept
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    for (const ATL_INTMAP_ENTRY* entry = entries; entry->iid != nullptr; ++entry) {
        if (IsEqualIID(iid, *entry->iid) || IsEqualIID(iid, IID_IUnknown)) {
            auto* const answer = static_cast<IUnknown*>(entry->cast(self));
            answer->AddRef();
            *object = answer;
            return S_OK;
        }
    }
    return E_NOINTERFACE;
}

HRESULT CComClassFactory::Create(Creator creator, REFIID iid, void** factory) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): the guard is the handler
        const CComPtr<CComClassFactory> created(new CComClassFactory(creator));
        return created->QueryInterface(iid, factory);
    });
}

HRESULT STDMETHODCALLTYPE CComClassFactory::QueryInterface(REFIID iid, void** object)
{
    static const ATL_INTMAP_ENTRY ENTRIES[] = {
        {&IID_IClassFactory,
         [](void* self) -> void* { return static_cast<IClassFactory*>(static_cast<CComClassFactory*>(self)); }},
        {nullptr, nullptr}};
    return AtlInternalQueryInterface(this, ENTRIES, iid, object);
}

ULONG STDMETHODCALLTYPE CComClassFactory::AddRef()
{
    return CComSingleThreadModel::Increment(m_dwRef);
}

ULONG STDMETHODCALLTYPE CComClassFactory::Release()
{
    const ULONG count = CComSingleThreadModel::Decrement(m_dwRef);
    if (count == 0) {
        delete this;
    }
    return count;
}

HRESULT STDMETHODCALLTYPE CComClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (outer != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    return m_creator(iid, object);
}

HRESULT STDMETHODCALLTYPE CComClassFactory::LockServer(BOOL lock)
{
    lock ? AtlLockModule() : AtlUnlockModule();
    return S_OK;
}

HRESULT AtlReportError(const CLSID& clsid, const char* description, const IID& iid, HRESULT hr) noexcept
{
    AtlGuard([&]() -> HRESULT {
        const CComBSTR text(description);
        CComPtr<ICreateErrorInfo> creation;
        CComPtr<IErrorInfo> info;
        if (FAILED(CreateErrorInfo(&creation)) || FAILED(creation.QueryInterface(&info))) {
            return E_FAIL;
        }
        creation->SetGUID(iid);
        if (LPOLESTR progId = nullptr; SUCCEEDED(ProgIDFromCLSID(clsid, &progId))) {
            creation->SetSource(progId);
            CoTaskMemFree(progId);
        }
        creation->SetDescription(text);
        return SetErrorInfo(0, info);
    });
    return hr;
}

} // namespace ATL
