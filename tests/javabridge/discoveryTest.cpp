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
    void forgetLog() { log.takeStatements(); }

    fixtures::RegistryScratch machine{HKEY_LOCAL_MACHINE};
    CBridgeClient client{nullptr};
    ClientLog log;
};

TEST_F(DiscoveryTest, NothingInstalledGivesAnEmptyRecord)
{
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "");
    EXPECT_EQ(info.path, "");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"Looking for installed Java versions..."});
}

TEST(DiscoveryWithoutKeysTest, MissingKeysAreNoError)
{
    const fixtures::RegistryScratch machine(HKEY_LOCAL_MACHINE);
    CBridgeClient client("C:\\basis.jar");
    ClientLog log;
    EXPECT_EQ(client.findJVM().version, "");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"Looking for installed Java versions..."});
    EXPECT_EQ(client.findORVControls(), "C:\\basis.jar");
    const std::string notOpened = "CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false";
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{notOpened});
    client.findJVM();
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{notOpened, notOpened, notOpened});
}

TEST_F(DiscoveryTest, CurrentRuntimeIsUsedWithoutPreference)
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

TEST_F(DiscoveryTest, CurrentRuntimeOfTheNewerKeyReplacesThatOfTheOlder)
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

const std::string OPENED = "TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true";

TEST_F(DiscoveryTest, RuntimesAreReadStepByStep)
{
    install("1.8.0_20");
    makeCurrent("1.8.0_20");
    install("9", RUNTIMES_NEW);
    prefer("1.8.0_20");
    forgetLog();
    client.findJVM();
    EXPECT_STRINGS(log.takeSteps(), Strings{
                                        "FINE findJVM ",
                                        "FINE Looking for installed Java versions...",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Java Runtime Environment\\",
                                        OPENED,
                                        "FINE CRegistry  getStringValue CurrentVersion, ",
                                        "FINE CRegistrySubKeys  CRegistrySubKeys ",
                                        "FINE CRegistrySubKeys  getKeyNames ",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistrySubKeys  getSubKey 0",
                                        "FINE Found Java 1.8.0_20 (* USED)",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Java Runtime Environment\\1.8.0_20",
                                        OPENED,
                                        "FINE CRegistry  getStringValue RuntimeLib, ",
                                        "FINE Standard JVM Path: C:\\1.8.0_20\\jvm.dll",
                                        "FINE CRegistry  closeKey ",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\JRE\\",
                                        OPENED,
                                        "FINE CRegistry  getStringValue CurrentVersion, ",
                                        "FINE CRegistrySubKeys  CRegistrySubKeys ",
                                        "FINE CRegistrySubKeys  getKeyNames ",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistrySubKeys  getSubKey 0",
                                        "FINE Found Java 9",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\JRE\\9",
                                        OPENED,
                                        "FINE CRegistry  getStringValue RuntimeLib, ",
                                        "FINE JVM Path: C:\\9\\jvm.dll",
                                        "FINE CRegistry  closeKey ",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt",
                                        OPENED,
                                        "FINE CRegistry  getStringValue javavm, ",
                                        "FINE orvane preferred JVM pattern: 1.8.0_20",
                                        "FINE Pattern (single): 1.8.0_20",
                                        "FINE Preferred JVM according to registry pattern: 1.8.0_20",
                                    });
}

TEST_F(DiscoveryTest, ControlsAreReadStepByStep)
{
    machine.setString(PREFERENCES + "\\A", "installpath", "C:\\x", KEY_WOW64_32KEY);
    forgetLog();
    client.findORVControls();
    EXPECT_STRINGS(log.takeSteps(), Strings{
                                        "FINE findORVControls ",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt",
                                        OPENED,
                                        "FINE CRegistrySubKeys  CRegistrySubKeys ",
                                        "FINE CRegistrySubKeys  getKeyNames ",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistrySubKeys  getSubKey 0",
                                        "FINE ORVANE Control 0: A",
                                        "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt\\A",
                                        OPENED,
                                        "FINE CRegistry  getStringValue installpath, ",
                                        "FINE CRegistry  getStringValue installpath, ",
                                        "FINE Control's Path: C:\\x",
                                        "FINE CRegistrySubKeys  getSubKeyCount ",
                                        "FINE CRegistry  closeKey ",
                                    });
}

