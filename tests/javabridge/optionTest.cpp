// The options that the Java virtual machine is given: those of the registry, those of the log, and their order.
#include "tests/javabridge/StandIn.h"

namespace {

TEST_F(MachineTest, RegistryOptionsStandInTheOrderOfTheirNames)
{
    world.setPreference("jvm_option_b", "-Db");
    world.setPreference("jvm_option_a", "-Da");
    world.setPreference("jvm_option_2", "-D2");
    world.setPreference("jvm_option_10", "-D10");
    world.setPreference("jvm_option_1", "-D1");
    world.setPreference("jvm_option_B", "-DB is the same name to the registry");
    world.setPreference("jvm_option_C", "-DC"); // capitals come first, while the registry lists a, b, C
    world.setPreference("jvm_option_", "-Dshortest");
    world.setPreference("jvm_option", "-Dtoo.short");
    world.setPreference("jvm_options_x", "-Dother");
    world.setPreference("JVM_OPTION_x", "-Dcapitals");
    world.setPreference("my_jvm_option_x", "-Dnot.at.the.start");
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(),
                   first + Strings{"-Dshortest", "-D1", "-D10", "-D2", "-DC", "-Da", "-DB is the same name to the registry"} +
                       background + last());
}

TEST_F(MachineTest, RegistryOptionBeyondTheLimitIsEmpty)
{
    world.setPreference("jvm_option_1", std::string(254, 'x'));
    world.setPreference("jvm_option_2", std::string(255, 'x'));
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + Strings{std::string(254, 'x'), ""} + background + last());
}

TEST_F(MachineTest, RegistryOptionWhoseNameIsBeyondTheLimitIsNone)
{
    const std::string prefix = "jvm_option_";
    world.setPreference("jvm_option_1", "-D1");
    world.setPreference(prefix + std::string(16382 - prefix.size(), 'x'), "-Dlongest");
    world.setPreference(prefix + std::string(16383 - prefix.size(), 'y'), "-Dbeyond");
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + Strings{"-D1", "-Dlongest"} + background + last());
}

TEST_F(MachineTest, RegistryOptionOfAnotherTypeIsItsBytes)
{
    const std::string unexpanded = "-D%PATH%";
    world.machine().setBytes(world.PREFERENCES_KEY, "jvm_option_1", REG_EXPAND_SZ, unexpanded.c_str(), unexpanded.size() + 1,
                             KEY_WOW64_32KEY);
    world.setPreference("jvm_option_2", 0x004F452D); // the bytes of "-EO"
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + Strings{unexpanded, "-EO"} + background + last());
}

TEST_F(MachineTest, MissingPreferencesKeyAddsTheBackgroundOptionOnly)
{
    world.setPreference("jvm_option_1", "-D1");
    world.setPreference("sun.awt.noerasebackground", 1);
    ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft"), ERROR_SUCCESS);
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + background + last());
    const std::string notOpened = "CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false";
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{notOpened, notOpened, notOpened})
        << "controls, options, background option";
}

TEST_F(MachineTest, PreferencesAreReadInThe32BitView)
{
    fixtures::RegistryScratch& machine = world.machine();
    machine.createKey("SOFTWARE\\Wow6432Node"); // from here on the two views are two
    machine.setString(world.PREFERENCES_KEY, "jvm_option_1", "-D32", KEY_WOW64_32KEY);
    machine.setString(world.PREFERENCES_KEY, "jvm_option_2", "-D64");
    machine.setDword(world.PREFERENCES_KEY, "sun.awt.noerasebackground", 1);
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + Strings{"-D32"} + background + last());
    machine.setDword(world.PREFERENCES_KEY, "sun.awt.noerasebackground", 1, KEY_WOW64_32KEY);
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + Strings{"-D32"} + background + last() + first + Strings{"-D32"} + last());
}

