#include "tests/atl/moduleFixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>

using testing::ElementsAre;

TEST_F(ModuleTest, tellsItsClassesOfStartAndEnd)
{
    m_module.reset();
    EXPECT_THAT(g_events, ElementsAre("ObjectMain 0"));
    EXPECT_EQ(nullptr, _pAtlModule);
    g_events.clear();
    m_module.emplace();
    EXPECT_THAT(g_events, ElementsAre("ObjectMain 1"));
    EXPECT_EQ(&*m_module, _pAtlModule);
}

TEST_F(ModuleTest, startsWithTheServersSettings)
{
    class CPlainModule : public CAtlExeModuleT<CPlainModule>
    {
    public:
        CPlainModule()
            : CAtlExeModuleT({})
        {
        }
        static const char* GetAppIdT() noexcept { return ""; }
        static HRESULT UpdateRegistryAppId(BOOL) noexcept { return S_OK; }
    };
    m_module.reset();
    const CPlainModule module;
    EXPECT_EQ(GetCurrentThreadId(), module.m_dwMainThreadID);
    EXPECT_EQ(5000u, module.m_dwTimeOut);
    EXPECT_EQ(1000u, module.m_dwPause);
    EXPECT_TRUE(module.m_bDelayShutdown);
    EXPECT_FALSE(module.m_bActivity);
    EXPECT_FALSE(module.m_bComInitialized);
}

TEST_F(ModuleTest, countsWithTheProcess)
{
    EXPECT_EQ(1, m_module->Lock());
    EXPECT_EQ(2, m_module->Lock());
    // COM counts the same count.
    EXPECT_EQ(3u, CoAddRefServerProcess());
    EXPECT_EQ(2, m_module->Unlock());
    EXPECT_EQ(1, m_module->Unlock());
    EXPECT_EQ(0u, CoReleaseServerProcess());
}

TEST_F(ModuleTest, theLastUnlockEndsTheLoop)
{
    m_module->m_loop = [this] {
        EXPECT_FALSE(m_module->m_bActivity);
        m_module->Lock();
        m_module->Lock();
        m_module->Unlock();
        EXPECT_FALSE(m_module->m_bActivity);
        m_module->Unlock();
        EXPECT_TRUE(m_module->m_bActivity);
    };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "monitor", "resume", "loop"));
    EXPECT_EQ(1, m_module->m_posts);
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, aSecondUnlockToZeroFindsNothingToSignal)
{
    m_module->m_loop = [this] {
        EXPECT_NE(nullptr, static_cast<HANDLE>(m_module->m_hEventShutdown));
        useOnce();
    };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_EQ(nullptr, static_cast<HANDLE>(m_module->m_hEventShutdown));
    useOnce();
    EXPECT_EQ(1, m_module->m_posts);
    EXPECT_FALSE(quitPosted());
}

TEST_F(ModuleTest, thePauseComesAfterTheLoop)
{
    m_module->m_dwPause = 200;
    m_module->m_loop = [this] { useOnce(); };
    const auto start = std::chrono::steady_clock::now(); // which goes on in smaller steps than GetTickCount64
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(195));
}

TEST_F(ModuleTest, withoutDelayTheLastUnlockPostsTheEndItself)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_dwPause = 5000;
    m_module->m_loop = [this] { useOnce(); };
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_LT(GetTickCount64() - start, 4000u);
    EXPECT_THAT(g_events, ElementsAre("register", "resume", "loop"));
    EXPECT_FALSE(m_module->m_bActivity);
    EXPECT_EQ(1, m_module->m_posts);
}

TEST_F(ModuleTest, theEndIsPostedUntilTheQueueTakesIt)
{
    m_module->m_failingPosts = 3;
    m_module->m_postError = ERROR_NOT_ENOUGH_QUOTA;
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_EQ(4, m_module->m_posts);
}

TEST_F(ModuleTest, theEndIsNotPostedToAThreadThatIsGone)
{
    m_module->m_failingPosts = 1;
    m_module->m_postError = ERROR_INVALID_THREAD_ID;
    m_module->m_resumeResult = E_ACCESSDENIED;
    // The failed start waits for the monitor thread, so that all its posts have been tried afterwards.
    EXPECT_EQ(E_ACCESSDENIED, m_module->Run(SW_HIDE));
    EXPECT_EQ(1, m_module->m_posts);
}

