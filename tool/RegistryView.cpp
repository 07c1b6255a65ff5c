#include "tool/RegistryView.h"

CRegistryView::CRegistryView(HKEY root, const std::string& path, REGSAM view)
{
    RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, &m_key);
}

CRegistryView::~CRegistryView()
{
    if (m_key != nullptr) {
        RegCloseKey(m_key);
    }
}

std::optional<std::string> CRegistryView::text(const std::string& name) const
{
    DWORD type = 0;
    DWORD size = 0;
    if (m_key == nullptr || RegQueryValueExA(m_key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return std::nullopt;
    }
    std::string text(size, '\0');
    if (RegQueryValueExA(m_key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return text.c_str(); // up to the first zero byte
}

std::vector<std::string> CRegistryView::subKeys() const
{
    std::vector<std::string> names;
    char name[256] = "";
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof name;
        if (m_key == nullptr || RegEnumKeyExA(m_key, index, name, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return names;
        }
        names.emplace_back(name, size);
    }
}

std::optional<std::string> registryText(HKEY root, const std::string& path, const std::string& name, REGSAM view)
{
    return CRegistryView(root, path, view).text(name);
}
