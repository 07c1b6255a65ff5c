#include "atl/typelib.h"

namespace ATL {

namespace {

using RegisterFunction = HRESULT(STDAPICALLTYPE*)(ITypeLib*, const OLECHAR*, const OLECHAR*);
using UnRegisterFunction = HRESULT(STDAPICALLTYPE*)(REFGUID, WORD, WORD, LCID, SYSKIND);

template <class Function>
Function perUserFunction(const char* name) noexcept
{
    // The library is one that this program imports anyway.
    const HMODULE library = GetModuleHandleA("OLEAUT32.DLL");
    return library == nullptr ? nullptr : reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

// The path of the file that held the library is left in `path`.
HRESULT loadLibrary(const std::string& executable, CComPtr<ITypeLib>& library, CComBSTR& path)
{
    path = CComBSTR(executable.c_str());
    if (SUCCEEDED(LoadTypeLibEx(path, REGKIND_NONE, &library))) {
        return S_OK;
    }
    path = CComBSTR((executable.substr(0, executable.find_last_of('.')) + ".tlb").c_str());
    return LoadTypeLibEx(path, REGKIND_NONE, &library);
}

// The attributes of a library, given back to it in the end.
class LibraryAttributes
{
public:
    explicit LibraryAttributes(ITypeLib* library) noexcept
        : m_library(library)
        , m_result(library->GetLibAttr(&m_attributes))
    {
    }
    LibraryAttributes(const LibraryAttributes&) = delete;
    LibraryAttributes& operator=(const LibraryAttributes&) = delete;
    ~LibraryAttributes()
    {
        if (SUCCEEDED(m_result)) {
            m_library->ReleaseTLibAttr(m_attributes);
        }
    }

    HRESULT result() const noexcept { return m_result; }
    const TLIBATTR* operator->() const noexcept { return m_attributes; }

private:
    ITypeLib* m_library;
    TLIBATTR* m_attributes = nullptr;
    HRESULT m_result;
};

} // namespace

HRESULT AtlRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        const RegisterFunction registerLibrary =
            scope == CRegistrationScope::Machine ? &RegisterTypeLib : perUserFunction<RegisterFunction>("RegisterTypeLibForUser");
        if (registerLibrary == nullptr) {
            return AtlHresultFromWin32(ERROR_PROC_NOT_FOUND);
        }
        CComPtr<ITypeLib> library;
        CComBSTR path;
        if (const HRESULT hr = loadLibrary(executable, library, path); FAILED(hr)) {
            return hr;
        }
        const CComBSTR folder(executable.substr(0, executable.find_last_of('\\')).c_str());
        return registerLibrary(library, path, folder);
    });
}

HRESULT AtlUnRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        const UnRegisterFunction unregisterLibrary = scope == CRegistrationScope::Machine
                                                         ? &UnRegisterTypeLib
                                                         : perUserFunction<UnRegisterFunction>("UnRegisterTypeLibForUser");
        if (unregisterLibrary == nullptr) {
            return AtlHresultFromWin32(ERROR_PROC_NOT_FOUND);
        }
        CComPtr<ITypeLib> library;
        CComBSTR path;
        if (const HRESULT hr = loadLibrary(executable, library, path); FAILED(hr)) {
            return hr;
        }
        const LibraryAttributes attributes(library);
        if (FAILED(attributes.result())) {
            return attributes.result();
        }
        return unregisterLibrary(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->lcid,
                                 attributes->syskind);
    });
}

} // namespace ATL
