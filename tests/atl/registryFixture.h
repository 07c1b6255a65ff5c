// A registry of the test's own: the predefined keys stand for empty keys below a scratch key, which goes with the fixture.
#pragma once

#include "atl/atl.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <format>
#include <string>
#include <vector>

class RegistryTest : public testing::Test
{
protected:
    RegistryTest()
    {
        m_path = "Software\\kesta_atl_test_" + std::to_string(GetCurrentProcessId());
        redirect(HKEY_CLASSES_ROOT, "HKCR", m_classes);
        redirect(HKEY_LOCAL_MACHINE, "HKLM", m_machine);
        redirect(HKEY_USERS, "HKU", m_users);
        redirect(HKEY_CURRENT_CONFIG, "HKCC", m_config);
        // The last one: the scratch keys themselves lie under it.
        redirect(HKEY_CURRENT_USER, "HKCU", m_user);
    }
    ~RegistryTest() override
    {
        for (const HKEY key : {HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG}) {
            RegOverridePredefKey(key, nullptr);
        }
        for (CRegKey* const key : {&m_classes, &m_machine, &m_users, &m_config, &m_user}) {
            key->Close();
        }
        RegDeleteTreeA(HKEY_CURRENT_USER, m_path.c_str());
        RegDeleteKeyA(HKEY_CURRENT_USER, m_path.c_str());
    }

    // Everything below a key, a line each, sorted by key: "path", and "path [name] = type data" for its values.
    static std::vector<std::string> contentOf(HKEY key)
    {
        std::vector<std::string> lines;
        append(lines, key, "");
        for (std::string& line : lines) {
            // Some systems write this name so; names are the same in any case.
            if (line.starts_with("Typelib")) {
                line.replace(0, 7, "TypeLib");
            }
        }
        return lines;
    }
    static std::vector<std::string> classes() { return contentOf(HKEY_CLASSES_ROOT); }

private:
    void redirect(HKEY predefined, const std::string& name, CRegKey& key)
    {
        EXPECT_EQ(key.Create(HKEY_CURRENT_USER, m_path + "\\" + name), ERROR_SUCCESS);
        EXPECT_EQ(RegOverridePredefKey(predefined, key), ERROR_SUCCESS);
    }

    static std::string shown(DWORD type, const std::vector<BYTE>& data)
    {
        if (type == REG_SZ) {
            // The terminator is part of what was stored.
            const std::string text(data.begin(), data.end());
            return text.ends_with('\0') ? "s '" + text.substr(0, text.size() - 1) + "'" : "s without terminator";
        }
        if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
            DWORD number = 0;
            std::copy(data.begin(), data.end(), reinterpret_cast<BYTE*>(&number));
            return "d " + std::to_string(number);
        }
        std::string text = type == REG_BINARY ? "b " : "type " + std::to_string(type) + " ";
        for (const BYTE byte : data) {
            text += std::format("{:02x}", byte);
        }
        return text;
    }

    static void append(std::vector<std::string>& lines, HKEY key, const std::string& path)
    {
        std::vector<std::string> values;
        for (DWORD i = 0;; ++i) {
            char name[256];
            DWORD length = sizeof name;
            std::vector<BYTE> data(1024);
            DWORD size = static_cast<DWORD>(data.size());
            DWORD type = 0;
            if (RegEnumValueA(key, i, name, &length, nullptr, &type, data.data(), &size) != ERROR_SUCCESS) {
                break;
            }
            data.resize(size);
            values.push_back(path + " [" + name + "] = " + shown(type, data));
        }
        std::sort(values.begin(), values.end());
        lines.insert(lines.end(), values.begin(), values.end());

        std::vector<std::string> names;
        for (DWORD i = 0;; ++i) {
            char name[256];
            DWORD length = sizeof name;
            if (RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
                break;
            }
            names.emplace_back(name, length);
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            const std::string child = path.empty() ? name : path + "\\" + name;
            lines.push_back(child);
            CRegKey subKey;
            EXPECT_EQ(subKey.Open(key, name, KEY_READ), ERROR_SUCCESS);
            append(lines, subKey, child);
        }
    }

    std::string m_path;
    CRegKey m_classes;
    CRegKey m_machine;
    CRegKey m_users;
    CRegKey m_config;
    CRegKey m_user;
};
