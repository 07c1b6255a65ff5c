// The life of a server: its module's calls of Windows, in order and with their arguments, and the exit code.
#include "tests/atl/moduleFixture.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <atomic>
#include <optional>
#include <stdexcept>

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

using Initialize = ImportHook<decltype(&CoInitialize)>;
using Uninitialize = ImportHook<decltype(&CoUninitialize)>;
using CommandLine = ImportHook<decltype(&GetCommandLineA)>;
using ModuleHandle = ImportHook<decltype(&GetModuleHandleA)>;
using RegisterClassObject = ImportHook<decltype(&CoRegisterClassObject)>;
using ResumeClassObjects = ImportHook<decltype(&CoResumeClassObjects)>;
using RevokeClassObject = ImportHook<decltype(&CoRevokeClassObject)>;
using Peek = ImportHook<decltype(&PeekMessageA)>;
using MakeEvent = ImportHook<decltype(&CreateEventA)>;
using MakeThread = ImportHook<decltype(&CreateThread)>;
using Wait = ImportHook<decltype(&WaitForSingleObject)>;
using Close = ImportHook<decltype(&CloseHandle)>;
using Post = ImportHook<decltype(&PostThreadMessageA)>;
using Quit = ImportHook<decltype(&PostQuitMessage)>;
using Pause = ImportHook<decltype(&Sleep)>;

using Events = std::vector<std::string>;

// The results of Windows' functions.
struct SWindows
{
    HRESULT initialize = S_OK;
    HRESULT registerClass = S_OK;
    HRESULT resume = S_OK;
    HRESULT revoke = S_OK;
    bool isManaged = false;
    bool hasEvent = true;
    bool hasThread = true;
    int failingPosts = 0;
    DWORD postError = ERROR_NOT_ENOUGH_QUOTA;
};
SWindows s_windows;

// The monitor thread's calls. Read only when it has ended: each list belongs to one thread.
Events s_monitorEvents;
DWORD s_mainThread;
std::atomic<HANDLE> s_event;
std::atomic<HANDLE> s_thread;

void note(const std::string& event)
{
    (GetCurrentThreadId() == s_mainThread ? s_events : s_monitorEvents).push_back(event);
}

// The two handles of the module; the runtime library waits for others.
void noteHandle(const char* what, HANDLE handle, const std::string& more = {})
{
    if (handle != nullptr && (handle == s_event || handle == s_thread)) {
        note(what + std::string(handle == s_event ? " event" : " thread") + more);
    }
}

class ModuleTest : public testing::Test
{
protected:
    ModuleTest() { s_mainThread = GetCurrentThreadId(); }

    // Runs a server to its end, with one client that comes and goes.
    static HRESULT run(const SWindows& windows = {}, bool delayShutdown = true)
    {
        MSG left;
        PeekMessageA(&left, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE); // from a start that failed
        s_windows = windows;
        s_monitorEvents.clear();
        std::optional<CTestModule> module(std::in_place);
        module->m_bDelayShutdown = delayShutdown;
        takeEvents();
        const HRESULT hr = module->WinMain(SW_HIDE);
        s_events.push_back("end");
        module.reset();
        std::erase_if(s_events, [](const std::string& event) { return event.starts_with("ObjectMain"); });
        return hr;
    }
    static Events with(Events events, const Events& further)
    {
        events.insert(events.end(), further.begin(), further.end());
        return events;
    }

