// Component categories of a class in the registry: CLSID\{clsid}\Implemented Categories and CLSID\{clsid}\Required Categories.
//
// Any thread. Failures are the Windows error as an HRESULT; the first one ends the work. A class without categories (a null map)
// costs nothing.
#pragma once

#include "atl/object.h"
#include "atl/regkey.h"

namespace ATL {

HRESULT AtlRegisterCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope) noexcept;
// Removes the map's categories, and the lists that are empty then. What is not there any more is no error.
HRESULT AtlUnregisterCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope) noexcept;

} // namespace ATL
