// What the module says to Windows, argument by argument, and what it makes of Windows' refusals.
#include "tests/atl/moduleFixture.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <format>

using testing::Contains;
using testing::ElementsAre;

namespace {

const auto& s_realRegisterClassObject = ImportHook<decltype(&CoRegisterClassObject)>::s_original;
const auto& s_realPostThreadMessage = ImportHook<decltype(&PostThreadMessageA)>::s_original;
const auto& s_realSleep = ImportHook<decltype(&Sleep)>::s_original;
const auto& s_realWait = ImportHook<decltype(&WaitForSingleObject)>::s_original;

// A wait of any thread. Kept without memory or locks: those wait themselves.
struct SWait
{
    HANDLE handle;
    DWORD limit;
    bool operator==(const SWait&) const = default;
};
std::array<SWait, 64> s_waits;
std::atomic<size_t> s_waitCount = 0;

DWORD WINAPI notedWait(HANDLE handle, DWORD limit)
{
    if (const size_t place = s_waitCount++; place < s_waits.size()) {
        s_waits[place] = {handle, limit};
    }
    return s_realWait(handle, limit);
}

// Two classes, whose class objects Windows may refuse to revoke.
const CLSID CLSID_Other = {0x5A6C1B2D, 0x4E3F, 0x4A5B, {0x8C, 0x9D, 0x0E, 0x1F, 0x2A, 0x3B, 0x4C, 0x5E}};

class COtherObject : public CSampleObject
{
public:
    static void ObjectMain(bool starting) { s_events.push_back(starting ? "other ObjectMain 1" : "other ObjectMain 0"); }
};

constexpr ATL_OBJMAP_ENTRY TWO_CLASSES[] = {OBJECT_ENTRY(CLSID_Sample, CSampleObject) OBJECT_ENTRY(CLSID_Other, COtherObject)};

class CTwoClassModule : public CAtlExeModuleT<CTwoClassModule>
{
public:
    CTwoClassModule()
        : CAtlExeModuleT(TWO_CLASSES)
    {
    }
    static const char* GetAppIdT() noexcept { return ""; }
    static HRESULT UpdateRegistryAppId(BOOL) noexcept { return S_OK; }
    HRESULT RegisterClassObject(const CLSID& clsid, IUnknown*, DWORD& cookie) noexcept override
    {
        cookie = IsEqualCLSID(clsid, CLSID_Sample) ? 11 : 22;
        s_events.push_back(std::format("register {}", cookie));
        return cookie == m_refused ? E_ACCESSDENIED : S_OK;
    }
    void RunMessageLoop() override { s_events.push_back("loop"); }

    using CAtlExeModule::Run;

    DWORD m_refused = 0;
};

// What CoRevokeClassObject answers for a cookie.
HRESULT revoked(DWORD cookie)
{
    s_events.push_back(std::format("revoke {}", cookie));
    return S_OK;
}
HRESULT notRevoked(DWORD cookie)
{
    s_events.push_back(std::format("revoke {}", cookie));
    return CO_E_OBJNOTREG;
}
void notedSleep(DWORD time)
{
    if (time < 500) {
        s_realSleep(time);
    } else {
        s_events.push_back(std::format("Sleep {}", time));
    }
}

} // namespace

TEST_F(ModuleTest, TheClassObjectIsForSingleUseAndSuspended)
{
    static DWORD s_context;
    static DWORD s_flags;
    s_context = s_flags = 0;
    const ImportHook<decltype(&CoRegisterClassObject)> hook(
        "CoRegisterClassObject", [](REFCLSID clsid, LPUNKNOWN factory, DWORD context, DWORD flags, LPDWORD cookie) -> HRESULT {
            EXPECT_EQ(CLSID_Sample, clsid);
            s_context = context;
            s_flags = flags;
            return s_realRegisterClassObject(clsid, factory, context, flags, cookie);
        });
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_EQ(s_context, 4u);
    EXPECT_EQ(s_flags, 4u);
}

TEST_F(ModuleTest, TheShutdownEventIsNotSignalledAndWakesTheMonitorThreadAlone)
{
    CHandle event;
    m_module->m_loop = [&] {
        HANDLE copy = nullptr;
        DuplicateHandle(GetCurrentProcess(), m_module->m_hEventShutdown, GetCurrentProcess(), &copy, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        event.Attach(copy);
        EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
        useOnce();
    };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    // Whoever waited for it has taken the signal.
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(event, 0));
}

TEST_F(ModuleTest, WithoutShutdownEventTheStartFails)
{
    const ImportHook<decltype(&CreateEventA)> hook("CreateEventA", [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR) -> HANDLE {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    });
    EXPECT_EQ(m_module->Run(SW_HIDE), E_FAIL);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor"));
    EXPECT_EQ(static_cast<HANDLE>(m_module->m_hMonitorThread), nullptr);
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, WithoutThreadTheStartFailsAndTheEventIsClosed)
{
    const ImportHook<decltype(&CreateThread)> hook(
        "CreateThread", [](LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) -> HANDLE {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        });
    EXPECT_EQ(m_module->Run(SW_HIDE), E_FAIL);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor"));
    EXPECT_EQ(static_cast<HANDLE>(m_module->m_hEventShutdown), nullptr);
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, TheMonitorThreadWaitsForEverAndIsWaitedForTwiceTheTimeOut)
{
    class CHandleModule : public CTestModule
    {
    public:
        HRESULT ResumeClassObjects() noexcept override
        {
            event = m_hEventShutdown;
            thread = m_hMonitorThread;
            return E_ACCESSDENIED;
        }
        HANDLE event = nullptr;
        HANDLE thread = nullptr;
    };
    m_module.reset();
    CHandleModule module;
    s_waitCount = 0;
    {
        const ImportHook<decltype(&WaitForSingleObject)> hook("WaitForSingleObject", &notedWait);
        EXPECT_EQ(module.Run(SW_HIDE), E_ACCESSDENIED);
    }
    EXPECT_THAT(s_waits, Contains(SWait{module.event, INFINITE}));
    EXPECT_THAT(s_waits, Contains(SWait{module.thread, 10000}));
}