    // How each successful start begins.
    static inline const Events COM = {"CoInitialize", "GetCommandLineA"};
    static inline const Events REGISTERED = with(COM, {"CoRegisterClassObject 1 4 4", "CoRegisterClassObject 2 4 4"});
    static inline const Events WITH_EVENT = with(REGISTERED, {"PeekMessageA 1024 1024 0", "CreateEventA 0 0"});
    static inline const Events WITH_THREAD = with(WITH_EVENT, {"CreateThread"});
    static inline const Events RUNNING = with(WITH_THREAD, {"CoResumeClassObjects", "loop"});
    static inline const Events REVOKED = {"CoRevokeClassObject 1", "CoRevokeClassObject 2"};
    // What the module's destructor does with a monitor thread that is still there.
    static inline const Events ENDED = {"end", "WaitForSingleObject thread 10000", "CloseHandle thread"};
    static inline const std::string POST = "PostThreadMessageA main 18 0 0";

private:
    const Initialize m_initialize{"CoInitialize", [](LPVOID reserved) -> HRESULT {
                                      note(reserved == nullptr ? "CoInitialize" : "CoInitialize with something");
                                      return s_windows.initialize;
                                  }};
    const Uninitialize m_uninitialize{"CoUninitialize", [] { note("CoUninitialize"); }};
    const CommandLine m_commandLine{"GetCommandLineA", []() -> LPSTR {
                                        note("GetCommandLineA");
                                        static char s_commandLine[] = "server.exe -Embedding";
                                        return s_commandLine;
                                    }};
    const ModuleHandle m_moduleHandle{"GetModuleHandleA", [](LPCSTR name) -> HMODULE {
                                          if (name == nullptr || std::string(name) != "Mscoree.dll") {
                                              return ModuleHandle::s_original(name);
                                          }
                                          return s_windows.isManaged ? ModuleHandle::s_original(nullptr) : nullptr;
                                      }};
    const RegisterClassObject m_registerClass{
        "CoRegisterClassObject", [](REFCLSID clsid, LPUNKNOWN factory, DWORD context, DWORD flags, LPDWORD cookie) -> HRESULT {
            *cookie = clsid == CLSID_First ? 1 : 2;
            note(std::format("CoRegisterClassObject {} {} {}", *cookie, context, flags));
            CComPtr<IClassFactory> asked;
            EXPECT_EQ(factory->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&asked)), S_OK);
            return s_windows.registerClass;
        }};
    const ResumeClassObjects m_resume{"CoResumeClassObjects", []() -> HRESULT {
                                          note("CoResumeClassObjects");
                                          return s_windows.resume;
                                      }};
    const RevokeClassObject m_revoke{"CoRevokeClassObject", [](DWORD cookie) -> HRESULT {
                                         note(std::format("CoRevokeClassObject {}", cookie));
                                         return s_windows.revoke;
                                     }};
    const Peek m_peek{"PeekMessageA", [](LPMSG message, HWND window, UINT first, UINT last, UINT flags) -> BOOL {
                          note(std::format("PeekMessageA {} {} {}", first, last, flags));
                          return Peek::s_original(message, window, first, last, flags);
                      }};
    const MakeEvent m_makeEvent{"CreateEventA", [](LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL set, LPCSTR name) -> HANDLE {
                                    note(std::format("CreateEventA {} {}{}", manual, set, name == nullptr ? "" : " named"));
                                    s_event = s_windows.hasEvent ? MakeEvent::s_original(security, manual, set, name) : nullptr;
                                    return s_event;
                                }};
    const MakeThread m_makeThread{"CreateThread",
                                  [](LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                                     DWORD flags, LPDWORD id) -> HANDLE {
                                      note("CreateThread");
                                      s_thread = s_windows.hasThread
                                                     ? MakeThread::s_original(security, stack, start, parameter, flags, id)
                                                     : nullptr;
                                      return s_thread;
                                  }};
    const Wait m_wait{"WaitForSingleObject", [](HANDLE handle, DWORD limit) -> DWORD {
                          noteHandle("WaitForSingleObject", handle, std::format(" {}", limit));
                          return Wait::s_original(handle, limit);
                      }};
    const Close m_close{"CloseHandle", [](HANDLE handle) -> BOOL {
                            noteHandle("CloseHandle", handle);
                            // The same value may be used for another handle later.
                            for (std::atomic<HANDLE>* const known : {&s_event, &s_thread}) {
                                HANDLE closed = handle;
                                known->compare_exchange_strong(closed, nullptr);
                            }
                            return Close::s_original(handle);
                        }};
    const Post m_post{"PostThreadMessageA", [](DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
                          note(std::format("PostThreadMessageA {} {} {} {}", thread == s_mainThread ? "main" : "somebody",
                                           message, wParam, lParam));
                          SetLastError(s_windows.postError);
                          return s_windows.failingPosts-- <= 0 && Post::s_original(thread, message, wParam, lParam);
                      }};
    const Quit m_quit{"PostQuitMessage", [](int code) {
                          note(std::format("PostQuitMessage {}", code));
                          Quit::s_original(code);
                      }};
    const Pause m_pause{"Sleep", [](DWORD time) { note(std::format("Sleep {}", time)); }};
};

} // namespace

