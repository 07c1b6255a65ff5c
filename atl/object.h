// COM objects: interface map, reference counting, creation through a class factory, error info.
//
// A class T derives from CComObjectRootEx<CComSingleThreadModel> and its interfaces, lists them in a COM map, and is only ever
// created as CComObject<T>, which adds the counting.
//
// Ownership: an object belongs to its references, and keeps one lock of the module while it exists.
// Threads:   the single apartment thread; nothing here locks.
// Failure:   HRESULTs; a C++ exception in the creation of an object becomes one.
#pragma once

#include "atl/base.h"

#include <climits>

namespace ATL {

// Lock and Unlock of the module (_pAtlModule), which must exist.
void AtlLockModule() noexcept;
void AtlUnlockModule() noexcept;

// An interface of a class, and how a pointer to the class becomes a pointer to the interface.
struct ATL_INTMAP_ENTRY
{
    const IID* iid;
    void* (*cast)(void* object);
};

// clang-format off
#define BEGIN_COM_MAP(x)                                                                                                         \
public:                                                                                                                          \
    using ComMapClass = x;                                                                                                       \
    HRESULT InternalQueryInterface(REFIID iid, void** object) noexcept                                                           \
    {                                                                                                                            \
        static const ATL::ATL_INTMAP_ENTRY ENTRIES[] = {

#define COM_INTERFACE_ENTRY(itf)                                                                                                 \
            {&__uuidof(itf), [](void* self) -> void* { return static_cast<itf*>(static_cast<ComMapClass*>(self)); }},

// The first entry also answers for IUnknown: it is the object's identity. The declarations allow T's own code to call these three,
// which would be ambiguous otherwise: each interface has them.
#define END_COM_MAP()                                                                                                            \
            {nullptr, nullptr}};                                                                                                 \
        return ATL::AtlInternalQueryInterface(this, ENTRIES, iid, object);                                                       \
    }                                                                                                                            \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override = 0;                                            \
    ULONG STDMETHODCALLTYPE AddRef() override = 0;                                                                               \
    ULONG STDMETHODCALLTYPE Release() override = 0;
// clang-format on

// Looks iid up in a table that ends with a null entry; adds a reference to the result.
HRESULT AtlInternalQueryInterface(void* self, const ATL_INTMAP_ENTRY* entries, REFIID iid, void** object) noexcept;

// Counts without interlocking: for objects of a single thread.
class CComSingleThreadModel
{
public:
    static ULONG Increment(LONG& count) noexcept { return static_cast<ULONG>(++count); }
    static ULONG Decrement(LONG& count) noexcept { return static_cast<ULONG>(--count); }
};

// The base of every COM class: the reference count, and defaults of FinalConstruct and FinalRelease.
template <class ThreadModel>
class CComObjectRootEx
{
public:
    // Called once after construction; if it fails, so does the creation.
    HRESULT FinalConstruct() { return S_OK; }
    // Called once after the last release, before the destructors.
    void FinalRelease() {}

protected:
    ~CComObjectRootEx() = default;
    ULONG InternalAddRef() noexcept { return ThreadModel::Increment(m_dwRef); }
    ULONG InternalRelease() noexcept { return ThreadModel::Decrement(m_dwRef); }

    LONG m_dwRef = 0;
};

// The class that is created for T. The module is locked from before T's construction until T and its virtual bases have been
// destroyed and freed, so that nothing of the object is left when shutdown begins.
template <class T>
class CComObject final : public T
{
public:
    // The new object has no reference yet: the caller takes the first.
    static HRESULT CreateInstance(CComObject** object) noexcept
    {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        AtlLockModule();
        const HRESULT hr = AtlGuard([&]() -> HRESULT {
            auto* const created = new CComObject; // NOLINT(bugprone-unhandled-exception-at-new): the guard is the handler
            // A reference that is taken and given back inside FinalConstruct must not destroy the object.
            created->InternalAddRef();
            const HRESULT constructed = AtlGuard([&] { return created->FinalConstruct(); });
            created->InternalRelease();
            if (FAILED(constructed)) {
                created->Destroy();
                return constructed;
            }
            *object = created;
            return S_OK;
        });
        if (FAILED(hr)) {
            AtlUnlockModule();
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        return this->InternalQueryInterface(iid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return this->InternalAddRef(); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG count = this->InternalRelease();
        if (count == 0) {
            Destroy();
            AtlUnlockModule();
        }
        return count;
    }

private:
    CComObject() = default;
    ~CComObject() = default;

    void Destroy() noexcept
    {
        // During the destruction references may still be taken and given back: the count must not reach zero again.
        this->m_dwRef = LONG_MIN / 2;
        AtlGuard([this] {
            this->FinalRelease();
            return S_OK;
        });
        delete this;
    }
};

// The class object of a creatable class. Its references do not lock the module: COM keeps one for as long as the class is
// registered. Aggregation is not supported.
class CComClassFactory final : public IClassFactory
{
public:
    using Creator = HRESULT (*)(REFIID iid, void** object) noexcept;

    static HRESULT Create(Creator creator, REFIID iid, void** factory) noexcept;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

private:
    explicit CComClassFactory(Creator creator) noexcept
        : m_creator(creator)
    {
    }
    ~CComClassFactory() = default;

    LONG m_dwRef = 0;
    Creator m_creator;
};

// Creates a T and asks it for an interface; an object that does not have it is destroyed again.
template <class T>
HRESULT AtlCreateObject(REFIID iid, void** result) noexcept
{
    CComObject<T>* object = nullptr;
    if (const HRESULT hr = CComObject<T>::CreateInstance(&object); FAILED(hr)) {
        return hr;
    }
    object->AddRef();
    const HRESULT hr = object->QueryInterface(iid, result);
    object->Release();
    return hr;
}

// Sets the calling thread's COM error info. The description is in the ANSI code page; the source is the ProgID of clsid, or none
// when it has no registered one; there is no help file and no help context. Returns hr, even when the error info could not be
// set.
HRESULT AtlReportError(const CLSID& clsid, const char* description, const IID& iid, HRESULT hr) noexcept;

// A component category of a class. The table of a class ends with a null category.
struct ATL_CATMAP_ENTRY
{
    enum class Type : unsigned char { Implemented, Required };
    Type type;
    const GUID* catid;
};

// What the module's object map needs from a creatable class T. T must have a static HRESULT UpdateRegistry(BOOL) and may hide
// ObjectMain and GetCategoryMap by static functions of its own.
template <class T, const CLSID* classId>
class CComCoClass
{
public:
    static HRESULT ClassFactoryCreator(REFIID iid, void** factory) noexcept
    {
        return CComClassFactory::Create(&AtlCreateObject<T>, iid, factory);
    }
    // Called with true when the module is constructed and with false when it is destroyed.
    static void ObjectMain(bool /*starting*/) {}
    static const ATL_CATMAP_ENTRY* GetCategoryMap() { return nullptr; }
    static const CLSID& GetObjectCLSID() { return *classId; }
    static HRESULT Error(const char* description, const IID& iid, HRESULT hr) noexcept
    {
        return AtlReportError(*classId, description, iid, hr);
    }

protected:
    ~CComCoClass() = default;
};

} // namespace ATL
