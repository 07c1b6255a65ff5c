#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const auto& s_realDeleteKey = ImportHook<decltype(&RegDeleteKeyA)>::s_original;

class RegistrarTest : public RegistryTest
{
protected:
    RegistrarTest() { SetErrorInfo(0, nullptr); }

    CRegObject m_registrar;
};

std::wstring errorDescription()
{
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) {
        return L"(none)";
    }
    CComBSTR description;
    info->GetDescription(&description);
    return std::wstring(description, description.Length());
}

void makeKey(HKEY root, const char* path)
{
    CRegKey key;
    EXPECT_EQ(key.Create(root, path), ERROR_SUCCESS);
}

} // namespace

TEST_F(RegistrarTest, WritesKeysAndValues)
{
    EXPECT_EQ(m_registrar.StringRegister(R"(
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
)"),
              S_OK);
    EXPECT_THAT(classes(),
                ElementsAre("Plain", "Text", "Text [Bytes] = b 00ff", "Text [Name] = s 'it's'", "Text [Nothing] = s ''",
                            "Text [Number] = d 16", "Text [] = s 'default text'", "Text\\Inner", "Text\\Inner [] = d 5",
                            "Text\\Inner\\Deepest", "Text\\Inner\\Deepest [] = b 01"));
}

TEST_F(RegistrarTest, WritesUnderEveryRoot)
{
    EXPECT_EQ(m_registrar.StringRegister("HKCR { A } HKCU { B } HKLM { C } HKU { D } HKCC { E }"), S_OK);
    EXPECT_THAT(contentOf(HKEY_CLASSES_ROOT), ElementsAre("A"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), ElementsAre("B"));
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), ElementsAre("C"));
    EXPECT_THAT(contentOf(HKEY_USERS), ElementsAre("D"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_CONFIG), ElementsAre("E"));
    EXPECT_EQ(m_registrar.StringUnregister("HKCR { A } HKCU { B } HKLM { C } HKU { D } HKCC { E }"), S_OK);
    EXPECT_THAT(contentOf(HKEY_CLASSES_ROOT), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_USERS), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_CURRENT_CONFIG), IsEmpty());
}

TEST_F(RegistrarTest, PerUserTheClassesLieUnderTheUser)
{
    const char* const script = "HKCR { A = s 'x' { B } val V = d 1 } HKLM { C }";
    CRegObject registrar(CRegistrationScope::User);
    EXPECT_EQ(registrar.StringRegister(script), S_OK);
    EXPECT_THAT(contentOf(HKEY_CLASSES_ROOT), IsEmpty());
    EXPECT_THAT(contentOf(HKEY_LOCAL_MACHINE), ElementsAre("C"));
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER),
                ElementsAre("Software", "Software\\Classes", "Software\\Classes [V] = d 1", "Software\\Classes\\A",
                            "Software\\Classes\\A [] = s 'x'", "Software\\Classes\\A\\B"));
    EXPECT_EQ(registrar.StringUnregister(script), S_OK);
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER), ElementsAre("Software", "Software\\Classes"));
}

