// The registrar: writes and removes what a registration script (atl/regscript.h) says.
//
// Ownership: nothing; a transaction belongs to the caller and outlives the registrar.
// Threads:   any, one at a time.
// Failure:   the whole script is read before the first key is touched. The first failure stops the work; nothing is undone.
//              DISP_E_EXCEPTION: the script is broken; the thread's COM error info says where ("line 3: '=' expected")
//              the Windows error as an HRESULT: a key or value could not be written or removed, or the
//              resource could not be read
//              E_OUTOFMEMORY
//
// Unregistration goes through the script's keys from the inside out. It deletes a key unless subkeys are left, keeps a NoRemove
// key, and deletes a ForceRemove key with everything below it. In the keys that stay it deletes the script's named values, but
// not the default values. A missing key or value is no error.
#pragma once

#include "atl/regkey.h"
#include "atl/regscript.h"

namespace ATL {

class CRegObject
{
public:
    explicit CRegObject(CRegistrationScope scope = CRegistrationScope::Machine,
                        const CRegTransaction* transaction = nullptr) noexcept
        : m_scope(scope)
        , m_transaction(transaction)
    {
    }

    // The text for %name% (in any case). It is inserted unchanged: if the script puts it between apostrophes, its own apostrophes
    // must be doubled.
    void AddReplacement(const std::string& name, const std::string& text);

    HRESULT UpdateFromString(std::string_view script, BOOL registering) noexcept;
    // The script is the executable's resource `id` of type "REGISTRY", in any language.
    HRESULT UpdateFromResource(UINT id, BOOL registering) noexcept;

private:
    using Operation = HRESULT (CRegObject::*)(CRegKey& parent, const CRegEntry& entry);

    void RedirectClassesRoot(CRegRoot& root) const;
    HRESULT RunContent(CRegKey& parent, const std::vector<CRegEntry>& content, Operation operation);
    HRESULT RegisterEntry(CRegKey& parent, const CRegEntry& entry);
    HRESULT UnregisterEntry(CRegKey& parent, const CRegEntry& entry);

    CRegistrationScope m_scope;
    const CRegTransaction* m_transaction;
    CRegReplacements m_replacements;
};

} // namespace ATL
