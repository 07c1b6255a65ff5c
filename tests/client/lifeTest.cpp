// What panes leave behind.
#include "tests/client/PaneFixture.h"

namespace fixtures {
namespace {

class PaneRoundsTest : public PaneTest
{
protected:
    // Opens a pane, uses it, closes it and waits for its end.
    void round()
    {
        SRecord told;
        auto pane = Pane::create(window.handle(), PLACE, options(), told.handlers());
        awaitReady(told);
        EXPECT_EQ(call(*pane, L"echo", L"there"), L"there");
        pane.reset();
        EXPECT_TRUE(eventually([&] { return leftovers().servers == 0; }, 20000));
    }
    void expectNothingLeft(int rounds)
    {
        logToFile();                           // the monitor holds a handle of each server
        for (int warm = 0; warm < 3; ++warm) { // what Windows and COM keep for ever is there then
            round();
        }
        // The pane's thread ends after the server.
        EXPECT_TRUE(kesta::finish(milliseconds(10000)));
        pumpUntil([] { return false; }, {}, 500);
        const SLeftovers before = leftovers();
        const size_t handlesBefore = countHandles();
        ASSERT_GT(handlesBefore, 10u);
        for (int number = 0; number < rounds; ++number) {
            round();
        }
        EXPECT_TRUE(kesta::finish(milliseconds(10000)));
        eventually([&] { return leftovers().threads <= before.threads; }, 5000);
        const SLeftovers after = leftovers();
        const size_t handlesAfter = countHandles();
        std::printf("%d rounds: handles %zu before, %zu after; windows %zu, %zu; threads %zu, %zu\n", rounds, handlesBefore,
                    handlesAfter, before.windows, after.windows, before.threads, after.threads);
        EXPECT_EQ(after.windows, before.windows);
        EXPECT_LE(after.threads, before.threads);
        // Wine keeps two handles of each server that has held a sink, also in a program that does nothing but connect one.
        EXPECT_LE(handlesAfter, handlesBefore + 2 * static_cast<size_t>(rounds) + 2);
        EXPECT_EQ(after.servers, 0u);
    }
};

class LongPaneRoundsTest : public PaneRoundsTest
{
};

TEST_F(LongPaneRoundsTest, LeaveNoWindowThreadOrProcess)
{
    expectNothingLeft(200);
}

TEST_F(PaneRoundsTest, LeaveNoWindowThreadOrProcess)
{
    expectNothingLeft(4);
}

TEST_F(LongPaneTest, PaneThatIsClosedWhileItsServerStartsLeavesNothing)
{
    for (const DWORD delay : {0UL, 200UL, 600UL, 1200UL, 1800UL}) {
        auto pane = open();
        pumpUntil([] { return false; }, {}, delay);
        pane.reset();
        EXPECT_TRUE(kesta::finish(milliseconds(20000))) << "closed after " << delay << " ms";
    }
    EXPECT_EQ(leftovers().servers, 0u);
    EXPECT_TRUE(record.ended.empty());
}

} // namespace
} // namespace fixtures