TEST_F(ModuleTest, aFullQueueOfItsOwnThreadDoesNotHoldTheEnd)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_failingPosts = 1000000;
    m_module->m_postError = ERROR_NOT_ENOUGH_QUOTA;
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_EQ(1, m_module->m_posts);
}

TEST_F(ModuleTest, aClassObjectThatCannotBeRegisteredFailsTheStart)
{
    m_module->m_registerResult = E_ACCESSDENIED;
    EXPECT_EQ(E_ACCESSDENIED, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register"));
}

TEST_F(ModuleTest, withoutMonitorThreadTheStartFails)
{
    m_module->m_monitorStarts = false;
    EXPECT_EQ(E_FAIL, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "monitor"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, aFailingResumeEndsTheMonitorThreadAndFailsTheStart)
{
    m_module->m_resumeResult = E_ACCESSDENIED;
    m_module->m_postDuration = 300;
    EXPECT_EQ(E_ACCESSDENIED, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "monitor", "resume"));
    EXPECT_EQ(1, m_module->m_posts);
    EXPECT_EQ(nullptr, static_cast<HANDLE>(m_module->m_hMonitorThread));
    EXPECT_TRUE(classObjectIsRevoked());
    EXPECT_TRUE(quitPosted());
}

TEST_F(ModuleTest, aFailingResumeWithoutDelayFailsTheStart)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_resumeResult = E_ACCESSDENIED;
    EXPECT_EQ(E_ACCESSDENIED, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "resume"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, aStartThatSucceedsOtherwiseSkipsTheLoop)
{
    m_module->m_resumeResult = S_FALSE;
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "monitor", "resume"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, aLoopThatEndsByItselfLeavesNoMonitorThreadBehind)
{
    m_module->m_loop = [] { PostQuitMessage(0); };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
    const ULONGLONG start = GetTickCount64();
    m_module.reset();
    EXPECT_LT(GetTickCount64() - start, 4000u);
    EXPECT_FALSE(quitPosted());
}

TEST_F(ModuleTest, withoutCriticalSectionNothingRuns)
{
    m_module->failConstruction();
    EXPECT_EQ(-1, m_module->WinMain(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre());
}

TEST_F(ModuleTest, withoutComNothingRuns)
{
    m_module->m_comResult = E_UNEXPECTED;
    EXPECT_EQ(E_UNEXPECTED, m_module->WinMain(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre());
    EXPECT_FALSE(m_module->m_bComInitialized);
}

TEST_F(ModuleTest, comInAnotherModeIsAcceptedInAManagedProcessOnly)
{
    m_module->m_comResult = RPC_E_CHANGED_MODE;
    ASSERT_EQ(nullptr, GetModuleHandleA("Mscoree.dll"));
    EXPECT_EQ(RPC_E_CHANGED_MODE, m_module->WinMain(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre());

    // Any module of that name will do.
    char program[MAX_PATH] = {};
    char folder[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    GetTempPathA(MAX_PATH, folder);
    const std::string library = std::string(folder) + "Mscoree.dll";
    ASSERT_TRUE(CopyFileA(program, library.c_str(), FALSE));
    const HMODULE loaded = LoadLibraryExA(library.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(nullptr, loaded);
    m_module->m_loop = [this] {
        EXPECT_FALSE(m_module->m_bComInitialized);
        useOnce();
    };
    m_module->m_comResult = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, m_module->WinMain(SW_HIDE)) << "any other failure counts in a managed process as well";
    EXPECT_THAT(g_events, ElementsAre());

    m_module->m_comResult = RPC_E_CHANGED_MODE;
    EXPECT_EQ(S_OK, m_module->WinMain(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("register", "monitor", "resume", "loop"));
    EXPECT_TRUE(comIsInitialized());
    FreeLibrary(loaded);
    DeleteFileA(library.c_str());
}

TEST_F(ModuleTest, comIsUninitializedAsOftenAsItWasInitialized)
{
    // The fixture has initialised COM already: the module gets S_FALSE and has to balance it all the same.
    m_module->m_loop = [this] {
        EXPECT_TRUE(m_module->m_bComInitialized);
        useOnce();
    };
    EXPECT_EQ(S_OK, m_module->WinMain(SW_HIDE));
    EXPECT_FALSE(m_module->m_bComInitialized);
    EXPECT_TRUE(comIsInitialized());
    CoUninitialize();
    EXPECT_FALSE(comIsInitialized());
    CoInitialize(nullptr);
}

TEST_F(ModuleTest, anExceptionOfTheLoopComesOut)
{
    CoUninitialize();
    m_module->m_loop = [] { throw std::runtime_error("from a handler"); };
    EXPECT_THROW(m_module->WinMain(SW_HIDE), std::runtime_error);
    EXPECT_FALSE(m_module->m_bComInitialized);
    EXPECT_FALSE(comIsInitialized());
    CoInitialize(nullptr);
}

TEST_F(ModuleTest, switchesDoTheirWorkInOrder)
{
    const auto run = [this](const char* commandLine) {
        g_events.clear();
        HRESULT result = S_FALSE;
        EXPECT_FALSE(m_module->ParseCommandLine(commandLine, result));
        EXPECT_EQ(S_OK, result);
        return g_events;
    };
    EXPECT_THAT(run("x /RegServer"), ElementsAre("AppId 1", "RegisterServer"));
    EXPECT_THAT(run("x /UnregServer"), ElementsAre("UnregisterServer", "AppId 0"));
    EXPECT_THAT(run("x /RegServerPerUser"), ElementsAre("AppId 1", "RegisterServer per user"));
    EXPECT_THAT(run("x /UnregServerPerUser"), ElementsAre("UnregisterServer per user", "AppId 0"));
    HRESULT result = S_FALSE;
    EXPECT_TRUE(m_module->ParseCommandLine("x -Embedding", result));
    EXPECT_EQ(S_FALSE, result);
}

TEST_F(ModuleTest, theFirstFailingStepIsTheResultOfASwitch)
{
    const auto run = [this](const char* commandLine) {
        g_events.clear();
        HRESULT result = S_OK;
        EXPECT_FALSE(m_module->ParseCommandLine(commandLine, result));
        return result;
    };
    CTestModule::s_appIdResult = E_ACCESSDENIED;
    EXPECT_EQ(E_ACCESSDENIED, run("x /RegServer"));
    EXPECT_THAT(g_events, ElementsAre("AppId 1"));
    EXPECT_EQ(E_ACCESSDENIED, run("x /UnregServer"));
    EXPECT_THAT(g_events, ElementsAre("UnregisterServer", "AppId 0"));
    m_module->m_serverResult = E_INVALIDARG;
    EXPECT_EQ(E_INVALIDARG, run("x /UnregServer"));
    EXPECT_THAT(g_events, ElementsAre("UnregisterServer"));
    CTestModule::s_appIdResult = S_OK;
    EXPECT_EQ(E_INVALIDARG, run("x /RegServer"));
    EXPECT_THAT(g_events, ElementsAre("AppId 1", "RegisterServer"));
}

TEST_F(ModuleTest, aSwitchNeedsNoClassObject)
{
    class CSwitchModule : public CTestModule
    {
    public:
        bool ParseCommandLine(const char*, HRESULT& result) override
        {
            return CTestModule::ParseCommandLine("x /RegServer", result);
        }
    };
    m_module.reset();
    CSwitchModule module;
    g_events.clear();
    module.m_serverResult = E_INVALIDARG;
    EXPECT_EQ(E_INVALIDARG, module.WinMain(SW_HIDE));
    EXPECT_THAT(g_events, ElementsAre("AppId 1", "RegisterServer"));
    EXPECT_TRUE(comIsInitialized());
}

TEST_F(ModuleTest, anObjectKeepsTheServer)
{
    m_module->m_loop = [this] {
        CComPtr<IJavaManager> object;
        EXPECT_EQ(S_OK, AtlCreateObject<CSampleObject>(IID_IJavaManager, reinterpret_cast<void**>(&object)));
        EXPECT_FALSE(m_module->m_bActivity);
        object.Release();
        EXPECT_TRUE(m_module->m_bActivity);
    };
    EXPECT_EQ(S_OK, m_module->Run(SW_HIDE));
}
