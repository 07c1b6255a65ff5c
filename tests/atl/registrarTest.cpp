// What registration scripts do to the registry; component categories are registered by such a script.
#include "atl/categories.h"
#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class RegistrarTest : public RegistryTest
{
protected:
    HRESULT add(const char* script) { return m_registrar.UpdateFromString(script, TRUE); }
    HRESULT remove(const char* script) { return m_registrar.UpdateFromString(script, FALSE); }

    CRegObject m_registrar;
};

std::string errorDescription()
{
    CComPtr<IErrorInfo> info;
    CComBSTR description;
    if (GetErrorInfo(0, &info) == S_OK) {
        info->GetDescription(&description);
    }
    return narrowText(description);
}

void makeKey(const char* path)
{
    CRegKey key;
    EXPECT_EQ(key.Create(HKEY_CLASSES_ROOT, path), ERROR_SUCCESS);
}

} // namespace

TEST_F(RegistrarTest, WritesKeysAndValuesOnce)
{
    const char* const script = R"(
HKCR
{
    Plain
    'Text' = s 'default text'
    {
        val Name = s 'it''s'
        val Number = d &H10
        val 'Bytes' = b 00ff
        val Nothing = s ''
        Inner = d 5 { Deepest = b 01 }
    }
}
)";
    const auto content = ElementsAre("Plain", "Text", "Text [Bytes] = b 00ff", "Text [Name] = s 'it's'", "Text [Nothing] = s ''",
                                     "Text [Number] = d 16", "Text [] = s 'default text'", "Text\\Inner", "Text\\Inner [] = d 5",
                                     "Text\\Inner\\Deepest", "Text\\Inner\\Deepest [] = b 01");
    EXPECT_EQ(add(script), S_OK);
    EXPECT_THAT(classes(), content);
    EXPECT_EQ(add(script), S_OK);
    EXPECT_THAT(classes(), content);
}

TEST_F(RegistrarTest, WritesAndRemovesUnderEveryRoot)
{
    const char* const script = "HKCR { A } HKCU { B } HKLM { C } HKU { D } HKCC { E }";
    const HKEY roots[] = {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG};
    const char* const names[] = {"A", "B", "C", "D", "E"};
    EXPECT_EQ(add(script), S_OK);
    for (size_t i = 0; i < std::size(roots); ++i) {
        EXPECT_THAT(contentOf(roots[i]), ElementsAre(names[i]));
    }
    EXPECT_EQ(remove(script), S_OK);
    for (const HKEY root : roots) {
        EXPECT_THAT(contentOf(root), IsEmpty());
    }
}

TEST_F(RegistrarTest, PerUserTheClassesLieUnderTheUser)
{
    const char* const script = "HKCR { A = s 'x' { B } val V = d 1 } HKLM { C }";
    CRegObject registrar(CRegistrationScope::User);
    EXPECT_EQ(registrar.UpdateFromString(script, TRUE), S_OK);
    EXPECT_THAT(classes(), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), ElementsAre("C"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER),
                ElementsAre("Software", "Software\\Classes", "Software\\Classes [V] = d 1", "Software\\Classes\\A",
                            "Software\\Classes\\A [] = s 'x'", "Software\\Classes\\A\\B"));
    EXPECT_EQ(registrar.UpdateFromString(script, FALSE), S_OK);
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), ElementsAre("Software", "Software\\Classes"));
}

