#include "atl/typelib.h"

#include <memory>

namespace ATL {

namespace {

// Leaves the path of the file that holds the library in `path`.
HRESULT loadLibrary(const std::string& executable, CComPtr<ITypeLib>& library, CComBSTR& path)
{
    path = CComBSTR(executable.c_str());
    if (SUCCEEDED(LoadTypeLibEx(path, REGKIND_NONE, &library))) {
        return S_OK;
    }
    path = CComBSTR((executable.substr(0, executable.find_last_of('.')) + ".tlb").c_str());
    return LoadTypeLibEx(path, REGKIND_NONE, &library);
}

// The function for the machine or its counterpart for a user, which takes the same arguments; null on a system without it.
template <class Function>
Function scopedFunction(Function forMachine, const char* forUser, CRegistrationScope scope) noexcept
{
    return scope == CRegistrationScope::Machine ? forMachine : AtlFindFunction<Function>("OLEAUT32.DLL", forUser);
}

} // namespace

HRESULT AtlRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        const auto registerLibrary = scopedFunction(&RegisterTypeLib, "RegisterTypeLibForUser", scope);
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
        const auto unregisterLibrary = scopedFunction(&UnRegisterTypeLib, "UnRegisterTypeLibForUser", scope);
        if (unregisterLibrary == nullptr) {
            return AtlHresultFromWin32(ERROR_PROC_NOT_FOUND);
        }
        CComPtr<ITypeLib> library;
        CComBSTR path;
        if (const HRESULT hr = loadLibrary(executable, library, path); FAILED(hr)) {
            return hr;
        }
        TLIBATTR* found = nullptr;
        if (const HRESULT hr = library->GetLibAttr(&found); FAILED(hr)) {
            return hr;
        }
        const auto release = [&](TLIBATTR* attributes) { library->ReleaseTLibAttr(attributes); };
        const std::unique_ptr<TLIBATTR, decltype(release)> attributes(found, release);
        return unregisterLibrary(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->lcid,
                                 attributes->syskind);
    });
}

} // namespace ATL
