// The server module: what it is made of, and its message loop. What needs the real executable is tested with it.
#include "server/KESTAserver.h"

#include "beanframe/BeanFrame.h"
#include "support/registry.h"
#include "tests/com/ComWorld.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <thread>

using testing::ElementsAre;

namespace {

// Opens the module's protected parts.
struct ModuleAccess : CKESTAserverModule
{
    using CKESTAserverModule::m_bInitFailed;
    using CKESTAserverModule::RunMessageLoop;
};

// One object text and one class name in the lines of an object, however many of its bases log: Loggable is a virtual base, so
// that a class which adds it once more still has one.
template <class T>
struct LoggingTwice : T, virtual Loggable
{
};
template <class T>
constexpr bool LOGS_ONCE = std::is_convertible_v<LoggingTwice<T>*, Loggable*>;
static_assert(LOGS_ONCE<CKESTAserverModule> && LOGS_ONCE<CJavaManagerATLObject> && LOGS_ONCE<CBeanFrame> &&
              LOGS_ONCE<CJavaManagerJNIClient> && LOGS_ONCE<CRegistry> && LOGS_ONCE<CRegistrySubKeys>);

} // namespace

class ServerModuleTest : public ComWorld
{
protected:
    std::vector<std::string> lines() const { return moduleLines(stream, "KESTAserver"); }
    static void post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), message, wParam, lParam));
    }
    static void run(CKESTAserverModule& server) { (server.*&ModuleAccess::RunMessageLoop)(); }
    static inline const std::string MODULE = "CKESTAserverModule  ";
};

TEST_F(ServerModuleTest, HasItsConstants)
{
    CKESTAserverModule server;
    EXPECT_EQ(server.m_dwMainThreadID, GetCurrentThreadId());
    EXPECT_EQ(server.m_dwTimeOut, 5000u);
    EXPECT_EQ(server.m_dwPause, 1000u);
    EXPECT_TRUE(server.m_bDelayShutdown);
    EXPECT_FALSE(server.m_bActivity);
    EXPECT_FALSE(server.m_bComInitialized);
    EXPECT_FALSE(server.*&ModuleAccess::m_bInitFailed);
    EXPECT_STREQ(server.GetAppIdT(), "{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}");
    EXPECT_EQ(WM_PROCESSEVENTQUEUE, 32771u);
}

TEST_F(ServerModuleTest, HoldsTheLoggerFromItsConstructionToItsEnd)
{
    std::optional<CKESTAserverModule> server(std::in_place);
    EXPECT_THAT(moduleLines(stream, "JavaManagerATLObject"), ElementsAre("INFO -> ObjectMain 1", "INFO <- ObjectMain 1"));
    stream.clear();
    server.reset();
    EXPECT_THAT(moduleLines(stream, "JavaManagerATLObject"), ElementsAre("INFO -> ObjectMain 0", "INFO <- ObjectMain 0"));
    EXPECT_NE(Logger::instance(), nullptr) << "the reference of the static guard is still there";
}

TEST_F(ServerModuleTest, RegistersAndUnregistersItsAppId)
{
    const auto appId = [] {
        char text[100] = {};
        DWORD size = sizeof text;
        RegGetValueA(HKEY_CLASSES_ROOT, "AppID\\{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}", nullptr, RRF_RT_REG_SZ, nullptr, text,
                     &size);
        return std::string(text);
    };
    const CKESTAserverModule server;
    EXPECT_EQ(CKESTAserverModule::UpdateRegistryAppId(TRUE), S_OK);
    EXPECT_EQ(appId(), "KESTAserver");
    EXPECT_EQ(CKESTAserverModule::UpdateRegistryAppId(FALSE), S_OK);
    EXPECT_EQ(appId(), "");
}

TEST_F(ServerModuleTest, LoopLogsEachMessageAndEndsOnQuit)
{
    CKESTAserverModule server;
    stream.clear();
    post(WM_APP + 7, 5, -6);
    post(WM_PROCESSEVENTQUEUE);
    PostQuitMessage(0);
    run(server);
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + MODULE + "RunMessageLoop ",
                                     "FINE " + MODULE + "window message: message=32775, lParam=-6, wParam=5",
                                     "FINE " + MODULE + "window message: message=32771, lParam=0, wParam=0",
                                     "FINE <- " + MODULE + "RunMessageLoop "));
    EXPECT_THAT(linesWith(moduleLines(stream, "BeanFrame"), "processEventQueue"),
                ElementsAre("FINE -> processEventQueue ", "FINE <- processEventQueue "))
        << "for the one message, with an empty queue";
}

TEST_F(ServerModuleTest, LoopHandlesItsMessageThenTranslatesAndDispatchesEveryOne)
{
    CKESTAserverModule server;
    const ImportHook<decltype(&TranslateMessage)> translate("TranslateMessage", [](const MSG* message) -> BOOL {
        OutputDebugStringA(("translate " + std::to_string(message->message) + "\n").c_str());
        return FALSE;
    });
    const ImportHook<decltype(&DispatchMessageA)> dispatch("DispatchMessageA", [](const MSG* message) -> LRESULT {
        OutputDebugStringA(("dispatch " + std::to_string(message->message) + "\n").c_str());
        return 0;
    });
    stream.clear();
    post(WM_APP + 3, static_cast<WPARAM>(-1), static_cast<LPARAM>(1) << 40);
    post(WM_APP + 4);
    PostQuitMessage(0);
    run(server);
    EXPECT_THAT(stream.messages(),
                ElementsAre("FINE " + MODULE + "RunMessageLoop ",
                            "FINE " + MODULE +
                                "window message: message=32771, lParam=1099511627776, "
                                "wParam=18446744073709551615",
                            "FINE processEventQueue ", "FINE processEventQueue ", "translate 32771", "dispatch 32771",
                            "FINE " + MODULE + "window message: message=32772, lParam=0, wParam=0", "translate 32772",
                            "dispatch 32772", "FINE " + MODULE + "RunMessageLoop "));
}

