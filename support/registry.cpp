#include "support/registry.h"

#define LOG_SOURCE "registry"

namespace {
// Sizes passed to the registry. Each buffer is one byte longer and zeroed, since values need not be terminated.
constexpr DWORD SUB_KEY_NAME_SIZE = 255;
constexpr DWORD VALUE_NAME_SIZE = 16383;
} // namespace

CRegistry::CRegistry(const char* path, HKEY keyroot, REGSAM access)
    : m_key(nullptr)
    , m_path(path)
{
    LOG_SCOPE(FINE, "CRegistry::CRegistry", path);
    LOG_CONDITION(RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS);
}

CRegistry::~CRegistry()
{
    LOG_SCOPE(FINE, "CRegistry::~CRegistry");
    closeKey();
}

bool CRegistry::query(const char* name, void* data, DWORD size) const
{
    return m_key != nullptr && RegQueryValueExA(m_key, name, nullptr, nullptr, static_cast<BYTE*>(data), &size) == ERROR_SUCCESS;
}

std::string CRegistry::getStringValue(const char* name, const char* defaultValue)
{
    LOG_SCOPE(FINE, "CRegistry::getStringValue", name << ", " << defaultValue);
    char buffer[LONGEST_VALUE + 1] = {};
    return query(name, buffer, LONGEST_VALUE) ? buffer : defaultValue;
}

int CRegistry::getDWORDValue(const char* name, int defaultValue)
{
    LOG_SCOPE(FINE, "CRegistry::getDWORDValue", name << ", " << defaultValue);
    int value = 0;
    return query(name, &value, sizeof value) ? value : defaultValue;
}

void CRegistry::closeKey()
{
    LOG_SCOPE(FINE, "CRegistry::closeKey");
    if (m_key == nullptr) {
        return;
    }
    RegCloseKey(m_key);
    m_key = nullptr;
}

CRegistrySubKeys::CRegistrySubKeys(CRegistry& registry)
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::CRegistrySubKeys");
    getKeyNames(registry.m_key);
}

CRegistrySubKeys::~CRegistrySubKeys()
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::~CRegistrySubKeys");
}

int CRegistrySubKeys::getSubKeyCount()
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::getSubKeyCount");
    return static_cast<int>(m_subKeys.size());
}

int CRegistrySubKeys::getValueCount()
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::getValueCount");
    return static_cast<int>(m_values.size());
}

std::string CRegistrySubKeys::getSubKey(int index)
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::getSubKey", index);
    return m_subKeys[static_cast<size_t>(index)];
}

std::string CRegistrySubKeys::getValue(int index)
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::getValue", index);
    return m_values[static_cast<size_t>(index)];
}

void CRegistrySubKeys::getKeyNames(HKEY key)
{
    LOG_SCOPE(FINE, "CRegistrySubKeys::getKeyNames");
    if (key == nullptr) {
        return;
    }
    DWORD subKeyCount = 0;
    DWORD valueCount = 0;
    if (RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeyCount, nullptr, nullptr, &valueCount, nullptr, nullptr, nullptr,
                         nullptr) != ERROR_SUCCESS) {
        return;
    }

    // A name that is too long, or no longer there, stays empty; the counts stay as reported.
    m_subKeys.assign(subKeyCount, std::string());
    for (DWORD index = 0; index < subKeyCount; ++index) {
        char buffer[SUB_KEY_NAME_SIZE + 1] = {};
        DWORD size = SUB_KEY_NAME_SIZE;
        if (RegEnumKeyExA(key, index, buffer, &size, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
            m_subKeys[index] = buffer;
        }
    }
    m_values.assign(valueCount, std::string());
    std::vector<char> buffer(VALUE_NAME_SIZE + 1);
    for (DWORD index = 0; index < valueCount; ++index) {
        DWORD size = VALUE_NAME_SIZE;
        if (RegEnumValueA(key, index, buffer.data(), &size, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
            m_values[index] = buffer.data();
        }
    }
}
