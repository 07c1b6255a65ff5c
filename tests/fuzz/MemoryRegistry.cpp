#include "tests/fuzz/MemoryRegistry.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace fuzz {

namespace {

CMemoryRegistry* s_registry = nullptr;

constexpr DWORD LONGEST_KEY_NAME = 255;

// The next name of a path and its removal.
std::string takeName(std::string& path)
{
    const size_t end = path.find('\\');
    std::string name = path.substr(0, end);
    path.erase(0, end == std::string::npos ? end : end + 1);
    return name;
}

template <class Map>
auto at(const Map& map, DWORD index)
{
    return index < map.size() ? std::next(map.begin(), static_cast<std::ptrdiff_t>(index)) : map.end();
}

LSTATUS copyName(const std::string& name, LPSTR buffer, LPDWORD size)
{
    if (*size <= name.size()) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    *size = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

} // namespace

bool SNameLess::operator()(const std::string& left, const std::string& right) const
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    return std::ranges::lexicographical_compare(left, right, {}, lower, lower);
}

SKey* SKey::find(const std::string& path)
{
    SKey* key = this;
    for (std::string rest = path; !rest.empty() && key != nullptr;) {
        if (const std::string name = takeName(rest); !name.empty()) {
            const auto found = key->keys.find(name);
            key = found == key->keys.end() ? nullptr : &found->second;
        }
    }
    return key;
}

SKey& SKey::make(const std::string& path)
{
    SKey* key = this;
    for (std::string rest = path; !rest.empty();) {
        if (const std::string name = takeName(rest); !name.empty()) {
            key = &key->keys[name];
        }
    }
    return *key;
}

// A key that was deleted while it was open stays away: handles keep the path and not the place.
struct CMemoryRegistry::SHandle
{
    HKEY root;
    std::string path;
};

SKey* CMemoryRegistry::keyOf(HKEY handle)
{
    const auto root = s_registry->m_roots.find(handle);
    if (root != s_registry->m_roots.end()) {
        return &root->second;
    }
    const auto* const open = reinterpret_cast<const SHandle*>(handle);
    return s_registry->m_roots[open->root].find(open->path);
}

CMemoryRegistry& CMemoryRegistry::emptied()
{
    static CMemoryRegistry* const s_one = new CMemoryRegistry();
    s_registry = s_one;
    s_one->m_roots = {{HKEY_CLASSES_ROOT, {}},   {HKEY_CURRENT_USER, {}}, {HKEY_LOCAL_MACHINE, {}},   {HKEY_USERS, {}},
                      {HKEY_CURRENT_CONFIG, {}}, {HKEY_DYN_DATA, {}},     {HKEY_PERFORMANCE_DATA, {}}};
    s_one->vanishFrom = MAXDWORD;
    s_one->openKeys = 0;
    return *s_one;
}

