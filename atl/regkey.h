// An open registry key, inside a registry transaction or outside of one.
//
// The key is closed when its owner goes. Any thread, one at a time. Operations return the Windows error (ERROR_SUCCESS on
// success) and throw nothing but std::bad_alloc. With a transaction, keys are created, opened and deleted through the functions
// made for it (ERROR_PROC_NOT_FOUND on a system without them); without one through the plain functions.
#pragma once

#include "atl/base.h"

#include <cstddef>
#include <span>
#include <string>

namespace ATL {

// Whom a registration is for.
enum class CRegistrationScope : unsigned char {
    // HKEY_CLASSES_ROOT as it is.
    Machine,
    // HKEY_CURRENT_USER\Software\Classes stands for HKEY_CLASSES_ROOT.
    User
};

// A transaction to work in, and the functions of "Advapi32.dll" that know of transactions, looked up by name: null on a system
// without them. The transaction belongs to the caller and outlives the keys that work in it.
struct CRegTransaction
{
    explicit CRegTransaction(HANDLE handle) noexcept;

    HANDLE transaction;
    decltype(&RegCreateKeyTransactedA) createKey;
    decltype(&RegOpenKeyTransactedA) openKey;
    decltype(&RegDeleteKeyTransactedA) deleteKey;
    // For a system that has transactions but lacks deleteKey: the key goes at once instead of with the transaction.
    decltype(&RegDeleteKeyExA) deleteKeyAtOnce;
};

class CRegKey
{
public:
    explicit CRegKey(const CRegTransaction* transaction = nullptr) noexcept
        : m_transaction(transaction)
    {
    }
    // One of the predefined keys, which are not opened and not closed.
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
    // Opens an existing key; what was open before is closed.
    LONG Open(HKEY parent, const std::string& name, REGSAM access = KEY_READ | KEY_WRITE) noexcept;
    // Opens a key, creating it and its missing parents.
    LONG Create(HKEY parent, const std::string& name, REGSAM access = KEY_READ | KEY_WRITE) noexcept;
    void Close() noexcept;

    // An empty value name is the key's default value.
    LONG SetStringValue(const std::string& name, const std::string& value) noexcept;
    LONG SetDWORDValue(const std::string& name, DWORD value) noexcept;
    LONG SetBinaryValue(const std::string& name, std::span<const std::byte> value) noexcept;
    LONG DeleteValue(const std::string& name) noexcept;

    bool HasSubKeys() const noexcept;
    // Deletes a subkey that has no subkeys of its own.
    LONG DeleteSubKey(const std::string& name) noexcept;
    // Deletes a subkey with everything below it.
    LONG RecurseDeleteKey(const std::string& name);

private:
    LONG SetValue(const std::string& name, DWORD type, const void* data, size_t size) noexcept;

    HKEY m_hKey = nullptr;
    const CRegTransaction* m_transaction;
    bool m_predefined = false;
};

} // namespace ATL
