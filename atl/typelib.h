// Registration of the type library that an executable carries.
//
// The library is loaded from the executable's resources; when that fails, from the file of the same name with the extension
// ".tlb" beside it. Any thread with COM initialised. Failures are HRESULTs; nothing is undone. The per-user functions of
// "OLEAUT32.DLL" are looked up when they are needed: HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND) on a system without them.
#pragma once

#include "atl/regkey.h"

#include <string>

namespace ATL {

// `executable` is a full path in the ANSI code page. The library's help folder is the executable's.
HRESULT AtlRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept;
// Removes the registration by what the library says of itself: LIBID, version, locale and system kind.
HRESULT AtlUnRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept;

} // namespace ATL