CMemoryRegistry::CMemoryRegistry()
    : m_open("RegOpenKeyExA",
             [](HKEY parent, LPCSTR path, DWORD, REGSAM, HKEY* key) -> LSTATUS {
                 *key = nullptr;
                 SKey* const above = keyOf(parent);
                 if (above == nullptr || above->find(path) == nullptr) {
                     return ERROR_FILE_NOT_FOUND;
                 }
                 *key = s_registry->handle(parent, path);
                 return ERROR_SUCCESS;
             })
    , m_create(
          "RegCreateKeyExA",
          [](HKEY parent, LPCSTR path, DWORD, LPSTR, DWORD, REGSAM, const LPSECURITY_ATTRIBUTES, HKEY* key, LPDWORD) -> LSTATUS {
              *key = nullptr;
              SKey* const above = keyOf(parent);
              if (above == nullptr || parent == HKEY_PERFORMANCE_DATA) {
                  return ERROR_KEY_DELETED;
              }
              if (std::strlen(path) > LONGEST_KEY_NAME) {
                  return ERROR_INVALID_PARAMETER;
              }
              above->make(path);
              *key = s_registry->handle(parent, path);
              return ERROR_SUCCESS;
          })
    , m_close("RegCloseKey",
              [](HKEY key) -> LSTATUS {
                  --s_registry->openKeys;
                  delete reinterpret_cast<SHandle*>(key);
                  return ERROR_SUCCESS;
              })
    , m_query("RegQueryValueExA",
              [](HKEY handle, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
                  SKey* const key = keyOf(handle);
                  if (key == nullptr) {
                      return ERROR_KEY_DELETED;
                  }
                  const auto found = key->values.find(name == nullptr ? "" : name);
                  if (found == key->values.end()) {
                      return ERROR_FILE_NOT_FOUND;
                  }
                  const std::string& stored = found->second.data;
                  const DWORD room = std::exchange(*size, static_cast<DWORD>(stored.size()));
                  if (type != nullptr) {
                      *type = found->second.type;
                  }
                  if (room < stored.size()) {
                      return ERROR_MORE_DATA;
                  }
                  std::ranges::copy(stored, data);
                  return ERROR_SUCCESS;
              })
    , m_set("RegSetValueExA",
            [](HKEY handle, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) -> LSTATUS {
                SKey* const key = keyOf(handle);
                if (key == nullptr) {
                    return ERROR_KEY_DELETED;
                }
                key->values[name == nullptr ? "" : name] = {type, std::string(data, data + size)};
                return ERROR_SUCCESS;
            })
    , m_deleteValue("RegDeleteValueA",
                    [](HKEY handle, LPCSTR name) -> LSTATUS {
                        SKey* const key = keyOf(handle);
                        return key != nullptr && key->values.erase(name == nullptr ? "" : name) != 0 ? ERROR_SUCCESS
                                                                                                     : ERROR_FILE_NOT_FOUND;
                    })
    , m_deleteKey("RegDeleteKeyA",
                  [](HKEY handle, LPCSTR name) -> LSTATUS {
                      SKey* const key = keyOf(handle);
                      if (key == nullptr) {
                          return ERROR_KEY_DELETED;
                      }
                      const auto found = key->keys.find(name);
                      if (found == key->keys.end()) {
                          return ERROR_FILE_NOT_FOUND;
                      }
                      if (!found->second.keys.empty()) {
                          return ERROR_ACCESS_DENIED;
                      }
                      key->keys.erase(found);
                      return ERROR_SUCCESS;
                  })
    , m_info("RegQueryInfoKeyA",
             [](HKEY handle, LPSTR, LPDWORD, LPDWORD, LPDWORD keys, LPDWORD, LPDWORD, LPDWORD values, LPDWORD, LPDWORD, LPDWORD,
                PFILETIME) -> LSTATUS {
                 const SKey* const key = keyOf(handle);
                 if (key == nullptr) {
                     return ERROR_KEY_DELETED;
                 }
                 *keys = static_cast<DWORD>(key->keys.size());
                 if (values != nullptr) {
                     *values = static_cast<DWORD>(key->values.size());
                 }
                 return ERROR_SUCCESS;
             })
    , m_enumKey("RegEnumKeyExA",
                [](HKEY handle, DWORD index, LPSTR name, LPDWORD size, LPDWORD, LPSTR, LPDWORD, PFILETIME) -> LSTATUS {
                    const SKey* const key = keyOf(handle);
                    if (key == nullptr || index >= s_registry->vanishFrom || index >= key->keys.size()) {
                        return ERROR_NO_MORE_ITEMS;
                    }
                    return copyName(at(key->keys, index)->first, name, size);
                })
    , m_enumValue("RegEnumValueA",
                  [](HKEY handle, DWORD index, LPSTR name, LPDWORD size, LPDWORD, LPDWORD, LPBYTE, LPDWORD) -> LSTATUS {
                      const SKey* const key = keyOf(handle);
                      if (key == nullptr || index >= s_registry->vanishFrom || index >= key->values.size()) {
                          return ERROR_NO_MORE_ITEMS;
                      }
                      return copyName(at(key->values, index)->first, name, size);
                  })
{
}

HKEY CMemoryRegistry::handle(HKEY parent, const std::string& path)
{
    ++openKeys;
    if (m_roots.contains(parent)) {
        return reinterpret_cast<HKEY>(new SHandle{parent, path});
    }
    const auto* const above = reinterpret_cast<const SHandle*>(parent);
    return reinterpret_cast<HKEY>(new SHandle{above->root, above->path + "\\" + path});
}

} // namespace fuzz
