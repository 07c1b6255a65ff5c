#include "atl/regkey.h"

namespace ATL {

namespace {

constexpr REGSAM ACCESS = KEY_READ | KEY_WRITE;

} // namespace

LONG CRegKey::Open(HKEY parent, const std::string& name) noexcept
{
    HKEY key = nullptr;
    LONG error = ERROR_PROC_NOT_FOUND;
    if (m_transaction == nullptr) {
        error = RegOpenKeyExA(parent, name.c_str(), 0, ACCESS, &key);
    } else if (m_transaction->openKey != nullptr) {
        error = m_transaction->openKey(parent, name.c_str(), 0, ACCESS, &key, m_transaction->transaction, nullptr);
    }
    Close();
    m_hKey = key;
    return error;
}

LONG CRegKey::Create(HKEY parent, const std::string& name) noexcept
{
    HKEY key = nullptr;
    LONG error = ERROR_PROC_NOT_FOUND;
    if (m_transaction == nullptr) {
        error = RegCreateKeyExA(parent, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, ACCESS, nullptr, &key, nullptr);
    } else if (m_transaction->createKey != nullptr) {
        error = m_transaction->createKey(parent, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, ACCESS, nullptr, &key,
                                         nullptr, m_transaction->transaction, nullptr);
    }
    Close();
    m_hKey = key;
    return error;
}

void CRegKey::Close() noexcept
{
    const HKEY key = std::exchange(m_hKey, nullptr);
    if (key != nullptr && !std::exchange(m_predefined, false)) {
        RegCloseKey(key);
    }
}

LONG CRegKey::SetValue(const std::string& name, DWORD type, const std::string& data) noexcept
{
    return RegSetValueExA(m_hKey, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                          static_cast<DWORD>(data.size()));
}

LONG CRegKey::DeleteValue(const std::string& name) noexcept
{
    return RegDeleteValueA(m_hKey, name.c_str());
}

bool CRegKey::HasSubKeys() const noexcept
{
    DWORD count = 0;
    return RegQueryInfoKeyA(m_hKey, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr) == ERROR_SUCCESS &&
           count != 0;
}

LONG CRegKey::DeleteSubKey(const std::string& name) noexcept
{
    if (m_transaction == nullptr) {
        return RegDeleteKeyA(m_hKey, name.c_str());
    }
    if (m_transaction->deleteKey != nullptr) {
        return m_transaction->deleteKey(m_hKey, name.c_str(), 0, 0, m_transaction->transaction, nullptr);
    }
    return m_transaction->deleteKeyAtOnce == nullptr ? ERROR_PROC_NOT_FOUND
                                                     : m_transaction->deleteKeyAtOnce(m_hKey, name.c_str(), 0, 0);
}

LONG CRegKey::RecurseDeleteKey(const std::string& name)
{
    {
        CRegKey key(m_transaction);
        if (const LONG error = key.Open(m_hKey, name); error != ERROR_SUCCESS) {
            return error;
        }
        // Always the first subkey: the numbers change with every deletion.
        for (;;) {
            char child[256];
            DWORD length = sizeof child;
            const LONG found = RegEnumKeyExA(key, 0, child, &length, nullptr, nullptr, nullptr, nullptr);
            if (found == ERROR_NO_MORE_ITEMS) {
                break;
            }
            if (found != ERROR_SUCCESS) {
                return found;
            }
            if (const LONG error = key.RecurseDeleteKey(std::string(child, length)); error != ERROR_SUCCESS) {
                return error;
            }
        }
    }
    return DeleteSubKey(name);
}

} // namespace ATL
