#include "tool/Runtimes.h"

#include "javabridge/JavaManagerJNIClientSettings.h"
#include "support/logger.h"
#include "tool/Findings.h"
#include "tool/RegistryView.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <format>
#include <fstream>

namespace {

constexpr uint16_t MACHINE_X64 = 0x8664;
constexpr uint16_t MACHINE_X86 = 0x014C;
constexpr uint16_t MACHINE_ARM64 = 0xAA64;

constexpr REGSAM REGISTRY_VIEWS[] = {KEY_WOW64_64KEY, KEY_WOW64_32KEY};

// The keys below which installers write one subkey for each runtime, and where its folder is found there.
const struct
{
    const char* key;
    const char* below; // of the runtime's subkey
    const char* value;
} VENDOR_KEYS[] = {
    {"SOFTWARE\\JavaSoft\\JDK", "", "JavaHome"},
    {"SOFTWARE\\JavaSoft\\JRE", "", "JavaHome"},
    {"SOFTWARE\\JavaSoft\\Java Development Kit", "", "JavaHome"},
    {"SOFTWARE\\JavaSoft\\Java Runtime Environment", "", "JavaHome"},
    {"SOFTWARE\\Eclipse Adoptium\\JDK", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\Eclipse Adoptium\\JRE", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\Eclipse Foundation\\JDK", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\AdoptOpenJDK\\JDK", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\AdoptOpenJDK\\JRE", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\Semeru\\JDK", "\\openj9\\MSI", "Path"},
    {"SOFTWARE\\Semeru\\JRE", "\\openj9\\MSI", "Path"},
    {"SOFTWARE\\Microsoft\\JDK", "\\hotspot\\MSI", "Path"},
    {"SOFTWARE\\Azul Systems\\Zulu", "", "InstallationPath"},
    {"SOFTWARE\\BellSoft\\Liberica", "", "InstallationPath"},
};

// Below %ProgramFiles%, each with a folder for every runtime.
const char* const USUAL_FOLDERS[] = {"Java", "Eclipse Adoptium", "Eclipse Foundation", "AdoptOpenJDK", "Semeru", "Microsoft",
                                     "Zulu", "BellSoft",         "Amazon Corretto"};

std::string withoutBackslash(std::string folder)
{
    while (folder.ends_with('\\')) {
        folder.pop_back();
    }
    return folder;
}

// The value of JAVA_VERSION in a runtime's file "release".
std::string releasedVersion(const std::string& library)
{
    std::error_code error;
    const std::filesystem::path home = toPath(library).parent_path().parent_path().parent_path();
    for (const std::filesystem::path& folder : {home, home.parent_path()}) { // the jre of a kit has none of its own
        std::ifstream file(folder / "release");
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("JAVA_VERSION=\"")) {
                line.erase(0, line.find('"') + 1);
                return line.substr(0, line.find('"'));
            }
        }
    }
    return "";
}

