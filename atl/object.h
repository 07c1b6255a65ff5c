// COM objects: the interface map, counting, creation through a class factory, error info.
//
// A class T derives from CComObjectRootEx<CComSingleThreadModel> and its interfaces, lists them in a COM map, and is only ever
// created as CComObject<T>, which adds the counting. All of it belongs to the single apartment thread; nothing here locks.
// No C++ exception leaves creation or a COM method of this file: it becomes the HRESULT.
#pragma once

#include "atl/base.h"

#include <climits>

namespace ATL {

// One count on the module (_pAtlModule), which keeps the process alive. The module must exist.
class CComModuleLock
{
public:
    struct Adopt
    {
    };
    CComModuleLock() noexcept;
    // Takes over a count that is there already.
    explicit CComModuleLock(Adopt) noexcept {}
    CComModuleLock(const CComModuleLock&) = delete;
    CComModuleLock& operator=(const CComModuleLock&) = delete;
    ~CComModuleLock();

    // Leaves the count to somebody who gives it back later.
    void Keep() noexcept { m_kept = true; }

private:
    bool m_kept = false;
};

// One interface of an object: which, and how a pointer to the object's class becomes a pointer to it.
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
        static const ATL::ATL_INTMAP_ENTRY entries[] = {

// An interface under its own identifier.
#define COM_INTERFACE_ENTRY(itf) COM_INTERFACE_ENTRY_IID(__uuidof(itf), itf)
// A base interface that several bases bring along (IDispatch): answered through the branch itf2.
#define COM_INTERFACE_ENTRY2(itf, itf2) COM_INTERFACE_ENTRY_IID(__uuidof(itf), itf2)
#define COM_INTERFACE_ENTRY_IID(interfaceId, itf)                                                                                \
            {&interfaceId, [](void* self) -> void* { return static_cast<itf*>(static_cast<ComMapClass*>(self)); }},

// The first entry also answers for IUnknown: it is the object's identity. The declarations let T's own code count on itself, whose
// several bases each bring these three along.
#define END_COM_MAP()                                                                                                            \
            {nullptr, nullptr}};                                                                                                 \
        return ATL::AtlInternalQueryInterface(this, entries, iid, object);                                                       \
    }                                                                                                                            \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override = 0;                                            \
    ULONG STDMETHODCALLTYPE AddRef() override = 0;                                                                               \
    ULONG STDMETHODCALLTYPE Release() override = 0;
// clang-format on

// Looks iid up in a table that ends with a null entry and counts the reference handed out.
HRESULT AtlInternalQueryInterface(void* self, const ATL_INTMAP_ENTRY* entries, REFIID iid, void** object) noexcept;

// Counting for objects of the single apartment thread.
class CComSingleThreadModel
{
public:
    static ULONG Increment(LONG& count) noexcept { return static_cast<ULONG>(++count); }
    static ULONG Decrement(LONG& count) noexcept { return static_cast<ULONG>(--count); }
};

// The root of every COM class: the count, and the two places where a class does work between being counted and being gone.
template <class ThreadModel>
class CComObjectRootEx
{
public:
    // Called once after construction; a failure makes the creation fail with it.
    HRESULT FinalConstruct() { return S_OK; }
    // Called once, after the last release and before the destructors.
    void FinalRelease() {}

protected:
    ~CComObjectRootEx() = default;
    ULONG InternalAddRef() noexcept { return ThreadModel::Increment(m_dwRef); }
    ULONG InternalRelease() noexcept { return ThreadModel::Decrement(m_dwRef); }

    LONG m_dwRef = 0;
};

// The object as it exists: T with its reference count. The module is locked from before T's construction until T, its virtual
// bases included, has been destroyed and freed: whoever learns of the unlock finds nothing of the object any more.
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
        CComModuleLock lock;
        return AtlGuard([&]() -> HRESULT {
            auto* const created = new CComObject; // NOLINT(bugprone-unhandled-exception-at-new): the guard is the handler
            // A reference that FinalConstruct hands out and gets back must not end the object.
            created->InternalAddRef();
            const HRESULT hr = AtlGuard([&] { return created->FinalConstruct(); });
            created->InternalRelease();
            if (FAILED(hr)) {
                created->Destroy();
                return hr;
            }
            *object = created;
            lock.Keep();
            return S_OK;
        });
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
            const CComModuleLock lock{CComModuleLock::Adopt{}};
            Destroy();
        }
        return count;
    }

private:
    CComObject() = default;
    ~CComObject() = default;

    void Destroy() noexcept
    {
        // What is torn down may still hand out and take back references to this object: the count must not reach zero again.
        this->m_dwRef = LONG_MIN / 2;
        AtlGuard([this] {
            this->FinalRelease();
            return S_OK;
        });
        delete this;
    }
};

// The class object of a creatable class. Its own references do not lock the module: COM holds one for as long as the server is
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

// Creates a T and asks it for an interface; an object that does not answer is destroyed again.
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

// Sets the calling thread's COM error info: the source is the ProgID of clsid (none when it has no registered one), no help file
// and no help context. Returns hr, whether or not the error info could be set; 0 stands for DISP_E_EXCEPTION.
HRESULT AtlReportError(const CLSID& clsid, const OLECHAR* description, const IID& iid = GUID_NULL, HRESULT hr = 0) noexcept;
HRESULT AtlReportError(const CLSID& clsid, const char* description, const IID& iid = GUID_NULL, HRESULT hr = 0) noexcept;

// Component categories of a class: a table that ends with a null category. A class without any has no table.
struct ATL_CATMAP_ENTRY
{
    enum class Type : unsigned char { Implemented, Required };
    Type type;
    const GUID* catid;
};

// What makes T creatable under a class id: what the module's object map needs. T may replace ObjectMain and GetCategoryMap by its
// own statics of the same name and must have a static HRESULT UpdateRegistry(BOOL).
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
    static HRESULT Error(const OLECHAR* description, const IID& iid = GUID_NULL, HRESULT hr = 0) noexcept
    {
        return AtlReportError(*classId, description, iid, hr);
    }
    static HRESULT Error(const char* description, const IID& iid = GUID_NULL, HRESULT hr = 0) noexcept
    {
        return AtlReportError(*classId, description, iid, hr);
    }

protected:
    ~CComCoClass() = default;
};

} // namespace ATL
