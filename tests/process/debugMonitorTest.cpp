#include "tests/process/DebugMonitor.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using fixtures::CDebugMonitor;

TEST(DebugMonitorTest, GoesOnAfterASenderThatDiedWithThePage)
{
    CDebugMonitor monitor;
    const ATL::CHandle bufferReady(OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_BUFFER_READY"));
    ASSERT_NE(bufferReady, nullptr);
    ASSERT_EQ(WaitForSingleObject(bufferReady, 5000), WAIT_OBJECT_0); // as the sender that dies
    OutputDebugStringA("line of the next sender\n");
    EXPECT_TRUE(fixtures::pumpUntil([&] {
        return std::ranges::any_of(monitor.linesFrom(0),
                                   [](const CDebugMonitor::Line& line) { return line.text == "line of the next sender"; });
    }));
}

} // namespace
