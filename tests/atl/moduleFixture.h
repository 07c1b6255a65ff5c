// A module whose steps tell what they did and fail as a test wants them to.
#pragma once

#include "tests/atl/sampleObject.h"

#include <gtest/gtest.h>

#include <optional>

// A class id of the tests' own, so that no real client finds the class objects registered here.
inline const CLSID CLSID_Sample = {0x5A6C1B2D, 0x4E3F, 0x4A5B, {0x8C, 0x9D, 0x0E, 0x1F, 0x2A, 0x3B, 0x4C, 0x5D}};

inline constexpr ATL_OBJMAP_ENTRY OBJECT_MAP[] = {OBJECT_ENTRY(CLSID_Sample, CSampleObject)};

class CTestModule : public CAtlExeModuleT<CTestModule>
{
public:
    CTestModule()
        : CAtlExeModuleT(OBJECT_MAP)
    {
        m_dwPause = 0;
    }
    virtual ~CTestModule() = default;
    static const char* GetAppIdT() noexcept { return "{APPID}"; }
    static HRESULT UpdateRegistryAppId(BOOL registering) noexcept
    {
        s_events.push_back(registering ? "AppId 1" : "AppId 0");
        return s_appIdResult;
    }

    HRESULT InitializeCom() noexcept override { return FAILED(m_comResult) ? m_comResult : CAtlExeModuleT::InitializeCom(); }
    HRESULT RegisterClassObject(const CLSID& clsid, IUnknown* factory, DWORD& cookie) noexcept override
    {
        s_events.push_back("register");
        EXPECT_EQ(CLSID_Sample, clsid);
        CComPtr<IClassFactory> asked;
        EXPECT_EQ(factory->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&asked)), S_OK);
        const HRESULT hr =
            FAILED(m_registerResult) ? m_registerResult : CAtlExeModuleT::RegisterClassObject(clsid, factory, cookie);
        m_cookie = cookie;
        return hr;
    }
    HRESULT ResumeClassObjects() noexcept override
    {
        s_events.push_back("resume");
        return m_resumeResult != S_OK ? m_resumeResult : CAtlExeModuleT::ResumeClassObjects();
    }
    bool StartMonitor() noexcept override
    {
        s_events.push_back("monitor");
        return m_monitorStarts && CAtlExeModuleT::StartMonitor();
    }
    BOOL PostQuit() noexcept override
    {
        Sleep(m_postDuration);
        ++m_posts;
        if (m_posts <= m_failingPosts) {
            SetLastError(m_postError);
            return FALSE;
        }
        return CAtlExeModuleT::PostQuit();
    }
    void RunMessageLoop() override
    {
        s_events.push_back("loop");
        if (m_loop) {
            m_loop();
        }
        CAtlExeModuleT::RunMessageLoop();
    }
    HRESULT RegisterServer() override
    {
        s_events.push_back(m_bPerUserRegistration ? "RegisterServer per user" : "RegisterServer");
        return m_serverResult;
    }
    HRESULT UnregisterServer() override
    {
        s_events.push_back(m_bPerUserRegistration ? "UnregisterServer per user" : "UnregisterServer");
        return m_serverResult;
    }
    void failConstruction() { m_bInitFailed = true; }

    using CAtlExeModule::m_hEventShutdown;
    using CAtlExeModule::m_hMonitorThread;
    using CAtlExeModule::ParseCommandLine;
    using CAtlExeModule::Run;

    static inline HRESULT s_appIdResult = S_OK;
    HRESULT m_comResult = S_OK;
    HRESULT m_registerResult = S_OK;
    HRESULT m_resumeResult = S_OK;
    HRESULT m_serverResult = S_OK;
    bool m_monitorStarts = true;
    int m_posts = 0;
    int m_failingPosts = 0;
    DWORD m_postError = 0;
    DWORD m_postDuration = 0;
    DWORD m_cookie = 0;
    std::function<void()> m_loop;
};

class ModuleTest : public testing::Test
{
protected:
    ModuleTest()
    {
        CoInitialize(nullptr);
        s_events.clear();
        m_module.emplace();
        s_events.clear();
    }
    ~ModuleTest() override
    {
        m_module.reset();
        CTestModule::s_appIdResult = S_OK;
        CSampleObject::s_updateResult = S_OK;
        quitPosted();
        CoUninitialize();
    }

    // Takes a WM_QUIT off the queue, if there is one.
    static bool quitPosted()
    {
        MSG message;
        return PeekMessageA(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
    }
    // What a client does with the server: takes it and lets it go.
    void useOnce()
    {
        m_module->Lock();
        m_module->Unlock();
    }
    bool classObjectIsRevoked() { return FAILED(CoRevokeClassObject(m_module->m_cookie)); }

    std::optional<CTestModule> m_module;
};

// In a single-threaded apartment.
inline bool comIsInitialized()
{
    APTTYPE type = {};
    APTTYPEQUALIFIER qualifier = {};
    return CoGetApartmentType(&type, &qualifier) == S_OK && type != APTTYPE_MTA;
}
