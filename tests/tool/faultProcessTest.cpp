// Faults of a machine that only a start shows, each planted.
#include "tests/tool/ToolProcessTest.h"

namespace fixtures {
namespace {

using testing::HasSubstr;

TEST_F(ToolProcessTest, StartThatFailsIsNamedWithWhatTheLogSays)
{
    settings.setPreference("jvm_option_1", "-XX:+UseNothing -bad");
    settings.setPreference("jvm_option_2", "-Xmx1k"); // Java refuses so little memory
    EXPECT_GT(run("check"), 0u);
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +start +JRE.21.0.8 +does not start: "));
}

TEST_F(ToolProcessTest, MissingControlIsNamed)
{
    settings.setPreference("basiscontrol", m_buildFolder + "\\KESTAx64.exe"); // there, and no archive
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("not in the class path, or not loadable: com/velmora/tq/kesta/KESTAFrame, "
                                  "com/velmora/tq/kesta/KESTAListener, com/orvane/tech/client/qmrt/QMRTControlListenerI, "
                                  "com/orvane/tech/client/qmrt/win/QMRTWinControl\n"));
    EXPECT_THAT(output, testing::ContainsRegex("FAULT +live start +frame +the server runs without Java or without a frame"));
}

TEST_F(ToolProcessTest, UnregisteredServerIsNamedAndLiveStartFails)
{
    runServer("/UnregServer");
    EXPECT_EQ(run("check"), 2u);
    EXPECT_THAT(output, HasSubstr("is registered neither for this user nor for the machine"));
    EXPECT_THAT(output, HasSubstr("(80040154)"));
    EXPECT_THAT(output, HasSubstr("2 findings. Next: as administrator, run in the program's folder: KESTAx64.exe /RegServer\n"));
    runServer("/RegServer");
}

} // namespace
} // namespace fixtures
