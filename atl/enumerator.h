// COM enumerators over a snapshot: they do not show later changes.
//
// Ownership: an enumerator and its clones share the list, which owns its items; what Next hands out belongs to the caller.
// Threads:   the apartment thread.
// Failure:   HRESULTs.
#pragma once

#include "atl/object.h"

#include <memory>
#include <vector>

namespace ATL {

// Drops the references that COM holds for clients on this process's enumerators. For an object whose client is gone: an
// enumerator keeps the process alive, and its list may keep the object's connection points alive. Needs no memory.
void AtlDisconnectEnumerators() noexcept;

// Keeps each enumerator, from construction to destruction, in the list that AtlDisconnectEnumerators uses.
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

// Item says what Next fills in (Type), what the list keeps (Owner), and how to make the former from the latter (handOut).
template <class Interface, class Item>
class CComEnum : public CComObjectRootEx<CComSingleThreadModel>, public CComEnumBase, public Interface
{
public:
    using List = std::vector<typename Item::Owner>;

    BEGIN_COM_MAP(CComEnum)
    COM_INTERFACE_ENTRY(Interface)
    END_COM_MAP()

    // S_FALSE when fewer items were left than asked for. `fetched` may be null only for a single item.
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
    // The clone starts at the same position.
    HRESULT STDMETHODCALLTYPE Clone(Interface** clone) override
    {
        return Create(clone, m_position, [this] { return m_list; });
    }

    // An enumerator of the list that makeList returns; an exception of makeList becomes the HRESULT.
    template <class MakeList>
    static HRESULT Create(Interface** enumerator, size_t position, MakeList&& makeList) noexcept
    {
        if (enumerator == nullptr) {
            return E_POINTER;
        }
        *enumerator = nullptr;
        return AtlGuard([&]() -> HRESULT {
            std::shared_ptr<const List> list = makeList();
            CComObject<CComEnum>* created = nullptr;
            if (const HRESULT hr = CComObject<CComEnum>::CreateInstance(&created); FAILED(hr)) {
                return hr;
            }
            created->m_list = std::move(list);
            created->m_position = position;
            created->AddRef();
            *enumerator = created;
            return S_OK;
        });
    }

protected:
    ~CComEnum() = default;

private:
    IUnknown* Identity() noexcept override { return static_cast<Interface*>(this); }

    std::shared_ptr<const List> m_list;
    size_t m_position = 0;
};

} // namespace ATL