TEST_F(DiscoveryTest, CurrentVersionCountsUnderItsOwnKeyOnly)
{
    makeCurrent("1.8.0_20");
    install("1.8.0_20", RUNTIMES_NEW);
    EXPECT_EQ(found(), "");
    install("1.8.0_20");
    machine.setString(RUNTIMES_NEW, "CurrentVersion", "gone");
    EXPECT_EQ(found(), "1.8.0_20") << "and one without its key replaces nothing";
}

TEST_F(DiscoveryTest, LibraryPathLongerThanTheRegistryLimitIsNone)
{
    makeCurrent("1.8");
    machine.setString(RUNTIMES + "\\1.8", "RuntimeLib", std::string(254, 'x'));
    EXPECT_EQ(client.findJVM().path, std::string(254, 'x'));
    machine.setString(RUNTIMES + "\\1.8", "RuntimeLib", std::string(255, 'x'));
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "1.8");
    EXPECT_EQ(info.path, "");
}

TEST_F(DiscoveryTest, NameBeyondTheRegistryLimitIsTreatedAsTheEmptyName)
{
    install(std::string(254, '1'));
    makeCurrent(std::string(254, '1'));
    EXPECT_EQ(found(), std::string(254, '1'));

    machine.createKey(RUNTIMES_NEW + "\\" + std::string(255, '_'));
    machine.setString(RUNTIMES_NEW, "RuntimeLib", "C:\\of the base key\\jvm.dll");
    forgetLog();
    const JVMInfo info = client.findJVM();
    EXPECT_EQ(info.version, "") << "equal to the current version that is missing";
    EXPECT_EQ(info.path, "C:\\of the base key\\jvm.dll");
    const Strings statements = log.takeStatements("FINE");
    EXPECT_STRINGS(Strings(statements.end() - 2, statements.end()),
                   Strings{"Found Java  (* USED)", "Standard JVM Path: C:\\of the base key\\jvm.dll"});
    prefer("_-a");
    EXPECT_EQ(found(), "") << "it has no underscore any more";
}

TEST_F(DiscoveryTest, UnderscoreMayStandAnywhereInTheName)
{
    for (const char* version : {"_1", "2_", "3_0_4"}) {
        install(version);
        prefer(version);
        EXPECT_EQ(found(), version);
    }
}

TEST_F(DiscoveryTest, CurrentVersionWithoutItsKeyGivesNothing)
{
    install("1.8.0_20");
    makeCurrent("1.8.0");
    EXPECT_EQ(found(), "") << "the name is compared whole";
    makeCurrent("1.8.0_20 ");
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, CurrentVersionIsComparedByteByByte)
{
    install("1.8.0_20B");
    makeCurrent("1.8.0_20b");
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, RuntimeWithoutLibraryHasAnEmptyPath)
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

TEST_P(PatternTest, Picks)
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

TEST_F(DiscoveryTest, CandidatesAreSortedAsTexts)
{
    install("1.8.0_20");
    install("1.8.0_101");
    prefer("1.8.0_0-1.8.0_3");
    EXPECT_EQ(found(), "1.8.0_20") << "1.8.0_101 comes before 1.8.0_20";
    install("1.8.0_B");
    install("1.8.0_a");
    prefer("1.8.0_-1.8.0_z");
    EXPECT_EQ(found(), "1.8.0_a") << "byte by byte, while the registry lists a before B";
}

TEST_F(DiscoveryTest, CandidatesOfBothKeysStandInOneList)
{
    install("1.8.0_20");
    install("10_1", RUNTIMES_NEW);
    prefer("1-2");
    EXPECT_EQ(found(), "10_1");
    install("1.8.0_20", RUNTIMES_NEW);
    prefer("1.8.0_20");
    EXPECT_EQ(found(), "1.8.0_20");
}

