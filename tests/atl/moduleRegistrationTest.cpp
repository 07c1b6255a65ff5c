#include "tests/atl/registryFixture.h"
#include "tests/atl/sampleObject.h"
#include "tests/support/ImportHook.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char* const APPID = "{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}";

// The sample with the server's class script.
class CRegisteredObject : public CSampleObject
{
public:
    DECLARE_REGISTRY_RESOURCEID(102)
};

constexpr ATL_OBJMAP_ENTRY OBJECT_MAP[] = {OBJECT_ENTRY(CLSID_JavaManager, CRegisteredObject)};

class CRegisteringModule : public CAtlExeModuleT<CRegisteringModule>
{
public:
    CRegisteringModule()
        : CAtlExeModuleT(OBJECT_MAP)
    {
    }
    DECLARE_REGISTRY_APPID_RESOURCEID(101, APPID)
    using CAtlExeModule::ParseCommandLine;
};

// Two classes that only note their registration; the first has categories.
const CLSID FIRST_CLASS = {0x11111111, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const CLSID SECOND_CLASS = {0x22222222, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};
const GUID CATEGORY = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

class CClassWithCategories : public CSampleObject
{
public:
    // Also notes whether the categories are there.
    static HRESULT UpdateRegistry(BOOL registering) noexcept
    {
        CRegKey list;
        const char* const path = "CLSID\\{11111111-0000-0000-0000-000000000001}\\Required Categories";
        s_events.push_back(list.Open(HKEY_CLASSES_ROOT, path) == ERROR_SUCCESS ? "with categories" : "without categories");
        return CSampleObject::UpdateRegistry(registering);
    }
    static const ATL_CATMAP_ENTRY* GetCategoryMap()
    {
        using Type = ATL_CATMAP_ENTRY::Type;
        static const ATL_CATMAP_ENTRY MAP[] = {
            {Type::Implemented, &CATEGORY}, {Type::Required, &CATEGORY}, {Type::Required, nullptr}};
        return MAP;
    }
};

class CSecondClass : public CSampleObject
{
public:
    static HRESULT UpdateRegistry(BOOL registering) noexcept
    {
        s_events.push_back(registering ? "second UpdateRegistry 1" : "second UpdateRegistry 0");
        return S_OK;
    }
};

constexpr ATL_OBJMAP_ENTRY TWO_CLASSES[] = {OBJECT_ENTRY(FIRST_CLASS, CClassWithCategories)
                                                OBJECT_ENTRY(SECOND_CLASS, CSecondClass)};

class CTwoClassModule : public CAtlExeModuleT<CTwoClassModule>
{
public:
    CTwoClassModule()
        : CAtlExeModuleT(TWO_CLASSES)
    {
    }
    static const char* GetAppIdT() noexcept { return ""; }
    static HRESULT UpdateRegistryAppId(BOOL) noexcept { return S_OK; }
    using CAtlExeModule::ParseCommandLine;
};

class ModuleRegistrationTest : public RegistryTest
{
protected:
    ModuleRegistrationTest() { CoInitialize(nullptr); }
    ~ModuleRegistrationTest() override { CoUninitialize(); }

    HRESULT run(const char* commandLine)
    {
        HRESULT result = S_FALSE;
        EXPECT_FALSE(m_module.ParseCommandLine(commandLine, result));
        return result;
    }
    static std::string executable()
    {
        char path[MAX_PATH] = {};
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        return path;
    }
    // Without the keys of the type library and its interfaces.
    static std::vector<std::string> ownKeys(HKEY root)
    {
        std::vector<std::string> lines = contentOf(root);
        std::erase_if(lines,
                      [](const std::string& line) { return line.starts_with("TypeLib") || line.starts_with("Interface"); });
        return lines;
    }
    static std::vector<std::string> expectedKeys(const std::string& prefix)
    {
        const std::string clsid = "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}";
        std::vector<std::string> lines = {
            "AppID",
            "AppID\\KESTA.EXE",
            std::string("AppID\\KESTA.EXE [AppID] = s '") + APPID + "'",
            std::string("AppID\\") + APPID,
            std::string("AppID\\") + APPID + " [] = s 'KESTAserver'",
            "CLSID",
            clsid,
            clsid + " [] = s 'KESTA Java Manager'",
            clsid + "\\LocalServer32",
            clsid + "\\LocalServer32 [] = s '" + executable() + "'",
            clsid + "\\ProgID",
            clsid + "\\ProgID [] = s 'KESTAserver.JavaManager.1'",
            clsid + "\\Programmable",
            clsid + "\\TypeLib",
            clsid + "\\TypeLib [] = s '{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}'",
            clsid + "\\VersionIndependentProgID",
            clsid + "\\VersionIndependentProgID [] = s 'KESTAserver.JavaManager'",
            "KESTAserver.JavaManager",
            "KESTAserver.JavaManager [] = s 'KESTA Java Manager'",
            "KESTAserver.JavaManager\\CLSID",
            "KESTAserver.JavaManager\\CLSID [] = s '{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}'",
            "KESTAserver.JavaManager\\CurVer",
            "KESTAserver.JavaManager\\CurVer [] = s 'KESTAserver.JavaManager.1'",
            "KESTAserver.JavaManager.1",
            "KESTAserver.JavaManager.1 [] = s 'KESTA Java Manager'",
            "KESTAserver.JavaManager.1\\CLSID",
            "KESTAserver.JavaManager.1\\CLSID [] = s '{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}'",
        };
        for (std::string& line : lines) {
            line = prefix + line;
        }
        return lines;
    }

    CRegisteringModule m_module;
};

} // namespace