TEST_F(MachineTest, BackgroundOptionIsLeftOutForPositiveNumbersOnly)
{
    for (const auto& [number, isAdded] : {std::pair{1, false}, {2, false}, {0, true}, {-1, true}, {-7, true}}) {
        SCOPED_TRACE(number);
        world.setPreference("sun.awt.noerasebackground", number);
        EXPECT_EQ(create(), 0);
        const Strings statements = log.takeStatements("FINE");
        EXPECT_EQ(std::count(statements.begin(), statements.end(), "Adding sun.awt.noerasebackground JVM Option"), isAdded);
        const Strings options = runtime.options();
        const size_t count = isAdded ? 6 : 5;
        ASSERT_GE(options.size(), count);
        EXPECT_STRINGS(Strings(options.end() - static_cast<int>(count), options.end()),
                       first + (isAdded ? background : Strings{}) + last());
    }
}

TEST_F(MachineTest, ExtraLoggingAddsItsOptions)
{
    std::filesystem::create_directories(world.desktop() + "\\UNDEFINEDPRODUCT-logs");
    world.start();
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    ASSERT_TRUE(Logger::instance()->hasMagicDirectory());
    const std::string prefix = Logger::instance()->logFilePrefix();
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(),
                   first + background +
                       Strings{"-XX:+UnlockDiagnosticVMOptions", "-XX:+LogVMOutput", "-XX:+PrintJNIResolving",
                               "-XX:+PrintCommandLineFlags", "-XX:+PrintCompilation", "-XX:+CheckJNICalls", "-XX:+PrintVMOptions",
                               "-XX:LogFile=" + prefix + "-jvm.log", "-XX:ErrorFile=" + prefix + "-jvm-error.log",
                               "-Dcom.orvane.qmrt.logpath=" + world.desktop() + "\\UNDEFINEDPRODUCT-logs\\",
                               "-Dcom.orvane.qmrt.loglevel=5", "-Dcom.orvane.qmrt.oldlogfileage=2419200",
                               "-Dcom.orvane.qmrt.splitlogfilesize=10"});
    const Strings statements = log.takeStatements("FINE");
    EXPECT_EQ(std::count(statements.begin(), statements.end(), "Adding additional JVM options for extra logging"), 1);
}

TEST_F(MachineTest, LogLevelIsTheCurrentOne)
{
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.options(), first + background + last(LOGLEVEL_INFO));
}

TEST_F(MachineTest, MachineStartsWithoutALoggerToo)
{
    fixtures::LoggerWorld::stop();
    EXPECT_EQ(client.createJVM({"1.8.0_151", runtime.library()}), 0);
    EXPECT_STRINGS(runtime.options(),
                   first + background +
                       Strings{"-Dcom.orvane.qmrt.logpath=", "-Dcom.orvane.qmrt.loglevel=2",
                               "-Dcom.orvane.qmrt.oldlogfileage=2419200", "-Dcom.orvane.qmrt.splitlogfilesize=10"});
}

TEST_F(MachineTest, PreferencesAreReadStepByStep)
{
    world.setPreference("jvm_option_1", "-D1");
    const std::string opened = "TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true";
    const std::string preferences = "FINE CRegistry  CRegistry SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
    EXPECT_EQ(create(), 0);
    const Strings steps = log.takeSteps();
    const auto begin = std::find(steps.begin(), steps.end(), "TRACE CreateJavaVMProc != NULL: true");
    const auto end = std::find(begin, steps.end(), "FINE Adding sun.awt.noerasebackground JVM Option");
    ASSERT_NE(end, steps.end());
    EXPECT_STRINGS(Strings(begin + 1, end + 2), Strings{
                                                    preferences,
                                                    opened,
                                                    "FINE CRegistrySubKeys  CRegistrySubKeys ",
                                                    "FINE CRegistrySubKeys  getKeyNames ",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistrySubKeys  getValue 0",
                                                    preferences,
                                                    opened,
                                                    "FINE CRegistry  getStringValue jvm_option_1, ",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistrySubKeys  getValue 1",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistrySubKeys  getValue 2",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistrySubKeys  getValue 3",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistrySubKeys  getValue 4",
                                                    "FINE CRegistrySubKeys  getValueCount ",
                                                    "FINE CRegistry  closeKey ",
                                                    preferences,
                                                    opened,
                                                    "FINE CRegistry  getDWORDValue sun.awt.noerasebackground, -1",
                                                    "FINE Adding sun.awt.noerasebackground JVM Option",
                                                    "FINE CRegistry  closeKey ",
                                                });
}

} // namespace
