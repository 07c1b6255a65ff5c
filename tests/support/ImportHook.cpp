#include "tests/support/ImportHook.h"

#include <utility>

namespace {

const BYTE* image()
{
    return reinterpret_cast<const BYTE*>(GetModuleHandleA(nullptr));
}

template <class Entry>
Entry* at(DWORD address)
{
    return reinterpret_cast<Entry*>(const_cast<BYTE*>(image()) + address);
}

} // namespace

void** importPlace(const std::string& function)
{
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(image());
    const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS64*>(image() + dos.e_lfanew);
    const DWORD imports = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* module = at<IMAGE_IMPORT_DESCRIPTOR>(imports); module->Name != 0; module++) {
        const auto* name = at<IMAGE_THUNK_DATA64>(module->OriginalFirstThunk);
        auto* address = at<IMAGE_THUNK_DATA64>(module->FirstThunk);
        for (; name->u1.AddressOfData != 0; name++, address++) {
            const bool hasName = !IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal);
            if (hasName && function == at<IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(name->u1.AddressOfData))->Name) {
                return reinterpret_cast<void**>(&address->u1.Function);
            }
        }
    }
    return nullptr;
}

void* exchangeImport(void** place, void* address)
{
    DWORD protection = 0;
    VirtualProtect(place, sizeof *place, PAGE_READWRITE, &protection);
    void* const before = std::exchange(*place, address);
    VirtualProtect(place, sizeof *place, protection, &protection);
    return before;
}