TEST_F(ModuleTest, AWholeLife)
{
    {
        CTestModule module;
        EXPECT_EQ(_pAtlModule, &module);
        EXPECT_FALSE(module.m_bComInitialized);
        module.m_loop = [&] {
            EXPECT_TRUE(module.m_bComInitialized);
            EXPECT_EQ(module.Lock(), 1);
            EXPECT_EQ(module.Lock(), 2);
            EXPECT_EQ(CoAddRefServerProcess(), 3u) << "COM counts the same locks";
            EXPECT_EQ(CoReleaseServerProcess(), 2u);
            EXPECT_EQ(module.Unlock(), 1);
            EXPECT_FALSE(module.m_bActivity);
            EXPECT_EQ(module.Unlock(), 0);
            EXPECT_TRUE(module.m_bActivity);
        };
        EXPECT_EQ(module.WinMain(SW_HIDE), S_OK);
        EXPECT_FALSE(module.m_bComInitialized);
        // A second unlock to zero has nothing to signal.
        module.Lock();
        module.Unlock();
        s_events.push_back("end");
    }
    EXPECT_EQ(_pAtlModule, nullptr);
    EXPECT_THAT(takeEvents(),
                ElementsAre("ObjectMain 1: 1", "ObjectMain 2: 1", "CoInitialize", "GetCommandLineA",
                            "CoRegisterClassObject 1 4 4", "CoRegisterClassObject 2 4 4", "PeekMessageA 1024 1024 0",
                            "CreateEventA 0 0", "CreateThread", "CoResumeClassObjects", "loop", "CoRevokeClassObject 1",
                            "CoRevokeClassObject 2", "Sleep 1000", "CoUninitialize", "end", "WaitForSingleObject thread 10000",
                            "CloseHandle thread", "ObjectMain 1: 0", "ObjectMain 2: 0"));
    EXPECT_THAT(s_monitorEvents, ElementsAre("WaitForSingleObject event 4294967295", "CloseHandle event", POST));
}

TEST_F(ModuleTest, TheFirstFailureDecidesWhatIsUndoneAndTheExitCode)
{
    const struct
    {
        SWindows windows;
        HRESULT result;
        Events events;
    } cases[] = {
        {{.initialize = E_OUTOFMEMORY}, E_OUTOFMEMORY, {"CoInitialize", "end"}},
        {{.initialize = E_OUTOFMEMORY, .isManaged = true}, E_OUTOFMEMORY, {"CoInitialize", "end"}},
        {{.initialize = RPC_E_CHANGED_MODE}, RPC_E_CHANGED_MODE, {"CoInitialize", "end"}},
        {{.registerClass = CO_E_OBJISREG}, CO_E_OBJISREG, with(COM, {"CoRegisterClassObject 1 4 4", "CoUninitialize", "end"})},
        {{.hasEvent = false}, E_FAIL, with(with(WITH_EVENT, REVOKED), {"CoUninitialize", "end"})},
        {{.hasThread = false}, E_FAIL, with(with(with(WITH_THREAD, {"CloseHandle event"}), REVOKED), {"CoUninitialize", "end"})},
        {{.resume = CO_E_SERVER_STOPPING},
         CO_E_SERVER_STOPPING,
         with(
             with(with(WITH_THREAD, {"CoResumeClassObjects", "WaitForSingleObject thread 10000", "CloseHandle thread"}), REVOKED),
             {"CoUninitialize", "end"})},
        {{.revoke = CO_E_OBJNOTREG},
         CO_E_OBJNOTREG,
         with(with(RUNNING, {"CoRevokeClassObject 1", "Sleep 1000", "CoUninitialize"}), ENDED)},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.events));
        EXPECT_EQ(run(each.windows), each.result);
        EXPECT_THAT(takeEvents(), ElementsAreArray(each.events));
    }
}

