// Which runtime the server loads, and with which options it starts it, in both views of the real registry and with a recording
// stand-in for the runtime's library.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace fixtures {
namespace {

using testing::Contains;
using Lines = std::vector<std::string>;

constexpr char OLD_RUNTIMES[] = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
constexpr char NEW_RUNTIMES[] = "SOFTWARE\\JavaSoft\\JRE";
constexpr char PREFERENCES[] = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
constexpr size_t LONGEST_VALUE = 254;

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
        settings.removeControl(TEST_CONTROL);
    }

    // A runtime in a folder of its name, with a stand-in for its library.
    void makeRuntime(const std::string& name, const std::string& standIn = "jvm.dll")
    {
        std::filesystem::create_directories(besideLibrary(name, ""));
        std::filesystem::copy_file(buildFolder() + "\\tests\\standins\\jvm\\" + standIn, besideLibrary(name, "jvm.dll"),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    void install(const std::string& name, const std::string& base, REGSAM view = KEY_WOW64_64KEY)
    {
        makeRuntime(name);
        setText(base + "\\" + name, "RuntimeLib", besideLibrary(name, "jvm.dll"), view);
        m_runtimes.push_back(name);
    }
    std::string besideLibrary(const std::string& runtime, const std::string& file) const
    {
        return folder.file(runtime + "\\bin\\server\\" + file);
    }
    // The stand-in's record; empty when it was not loaded.
    Lines record(const std::string& runtime) const
    {
        const std::string path = besideLibrary(runtime, "jvm.record");
        std::string text = std::filesystem::exists(path) ? readFile(path) : "";
        std::erase(text, '\r');
        return splitLines(text);
    }
    // Runs a server to its end and returns its log. The stand-in starts no control.
    Lines runToTheEnd()
    {
        SManager manager = create();
        EXPECT_EQ(manager.frameId(), -1);
        EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
        release(manager);
        return messages(manager.server->id());
    }
    void forgetRecord(const std::string& runtime) const { std::filesystem::remove(besideLibrary(runtime, "jvm.record")); }
    // The runtimes that a server started.
    Lines startedRuntimes()
    {
        runToTheEnd();
        Lines started;
        for (const std::string& runtime : m_runtimes) {
            if (const Lines lines = record(runtime); !lines.empty()) {
                EXPECT_THAT(lines, Contains("attach"));
                started.push_back(runtime);
            }
            forgetRecord(runtime);
        }
        return started;
    }

private:
    Lines m_runtimes;
};

TEST_F(RuntimeChoiceTest, MachineIsGivenWhatTheRegistryNames)
{
    install("1.5.0_22", OLD_RUNTIMES);
    install("1.8.0_151", NEW_RUNTIMES);
    setText(OLD_RUNTIMES, "CurrentVersion", "1.5.0_22", KEY_WOW64_64KEY);
    setText(OLD_RUNTIMES, "CurrentVersion", "1.8.0_151", KEY_WOW64_32KEY);
    const std::string longest(LONGEST_VALUE, 'x');
    for (const auto& [name, text] : {std::pair{"jvm_option_b", std::string("-Db")},
                                     {"jvm_option_a", std::string("-Da")},
                                     {"jvm_option", std::string("-Dtoo.short")},
                                     {"jvm_option_c", longest},
                                     {"jvm_option_d", longest + "x"}}) {
        settings.setPreference(name, text);
    }
    setText(PREFERENCES, "jvm_option_0", "-Dother.view", KEY_WOW64_64KEY);
    settings.setPreference("sun.awt.noerasebackground", 1);
    setText(PREFERENCES + std::string("\\A"), "installpath", "C:\\x", KEY_WOW64_32KEY);
    setText(PREFERENCES + std::string("\\B"), "installpath", longest, KEY_WOW64_32KEY);
    setText(PREFERENCES + std::string("\\C"), "installpath", longest + "x", KEY_WOW64_32KEY);
    setText(PREFERENCES + std::string("\\D"), "installpath", "C:\\of the other view", KEY_WOW64_64KEY);

    const Lines log = runToTheEnd();
    const Lines lines = record("1.5.0_22");
    ASSERT_GT(lines.size(), 2u);
    EXPECT_EQ(lines[0], "loaded in " + folder.file("1.5.0_22\\bin"));
    // The current folder was changed for the load only.
    const std::string createdIn = "create in ";
    ASSERT_TRUE(lines[1].starts_with(createdIn)) << lines[1];
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  Used " + besideLibrary("1.5.0_22", "jvm.dll") +
                              "\\..\\..\\ as current folder while loading JVM, using " + lines[1].substr(createdIn.size()) +
                              " again."));
    EXPECT_EQ(Lines(lines.begin() + 2, lines.end()),
              (Lines{
                  "version 00010004",
                  "ignoreUnrecognized 1",
                  "option -Djava.class.path=C:\\x\\A.jar;" + longest + "\\B.jar;\\C.jar;" + buildFolder() + "\\ORVANEControl.jar",
                  "option -Da",
                  "option -Db",
                  "option " + longest,
                  "option ",
                  "option -Dcom.orvane.qmrt.logpath=",
                  "option -Dcom.orvane.qmrt.loglevel=5",
                  "option -Dcom.orvane.qmrt.oldlogfileage=2419200",
                  "option -Dcom.orvane.qmrt.splitlogfilesize=10",
                  "attach",
                  "find com/orvane/tech/client/qmrt/win/QMRTWinControl",
                  "find com/velmora/tq/kesta/KESTAListener",
                  "detach",
              }));
    EXPECT_EQ(record("1.8.0_151"), Lines{});
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  JNI 1.4 selected"));
}

