#include "support/version.h"

#include "support/logger.h"

#include <cstdio>
#include <cstring>
#include <new>

#define LOG_SOURCE "version"

namespace {
constexpr const char* UNDEFINED_PRODUCT = "UNDEFINEDPRODUCT";

// The path of the module with the name that is set or, when none such is loaded, of the executable.
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

// A function of version.dll. Linked against, a file of that name beside the executable would be loaded instead of the system's:
// it is none of the libraries that Windows always takes from its own folder. Null when it cannot be loaded.
template <class Function>
Function versionFunction(const char* name)
{
    const HMODULE library = LoadLibraryExA("version.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32); // stays loaded
    return library == nullptr ? nullptr : reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

// A file's version resource. Empty when the file has none, there is no memory for it or version.dll cannot be loaded.
class VersionResource
{
public:
    struct Block
    {
        void* data = nullptr;
        UINT size = 0;
    };

    explicit VersionResource(const char* path)
    {
        const auto getSize = versionFunction<decltype(&GetFileVersionInfoSizeA)>("GetFileVersionInfoSizeA");
        const auto getInfo = versionFunction<decltype(&GetFileVersionInfoA)>("GetFileVersionInfoA");
        const bool isKnown = getSize != nullptr && getInfo != nullptr && m_query != nullptr;
        DWORD handle = 0;
        const DWORD size = isKnown ? getSize(path, &handle) : 0;
        m_isThere = size != 0;
        m_data.reset(m_isThere ? new (std::nothrow) char[size]() : nullptr);
        if (m_data != nullptr) {
            getInfo(path, handle, size, m_data.get());
        }
    }

    bool isThere() const { return m_isThere; }
    bool isLoaded() const { return m_data != nullptr; }
    Block query(const char* name) const
    {
        Block block;
        if (!isLoaded() || !m_query(m_data.get(), name, &block.data, &block.size)) {
            return {};
        }
        return block;
    }

private:
    decltype(&VerQueryValueA) m_query = versionFunction<decltype(&VerQueryValueA)>("VerQueryValueA");
    bool m_isThere;
    std::unique_ptr<char[]> m_data;
};
} // namespace

constinit const char* CVersion::s_moduleName = "KESTA.exe";

std::string CVersion::getVersionInfo(const char* path)
{
    LOG_SCOPE_STATIC(FINE, "CVersion::getVersionInfo", path);
    const VersionResource resource(path);
    const VersionResource::Block block = resource.query("\\");
    if (block.size < sizeof(VS_FIXEDFILEINFO)) {
        return {};
    }
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(block.data);
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
    const VersionResource resource(path);
    if (!resource.isThere()) {
        return UNDEFINED_PRODUCT;
    }
    if (!resource.isLoaded()) {
        return {};
    }

    const VersionResource::Block block = resource.query("\\VarFileInfo\\Translation");
    const auto* translations = static_cast<const Translation*>(block.data);
    for (UINT index = 0; index < block.size / sizeof(Translation); ++index) {
        char query[64];
        std::snprintf(query, sizeof query, "\\StringFileInfo\\%04x%04x\\ProductName", translations[index].language,
                      translations[index].codePage);
        const VersionResource::Block value = resource.query(query);
        if (value.size == 0) {
            continue;
        }
        const auto* const text = static_cast<const char*>(value.data);
        const std::string product(text, strnlen(text, value.size)); // a damaged resource may lack the zero at the end
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
