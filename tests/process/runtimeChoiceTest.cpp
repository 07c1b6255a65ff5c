// Which runtime the server loads and what it starts it with, in both views of the real registry, through a stand-in for the
// runtime's library that writes down what it is given.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

namespace fixtures {
namespace {

using Lines = std::vector<std::string>;

constexpr char OLD_RUNTIMES[] = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
constexpr char NEW_RUNTIMES[] = "SOFTWARE\\JavaSoft\\JRE";
constexpr char PREFERENCES[] = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

// In one of the two views: KEY_WOW64_64KEY, the server's own, or KEY_WOW64_32KEY.
void setText(const std::string& path, const char* name, const std::string& text, REGSAM view)
{
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), static_cast<DWORD>(text.size() + 1));
    RegCloseKey(key);
}

class RuntimeChoiceTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        settings.removeRuntimes();
        settings.removePreference("jvm_option_crash");
    }

    // A runtime in a folder of its name, with the stand-in for its library.
    void install(const std::string& name, const std::string& base, REGSAM view = KEY_WOW64_64KEY)
    {
        std::filesystem::create_directories(besideLibrary(name, ""));
        std::filesystem::copy_file(buildFolder() + "\\tests\\standins\\jvm\\jvm.dll", besideLibrary(name, "jvm.dll"));
        setText(base + "\\" + name, "RuntimeLib", besideLibrary(name, "jvm.dll"), view);
    }
    std::string besideLibrary(const std::string& runtime, const std::string& file) const
    {
        return folder.file(runtime + "\\bin\\server\\" + file);
    }
    // What the stand-in has written down: nothing when it was not loaded.
    Lines record(const std::string& runtime) const
    {
        const std::string path = besideLibrary(runtime, "jvm.record");
        std::string text = std::filesystem::exists(path) ? readFile(path) : "";
        std::erase(text, '\r');
        return splitLines(text);
    }
    // Lets a server live and die, and gives what it logged. The stand-in starts no control.
    Lines runToTheEnd()
    {
        SManager manager = create();
        EXPECT_EQ(manager.frameId(), -1);
        EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
        release(manager);
        return messages(manager.server->id());
    }
};

TEST_F(RuntimeChoiceTest, MachineIsGivenWhatTheRegistryNames)
{
    const struct
    {
        const char* name;
        const char* base;
        REGSAM view;
    } runtimes[] = {
        {"1.5.0_22", OLD_RUNTIMES, KEY_WOW64_64KEY},
        {"9.0.1", NEW_RUNTIMES, KEY_WOW64_64KEY},
        {"1.5.0_30", OLD_RUNTIMES, KEY_WOW64_32KEY},
    };
    for (const auto& [name, base, view] : runtimes) {
        install(name, base, view);
        setText(base, "CurrentVersion", name, view);
    }
    setText(PREFERENCES, "javavm", "1.5.0_30,1.5.0_00-1.5.0_99", KEY_WOW64_32KEY);
    setText(PREFERENCES, "javavm", "9.0.1", KEY_WOW64_64KEY);
    setText(PREFERENCES, "jvm_option_b", "-Db", KEY_WOW64_32KEY);
    setText(PREFERENCES, "jvm_option_a", "-Da", KEY_WOW64_32KEY);
    setText(PREFERENCES, "jvm_option_0", "-Dother.view", KEY_WOW64_64KEY);
    settings.setPreference("sun.awt.noerasebackground", 1);
    setText(PREFERENCES + std::string("\\A"), "installpath", "C:\\x", KEY_WOW64_32KEY);
    setText(PREFERENCES + std::string("\\B"), "installpath", "C:\\other view", KEY_WOW64_64KEY);

    runToTheEnd();
    const Lines lines = record("1.5.0_22");
    ASSERT_GT(lines.size(), 2u);
    EXPECT_EQ(lines[0], "loaded in " + folder.file("1.5.0_22\\bin"));
    EXPECT_TRUE(lines[1].starts_with("create in ")) << lines[1];
    EXPECT_NE(lines[1], "create in " + folder.file("1.5.0_22\\bin")) << "the folder was changed for the load only";
    EXPECT_EQ(Lines(lines.begin() + 2, lines.end()),
              (Lines{
                  "version 00010004",
                  "ignoreUnrecognized 1",
                  "option -Djava.class.path=C:\\x\\A.jar;" + buildFolder() + "\\ORVANEControl.jar",
                  "option -Da",
                  "option -Db",
                  "option -Dcom.orvane.qmrt.logpath=",
                  "option -Dcom.orvane.qmrt.loglevel=5",
                  "option -Dcom.orvane.qmrt.oldlogfileage=2419200",
                  "option -Dcom.orvane.qmrt.splitlogfilesize=10",
                  "attach",
                  "find com/orvane/tech/client/qmrt/win/QMRTWinControl",
                  "find com/velmora/tq/kesta/KESTAListener",
                  "detach",
              }));
    EXPECT_EQ(record("9.0.1"), Lines());
    EXPECT_EQ(record("1.5.0_30"), Lines());
}

TEST_F(RuntimeChoiceTest, MachineThatFailsLeavesAServerThatEndsByItself)
{
    install("1.6.0_45", NEW_RUNTIMES);
    setText(NEW_RUNTIMES, "CurrentVersion", "1.6.0_45", KEY_WOW64_64KEY);
    for (const auto& [order, message] : {
             std::pair{"create -4",
                       "CJavaManagerJNIClient  CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): JNI_ENOMEN"},
             {"attach -3", "CJavaManagerJNIClient  m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): JNI_EVERSION"},
             {"detach -1", "CJavaManagerJNIClient  m_JVM->DetachCurrentThread(): JNI_ERR"},
         }) {
        writeFile(besideLibrary("1.6.0_45", "jvm.orders"), order);
        EXPECT_THAT(runToTheEnd(), testing::Contains(message));
    }
}

} // namespace
} // namespace fixtures