TEST_F(RegistrarTest, ForceRemoveWritesTheKeyAnewAndDeleteRemovesItOnRegistrationOnly)
{
    makeKey("A\\old\\older");
    makeKey("B\\old");
    EXPECT_EQ(remove("HKCR { Delete A Delete B }"), S_OK);
    EXPECT_EQ(add("HKCR { ForceRemove A { new } B { new } }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("A", "A\\new", "B", "B\\new", "B\\old"));
    EXPECT_EQ(add("HKCR { Delete B Delete Missing }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("A", "A\\new"));
}

TEST_F(RegistrarTest, RemovalGoesByTheKindsOfTheKeys)
{
    const char* const script = R"(
HKCR
{
    Plain = s 'x' { Inner { val V = d 1 } }
    Shared = s 'x' { val V = d 1 Inner }
    NoRemove Kept = s 'default' { val Gone = s 'x' Below }
    ForceRemove Forced
    NoRemove KeptOutside { ForceRemove Inside { A } NoRemove KeptInside { B } }
}
)";
    EXPECT_EQ(add(script), S_OK);
    makeKey("Forced\\foreign\\deep");
    makeKey("Shared\\foreign");
    EXPECT_EQ(remove(script), S_OK);
    const auto rest = ElementsAre("Kept", "Kept [] = s 'default'", "KeptOutside", "KeptOutside\\KeptInside", "Shared",
                                  "Shared [] = s 'x'", "Shared\\foreign");
    EXPECT_THAT(classes(), rest);
    EXPECT_EQ(remove(script), S_OK) << "what is not there is no error";
    EXPECT_THAT(classes(), rest);
}

TEST_F(RegistrarTest, ReplacementsAreInNamesAndTexts)
{
    m_registrar.AddReplacement("NAME", "the name");
    m_registrar.AddReplacement("MODULE", "C:\\first");
    m_registrar.AddReplacement("module", "C:\\it''s");
    EXPECT_EQ(add("HKCR { '%name%' = s '%MODULE% 100%%' }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("the name", "the name [] = s 'C:\\it's 100%'"));
}

TEST_F(RegistrarTest, ABrokenScriptIsAnErrorAndTouchesNothing)
{
    makeKey("A");
    EXPECT_EQ(add("HKCR { B }\nHKCR { C"), DISP_E_EXCEPTION);
    EXPECT_EQ(errorDescription(), "line 2: '}' expected");
    EXPECT_EQ(remove("HKCR { A }\nHKCR { %B% }"), DISP_E_EXCEPTION);
    EXPECT_EQ(errorDescription(), "line 2: no replacement for %B%");
    EXPECT_THAT(classes(), ElementsAre("A"));
}

TEST_F(RegistrarTest, TheFirstFailureEndsTheWorkAndNothingIsUndone)
{
    // No key can be created under HKEY_PERFORMANCE_DATA.
    EXPECT_EQ(HRESULT_FACILITY(add("HKCR { A } HKPD { B } HKCR { C }")), FACILITY_WIN32);
    using Write = ImportHook<decltype(&RegSetValueExA)>;
    const Write write("RegSetValueExA",
                      [](HKEY, LPCSTR, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(add("HKCR { D { val V = d 1 } E }"), E_ACCESSDENIED);
    EXPECT_EQ(add("HKCR { F = d 1 { G } }"), E_ACCESSDENIED);
    EXPECT_THAT(classes(), ElementsAre("A", "D", "F"));
}

TEST_F(RegistrarTest, WhatCannotBeRemovedIsAnError)
{
    makeKey("A\\inner");
    using Enumeration = ImportHook<decltype(&RegEnumKeyExA)>;
    using Opening = ImportHook<decltype(&RegOpenKeyExA)>;
    using Deletion = ImportHook<decltype(&RegDeleteKeyA)>; // of keys and of values, one at a time
    {
        const Enumeration hook("RegEnumKeyExA", [](HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPSTR, LPDWORD, PFILETIME) -> LSTATUS {
            return ERROR_ACCESS_DENIED;
        });
        EXPECT_EQ(add("HKCR { Delete A }"), E_ACCESSDENIED);
    }
    {
        const Opening hook("RegOpenKeyExA", [](HKEY, LPCSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        EXPECT_EQ(remove("HKCR { A { inner } }"), E_ACCESSDENIED);
    }
    constexpr const char* CASES[][2] = {{"RegDeleteKeyA", "HKCR { ForceRemove A }"},
                                        {"RegDeleteKeyA", "HKCR { A { inner } }"},
                                        {"RegDeleteValueA", "HKCR { A { val inner = d 1 } }"}};
    for (const auto& [function, script] : CASES) {
        const Deletion hook(function, [](HKEY key, LPCSTR name) -> LSTATUS {
            return std::string(name) == "inner" ? ERROR_ACCESS_DENIED : Deletion::s_original(key, name);
        });
        EXPECT_EQ(remove(script), E_ACCESSDENIED) << script;
    }
    EXPECT_THAT(classes(), ElementsAre("A", "A\\inner"));
}

TEST_F(RegistrarTest, AResourceThatCannotBeReadIsAnError)
{
    EXPECT_EQ(m_registrar.UpdateFromResource(999, TRUE), HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
    const ImportHook<decltype(&LoadResource)> hook("LoadResource", [](HMODULE, HRSRC) -> HGLOBAL {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return nullptr;
    });
    EXPECT_EQ(m_registrar.UpdateFromResource(101, TRUE), HRESULT_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND));
}

TEST_F(RegistrarTest, CategoriesAreKeysOfTheClass)
{
    const CLSID clsid = {0x11111111, 0x2222, 0x3333, {1, 2, 3, 4, 5, 6, 7, 0xAB}};
    const GUID first = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
    const GUID second = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};
    using Type = ATL_CATMAP_ENTRY::Type;
    const ATL_CATMAP_ENTRY map[] = {
        {Type::Implemented, &first}, {Type::Implemented, &second}, {Type::Required, &first}, {Type::Required, nullptr}};
    const std::string key = "CLSID\\{11111111-2222-3333-0102-0304050607AB}";
    const std::string implemented = key + "\\Implemented Categories";
    const std::string required = key + "\\Required Categories";
    EXPECT_EQ(AtlUpdateCategories(clsid, map, CRegistrationScope::Machine, TRUE), S_OK);
    EXPECT_THAT(classes(), ElementsAre("CLSID", key, implemented, implemented + "\\{AAAAAAAA-0000-0000-0000-000000000001}",
                                       implemented + "\\{AAAAAAAA-0000-0000-0000-000000000002}", required,
                                       required + "\\{AAAAAAAA-0000-0000-0000-000000000001}"));
    EXPECT_EQ(AtlUpdateCategories(clsid, map + 1, CRegistrationScope::Machine, FALSE), S_OK);
    EXPECT_THAT(classes(), ElementsAre("CLSID", key, implemented, implemented + "\\{AAAAAAAA-0000-0000-0000-000000000001}"))
        << "another one's category";
    EXPECT_EQ(AtlUpdateCategories(clsid, map, CRegistrationScope::Machine, FALSE), S_OK);
    EXPECT_THAT(classes(), ElementsAre("CLSID", key));

    EXPECT_EQ(AtlUpdateCategories(clsid, map + 2, CRegistrationScope::User, TRUE), S_OK);
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER),
                testing::Contains("Software\\Classes\\" + required + "\\{AAAAAAAA-0000-0000-0000-000000000001}"));
    EXPECT_EQ(AtlUpdateCategories(clsid, nullptr, CRegistrationScope::Machine, FALSE), S_OK);
}

namespace {

const HANDLE TRANSACTION = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x1234));

// The calls, in order. The replacements use no transaction, because not every system supports them.
std::vector<std::string> s_calls;

void noteCall(const char* what, LPCSTR name, HANDLE transaction)
{
    s_calls.push_back(std::format("{} {}{}", what, name, transaction == TRANSACTION ? "" : " elsewhere"));
}

LONG WINAPI createKey(HKEY parent, LPCSTR name, DWORD, LPSTR, DWORD options, REGSAM access, const LPSECURITY_ATTRIBUTES,
                      PHKEY key, LPDWORD, HANDLE transaction, PVOID)
{
    noteCall("create", name, transaction);
    return RegCreateKeyExA(parent, name, 0, nullptr, options, access, nullptr, key, nullptr);
}
LONG WINAPI openKey(HKEY parent, LPCSTR name, DWORD, REGSAM access, PHKEY key, HANDLE transaction, PVOID)
{
    noteCall("open", name, transaction);
    return RegOpenKeyExA(parent, name, 0, access, key);
}
LONG WINAPI deleteKey(HKEY parent, LPCSTR name, REGSAM, DWORD, HANDLE transaction, PVOID)
{
    noteCall("delete", name, transaction);
    return RegDeleteKeyA(parent, name);
}
LONG WINAPI deleteKeyAtOnce(HKEY parent, LPCSTR name, REGSAM, DWORD)
{
    noteCall("delete at once", name, TRANSACTION);
    return RegDeleteKeyA(parent, name);
}

using LookUp = ImportHook<decltype(&GetProcAddress)>;

FARPROC standIn(HMODULE module, LPCSTR name)
{
    EXPECT_EQ(module, GetModuleHandleA("Advapi32.dll"));
    static const std::map<std::string, void*> FUNCTIONS = {{"RegCreateKeyTransactedA", reinterpret_cast<void*>(&createKey)},
                                                           {"RegOpenKeyTransactedA", reinterpret_cast<void*>(&openKey)},
                                                           {"RegDeleteKeyTransactedA", reinterpret_cast<void*>(&deleteKey)},
                                                           {"RegDeleteKeyExA", reinterpret_cast<void*>(&deleteKeyAtOnce)}};
    return reinterpret_cast<FARPROC>(FUNCTIONS.at(name));
}

CRegTransaction recordedTransaction()
{
    const LookUp hook("GetProcAddress", &standIn);
    return CRegTransaction(TRANSACTION);
}

} // namespace

TEST_F(RegistrarTest, ATransactionCarriesEveryKey)
{
    const CRegTransaction transaction = recordedTransaction();
    CRegObject registrar(CRegistrationScope::Machine, &transaction);
    makeKey("F\\old");
    const char* const script = "HKCR { A = s 'x' { B } ForceRemove F { G } }";
    EXPECT_EQ(registrar.UpdateFromString(script, TRUE), S_OK);
    EXPECT_THAT(std::exchange(s_calls, {}),
                ElementsAre("create A", "create B", "open F", "open old", "delete old", "delete F", "create F", "create G"));
    EXPECT_THAT(classes(), ElementsAre("A", "A [] = s 'x'", "A\\B", "F", "F\\G"));
    EXPECT_EQ(registrar.UpdateFromString(script, FALSE), S_OK);
    EXPECT_THAT(s_calls, ElementsAre("open A", "open B", "delete B", "delete A", "open F", "open G", "delete G", "delete F"));
    EXPECT_THAT(classes(), IsEmpty());
}

TEST_F(RegistrarTest, ATransactionMakesDoWithTheFunctionsOfItsSystem)
{
    CRegTransaction transaction = recordedTransaction();
    CRegObject registrar(CRegistrationScope::Machine, &transaction);
    constexpr HRESULT MISSING = HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    transaction.deleteKey = nullptr;
    EXPECT_EQ(registrar.UpdateFromString("HKCR { A Delete A }", TRUE), S_OK);
    EXPECT_THAT(s_calls, ElementsAre("create A", "open A", "delete at once A"));
    transaction.deleteKeyAtOnce = nullptr;
    EXPECT_EQ(registrar.UpdateFromString("HKCR { A Delete A }", TRUE), MISSING);
    transaction.createKey = nullptr;
    EXPECT_EQ(registrar.UpdateFromString("HKCR { B }", TRUE), MISSING);
    transaction.openKey = nullptr;
    EXPECT_EQ(registrar.UpdateFromString("HKCR { A }", FALSE), MISSING);
    EXPECT_THAT(classes(), ElementsAre("A"));
}
