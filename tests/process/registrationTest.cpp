// What the registration switches write and remove. The single keys are left to the tests of the scripts.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

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
        expectNothingFor(HKEY_LOCAL_MACHINE);
    }
    void TearDown() override
    {
        EXPECT_EQ(runServer("/RegServer"), 0u);
        ServerTest::TearDown();
    }
    DWORD run(const char* switches) { return runServer(home, switches); }

    void expectRegistration(HKEY root)
    {
        EXPECT_EQ(keyText(root, APP_KEY), "KESTAserver");
        EXPECT_EQ(keyText(root, classKey("AppID\\KESTA.EXE"), "AppID"), APP_ID);
        EXPECT_EQ(keyText(root, CLASS_KEY), "KESTA Java Manager");
        EXPECT_EQ(keyText(root, CLASS_KEY + "\\LocalServer32"), "\"" + executable + "\"");
        EXPECT_EQ(keyText(root, CLASS_KEY + "\\TypeLib"), LIBRARY_ID);
        EXPECT_EQ(keyText(root, classKey(PROGRAM_ID) + "\\CLSID"), CLASS_ID);
        EXPECT_EQ(keyText(root, classKey("KESTAserver.JavaManager\\CurVer")), PROGRAM_ID);
    }
    // The shared parent keys may be there.
    static void expectNothingFor(HKEY root)
    {
        for (const std::string& key : {APP_KEY, classKey("AppID\\KESTA.EXE"), CLASS_KEY, classKey(PROGRAM_ID),
                                       classKey("KESTAserver.JavaManager"), LIBRARY_KEY}) {
            EXPECT_FALSE(keyExists(root, key)) << key;
        }
    }

    const std::string home = folder.file("it's a server's home");
    const std::string executable = home + "\\KESTAx64.exe";
};

TEST_F(RegistrationTest, ForTheMachineIsWrittenAndRemoved)
{
    EXPECT_EQ(run("/nothing -x /regserver\tmore"), 0u);
    expectRegistration(HKEY_LOCAL_MACHINE);
    expectNothingFor(HKEY_CURRENT_USER);
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY), "KESTA Server 1.0");
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY + "\\0\\win64"), executable);
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, LIBRARY_KEY + "\\HELPDIR"), home);

    EXPECT_EQ(run("-UNREGSERVER /RegServer"), 0u);
    expectNothingFor(HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, classKey("AppID")));
    EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, classKey("CLSID")));
}

TEST_F(RegistrationTest, ForTheUserIsWrittenAndRemovedUnderTheUserOnly)
{
    EXPECT_EQ(run("-RegServerPerUser"), 0u);
    expectRegistration(HKEY_CURRENT_USER);
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, CLASS_KEY));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, APP_KEY));
    EXPECT_EQ(run("/unregserverperuser"), 0u);
    expectNothingFor(HKEY_CURRENT_USER);
    expectNothingFor(HKEY_LOCAL_MACHINE);
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

    const std::string logFile = "\\KESTA-KESTAx64.exe-" + std::to_string(manager.server->id()) + ".log";
    EXPECT_TRUE(std::filesystem::exists(logs + logFile));
    EXPECT_THAT(messages(manager.server->id()),
                testing::IsSupersetOf({"CJavaManagerJNIClient  Class Path: -Djava.class.path=" + jar,
                                       "-> CJavaManagerJNIClient  loadJVMlibrary " + runtime + "\\bin\\server\\jvm.dll"}));
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
    // What was done before stays, what comes after is not begun.
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, APP_KEY), "KESTAserver");
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, CLASS_KEY));
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, LIBRARY_KEY));
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, classKey(PROGRAM_ID).c_str()), ERROR_SUCCESS);
}

} // namespace
} // namespace fixtures
