// The registration switches of the command line and what they do, step by step.
#include "tests/atl/moduleFixture.h"
#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using CommandLine = ImportHook<decltype(&GetCommandLineA)>;
using Path = ImportHook<decltype(&GetModuleFileNameA)>;
using WidePath = ImportHook<decltype(&GetModuleFileNameW)>;
using Create = ImportHook<decltype(&RegCreateKeyExA)>;
using Delete = ImportHook<decltype(&RegDeleteKeyA)>;
using Load = ImportHook<decltype(&LoadTypeLibEx)>;
using LookUp = ImportHook<decltype(&GetProcAddress)>;

// What is to be done, and what fails.
std::string s_commandLine;
HRESULT s_libraryResult = S_OK;
LSTATUS s_categoryResult = ERROR_SUCCESS;
std::string s_path;

bool isCategory(const std::string& name)
{
    return name.starts_with("{AAAAAAAA");
}

class ModuleRegistrationTest : public RegistryTest
{
protected:
    HRESULT run(const std::string& commandLine)
    {
        s_commandLine = commandLine;
        takeEvents();
        return m_module.WinMain(SW_HIDE);
    }
    // The events of a switch that fails with this result.
    std::vector<std::string> failure(const std::string& commandLine, HRESULT result)
    {
        EXPECT_EQ(run(commandLine), result) << commandLine;
        return takeEvents();
    }

    CTestModule m_module;

private:
    const CommandLine m_commandLine{"GetCommandLineA", []() -> LPSTR { return s_commandLine.data(); }};
    // Of the registry calls, only the category's are recorded.
    const Create m_create{"RegCreateKeyExA",
                          [](HKEY parent, LPCSTR name, DWORD reserved, LPSTR type, DWORD options, REGSAM access,
                             LPSECURITY_ATTRIBUTES security, PHKEY key, LPDWORD disposition) -> LSTATUS {
                              if (isCategory(name)) {
                                  s_events.push_back("category");
                              }
                              return isCategory(name) && s_categoryResult != ERROR_SUCCESS
                                         ? s_categoryResult
                                         : Create::s_original(parent, name, reserved, type, options, access, security, key,
                                                              disposition);
                          }};
    const Delete m_remove{"RegDeleteKeyA", [](HKEY parent, LPCSTR name) -> LSTATUS {
                              if (isCategory(name)) {
                                  s_events.push_back("no category");
                              }
                              return isCategory(name) && s_categoryResult != ERROR_SUCCESS ? s_categoryResult
                                                                                           : Delete::s_original(parent, name);
                          }};
    const Load m_load{"LoadTypeLibEx", [](LPCOLESTR path, REGKIND kind, ITypeLib** library) -> HRESULT {
                          s_events.push_back("library");
                          return FAILED(s_libraryResult) ? s_libraryResult : Load::s_original(path, kind, library);
                      }};
    const LookUp m_lookUp{"GetProcAddress", [](HMODULE module, LPCSTR name) -> FARPROC {
                              s_events.push_back(name);
                              return LookUp::s_original(module, name);
                          }};
};

} // namespace

TEST_F(ModuleRegistrationTest, SwitchesDoTheirStepsInOrder)
{
    EXPECT_EQ(run("x /RegServer"), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAre("AppId: 1", "UpdateRegistry 1: 1", "category", "UpdateRegistry 2: 1", "library"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), IsEmpty());
    EXPECT_EQ(run("x /UnregServer"), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAre("UpdateRegistry 1: 0", "no category", "UpdateRegistry 2: 0", "library", "AppId: 0"));
    EXPECT_EQ(run("x /RegServerPerUser"), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAre("AppId: 1 for the user", "UpdateRegistry 1: 1 for the user", "category",
                                          "UpdateRegistry 2: 1 for the user", "RegisterTypeLibForUser", "library"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), testing::Contains(testing::EndsWith(guidText(CATEGORY))));
    EXPECT_EQ(run("x /UnregServerPerUser"), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAre("UpdateRegistry 1: 0 for the user", "no category", "UpdateRegistry 2: 0 for the user",
                                          "UnRegisterTypeLibForUser", "library", "AppId: 0 for the user"));
}

