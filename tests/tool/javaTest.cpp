// The choice of a runtime: what is listed, what `use` writes, and that `remove` leaves the registry as it was.
#include "tests/tool/ToolTest.h"

#include "javabridge/JavaManagerJNIClientSettings.h"
#include "tool/JavaChoice.h"
#include "tool/Runtimes.h"

using testing::Contains;
using testing::ElementsAre;

namespace {

class JavaTest : public ToolTest
{
protected:
    // A runtime's folder with the stand-in for its library.
    std::string makeRuntime(const std::string& name, const std::string& version)
    {
        const std::string home = folder.path(name);
        std::filesystem::create_directories(toPath(home) / "bin" / "server");
        std::filesystem::copy_file(standIn("jvm.dll"), toPath(home) / "bin" / "server" / "jvm.dll");
        fixtures::makeFile(home + "\\release", "JAVA_VERSION=\"" + version + "\"\n");
        return home;
    }
    static std::string chosen()
    {
        const JVMInfo info = readJVMChoice(nullptr).chosen;
        return info.version + " " + info.path;
    }
};

TEST_F(JavaTest, RuntimesOfFiveVendorsAreListedWithWhatLedToThem)
{
    const struct
    {
        std::string key;
        std::string value;
        std::string name;
    } vendors[] = {
        {"SOFTWARE\\JavaSoft\\JDK\\21.0.8", "JavaHome", "first"},
        {"SOFTWARE\\Eclipse Adoptium\\JDK\\17.0.9\\hotspot\\MSI", "Path", "second"},
        {"SOFTWARE\\Microsoft\\JDK\\11.0.13\\hotspot\\MSI", "Path", "third"},
        {"SOFTWARE\\Azul Systems\\Zulu\\zulu-25", "InstallationPath", "fourth"},
        {"SOFTWARE\\BellSoft\\Liberica\\liberica-8", "InstallationPath", "fifth"},
    };
    for (const auto& vendor : vendors) {
        machine.setString(vendor.key, vendor.value, makeRuntime(vendor.name, "17.0.1") + "\\");
    }
    _putenv_s("JAVA_HOME", folder.path("fifth").c_str()); // the same again
    const Lines lines = linesOf(listRuntimes());
    for (const auto& vendor : vendors) {
        EXPECT_THAT(lines, Contains("note " + folder.path(vendor.name) +
                                    ": is not seen by the server (Java 17.0.1); found by HKLM\\" + vendor.key));
    }
    _putenv_s("JAVA_HOME", makeRuntime("sixth", "21").c_str());
    EXPECT_THAT(linesOf(listRuntimes()),
                Contains("note " + folder.path("sixth") + ": is not seen by the server (Java 21); found by JAVA_HOME"));
}

TEST_F(JavaTest, RuntimeThatIsUsedIsTheServersChoiceUntilItIsRemoved)
{
    install("1.8.0_20", "C:\\old\\jvm.dll");
    install("11", "C:\\eleven\\jvm.dll");
    makeCurrent("11");
    prefer("1.8.0_20");
    const Lines before = machineKeys();
    const std::string home = makeRuntime("jdk", "21.0.8-ea");
    EXPECT_THAT(
        linesOf(useRuntime(home, true)),
        ElementsAre("ok KESTA_21.0.8.ea: is what the server takes from its next start on: " + home + "\\bin\\server\\jvm.dll"));
    EXPECT_EQ(chosen(), "KESTA_21.0.8.ea " + home + "\\bin\\server\\jvm.dll");
    const std::string other = makeRuntime("other", "25");
    EXPECT_THAT(faultsOf(useRuntime(other, true)), ElementsAre());
    EXPECT_EQ(chosen(), "KESTA_25 " + other + "\\bin\\server\\jvm.dll") << "the second takes the place of the first";
    EXPECT_THAT(linesOf(removeRuntime()), ElementsAre("ok KESTA_25: is removed, and the preference is as it was before"));
    EXPECT_EQ(machineKeys(), before);
    EXPECT_THAT(linesOf(removeRuntime()), ElementsAre("ok registry: has no runtime that this program has registered"));
}

TEST_F(JavaTest, SecondRuntimeThatCannotBeRegisteredLeavesTheFirst)
{
    prefer("1.8.0_20");
    const Lines before = machineKeys();
    useRuntime(makeRuntime("jdk", "21"), true);
    const Lines used = machineKeys();
    const std::string other = makeRuntime("other", std::string(300, '9')); // no name of a key
    EXPECT_EQ(useRuntime(other, true).faultCount(), 1);
    EXPECT_EQ(machineKeys(), used);
    removeRuntime();
    EXPECT_EQ(machineKeys(), before);
}

TEST_F(JavaTest, RuntimeMayBeInAFolderWithAnUmlaut)
{
    const std::string home = makeRuntime(UMLAUT, "");
    _putenv_s("JAVA_HOME", home.c_str());
    EXPECT_THAT(linesOf(listRuntimes()), Contains("note " + home + ": is not seen by the server; found by JAVA_HOME"));
    EXPECT_THAT(faultsOf(useRuntime(home, true)), ElementsAre());
    EXPECT_EQ(chosen(), "KESTA_" + UMLAUT + " " + home + "\\bin\\server\\jvm.dll");
}

TEST_F(JavaTest, EmptyRegistryIsEmptyAgain)
{
    const Lines before = machineKeys();
    EXPECT_THAT(faultsOf(useRuntime(makeRuntime("jdk", "21"), true)), ElementsAre());
    EXPECT_NE(machineKeys(), before);
    removeRuntime();
    EXPECT_EQ(machineKeys(), before);
}

TEST_F(JavaTest, PreferenceKeepsTypeAndBytes)
{
    machine.setBytes(PREFERENCES, "javavm", REG_EXPAND_SZ, "%x%\0y", 6, KEY_WOW64_32KEY);
    const Lines before = machineKeys();
    useRuntime(makeRuntime("jdk", "21"), true);
    removeRuntime();
    EXPECT_EQ(machineKeys(), before);
}

TEST_F(JavaTest, WhatOthersHaveChangedSinceStays)
{
    useRuntime(makeRuntime("jdk", "21"), true);
    prefer("1.8.0_20");
    install("17", "C:\\x\\jvm.dll");
    removeRuntime();
    const Lines after = machineKeys();
    EXPECT_THAT(after, Contains(std::string("javavm=1:1.8.0_20", 18)));
    EXPECT_THAT(after, Contains("[\\SOFTWARE\\JavaSoft\\JRE\\17]"));
    EXPECT_EQ(removeRuntime().faultCount(), 0);
}

TEST_F(JavaTest, FolderThatIsNoRuntimeIsRefusedAndNothingWritten)
{
    const Lines before = machineKeys();
    const std::string remedy = " -> name the folder of a 64-bit runtime, above its folder bin: KESTAtool java list";
    EXPECT_THAT(linesOf(useRuntime(folder.path("none"), true)),
                ElementsAre("FAULT " + folder.path("none") + ": there is no bin\\server\\jvm.dll below it" + remedy));
    std::filesystem::create_directories(folder.path("x86\\bin\\server"));
    libraryFor("x86\\bin\\server\\jvm.dll", 0x014C);
    EXPECT_THAT(linesOf(useRuntime(folder.path("x86"), true)),
                ElementsAre("FAULT " + folder.path("x86") + ": the runtime is a 32-bit one" + remedy));
    EXPECT_EQ(machineKeys(), before);
}

} // namespace
