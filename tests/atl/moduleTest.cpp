#include "tests/atl/moduleFixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>

using testing::ElementsAre;

TEST_F(ModuleTest, TellsItsClassesOfStartAndEnd)
{
    m_module.reset();
    EXPECT_THAT(s_events, ElementsAre("ObjectMain 0"));
    EXPECT_EQ(_pAtlModule, nullptr);
    s_events.clear();
    m_module.emplace();
    EXPECT_THAT(s_events, ElementsAre("ObjectMain 1"));
    EXPECT_EQ(&*m_module, _pAtlModule);
}

TEST_F(ModuleTest, StartsWithTheServersSettings)
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
    EXPECT_EQ(module.m_dwTimeOut, 5000u);
    EXPECT_EQ(module.m_dwPause, 1000u);
    EXPECT_TRUE(module.m_bDelayShutdown);
    EXPECT_FALSE(module.m_bActivity);
    EXPECT_FALSE(module.m_bComInitialized);
}

TEST_F(ModuleTest, CountsWithTheProcess)
{
    EXPECT_EQ(m_module->Lock(), 1);
    EXPECT_EQ(m_module->Lock(), 2);
    // COM counts the same count.
    EXPECT_EQ(CoAddRefServerProcess(), 3u);
    EXPECT_EQ(m_module->Unlock(), 2);
    EXPECT_EQ(m_module->Unlock(), 1);
    EXPECT_EQ(CoReleaseServerProcess(), 0u);
}

TEST_F(ModuleTest, TheLastUnlockEndsTheLoop)
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
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor", "resume", "loop"));
    EXPECT_EQ(m_module->m_posts, 1);
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, ASecondUnlockToZeroFindsNothingToSignal)
{
    m_module->m_loop = [this] {
        EXPECT_NE(static_cast<HANDLE>(m_module->m_hEventShutdown), nullptr);
        useOnce();
    };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_EQ(static_cast<HANDLE>(m_module->m_hEventShutdown), nullptr);
    useOnce();
    EXPECT_EQ(m_module->m_posts, 1);
    EXPECT_FALSE(quitPosted());
}

TEST_F(ModuleTest, ThePauseComesAfterTheLoop)
{
    m_module->m_dwPause = 200;
    m_module->m_loop = [this] { useOnce(); };
    const auto start = std::chrono::steady_clock::now(); // which goes on in smaller steps than GetTickCount64
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(195));
}

TEST_F(ModuleTest, WithoutDelayTheLastUnlockPostsTheEndItself)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_dwPause = 5000;
    m_module->m_loop = [this] { useOnce(); };
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_LT(GetTickCount64() - start, 4000u);
    EXPECT_THAT(s_events, ElementsAre("register", "resume", "loop"));
    EXPECT_FALSE(m_module->m_bActivity);
    EXPECT_EQ(m_module->m_posts, 1);
}

TEST_F(ModuleTest, TheEndIsPostedUntilTheQueueTakesIt)
{
    m_module->m_failingPosts = 3;
    m_module->m_postError = ERROR_NOT_ENOUGH_QUOTA;
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_EQ(m_module->m_posts, 4);
}

TEST_F(ModuleTest, TheEndIsNotPostedToAThreadThatIsGone)
{
    m_module->m_failingPosts = 1;
    m_module->m_postError = ERROR_INVALID_THREAD_ID;
    m_module->m_resumeResult = E_ACCESSDENIED;
    // The failed start waits for the monitor thread, so that all its posts have been tried afterwards.
    EXPECT_EQ(m_module->Run(SW_HIDE), E_ACCESSDENIED);
    EXPECT_EQ(m_module->m_posts, 1);
}

TEST_F(ModuleTest, AFullQueueOfItsOwnThreadDoesNotHoldTheEnd)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_failingPosts = 1000000;
    m_module->m_postError = ERROR_NOT_ENOUGH_QUOTA;
    m_module->m_loop = [this] { useOnce(); };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_EQ(m_module->m_posts, 1);
}

