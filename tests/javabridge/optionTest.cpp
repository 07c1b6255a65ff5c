// The options of the Java virtual machine: from the registry, from the log, and their order.
#include "tests/javabridge/StandIn.h"

namespace {

TEST_F(MachineTest, RegistryOptionsStandInTheOrderOfTheirNames)
{
    for (const auto& [name, option] : {std::pair{"jvm_option_b", "-Db"},
                                       {"jvm_option_a", "-Da"},
                                       {"jvm_option_2", "-D2"},
                                       {"jvm_option_10", "-D10"},
                                       {"jvm_option_1", "-D1"},
                                       {"jvm_option_B", "-DB is the same name to the registry"},
                                       {"jvm_option_C", "-DC"}, // capitals come first, while the registry lists a, b, C
                                       {"jvm_option_", "-Dshortest"},
                                       {"jvm_option", "-Dtoo.short"},
                                       {"jvm_options_x", "-Dother"},
                                       {"JVM_OPTION_x", "-Dcapitals"},
                                       {"my_jvm_option_x", "-Dnot.at.the.start"}}) {
        world.setPreference(name, std::string(option));
    }
    EXPECT_LINES(createdWith(),
                 first + Strings{"-Dshortest", "-D1", "-D10", "-D2", "-DC", "-Da", "-DB is the same name to the registry"} +
                     background + last());
}

TEST_F(MachineTest, RegistryOptionsBeyondTheLimitsAreEmptyOrNone)
{
    const std::string prefix = "jvm_option_";
    world.setPreference(prefix + "1", std::string(254, 'x'));
    world.setPreference(prefix + "2", std::string(255, 'x'));
    world.setPreference(prefix + std::string(16382 - prefix.size(), 'x'), "-Dlongest.name");
    world.setPreference(prefix + std::string(16383 - prefix.size(), 'y'), "-Dbeyond");
    EXPECT_LINES(createdWith(), first + Strings{std::string(254, 'x'), "", "-Dlongest.name"} + background + last());
}

TEST_F(MachineTest, RegistryOptionOfAnotherTypeIsItsBytes)
{
    const std::string unexpanded = "-D%PATH%";
    world.machine().setBytes(PREFERENCES, "jvm_option_1", REG_EXPAND_SZ, unexpanded.c_str(), unexpanded.size() + 1,
                             KEY_WOW64_32KEY);
    world.setPreference("jvm_option_2", 0x004F452D); // the bytes of "-EO"
    EXPECT_LINES(createdWith(), first + Strings{unexpanded, "-EO"} + background + last());
}

TEST_F(MachineTest, MissingPreferencesKeyAddsTheBackgroundOptionOnly)
{
    world.setPreference("jvm_option_1", "-D1");
    world.setPreference("sun.awt.noerasebackground", 1);
    ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft"), ERROR_SUCCESS);
    EXPECT_LINES(createdWith(), first + background + last());
    EXPECT_LINES(log.takeErrors(), Strings(3, NOT_OPENED)) << "controls, options, background option";
}

TEST_F(MachineTest, BackgroundOptionIsLeftOutForPositiveNumbersOnly)
{
    for (const auto& [number, isAdded] : {std::pair{1, false}, {2, false}, {0, true}, {-1, true}, {-7, true}}) {
        SCOPED_TRACE(number);
        world.setPreference("sun.awt.noerasebackground", number);
        EXPECT_LINES(createdWith(), first + (isAdded ? background : Strings{}) + last());
        EXPECT_EQ(std::ranges::count(log.take("FINE"), "Adding sun.awt.noerasebackground JVM Option"), isAdded);
    }
}

TEST_F(MachineTest, ExtraLoggingAddsItsOptions)
{
    std::filesystem::create_directories(world.desktop() + "\\UNDEFINEDPRODUCT-logs");
    world.start();
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    const std::string prefix = Logger::instance()->logFilePrefix();
    EXPECT_LINES(createdWith(),
                 first + background +
                     Strings{"-XX:+UnlockDiagnosticVMOptions", "-XX:+LogVMOutput", "-XX:+PrintJNIResolving",
                             "-XX:+PrintCommandLineFlags", "-XX:+PrintCompilation", "-XX:+CheckJNICalls", "-XX:+PrintVMOptions",
                             "-XX:LogFile=" + prefix + "-jvm.log", "-XX:ErrorFile=" + prefix + "-jvm-error.log",
                             "-Dcom.orvane.qmrt.logpath=" + world.desktop() + "\\UNDEFINEDPRODUCT-logs\\",
                             "-Dcom.orvane.qmrt.loglevel=5", "-Dcom.orvane.qmrt.oldlogfileage=2419200",
                             "-Dcom.orvane.qmrt.splitlogfilesize=10"});
    EXPECT_EQ(std::ranges::count(log.take("FINE"), "Adding additional JVM options for extra logging"), 1);
}

TEST_F(MachineTest, LogLevelIsTheCurrentOne)
{
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    EXPECT_LINES(createdWith(), first + background + last(LOGLEVEL_INFO));
}

TEST_F(MachineTest, MachineStartsWithoutALoggerToo)
{
    fixtures::LoggerWorld::stop();
    EXPECT_LINES(createdWith(), first + background +
                                    Strings{"-Dcom.orvane.qmrt.logpath=", "-Dcom.orvane.qmrt.loglevel=2",
                                            "-Dcom.orvane.qmrt.oldlogfileage=2419200", "-Dcom.orvane.qmrt.splitlogfilesize=10"});
}

} // namespace
