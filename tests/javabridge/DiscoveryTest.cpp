// Which runtime is chosen and which archives form the class path, from registries of the test's own.
#include "tests/javabridge/BridgeFixture.h"

namespace {

const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
const std::string RUNTIMES_NEW = "SOFTWARE\\JavaSoft\\JRE";
const std::string PREFERENCES = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

class DiscoveryTest : public testing::Test
{
protected:
    DiscoveryTest()
    {
        machine.createKey("SOFTWARE\\Wow6432Node"); // from here on the two views are two
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
    std::string found() { return client.findJVM().version; }

    fixtures::RegistryScratch machine{HKEY_LOCAL_MACHINE};
    CBridgeClient client{nullptr};
    ClientLog log;
};

TEST_F(DiscoveryTest, nothingInstalledGivesAnEmptyRecord)
{
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "");
    EXPECT_EQ(info.path, "");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"Looking for installed Java versions..."});
}

TEST(DiscoveryWithoutKeysTest, missingKeysAreNoError)
{
    const fixtures::RegistryScratch machine(HKEY_LOCAL_MACHINE);
    CBridgeClient client("C:\\basis.jar");
    ClientLog log;
    EXPECT_EQ(client.findJVM().version, "");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"Looking for installed Java versions..."});
    EXPECT_EQ(client.findORVControls(), "C:\\basis.jar");
}

TEST_F(DiscoveryTest, currentRuntimeIsUsedWithoutPreference)
{
    install("1.8");
    install("1.8.0_151");
    makeCurrent("1.8");
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "1.8");
    EXPECT_EQ(info.path, "C:\\1.8\\jvm.dll");
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE findJVM "});
    EXPECT_STRINGS(log.takeStatements("FINE"),
                   Strings{"Looking for installed Java versions...", "Found Java 1.8 (* USED)",
                           "Standard JVM Path: C:\\1.8\\jvm.dll", "Found Java 1.8.0_151", "JVM Path: C:\\1.8.0_151\\jvm.dll"});
}

TEST_F(DiscoveryTest, currentRuntimeOfTheNewerKeyReplacesThatOfTheOlder)
{
    install("1.8.0_20");
    makeCurrent("1.8.0_20");
    install("11.0.2", RUNTIMES_NEW);
    makeCurrent("11.0.2", RUNTIMES_NEW);
    EXPECT_EQ(found(), "11.0.2");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"Looking for installed Java versions...", "Found Java 1.8.0_20 (* USED)",
                                                       "Standard JVM Path: C:\\1.8.0_20\\jvm.dll", "Found Java 11.0.2 (* USED)",
                                                       "Standard JVM Path: C:\\11.0.2\\jvm.dll"});
}

TEST_F(DiscoveryTest, currentVersionWithoutItsKeyGivesNothing)
{
    install("1.8.0_20");
    makeCurrent("1.8.0");
    EXPECT_EQ(found(), "") << "the name is compared whole";
    makeCurrent("1.8.0_20 ");
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, currentVersionIsComparedByteByByte)
{
    install("1.8.0_20B");
    makeCurrent("1.8.0_20b");
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, runtimeWithoutLibraryHasAnEmptyPath)
{
    machine.createKey(RUNTIMES + "\\1.8.0_20");
    makeCurrent("1.8.0_20");
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "1.8.0_20");
    EXPECT_EQ(info.path, "");
}

struct Choice
{
    const char* pattern;
    const char* version; // empty: the current one
    Strings log;         // from the pattern on
};

void PrintTo(const Choice& choice, std::ostream* stream)
{
    *stream << choice.pattern;
}

class PatternTest : public DiscoveryTest, public testing::WithParamInterface<Choice>
{
};

