#include "support/version.h"

#include "support/logger.h"

#include <cstdio>
#include <new>

#define LOG_SOURCE "version"

namespace {
constexpr const char* UNDEFINED_PRODUCT = "UNDEFINEDPRODUCT";

// Of the module with the name that is set or, when none is loaded under it, of the process's own executable.
std::string modulePath()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(GetModuleHandleA(CVersion::s_moduleName), path, MAX_PATH);
    return path;
}

struct Translation
{
    WORD language;
    WORD codePage;
};
} // namespace

constinit const char* CVersion::s_moduleName = "KESTA.exe";

std::string CVersion::getVersionInfo(const char* path)
{
    LOG_SCOPE_STATIC(FINE, "CVersion::getVersionInfo", path);
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeA(path, &handle);
    if (size == 0) {
        return {};
    }
    const std::unique_ptr<char[]> data(new (std::nothrow) char[size]());
    if (data == nullptr) {
        return {};
    }
    GetFileVersionInfoA(path, handle, size, data.get());
    void* fixed = nullptr;
    UINT length = 0;
    VerQueryValueA(data.get(), "\\", &fixed, &length);
    if (fixed == nullptr) {
        return {};
    }
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(fixed);
    char text[64];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                  HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
    return text;
}

std::string CVersion::getVersionInfo()
{
    LOG_SCOPE_STATIC(FINE, "CVersion::getVersionInfo");
    if (s_moduleName == nullptr) {
        LOG(WARN, "No module name was set");
        return {};
    }
    return getVersionInfo(modulePath().c_str());
}

std::string CVersion::getProductName(const char* path)
{
    LOG_SCOPE_STATIC(FINE, "CVersion::getProductName", path);
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeA(path, &handle);
    if (size == 0) {
        return UNDEFINED_PRODUCT;
    }
    const std::unique_ptr<char[]> data(new (std::nothrow) char[size]());
    if (data == nullptr) {
        return {};
    }
    GetFileVersionInfoA(path, handle, size, data.get());
    void* translationData = nullptr;
    UINT translationSize = 0;
    VerQueryValueA(data.get(), "\\VarFileInfo\\Translation", &translationData, &translationSize);
    if (translationSize < sizeof(Translation)) {
        return UNDEFINED_PRODUCT;
    }

    const auto* translations = static_cast<const Translation*>(translationData);
    for (UINT index = 0; index < translationSize / sizeof(Translation); ++index) {
        char query[64];
        std::snprintf(query, sizeof query, "\\StringFileInfo\\%04x%04x\\ProductName", translations[index].language,
                      translations[index].codePage);
        void* value = nullptr;
        UINT length = 0;
        VerQueryValueA(data.get(), query, &value, &length);
        if (length == 0) {
            continue;
        }
        const std::string product = static_cast<const char*>(value);
        LOG(TRACE, "Product name from " << query << ": " << product);
        return product;
    }
    return UNDEFINED_PRODUCT;
}

std::string CVersion::getProductName()
{
    LOG_SCOPE_STATIC(FINE, "CVersion::getProductName");
    if (s_moduleName == nullptr) {
        LOG(WARN, "No module name was set");
        return UNDEFINED_PRODUCT;
    }
    return getProductName(modulePath().c_str());
}
