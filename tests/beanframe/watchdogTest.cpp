// The client's window, the watchdog chains and the forced release.
#include "tests/beanframe/BeanFrameWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A real window, destroyed at the end of the test.
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

    void destroy() { DestroyWindow(m_handle); }
    operator HWND() const { return m_handle; }

private:
    HWND m_handle;
};

using DisconnectHook = ImportHook<decltype(&CoDisconnectObject)>;

RecordingTarget* s_target = nullptr;
std::function<void()> s_onDisconnect;

HRESULT WINAPI noteDisconnect(IUnknown* object, DWORD)
{
    EXPECT_TRUE(object == s_target || object == &s_target->point);
    s_target->calls.emplace_back(object == s_target ? "CoDisconnectObject" : "CoDisconnectObject point");
    if (s_onDisconnect) {
        s_onDisconnect();
    }
    return S_OK;
}

} // namespace

class WatchdogTest : public BeanFrameWorld
{
protected:
    void SetUp() override
    {
        s_target = &target;
        s_onDisconnect = nullptr;
        createFrame();
    }
    void push(HWND window)
    {
        EXPECT_EQ(frame().pushWindowHandle(HandleToLong(window)), S_OK);
        stream.clear();
    }
    // Processes the watchdog's due entry.
    static void bark() { EXPECT_EQ(processAt(s_now + 15000), S_OK); }
    // Each chain has one entry with an empty text, due in 15 seconds.
    static void expectChains(size_t count)
    {
        EXPECT_THAT(FrameAccess::s_EventQueue, SizeIs(count));
        for (const FrameAccess::QueueEntry* const entry : FrameAccess::s_EventQueue) {
            EXPECT_EQ(entry->dueTime, s_now + 15000);
            EXPECT_TRUE(entry->handler == &FrameAccess::processWatchDogEvent);
            EXPECT_STREQ(entry->text.narrow(), "");
        }
    }

    const DisconnectHook disconnectHook{"CoDisconnectObject", noteDisconnect};
};

// The new window already counts for an event that Java raises as soon as the bean is in the frame.
TEST_F(WatchdogTest, PushedHandleIsKeptThenTheBeanAddedAndThenAChainStarted)
{
    java->insideMethods = [&] {
        EXPECT_EQ(reinterpret_cast<INT_PTR>((frame().*&FrameAccess::clientWindow).load()), -2) << "widened with its sign";
        EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty());
    };
    EXPECT_EQ(frame().pushWindowHandle(-2), S_OK);
    EXPECT_THAT(java->takeMethodCalls(), ElementsAre("CallObjectMethod(KESTAFrame, add, Control)"));
    EXPECT_THAT(lines({"BeanFrame"}),
                ElementsAre("INFO -> @frame pushWindowHandle -2", "TRACE @frame Starting WatchDog on server side...",
                            "FINE -> @frame queueEvent 15000", "TRACE @frame queued new event: #1",
                            "FINE <- @frame queueEvent 15000", "INFO <- @frame pushWindowHandle -2"));
    expectChains(1);
}

TEST_F(WatchdogTest, ChainStartsAlsoWhenTheBeanCouldNotBeAdded)
{
    java->jni.outcomes["add"] = RecordingJni::throws("java.lang.IllegalStateException", "no");
    EXPECT_EQ(frame().pushWindowHandle(-2), E_FAIL);
    expectChains(1);
    CJavaManagerJNIClient* const bridge = std::exchange(CJavaManagerJNIClient::s_Instance, nullptr);
    EXPECT_EQ(frame().pushWindowHandle(0), E_FAIL);
    CJavaManagerJNIClient::s_Instance = bridge;
    expectChains(2);
}

TEST_F(WatchdogTest, ClientIsAliveWhileItsWindowExistsAndHasAProperParent)
{
    const Window topLevel;
    const Window pane(topLevel, WS_CHILD);
    const Window popup(topLevel, WS_POPUP); // whose owner Windows names as its parent
    const Window onDesktop(GetDesktopWindow(), WS_CHILD);
    Window destroyed(topLevel, WS_CHILD);
    destroyed.destroy();
    Window parent;
    const Window goneWithItsParent(parent, WS_CHILD);
    parent.destroy();

    const char* const invalid = "TRACE @frame Frame's window seems not to be alive anymore! (invalid window handle) ";
    const char* const noParent = "TRACE @frame Frame's window has no valid parent anymore!";
    const struct
    {
        HWND window;
        bool isAlive;
        const char* line;
    } cases[] = {
        {nullptr, true, "TRACE @frame Frame's window not yet set, thus no check!"},
        {pane, true, nullptr},
        {popup, true, nullptr},
        {onDesktop, false, noParent},
        {topLevel, false, noParent},
        {destroyed, false, invalid},
        {goneWithItsParent, false, invalid},
        {nullptr, true, "TRACE @frame Frame's window not yet set, thus no check!"},
    };
    for (const auto& tested : cases) {
        push(tested.window);
        EXPECT_EQ(frame().isClientAlive(), tested.isAlive);
        std::vector<std::string> expected = {"FINE -> @frame isClientAlive ", "FINE <- @frame isClientAlive "};
        if (tested.line != nullptr) {
            expected.insert(expected.begin() + 1, tested.line);
        }
        EXPECT_EQ(lines(), expected);
    }
}