TEST_F(ModuleRegistrationTest, TheFirstFailingStepIsTheResultAndTheLast)
{
    ASSERT_EQ(run("x /RegServer"), S_OK);
    CTestModule::s_appIdResult = E_INVALIDARG;
    EXPECT_THAT(failure("x /RegServer", E_INVALIDARG), ElementsAre("AppId: 1"));
    EXPECT_THAT(failure("x /UnregServer", E_INVALIDARG), testing::Contains("AppId: 0"));
    CTestModule::s_appIdResult = S_OK;
    ASSERT_EQ(run("x /RegServer"), S_OK);
    s_libraryResult = E_INVALIDARG;
    EXPECT_THAT(failure("x /RegServer", E_INVALIDARG), testing::Contains("library").Times(2)) << "in both places";
    EXPECT_THAT(failure("x /UnregServer", E_INVALIDARG), testing::Not(testing::Contains("AppId: 0")));
    ASSERT_EQ(m_module.UpdateRegistryFromResource(101, TRUE), S_OK);
    for (const DWORD length : {DWORD{0}, DWORD{MAX_PATH}}) {
        static DWORD s_length;
        s_length = length;
        const HRESULT result = HRESULT_FROM_WIN32(length == 0 ? ERROR_ACCESS_DENIED : ERROR_INSUFFICIENT_BUFFER);
        const Path hook("GetModuleFileNameA", [](HMODULE, LPSTR, DWORD) -> DWORD {
            SetLastError(ERROR_ACCESS_DENIED);
            return s_length;
        });
        EXPECT_EQ(failure("x /RegServer", result).back(), "UpdateRegistry 2: 1");
        EXPECT_EQ(failure("x /UnregServer", result).back(), "UpdateRegistry 2: 0");
        EXPECT_EQ(m_module.UpdateRegistryFromResource(101, TRUE), result);
    }
    ASSERT_EQ(failure("x /RegServer", E_INVALIDARG).size(), 6u);
    s_categoryResult = ERROR_ACCESS_DENIED;
    EXPECT_THAT(failure("x /RegServer", E_ACCESSDENIED), ElementsAre("AppId: 1", "UpdateRegistry 1: 1", "category"));
    EXPECT_THAT(failure("x /UnregServer", E_ACCESSDENIED), ElementsAre("UpdateRegistry 1: 0", "no category"));
    CClass<1>::s_updateResult = E_UNEXPECTED;
    EXPECT_THAT(failure("x /RegServer", E_UNEXPECTED), ElementsAre("AppId: 1", "UpdateRegistry 1: 1"));
    EXPECT_THAT(failure("x /UnregServer", E_UNEXPECTED), ElementsAre("UpdateRegistry 1: 0"));
}

