// The registrar: writes and removes what a registration script (atl/regscript.h) says.
//
// Any thread, one at a time. The script is expanded and parsed whole before the first key is touched. Results:
//   DISP_E_EXCEPTION   the script is broken; the thread's COM error info says where ("line 3: '=' expected")
//   the Windows error as an HRESULT   a key or value could not be written, removed, or the resource not be found
//   E_OUTOFMEMORY
// The first failure ends the work; what was done before it stays done.
//
// Unregistration visits the script's keys from the inside out. A key goes when it has no subkeys left that the script does not
// know, a NoRemove key stays, a ForceRemove key goes with whatever is below it. Named values of the script go with it wherever
// their key stays; a default value goes only with its key. What is not there any more is no error.
#pragma once

#include "atl/regkey.h"
#include "atl/regscript.h"

namespace ATL {

class CRegObject
{
public:
    // The transaction, if any, belongs to the caller and outlives the registrar.
    explicit CRegObject(CRegistrationScope scope = CRegistrationScope::Machine,
                        const CRegTransaction* transaction = nullptr) noexcept
        : m_scope(scope)
        , m_transaction(transaction)
    {
    }

    // What stands for %name% (in any case). The text is put in as it is: where the script has it between apostrophes, its own
    // apostrophes must come doubled.
    void AddReplacement(const std::string& name, const std::string& text);

    HRESULT StringRegister(std::string_view script) noexcept;
    HRESULT StringUnregister(std::string_view script) noexcept;
    // The script is the resource `id` of type "REGISTRY", in whatever language it is there.
    HRESULT ResourceRegister(HMODULE module, UINT id) noexcept;
    HRESULT ResourceUnregister(HMODULE module, UINT id) noexcept;

private:
    using Operation = HRESULT (CRegObject::*)(CRegKey& parent, const CRegEntry& entry);

    HRESULT RunScript(std::string_view script, Operation operation) noexcept;
    HRESULT RunResource(HMODULE module, UINT id, Operation operation) noexcept;
    void RedirectClassesRoot(CRegRoot& root) const;
    HRESULT RunContent(CRegKey& parent, const std::vector<CRegEntry>& content, Operation operation);
    HRESULT RegisterEntry(CRegKey& parent, const CRegEntry& entry);
    HRESULT UnregisterEntry(CRegKey& parent, const CRegEntry& entry);

    CRegistrationScope m_scope;
    const CRegTransaction* m_transaction;
    CRegReplacements m_replacements;
};

} // namespace ATL