TEST_F(ModuleRegistrationTest, WritesTheServersKeysAndTheLibrary)
{
    EXPECT_EQ(run("server.exe /RegServer"), S_OK);
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT), testing::ElementsAreArray(expectedKeys("")));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), IsEmpty());
    CComPtr<ITypeLib> library;
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &library), S_OK);
}

TEST_F(ModuleRegistrationTest, ASecondRegistrationLeavesOneSet)
{
    EXPECT_EQ(run("server.exe -regserver"), S_OK);
    const auto once = classes();
    CRegKey foreign;
    EXPECT_EQ(foreign.Create(HKEY_CLASSES_ROOT, "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\Leftover"), ERROR_SUCCESS);
    foreign.Close();
    EXPECT_EQ(run("server.exe -regserver"), S_OK);
    EXPECT_EQ(once, classes());
}

TEST_F(ModuleRegistrationTest, RemovalKeepsTheSharedParents)
{
    EXPECT_EQ(run("server.exe /RegServer"), S_OK);
    EXPECT_EQ(run("server.exe /UnregServer"), S_OK);
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT), ElementsAre("AppID", "CLSID"));
    CComPtr<ITypeLib> library;
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &library), TYPE_E_LIBNOTREGISTERED);
}

TEST_F(ModuleRegistrationTest, PerUserEverythingLiesUnderTheUser)
{
    EXPECT_EQ(run("server.exe /RegServerPerUser"), S_OK);
    std::vector<std::string> expected = expectedKeys("Software\\Classes\\");
    expected.insert(expected.begin(), {"Software", "Software\\Classes"});
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), testing::ElementsAreArray(expected));
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), IsEmpty());
    EXPECT_EQ(run("server.exe /UnregServerPerUser"), S_OK);
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER),
                ElementsAre("Software", "Software\\Classes", "Software\\Classes\\AppID", "Software\\Classes\\CLSID"));
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), IsEmpty());
}

TEST_F(ModuleRegistrationTest, AFailingStepEndsTheRemoval)
{
    EXPECT_EQ(run("server.exe /RegServer"), S_OK);
    EXPECT_EQ(UnRegisterTypeLib(LIBID_KESTAserverLib, 1, 0, 0, SYS_WIN64), S_OK);
    EXPECT_TRUE(FAILED(run("server.exe /UnregServer")));
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT),
                ElementsAre("AppID", "AppID\\KESTA.EXE", std::string("AppID\\KESTA.EXE [AppID] = s '") + APPID + "'",
                            std::string("AppID\\") + APPID, std::string("AppID\\") + APPID + " [] = s 'KESTAserver'", "CLSID"));
}

