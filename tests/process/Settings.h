// What the server finds on its machine: installed Java runtimes and the host application's preferences, in the registry of the
// test's Wine prefix. Everything of it is removed when the object begins and when it ends.
//
// Outside Wine nothing is touched and the constructor throws: it would throw away the machine's own Java installation.
#pragma once

#include <windows.h>

#include <string>

namespace fixtures {

// The Windows path of a file of the system that Wine runs on.
std::string windowsPath(const std::string& unixPath);
// The jvm.dll of one of the pinned runtimes, by its major version.
std::string runtimeLibrary(int version);

class CSettings
{
public:
    CSettings();
    ~CSettings();
    CSettings(const CSettings&) = delete;
    CSettings& operator=(const CSettings&) = delete;

    // The runtime that the installer marked as current.
    void setRuntime(const std::string& version, const std::string& library) const;
    void removeRuntimes() const;
    void setPreference(const char* name, const std::string& text) const;
    void setPreference(const char* name, DWORD number) const;
    void removePreference(const char* name) const;
};

// Whether a key exists in the 64-bit view, and its texts; "(none)" for a value that is missing.
bool keyExists(HKEY root, const std::string& path);
std::string keyText(HKEY root, const std::string& path, const char* value = nullptr);

} // namespace fixtures
