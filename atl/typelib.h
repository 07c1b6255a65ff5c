// Registration of the type library that an executable carries.
//
// The library comes from the executable's resources or, when it cannot be loaded from there, from the file beside it with the
// same name and the extension ".tlb".
//
// Ownership: nothing.
// Threads:   any with COM initialised.
// Failure:   the HRESULT of the step that failed; nothing is undone. The per-user functions of "OLEAUT32.DLL" are looked up when
//            they are needed, so that the server starts without them: HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND) then.
#pragma once

#include "atl/regkey.h"

#include <string>

namespace ATL {

// `executable` is a full path in the ANSI code page. The library's help folder is the executable's.
HRESULT AtlRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept;
// Removes the registration of the library's LIBID, version, locale and system kind.
HRESULT AtlUnRegisterTypeLib(const std::string& executable, CRegistrationScope scope) noexcept;

} // namespace ATL
