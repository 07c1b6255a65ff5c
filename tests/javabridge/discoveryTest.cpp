// Which runtime is chosen and which archives form the class path, with a private registry.
#include "tests/javabridge/StandIn.h"

namespace {

// Registry keys are opened for reading only: runtimes in the process's own view, preferences in the 32-bit one.
const std::string READ = "20019";
const std::string READ_32 = "20219";

class DiscoveryTest : public testing::Test
{
protected:
    DiscoveryTest()
    {
        machine.createKey(RUNTIMES);
        machine.createKey(RUNTIMES_NEW);
        machine.createKey(PREFERENCES, KEY_WOW64_32KEY);
    }
    void install(const std::string& version, const std::string& base = RUNTIMES)
    {
        machine.setString(base + "\\" + version, "RuntimeLib", "C:\\" + version + "\\jvm.dll");
    }
    void makeCurrent(const std::string& version, const std::string& base = RUNTIMES)
    {
        machine.setString(base, "CurrentVersion", version);
    }
    void prefer(const std::string& pattern) { machine.setString(PREFERENCES, "javavm", pattern, KEY_WOW64_32KEY); }
    void addControl(const std::string& name, const std::string& path)
    {
        machine.setString(PREFERENCES + "\\" + name, "installpath", path, KEY_WOW64_32KEY);
    }
    // "VERSION: PATH" of the chosen runtime.
    std::string found()
    {
        const JVMInfo info = client.findJVM();
        return info.version + ": " + info.path;
    }
    // The same for a runtime that the test has installed.
    static std::string installed(const std::string& version) { return version + ": C:\\" + version + "\\jvm.dll"; }

    fixtures::RegistryScratch machine{HKEY_LOCAL_MACHINE};
    CBridgeClient client{"P"};
    ClientLog log;
};

const std::string SUBKEYS = R"(
    FINE -> registry: CRegistrySubKeys  CRegistrySubKeys
    FINE -> registry: CRegistrySubKeys  getKeyNames
    FINE -> registry: CRegistrySubKeys  getSubKeyCount
    FINE -> registry: CRegistrySubKeys  getSubKey 0
)";

TEST_F(DiscoveryTest, RuntimesAreReadStepByStep)
{
    install("1.8.0_20");
    makeCurrent("1.8.0_20");
    install("9", RUNTIMES_NEW);
    prefer("1.8.0_20");
    const auto runtime = [](const std::string& key, const std::string& version, const std::string& use, const std::string& path) {
        return opened(key + "\\", READ) + "FINE -> registry: CRegistry  getStringValue CurrentVersion,\n" + SUBKEYS +
               "FINE Found Java " + version + use + "\n" + opened(key + "\\" + version, READ) + R"(
            FINE -> registry: CRegistry  getStringValue RuntimeLib,
            FINE )" +
               path + R"(
            FINE -> registry: CRegistry  closeKey
            FINE -> registry: CRegistry  ~CRegistry
            FINE -> registry: CRegistry  closeKey
            FINE -> registry: CRegistrySubKeys  getSubKeyCount
            FINE -> registry: CRegistrySubKeys  ~CRegistrySubKeys
            FINE -> registry: CRegistry  ~CRegistry
            FINE -> registry: CRegistry  closeKey
        )";
    };
    const NotedSystemCalls noted;
    EXPECT_EQ(found(), installed("1.8.0_20"));
    EXPECT_LINES(log.take(), "FINE -> findJVM\nFINE Looking for installed Java versions...\n" +
                                 runtime(RUNTIMES, "1.8.0_20", " (* USED)", "Standard JVM Path: C:\\1.8.0_20\\jvm.dll") +
                                 runtime(RUNTIMES_NEW, "9", "", "JVM Path: C:\\9\\jvm.dll") + opened(PREFERENCES, READ_32) +
                                 R"(
        FINE -> registry: CRegistry  getStringValue javavm,
        FINE orvane preferred JVM pattern: 1.8.0_20
        FINE Pattern (single): 1.8.0_20
        FINE Preferred JVM according to registry pattern: 1.8.0_20
        FINE -> registry: CRegistry  ~CRegistry
        FINE -> registry: CRegistry  closeKey
    )");
}

