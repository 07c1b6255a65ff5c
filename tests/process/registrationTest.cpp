// What the registration switches write, keep and remove.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace fixtures {
namespace {

constexpr char CLASSES[] = "Software\\Classes\\";
constexpr char CLASS_ID[] = "{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}";
constexpr char APP_ID[] = "{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}";
constexpr char LIBRARY_ID[] = "{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}";
constexpr char PROGRAM_ID[] = "KESTAserver.JavaManager.1";

std::string classKey(const std::string& key)
{
    return CLASSES + key;
}

const std::string CLASS_KEY = classKey(std::string("CLSID\\") + CLASS_ID);
const std::string APP_KEY = classKey(std::string("AppID\\") + APP_ID);
const std::string LIBRARY_KEY = classKey(std::string("TypeLib\\") + LIBRARY_ID + "\\1.0");

const std::vector<std::string> SCRIPTED_KEYS = {std::string("AppID\\") + APP_ID, "AppID\\KESTA.EXE", PROGRAM_ID,
                                                "KESTAserver.JavaManager", std::string("CLSID\\") + CLASS_ID};

// Every key and text of a tree, one per line. Nothing for a tree that is not there.
void dump(HKEY root, const std::string& path, std::vector<std::string>& lines)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, classKey(path).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return;
    }
    lines.push_back(path);
    char name[256];
    char text[1024];
    for (DWORD index = 0, size = sizeof name, textSize = sizeof text, type = 0;
         RegEnumValueA(key, index, name, &size, nullptr, &type, reinterpret_cast<BYTE*>(text), &textSize) == ERROR_SUCCESS;
         ++index, size = sizeof name, textSize = sizeof text) {
        lines.push_back(path + " @" + name + " = " +
                        (type == REG_SZ ? std::string(text) : "(type " + std::to_string(type) + ")"));
    }
    for (DWORD index = 0, size = sizeof name;
         RegEnumKeyExA(key, index, name, &size, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index, size = sizeof name) {
        dump(root, path + "\\" + name, lines);
    }
    RegCloseKey(key);
}

std::vector<std::string> scriptedKeys(HKEY root)
{
    std::vector<std::string> lines;
    for (const std::string& key : SCRIPTED_KEYS) {
        dump(root, key, lines);
    }
    std::ranges::sort(lines);
    return lines;
}

// Begins without registration, in a folder whose name has blanks and an apostrophe.
class RegistrationTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        ASSERT_EQ(runServer("/UnregServer"), 0u);
        std::filesystem::create_directory(home);
        std::filesystem::copy_file(buildFolder() + "\\KESTAx64.exe", executable);
        ASSERT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), std::vector<std::string>());
        ASSERT_FALSE(keyExists(HKEY_LOCAL_MACHINE, LIBRARY_KEY));
    }
    void TearDown() override
    {
        EXPECT_EQ(runServer("/RegServer"), 0u);
        ServerTest::TearDown();
    }
    DWORD run(const char* switches) { return runServer(home, switches); }

    // What the scripts write.
    std::vector<std::string> expectedKeys() const
    {
        const std::string appId = std::string("AppID\\") + APP_ID;
        const std::string classId = std::string("CLSID\\") + CLASS_ID;
        std::vector<std::string> lines = {
            appId,
            appId + " @ = KESTAserver",
            "AppID\\KESTA.EXE",
            std::string("AppID\\KESTA.EXE @AppID = ") + APP_ID,
            "KESTAserver.JavaManager.1",
            "KESTAserver.JavaManager.1 @ = KESTA Java Manager",
            "KESTAserver.JavaManager.1\\CLSID",
            std::string("KESTAserver.JavaManager.1\\CLSID @ = ") + CLASS_ID,
            "KESTAserver.JavaManager",
            "KESTAserver.JavaManager @ = KESTA Java Manager",
            "KESTAserver.JavaManager\\CLSID",
            std::string("KESTAserver.JavaManager\\CLSID @ = ") + CLASS_ID,
            "KESTAserver.JavaManager\\CurVer",
            "KESTAserver.JavaManager\\CurVer @ = KESTAserver.JavaManager.1",
            classId,
            classId + " @ = KESTA Java Manager",
            classId + "\\ProgID",
            classId + "\\ProgID @ = KESTAserver.JavaManager.1",
            classId + "\\VersionIndependentProgID",
            classId + "\\VersionIndependentProgID @ = KESTAserver.JavaManager",
            classId + "\\Programmable",
            classId + "\\LocalServer32",
            classId + "\\LocalServer32 @ = \"" + executable + "\"",
            classId + "\\TypeLib",
            classId + "\\TypeLib @ = " + LIBRARY_ID,
        };
        std::ranges::sort(lines);
        return lines;
    }

    const std::string home = folder.file("it's a server's home");
    const std::string executable = home + "\\KESTAx64.exe";
};

