// The server module and its message loop. The process tests cover what needs the real executable.
#include "server/KESTAserver.h"

#include "server/RejectedCallFilter.h"
#include "support/registry.h"
#include "tests/com/ComWorld.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <format>
#include <optional>
#include <thread>

using testing::ElementsAre;

namespace {

struct ModuleAccess : CKESTAserverModule
{
    using CKESTAserverModule::m_bInitFailed;
    using CKESTAserverModule::RunMessageLoop;
};

struct FrameAccess : CBeanFrame
{
    using CBeanFrame::processWatchDogEvent;
};

// An object has one class name and one text in its lines, no matter how many of its bases log: Loggable is a virtual base, so a
// class that adds it again still has only one.
template <class T>
struct LoggingTwice : T, virtual Loggable
{
};
template <class T>
constexpr bool LOGS_ONCE = std::is_convertible_v<LoggingTwice<T>*, Loggable*>;
static_assert(LOGS_ONCE<CKESTAserverModule> && LOGS_ONCE<CJavaManagerATLObject> && LOGS_ONCE<CBeanFrame> &&
              LOGS_ONCE<CJavaManagerJNIClient> && LOGS_ONCE<CRegistry> && LOGS_ONCE<CRegistrySubKeys>);

// An invisible window of this thread.
class Window
{
public:
    explicit Window(WNDPROC procedure = DefWindowProcA)
        : m_handle(CreateWindowA("STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr))
    {
        EXPECT_NE(m_handle, nullptr);
        SetWindowLongPtrA(m_handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure));
    }
    ~Window() { DestroyWindow(m_handle); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    operator HWND() const { return m_handle; }

private:
    HWND m_handle;
};

std::vector<std::string> s_calls;

} // namespace

class ServerModuleTest : public ComWorld
{
protected:
    ServerModuleTest() { s_calls.clear(); }
    static void post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), message, wParam, lParam));
    }
    // Runs the loop. WM_QUIT comes after all posted messages.
    void run()
    {
        stream.clear();
        ((*server).*&ModuleAccess::RunMessageLoop)();
    }

    std::optional<CKESTAserverModule> server{std::in_place};
};

TEST_F(ServerModuleTest, HasItsConstants)
{
    EXPECT_EQ(server->m_dwMainThreadID, GetCurrentThreadId());
    EXPECT_EQ(server->m_dwTimeOut, 5000u);
    EXPECT_EQ(server->m_dwPause, 1000u);
    EXPECT_TRUE(server->m_bDelayShutdown);
    EXPECT_FALSE(server->m_bActivity);
    EXPECT_FALSE(server->m_bComInitialized);
    EXPECT_FALSE((*server).*&ModuleAccess::m_bInitFailed);
    EXPECT_STREQ(server->GetAppIdT(), "{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}");
}

TEST_F(ServerModuleTest, HoldsTheLoggerFromItsConstructionToItsEnd)
{
    server.reset();
    EXPECT_THAT(lines({"JavaManagerATLObject"}),
                ElementsAre("INFO -> ObjectMain 1", "INFO <- ObjectMain 1", "INFO -> ObjectMain 0", "INFO <- ObjectMain 0"));
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
    EXPECT_EQ(CKESTAserverModule::UpdateRegistryAppId(TRUE), S_OK);
    EXPECT_EQ(appId(), "KESTAserver");
    EXPECT_EQ(CKESTAserverModule::UpdateRegistryAppId(FALSE), S_OK);
    EXPECT_EQ(appId(), "");
}

// Also when a message of that number is for a window.
TEST_F(ServerModuleTest, LoopHandlesItsMessageThenTranslatesAndDispatchesEveryOne)
{
    const ImportHook<decltype(&TranslateMessage)> translate("TranslateMessage", [](const MSG* message) -> BOOL {
        OutputDebugStringA(std::format("translate {}\n", message->message).c_str());
        return FALSE;
    });
    const ImportHook<decltype(&DispatchMessageA)> dispatch("DispatchMessageA", [](const MSG* message) -> LRESULT {
        OutputDebugStringA(std::format("dispatch {}\n", message->message).c_str());
        return 0;
    });
    const Window window;
    post(WM_APP + 3, static_cast<WPARAM>(-1), static_cast<LPARAM>(1) << 40);
    post(WM_APP + 4, 5, -6);
    EXPECT_TRUE(PostMessageA(window, WM_APP + 3, 0, 0));
    PostQuitMessage(0);
    run();
    EXPECT_THAT(lines(),
                ElementsAre("FINE -> @module RunMessageLoop ",
                            "FINE @module window message: message=32771, lParam=1099511627776, wParam=18446744073709551615",
                            "FINE -> processEventQueue ", "FINE <- processEventQueue ", "translate 32771", "dispatch 32771",
                            "FINE @module window message: message=32772, lParam=-6, wParam=5", "translate 32772",
                            "dispatch 32772", "FINE @module window message: message=32771, lParam=0, wParam=0",
                            "FINE -> processEventQueue ", "FINE <- processEventQueue ", "translate 32771", "dispatch 32771",
                            "FINE <- @module RunMessageLoop "));
}