TEST_F(WatchdogTest, ChainGoesOnWhileTheClientIsAlive)
{
    for (int round = 0; round < 3; ++round) {
        round == 0 ? push(nullptr) : bark();
        expectChains(1);
    }
    EXPECT_THAT(target.calls, IsEmpty());
    EXPECT_THAT(linesWith(lines(), "WARN"), IsEmpty());
}

TEST_F(WatchdogTest, ChainGoesOnWithoutComObject)
{
    killClient();
    RecordingTarget::s_current = nullptr;
    (frame().*&FrameAccess::processWatchDogEvent)(CComBSTR(L"text"));
    expectChains(1);
    EXPECT_THAT(lines(), ElementsAre("FINE -> @frame processWatchDogEvent text", "FINE -> @frame queueEvent 15000",
                                     "TRACE @frame queued new event: #1", "FINE <- @frame queueEvent 15000",
                                     "FINE <- @frame processWatchDogEvent text"))
        << "nobody asks for the client";
}

TEST_F(WatchdogTest, SecondPushStartsASecondChainAndBothWatchTheLatestHandle)
{
    push(reinterpret_cast<HWND>(-2));
    push(nullptr);
    bark();
    expectChains(2);
    killClient();
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    bark();
    EXPECT_EQ(target.references, 0u);
    EXPECT_THAT(FrameAccess::s_EventQueue, IsEmpty()) << "the other chain went with the frame";
}

TEST_F(WatchdogTest, DeadClientLosesEveryReference)
{
    push(nullptr);
    killClient();
    target.references = 3;
    s_onDisconnect = [] { EXPECT_FALSE(isQueueLocked()); };
    target.onLastRelease = [] { CBeanFrame::deleteInstance(); };
    bark();
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "CoDisconnectObject", "CoDisconnectObject point", "Release", "Release",
                                          "Release", "Release"));
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);

    std::vector<std::string> all = lines({"BeanFrame"});
    all.erase(all.begin(), std::find(all.begin(), all.end(), "FINE -> @frame processWatchDogEvent "));
    EXPECT_THAT(all,
                ElementsAre("FINE -> @frame processWatchDogEvent ", "FINE -> @frame isClientAlive ",
                            "TRACE @frame Frame's window seems not to be alive anymore! (invalid window handle) ",
                            "FINE <- @frame isClientAlive ", "WARN @frame Client seems to be not alive... releasing event sinks.",
                            "WARN @frame Releasing ATL object.", "TRACE @frame More objects to release...",
                            "TRACE @frame More objects to release...", "TRACE @frame More objects to release...",
                            "INFO -> deleteInstance ", "TRACE s_Instance!=NULL: true", "INFO -> @frame ~CBeanFrame ",
                            "INFO <- @frame ~CBeanFrame ", "INFO <- deleteInstance ", "INFO Releasing all sinks and objects done",
                            "FINE <- @frame processWatchDogEvent ", "FINE <- @frame processQueueEntry ",
                            "FINE <- processEventQueue "));
}

// The disconnection drops what COM held for the client. Each round looks up the current object again.
TEST_F(WatchdogTest, ForcedReleaseFollowsTheProcessesObject)
{
    killClient();
    RecordingTarget other;
    other.references = 2;
    RecordingTarget::s_current = &target;
    target.references = 5;
    s_onDisconnect = [&] {
        target.references = 3;
        RecordingTarget::s_current = &other;
    };
    queue("", &FrameAccess::processWatchDogEvent);
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(target.calls, ElementsAre("AddRef", "CoDisconnectObject", "CoDisconnectObject point", "Release"));
    EXPECT_THAT(other.calls, ElementsAre("Release", "Release"));
    EXPECT_THAT(linesWith(lines(), "More objects to release..."), SizeIs(2));
}
