#include "atl/connection.h"

#include "atl/enumerator.h"

#include <algorithm>

namespace ATL {

namespace {

struct ConnectionPointItem
{
    using Type = IConnectionPoint*;
    using Owner = CComPtr<IConnectionPoint>;
    static Type handOut(const Owner& owner) noexcept { return Owner(owner).Detach(); }
};
using ConnectionPointEnum = CComEnum<IEnumConnectionPoints, ConnectionPointItem>;

struct Connection
{
    CComPtr<IUnknown> sink;
    DWORD cookie;
};

struct ConnectionItem
{
    using Type = CONNECTDATA;
    using Owner = Connection;
    static Type handOut(const Owner& owner) noexcept { return {CComPtr<IUnknown>(owner.sink).Detach(), owner.cookie}; }
};
using ConnectionEnum = CComEnum<IEnumConnections, ConnectionItem>;

} // namespace

DWORD CComDynamicUnkArray::Add(IUnknown* sink)
{
    auto slot = std::find_if(m_slots.begin(), m_slots.end(), [](const CComPtr<IUnknown>& entry) { return !entry; });
    if (slot == m_slots.end()) {
        slot = m_slots.insert(slot, nullptr);
    }
    *slot = sink;
    return static_cast<DWORD>(slot - m_slots.begin()) + 1;
}

bool CComDynamicUnkArray::Remove(DWORD cookie) noexcept
{
    if (cookie < 1 || cookie > m_slots.size() || !m_slots[cookie - 1]) {
        return false;
    }
    m_slots[cookie - 1].Release();
    return true;
}

IUnknown* CComDynamicUnkArray::GetAt(int index) const noexcept
{
    return index < 0 || index >= GetSize() ? nullptr : m_slots[static_cast<size_t>(index)].p;
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::QueryInterface(REFIID iid, void** object)
{
    static const ATL_INTMAP_ENTRY ENTRIES[] = {
        {&IID_IConnectionPoint,
         [](void* self) -> void* { return static_cast<IConnectionPoint*>(static_cast<CComConnectionPoint*>(self)); }},
        {nullptr, nullptr}};
    return AtlInternalQueryInterface(this, ENTRIES, iid, object);
}

ULONG STDMETHODCALLTYPE CComConnectionPoint::AddRef()
{
    return m_container->AddRef();
}

ULONG STDMETHODCALLTYPE CComConnectionPoint::Release()
{
    return m_container->Release();
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::GetConnectionInterface(IID* iid)
{
    if (iid == nullptr) {
        return E_POINTER;
    }
    *iid = m_iid;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** container)
{
    if (container == nullptr) {
        return E_POINTER;
    }
    *container = CComPtr<IConnectionPointContainer>(m_container).Detach();
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::Advise(IUnknown* sink, DWORD* cookie)
{
    if (cookie == nullptr) {
        return E_POINTER;
    }
    *cookie = 0;
    if (sink == nullptr) {
        return E_POINTER;
    }
    CComPtr<IUnknown> events;
    if (const HRESULT hr = sink->QueryInterface(m_iid, reinterpret_cast<void**>(&events)); FAILED(hr)) {
        return hr == E_NOINTERFACE ? CONNECT_E_CANNOTCONNECT : hr;
    }
    return AtlGuard([&]() -> HRESULT {
        *cookie = m_vec.Add(events);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::Unadvise(DWORD cookie)
{
    return m_vec.Remove(cookie) ? S_OK : CONNECT_E_NOCONNECTION;
}

HRESULT STDMETHODCALLTYPE CComConnectionPoint::EnumConnections(IEnumConnections** enumerator)
{
    return ConnectionEnum::Create(enumerator, 0, [this] {
        auto connections = std::make_shared<ConnectionEnum::List>();
        for (int index = 0; index < m_vec.GetSize(); ++index) {
            if (IUnknown* const sink = m_vec.GetAt(index); sink != nullptr) {
                connections->push_back({sink, static_cast<DWORD>(index) + 1});
            }
        }
        return connections;
    });
}

HRESULT AtlEnumConnectionPoints(void* self, const ATL_CONNMAP_ENTRY* entries, IEnumConnectionPoints** enumerator) noexcept
{
    return ConnectionPointEnum::Create(enumerator, 0, [=] {
        auto points = std::make_shared<ConnectionPointEnum::List>();
        for (const ATL_CONNMAP_ENTRY* entry = entries; entry->iid != nullptr; ++entry) {
            points->push_back(entry->point(self));
        }
        return points;
    });
}

HRESULT AtlFindConnectionPoint(void* self, const ATL_CONNMAP_ENTRY* entries, REFIID iid, IConnectionPoint** point) noexcept
{
    if (point == nullptr) {
        return E_POINTER;
    }
    *point = nullptr;
    for (const ATL_CONNMAP_ENTRY* entry = entries; entry->iid != nullptr; ++entry) {
        if (IsEqualIID(iid, *entry->iid)) {
            *point = CComPtr<IConnectionPoint>(entry->point(self)).Detach();
            return S_OK;
        }
    }
    return CONNECT_E_NOCONNECTION;
}

} // namespace ATL
