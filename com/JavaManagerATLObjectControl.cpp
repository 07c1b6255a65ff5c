#include "com/JavaManagerATLObjectControl.h"

#include "support/registry.h"

#include <optional>

namespace {

constexpr DWORD MODULE_PATH_SIZE = 260;

// Nothing when the path is too long.
std::optional<std::string> ownExecutable()
{
    char path[MODULE_PATH_SIZE + 1] = {};
    const int length = static_cast<int>(GetModuleFileNameA(nullptr, path, MODULE_PATH_SIZE));
    return length < 0 || length > static_cast<int>(MODULE_PATH_SIZE) ? std::nullopt : std::optional<std::string>(path);
}

// The control archive beside the executable; "" without the executable's path.
std::string defaultBasisControl(const char* executable)
{
    const std::optional<std::string> module = executable != nullptr ? std::optional<std::string>(executable) : ownExecutable();
    return module.has_value() ? module->substr(0, module->rfind('\\')) + "\\ORVANEControl.jar" : "";
}

} // namespace

bool isFileThere(const std::string& path)
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string chooseBasisControl(const char* executable, const std::function<bool(const std::string&)>& doesFileExist)
{
    const std::string defaultControl = defaultBasisControl(executable);
    std::string basiscontrol =
        CRegistry(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS).getStringValue("basiscontrol", defaultControl.c_str());
    if (!doesFileExist(basiscontrol) && basiscontrol != defaultControl && doesFileExist(defaultControl)) {
        basiscontrol = defaultControl;
    }
    return basiscontrol;
}
