// Version resources: the input is the resource of a file that is right otherwise, read through this system's own functions.
#include "support/version.h"
#include "tests/fuzz/Target.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace fuzz {

namespace {

constexpr DWORD HEADERS_SIZE = 0x200;
constexpr DWORD SECTION_ADDRESS = 0x1000;

// Three folders (type, name, language) with one entry each, and the place of the data.
struct SResources
{
    struct SFolder
    {
        IMAGE_RESOURCE_DIRECTORY folder;
        DWORD id;
        DWORD offset;
    } folders[3];
    IMAGE_RESOURCE_DATA_ENTRY data;
};

struct SHeaders
{
    IMAGE_DOS_HEADER dos;
    IMAGE_NT_HEADERS64 nt;
    IMAGE_SECTION_HEADER section;
};
static_assert(sizeof(SHeaders) <= HEADERS_SIZE);

std::string libraryWith(Bytes resource)
{
    SResources resources = {};
    const DWORD ids[] = {16, 1, 0x0409}; // RT_VERSION
    for (DWORD level = 0; level < 3; ++level) {
        resources.folders[level].folder.NumberOfIdEntries = 1;
        resources.folders[level].id = ids[level];
        const DWORD next = (level + 1) * static_cast<DWORD>(sizeof(SResources::SFolder));
        resources.folders[level].offset = level < 2 ? next | IMAGE_RESOURCE_DATA_IS_DIRECTORY : next;
    }
    resources.data.OffsetToData = SECTION_ADDRESS + sizeof resources;
    resources.data.Size = static_cast<DWORD>(resource.size());

    const auto size = static_cast<DWORD>(sizeof resources + resource.size());
    const auto roundUp = [](DWORD number, DWORD unit) { return (number + unit - 1) / unit * unit; };
    SHeaders headers = {};
    headers.dos.e_magic = IMAGE_DOS_SIGNATURE;
    headers.dos.e_lfanew = offsetof(SHeaders, nt);
    headers.nt.Signature = IMAGE_NT_SIGNATURE;
    headers.nt.FileHeader.Machine = IMAGE_FILE_MACHINE_AMD64;
    headers.nt.FileHeader.NumberOfSections = 1;
    headers.nt.FileHeader.SizeOfOptionalHeader = sizeof headers.nt.OptionalHeader;
    headers.nt.FileHeader.Characteristics = IMAGE_FILE_EXECUTABLE_IMAGE | IMAGE_FILE_DLL;
    headers.nt.OptionalHeader.Magic = IMAGE_NT_OPTIONAL_HDR64_MAGIC;
    headers.nt.OptionalHeader.ImageBase = 0x180000000;
    headers.nt.OptionalHeader.SectionAlignment = SECTION_ADDRESS;
    headers.nt.OptionalHeader.FileAlignment = HEADERS_SIZE;
    headers.nt.OptionalHeader.SizeOfHeaders = HEADERS_SIZE;
    headers.nt.OptionalHeader.SizeOfImage = SECTION_ADDRESS + roundUp(size, SECTION_ADDRESS);
    headers.nt.OptionalHeader.Subsystem = IMAGE_SUBSYSTEM_WINDOWS_CUI;
    headers.nt.OptionalHeader.NumberOfRvaAndSizes = IMAGE_NUMBEROF_DIRECTORY_ENTRIES;
    headers.nt.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_RESOURCE] = {SECTION_ADDRESS, size};
    std::memcpy(headers.section.Name, ".rsrc", 5);
    headers.section.Misc.VirtualSize = size;
    headers.section.VirtualAddress = SECTION_ADDRESS;
    headers.section.SizeOfRawData = roundUp(size, HEADERS_SIZE);
    headers.section.PointerToRawData = HEADERS_SIZE;
    headers.section.Characteristics = IMAGE_SCN_CNT_INITIALIZED_DATA | IMAGE_SCN_MEM_READ;

    std::string file(reinterpret_cast<const char*>(&headers), sizeof headers);
    file.resize(HEADERS_SIZE);
    file.append(reinterpret_cast<const char*>(&resources), sizeof resources);
    file.append(resource.begin(), resource.end());
    file.resize(HEADERS_SIZE + headers.section.SizeOfRawData);
    return file;
}

bool isVersion(const std::string& text)
{
    int numbers[4] = {};
    char rest = 0;
    return std::sscanf(text.c_str(), "%d.%d.%d.%d%c", &numbers[0], &numbers[1], &numbers[2], &numbers[3], &rest) == 4 &&
           std::ranges::all_of(numbers, [](int number) { return number >= 0 && number <= 0xFFFF; });
}

} // namespace

void versionResource(Bytes input)
{
    const std::string path = temporaryFile(libraryWith(input));
    const std::string version = CVersion::getVersionInfo(path.c_str());
    expect(version.empty() || isVersion(version), "four numbers or nothing: " + version);
    CVersion::getProductName(path.c_str());
}

} // namespace fuzz
