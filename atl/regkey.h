// An open registry key, inside a registry transaction or outside of one.
//
// The key is closed when its owner goes. Any thread, one at a time. Operations return the Windows error (ERROR_SUCCESS on
// success) and throw nothing but E_OUTOFMEMORY. With a transaction, keys are created, opened and deleted through the functions
// of "Advapi32.dll" made for it, looked up when they are needed (ERROR_PROC_NOT_FOUND on a system without them); without one
// through the plain functions.
#pragma once

#include "atl/base.h"

#include <cstddef>
#include <span>
#include <string>

namespace ATL {

// Whom a registration is for.
enum class CRegistrationScope {
    // HKEY_CLASSES_ROOT as it is.
    Machine,
    // HKEY_CURRENT_USER\Software\Classes stands for HKEY_CLASSES_ROOT.
    User
};

class CRegKey
{
public:
    // The transaction, if any, belongs to the caller and outlives the key.
    explicit CRegKey(HANDLE transaction = nullptr) noexcept
        : m_transaction(transaction)
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
    HANDLE m_transaction;
};

} // namespace ATL
