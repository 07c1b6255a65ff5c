// The server's resources, which the test program contains.
#include "tests/atl/registryFixture.h"

namespace {

std::vector<WORD> languagesOf(LPCSTR type, LPCSTR name)
{
    std::vector<WORD> languages;
    const auto collect = [](HMODULE, LPCSTR, LPCSTR, WORD language, LONG_PTR parameter) -> BOOL {
        reinterpret_cast<std::vector<WORD>*>(parameter)->push_back(language);
        return TRUE;
    };
    EnumResourceLanguagesA(nullptr, type, name, collect, reinterpret_cast<LONG_PTR>(&languages));
    return languages;
}

std::string contentOf(LPCSTR type, LPCSTR name)
{
    const HRSRC resource = FindResourceA(nullptr, name, type);
    if (resource == nullptr) {
        return "(no resource)";
    }
    return std::string(static_cast<const char*>(LockResource(LoadResource(nullptr, resource))),
                       SizeofResource(nullptr, resource));
}

} // namespace

TEST(ResourcesTest, TheScriptsAreThoseOfTheContract)
{
    EXPECT_EQ(contentOf("REGISTRY", MAKEINTRESOURCEA(101)), R"(HKCR
{
	NoRemove AppID
	{
		'%APPID%' = s 'KESTAserver'
		'KESTA.EXE'
		{
			val AppID = s '%APPID%'
		}
	}
}
)");
    EXPECT_EQ(contentOf("REGISTRY", MAKEINTRESOURCEA(102)), R"(HKCR
{
	KESTAserver.JavaManager.1 = s 'KESTA Java Manager'
	{
		CLSID = s '{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}'
	}
	KESTAserver.JavaManager = s 'KESTA Java Manager'
	{
		CLSID = s '{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}'
		CurVer = s 'KESTAserver.JavaManager.1'
	}
	NoRemove CLSID
	{
		ForceRemove {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} = s 'KESTA Java Manager'
		{
			ProgID = s 'KESTAserver.JavaManager.1'
			VersionIndependentProgID = s 'KESTAserver.JavaManager'
			ForceRemove 'Programmable'
			LocalServer32 = s '%MODULE%'
			'TypeLib' = s '{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}'
		}
	}
}
)");
}

TEST(ResourcesTest, TheScriptsHaveTheirLanguages)
{
    EXPECT_THAT(languagesOf("REGISTRY", MAKEINTRESOURCEA(101)), testing::ElementsAre(1033));
    EXPECT_THAT(languagesOf("REGISTRY", MAKEINTRESOURCEA(102)), testing::ElementsAre(1031));
}

TEST(ResourcesTest, TheTypeLibraryIsNumberOneMadeForEnglishAndForEverybody)
{
    const std::string header = contentOf("TYPELIB", MAKEINTRESOURCEA(1)).substr(0, 20);
    EXPECT_EQ(header.substr(0, 4), "MSFT");
    EXPECT_EQ(header.substr(12), std::string("\x09\x04\0\0\0\0\0\0", 8)) << "the file's locale, and the library's";
}

TEST(ResourcesTest, TheProjectNameIsString100)
{
    char text[64] = {};
    EXPECT_EQ(LoadStringA(GetModuleHandleA(nullptr), 100, text, sizeof text), 11);
    EXPECT_STREQ(text, "KESTAserver");
}

TEST(ResourcesTest, ProductNameAndVersion)
{
    std::vector<char> data(GetFileVersionInfoSizeA(executable().c_str(), nullptr));
    ASSERT_TRUE(GetFileVersionInfoA(executable().c_str(), 0, static_cast<DWORD>(data.size()), data.data()));
    const auto value = [&](const char* name) {
        void* found = nullptr;
        UINT length = 0;
        EXPECT_TRUE(VerQueryValueA(data.data(), name, &found, &length)) << name;
        return found;
    };
    const auto* const fixed = static_cast<const VS_FIXEDFILEINFO*>(value("\\"));
    EXPECT_EQ(fixed->dwFileVersionMS, 0x00010006u);
    EXPECT_EQ(fixed->dwFileVersionLS, 0u);
    EXPECT_EQ(fixed->dwProductVersionMS, 0x00010006u);
    EXPECT_EQ(fixed->dwProductVersionLS, 0u);
    EXPECT_STREQ(static_cast<const char*>(value("\\StringFileInfo\\040904E4\\ProductName")), "KESTA");
    EXPECT_STREQ(static_cast<const char*>(value("\\StringFileInfo\\040904E4\\FileVersion")), "1.6.0.0");
}
