// Archives of class data, made and used by real runtimes.
#include "tests/tool/ToolProcessTest.h"

namespace fixtures {
namespace {

using testing::HasSubstr;

class WarmProcessTest : public ToolProcessTest
{
protected:
    WarmProcessTest() { moveProgramsTo(folder.path("Program Files")); }

    void useRuntime(int version)
    {
        settings.removeRuntimes();
        settings.setRuntime(std::to_string(version), runtimeLibrary(version));
        if (version == 17) {
            putOnSearchPath(17);
        }
    }
    std::string archive() const { return m_programs + "\\KESTAx64.jsa"; }
    // Files beside the programs, and the registry.
    std::string everything()
    {
        std::string names;
        for (const auto& entry : std::filesystem::directory_iterator(m_programs)) {
            names += entry.path().filename().string() + "\n";
        }
        return names + exportedMachine();
    }
};

class WarmRuntimeTest : public WarmProcessTest, public testing::WithParamInterface<int>
{
};

TEST_P(WarmRuntimeTest, ArchiveIsMadeUsedByTheServerAndTakenBack)
{
    useRuntime(GetParam());
    const std::string before = everything();
    EXPECT_EQ(run("warm"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("Java, frame and control are there after \\d+ ms instead of \\d+ ms"));
    EXPECT_THAT(output, HasSubstr("is what the server uses from its next start on: " + archive()));
    EXPECT_FALSE(std::filesystem::exists(archive() + ".new"));
    EXPECT_FALSE(std::filesystem::exists(archive() + ".classes"));
    EXPECT_EQ(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("ok +class data +JRE.\\d+ +is used by Java"));
    EXPECT_EQ(run("warm --remove"), 0u);
    EXPECT_TRUE(everything() == before) << "something is left";
}

INSTANTIATE_TEST_SUITE_P(Pinned, WarmRuntimeTest, testing::Values(17, 21, 25),
                         [](const auto& version) { return "Java" + std::to_string(version.param); });

TEST_F(WarmProcessTest, KeysThatItMadeGoAgain)
{
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE\\WOW6432Node\\JavaSoft");
    const std::string before = everything();
    EXPECT_EQ(run("warm"), 0u);
    EXPECT_EQ(run("warm"), 0u) << "a second time";
    EXPECT_EQ(run("warm --remove"), 0u);
    EXPECT_TRUE(everything() == before) << "something is left";
}

TEST_F(WarmProcessTest, OlderRuntimeIsRefused)
{
    useRuntime(11);
    const std::string before = everything();
    EXPECT_EQ(run("warm"), 1u);
    EXPECT_THAT(output, HasSubstr("Java 11 cannot make class data of a control; Java 13 and newer can\n"));
    EXPECT_TRUE(everything() == before);
}

TEST_F(WarmProcessTest, StartThatFailsMakesNoArchive)
{
    settings.setPreference("basiscontrol", m_programs + "\\KESTAx64.exe"); // there, and no archive
    const std::string before = everything();
    EXPECT_EQ(run("warm"), 1u);
    EXPECT_THAT(output, HasSubstr("the frame with the control cannot be shown"));
    settings.setPreference("jvm_option_1", "-Xmx1k"); // Java refuses so little memory
    EXPECT_EQ(run("warm"), 1u);
    EXPECT_THAT(output, HasSubstr("Java does not start: "));
    settings.removePreference("jvm_option_1");
    EXPECT_TRUE(everything() == before);
}

TEST_F(WarmProcessTest, CheckTellsAnArchiveThatFitsNoMore)
{
    useRuntime(21);
    EXPECT_EQ(run("warm"), 0u);
    useRuntime(25);
    EXPECT_EQ(run("check"), 1u);
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +class data +archive +was made for another runtime: "));
    // Nobody's archive: only Java itself can tell.
    std::filesystem::remove(archive() + ".json");
    EXPECT_EQ(run("check"), 1u);
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +class data +JRE.25 +is ignored by Java: the archive does not fit"));
    EXPECT_THAT(output, testing::ContainsRegex("note +class data +archive +was not made by this program"));
    EXPECT_THAT(output, HasSubstr("Next: make it again: KESTAtool warm (or do without: KESTAtool warm --remove)\n"));
    EXPECT_EQ(run("warm"), 0u);
    EXPECT_EQ(run("check"), 0u);
}

} // namespace
} // namespace fixtures
