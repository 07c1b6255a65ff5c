// Connection points: an object's outgoing interfaces, and the sinks that its clients have connected to them.
//
// A sink's cookie is the 1-based position of its slot. Unadvise leaves the slot empty (null); the next Advise takes the first
// empty one. A sink may advise and unadvise while it is being called: code that fires an event reads each slot when its turn
// comes and holds a reference to the sink during the call.
//
// Ownership: a slot holds a reference to its sink; those left are released when the object is destroyed.
// Threads:   the apartment thread; nothing locks.
// Failure:   HRESULTs.
#pragma once

#include "atl/object.h"

#include <ocidl.h>
#include <olectl.h>

#include <vector>

namespace ATL {

// The slots of one connection point.
class CComDynamicUnkArray
{
public:
    CComDynamicUnkArray() = default;
    CComDynamicUnkArray(const CComDynamicUnkArray&) = delete;
    CComDynamicUnkArray& operator=(const CComDynamicUnkArray&) = delete;

    // Keeps the sink in the first empty slot and returns the cookie. Throws std::bad_alloc.
    DWORD Add(IUnknown* sink);
    // The slot is empty before the sink is released. False when the cookie names no occupied slot.
    bool Remove(DWORD cookie) noexcept;
    // The number of slots, empty ones included; it never falls.
    int GetSize() const noexcept { return static_cast<int>(m_slots.size()); }
    // The sink of a slot without a reference; null for an empty slot and for an index out of range.
    IUnknown* GetAt(int index) const noexcept;

private:
    std::vector<CComPtr<IUnknown>> m_slots;
};

// One connection point. It is part of its object and its references are references to the object, but it has an identity
// (IUnknown) of its own.
class CComConnectionPoint final : public IConnectionPoint
{
public:
    CComConnectionPoint(const IID& iid, IConnectionPointContainer* container) noexcept
        : m_iid(iid)
        , m_container(container)
    {
    }
    ~CComConnectionPoint() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override;
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override;
    // Asks the sink for the event interface and keeps that pointer; CONNECT_E_CANNOTCONNECT when it has none.
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
    // CONNECT_E_NOCONNECTION when the cookie names no sink.
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
    // The sinks and cookies of the occupied slots.
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** enumerator) override;

    CComDynamicUnkArray m_vec;

private:
    const IID& m_iid;
    IConnectionPointContainer* const m_container;
};

// Base of a class T that fires the events of *iid. m_vec holds each sink as its pointer for *iid.
template <class T, const IID* iid>
class IConnectionPointImpl
{
public:
    IConnectionPoint* GetConnectionPoint() noexcept { return &m_point; }

protected:
    IConnectionPointImpl() = default;
    IConnectionPointImpl(const IConnectionPointImpl&) = delete;
    IConnectionPointImpl& operator=(const IConnectionPointImpl&) = delete;
    ~IConnectionPointImpl() = default;

private:
    CComConnectionPoint m_point{*iid, static_cast<T*>(this)};

protected:
    CComDynamicUnkArray& m_vec = m_point.m_vec;
};

// One entry of an object's connection point map.
struct ATL_CONNMAP_ENTRY
{
    const IID* iid;
    IConnectionPoint* (*point)(void* object);
};

// clang-format off
#define BEGIN_CONNECTION_POINT_MAP(x)                                                                                            \
public:                                                                                                                          \
    using ConnectionMapClass = x;                                                                                                \
    static const ATL::ATL_CONNMAP_ENTRY* GetConnMap() noexcept                                                                   \
    {                                                                                                                            \
        static const ATL::ATL_CONNMAP_ENTRY ENTRIES[] = {

#define CONNECTION_POINT_ENTRY(interfaceId)                                                                                      \
            {&interfaceId, [](void* self) -> IConnectionPoint* {                                                                 \
                 using Point = ATL::IConnectionPointImpl<ConnectionMapClass, &interfaceId>;                                      \
                 return static_cast<Point*>(static_cast<ConnectionMapClass*>(self))->GetConnectionPoint();                       \
             }},

#define END_CONNECTION_POINT_MAP()                                                                                               \
            {nullptr, nullptr}};                                                                                                 \
        return ENTRIES;                                                                                                          \
    }
// clang-format on

HRESULT AtlEnumConnectionPoints(void* self, const ATL_CONNMAP_ENTRY* entries, IEnumConnectionPoints** enumerator) noexcept;
HRESULT AtlFindConnectionPoint(void* self, const ATL_CONNMAP_ENTRY* entries, REFIID iid, IConnectionPoint** point) noexcept;

// The container of T's connection points; T has a connection point map.
template <class T>
class IConnectionPointContainerImpl : public IConnectionPointContainer
{
public:
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** enumerator) override
    {
        return AtlEnumConnectionPoints(static_cast<T*>(this), T::GetConnMap(), enumerator);
    }
    // CONNECT_E_NOCONNECTION when the object has no such outgoing interface.
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override
    {
        return AtlFindConnectionPoint(static_cast<T*>(this), T::GetConnMap(), iid, point);
    }

protected:
    ~IConnectionPointContainerImpl() = default;
};

} // namespace ATL
