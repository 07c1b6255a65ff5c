// An open registry key, inside a registry transaction or outside of one.
//
// Ownership: the key is closed with its owner; a transaction belongs to the caller and outlives the keys that use it.
// Threads:   any, one at a time.
// Failure:   operations return the Windows error (ERROR_SUCCESS on success); only RecurseDeleteKey throws, std::bad_alloc.
#pragma once

#include "atl/base.h"

#include <string>

namespace ATL {

// Whom a registration is for.
enum class CRegistrationScope : unsigned char {
    // HKEY_CLASSES_ROOT as it is.
    Machine,
    // HKEY_CURRENT_USER\Software\Classes instead of HKEY_CLASSES_ROOT.
    User
};

// A transaction, and the functions of "Advapi32.dll" that work in one. They are looked up by name, because older systems lack
// them: a missing one is null, and operations that need it fail with ERROR_PROC_NOT_FOUND.
struct CRegTransaction
{
    explicit CRegTransaction(HANDLE handle) noexcept
        : transaction(handle)
    {
    }

    HANDLE transaction;
    decltype(&RegCreateKeyTransactedA) createKey = find<decltype(createKey)>("RegCreateKeyTransactedA");
    decltype(&RegOpenKeyTransactedA) openKey = find<decltype(openKey)>("RegOpenKeyTransactedA");
    decltype(&RegDeleteKeyTransactedA) deleteKey = find<decltype(deleteKey)>("RegDeleteKeyTransactedA");
    // Used when deleteKey is missing. The key is then deleted at once, not with the transaction.
    decltype(&RegDeleteKeyExA) deleteKeyAtOnce = find<decltype(deleteKeyAtOnce)>("RegDeleteKeyExA");

private:
    template <class Function>
    static Function find(const char* name) noexcept
    {
        return AtlFindFunction<Function>("Advapi32.dll", name);
    }
};

class CRegKey
{
public:
    explicit CRegKey(const CRegTransaction* transaction = nullptr) noexcept
        : m_transaction(transaction)
    {
    }
    // One of the predefined keys, which are neither opened nor closed.
    CRegKey(HKEY predefined, const CRegTransaction* transaction) noexcept
        : m_hKey(predefined)
        , m_transaction(transaction)
        , m_predefined(true)
    {
    }
    CRegKey(const CRegKey&) = delete;
    CRegKey& operator=(const CRegKey&) = delete;
    ~CRegKey() { Close(); }

    operator HKEY() const noexcept { return m_hKey; }
    // Opens an existing key for reading and writing; closes what was open before.
    LONG Open(HKEY parent, const std::string& name) noexcept;
    // The same, creating the key and its missing parents.
    LONG Create(HKEY parent, const std::string& name) noexcept;
    void Close() noexcept;

    // The data is stored as it is; an empty name is the key's default value.
    LONG SetValue(const std::string& name, DWORD type, const std::string& data) noexcept;
    LONG DeleteValue(const std::string& name) noexcept;

    bool HasSubKeys() const noexcept;
    // Deletes a subkey that has no subkeys of its own.
    LONG DeleteSubKey(const std::string& name) noexcept;
    // Deletes a subkey with everything below it.
    LONG RecurseDeleteKey(const std::string& name);

private:
    HKEY m_hKey = nullptr;
    const CRegTransaction* m_transaction;
    bool m_predefined = false;
};

} // namespace ATL
