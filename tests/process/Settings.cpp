#include "tests/process/Settings.h"

#include <cstdlib>
#include <stdexcept>

namespace fixtures {

namespace {

constexpr char RUNTIMES_KEY[] = "SOFTWARE\\JavaSoft\\JRE";
constexpr char PREFERENCES_KEY[] = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

FARPROC wineFunction(const char* module, const char* name)
{
    const FARPROC function = GetProcAddress(GetModuleHandleA(module), name);
    if (function == nullptr) {
        throw std::runtime_error("these tests change the registry and run under Wine only");
    }
    return function;
}

class CKey
{
public:
    CKey(HKEY root, const std::string& path, REGSAM access)
    {
        if (RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, access, nullptr, &m_key, nullptr) != ERROR_SUCCESS) {
            throw std::runtime_error("cannot write the registry key " + path);
        }
    }
    ~CKey() { RegCloseKey(m_key); }
    CKey(const CKey&) = delete;
    CKey& operator=(const CKey&) = delete;

    operator HKEY() const { return m_key; }
    void setText(const char* name, const std::string& text) const
    {
        RegSetValueExA(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), static_cast<DWORD>(text.size() + 1));
    }
    void setNumber(const char* name, DWORD number) const
    {
        RegSetValueExA(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
    }

private:
    HKEY m_key = nullptr;
};

void removeTree(REGSAM view)
{
    RegDeleteTreeA(CKey(HKEY_LOCAL_MACHINE, "SOFTWARE", KEY_ALL_ACCESS | view), "JavaSoft");
}

CKey preferences()
{
    return CKey(HKEY_LOCAL_MACHINE, PREFERENCES_KEY, KEY_ALL_ACCESS | KEY_WOW64_32KEY);
}

} // namespace

std::string windowsPath(const std::string& unixPath)
{
    using Convert = WCHAR*(CDECL*)(const char*);
    const auto convert = reinterpret_cast<Convert>(reinterpret_cast<void*>(wineFunction("kernel32", "wine_get_dos_file_name")));
    WCHAR* const wide = convert(unixPath.c_str());
    char narrow[MAX_PATH] = {};
    if (wide != nullptr) {
        WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, sizeof narrow, nullptr, nullptr);
    }
    HeapFree(GetProcessHeap(), 0, wide);
    return narrow;
}

std::string runtimeLibrary(int version)
{
    const char* const folder = std::getenv(("KESTA_JAVA_" + std::to_string(version)).c_str());
    if (folder == nullptr) {
        throw std::runtime_error("KESTA_JAVA_" + std::to_string(version) + " is not set: run inside the tool environment");
    }
    return windowsPath(std::string(folder) + "/bin/server/jvm.dll");
}

CSettings::CSettings()
{
    wineFunction("ntdll", "wine_get_version");
    removeTree(KEY_WOW64_64KEY);
    removeTree(KEY_WOW64_32KEY);
    preferences();
}

CSettings::~CSettings()
{
    removeTree(KEY_WOW64_64KEY);
    removeTree(KEY_WOW64_32KEY);
}

void CSettings::setRuntime(const std::string& version, const std::string& library) const
{
    CKey(HKEY_LOCAL_MACHINE, RUNTIMES_KEY, KEY_ALL_ACCESS).setText("CurrentVersion", version);
    CKey(HKEY_LOCAL_MACHINE, RUNTIMES_KEY + ("\\" + version), KEY_ALL_ACCESS).setText("RuntimeLib", library);
}

void CSettings::removeRuntimes() const
{
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, RUNTIMES_KEY);
}

void CSettings::setPreference(const char* name, const std::string& text) const
{
    preferences().setText(name, text);
}

void CSettings::setPreference(const char* name, DWORD number) const
{
    preferences().setNumber(name, number);
}

void CSettings::removePreference(const char* name) const
{
    RegDeleteValueA(preferences(), name);
}

void CSettings::removePreferences() const
{
    removeTree(KEY_WOW64_32KEY);
}

void CSettings::setControl(const std::string& name, const std::string& folder) const
{
    CKey(HKEY_LOCAL_MACHINE, PREFERENCES_KEY + ("\\" + name), KEY_ALL_ACCESS | KEY_WOW64_32KEY).setText("installpath", folder);
}

void CSettings::removeControl(const std::string& name) const
{
    RegDeleteTreeA(preferences(), name.c_str());
}

bool keyExists(HKEY root, const std::string& path)
{
    HKEY key = nullptr;
    const bool exists = RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS;
    if (exists) {
        RegCloseKey(key);
    }
    return exists;
}

std::string keyText(HKEY root, const std::string& path, const char* value)
{
    char text[1024] = {};
    DWORD size = sizeof text;
    if (RegGetValueA(root, path.c_str(), value, RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS) {
        return "(none)";
    }
    return text;
}

} // namespace fixtures