TEST_F(RuntimeChoiceTest, RuntimeIsTheOneThatThePatternPicks)
{
    install("1.8", OLD_RUNTIMES);
    install("1.8.0_20", OLD_RUNTIMES);
    install("1.7.0_80", OLD_RUNTIMES);
    setText(OLD_RUNTIMES, "CurrentVersion", "1.8", KEY_WOW64_64KEY);
    install("1.8.0_151", NEW_RUNTIMES);
    install("9.0.1", NEW_RUNTIMES);
    setText(NEW_RUNTIMES, "CurrentVersion", "9.0.1", KEY_WOW64_64KEY);
    install("1.8.0_40", OLD_RUNTIMES, KEY_WOW64_32KEY);
    setText(PREFERENCES, "javavm", "1.7.0_80", KEY_WOW64_64KEY);
    EXPECT_EQ(startedRuntimes(), Lines{"9.0.1"}) << "without a pattern in the 32-bit view the current one of the newer key";

    const struct
    {
        const char* pattern;
        const char* runtime;
    } choices[] = {
        {",1.6.0_45-1.6.0_99,1.8.0_00-1.8.0_99,1.7.0_80", "1.8.0_20"}, // as texts: 1.8.0_151 comes before 1.8.0_20
        {"1.8,1.8.0_40,1.8.0_151,", "1.8.0_151"},                      // neither a family nor a runtime of the other view
        {"1.8.0_99-1.8.0_00,1.8,,", "9.0.1"},
    };
    for (const auto& choice : choices) {
        SCOPED_TRACE(choice.pattern);
        setText(PREFERENCES, "javavm", choice.pattern, KEY_WOW64_32KEY);
        EXPECT_EQ(startedRuntimes(), Lines{choice.runtime});
    }
}

TEST_F(RuntimeChoiceTest, LibraryPathIsReadUpToTheRegistrysLimit)
{
    install("9", NEW_RUNTIMES);
    setText(NEW_RUNTIMES, "CurrentVersion", "9", KEY_WOW64_64KEY);
    // A path that names its folder again and again.
    std::string path = besideLibrary("9", "");
    while (path.size() + 7 < LONGEST_VALUE - 1) {
        path += ".\\";
    }
    path += path.size() + 7 < LONGEST_VALUE ? "\\jvm.dll" : "jvm.dll";
    ASSERT_EQ(path.size(), LONGEST_VALUE);
    setText(NEW_RUNTIMES + std::string("\\9"), "RuntimeLib", path, KEY_WOW64_64KEY);
    EXPECT_EQ(startedRuntimes(), Lines{"9"});

    path.insert(path.size() - 7, "\\");
    setText(NEW_RUNTIMES + std::string("\\9"), "RuntimeLib", path, KEY_WOW64_64KEY);
    EXPECT_THAT(runToTheEnd(), Contains("-> CJavaManagerJNIClient  loadJVMlibrary "));
    EXPECT_EQ(record("9"), Lines{});
}

TEST_F(RuntimeChoiceTest, MachineThatFailsLeavesAServerThatEndsByItself)
{
    const std::string freed = "CJavaManagerJNIClient  FreeLibrary(m_DLLHandle): success";
    const Lines finds = {"find com/orvane/tech/client/qmrt/win/QMRTWinControl", "find com/velmora/tq/kesta/KESTAListener"};
    const std::string elsewhere = " in the environment of the creation";
    const struct
    {
        const char* order;
        const char* message;
        Lines record; // behind the options
        bool isFreed;
    } failures[] = {
        {"create -4", "CJavaManagerJNIClient  CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): JNI_ENOMEN", {}, true},
        {"attach -3",
         "CJavaManagerJNIClient  m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): JNI_EVERSION",
         {"attach", finds[0] + elsewhere, finds[1] + elsewhere, "detach"},
         true},
        {"detach -1",
         "CJavaManagerJNIClient  m_JVM->DetachCurrentThread(): JNI_ERR",
         {"attach", finds[0], finds[1], "detach"},
         false},
    };
    install("1.6.0_45", NEW_RUNTIMES);
    setText(NEW_RUNTIMES, "CurrentVersion", "1.6.0_45", KEY_WOW64_64KEY);
    for (const auto& failure : failures) {
        SCOPED_TRACE(failure.order);
        writeFile(besideLibrary("1.6.0_45", "jvm.orders"), failure.order);
        const Lines log = runToTheEnd();
        EXPECT_THAT(log, Contains(failure.message));
        EXPECT_EQ(std::ranges::count(log, freed), failure.isFreed ? 1 : 0);
        EXPECT_THAT(log, Contains("CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton."));
        const Lines lines = record("1.6.0_45");
        ASSERT_GE(lines.size(), 10u);
        EXPECT_EQ(lines[2], "version 00010006");
        EXPECT_EQ(lines[5], "option -Dsun.awt.noerasebackground=true");
        EXPECT_EQ(lines[9], "option -Dcom.orvane.qmrt.splitlogfilesize=10");
        EXPECT_EQ(Lines(lines.begin() + 10, lines.end()), failure.record);
        forgetRecord("1.6.0_45");
    }

    makeRuntime("1.6.0_45", "nojvm.dll");
    const Lines log = runToTheEnd();
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  CreateJavaVMProc != NULL: false"));
    EXPECT_THAT(log, Contains(freed));
    EXPECT_THAT(log, testing::Not(Contains("CJavaManagerJNIClient  About to call JNI_CreateJavaVM")));
    EXPECT_EQ(record("1.6.0_45"), Lines{});
}

} // namespace
} // namespace fixtures
