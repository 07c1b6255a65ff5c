// Component categories of a class in the registry: CLSID\{clsid}\Implemented Categories and CLSID\{clsid}\Required Categories.
//
// Ownership: nothing.
// Threads:   any.
// Failure:   those of the registrar (atl/registrar.h).
#pragma once

#include "atl/object.h"
#include "atl/regkey.h"

namespace ATL {

// Writes the categories of the map, or removes them and the lists that are then empty. Without categories (a null map) it does
// nothing.
HRESULT AtlUpdateCategories(const CLSID& clsid, const ATL_CATMAP_ENTRY* map, CRegistrationScope scope, BOOL registering) noexcept;

} // namespace ATL
