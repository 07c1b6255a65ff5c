#include "tool/RegistryChange.h"

#include "tool/RegistryView.h"

#include <vector>

LSTATUS CRegistryChange::open(const std::string& path, REGSAM view)
{
    close();
    return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WRITE | view, &m_key);
}

LSTATUS CRegistryChange::create(const std::string& path, REGSAM view)
{
    close();
    return RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE | view, nullptr, &m_key,
                           nullptr);
}

LSTATUS CRegistryChange::setText(const char* name, const std::string& text) const
{
    return RegSetValueExA(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>(text.size() + 1));
}

LSTATUS CRegistryChange::setNumber(const char* name, DWORD number) const
{
    return RegSetValueExA(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
}

DWORD CRegistryChange::number(const char* name) const
{
    DWORD number = 0;
    DWORD size = sizeof number;
    RegQueryValueExA(m_key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size);
    return number;
}

LSTATUS CRegistryChange::copyTo(const CRegistryChange& target, const char* name, const char* newName) const
{
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExA(m_key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    std::vector<BYTE> data(size);
    const LSTATUS status = RegQueryValueExA(m_key, name, nullptr, &type, data.data(), &size);
    return status != ERROR_SUCCESS ? status : RegSetValueExA(target.m_key, newName, 0, type, data.data(), size);
}

void CRegistryChange::close()
{
    if (m_key != nullptr) {
        RegCloseKey(m_key);
        m_key = nullptr;
    }
}

DWORD missingKeys(std::string path, REGSAM view)
{
    DWORD count = 0;
    for (; !CRegistryView(HKEY_LOCAL_MACHINE, path, view).exists(); ++count) {
        const size_t cut = path.rfind('\\');
        if (cut == std::string::npos) {
            return count + 1;
        }
        path.resize(cut);
    }
    return count;
}

void removeEmptyKeys(std::string path, REGSAM view, DWORD count)
{
    for (; count > 0; --count) {
        HKEY key = nullptr;
        DWORD subKeys = 1;
        DWORD values = 1;
        if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | view, &key) == ERROR_SUCCESS) {
            RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                             nullptr);
            RegCloseKey(key);
        }
        if (subKeys != 0 || values != 0 || RegDeleteKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), view, 0) != ERROR_SUCCESS ||
            path.find('\\') == std::string::npos) {
            return;
        }
        path.resize(path.rfind('\\'));
    }
}