TEST_F(ServerModuleTest, LoopTakesTheMessagesOfAllWindowsAndEndsOnAnError)
{
    const ImportHook<decltype(&GetMessageA)> getMessage("GetMessageA", [](LPMSG, HWND window, UINT first, UINT last) -> BOOL {
        s_calls.push_back(std::format("{} {} {}", reinterpret_cast<INT_PTR>(window), first, last));
        return -1;
    });
    run();
    EXPECT_THAT(s_calls, ElementsAre("0 0 0"));
}

TEST_F(ServerModuleTest, LoopBuildsNoTextBelowFine)
{
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    PostQuitMessage(0);
    run(); // the first scope creates the cached class name
    post(WM_APP + 7);
    PostQuitMessage(0);
    {
        const FailingAllocations failing(FailingAllocations::Kind::All);
        run();
    }
    EXPECT_EQ(FailingAllocations::refused(), 0) << "a text would have needed memory";
    EXPECT_THAT(stream.messages(), testing::SizeIs(0));
}

// From a Java thread through queue and loop to the client's sink, on the loop's thread.
TEST_F(ServerModuleTest, LoopCarriesEventsToTheSinks)
{
    NativeEnvironment environment;
    RecordingSink sink;
    const CComPtr<Object> object = create();
    advise(object, sink);
    const DWORD loopThread = GetCurrentThreadId();
    sink.onCall = [&] {
        EXPECT_EQ(GetCurrentThreadId(), loopThread);
        if (sink.calls.size() == 3) {
            PostQuitMessage(0);
        }
    };
    std::thread javaThread([&] {
        CBeanFrame::NativeOnControlReady(environment.env(), nullptr, NativeEnvironment::text("ready"));
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("custom"));
        CBeanFrame::NativeTestBridgeEvent(environment.env(), nullptr, NativeEnvironment::text("abc"), 50);
    });
    run();
    javaThread.join();
    EXPECT_THAT(sink.calls, testing::UnorderedElementsAre("3 ready", "4 custom", "2 abcjs"));
    EXPECT_EQ(sink.calls.back(), "2 abcjs") << "delayed";
}

// Threads may post as fast as a pass removes.
TEST_F(ServerModuleTest, CallsOvertakeTheMessagesOfEventsThatComeTooFast)
{
    using PeekHook = ImportHook<decltype(&PeekMessageA)>;
    const PeekHook hook("PeekMessageA", [](LPMSG message, HWND window, UINT first, UINT last, UINT flags) -> BOOL {
        const bool isRemoval = first == WM_PROCESSEVENTQUEUE && (flags & PM_REMOVE) != 0;
        return !isRemoval && PeekHook::s_original(message, window, first, last, flags);
    });
    const Window window([](HWND handle, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_USER) {
            PostQuitMessage(0);
        }
        return DefWindowProcA(handle, message, wParam, lParam);
    });
    for (int number = 0; number < 4; ++number) {
        post(WM_PROCESSEVENTQUEUE);
    }
    PostMessageA(window, WM_USER, 0, 0);
    run();
    const auto passes = std::ranges::count(lines(), "FINE -> processEventQueue ");
    EXPECT_EQ(passes, 2) << "the call came after one, the end after another";
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
}

// A window procedure with its own message loop, as in COM and dialogs, drops thread messages.
TEST_F(ServerModuleTest, EventsWhoseMessageAForeignLoopSwallowedStillCome)
{
    static NativeEnvironment s_environment;
    const Window window([](HWND handle, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_APP + 1) {
            CBeanFrame::NativeOnCustomEvent(s_environment.env(), nullptr, NativeEnvironment::text("swallowed"));
            MSG dropped;
            while (PeekMessageA(&dropped, nullptr, 0, 0, PM_REMOVE)) {
                DispatchMessageA(&dropped);
            }
        }
        return DefWindowProcA(handle, message, wParam, lParam);
    });
    RecordingSink sink;
    const CComPtr<Object> object = create();
    advise(object, sink);
    sink.onCall = [] { PostQuitMessage(0); };
    PostMessageA(window, WM_APP + 1, 0, 0);
    run();
    EXPECT_THAT(sink.calls, ElementsAre("4 swallowed"));
}

