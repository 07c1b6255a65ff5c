// Writing to HKEY_LOCAL_MACHINE, and taking that back: what the verbs that change something have in common.
//
// Threads: any. Failure: the registry's status; only exhausted memory throws.
#pragma once

#include <windows.h>

#include <string>

inline constexpr char ELEVATE[] = "start an elevated console (\"Run as administrator\") and repeat the command";

// An open key for reading and writing. `view` is KEY_WOW64_64KEY or KEY_WOW64_32KEY.
class CRegistryChange
{
public:
    CRegistryChange() = default;
    ~CRegistryChange() { close(); }
    CRegistryChange(const CRegistryChange&) = delete;
    CRegistryChange& operator=(const CRegistryChange&) = delete;

    LSTATUS open(const std::string& path, REGSAM view);
    LSTATUS create(const std::string& path, REGSAM view);
    LSTATUS setText(const char* name, const std::string& text) const;
    LSTATUS setNumber(const char* name, DWORD number) const;
    DWORD number(const char* name) const;
    // A value as it is, type included, under another name in another key. A value that is not there is not copied.
    LSTATUS copyTo(const CRegistryChange& target, const char* name, const char* newName) const;
    LSTATUS remove(const char* name) const { return RegDeleteValueA(m_key, name); }

private:
    void close();

    HKEY m_key = nullptr;
};

// How many keys of a path are missing, counted from its end.
DWORD missingKeys(std::string path, REGSAM view);
// Removes up to `count` keys from the end of the path while they are empty: what others have added stays.
void removeEmptyKeys(std::string path, REGSAM view, DWORD count);