TEST_F(ModuleRegistrationTest, EachClassIsFollowedByItsCategoriesAndAllByTheLibrary)
{
    CTwoClassModule module;
    HRESULT result = S_FALSE;
    s_events.clear();
    EXPECT_FALSE(module.ParseCommandLine("server.exe /RegServer", result));
    EXPECT_EQ(result, S_OK);
    EXPECT_THAT(s_events, ElementsAre("without categories", "UpdateRegistry 1", "second UpdateRegistry 1"));
    const std::string clsid = "CLSID\\{11111111-0000-0000-0000-000000000001}";
    const std::string category = "\\{AAAAAAAA-0000-0000-0000-000000000001}";
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT),
                ElementsAre("CLSID", clsid, clsid + "\\Implemented Categories", clsid + "\\Implemented Categories" + category,
                            clsid + "\\Required Categories", clsid + "\\Required Categories" + category));
    CComPtr<ITypeLib> library;
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &library), S_OK);
    library.Release();

    s_events.clear();
    EXPECT_FALSE(module.ParseCommandLine("server.exe /UnregServer", result));
    EXPECT_EQ(result, S_OK);
    EXPECT_THAT(s_events, ElementsAre("with categories", "UpdateRegistry 0", "second UpdateRegistry 0"));
    EXPECT_THAT(ownKeys(HKEY_CLASSES_ROOT), ElementsAre("CLSID", clsid));
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &library), TYPE_E_LIBNOTREGISTERED);
}

TEST_F(ModuleRegistrationTest, AFailingClassEndsTheWorkBeforeItsCategoriesAndTheNextClass)
{
    CTwoClassModule module;
    HRESULT result = S_OK;
    s_events.clear();
    CSampleObject::s_updateResult = E_ACCESSDENIED;
    EXPECT_FALSE(module.ParseCommandLine("server.exe /RegServer", result));
    EXPECT_EQ(result, E_ACCESSDENIED);
    EXPECT_FALSE(module.ParseCommandLine("server.exe /UnregServer", result));
    EXPECT_EQ(result, E_ACCESSDENIED);
    CSampleObject::s_updateResult = S_OK;
    EXPECT_THAT(s_events, ElementsAre("without categories", "UpdateRegistry 1", "without categories", "UpdateRegistry 0"));
    EXPECT_THAT(classes(), IsEmpty());
}

TEST_F(ModuleRegistrationTest, AnExecutableWithoutAPathCannotBeRegistered)
{
    const auto none = [](HMODULE, LPSTR, DWORD) -> DWORD {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    };
    // Windows cuts a path that does not fit and tells the whole size of the buffer.
    const auto cut = [](HMODULE, LPSTR buffer, DWORD size) -> DWORD {
        std::fill_n(buffer, size, 'x');
        return size;
    };
    CTwoClassModule module;
    HRESULT result = S_OK;
    for (const char* const commandLine : {"server.exe /RegServer", "server.exe /UnregServer"}) {
        {
            const ImportHook<decltype(&GetModuleFileNameA)> hook("GetModuleFileNameA", none);
            EXPECT_FALSE(module.ParseCommandLine(commandLine, result));
            EXPECT_EQ(result, E_ACCESSDENIED);
        }
        const ImportHook<decltype(&GetModuleFileNameA)> hook("GetModuleFileNameA", cut);
        EXPECT_FALSE(module.ParseCommandLine(commandLine, result));
        EXPECT_EQ(AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER), result);
        EXPECT_EQ(AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER), module.UpdateRegistryFromResource(101, TRUE));
    }
}

TEST(QuotedForScriptTest, DoublesApostrophesAndQuotesBlanks)
{
    EXPECT_EQ(AtlQuotedForScript("C:\\plain\\server.exe"), "C:\\plain\\server.exe");
    EXPECT_EQ(AtlQuotedForScript("C:\\it's\\server.exe"), "C:\\it''s\\server.exe");
    EXPECT_EQ(AtlQuotedForScript("C:\\two words\\server.exe"), "\"C:\\two words\\server.exe\"");
    EXPECT_EQ(AtlQuotedForScript("C:\\it's two's\\server.exe"), "\"C:\\it''s two''s\\server.exe\"");
}