TEST_F(DiscoveryTest, CandidatesAreSortedAcrossBothKeys)
{
    install("1.8.0_20");
    install("1.7.0_80", RUNTIMES_NEW);
    prefer("1.7-1.9");
    EXPECT_EQ(found(), "1.8.0_20");
}

TEST_F(DiscoveryTest, PreferenceIsReadInThe32BitViewAndRuntimesInThe64BitView)
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

TEST_F(DiscoveryTest, PatternLongerThanTheRegistryLimitIsNoPattern)
{
    install("1.8.0_20");
    prefer("1.8.0_20," + std::string(245, 'x'));
    EXPECT_EQ(found(), "1.8.0_20");
    prefer("1.8.0_20," + std::string(246, 'x'));
    EXPECT_EQ(found(), "");
}

TEST_F(DiscoveryTest, ClassPathListsTheControlsAndEndsWithTheBasisControl)
{
    machine.setString(PREFERENCES + "\\A", "installpath", "C:\\x", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES + "\\B", "installpath", "D:\\y", KEY_WOW64_32KEY);
    CBridgeClient withBasis("P");
    EXPECT_EQ(withBasis.findORVControls(), "C:\\x\\A.jar;D:\\y\\B.jar;P");
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE CJavaManagerJNIClient P", "FINE findORVControls "});
    EXPECT_STRINGS(log.takeStatements("FINE"),
                   Strings{"ORVANE Control 0: A", "Control's Path: C:\\x", "ORVANE Control 1: B", "Control's Path: D:\\y"});
}

TEST_F(DiscoveryTest, ControlWithoutInstallPathStaysInTheClassPath)
{
    machine.createKey(PREFERENCES + "\\/Qmrt /Grid", KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "\\/Qmrt /Grid.jar;") << "the name is used as it is stored";
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"ORVANE Control 0: /Qmrt /Grid", "Control's Path: "});
}

TEST_F(DiscoveryTest, InstallPathLongerThanTheRegistryLimitIsNone)
{
    machine.setString(PREFERENCES + "\\A", "installpath", std::string(254, 'x'), KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), std::string(254, 'x') + "\\A.jar;");
    machine.setString(PREFERENCES + "\\A", "installpath", std::string(255, 'x'), KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "\\A.jar;");
}

TEST_F(DiscoveryTest, ControlWhoseNameIsBeyondTheRegistryLimitIsTheEmptyName)
{
    machine.createKey(PREFERENCES + "\\" + std::string(255, 'A'), KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "installpath", "C:\\of the key above", KEY_WOW64_32KEY);
    EXPECT_EQ(client.findORVControls(), "C:\\of the key above\\.jar;");
    EXPECT_STRINGS(log.takeStatements("FINE"), Strings{"ORVANE Control 0: ", "Control's Path: C:\\of the key above"});
}

TEST_F(DiscoveryTest, ControlsAreCountedInDecimal)
{
    for (char name = 'A'; name <= 'K'; name++) {
        machine.createKey(PREFERENCES + "\\" + name, KEY_WOW64_32KEY);
    }
    client.findORVControls();
    const Strings statements = log.takeStatements("FINE");
    ASSERT_EQ(statements.size(), 22u);
    EXPECT_EQ(statements[20], "ORVANE Control 10: K");
}

TEST_F(DiscoveryTest, ControlsOfThe64BitViewAreNotSeen)
{
    machine.setString(PREFERENCES + "\\A", "installpath", "C:\\x");
    EXPECT_EQ(client.findORVControls(), "");
}

TEST_F(DiscoveryTest, WithoutControlsTheClassPathIsTheBasisControl)
{
    EXPECT_EQ(client.findORVControls(), "");
    EXPECT_EQ(CBridgeClient("").findORVControls(), "");
    EXPECT_EQ(CBridgeClient("C:\\a;b.jar").findORVControls(), "C:\\a;b.jar");
}

} // namespace
