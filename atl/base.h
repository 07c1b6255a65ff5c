// The owners everything else in this layer stands on: errors, locks, handles, strings, variants and interface pointers.
//
// Each class owns exactly what its name says and gives it up in its destructor. None of them takes a lock: an object belongs to
// the thread that uses it. What throws throws CAtlException: E_OUTOFMEMORY, or the error of a failed code page conversion. A C++
// exception must not leave a COM method, so methods that use the throwing operations run inside AtlGuard.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <new>
#include <string>
#include <utility>

namespace ATL {

// Version of this layer, for whoever prints it.
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

// Text in the system's ANSI code page; no text gives "". Throws CAtlException: E_OUTOFMEMORY, or the error of a failed
// conversion.
std::string narrowText(const wchar_t* text, size_t length);
std::string narrowText(BSTR text);

// Runs a function that returns an HRESULT and turns every exception into one, for the places where none may pass.
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

// A critical section that is usable after Init succeeded.
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

// A critical section that is usable as soon as it exists: the constructor throws what Init returns.
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

// A kernel object handle whose "none" is null (events, threads, transactions; not files).
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

// A BSTR. An empty string and no string at all (null) are two different values, and copying keeps the difference.
class CComBSTR
{
public:
    CComBSTR() = default;
    // A copy of a terminated text; null stays null.
    explicit CComBSTR(const OLECHAR* text);
    CComBSTR(const OLECHAR* text, size_t length);
    // The same of texts in the ANSI code page.
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

    // A copy of a BSTR by its own length, so that embedded zero characters survive; the caller owns it.
    static BSTR CopyOf(BSTR text);

    operator BSTR() const noexcept { return m_str; }
    // For an out parameter: what was held before is freed first.
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
    // Appends a terminated text; nothing to append leaves null null.
    CComBSTR& operator+=(const OLECHAR* text);

    BSTR m_str = nullptr;
};

// A VARIANT that is cleared when it goes.
class CComVariant : public tagVARIANT
{
public:
    CComVariant() noexcept { VariantInit(this); }
    // VT_BSTR holding a copy of the text by its own length; a null text stays null.
    explicit CComVariant(BSTR text)
        : CComVariant()
    {
        bstrVal = CComBSTR::CopyOf(text);
        vt = VT_BSTR;
    }
    explicit CComVariant(LONG number) noexcept
        : CComVariant()
    {
        vt = VT_I4;
        lVal = number;
    }
    explicit CComVariant(int number) noexcept
        : CComVariant(static_cast<LONG>(number))
    {
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
    T& operator*() const noexcept { return *p; }
    // For an out parameter: what was held before is released first.
    T** operator&() noexcept
    {
        Release();
        return &p;
    }
    bool operator!() const noexcept { return p == nullptr; }
    // The pointer is null before the object hears of it: its last Release may come back to this owner.
    void Release() noexcept
    {
        if (T* const released = std::exchange(p, nullptr); released != nullptr) {
            released->Release();
        }
    }
    // Takes over a reference that the caller owns.
    void Attach(T* pointer) noexcept
    {
        Release();
        p = pointer;
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
