// The basis of the layer: errors, locks, and owners of handles, strings, variants and interface pointers.
//
// Ownership: each class owns what its name says and frees it in its destructor.
// Threads:   any, but one thread at a time per object; only critical sections are shared.
// Failure:   the text operations throw CAtlException: E_OUTOFMEMORY, or the error of a failed code page conversion. No C++
//            exception may leave a COM method, so methods that use them run inside AtlGuard.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <new>
#include <string>
#include <utility>

namespace ATL {

// The layer's version, for the log.
inline constexpr unsigned ATL_VER = 0x0100;

// The one exception type of the layer: it carries an HRESULT.
class CAtlException
{
public:
    explicit CAtlException(HRESULT hr) noexcept
        : m_hr(hr)
    {
    }

    HRESULT m_hr;
};

[[noreturn]] void AtlThrow(HRESULT hr);

// The calling thread's last Windows error as an HRESULT; E_FAIL when Windows reported a failure without saying which.
HRESULT AtlHresultFromLastError() noexcept;
HRESULT AtlHresultFromWin32(LONG error) noexcept;

// A function of a library that the program imports anyway, looked up by name; null on a system without it.
template <class Function>
Function AtlFindFunction(const char* library, const char* name) noexcept
{
    const HMODULE module = GetModuleHandleA(library);
    return module == nullptr ? nullptr : reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// Text in the system's ANSI code page; "" for null.
std::string narrowText(const wchar_t* text, size_t length);
std::string narrowText(BSTR text);

// Runs a function that returns an HRESULT; an exception becomes an HRESULT.
template <class Function>
HRESULT AtlGuard(Function&& function) noexcept
{
    try {
        return std::forward<Function>(function)();
    } catch (const CAtlException& exception) {
        return exception.m_hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

// A critical section that can be used once Init has succeeded.
class CComCriticalSection
{
public:
    CComCriticalSection() = default;
    CComCriticalSection(const CComCriticalSection&) = delete;
    CComCriticalSection& operator=(const CComCriticalSection&) = delete;
    ~CComCriticalSection();

    // Spin count 0, no flags. On failure the Windows error as an HRESULT. Called once.
    HRESULT Init() noexcept;
    void Lock() noexcept;
    void Unlock() noexcept;

private:
    CRITICAL_SECTION m_sec{};
    bool m_initialized = false;
};

// A critical section that can be used at once: the constructor throws the failure of Init.
class CComAutoCriticalSection : public CComCriticalSection
{
public:
    CComAutoCriticalSection();
};

// Holds a critical section for the length of a scope.
class CComCritSecLock
{
public:
    explicit CComCritSecLock(CComCriticalSection& section) noexcept
        : m_section(section)
    {
        m_section.Lock();
    }
    CComCritSecLock(const CComCritSecLock&) = delete;
    CComCritSecLock& operator=(const CComCritSecLock&) = delete;
    ~CComCritSecLock() { m_section.Unlock(); }

private:
    CComCriticalSection& m_section;
};

// A handle of a kind that uses null for none (events, threads; not files).
class CHandle
{
public:
    CHandle() = default;
    explicit CHandle(HANDLE handle) noexcept
        : m_h(handle)
    {
    }
    CHandle(const CHandle&) = delete;
    CHandle& operator=(const CHandle&) = delete;
    ~CHandle() { Close(); }

    operator HANDLE() const noexcept { return m_h; }
    // Takes ownership; what was held before is closed.
    void Attach(HANDLE handle) noexcept;
    void Close() noexcept;

private:
    HANDLE m_h = nullptr;
};

// A BSTR. Null and an empty string are two different values; copying keeps the difference.
class CComBSTR
{
public:
    CComBSTR() = default;
    // A copy of a terminated text; null stays null.
    explicit CComBSTR(const OLECHAR* text);
    CComBSTR(const OLECHAR* text, size_t length);
    // The same for texts in the ANSI code page.
    explicit CComBSTR(const char* text);
    CComBSTR(const char* text, size_t length);
    CComBSTR(const CComBSTR& other);
    CComBSTR(CComBSTR&& other) noexcept
        : m_str(other.Detach())
    {
    }
    CComBSTR& operator=(CComBSTR other) noexcept
    {
        std::swap(m_str, other.m_str);
        return *this;
    }
    ~CComBSTR() { Empty(); }

    // A copy that the caller owns, by the length of the BSTR: embedded zero characters are kept.
    static BSTR CopyOf(BSTR text);

    operator BSTR() const noexcept { return m_str; }
    // For an out parameter; frees what was held before.
    BSTR* operator&() noexcept
    {
        Empty();
        return &m_str;
    }
    bool operator!() const noexcept { return m_str == nullptr; }
    // The number of characters; 0 for null.
    UINT Length() const noexcept { return SysStringLen(m_str); }
    // A copy that the caller owns.
    BSTR Copy() const { return CopyOf(m_str); }
    // Takes ownership; what was held before is freed.
    void Attach(BSTR text) noexcept;
    [[nodiscard]] BSTR Detach() noexcept { return std::exchange(m_str, nullptr); }
    void Empty() noexcept;
    // Appends a terminated text; a null text changes nothing.
    CComBSTR& operator+=(const OLECHAR* text);

    BSTR m_str = nullptr;
};

// A VARIANT that its destructor clears.
class CComVariant : public tagVARIANT
{
public:
    CComVariant() noexcept { VariantInit(this); }
    // VT_BSTR with a copy of the text; null stays null.
    explicit CComVariant(BSTR text)
        : CComVariant()
    {
        bstrVal = CComBSTR::CopyOf(text);
        vt = VT_BSTR;
    }
    explicit CComVariant(int number) noexcept
        : CComVariant()
    {
        vt = VT_I4;
        lVal = number;
    }
    CComVariant(const CComVariant&) = delete;
    CComVariant& operator=(const CComVariant&) = delete;
    ~CComVariant() { Clear(); }

    HRESULT Clear() noexcept { return VariantClear(this); }
    // Converts in place by the rules of OLE Automation.
    HRESULT ChangeType(VARTYPE type) noexcept { return VariantChangeType(this, this, 0, type); }
};

// A counted interface pointer.
template <class T>
class CComPtr
{
public:
    CComPtr() = default;
    CComPtr(std::nullptr_t) noexcept {}
    CComPtr(T* pointer) noexcept
        : p(pointer)
    {
        if (p != nullptr) {
            p->AddRef();
        }
    }
    CComPtr(const CComPtr& other) noexcept
        : CComPtr(other.p)
    {
    }
    CComPtr(CComPtr&& other) noexcept
        : p(other.Detach())
    {
    }
    CComPtr& operator=(CComPtr other) noexcept
    {
        std::swap(p, other.p);
        return *this;
    }
    ~CComPtr() { Release(); }

    operator T*() const noexcept { return p; }
    T* operator->() const noexcept { return p; }
    // For an out parameter; releases what was held before.
    T** operator&() noexcept
    {
        Release();
        return &p;
    }
    bool operator!() const noexcept { return p == nullptr; }
    // Null before the release: the object's last Release may lead back to this owner.
    void Release() noexcept
    {
        if (T* const released = std::exchange(p, nullptr); released != nullptr) {
            released->Release();
        }
    }
    [[nodiscard]] T* Detach() noexcept { return std::exchange(p, nullptr); }
    template <class Q>
    HRESULT QueryInterface(Q** result) const noexcept
    {
        return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(result));
    }
    HRESULT CoCreateInstance(REFCLSID clsid, DWORD context) noexcept
    {
        Release();
        return ::CoCreateInstance(clsid, nullptr, context, __uuidof(T), reinterpret_cast<void**>(&p));
    }

    T* p = nullptr;
};

} // namespace ATL