// "" when the library can be mapped and exports what the server calls.
std::string faultOfImage(const std::string& library)
{
    // Mapped only: neither its own code nor that of its neighbours runs.
    const HMODULE module = LoadLibraryExA(library.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    if (module == nullptr) {
        return "Windows cannot load the library: " + getWindowsErrorText(GetLastError());
    }
    const bool isExported = GetProcAddress(module, "JNI_CreateJavaVM") != nullptr;
    FreeLibrary(module);
    return isExported ? "" : "the library does not export JNI_CreateJavaVM";
}

const char* const TAKE_64_BIT = "install a 64-bit (x64) Java runtime and choose it: KESTAtool java use FOLDER";
const char* const INSTALL_AGAIN = "install this runtime again, or choose another one: KESTAtool java list";

// What is wrong with a library that can be opened; empty when nothing is.
void inspectLibrary(RuntimeFile& runtime, std::ifstream& file)
{
    const std::optional<uint16_t> machine = readLibraryMachine(file);
    file.close();
    if (!machine.has_value()) {
        runtime.fault = "the file is no library";
        runtime.remedy = INSTALL_AGAIN;
    } else if (*machine != MACHINE_X64) {
        runtime.fault = *machine == MACHINE_X86     ? "the runtime is a 32-bit one"
                        : *machine == MACHINE_ARM64 ? "the runtime is one for ARM processors"
                                                    : std::format("the runtime is for another processor ({:04x})", *machine);
        runtime.remedy = TAKE_64_BIT;
    } else if (runtime.fault = faultOfImage(runtime.library); !runtime.fault.empty()) {
        runtime.remedy = INSTALL_AGAIN;
    }
}

void add(std::vector<FoundRuntime>& runtimes, const std::string& source, const std::string& folder)
{
    const std::string plain = withoutBackslash(folder);
    const auto isSame = [&](const FoundRuntime& known) { return lstrcmpiA(known.folder.c_str(), plain.c_str()) == 0; };
    if (!plain.empty() && std::ranges::none_of(runtimes, isSame)) {
        runtimes.push_back({source, plain, libraryBelow(plain)});
    }
}

void addUsualFolders(std::vector<FoundRuntime>& runtimes)
{
    const char* const programs = std::getenv("ProgramW6432");
    for (const char* const vendor : USUAL_FOLDERS) {
        std::error_code error;
        const std::filesystem::path above = toPath(programs != nullptr ? programs : "C:\\Program Files") / vendor;
        for (const auto& entry : std::filesystem::directory_iterator(above, error)) {
            if (!libraryBelow(fromPath(entry.path())).empty()) {
                add(runtimes, fromPath(above), fromPath(entry.path()));
            }
        }
    }
}

} // namespace

RuntimeFile inspectRuntime(const std::string& library)
{
    RuntimeFile runtime = {library, false, "", "", ""};
    if (library.empty()) {
        runtime.fault = "the key has no value RuntimeLib";
        runtime.remedy = "choose a runtime by its folder: KESTAtool java use FOLDER";
        return runtime;
    }
    std::ifstream file(library, std::ios::binary);
    runtime.isThere = file.is_open();
    if (!runtime.isThere) {
        runtime.fault = "the file is not there: " + library;
        runtime.remedy = INSTALL_AGAIN;
        return runtime;
    }
    runtime.javaVersion = releasedVersion(library);
    inspectLibrary(runtime, file);
    return runtime;
}

int javaFeatureVersion(const std::string& javaVersion)
{
    const int first = std::atoi(javaVersion.c_str());
    const size_t dot = javaVersion.find('.');
    return first == 1 && dot != std::string::npos ? std::atoi(javaVersion.c_str() + dot + 1) : first;
}

std::string libraryBelow(const std::string& folder)
{
    for (const char* const below : {"\\bin\\server\\jvm.dll", "\\jre\\bin\\server\\jvm.dll", "\\bin\\j9vm\\jvm.dll"}) {
        if (GetFileAttributesA((folder + below).c_str()) != INVALID_FILE_ATTRIBUTES) {
            return folder + below;
        }
    }
    return "";
}

std::vector<FoundRuntime> findRuntimes()
{
    std::vector<FoundRuntime> runtimes;
    for (const auto& vendor : VENDOR_KEYS) {
        for (const REGSAM view : REGISTRY_VIEWS) {
            for (const std::string& name : CRegistryView(HKEY_LOCAL_MACHINE, vendor.key, view).subKeys()) {
                const std::string key = std::string(vendor.key) + "\\" + name + vendor.below;
                add(runtimes, "HKLM\\" + key, registryText(HKEY_LOCAL_MACHINE, key, vendor.value, view).value_or(""));
            }
        }
    }
    if (const char* const home = std::getenv("JAVA_HOME"); home != nullptr) {
        add(runtimes, "JAVA_HOME", home);
    }
    addUsualFolders(runtimes);
    return runtimes;
}
