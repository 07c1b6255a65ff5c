// The build puts a policy file beside this program.
#include "tests/javabridge/StandIn.h"

namespace {

class PolicyTest : public MachineTest
{
protected:
    const std::string policy = RuntimeFolder::besideExecutable(".policy");
};

TEST_F(PolicyTest, PolicyFileSwitchesTheSecurityManagerOn)
{
    EXPECT_LINES(createdWith(),
                 first + background + last() + Strings{"-Djava.security.manager", "-Djava.security.policy=" + policy});
    EXPECT_EQ(std::ranges::count(log.take("FINE"), "Enabled Java Security Manager with " + policy), 1);
}

TEST_F(PolicyTest, PolicyFileThatCannotBeReadIsNone)
{
    const HANDLE locked = CreateFileA(policy.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locked, INVALID_HANDLE_VALUE);
    EXPECT_LINES(createdWith(), first + background + last());
    CloseHandle(locked);
    EXPECT_EQ(std::ranges::count(log.take("FINE"), "Java Security Manager was not enabled. (" + policy + ")"), 1);
}

} // namespace