TEST_F(ModuleTest, TheEndIsPostedToTheMainThreadWithoutParameters)
{
    struct Post
    {
        DWORD from;
        DWORD to;
        UINT message;
        WPARAM wParam;
        LPARAM lParam;
    };
    static std::atomic<int> s_count;
    static Post s_post;
    s_count = 0;
    {
        const ImportHook<decltype(&PostThreadMessageA)> hook(
            "PostThreadMessageA", [](DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
                s_post = {GetCurrentThreadId(), thread, message, wParam, lParam};
                ++s_count;
                return s_realPostThreadMessage(thread, message, wParam, lParam);
            });
        m_module->m_loop = [this] { useOnce(); };
        EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    }
    EXPECT_EQ(s_count, 1);
    EXPECT_NE(GetCurrentThreadId(), s_post.from) << "by the monitor thread";
    EXPECT_EQ(GetCurrentThreadId(), s_post.to);
    EXPECT_EQ(static_cast<UINT>(WM_QUIT), s_post.message);
    EXPECT_EQ(s_post.wParam, 0u);
    EXPECT_EQ(s_post.lParam, 0);
}

TEST_F(ModuleTest, WithoutDelayTheMainThreadPostsTheEnd)
{
    static DWORD s_from;
    s_from = 0;
    const ImportHook<decltype(&PostThreadMessageA)> hook("PostThreadMessageA",
                                                         [](DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
                                                             s_from = GetCurrentThreadId();
                                                             return s_realPostThreadMessage(thread, message, wParam, lParam);
                                                         });
    m_module->m_bDelayShutdown = false;
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_EQ(GetCurrentThreadId(), s_from);
}

TEST_F(ModuleTest, ClassesStartRegisterAndGoInTheOrderOfTheMap)
{
    m_module.reset();
    s_events.clear();
    {
        const ImportHook<decltype(&CoRevokeClassObject)> revoke("CoRevokeClassObject", &revoked);
        const ImportHook<decltype(&Sleep)> sleep("Sleep", &notedSleep);
        CTwoClassModule module;
        EXPECT_EQ(module.Run(SW_HIDE), S_OK);
    }
    EXPECT_THAT(s_events, ElementsAre("ObjectMain 1", "other ObjectMain 1", "register 11", "register 22", "loop", "revoke 11",
                                      "revoke 22", "Sleep 1000", "ObjectMain 0", "other ObjectMain 0"));
}

TEST_F(ModuleTest, TheFirstClassObjectThatIsNotRevokedIsTheResultAfterThePause)
{
    m_module.reset();
    CTwoClassModule module;
    s_events.clear();
    const ImportHook<decltype(&CoRevokeClassObject)> revoke("CoRevokeClassObject", &notRevoked);
    const ImportHook<decltype(&Sleep)> sleep("Sleep", &notedSleep);
    EXPECT_EQ(module.Run(SW_HIDE), CO_E_OBJNOTREG);
    EXPECT_THAT(s_events, ElementsAre("register 11", "register 22", "loop", "revoke 11", "Sleep 1000"));
}

TEST_F(ModuleTest, ARefusedClassObjectEndsTheStartAtOnce)
{
    m_module.reset();
    CTwoClassModule module;
    s_events.clear();
    module.m_refused = 11;
    EXPECT_EQ(module.Run(SW_HIDE), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("register 11"));
}

TEST_F(ModuleTest, ComIsThereBeforeTheProcessesCommandLineIsRead)
{
    class CReadingModule : public CTestModule
    {
    public:
        bool ParseCommandLine(const char* commandLine, HRESULT& result) override
        {
            EXPECT_STREQ(GetCommandLineA(), commandLine);
            EXPECT_TRUE(comIsInitialized());
            EXPECT_TRUE(m_bComInitialized);
            EXPECT_EQ(result, S_OK);
            result = S_FALSE;
            return false;
        }
    };
    m_module.reset();
    CoUninitialize();
    ASSERT_FALSE(comIsInitialized());
    CReadingModule module;
    s_events.clear();
    EXPECT_EQ(module.WinMain(SW_HIDE), S_FALSE);
    EXPECT_THAT(s_events, ElementsAre());
    EXPECT_FALSE(comIsInitialized());
    CoInitialize(nullptr);
}

TEST_F(ModuleTest, WithoutMemoryForItsCriticalSectionTheModuleDoesNotRun)
{
    m_module.reset();
    {
        const ImportHook<decltype(&InitializeCriticalSectionEx)> hook(
            "InitializeCriticalSectionEx", [](LPCRITICAL_SECTION, DWORD, DWORD) -> BOOL { return FALSE; });
        m_module.emplace();
    }
    s_events.clear();
    EXPECT_EQ(m_module->WinMain(SW_HIDE), -1);
    EXPECT_THAT(s_events, ElementsAre());
}
