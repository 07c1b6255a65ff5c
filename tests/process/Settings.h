// The registry that the server finds: installed Java runtimes and the host application's preferences, in the test's Wine prefix.
// All of it is removed when the object is created and when it is destroyed.
//
// Outside Wine the constructor throws and touches nothing, because it would remove the computer's own Java installation.
#pragma once

#include <windows.h>

#include <string>

namespace fixtures {

// The Windows path of a file of the system below Wine.
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

    // The runtime that is marked as the current one.
    void setRuntime(const std::string& version, const std::string& library) const;
    void removeRuntimes() const;
    void setPreference(const char* name, const std::string& text) const;
    void setPreference(const char* name, DWORD number) const;
    void removePreference(const char* name) const;
    // The key itself, with the registered controls.
    void removePreferences() const;
    // A control's jar, NAME.jar in the folder.
    void setControl(const std::string& name, const std::string& folder) const;
    void removeControl(const std::string& name) const;
};

// Whether a key exists in the 64-bit view, and its strings; "(none)" for a missing value.
bool keyExists(HKEY root, const std::string& path);
std::string keyText(HKEY root, const std::string& path, const char* value = nullptr);

} // namespace fixtures