TEST_F(ModuleTest, ComInAnotherModeServesInAManagedProcess)
{
    EXPECT_EQ(run({.initialize = RPC_E_CHANGED_MODE, .isManaged = true}), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAreArray(with(with(with(RUNNING, REVOKED), {"Sleep 1000"}), ENDED)))
        << "and is not uninitialised";
}

TEST_F(ModuleTest, AStartThatSucceedsOtherwiseSkipsTheLoop)
{
    EXPECT_EQ(run({.resume = S_FALSE}), S_OK);
    EXPECT_THAT(takeEvents(),
                ElementsAreArray(with(
                    with(with(with(WITH_THREAD, {"CoResumeClassObjects"}), REVOKED), {"Sleep 1000", "CoUninitialize"}), ENDED)));
    EXPECT_THAT(s_monitorEvents, ElementsAre("WaitForSingleObject event 4294967295", "CloseHandle event"))
        << "no message loop to end";
}

TEST_F(ModuleTest, WithoutDelayThereIsNoMonitorThreadAndNoPause)
{
    const Events started = with(REGISTERED, {"CoResumeClassObjects"});
    EXPECT_EQ(run({}, false), S_OK);
    EXPECT_THAT(takeEvents(), ElementsAreArray(with(with(with(started, {"loop", POST}), REVOKED), {"CoUninitialize", "end"})));
    EXPECT_EQ(run({.resume = E_ACCESSDENIED}, false), E_ACCESSDENIED);
    EXPECT_THAT(takeEvents(), ElementsAreArray(with(with(started, REVOKED), {"CoUninitialize", "end"})));
    EXPECT_EQ(run({.failingPosts = 9}, false), S_OK) << "the thread cannot empty its full queue while it waits";
    EXPECT_THAT(takeEvents(), ElementsAreArray(with(with(with(started, {"loop", POST, "PostQuitMessage 0"}), REVOKED),
                                                    {"CoUninitialize", "end"})));
}

TEST_F(ModuleTest, TheEndIsPostedUntilTheQueueTakesItUnlessTheThreadIsGone)
{
    EXPECT_EQ(run({.failingPosts = 2}), S_OK);
    EXPECT_THAT(s_monitorEvents,
                ElementsAre("WaitForSingleObject event 4294967295", "CloseHandle event", POST, "Sleep 1", POST, "Sleep 1", POST));
    // A failing start waits for the monitor thread.
    EXPECT_EQ(run({.resume = E_ACCESSDENIED, .failingPosts = 9, .postError = ERROR_INVALID_THREAD_ID}), E_ACCESSDENIED);
    EXPECT_THAT(s_monitorEvents, ElementsAre("WaitForSingleObject event 4294967295", "CloseHandle event", POST));
}

TEST_F(ModuleTest, AnExceptionOfTheLoopComesOutAndLeavesNoMonitorThreadBehind)
{
    {
        CTestModule module;
        module.m_loop = [] { throw std::runtime_error("from a handler"); };
        EXPECT_THROW(module.WinMain(SW_HIDE), std::runtime_error);
        EXPECT_EQ(s_events.back(), "CoUninitialize");
    }
    EXPECT_THAT(s_monitorEvents, ElementsAre("WaitForSingleObject event 4294967295", "CloseHandle event"));
}

TEST_F(ModuleTest, WithoutCriticalSectionNothingRuns)
{
    const ImportHook<decltype(&InitializeCriticalSectionEx)> hook("InitializeCriticalSectionEx",
                                                                  [](LPCRITICAL_SECTION, DWORD, DWORD) -> BOOL { return FALSE; });
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(takeEvents(), ElementsAre("end"));
}
