// Private files, folders and registry keys of a test, removed with their content at its end.
//
//     fixtures::RegistryScratch machine(HKEY_LOCAL_MACHINE);            // the process now sees an empty HKEY_LOCAL_MACHINE
//     machine.setString("SOFTWARE\\X", "name", "value", KEY_WOW64_32KEY);
//
//     fixtures::TemporaryFolder folder;
//     fixtures::makeFile(folder.path("a.log"), 60);                     // last written a minute ago
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace fixtures {

inline void checkPlace(const std::string& place, LSTATUS status)
{
    if (status != ERROR_SUCCESS) {
        throw std::system_error(static_cast<int>(status), std::system_category(), place);
    }
}

// The first unused name of the form PREFIX-PROCESS-NUMBER: an earlier test's process may have had the same id and left something
// behind. `create` returns ERROR_ALREADY_EXISTS when the name is in use.
template <class Create>
std::string newPlace(const std::string& prefix, Create create)
{
    for (int number = 1;; ++number) {
        const std::string name = prefix + "-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(number);
        const LSTATUS status = create(name);
        if (status != ERROR_ALREADY_EXISTS) {
            checkPlace(name, status);
            return name;
        }
    }
}

class TemporaryFolder
{
public:
    enum class Removal { MustSucceed, MayFail };

    explicit TemporaryFolder(Removal removal = Removal::MustSucceed)
        : m_removal(removal)
        , m_path(newPlace((std::filesystem::temp_directory_path() / "kesta").string(), [](const std::string& path) -> LSTATUS {
            return CreateDirectoryA(path.c_str(), nullptr) ? ERROR_SUCCESS : static_cast<LSTATUS>(GetLastError());
        }))
    {
    }
    ~TemporaryFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
        EXPECT_TRUE(!error || m_removal == Removal::MayFail) << m_path << " stays: " << error.message();
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Without backslash at the end.
    const std::string& path() const { return m_path; }
    std::string path(const std::string& name) const { return m_path + "\\" + name; }

private:
    Removal m_removal;
    std::string m_path;
};

// Replaces one of the predefined keys while it is alive. Starts empty. Below it the two registry views are the same one: set
// values in the view that the code under test reads.
class RegistryScratch
{
public:
    explicit RegistryScratch(HKEY root)
        : m_root(root)
    {
        checkPlace("the user's key", RegOpenKeyExA(HKEY_CURRENT_USER, nullptr, 0, KEY_ALL_ACCESS, &m_user));
        m_path = newPlace("Software\\KestaTests\\scratch", [this](const std::string& path) { return create(path); });
        checkPlace(m_path, RegOverridePredefKey(m_root, m_scratch));
    }
    ~RegistryScratch()
    {
        RegOverridePredefKey(m_root, nullptr);
        RegCloseKey(m_scratch);
        const LSTATUS status = RegDeleteTreeA(m_user, m_path.c_str());
        EXPECT_EQ(status, ERROR_SUCCESS) << m_path << " stays";
        RegCloseKey(m_user);
    }
    RegistryScratch(const RegistryScratch&) = delete;
    RegistryScratch& operator=(const RegistryScratch&) = delete;

    // `view` is 0 or KEY_WOW64_32KEY, as the reader under test opens the key.
    void createKey(const std::string& path, REGSAM view = 0) { RegCloseKey(open(path, view)); }
    void setString(const std::string& path, const std::string& name, const std::string& value, REGSAM view = 0)
    {
        setBytes(path, name, REG_SZ, value.c_str(), value.size() + 1, view);
    }
    void setDword(const std::string& path, const std::string& name, std::uint32_t value, REGSAM view = 0)
    {
        setBytes(path, name, REG_DWORD, &value, sizeof value, view);
    }
    void setBytes(const std::string& path, const std::string& name, DWORD type, const void* bytes, size_t size, REGSAM view = 0)
    {
        const HKEY key = open(path, view);
        const LSTATUS status =
            RegSetValueExA(key, name.c_str(), 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size));
        RegCloseKey(key);
        checkPlace(path, status);
    }
    void deleteValue(const std::string& path, const std::string& name, REGSAM view = 0)
    {
        const HKEY key = open(path, view);
        RegDeleteValueA(key, name.c_str());
        RegCloseKey(key);
    }

private:
    LSTATUS create(const std::string& path)
    {
        DWORD disposition = 0;
        const LSTATUS status =
            RegCreateKeyExA(m_user, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_scratch, &disposition);
        if (status != ERROR_SUCCESS || disposition == REG_CREATED_NEW_KEY) {
            return status;
        }
        RegCloseKey(m_scratch);
        return ERROR_ALREADY_EXISTS;
    }
    HKEY open(const std::string& path, REGSAM view)
    {
        HKEY key = nullptr;
        // The narrow call takes at most 260 characters.
        const std::wstring wide(path.begin(), path.end());
        checkPlace(path, RegCreateKeyExW(m_root, wide.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key, nullptr));
        return key;
    }

    HKEY m_root;
    HKEY m_user = nullptr; // the user's own key, even while it is overridden
    HKEY m_scratch = nullptr;
    std::string m_path;
};

inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void makeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

} // namespace fixtures