TEST_P(PatternTest, picks)
{
    for (const char* version : {"1.8.0_20", "1.8.0_151", "1.7.0_80", "1.8", "9.0.1"}) {
        install(version);
    }
    makeCurrent("9.0.1");
    prefer(GetParam().pattern);
    const std::string expected = *GetParam().version == '\0' ? "9.0.1" : GetParam().version;
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, expected);
    EXPECT_EQ(info.path, "C:\\" + expected + "\\jvm.dll");
    Strings statements = log.takeStatements("FINE");
    ASSERT_GE(statements.size(), 11u);
    statements.erase(statements.begin(), statements.begin() + 11);
    Strings lines = GetParam().log;
    lines.insert(lines.begin(), std::string("orvane preferred JVM pattern: ") + GetParam().pattern);
    if (*GetParam().version != '\0') {
        lines.push_back("Preferred JVM according to registry pattern: " + expected);
    }
    EXPECT_STRINGS(statements, lines);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, PatternTest,
    testing::Values(
        Choice{"1.8.0_151", "1.8.0_151", {"Pattern (single): 1.8.0_151"}},
        Choice{"1.8.0_00-1.8.0_99", "1.8.0_20", {"Pattern (range) : 1.8.0_00-1.8.0_99"}},
        Choice{"1.6.0_45,1.7.0_80", "1.7.0_80", {"Pattern (single): 1.6.0_45", "Pattern (single): 1.7.0_80"}},
        Choice{"1.8", "", {"Pattern (single): 1.8"}}, // a family is no candidate
        Choice{"9.0.1", "", {"Pattern (single): 9.0.1"}},
        Choice{"1.8.0_20-1.8.0_20", "1.8.0_20", {"Pattern (range) : 1.8.0_20-1.8.0_20"}}, // both bounds are included
        Choice{"1.7.0_80-1.8.0_151", "1.8.0_151", {"Pattern (range) : 1.7.0_80-1.8.0_151"}},
        Choice{"1.8.0_99-1.8.0_00", "", {"Pattern (range) : 1.8.0_99-1.8.0_00"}},
        Choice{"-1.7.0_99", "1.7.0_80", {"Pattern (range) : -1.7.0_99"}}, // an empty bound is the least text
        Choice{"1.7.0_80-", "", {"Pattern (range) : 1.7.0_80-"}},
        Choice{"1.7-1.8-1.9", "1.7.0_80", {"Pattern (range) : 1.7-1.8-1.9"}}, // up to "1.8-1.9", which is less than 1.8.0_20
        Choice{"1.8.0_20,1.7.0_80", "1.8.0_20", {"Pattern (single): 1.8.0_20"}},
        Choice{"1.6.0_45,", "", {"Pattern (single): 1.6.0_45", "Pattern (single): "}},
        Choice{",1.7.0_80", "1.7.0_80", {"Pattern (single): ", "Pattern (single): 1.7.0_80"}},
        Choice{",,", "", {"Pattern (single): ", "Pattern (single): ", "Pattern (single): "}},
        Choice{"1.6.0_45, 1.7.0_80", "", {"Pattern (single): 1.6.0_45", "Pattern (single):  1.7.0_80"}})); // blanks count

TEST_F(DiscoveryTest, candidatesAreSortedAsTexts)
{
    install("1.8.0_20");
    install("1.8.0_101");
    prefer("1.8.0_0-1.8.0_3");
    EXPECT_EQ(found(), "1.8.0_20") << "1.8.0_101 comes before 1.8.0_20";
}

TEST_F(DiscoveryTest, candidatesOfBothKeysStandInOneList)
{
    install("1.8.0_20");
    install("10_1", RUNTIMES_NEW);
    prefer("1-2");
    EXPECT_EQ(found(), "10_1");
    install("1.8.0_20", RUNTIMES_NEW);
    prefer("1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_20");
}

TEST_F(DiscoveryTest, candidatesAreSortedAcrossBothKeys)
{
    install("1.8.0_20");
    install("1.7.0_80", RUNTIMES_NEW);
    prefer("1.7-1.9");
    EXPECT_EQ(found(), "1.8.0_20");
}

TEST_F(DiscoveryTest, preferenceIsReadInThe32BitViewAndRuntimesInThe64BitView)
{
    install("1.8.0_20");
    install("1.8.0_30");
    makeCurrent("1.8.0_30");
    machine.setString(PREFERENCES, "javavm", "1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_30");
    prefer("1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_20");
    machine.setString(RUNTIMES + "\\1.8.0_40", "RuntimeLib", "C:\\32\\jvm.dll", KEY_WOW64_32KEY);
    prefer("1.8.0_40");
    EXPECT_EQ(found(), "1.8.0_30");
}

TEST_F(DiscoveryTest, patternLongerThanTheRegistryLimitIsNoPattern)
{
    install("1.8.0_20");
    prefer("1.8.0_20," + std::string(245, 'x'));
    EXPECT_EQ(found(), "1.8.0_20");
    prefer("1.8.0_20," + std::string(246, 'x'));
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, classPathListsTheControlsAndEndsWithTheBasisControl)
{
    machine.setString(PREFERENCES + "\\A", "installpath", "C:\\x", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES + "\\B", "installpath", "D:\\y", KEY_WOW64_32KEY);
    CBridgeClient withBasis("P");
    EXPECT_EQ(withBasis.findORVControls(), "C:\\x\\A.jar;D:\\y\\B.jar;P");
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE CJavaManagerJNIClient P", "FINE findORVControls "});
    EXPECT_STRINGS(log.takeStatements("FINE"),
                   Strings{"ORVANE Control 0: A", "Control's Path: C:\\x", "ORVANE Control 1: B", "Control's Path: D:\\y"});
}

TEST_F(DiscoveryTest, controlWithoutInstallPathStaysInTheClassPath)
{
    machine.createKey(PREFERENCES + "\\/Qmrt /Grid", KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "\\/Qmrt /Grid.jar;") << "the name is used as it is stored";
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"ORVANE Control 0: /Qmrt /Grid", "Control's Path: "});
}

TEST_F(DiscoveryTest, controlsOfThe64BitViewAreNotSeen)
{
    machine.setString(PREFERENCES + "\\A", "installpath", "C:\\x");
    EXPECT_EQ(client.findORVControls(), "");
}

TEST_F(DiscoveryTest, withoutControlsTheClassPathIsTheBasisControl)
{
    EXPECT_EQ(client.findORVControls(), "");
    EXPECT_EQ(CBridgeClient("").findORVControls(), "");
    EXPECT_EQ(CBridgeClient("C:\\a;b.jar").findORVControls(), "C:\\a;b.jar");
}

} // namespace