class RejectedCallFilterTest : public ServerModuleTest
{
};

TEST_F(RejectedCallFilterTest, IsRegisteredWhileTheLoopRuns)
{
    static std::vector<IMessageFilter*> s_filters;
    s_filters.clear();
    const ImportHook<decltype(&CoRegisterMessageFilter)> hook("CoRegisterMessageFilter",
                                                              [](IMessageFilter* filter, IMessageFilter** previous) -> HRESULT {
                                                                  EXPECT_EQ(previous, nullptr);
                                                                  s_filters.push_back(filter);
                                                                  return S_OK;
                                                              });
    static size_t s_registered;
    s_registered = 0;
    const Window window([](HWND handle, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        s_registered += message == WM_APP ? s_filters.size() : 0;
        return DefWindowProcA(handle, message, wParam, lParam);
    });
    PostMessageA(window, WM_APP, 0, 0);
    PostQuitMessage(0);
    run();
    EXPECT_EQ(s_registered, 1u);
    EXPECT_THAT(s_filters, ElementsAre(testing::NotNull(), testing::IsNull()));
}

TEST_F(RejectedCallFilterTest, RetriesForFiveSecondsAndSaysThatItGaveUp)
{
    CRejectedCallFilter filter;
    stream.clear();
    for (const DWORD type : {SERVERCALL_REJECTED, SERVERCALL_RETRYLATER}) {
        EXPECT_EQ(filter.RetryRejectedCall(nullptr, 0, type), 100u);
        EXPECT_EQ(filter.RetryRejectedCall(nullptr, 4999, type), 100u);
    }
    EXPECT_THAT(lines(), ElementsAre());
    EXPECT_EQ(filter.RetryRejectedCall(nullptr, 5000, SERVERCALL_RETRYLATER), static_cast<DWORD>(-1));
    EXPECT_THAT(lines(), ElementsAre("WARN A call was given up: the client has rejected it for 5000 ms."));
}

TEST_F(RejectedCallFilterTest, HandlesCallsAndMessagesAsComDoesWithoutOne)
{
    CRejectedCallFilter filter;
    EXPECT_EQ(filter.HandleInComingCall(CALLTYPE_TOPLEVEL, nullptr, 0, nullptr), static_cast<DWORD>(SERVERCALL_ISHANDLED));
    EXPECT_EQ(filter.MessagePending(nullptr, 0, PENDINGTYPE_TOPLEVEL), static_cast<DWORD>(PENDINGMSG_WAITDEFPROCESS));
    void* object = nullptr;
    EXPECT_EQ(filter.QueryInterface(IID_IMessageFilter, &object), S_OK);
    EXPECT_EQ(object, static_cast<IMessageFilter*>(&filter));
    EXPECT_EQ(filter.QueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(filter.QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(filter.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

// COM drops what it holds for the client: the connection point, an enumerator that the client still has, and the object. From the
// first to the last of them no memory is needed.
TEST_F(ServerModuleTest, DeadClientsObjectGoesWithItsSinksAndItsFrame)
{
    static std::vector<IUnknown*> s_disconnected;
    static CComPtr<IEnumConnectionPoints> s_points;
    static std::optional<FailingAllocations> s_failing;
    s_disconnected.clear();
    s_disconnected.reserve(10);
    RecordingSink sink;
    Object* const object = create().Detach();
    advise(object, sink);
    object->AddRef();
    EXPECT_EQ(object->EnumConnectionPoints(&s_points), S_OK);
    const std::vector<IUnknown*> expected = {eventTarget()->targetUnknown(), point(object).p, s_points.p};
    const Window window;
    EXPECT_EQ(object->pushWindowHandle(HandleToLong(HWND{window})), S_OK) << "without a parent it counts as dead";
    const ImportHook<decltype(&CoDisconnectObject)> hook("CoDisconnectObject", [](IUnknown* disconnected, DWORD) -> HRESULT {
        s_disconnected.push_back(disconnected);
        if (disconnected == s_points.p) {
            s_failing.reset();
            s_points.Release();
        } else if (!s_failing) {
            s_failing.emplace(FailingAllocations::Kind::All);
        }
        return S_OK;
    });
    (CBeanFrame::s_Instance->*&FrameAccess::processWatchDogEvent)(nullptr);
    EXPECT_EQ(s_disconnected, expected);
    EXPECT_EQ(FailingAllocations::refused(), 0);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(sink.references, 0u);
}