TEST_F(ServerModuleTest, LoopTakesTheMessagesOfAllWindowsAndEndsOnAnError)
{
    CKESTAserverModule server;
    static int s_calls;
    s_calls = 0;
    const ImportHook<decltype(&GetMessageA)> getMessage("GetMessageA", [](LPMSG, HWND window, UINT first, UINT last) -> BOOL {
        EXPECT_EQ(window, nullptr);
        EXPECT_EQ(first, 0u);
        EXPECT_EQ(last, 0u);
        ++s_calls;
        return -1;
    });
    stream.clear();
    run(server);
    EXPECT_EQ(s_calls, 1);
    EXPECT_THAT(lines(), ElementsAre("FINE -> " + MODULE + "RunMessageLoop ", "FINE <- " + MODULE + "RunMessageLoop "));
}

TEST_F(ServerModuleTest, LoopLogsNoMessagesBelowFine)
{
    CKESTAserverModule server;
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    stream.clear();
    post(WM_APP + 7);
    PostQuitMessage(0);
    run(server);
    EXPECT_THAT(stream.lines(), testing::SizeIs(0));
}

TEST_F(ServerModuleTest, LoopDispatchesToWindows)
{
    static int s_received;
    s_received = 0;
    WNDCLASSA windowClass = {};
    windowClass.lpszClassName = "ServerModuleTest";
    windowClass.lpfnWndProc = [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_APP + 1) {
            s_received = static_cast<int>(wParam);
        }
        return DefWindowProcA(window, message, wParam, lParam);
    };
    RegisterClassA(&windowClass);
    const HWND window = CreateWindowA("ServerModuleTest", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    ASSERT_NE(window, nullptr);
    CKESTAserverModule server;
    PostMessageA(window, WM_APP + 1, 42, 0);
    PostQuitMessage(0);
    run(server);
    EXPECT_EQ(s_received, 42);
    DestroyWindow(window);
    UnregisterClassA("ServerModuleTest", nullptr);
}

// From a Java thread through queue and loop to the client's sink, on the thread of the loop.
TEST_F(ServerModuleTest, LoopCarriesEventsToTheSinks)
{
    NativeEnvironment environment;
    CKESTAserverModule server;
    RecordingSink sink;
    CComPtr<Object> object = create();
    advise(object, sink);
    DWORD firingThread = 0;
    sink.onCall = [&] {
        firingThread = GetCurrentThreadId();
        if (sink.calls.size() == 3) {
            PostQuitMessage(0);
        }
    };
    std::thread javaThread([&] {
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text("ready"));
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("custom"));
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, NativeEnvironment::text("abc"), 50);
    });
    run(server);
    javaThread.join();
    EXPECT_EQ(firingThread, GetCurrentThreadId());
    std::vector<std::string> texts;
    for (const RecordingSink::Call& call : sink.calls) {
        texts.push_back(std::to_string(call.event) + " " + call.text);
    }
    EXPECT_THAT(texts, testing::UnorderedElementsAre("3 ready", "4 custom", "2 abcjs"));
    EXPECT_EQ(texts.back(), "2 abcjs") << "delayed";
    object.Release();
}

// A window procedure with a loop of its own, as COM and dialogs have them, drops the thread's messages.
TEST_F(ServerModuleTest, EventsWhoseMessageAForeignLoopSwallowedStillCome)
{
    static NativeEnvironment s_environment;
    WNDCLASSA windowClass = {};
    windowClass.lpszClassName = "ServerModuleForeignLoop";
    windowClass.lpfnWndProc = [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_APP + 1) {
            CBeanFrame::NativeOnCustomEvent(s_environment.env(), nullptr, NativeEnvironment::text("swallowed"));
            MSG dropped;
            while (PeekMessageA(&dropped, nullptr, 0, 0, PM_REMOVE)) {
                DispatchMessageA(&dropped);
            }
        }
        return DefWindowProcA(window, message, wParam, lParam);
    };
    RegisterClassA(&windowClass);
    const HWND window = CreateWindowA("ServerModuleForeignLoop", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    ASSERT_NE(window, nullptr);
    CKESTAserverModule server;
    RecordingSink sink;
    CComPtr<Object> object = create();
    advise(object, sink);
    sink.onCall = [] { PostQuitMessage(0); };
    PostMessageA(window, WM_APP + 1, 0, 0);
    run(server);
    EXPECT_THAT(sink.calls, ElementsAre(RecordingSink::Call{4, "swallowed"}));
    DestroyWindow(window);
    UnregisterClassA("ServerModuleForeignLoop", nullptr);
    object.Release();
}

// The watchdog's end of an object, with COM's own references gone and the client's still there.
TEST_F(ServerModuleTest, DeadClientsObjectGoesWithItsSinksAndItsFrame)
{
    CKESTAserverModule server;
    RecordingSink sink;
    Object* object = create().Detach();
    advise(object, sink);
    object->AddRef();
    const HWND dead = CreateWindowExA(0, "STATIC", "", WS_OVERLAPPEDWINDOW, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(object->pushWindowHandle(static_cast<int>(reinterpret_cast<INT_PTR>(dead))), S_OK);
    struct FrameAccess : CBeanFrame
    {
        using CBeanFrame::processWatchDogEvent;
    };
    (CBeanFrame::s_Instance->*&FrameAccess::processWatchDogEvent)(nullptr);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(sink.references, 0u);
    DestroyWindow(dead);
}
