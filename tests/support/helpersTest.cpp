#include "support/helpers.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <climits>

using testing::ElementsAre;

namespace {
// The helpers' log lines while `action` runs.
template <class Action>
std::vector<std::string> logged(Action action)
{
    Logger::setMaxLogLevel(LOGLEVEL_FINE);
    const fixtures::DebugStream stream;
    action();
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    return stream.said("helpers");
}
} // namespace

TEST(HelpersTest, IdentifierIsPrefixAndDecimalNumber)
{
    EXPECT_EQ(CHelpers::buildIdentifierString("kesta_frame_", 7), "kesta_frame_7");
    EXPECT_EQ(CHelpers::buildIdentifierString("kesta_frame_", -1), "kesta_frame_-1");
    EXPECT_EQ(CHelpers::buildIdentifierString("", 0), "0");
    EXPECT_EQ(CHelpers::buildIdentifierString("x", INT_MIN), "x-2147483648");
    EXPECT_THAT(logged([] { CHelpers::buildIdentifierString("kesta_frame_", 7); }),
                ElementsAre("FINE|-> buildIdentifierString kesta_frame_, 7", "FINE|<- buildIdentifierString kesta_frame_, 7"));
}

TEST(HelpersTest, ErrorModeBecomesSilentAndBothAreLoggedInHexadecimal)
{
    const UINT before = SetErrorMode(SEM_NOOPENFILEERRORBOX | SEM_FAILCRITICALERRORS);
    EXPECT_THAT(logged([] { EXPECT_EQ(CHelpers::setErrorModeSilent(), 0); }),
                ElementsAre("FINE|-> setErrorModeSilent ", "FINE|    new error mode:3", "FINE|    old error mode:8001",
                            "FINE|<- setErrorModeSilent "));
    EXPECT_EQ(SetErrorMode(before), static_cast<UINT>(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX));
}
