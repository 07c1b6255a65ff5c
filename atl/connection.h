// Connection points: an object's outgoing interfaces and the sinks that listen to them.
//
// All calls come on the apartment thread; nothing locks. A sink's cookie is the 1-based position of its slot. Unadvise leaves the
// slot empty (null), the next Advise takes the first empty one. While a sink is being called it may advise and unadvise: whoever
// walks the slots reads size and slot again at every step and holds a reference of its own for the length of a call. The sinks
// that are left are released when the object is destroyed.
#pragma once

#include "atl/object.h"

#include <ocidl.h>
#include <olectl.h>

#include <memory>
#include <vector>

namespace ATL {

// The slots of one connection point.
class CComDynamicUnkArray
{
public:
    CComDynamicUnkArray() = default;
    CComDynamicUnkArray(const CComDynamicUnkArray&) = delete;
    CComDynamicUnkArray& operator=(const CComDynamicUnkArray&) = delete;

    // Keeps the sink in the first empty slot, with a reference of its own, and returns the cookie. Throws E_OUTOFMEMORY.
    DWORD Add(IUnknown* sink);
    // False when the cookie names no occupied slot.
    bool Remove(DWORD cookie) noexcept;
    // The number of slots, empty ones included. It never shrinks.
    int GetSize() const noexcept { return static_cast<int>(m_slots.size()); }
    // The sink of a slot without a reference; null for an empty slot and for an index out of range.
    IUnknown* GetAt(int index) const noexcept;

private:
    std::vector<CComPtr<IUnknown>> m_slots;
};

// One connection point. It is part of its object: it lives as long as the object and counts on the object's count, but has an
// identity (IUnknown) of its own.
class CComConnectionPoint : public IConnectionPoint
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override;
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override;
    // Asks the sink for the event interface and keeps that pointer; CONNECT_E_CANNOTCONNECT when it has none.
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
    // CONNECT_E_NOCONNECTION when the cookie names no sink.
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
    // The sinks and cookies of the occupied slots at this moment.
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** enumerator) override;

    CComDynamicUnkArray m_vec;

protected:
    explicit CComConnectionPoint(const IID& iid) noexcept
        : m_iid(iid)
    {
    }
    ~CComConnectionPoint() = default;

private:
    virtual IConnectionPointContainer* Container() noexcept = 0;

    const IID& m_iid;
};

// Base of a class T that fires the events of *iid: m_vec holds the sinks, each as the pointer its query for *iid gave.
template <class T, const IID* iid>
class IConnectionPointImpl
{
    class CPoint final : public CComConnectionPoint
    {
    public:
        explicit CPoint(IConnectionPointImpl& owner) noexcept
            : CComConnectionPoint(*iid)
            , m_owner(owner)
        {
        }

    private:
        IConnectionPointContainer* Container() noexcept override { return static_cast<T*>(&m_owner); }

        IConnectionPointImpl& m_owner;
    };

public:
    IConnectionPoint* GetConnectionPoint() noexcept { return &m_point; }

protected:
    IConnectionPointImpl() = default;
    IConnectionPointImpl(const IConnectionPointImpl&) = delete;
    IConnectionPointImpl& operator=(const IConnectionPointImpl&) = delete;
    ~IConnectionPointImpl() = default;

private:
    CPoint m_point{*this};

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
        static const ATL::ATL_CONNMAP_ENTRY entries[] = {

#define CONNECTION_POINT_ENTRY(interfaceId)                                                                                      \
            {&interfaceId, [](void* self) -> IConnectionPoint* {                                                                 \
                 using Point = ATL::IConnectionPointImpl<ConnectionMapClass, &interfaceId>;                                      \
                 return static_cast<Point*>(static_cast<ConnectionMapClass*>(self))->GetConnectionPoint();                       \
             }},

#define END_CONNECTION_POINT_MAP()                                                                                               \
            {nullptr, nullptr}};                                                                                                 \
        return entries;                                                                                                          \
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
