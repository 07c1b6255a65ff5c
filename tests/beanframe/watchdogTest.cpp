// The client's window, the watchdog chains and the forced release.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A real window, gone at the end of the test.
class Window
{
public:
    explicit Window(HWND parent = nullptr, DWORD style = WS_OVERLAPPEDWINDOW)
        : m_handle(CreateWindowExA(0, "STATIC", "", style, 0, 0, 10, 10, parent, nullptr, nullptr, nullptr))
    {
        EXPECT_NE(m_handle, nullptr);
    }
    ~Window() { destroy(); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void destroy() { DestroyWindow(std::exchange(m_handle, nullptr)); }
    operator HWND() const { return m_handle; }
    int number() const { return static_cast<int>(reinterpret_cast<INT_PTR>(m_handle)); }

private:
    HWND m_handle;
};

using ParentHook = ImportHook<decltype(&GetParent)>;

// Whose parent was asked for, and what was answered.
std::vector<HWND> s_children;
HWND s_parent = nullptr;

} // namespace

class WatchdogTest : public BeanFrameWorld
{
protected:
    void SetUp() override { createFrame(); }

    // Without the line of the bridge; the queue's lines belong to other tests.
    std::vector<std::string> aliveLines()
    {
        std::vector<std::string> result;
        for (const std::string& line : lines()) {
            if (line.find("isClientAlive") == std::string::npos) {
                result.push_back(line);
            }
        }
        return result;
    }
    void push(const Window& window)
    {
        EXPECT_EQ(frame().pushWindowHandle(window.number()), S_OK);
        stream.clear();
    }
    // What the watchdog's due entry does.
    static void bark()
    {
        s_now += 15000;
        EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    }
    // An armed chain is one entry that is due 15 seconds from now, with an empty text.
    static void expectChains(size_t count)
    {
        EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(count));
        for (const FrameAccess::QueueEntry* const entry : FrameAccess::s_EventQueue) {
            EXPECT_EQ(entry->dueTime, s_now + 15000);
            EXPECT_TRUE(entry->handler == &FrameAccess::processWatchDogEvent);
            EXPECT_STREQ(entry->text.narrow(), "");
        }
    }
};

TEST_F(WatchdogTest, PushedHandleIsKeptAndTheBeanAddedAndAChainStarted)
{
    const Window parent;
    const Window pane(parent, WS_CHILD);
    EXPECT_EQ(frame().pushWindowHandle(pane.number()), S_OK);
    EXPECT_EQ(frame().*&FrameAccess::clientWindow, static_cast<HWND>(pane));
    EXPECT_THAT(java->takeMethodCalls(),
                ElementsAre("CallObjectMethod(global com/velmora/tq/kesta/KESTAFrame, add, global com/maker/win/Control)"));
    const std::string entry = address(FrameAccess::s_EventQueue.back());
    const std::string scope = object() + "pushWindowHandle " + std::to_string(pane.number());
    EXPECT_THAT(lines(),
                ElementsAre("INFO -> " + scope, "TRACE " + object() + "Starting WatchDog on server side...",
                            "FINE -> " + object() + "queueEvent 15000", "TRACE " + object() + "queued new event: " + entry,
                            "FINE <- " + object() + "queueEvent 15000", "INFO <- " + scope));
    expectChains(1);
    EXPECT_THAT(takeMessages(), IsEmpty());
}

TEST_F(WatchdogTest, HandleIsWidenedBySignExtension)
{
    EXPECT_EQ(frame().pushWindowHandle(-2), S_OK);
    EXPECT_EQ(reinterpret_cast<INT_PTR>((frame().*&FrameAccess::clientWindow).load()), -2);
    EXPECT_EQ(lines().front(), "INFO -> " + object() + "pushWindowHandle -2");
}

TEST_F(WatchdogTest, ChainStartsAlsoWhenTheBeanCouldNotBeAdded)
{
    java->jni.outcomes["add"] = RecordingJni::throws("java.lang.IllegalStateException", "no");
    const Window parent;
    const Window pane(parent, WS_CHILD);
    EXPECT_EQ(frame().pushWindowHandle(pane.number()), E_FAIL);
    EXPECT_EQ(frame().*&FrameAccess::clientWindow, static_cast<HWND>(pane));
    expectChains(1);
}

TEST_F(WatchdogTest, SecondPushStartsASecondChainAndBothWatchTheLatestHandle)
{
    const Window parent;
    const Window first(parent, WS_CHILD);
    Window second(parent, WS_CHILD);
    push(first);
    push(second);
    expectChains(2);
    bark();
    expectChains(2);
    second.destroy();
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    bark();
    EXPECT_EQ(target.references, 0u);
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}

TEST_F(WatchdogTest, NoHandleYetCountsAsAlive)
{
    EXPECT_TRUE(frame().isClientAlive());
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + object() + "isClientAlive ",
                                     "TRACE " + object() + "Frame's window not yet set, thus no check!",
                                     "FINE <- " + object() + "isClientAlive "));
}

TEST_F(WatchdogTest, ChildWindowIsAliveWithoutALine)
{
    const Window parent;
    const Window pane(parent, WS_CHILD);
    push(pane);
    EXPECT_TRUE(frame().isClientAlive());
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + object() + "isClientAlive ", "FINE <- " + object() + "isClientAlive "));
}

TEST_F(WatchdogTest, DestroyedWindowIsDead)
{
    const Window parent;
    Window pane(parent, WS_CHILD);
    push(pane);
    pane.destroy();
    EXPECT_FALSE(frame().isClientAlive());
    EXPECT_THAT(aliveLines(),
                ElementsAre("TRACE " + object() + "Frame's window seems not to be alive anymore! (invalid window handle) "));
}

