// Read-only access to the Windows registry: one key's values with the caller's defaults, and a snapshot of its names.
//
// Ownership: CRegistry owns its open key; CRegistrySubKeys owns copies of the names and does not keep the key open.
// Threads:   any, but one thread per object.
// Failure:   a missing key or value is no error: reads return the default. Only a failed open is logged (ERROR).
#pragma once

#include "support/logger.h"

#include <string>
#include <vector>

// The host application's Java preferences branch under HKEY_LOCAL_MACHINE. Always read in the 32-bit registry view, where its
// installer writes it.
inline constexpr char PREFERENCES_KEY[] = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
inline constexpr REGSAM PREFERENCES_ACCESS = KEY_READ | KEY_WOW64_32KEY;

// At most this many bytes of a text are read, including its terminating zero byte if it has one.
inline constexpr DWORD LONGEST_VALUE = 255;

class CRegistry : public virtual Loggable
{
public:
    // `access` as for RegOpenKeyExA: KEY_READ, or KEY_READ | KEY_WOW64_32KEY for the 32-bit view.
    CRegistry(const char* path, HKEY keyroot, REGSAM access);
    ~CRegistry() override;
    CRegistry(const CRegistry&) = delete;
    CRegistry& operator=(const CRegistry&) = delete;

    // The value's bytes up to the first zero byte, whatever its type. The default when there are more than LONGEST_VALUE.
    std::string getStringValue(const char* name, const char* defaultValue);
    // The value's bytes as a signed number, whatever its type. The default when there are more than four.
    int getDWORDValue(const char* name, int defaultValue);
    // May be called repeatedly.
    void closeKey();

private:
    friend class CRegistrySubKeys;
    // False when there is no key or no such value, or when the value has more than `size` bytes.
    bool query(const char* name, void* data, DWORD size) const;

    HKEY m_key;
    std::string m_path;
};

class CRegistrySubKeys : public virtual Loggable
{
public:
    explicit CRegistrySubKeys(CRegistry& registry);
    ~CRegistrySubKeys() override;
    CRegistrySubKeys(const CRegistrySubKeys&) = delete;
    CRegistrySubKeys& operator=(const CRegistrySubKeys&) = delete;

    int getSubKeyCount();
    int getValueCount();
    // `index` from 0 to the count - 1; it is not checked. Names beyond the registry's limits come back empty.
    std::string getSubKey(int index);
    std::string getValue(int index);
    // Captures the names of an open key; none for a null key.
    void getKeyNames(HKEY key);

private:
    std::vector<std::string> m_subKeys;
    std::vector<std::string> m_values;
};
