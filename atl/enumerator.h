// A COM enumerator over a list that is taken once: what is added to or removed from the source later does not show in it.
//
// Used on the apartment thread. The list is shared by an enumerator and its clones and owns its items; what Next hands out
// belongs to the caller.
#pragma once

#include "atl/object.h"

#include <memory>
#include <vector>

namespace ATL {

// Takes back the references that COM holds for its clients on the enumerators of this process. For the end of an object whose
// client is gone: an enumerator keeps the process, and with its list the object's connection points, alive.
void AtlDisconnectEnumerators() noexcept;

// Notes an enumerator for AtlDisconnectEnumerators, from its construction to its destruction.
class CComEnumBase
{
protected:
    CComEnumBase();
    CComEnumBase(const CComEnumBase&) = delete;
    CComEnumBase& operator=(const CComEnumBase&) = delete;
    ~CComEnumBase();

private:
    friend void AtlDisconnectEnumerators() noexcept;
    virtual IUnknown* Identity() noexcept = 0;
};

// Item says what Next fills (Type), what the list keeps (Owner), and how the first comes of the second (handOut).
template <class Interface, class Item>
class CComEnum : public CComObjectRootEx<CComSingleThreadModel>, public CComEnumBase, public Interface
{
    using List = std::vector<typename Item::Owner>;

public:
    BEGIN_COM_MAP(CComEnum)
    COM_INTERFACE_ENTRY(Interface)
    END_COM_MAP()

    void Init(std::shared_ptr<const List> list, size_t position) noexcept
    {
        m_list = std::move(list);
        m_position = position;
    }

    // S_FALSE when fewer items than asked for were left. The number fetched may be left out only for a single item.
    HRESULT STDMETHODCALLTYPE Next(ULONG count, typename Item::Type* items, ULONG* fetched) override
    {
        if (fetched != nullptr) {
            *fetched = 0;
        }
        if (items == nullptr || (fetched == nullptr && count != 1)) {
            return E_POINTER;
        }
        ULONG done = 0;
        for (; done < count && m_position < m_list->size(); ++done, ++m_position) {
            items[done] = Item::handOut((*m_list)[m_position]);
        }
        if (fetched != nullptr) {
            *fetched = done;
        }
        return done == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const size_t left = m_list->size() - m_position;
        m_position += count < left ? count : left;
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_position = 0;
        return S_OK;
    }
    // The clone stands where this one stands.
    HRESULT STDMETHODCALLTYPE Clone(Interface** clone) override { return Create(clone, m_list, m_position); }

    static HRESULT Create(Interface** enumerator, std::shared_ptr<const List> list, size_t position) noexcept
    {
        if (enumerator == nullptr) {
            return E_POINTER;
        }
        *enumerator = nullptr;
        CComObject<CComEnum>* created = nullptr;
        if (const HRESULT hr = CComObject<CComEnum>::CreateInstance(&created); FAILED(hr)) {
            return hr;
        }
        created->Init(std::move(list), position);
        created->AddRef();
        *enumerator = created;
        return S_OK;
    }

protected:
    ~CComEnum() = default;

private:
    IUnknown* Identity() noexcept override { return static_cast<Interface*>(this); }

    std::shared_ptr<const List> m_list;
    size_t m_position = 0;
};

// An enumerator at the start of the list that `fill` puts together; what it throws becomes the HRESULT.
template <class Interface, class Item, class Fill>
HRESULT AtlCreateEnumerator(Interface** enumerator, Fill&& fill) noexcept
{
    if (enumerator == nullptr) {
        return E_POINTER;
    }
    *enumerator = nullptr;
    return AtlGuard([&]() -> HRESULT {
        auto list = std::make_shared<std::vector<typename Item::Owner>>();
        fill(*list);
        return CComEnum<Interface, Item>::Create(enumerator, std::move(list), 0);
    });
}

} // namespace ATL