TEST_F(DiscoveryTest, ControlsAreReadStepByStepAndEndWithTheBasisControl)
{
    addControl("A", "C:\\x");
    addControl("B", "D:\\y");
    const auto control = [](const std::string& name, const std::string& path) {
        return "FINE ORVANE Control " + name + "\n" + opened(PREFERENCES + "\\" + name.back(), READ_32) + R"(
            FINE -> registry: CRegistry  getStringValue installpath,
            FINE -> registry: CRegistry  getStringValue installpath,
            FINE Control's Path: )" +
               path + R"(
            FINE -> registry: CRegistry  ~CRegistry
            FINE -> registry: CRegistry  closeKey
            FINE -> registry: CRegistrySubKeys  getSubKeyCount
        )";
    };
    const NotedSystemCalls noted;
    EXPECT_EQ(client.findORVControls(), "C:\\x\\A.jar;D:\\y\\B.jar;P");
    EXPECT_LINES(log.take(), "FINE -> findORVControls\n" + opened(PREFERENCES, READ_32) + SUBKEYS + control("0: A", "C:\\x") +
                                 "FINE -> registry: CRegistrySubKeys  getSubKey 1\n" + control("1: B", "D:\\y") + R"(
        FINE -> registry: CRegistry  closeKey
        FINE -> registry: CRegistrySubKeys  ~CRegistrySubKeys
        FINE -> registry: CRegistry  ~CRegistry
        FINE -> registry: CRegistry  closeKey
    )");
}

TEST_F(DiscoveryTest, NothingInstalledAndMissingKeysGiveAnEmptyRecord)
{
    EXPECT_EQ(found(), ": ");
    EXPECT_LINES(log.take("FINE"), Strings{"Looking for installed Java versions..."});
    EXPECT_EQ(client.findORVControls(), "P");
    ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE"), ERROR_SUCCESS);
    EXPECT_EQ(found(), ": ");
    EXPECT_EQ(client.findORVControls(), "P");
    EXPECT_LINES(log.takeErrors(), Strings(4, NOT_OPENED));
}

TEST_F(DiscoveryTest, CurrentRuntimeIsUsedWithoutPreference)
{
    install("1.8");
    install("1.8.0_20B");
    EXPECT_EQ(found(), ": ");
    makeCurrent("1.8.0");
    EXPECT_EQ(found(), ": ") << "the name is compared whole";
    makeCurrent("1.8.0_20b");
    EXPECT_EQ(found(), ": ") << "and byte by byte";
    makeCurrent("1.8");
    EXPECT_EQ(found(), installed("1.8"));
    install("11.0.2", RUNTIMES_NEW);
    makeCurrent("1.8", RUNTIMES_NEW);
    EXPECT_EQ(found(), installed("1.8")) << "the newer key has no such runtime and replaces nothing";
    makeCurrent("11.0.2", RUNTIMES_NEW);
    EXPECT_EQ(found(), installed("11.0.2"));
    makeCurrent("11.0.2");
    makeCurrent("1.8", RUNTIMES_NEW);
    EXPECT_EQ(found(), ": ") << "each current version counts under its own key only";
}

TEST_F(DiscoveryTest, RuntimeWithoutLibraryIsFoundWithAnEmptyPath)
{
    machine.createKey(RUNTIMES + "\\1.8.0_20");
    makeCurrent("1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_20: ");
    install("1.8.0_30");
    makeCurrent("1.8.0_30");
    prefer("1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_20: ") << "also as a candidate of the pattern";
}

TEST_F(DiscoveryTest, TextsBeyondTheLimitsOfTheRegistryReaderAreEmpty)
{
    makeCurrent("1.8");
    for (const size_t length : {254U, 255U}) {
        const std::string kept = length == 254 ? std::string(length, 'x') : "";
        machine.setString(RUNTIMES + "\\1.8", "RuntimeLib", std::string(length, 'x'));
        EXPECT_EQ(found(), "1.8: " + kept);
        addControl("A", std::string(length, 'x'));
        EXPECT_EQ(client.findORVControls(), kept + "\\A.jar;P");
    }
    install("1.8.0_20");
    prefer("1.8.0_20," + std::string(245, 'x'));
    EXPECT_EQ(found(), installed("1.8.0_20"));
    prefer("1.8.0_20," + std::string(246, 'x'));
    EXPECT_EQ(found(), "1.8: ");
}

// An empty name opens the key above, and equals a missing current version.
TEST_F(DiscoveryTest, NamesBeyondTheLimitsOfTheRegistryReaderAreEmpty)
{
    install(std::string(254, '1'));
    makeCurrent(std::string(254, '1'));
    EXPECT_EQ(found(), std::string(254, '1') + ": ") << "and so is the path, which is longer still";
    machine.createKey(RUNTIMES_NEW + "\\" + std::string(255, '_'));
    machine.setString(RUNTIMES_NEW, "RuntimeLib", "C:\\of the base key\\jvm.dll");
    EXPECT_EQ(found(), ": C:\\of the base key\\jvm.dll");
    prefer("_-a");
    EXPECT_EQ(found(), ": C:\\of the base key\\jvm.dll") << "it has no underscore any more";
    machine.createKey(PREFERENCES + "\\" + std::string(255, 'A'), KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "installpath", "C:\\above", KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "C:\\above\\.jar;P");
}