TEST_F(RegistrationTest, WritesAndRemovesItsKeysInEverySpellingOfTheSwitches)
{
    constexpr const char* SPELLINGS[][2] = {{"/RegServer", "/UnregServer"},
                                            {"-REGSERVER", "-unregserver"},
                                            {"/nothing -x /regserver\tmore", "-UNREGSERVER /RegServer"}};
    for (const auto& [add, remove] : SPELLINGS) {
        SCOPED_TRACE(add);
        EXPECT_EQ(run(add), 0u);
        EXPECT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), expectedKeys());
        EXPECT_EQ(scriptedKeys(HKEY_CURRENT_USER), std::vector<std::string>());
        EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY), "KESTA Server 1.0");
        EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY + "\\0\\win64"), executable);
        EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY + "\\HELPDIR"), home);

        EXPECT_EQ(run(remove), 0u);
        EXPECT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), std::vector<std::string>());
        EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, LIBRARY_KEY));
        EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, classKey("AppID")));
        EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, classKey("CLSID")));
    }
}

TEST_F(RegistrationTest, RegisteringTwiceLeavesOneSet)
{
    EXPECT_EQ(run("/RegServer"), 0u);
    // Left over from another version of the class.
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, (CLASS_KEY + "\\InprocServer32").c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    RegCloseKey(key);
    EXPECT_NE(scriptedKeys(HKEY_LOCAL_MACHINE), expectedKeys());
    EXPECT_EQ(run("/RegServer"), 0u);
    EXPECT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), expectedKeys());
    EXPECT_EQ(run("/UnregServer"), 0u);
}

TEST_F(RegistrationTest, PerUserSwitchesWriteTheirKeysUnderTheUserOnly)
{
    EXPECT_EQ(run("-RegServerPerUser"), 0u);
    EXPECT_EQ(scriptedKeys(HKEY_CURRENT_USER), expectedKeys());
    EXPECT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), std::vector<std::string>());
    EXPECT_EQ(run("/REGSERVERPERUSER"), 0u);
    EXPECT_EQ(scriptedKeys(HKEY_CURRENT_USER), expectedKeys());
    EXPECT_EQ(run("/unregserverperuser"), 0u);
    EXPECT_EQ(scriptedKeys(HKEY_CURRENT_USER), std::vector<std::string>());
    EXPECT_EQ(scriptedKeys(HKEY_LOCAL_MACHINE), std::vector<std::string>());
    EXPECT_FALSE(keyExists(HKEY_CURRENT_USER, LIBRARY_KEY));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, LIBRARY_KEY));
    EXPECT_TRUE(keyExists(HKEY_CURRENT_USER, classKey("AppID")));
    EXPECT_TRUE(keyExists(HKEY_CURRENT_USER, classKey("CLSID")));
}

