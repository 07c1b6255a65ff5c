// A private registry: the predefined keys are redirected to empty keys below a scratch key, which the fixture removes.
#pragma once

#include "atl/atl.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <format>
#include <string>
#include <vector>

// "s 'text'", "d 5", "b 00ff": a value of the registry in the form of a script.
inline std::string shown(DWORD type, const std::string& data)
{
    if (type == REG_SZ) {
        return data.ends_with('\0') ? "s '" + data.substr(0, data.size() - 1) + "'" : "s without terminator";
    }
    if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        data.copy(reinterpret_cast<char*>(&number), sizeof number);
        return "d " + std::to_string(number);
    }
    std::string text = type == REG_BINARY ? "b " : "type " + std::to_string(type) + " ";
    for (const char byte : data) {
        text += std::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

inline std::string guidText(const GUID& guid)
{
    wchar_t text[40];
    return narrowText(text, static_cast<size_t>(StringFromGUID2(guid, text, 40)) - 1);
}

// The test program, and its folder.
inline std::string executable()
{
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}
inline std::string folderOf(const std::string& path)
{
    return path.substr(0, path.find_last_of('\\'));
}

class RegistryTest : public testing::Test
{
protected:
    RegistryTest()
    {
        CoInitialize(nullptr);
        CRegKey scratch;
        EXPECT_EQ(scratch.Create(HKEY_CURRENT_USER, m_path), ERROR_SUCCESS);
        for (const HKEY root : ROOTS) {
            CRegKey key;
            EXPECT_EQ(key.Create(scratch, std::to_string(reinterpret_cast<ULONG_PTR>(root))), ERROR_SUCCESS);
            EXPECT_EQ(RegOverridePredefKey(root, key), ERROR_SUCCESS);
        }
    }
    ~RegistryTest() override
    {
        for (const HKEY root : ROOTS) {
            RegOverridePredefKey(root, nullptr);
        }
        RegDeleteTreeA(HKEY_CURRENT_USER, m_path.c_str());
        CoUninitialize();
    }

    // Everything below a key, sorted by key, one line each: "path", and "path [name] = type data" for values.
    static std::vector<std::string> contentOf(HKEY key)
    {
        std::vector<std::string> lines;
        append(lines, key, "");
        return lines;
    }
    static std::vector<std::string> classes() { return contentOf(HKEY_CLASSES_ROOT); }

private:
    static constexpr DWORD NAME_SIZE = 256;
    static inline const HKEY ROOTS[] = {HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG,
                                        HKEY_CURRENT_USER};

    static void append(std::vector<std::string>& lines, HKEY key, const std::string& path)
    {
        std::vector<std::string> values;
        for (DWORD i = 0;; ++i) {
            char name[NAME_SIZE];
            DWORD length = sizeof name;
            char data[1024];
            DWORD size = sizeof data;
            DWORD type = 0;
            if (RegEnumValueA(key, i, name, &length, nullptr, &type, reinterpret_cast<BYTE*>(data), &size) != ERROR_SUCCESS) {
                break;
            }
            values.push_back(std::format("{} [{}] = {}", path, name, shown(type, std::string(data, size))));
        }
        std::sort(values.begin(), values.end());
        lines.insert(lines.end(), values.begin(), values.end());

        std::vector<std::string> names;
        for (DWORD i = 0;; ++i) {
            char name[NAME_SIZE];
            DWORD length = sizeof name;
            if (RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
                break;
            }
            names.emplace_back(name, length);
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            lines.push_back(path.empty() ? name : path + "\\" + name);
            const std::string child = lines.back();
            CRegKey subKey;
            EXPECT_EQ(subKey.Open(key, name), ERROR_SUCCESS);
            append(lines, subKey, child);
        }
    }

    const std::string m_path = "Software\\kesta_atl_test_" + std::to_string(GetCurrentProcessId());
};
