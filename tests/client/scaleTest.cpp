// A pane at the scale of the screen that tests/client/atScale has set, for a client that is aware of it or is not.
#include "tests/client/DialogFixture.h"

#include <cstdlib>

namespace fixtures {
namespace {

class ScaledPaneTest : public PaneDialogTest
{
protected:
    static void SetUpTestSuite()
    {
        const char* const text = std::getenv("KESTA_TEST_CASE"); // such as 144 or 144Aware
        ASSERT_NE(text, nullptr) << "CTest sets it";
        char* rest = nullptr;
        s_dpi = std::strtoul(text, &rest, 10);
        s_isAware = std::string(rest) == "Aware";
        if (s_isAware) { // before there is a window
            ASSERT_TRUE(SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2));
        }
    }

    inline static unsigned long s_dpi = 0;
    inline static bool s_isAware = false;
};

// What Wine shows wrongly is left out: the picture for a client that is not aware, the place of menus for one that is.
TEST_F(ScaledPaneTest, TakesClicksAndKeys)
{
    constexpr unsigned USUAL = 96;
    const bool isScaled = s_dpi != USUAL;
    ASSERT_NO_FATAL_FAILURE(begin(s_isAware || !isScaled));
    const HWND frame = frameOf(*pane);
    EXPECT_EQ(GetDpiForWindow(frame), s_isAware ? s_dpi : USUAL);
    clickAndType();
    ask(L"openMenu");
    const RECT menu = awaitShown(L"JPopupMenu");
    if (!s_isAware || !isScaled) {
        expectOnScreen(menu);
        EXPECT_EQ(menu.left, placeOf(frame).left + 10) << "at the field";
        EXPECT_EQ(menu.top, placeOf(frame).bottom - 10);
    }
}

} // namespace
} // namespace fixtures
