// This program has a policy file beside it.
#include "tests/javabridge/StandIn.h"

namespace {

class PolicyTest : public MachineTest
{
};

TEST_F(PolicyTest, PolicyFileSwitchesTheSecurityManagerOn)
{
    EXPECT_EQ(create(), 0);
    const std::string policy = RuntimeFolder::besideExecutable(".policy");
    EXPECT_STRINGS(runtime.options(),
                   first + background + last() + Strings{"-Djava.security.manager", "-Djava.security.policy=" + policy});
    const Strings statements = log.takeStatements("FINE");
    EXPECT_EQ(std::count(statements.begin(), statements.end(), "Enabled Java Security Manager with " + policy), 1);
}

TEST_F(PolicyTest, PolicyFileThatCannotBeReadIsNone)
{
    const std::string policy = RuntimeFolder::besideExecutable(".policy");
    const HANDLE locked = CreateFileA(policy.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locked, INVALID_HANDLE_VALUE);
    EXPECT_EQ(create(), 0);
    CloseHandle(locked);
    EXPECT_STRINGS(runtime.options(), first + background + last());
    const Strings statements = log.takeStatements("FINE");
    EXPECT_EQ(std::count(statements.begin(), statements.end(), "Java Security Manager was not enabled. (" + policy + ")"), 1);
}

} // namespace
