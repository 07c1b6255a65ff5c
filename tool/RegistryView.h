// Reading the registry for the tool's own questions, without lines in the log. What the server reads itself is asked of the
// server's code instead.
//
// Threads: any. Failure: what is missing is empty; only exhausted memory throws.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

class CRegistryView
{
public:
    // `view` is KEY_WOW64_64KEY or KEY_WOW64_32KEY.
    CRegistryView(HKEY root, const std::string& path, REGSAM view);
    ~CRegistryView();
    CRegistryView(const CRegistryView&) = delete;
    CRegistryView& operator=(const CRegistryView&) = delete;

    bool exists() const { return m_key != nullptr; }
    // A text of any length, also one with variables, which are not expanded. An empty name is the key's default value.
    std::optional<std::string> text(const std::string& name) const;
    std::vector<std::string> subKeys() const;

private:
    HKEY m_key = nullptr;
};

// The value of a key that is opened for it.
std::optional<std::string> registryText(HKEY root, const std::string& path, const std::string& name, REGSAM view);