TEST_F(WatchdogTest, WindowGoesWithItsParent)
{
    Window parent;
    const Window pane(parent, WS_CHILD);
    push(pane);
    parent.destroy();
    EXPECT_FALSE(frame().isClientAlive());
}

TEST_F(WatchdogTest, TopLevelWindowIsDead)
{
    const Window window;
    push(window);
    EXPECT_FALSE(frame().isClientAlive());
    EXPECT_THAT(aliveLines(), ElementsAre("TRACE " + object() + "Frame's window has no valid parent anymore!"));
}

TEST_F(WatchdogTest, ChildOfTheDesktopIsDead)
{
    const Window window(GetDesktopWindow(), WS_CHILD);
    push(window);
    EXPECT_FALSE(frame().isClientAlive());
    EXPECT_THAT(aliveLines(), ElementsAre("TRACE " + object() + "Frame's window has no valid parent anymore!"));
}

// It is the pushed window's own parent that counts each time, not the parent's parent.
TEST_F(WatchdogTest, ParentThatIsMissingOrTheDesktopIsNoParent)
{
    const Window parent;
    const Window pane(parent, WS_CHILD);
    push(pane);
    const ParentHook hook("GetParent", [](HWND child) {
        s_children.push_back(child);
        return s_parent;
    });
    s_parent = parent;
    EXPECT_TRUE(frame().isClientAlive());
    s_parent = reinterpret_cast<HWND>(-2); // nobody asks what it is
    EXPECT_TRUE(frame().isClientAlive());
    s_parent = GetDesktopWindow();
    EXPECT_FALSE(frame().isClientAlive());
    s_parent = nullptr;
    EXPECT_FALSE(frame().isClientAlive());
    EXPECT_THAT(s_children, testing::Each(static_cast<HWND>(pane)));
    const std::string line = "TRACE " + object() + "Frame's window has no valid parent anymore!";
    EXPECT_THAT(aliveLines(), ElementsAre(line, line));
}

TEST_F(WatchdogTest, HandleOfNullTakesTheWindowBack)
{
    const Window window;
    push(window);
    EXPECT_FALSE(frame().isClientAlive());
    EXPECT_EQ(frame().pushWindowHandle(0), S_OK);
    EXPECT_TRUE(frame().isClientAlive());
    expectChains(2);
}

// Windows names the owner as the parent of a popup.
TEST_F(WatchdogTest, OwnedPopupIsAlive)
{
    const Window owner;
    const Window popup(owner, WS_POPUP);
    ASSERT_EQ(GetWindow(popup, GW_OWNER), static_cast<HWND>(owner));
    push(popup);
    EXPECT_TRUE(frame().isClientAlive());
}

TEST_F(WatchdogTest, ChainGoesOnWhileTheClientIsAlive)
{
    const Window parent;
    const Window pane(parent, WS_CHILD);
    push(pane);
    for (int round = 0; round < 3; ++round) {
        bark();
        expectChains(1);
    }
    EXPECT_THAT(target.calls, IsEmpty());
    EXPECT_THAT(linesWith(lines(), "WARN"), IsEmpty());
}

TEST_F(WatchdogTest, ChainGoesOnWithoutComObject)
{
    const Window window; // dead from the start
    push(window);
    RecordingTarget::s_current = nullptr;
    bark();
    expectChains(1);
    EXPECT_THAT(linesWith(lines(), "isClientAlive"), IsEmpty()) << "without an object nothing is asked";
    EXPECT_THAT(linesWith(lines(), "processWatchDogEvent"),
                ElementsAre("FINE -> " + object() + "processWatchDogEvent ", "FINE <- " + object() + "processWatchDogEvent "));
}

TEST_F(WatchdogTest, DeadClientLosesEveryReference)
{
    const Window window;
    push(window);
    target.references = 3;
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    bark();
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "DisconnectObject", "Release", "Release", "Release", "Release"));
    EXPECT_EQ(target.references, 0u);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty()) << "the chain ends";

    const std::string alive = object() + "isClientAlive ";
    const std::string handler = object() + "processWatchDogEvent ";
    std::vector<std::string> all = lines();
    all.erase(all.begin(), std::find(all.begin(), all.end(), "FINE -> " + handler));
    EXPECT_THAT(
        all, ElementsAre(
                 "FINE -> " + handler, "FINE -> " + alive, "TRACE " + object() + "Frame's window has no valid parent anymore!",
                 "FINE <- " + alive, "WARN " + object() + "Client seems to be not alive... releasing event sinks.",
                 "WARN " + object() + "Releasing ATL object.", "TRACE " + object() + "More objects to release...",
                 "TRACE " + object() + "More objects to release...", "TRACE " + object() + "More objects to release...",
                 "INFO -> deleteInstance ", "TRACE s_Instance!=NULL: true", "INFO -> " + object() + "~CBeanFrame ",
                 "INFO <- " + object() + "~CBeanFrame ", "INFO <- deleteInstance ", "INFO Releasing all sinks and objects done",
                 "FINE <- " + handler, "FINE <- " + object() + "processQueueEntry ", "FINE <- processEventQueue "));
}

// What COM held for the client goes with the disconnection: the watchdog's own reference is then the last.
TEST_F(WatchdogTest, ObjectMayGoWithTheWatchdogsOwnReference)
{
    const Window window;
    push(window);
    target.onDisconnect = [&] { target.references = 1; };
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    target.references = 5;
    bark();
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "DisconnectObject", "Release"));
    EXPECT_THAT(linesWith(lines(), "More objects to release..."), IsEmpty());
}

TEST_F(WatchdogTest, PendingChainEndsWithTheFrame)
{
    const Window parent;
    const Window pane(parent, WS_CHILD);
    push(pane);
    CBeanFrame::deleteInstance();
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
}