TEST_F(DiscoveryTest, PatternPicksTheLastMatchOfItsFirstMatchingItem)
{
    for (const char* version : {"1.8.0_20", "1.8.0_151", "1.7.0_80", "1.8", "9.0.1"}) {
        install(version);
    }
    makeCurrent("9.0.1");
    const struct
    {
        std::string pattern;
        std::string version; // empty: none, and the current one is taken
        Strings items;
    } choices[] = {
        {"1.8.0_151", "1.8.0_151", {"(single): 1.8.0_151"}},
        {"1.8.0_00-1.8.0_99", "1.8.0_20", {"(range) : 1.8.0_00-1.8.0_99"}},
        {"1.6.0_45,1.7.0_80", "1.7.0_80", {"(single): 1.6.0_45", "(single): 1.7.0_80"}},
        {"1.8", "", {"(single): 1.8"}}, // a family is no candidate
        {"9.0.1", "", {"(single): 9.0.1"}},
        {"1.8.0_20-1.8.0_20", "1.8.0_20", {"(range) : 1.8.0_20-1.8.0_20"}}, // both bounds are included
        {"1.7.0_80-1.8.0_151", "1.8.0_151", {"(range) : 1.7.0_80-1.8.0_151"}},
        {"1.8.0_99-1.8.0_00", "", {"(range) : 1.8.0_99-1.8.0_00"}},
        {"-1.7.0_99", "1.7.0_80", {"(range) : -1.7.0_99"}}, // an empty bound is the least text
        {"1.7.0_80-", "", {"(range) : 1.7.0_80-"}},
        {"1.7-1.8-1.9", "1.7.0_80", {"(range) : 1.7-1.8-1.9"}}, // up to "1.8-1.9", which is less than 1.8.0_20
        {"1.8.0_20,1.7.0_80", "1.8.0_20", {"(single): 1.8.0_20"}},
        {"1.6.0_45,", "", {"(single): 1.6.0_45", "(single): "}},
        {",1.7.0_80", "1.7.0_80", {"(single): ", "(single): 1.7.0_80"}},
        {",,", "", {"(single): ", "(single): ", "(single): "}},
        {"1.6.0_45, 1.7.0_80", "", {"(single): 1.6.0_45", "(single):  1.7.0_80"}}, // blanks count
    };
    for (const auto& choice : choices) {
        SCOPED_TRACE(choice.pattern);
        prefer(choice.pattern);
        log.take();
        EXPECT_EQ(found(), installed(choice.version.empty() ? "9.0.1" : choice.version));
        Strings expected = {"orvane preferred JVM pattern: " + choice.pattern};
        for (const std::string& item : choice.items) {
            expected.push_back("Pattern " + item);
        }
        if (!choice.version.empty()) {
            expected.push_back("Preferred JVM according to registry pattern: " + choice.version);
        }
        const Strings lines = log.take("FINE");
        EXPECT_LINES(Strings(std::ranges::find(lines, expected.front()), lines.end()), expected);
    }
}

TEST_F(DiscoveryTest, CandidatesOfBothKeysAreSortedAsTexts)
{
    install("1.8.0_20");
    install("1.8.0_101");
    prefer("1.8.0_0-1.8.0_3");
    EXPECT_EQ(found(), installed("1.8.0_20")) << "1.8.0_101 comes before 1.8.0_20";
    install("1.8.0_B");
    install("1.8.0_a");
    prefer("1.8.0_-1.8.0_z");
    EXPECT_EQ(found(), installed("1.8.0_a")) << "byte by byte, while the registry lists a before B";
    install("1.7.0_80", RUNTIMES_NEW);
    prefer("1.7-1.8.0_3");
    EXPECT_EQ(found(), installed("1.8.0_20"));
    install("10_1", RUNTIMES_NEW);
    prefer("1-2");
    EXPECT_EQ(found(), installed("10_1"));
    for (const char* version : {"_1", "2_", "3_0_4"}) {
        install(version);
        prefer(version);
        EXPECT_EQ(found(), installed(version)) << "an underscore anywhere makes a candidate";
    }
    install("1.8.0_20", RUNTIMES_NEW);
    prefer("1.8.0_20");
    EXPECT_EQ(found(), installed("1.8.0_20")) << "the same runtime under both keys";
}

TEST_F(DiscoveryTest, ControlsStandInTheClassPathAsTheRegistryNamesThem)
{
    machine.createKey(PREFERENCES + "\\/Qmrt /Grid", KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "\\/Qmrt /Grid.jar;P") << "without install path, and undecoded";
    EXPECT_EQ(CBridgeClient("C:\\a;b.jar").findORVControls(), "\\/Qmrt /Grid.jar;C:\\a;b.jar");
    EXPECT_EQ(CBridgeClient("").findORVControls(), "\\/Qmrt /Grid.jar;");
    EXPECT_EQ(CBridgeClient(nullptr).findORVControls(), "\\/Qmrt /Grid.jar;");
    for (char name = 'A'; name <= 'K'; name++) {
        addControl(std::string(1, name), "x");
    }
    log.take();
    client.findORVControls();
    EXPECT_EQ(std::ranges::count(log.take("FINE"), "ORVANE Control 11: K"), 1) << "they are counted in decimal";
}

} // namespace