// The names of the control's jar, the runtime and the log folder have them too.
TEST_F(RegistrationTest, ServerInAFolderWithBlanksAndApostropheIsStartedThere)
{
    const std::string runtime = folder.file("java's own runtime");
    const std::string library = runtimeLibrary(21);
    using std::filesystem::copy_options;
    std::filesystem::copy(library.substr(0, library.find("\\bin\\server\\jvm.dll")), runtime,
                          copy_options::recursive | copy_options::create_hard_links);
    settings.setRuntime("21.0.8", runtime + "\\bin\\server\\jvm.dll");
    const std::string jar = home + "\\the control's jar.jar";
    std::filesystem::copy_file(buildFolder() + "\\ORVANEControl.jar", jar);
    settings.setPreference("basiscontrol", jar);
    const std::string logs = folder.file("the user's log files");
    settings.setPreference("logpath", logs);

    EXPECT_EQ(run("/RegServer"), 0u);
    SManager manager = create();
    char path[MAX_PATH] = {};
    DWORD size = sizeof path;
    QueryFullProcessImageNameA(manager.server->handle(), 0, path, &size);
    EXPECT_EQ(executable, path);
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "Hello");
    release(manager);
    EXPECT_EQ(run("/UnregServer"), 0u);

    std::string log = readFile(logs + "\\KESTA-KESTAx64.exe-" + std::to_string(manager.server->id()) + ".log");
    std::erase(log, '\r');
    const std::vector<std::string> expected = {
        "CJavaManagerATLObject  Basiscontrol path: " + jar,
        "CJavaManagerATLObject  doesFileExist(basiscontrol): true",
        "CJavaManagerJNIClient  Class Path: -Djava.class.path=" + testJar() + ";" + jar,
        "-> CJavaManagerJNIClient  loadJVMlibrary " + runtime + "\\bin\\server\\jvm.dll",
        "CJavaManagerJNIClient  m_DLLHandle != NULL: success",
        "-> CJavaManagerATLObject  callMethod echo, Hello",
        "End of logging, further static deinitializers can not log anymore",
    };
    EXPECT_THAT(messagesOf(log), testing::IsSupersetOf(expected));
}

TEST_F(RegistrationTest, FailingSwitchEndsWithItsResult)
{
    // Nothing permanent can be written below a volatile key.
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, classKey(PROGRAM_ID).c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
    EXPECT_EQ(static_cast<DWORD>(HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE)), run("/RegServer"));
    // What was done before the failure stays, and nothing is done after it.
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, APP_KEY), "KESTAserver");
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, CLASS_KEY));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, LIBRARY_KEY));
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, classKey(PROGRAM_ID).c_str()), ERROR_SUCCESS);
}

class RegistrationFaultTest : public RegistrationTest
{
};

// Paths are texts of the code page, which has no such letters.
TEST_F(RegistrationFaultTest, ExecutableInAFolderOutsideTheCodePageIsNotRegistered)
{
    ASSERT_EQ(GetACP(), 1252u);
    const std::filesystem::path foreign = std::filesystem::path(folder.path()) / L"\u0422\u0435\u0441\u0442" / "KESTAx64.exe";
    std::filesystem::create_directory(foreign.parent_path());
    std::filesystem::copy_file(executable, foreign);
    for (const wchar_t* const option : {L"/RegServer", L"/RegServerPerUser"}) {
        std::wstring command = L"\"" + foreign.wstring() + L"\" " + option;
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started = {};
        ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started));
        const ATL::CHandle thread(started.hThread);
        const CProcess server(started.dwProcessId, started.hProcess);
        const std::optional<DWORD> result = server.exitCode();
        ASSERT_TRUE(result);
        expectExit(server.id(), *result);
        EXPECT_EQ(static_cast<HRESULT>(*result), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    }
    for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        EXPECT_EQ(scriptedKeys(root), std::vector<std::string>());
        EXPECT_FALSE(keyExists(root, LIBRARY_KEY));
    }
}

} // namespace
} // namespace fixtures
