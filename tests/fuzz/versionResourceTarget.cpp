// Version resources, through functions of Windows that answer as the input says: its first byte tells the number of answers, each
// of which has five bytes; the rest is the resource. An answer lies within the resource. Windows' own functions are not asked:
// those of Wine write outside of a resource whose lengths are wrong.
#include "support/version.h"
#include "tests/fuzz/Target.h"
#include "tests/support/ImportHook.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace fuzz {

namespace {

constexpr size_t ANSWER_SIZE = 5;
constexpr size_t ALIGNMENT = 4;

Bytes s_answers;
Bytes s_resource;

DWORD WINAPI sizeOf(LPCSTR, LPDWORD)
{
    return static_cast<DWORD>(s_resource.size());
}

BOOL WINAPI copy(LPCSTR, DWORD, DWORD size, LPVOID block)
{
    std::memcpy(block, s_resource.data(), std::min<size_t>(size, s_resource.size()));
    return TRUE;
}

// Whether there is one, its place and its length.
BOOL WINAPI query(LPCVOID block, LPCSTR, LPVOID* value, PUINT length)
{
    if (s_answers.size() < ANSWER_SIZE) {
        return FALSE;
    }
    const Bytes answer = s_answers.first(ANSWER_SIZE);
    s_answers = s_answers.subspan(ANSWER_SIZE);
    const size_t place = std::min<size_t>(answer[1] * 256u + answer[2], s_resource.size()) / ALIGNMENT * ALIGNMENT;
    const size_t size = std::min<size_t>(answer[3] * 256u + answer[4], s_resource.size() - place);
    if (answer[0] % 4 == 0) {
        return FALSE;
    }
    *value = const_cast<char*>(static_cast<const char*>(block) + place);
    *length = static_cast<UINT>(size);
    return TRUE;
}

using AddressHook = ImportHook<decltype(&GetProcAddress)>;

FARPROC addressOf(HMODULE module, LPCSTR name)
{
    const std::string_view wanted = HIWORD(reinterpret_cast<ULONG_PTR>(name)) == 0 ? "" : name;
    void* const replacement = wanted == "GetFileVersionInfoSizeA" ? reinterpret_cast<void*>(sizeOf)
                              : wanted == "GetFileVersionInfoA"   ? reinterpret_cast<void*>(copy)
                              : wanted == "VerQueryValueA"        ? reinterpret_cast<void*>(query)
                                                                  : nullptr;
    return replacement == nullptr ? AddressHook::s_original(module, name) : reinterpret_cast<FARPROC>(replacement);
}

// The product may import these functions or look them up.
bool replaceFunctions()
{
    for (const auto& [name, function] : {std::pair{"GetFileVersionInfoSizeA", reinterpret_cast<void*>(sizeOf)},
                                         {"GetFileVersionInfoA", reinterpret_cast<void*>(copy)},
                                         {"VerQueryValueA", reinterpret_cast<void*>(query)}}) {
        if (void** const place = importPlace(name)) {
            exchangeImport(place, function);
        }
    }
    if (importPlace("GetProcAddress") != nullptr) {
        [[maybe_unused]] static const auto* const s_hook = new AddressHook("GetProcAddress", addressOf);
    }
    return true;
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
    if (input.empty()) {
        return;
    }
    [[maybe_unused]] static const bool s_isReplaced = replaceFunctions();
    const size_t answers = std::min<size_t>(input[0] * ANSWER_SIZE, input.size() - 1);
    const Bytes all = input.subspan(1, answers);
    s_resource = input.subspan(1 + answers);
    s_answers = all;
    const std::string version = CVersion::getVersionInfo("a file");
    expect(version.empty() || isVersion(version), "four numbers or nothing: " + version);
    expect(s_resource.empty() || all.size() < ANSWER_SIZE || s_answers.size() < all.size(), "the resource is asked");
    const std::string product = CVersion::getProductName("a file");
    expect(!s_resource.empty() || product == "UNDEFINEDPRODUCT", "without a resource: " + product);
}

} // namespace fuzz
