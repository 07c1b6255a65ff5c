#include "atl/categories.h"

namespace ATL {

namespace {

std::string guidText(const GUID& guid)
{
    wchar_t wide[40];
    std::string text(static_cast<size_t>(StringFromGUID2(guid, wide, 40)) - 1, '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(wide[i]);
    }
    return text;
}

std::string listPath(const CLSID& clsid, ATL_CATMAP_ENTRY::Type type, CRegistrationScope scope)
{
    return (scope == CRegistrationScope::User ? "Software\\Classes\\CLSID\\" : "CLSID\\") + guidText(clsid) +
           (type == ATL_CATMAP_ENTRY::Type::Implemented ? "\\Implemented Categories" : "\\Required Categories");
}

HKEY rootKey(CRegistrationScope scope) noexcept
{
    return scope == CRegistrationScope::User ? HKEY_CURRENT_USER : HKEY_CLASSES_ROOT;
}

} // namespace

HRESULT AtlRegisterCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        for (; map != nullptr && map->catid != nullptr; ++map) {
            CRegKey category;
            const std::string path = listPath(clsid, map->type, scope) + "\\" + guidText(*map->catid);
            if (const LONG error = category.Create(rootKey(scope), path); error != ERROR_SUCCESS) {
                return AtlHresultFromWin32(error);
            }
        }
        return S_OK;
    });
}

HRESULT AtlUnregisterCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        for (; map != nullptr && map->catid != nullptr; ++map) {
            const std::string path = listPath(clsid, map->type, scope);
            CRegKey list;
            LONG error = list.Open(rootKey(scope), path);
            if (error == ERROR_SUCCESS) {
                error = list.RecurseDeleteKey(guidText(*map->catid));
                if (!list.HasSubKeys()) {
                    error = RegDeleteKeyA(rootKey(scope), path.c_str());
                }
            }
            if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) {
                return AtlHresultFromWin32(error);
            }
        }
        return S_OK;
    });
}

} // namespace ATL
