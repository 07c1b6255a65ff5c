// A registry in memory, which the program's registry calls reach instead of Windows' own. It keeps what Windows documents: names
// in any case, an empty name or none for the key itself, values of any type and length, and names of values that hold zero bytes.
//
// Threads: one.
#pragma once

#include "tests/support/ImportHook.h"

#include <map>
#include <string>

namespace fuzz {

struct SNameLess
{
    // In any case, like the registry.
    bool operator()(const std::string& left, const std::string& right) const;
};

struct SKey
{
    struct SValue
    {
        DWORD type = REG_NONE;
        std::string data;
        bool operator==(const SValue&) const = default;
    };
    std::map<std::string, SValue, SNameLess> values;
    std::map<std::string, SKey, SNameLess> keys;

    // By a path of names between backslashes; null when it is not there. An empty name stands for the key itself.
    SKey* find(const std::string& path);
    SKey& make(const std::string& path);
    bool operator==(const SKey&) const = default;
};

class CMemoryRegistry
{
public:
    // The one of this program, empty; it stays in place until the end, because putting it there takes longer than an input.
    static CMemoryRegistry& emptied();

    CMemoryRegistry(const CMemoryRegistry&) = delete;
    CMemoryRegistry& operator=(const CMemoryRegistry&) = delete;

    // Of a predefined key. The two views are the same one.
    SKey& root(HKEY predefined) { return m_roots[predefined]; }
    const std::map<HKEY, SKey>& roots() const { return m_roots; }

    // From this place on, enumerations find nothing any more, as if others had removed it meanwhile.
    DWORD vanishFrom = MAXDWORD;
    // Keys that are open, which the product has to close.
    int openKeys = 0;

private:
    struct SHandle;

    CMemoryRegistry();
    ~CMemoryRegistry() = default;

    static SKey* keyOf(HKEY handle);
    HKEY handle(HKEY parent, const std::string& path);

    std::map<HKEY, SKey> m_roots;
    ImportHook<decltype(&RegOpenKeyExA), CMemoryRegistry> m_open;
    ImportHook<decltype(&RegCreateKeyExA), CMemoryRegistry> m_create;
    ImportHook<decltype(&RegCloseKey), CMemoryRegistry> m_close;
    ImportHook<decltype(&RegQueryValueExA), CMemoryRegistry> m_query;
    ImportHook<decltype(&RegSetValueExA), CMemoryRegistry> m_set;
    ImportHook<decltype(&RegDeleteValueA), struct DeleteValue> m_deleteValue;
    ImportHook<decltype(&RegDeleteKeyA), struct DeleteKey> m_deleteKey;
    ImportHook<decltype(&RegQueryInfoKeyA), CMemoryRegistry> m_info;
    ImportHook<decltype(&RegEnumKeyExA), CMemoryRegistry> m_enumKey;
    ImportHook<decltype(&RegEnumValueA), struct EnumValue> m_enumValue;
};

} // namespace fuzz
