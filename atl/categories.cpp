#include "atl/categories.h"

#include "atl/registrar.h"

namespace ATL {

namespace {

std::string guidText(const GUID& guid)
{
    wchar_t wide[40];
    const int lengthWithTerminator = StringFromGUID2(guid, wide, 40);
    return narrowText(wide, static_cast<size_t>(lengthWithTerminator) - 1);
}

} // namespace

HRESULT AtlUpdateCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope, BOOL registering) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        std::string lists;
        for (; map != nullptr && map->catid != nullptr; ++map) {
            const bool isImplemented = map->type == ATL_CATMAP_ENTRY::Type::Implemented;
            lists += isImplemented ? " 'Implemented Categories'" : " 'Required Categories'";
            lists += " { " + guidText(*map->catid) + " }";
        }
        if (lists.empty()) {
            return S_OK;
        }
        const std::string script = "HKCR { NoRemove CLSID { NoRemove " + guidText(clsid) + " {" + lists + " } } }";
        return CRegObject(scope).UpdateFromString(script, registering);
    });
}

} // namespace ATL