TEST_F(ModuleRegistrationTest, SwitchesAreWordsAfterADashOrSlashInAnyCase)
{
    constexpr const char* ADD = "AppId: 1";
    constexpr const char* REMOVE = "UpdateRegistry 1: 0";
    constexpr const char* ADD_FOR_USER = "AppId: 1 for the user";
    constexpr const char* REMOVE_FOR_USER = "UpdateRegistry 1: 0 for the user";
    constexpr const char* RUN = "run";
    constexpr const char* CASES[][2] = {
        {"server.exe /RegServer", ADD},
        {"server.exe -REGSERVER", ADD},
        {"server.exe -UnRegServer", REMOVE},
        {"server.exe /UNREGSERVER", REMOVE},
        {"server.exe /RegServerPerUser", ADD_FOR_USER},
        {"server.exe -regserverperuser", ADD_FOR_USER},
        {"server.exe /unregserverPERUSER", REMOVE_FOR_USER},
        // A word ends at a blank, a tab or the end.
        {"x /RegServer ", ADD},
        {"x /RegServer\t/other", ADD},
        {"x /RegServerX", RUN},
        {"x /RegServer\n", RUN},
        {"x \"/RegServer\"", RUN},
        {"x /RegServe", RUN},
        {"x / RegServer", RUN},
        {"x RegServer", RUN},
        {"x xRegServer", RUN},
        {"", RUN},
        {"x -", RUN},
        // The scan continues after each mark and stops at the first switch.
        {"x -Embedding /other --RegServer", ADD},
        {"x -/-RegServer", ADD},
        {"x /RegServerX/UnregServer", REMOVE},
        {"x /UnregServer /RegServer", REMOVE},
        {"x -Embedding", RUN},
        // The executable's path is part of the command line.
        {"C:\\my -regserver folder\\server.exe", ADD},
        {"\"C:\\my-regserver folder\\server.exe\"", ADD},
        {"\"C:\\my-regserver\\server.exe\"", RUN},
    };
    const ImportHook<decltype(&CoRegisterClassObject)> hook("CoRegisterClassObject",
                                                            [](REFCLSID, LPUNKNOWN, DWORD, DWORD, LPDWORD) -> HRESULT {
                                                                s_events.push_back("run");
                                                                return E_ACCESSDENIED;
                                                            });
    CTestModule::s_appIdResult = E_ACCESSDENIED;
    CClass<1>::s_updateResult = E_ACCESSDENIED;
    for (const auto& [commandLine, event] : CASES) {
        EXPECT_THAT(failure(commandLine, E_ACCESSDENIED), ElementsAre(event)) << commandLine;
    }
}

TEST_F(ModuleRegistrationTest, NothingIsRegisteredWhenThePathIsNotInTheCodePage)
{
    ASSERT_EQ(GetACP(), 1252u);
    static std::wstring s_widePath;
    const WidePath hook("GetModuleFileNameW", [](HMODULE, LPWSTR buffer, DWORD) -> DWORD {
        s_widePath.copy(buffer, s_widePath.size());
        return static_cast<DWORD>(s_widePath.size());
    });
    s_widePath = L"C:\\\u00DC\\server.exe";
    EXPECT_EQ(m_module.UpdateRegistryFromResource(101, TRUE), S_OK);
    for (const wchar_t letter : {L'\u0422', L'\u0142'}) { // of another alphabet, and one that would become another letter
        s_widePath[3] = letter;
        EXPECT_EQ(m_module.UpdateRegistryFromResource(102, TRUE), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    }
    EXPECT_THAT(classes(), testing::Not(testing::Contains(testing::HasSubstr("LocalServer32"))));
    EXPECT_EQ(m_module.UpdateRegistryFromResource(101, FALSE), S_OK) << "what is there can be removed";
}

TEST_F(ModuleRegistrationTest, ScriptsKnowTheAppIdAndThePathWithQuotesAndDoubledApostrophes)
{
    constexpr const char* CASES[][2] = {
        {"C:\\plain\\server.exe", "C:\\plain\\server.exe"},
        {"C:\\it's\\server.exe", "C:\\it's\\server.exe"},
        {"C:\\two words\\server.exe", "\"C:\\two words\\server.exe\""},
        {"C:\\it's two's\\server.exe", "\"C:\\it's two's\\server.exe\""},
    };
    const Path hook("GetModuleFileNameA", [](HMODULE, LPSTR buffer, DWORD) -> DWORD {
        s_path.copy(buffer, s_path.size());
        return static_cast<DWORD>(s_path.size());
    });
    for (const auto& [path, written] : CASES) {
        s_path = path;
        EXPECT_EQ(m_module.UpdateRegistryFromResource(102, TRUE), S_OK);
        const std::string key = "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\LocalServer32";
        EXPECT_THAT(classes(), testing::Contains(std::format("{} [] = s '{}'", key, written)));
    }
    EXPECT_EQ(m_module.UpdateRegistryFromResource(101, TRUE), S_OK);
    EXPECT_THAT(classes(), testing::Contains("AppID\\KESTA.EXE [AppID] = s '{9E27B6D1}'"));
}
