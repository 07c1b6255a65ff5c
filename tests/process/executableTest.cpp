// The executable as a file: its resources, what it imports and exports, how it may be loaded.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

namespace fixtures {
namespace {

// Mapped without being run; addresses inside the image are valid.
class ExecutableTest : public testing::Test
{
protected:
    ~ExecutableTest() override { FreeLibrary(m_module); }
    void SetUp() override { ASSERT_TRUE(m_module); }

    const BYTE* image() const { return reinterpret_cast<const BYTE*>(reinterpret_cast<ULONG_PTR>(m_module) & ~ULONG_PTR{3}); }
    const IMAGE_OPTIONAL_HEADER64& header() const
    {
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image());
        return reinterpret_cast<const IMAGE_NT_HEADERS64*>(image() + dos->e_lfanew)->OptionalHeader;
    }
    template <class Directory>
    const Directory* directory(int index) const
    {
        return reinterpret_cast<const Directory*>(image() + header().DataDirectory[index].VirtualAddress);
    }
    const char* text(DWORD address) const { return reinterpret_cast<const char*>(image() + address); }

    HMODULE m_module =
        LoadLibraryExA((programFolder() + "\\..\\..\\KESTAx64.exe").c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
};

TEST_F(ExecutableTest, CarriesScriptsLibraryAndNameWithTheirLanguages)
{
    EXPECT_TRUE(FindResourceExA(m_module, "REGISTRY", MAKEINTRESOURCEA(101), 1033));
    EXPECT_TRUE(FindResourceExA(m_module, "REGISTRY", MAKEINTRESOURCEA(102), 1031));
    EXPECT_TRUE(FindResourceA(m_module, MAKEINTRESOURCEA(1), "TYPELIB"));
    char name[64] = {};
    LoadStringA(m_module, 100, name, sizeof name);
    EXPECT_STREQ("KESTAserver", name);
    // A manifest could change the code page that every narrow text is in.
    EXPECT_FALSE(FindResourceA(m_module, MAKEINTRESOURCEA(1), MAKEINTRESOURCEA(24)));
}

TEST_F(ExecutableTest, MayBeLoadedAnywhereAndRunsNoData)
{
    constexpr WORD WANTED =
        IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    EXPECT_EQ(WANTED, header().DllCharacteristics & WANTED);
    EXPECT_EQ(IMAGE_SUBSYSTEM_WINDOWS_GUI, header().Subsystem);
}

TEST_F(ExecutableTest, ImportsOnlyWhatWindowsHas)
{
    std::vector<std::string> names;
    for (auto* entry = directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT); entry->Name != 0; ++entry) {
        std::string name = text(entry->Name);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (!name.starts_with("api-ms-win-crt-")) // the C runtime, part of Windows 10
            names.push_back(name);
    }
    EXPECT_THAT(names, testing::IsSubsetOf({"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll",
                                            "shell32.dll", "user32.dll", "version.dll"}));
}

TEST_F(ExecutableTest, ExportsTheNatives)
{
    const auto* const exports = directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
    std::string names;
    for (DWORD index = 0; index < exports->NumberOfNames; ++index)
        names += text(reinterpret_cast<const DWORD*>(image() + exports->AddressOfNames)[index]) + std::string("\n");
    for (const char* native : {"NativeOnControlReady", "NativeOnCustomEvent", "NativeTestBridgeEvent"})
        EXPECT_NE(std::string::npos, names.find(native)) << names;
}

} // namespace
} // namespace fixtures