TEST_F(RegistrarTest, ForceRemoveWritesTheKeyAnew)
{
    makeKey(HKEY_CLASSES_ROOT, "A\\old\\older");
    makeKey(HKEY_CLASSES_ROOT, "B\\old");
    EXPECT_EQ(m_registrar.StringRegister("HKCR { ForceRemove A { new } B { new } }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("A", "A\\new", "B", "B\\new", "B\\old"));
}

TEST_F(RegistrarTest, DeleteRemovesAKeyOnRegistrationOnly)
{
    makeKey(HKEY_CLASSES_ROOT, "A\\inner");
    makeKey(HKEY_CLASSES_ROOT, "B");
    EXPECT_EQ(m_registrar.StringUnregister("HKCR { Delete A }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("A", "A\\inner", "B"));
    EXPECT_EQ(m_registrar.StringRegister("HKCR { Delete A Delete Missing }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("B"));
}

TEST_F(RegistrarTest, RegisteringTwiceLeavesOneSet)
{
    const char* const script = "HKCR { A = s 'x' { val V = s 'y' } NoRemove N { ForceRemove F { G } } }";
    EXPECT_EQ(m_registrar.StringRegister(script), S_OK);
    const auto once = classes();
    EXPECT_EQ(m_registrar.StringRegister(script), S_OK);
    EXPECT_EQ(once, classes());
    EXPECT_THAT(once, ElementsAre("A", "A [V] = s 'y'", "A [] = s 'x'", "N", "N\\F", "N\\F\\G"));
}

TEST_F(RegistrarTest, RemovalHonoursNoRemoveAndForceRemove)
{
    const char* const script = R"(
HKCR
{
    Plain = s 'x' { Inner { val V = d 1 } }
    NoRemove Kept = s 'default' { val Gone = s 'x' Below }
    ForceRemove Forced
    NoRemove KeptOutside { ForceRemove Inside { A } NoRemove KeptInside { B } }
}
)";
    EXPECT_EQ(m_registrar.StringRegister(script), S_OK);
    makeKey(HKEY_CLASSES_ROOT, "Forced\\foreign\\deep");
    EXPECT_EQ(m_registrar.StringUnregister(script), S_OK);
    EXPECT_THAT(classes(), ElementsAre("Kept", "Kept [] = s 'default'", "KeptOutside", "KeptOutside\\KeptInside"));
}

TEST_F(RegistrarTest, AKeyWithForeignSubkeysStays)
{
    const char* const script = "HKCR { A = s 'x' { val V = d 1 B } }";
    EXPECT_EQ(m_registrar.StringRegister(script), S_OK);
    makeKey(HKEY_CLASSES_ROOT, "A\\foreign");
    EXPECT_EQ(m_registrar.StringUnregister(script), S_OK);
    EXPECT_THAT(classes(), ElementsAre("A", "A [] = s 'x'", "A\\foreign"));
}

TEST_F(RegistrarTest, RemovingWhatIsNotThereSucceeds)
{
    EXPECT_EQ(m_registrar.StringUnregister("HKCR { A { B val V = d 1 } NoRemove N { val W = d 1 } ForceRemove F val X = d 1 }"),
              S_OK);
    EXPECT_THAT(classes(), IsEmpty());
    makeKey(HKEY_CLASSES_ROOT, "N");
    EXPECT_EQ(m_registrar.StringUnregister("HKCR { NoRemove N { val W = d 1 } val X = d 1 }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("N"));
}

TEST_F(RegistrarTest, ReplacementsAreInNamesAndTexts)
{
    m_registrar.AddReplacement("NAME", "the name");
    m_registrar.AddReplacement("MODULE", "C:\\first");
    m_registrar.AddReplacement("module", "C:\\it''s");
    EXPECT_EQ(m_registrar.StringRegister("HKCR { '%name%' = s '%MODULE% 100%%' }"), S_OK);
    EXPECT_THAT(classes(), ElementsAre("the name", "the name [] = s 'C:\\it's 100%'"));
}

TEST_F(RegistrarTest, ABrokenScriptIsAnErrorAndTouchesNothing)
{
    EXPECT_EQ(m_registrar.StringRegister("HKCR\n{\n    A = s 'x'\n    B = \n}\n"), DISP_E_EXCEPTION);
    EXPECT_EQ(errorDescription(), L"line 5: a value type expected (s, d or b)");
    EXPECT_EQ(m_registrar.StringRegister("HKCR { A }\nHKCR { %B% }"), DISP_E_EXCEPTION);
    EXPECT_EQ(errorDescription(), L"line 2: no replacement for %B%");
    EXPECT_THAT(classes(), IsEmpty());
    makeKey(HKEY_CLASSES_ROOT, "A");
    EXPECT_EQ(m_registrar.StringUnregister("HKCR { A B"), DISP_E_EXCEPTION);
    EXPECT_EQ(errorDescription(), L"line 1: '}' expected");
    EXPECT_THAT(classes(), ElementsAre("A"));
}

TEST_F(RegistrarTest, TheFirstFailureEndsTheWorkAndNothingIsUndone)
{
    // Nothing can be created under the root of performance data.
    const HRESULT hr = m_registrar.StringRegister("HKCR { A } HKPD { B } HKCR { C }");
    EXPECT_TRUE(FAILED(hr));
    EXPECT_EQ(HRESULT_FACILITY(hr), FACILITY_WIN32);
    EXPECT_THAT(classes(), ElementsAre("A"));
}

TEST_F(RegistrarTest, AMissingResourceIsAnError)
{
    EXPECT_EQ(AtlHresultFromWin32(ERROR_RESOURCE_NAME_NOT_FOUND), m_registrar.ResourceRegister(GetModuleHandleA(nullptr), 999));
    EXPECT_EQ(AtlHresultFromWin32(ERROR_RESOURCE_NAME_NOT_FOUND), m_registrar.ResourceUnregister(GetModuleHandleA(nullptr), 999));
}

TEST_F(RegistrarTest, AResourceThatCannotBeLoadedIsAnError)
{
    const ImportHook<decltype(&LoadResource)> hook("LoadResource", [](HMODULE, HRSRC) -> HGLOBAL {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return nullptr;
    });
    EXPECT_EQ(AtlHresultFromWin32(ERROR_RESOURCE_DATA_NOT_FOUND), m_registrar.ResourceRegister(GetModuleHandleA(nullptr), 101));
    EXPECT_THAT(classes(), IsEmpty());
}

TEST_F(RegistrarTest, ATreeThatCannotBeRemovedWholeIsAnError)
{
    makeKey(HKEY_CLASSES_ROOT, "A\\inner");
    {
        const ImportHook<decltype(&RegEnumKeyExA)> hook(
            "RegEnumKeyExA",
            [](HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPSTR, LPDWORD, PFILETIME) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        EXPECT_EQ(m_registrar.StringRegister("HKCR { Delete A }"), E_ACCESSDENIED);
    }
    {
        const ImportHook<decltype(&RegDeleteKeyA)> hook("RegDeleteKeyA", [](HKEY key, LPCSTR name) -> LSTATUS {
            return std::string(name) == "inner" ? ERROR_ACCESS_DENIED : s_realDeleteKey(key, name);
        });
        EXPECT_EQ(m_registrar.StringUnregister("HKCR { ForceRemove A }"), E_ACCESSDENIED);
    }
    EXPECT_THAT(classes(), ElementsAre("A", "A\\inner"));
}

namespace {

const HANDLE TRANSACTION = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x1234));

// What was called, in order. The stand-ins work outside of any transaction: not every system has them.
std::vector<std::string> s_calls;

LONG WINAPI createKey(HKEY parent, LPCSTR name, DWORD, LPSTR, DWORD options, REGSAM access, const LPSECURITY_ATTRIBUTES,
                      PHKEY key, LPDWORD, HANDLE transaction, PVOID)
{
    s_calls.push_back(std::format("create {}{}", name, transaction == TRANSACTION ? "" : " elsewhere"));
    return RegCreateKeyExA(parent, name, 0, nullptr, options, access, nullptr, key, nullptr);
}

LONG WINAPI openKey(HKEY parent, LPCSTR name, DWORD, REGSAM access, PHKEY key, HANDLE transaction, PVOID)
{
    s_calls.push_back(std::format("open {}{}", name, transaction == TRANSACTION ? "" : " elsewhere"));
    return RegOpenKeyExA(parent, name, 0, access, key);
}

LONG WINAPI deleteKey(HKEY parent, LPCSTR name, REGSAM, DWORD, HANDLE transaction, PVOID)
{
    s_calls.push_back(std::format("delete {}{}", name, transaction == TRANSACTION ? "" : " elsewhere"));
    return RegDeleteKeyA(parent, name);
}

LONG WINAPI deleteKeyAtOnce(HKEY parent, LPCSTR name, REGSAM, DWORD)
{
    s_calls.push_back(std::format("delete {} at once", name));
    return RegDeleteKeyA(parent, name);
}

CRegTransaction recordedTransaction()
{
    s_calls.clear();
    CRegTransaction transaction(TRANSACTION);
    transaction.createKey = &createKey;
    transaction.openKey = &openKey;
    transaction.deleteKey = &deleteKey;
    transaction.deleteKeyAtOnce = &deleteKeyAtOnce;
    return transaction;
}

} // namespace

TEST_F(RegistrarTest, ATransactionCarriesEveryKey)
{
    const CRegTransaction transaction = recordedTransaction();
    CRegObject registrar(CRegistrationScope::Machine, &transaction);
    makeKey(HKEY_CLASSES_ROOT, "F\\old");
    const char* const script = "HKCR { A = s 'x' { B } ForceRemove F { G } }";
    EXPECT_EQ(registrar.StringRegister(script), S_OK);
    EXPECT_THAT(s_calls,
                ElementsAre("create A", "create B", "open F", "open old", "delete old", "delete F", "create F", "create G"));
    EXPECT_THAT(classes(), ElementsAre("A", "A [] = s 'x'", "A\\B", "F", "F\\G"));
    s_calls.clear();
    EXPECT_EQ(registrar.StringUnregister(script), S_OK);
    EXPECT_THAT(s_calls, ElementsAre("open A", "open B", "delete B", "delete A", "open F", "open G", "delete G", "delete F"));
    EXPECT_THAT(classes(), IsEmpty());
}

TEST_F(RegistrarTest, WithoutTheFunctionForItAKeyOfATransactionGoesAtOnce)
{
    CRegTransaction transaction = recordedTransaction();
    transaction.deleteKey = nullptr;
    CRegObject registrar(CRegistrationScope::Machine, &transaction);
    EXPECT_EQ(registrar.StringRegister("HKCR { A Delete A }"), S_OK);
    EXPECT_THAT(s_calls, ElementsAre("create A", "open A", "delete A at once"));
    EXPECT_THAT(classes(), IsEmpty());
    transaction.deleteKeyAtOnce = nullptr;
    EXPECT_EQ(AtlHresultFromWin32(ERROR_PROC_NOT_FOUND), registrar.StringRegister("HKCR { A Delete A }"));
}

TEST_F(RegistrarTest, ASystemWithoutTransactionsRefusesThem)
{
    CRegTransaction transaction = recordedTransaction();
    transaction.createKey = nullptr;
    CRegObject registrar(CRegistrationScope::Machine, &transaction);
    EXPECT_EQ(AtlHresultFromWin32(ERROR_PROC_NOT_FOUND), registrar.StringRegister("HKCR { A }"));
    transaction.openKey = nullptr;
    EXPECT_EQ(AtlHresultFromWin32(ERROR_PROC_NOT_FOUND), registrar.StringUnregister("HKCR { A }"));
}

TEST_F(RegistrarTest, TheFunctionsForTransactionsAreThoseOfTheSystem)
{
    const HMODULE library = GetModuleHandleA("Advapi32.dll");
    const auto function = [library](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
    const CRegTransaction transaction(TRANSACTION);
    EXPECT_EQ(transaction.transaction, TRANSACTION);
    EXPECT_EQ(function("RegCreateKeyTransactedA"), reinterpret_cast<void*>(transaction.createKey));
    EXPECT_EQ(function("RegOpenKeyTransactedA"), reinterpret_cast<void*>(transaction.openKey));
    EXPECT_EQ(function("RegDeleteKeyTransactedA"), reinterpret_cast<void*>(transaction.deleteKey));
    EXPECT_EQ(function("RegDeleteKeyExA"), reinterpret_cast<void*>(transaction.deleteKeyAtOnce));
    EXPECT_NE(transaction.deleteKeyAtOnce, nullptr);
}