TEST_F(ModuleTest, AClassObjectThatCannotBeRegisteredFailsTheStart)
{
    m_module->m_registerResult = E_ACCESSDENIED;
    EXPECT_EQ(m_module->Run(SW_HIDE), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("register"));
}

TEST_F(ModuleTest, WithoutMonitorThreadTheStartFails)
{
    m_module->m_monitorStarts = false;
    EXPECT_EQ(m_module->Run(SW_HIDE), E_FAIL);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, AFailingResumeEndsTheMonitorThreadAndFailsTheStart)
{
    m_module->m_resumeResult = E_ACCESSDENIED;
    m_module->m_postDuration = 300;
    EXPECT_EQ(m_module->Run(SW_HIDE), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor", "resume"));
    EXPECT_EQ(m_module->m_posts, 1);
    EXPECT_EQ(static_cast<HANDLE>(m_module->m_hMonitorThread), nullptr);
    EXPECT_TRUE(classObjectIsRevoked());
    EXPECT_TRUE(quitPosted());
}

TEST_F(ModuleTest, AFailingResumeWithoutDelayFailsTheStart)
{
    m_module->m_bDelayShutdown = false;
    m_module->m_resumeResult = E_ACCESSDENIED;
    EXPECT_EQ(m_module->Run(SW_HIDE), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("register", "resume"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, AStartThatSucceedsOtherwiseSkipsTheLoop)
{
    m_module->m_resumeResult = S_FALSE;
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor", "resume"));
    EXPECT_TRUE(classObjectIsRevoked());
}

TEST_F(ModuleTest, ALoopThatEndsByItselfLeavesNoMonitorThreadBehind)
{
    m_module->m_loop = [] { PostQuitMessage(0); };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
    const ULONGLONG start = GetTickCount64();
    m_module.reset();
    EXPECT_LT(GetTickCount64() - start, 4000u);
    EXPECT_FALSE(quitPosted());
}

TEST_F(ModuleTest, WithoutCriticalSectionNothingRuns)
{
    m_module->failConstruction();
    EXPECT_EQ(m_module->WinMain(SW_HIDE), -1);
    EXPECT_THAT(s_events, ElementsAre());
}

TEST_F(ModuleTest, WithoutComNothingRuns)
{
    m_module->m_comResult = E_UNEXPECTED;
    EXPECT_EQ(m_module->WinMain(SW_HIDE), E_UNEXPECTED);
    EXPECT_THAT(s_events, ElementsAre());
    EXPECT_FALSE(m_module->m_bComInitialized);
}

TEST_F(ModuleTest, ComInAnotherModeIsAcceptedInAManagedProcessOnly)
{
    m_module->m_comResult = RPC_E_CHANGED_MODE;
    ASSERT_EQ(GetModuleHandleA("Mscoree.dll"), nullptr);
    EXPECT_EQ(m_module->WinMain(SW_HIDE), RPC_E_CHANGED_MODE);
    EXPECT_THAT(s_events, ElementsAre());

    // Any module of that name will do.
    char program[MAX_PATH] = {};
    char folder[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    GetTempPathA(MAX_PATH, folder);
    const std::string library = std::string(folder) + "Mscoree.dll";
    ASSERT_TRUE(CopyFileA(program, library.c_str(), FALSE));
    const HMODULE loaded = LoadLibraryExA(library.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(loaded, nullptr);
    m_module->m_loop = [this] {
        EXPECT_FALSE(m_module->m_bComInitialized);
        useOnce();
    };
    m_module->m_comResult = E_OUTOFMEMORY;
    EXPECT_EQ(m_module->WinMain(SW_HIDE), E_OUTOFMEMORY) << "any other failure counts in a managed process as well";
    EXPECT_THAT(s_events, ElementsAre());

    m_module->m_comResult = RPC_E_CHANGED_MODE;
    EXPECT_EQ(m_module->WinMain(SW_HIDE), S_OK);
    EXPECT_THAT(s_events, ElementsAre("register", "monitor", "resume", "loop"));
    EXPECT_TRUE(comIsInitialized());
    FreeLibrary(loaded);
    DeleteFileA(library.c_str());
}

TEST_F(ModuleTest, ComIsUninitializedAsOftenAsItWasInitialized)
{
    // The fixture has initialised COM already: the module gets S_FALSE and has to balance it all the same.
    m_module->m_loop = [this] {
        EXPECT_TRUE(m_module->m_bComInitialized);
        useOnce();
    };
    EXPECT_EQ(m_module->WinMain(SW_HIDE), S_OK);
    EXPECT_FALSE(m_module->m_bComInitialized);
    EXPECT_TRUE(comIsInitialized());
    CoUninitialize();
    EXPECT_FALSE(comIsInitialized());
    CoInitialize(nullptr);
}

TEST_F(ModuleTest, AnExceptionOfTheLoopComesOut)
{
    CoUninitialize();
    m_module->m_loop = [] { throw std::runtime_error("from a handler"); };
    EXPECT_THROW(m_module->WinMain(SW_HIDE), std::runtime_error);
    EXPECT_FALSE(m_module->m_bComInitialized);
    EXPECT_FALSE(comIsInitialized());
    CoInitialize(nullptr);
}

TEST_F(ModuleTest, SwitchesDoTheirWorkInOrder)
{
    const auto run = [this](const char* commandLine) {
        s_events.clear();
        HRESULT result = S_FALSE;
        EXPECT_FALSE(m_module->ParseCommandLine(commandLine, result));
        EXPECT_EQ(result, S_OK);
        return s_events;
    };
    EXPECT_THAT(run("x /RegServer"), ElementsAre("AppId 1", "RegisterServer"));
    EXPECT_THAT(run("x /UnregServer"), ElementsAre("UnregisterServer", "AppId 0"));
    EXPECT_THAT(run("x /RegServerPerUser"), ElementsAre("AppId 1", "RegisterServer per user"));
    EXPECT_THAT(run("x /UnregServerPerUser"), ElementsAre("UnregisterServer per user", "AppId 0"));
    HRESULT result = S_FALSE;
    EXPECT_TRUE(m_module->ParseCommandLine("x -Embedding", result));
    EXPECT_EQ(result, S_FALSE);
}

TEST_F(ModuleTest, TheFirstFailingStepIsTheResultOfASwitch)
{
    const auto run = [this](const char* commandLine) {
        s_events.clear();
        HRESULT result = S_OK;
        EXPECT_FALSE(m_module->ParseCommandLine(commandLine, result));
        return result;
    };
    CTestModule::s_appIdResult = E_ACCESSDENIED;
    EXPECT_EQ(run("x /RegServer"), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("AppId 1"));
    EXPECT_EQ(run("x /UnregServer"), E_ACCESSDENIED);
    EXPECT_THAT(s_events, ElementsAre("UnregisterServer", "AppId 0"));
    m_module->m_serverResult = E_INVALIDARG;
    EXPECT_EQ(run("x /UnregServer"), E_INVALIDARG);
    EXPECT_THAT(s_events, ElementsAre("UnregisterServer"));
    CTestModule::s_appIdResult = S_OK;
    EXPECT_EQ(run("x /RegServer"), E_INVALIDARG);
    EXPECT_THAT(s_events, ElementsAre("AppId 1", "RegisterServer"));
}

TEST_F(ModuleTest, ASwitchNeedsNoClassObject)
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
    s_events.clear();
    module.m_serverResult = E_INVALIDARG;
    EXPECT_EQ(module.WinMain(SW_HIDE), E_INVALIDARG);
    EXPECT_THAT(s_events, ElementsAre("AppId 1", "RegisterServer"));
    EXPECT_TRUE(comIsInitialized());
}

TEST_F(ModuleTest, AnObjectKeepsTheServer)
{
    m_module->m_loop = [this] {
        CComPtr<IJavaManager> object;
        EXPECT_EQ(AtlCreateObject<CSampleObject>(IID_IJavaManager, reinterpret_cast<void**>(&object)), S_OK);
        EXPECT_FALSE(m_module->m_bActivity);
        object.Release();
        EXPECT_TRUE(m_module->m_bActivity);
    };
    EXPECT_EQ(m_module->Run(SW_HIDE), S_OK);
}
