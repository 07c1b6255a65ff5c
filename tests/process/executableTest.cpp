// The executable as a file: its resources, what it imports and exports, how it may be loaded.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <format>
#include <set>

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

    // Each "type name" of the resources, numbers with "#".
    std::set<std::string> resources() const
    {
        static std::set<std::string> s_found;
        s_found.clear();
        const auto shown = [](LPCSTR name) {
            return IS_INTRESOURCE(name) ? "#" + std::to_string(LOWORD(name)) : std::string(name);
        };
        static constexpr auto SHOWN = shown;
        EnumResourceTypesA(
            m_module,
            [](HMODULE module, LPSTR type, LONG_PTR) -> BOOL {
                return EnumResourceNamesA(
                    module, type,
                    [](HMODULE, LPCSTR resourceType, LPSTR name, LONG_PTR) -> BOOL {
                        s_found.insert(SHOWN(resourceType) + " " + SHOWN(name));
                        return TRUE;
                    },
                    0);
            },
            0);
        return s_found;
    }
    // The bytes of a type's resource 1.
    std::string resource(LPCSTR type) const
    {
        const HRSRC found = FindResourceA(m_module, MAKEINTRESOURCEA(1), type);
        const auto* const bytes = static_cast<const char*>(LockResource(LoadResource(m_module, found)));
        return bytes == nullptr ? "" : std::string(bytes, SizeofResource(m_module, found));
    }
    std::vector<WORD> languagesOf(LPCSTR type, int name) const
    {
        std::vector<WORD> languages;
        const auto collect = [](HMODULE, LPCSTR, LPCSTR, WORD language, LONG_PTR parameter) -> BOOL {
            reinterpret_cast<std::vector<WORD>*>(parameter)->push_back(language);
            return TRUE;
        };
        EnumResourceLanguagesA(m_module, type, MAKEINTRESOURCEA(name), collect, reinterpret_cast<LONG_PTR>(&languages));
        return languages;
    }
    // The names of the functions that the executable cannot start without.
    std::vector<std::string> importedFunctions() const
    {
        std::vector<std::string> names;
        for (auto* entry = directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT); entry->Name != 0; ++entry) {
            const auto* thunk = reinterpret_cast<const IMAGE_THUNK_DATA64*>(image() + entry->OriginalFirstThunk);
            for (; thunk->u1.AddressOfData != 0; ++thunk) {
                names.emplace_back(text(static_cast<DWORD>(thunk->u1.AddressOfData) + sizeof(WORD)));
            }
        }
        return names;
    }

    HMODULE m_module =
        LoadLibraryExA((programFolder() + "\\..\\..\\KESTAx64.exe").c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
};

TEST_F(ExecutableTest, CarriesItsResourcesWithTheirLanguagesAndNoOthers)
{
    // The version, the manifest, the string table with the name, the scripts and the type library.
    EXPECT_THAT(resources(), testing::ElementsAre("#16 #1", "#24 #1", "#6 #7", "REGISTRY #101", "REGISTRY #102", "TYPELIB #1"));
    EXPECT_EQ(languagesOf("REGISTRY", 101), std::vector<WORD>{1033});
    EXPECT_EQ(languagesOf("REGISTRY", 102), std::vector<WORD>{1031});
    char name[64] = {};
    EXPECT_EQ(LoadStringA(m_module, 100, name, sizeof name), 11);
    EXPECT_STREQ(name, "KESTAserver");
}

TEST_F(ExecutableTest, CarriesTheTypeLibraryThatItsTestsDescribe)
{
    const std::string library = resource("TYPELIB");
    ASSERT_FALSE(library.empty());
    EXPECT_TRUE(library == readFile(programFolder() + "\\..\\..\\contract\\KESTAserver.tlb"));
}

// It tells Windows which versions the program knows, so that the log names the true one. An active code page would change the
// encoding of every narrow text, and the client decides about the scale.
TEST_F(ExecutableTest, CarriesAManifestWithTheKnownVersionsAndNoElevation)
{
    using testing::HasSubstr;
    const std::string manifest = resource(RT_MANIFEST);
    for (const char* version : {"8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a", "1f676c76-80e1-4239-95bb-83d0f6d0da78",
                                "4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38", "35138b9a-5d96-4fbd-8e2d-a2440225f93a"}) {
        EXPECT_THAT(manifest, HasSubstr(std::format("supportedOS Id=\"{{{}}}\"", version)));
    }
    EXPECT_THAT(manifest, testing::AllOf(HasSubstr("level=\"asInvoker\""), testing::Not(HasSubstr("activeCodePage")),
                                         testing::Not(HasSubstr("dpiAware"))));
}

TEST_F(ExecutableTest, MayBeLoadedAnywhereAndRunsNoData)
{
    constexpr WORD WANTED =
        IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    EXPECT_EQ(header().DllCharacteristics & WANTED, WANTED);
    EXPECT_EQ(header().Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

// All are libraries that Windows takes from its own folder, whatever lies beside the executable.
TEST_F(ExecutableTest, ImportsOnlyKnownLibrariesOfWindows)
{
    std::vector<std::string> names;
    for (auto* entry = directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT); entry->Name != 0; ++entry) {
        std::string name = text(entry->Name);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (!name.starts_with("api-ms-win-crt-")) { // the C runtime, part of Windows 10
            names.push_back(name);
        }
    }
    EXPECT_THAT(names, testing::IsSubsetOf({"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll",
                                            "shell32.dll", "user32.dll"}));
}

// Functions that some systems lack are looked up by name at run time, and Java's in the chosen library.
TEST_F(ExecutableTest, StartsWithoutWhatItLooksUpAtRunTime)
{
    const std::vector<std::string> functions = importedFunctions();
    EXPECT_THAT(functions, testing::IsSupersetOf({"CoRegisterClassObject", "RegisterTypeLib", "UnRegisterTypeLib"}));
    for (const char* name :
         {"RegisterTypeLibForUser", "UnRegisterTypeLibForUser", "RegCreateKeyTransactedA", "RegOpenKeyTransactedA",
          "RegDeleteKeyTransactedA", "RegDeleteKeyExA", "JNI_CreateJavaVM", "IsWow64Process"}) {
        EXPECT_THAT(functions, testing::Not(testing::Contains(name)));
    }
}

TEST_F(ExecutableTest, ExportsTheNatives)
{
    const auto* const exports = directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
    EXPECT_EQ(exports->NumberOfNames, 3u);
    std::string names;
    for (DWORD index = 0; index < exports->NumberOfNames; ++index) {
        names += text(reinterpret_cast<const DWORD*>(image() + exports->AddressOfNames)[index]) + std::string("\n");
    }
    for (const char* native : {"NativeOnControlReady", "NativeOnCustomEvent", "NativeTestBridgeEvent"}) {
        EXPECT_NE(std::string::npos, names.find(native)) << names;
    }
}

} // namespace
} // namespace fixtures
