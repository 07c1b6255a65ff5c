#include "atl/atl.h"

#include <gtest/gtest.h>

TEST(CommandLineTest, EverySwitchInEverySpelling)
{
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("server.exe /RegServer"));
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("server.exe /regserver"));
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("server.exe -REGSERVER"));
    EXPECT_EQ(CRegistrationSwitch::UnregServer, AtlFindRegistrationSwitch("server.exe -UnRegServer"));
    EXPECT_EQ(CRegistrationSwitch::UnregServer, AtlFindRegistrationSwitch("server.exe /UNREGSERVER"));
    EXPECT_EQ(CRegistrationSwitch::RegServerPerUser, AtlFindRegistrationSwitch("server.exe /RegServerPerUser"));
    EXPECT_EQ(CRegistrationSwitch::RegServerPerUser, AtlFindRegistrationSwitch("server.exe -regserverperuser"));
    EXPECT_EQ(CRegistrationSwitch::UnregServerPerUser, AtlFindRegistrationSwitch("server.exe /unregserverPERUSER"));
    EXPECT_EQ(CRegistrationSwitch::UnregServerPerUser, AtlFindRegistrationSwitch("server.exe -UnregServerPerUser"));
}

TEST(CommandLineTest, AWordEndsAtTheEndABlankOrATab)
{
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("x /RegServer "));
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("x /RegServer\t/other"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x /RegServerX"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x /RegServer\n"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x \"/RegServer\""));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x /RegServe"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x / RegServer"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x RegServer"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x xRegServer"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch(""));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x -"));
}

TEST(CommandLineTest, TheScanGoesOnAfterEachMark)
{
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("x -Embedding /other --RegServer"));
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("x -/-RegServer"));
    EXPECT_EQ(CRegistrationSwitch::UnregServer, AtlFindRegistrationSwitch("x /RegServerX/UnregServer"));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("x -Embedding"));
}

TEST(CommandLineTest, TheFirstSwitchDecides)
{
    EXPECT_EQ(CRegistrationSwitch::UnregServer, AtlFindRegistrationSwitch("x /UnregServer /RegServer"));
}

TEST(CommandLineTest, TheExecutablesPathIsPartOfIt)
{
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("C:\\my -regserver folder\\server.exe"));
    EXPECT_EQ(CRegistrationSwitch::RegServer, AtlFindRegistrationSwitch("\"C:\\my-regserver folder\\server.exe\""));
    EXPECT_EQ(CRegistrationSwitch::None, AtlFindRegistrationSwitch("\"C:\\my-regserver\\server.exe\""));
}
