// The module: the one object that stands for a COM server executable.
//
// It keeps the process alive while anyone needs it (Lock, Unlock), registers and removes the server (command line), and runs it:
// class objects, message loop, end. One instance at a time, constructed and destroyed on the main thread, before the first object
// and after the last. Lock and Unlock come from the main thread, in STA calls of COM; the monitor thread only ends the message
// loop. Failures are HRESULTs; exceptions of overridden operations pass through WinMain to the entry point.
#pragma once

#include "atl/object.h"
#include "atl/registrar.h"

#include <atomic>
#include <span>
#include <string>
#include <vector>

namespace ATL {

// One creatable class of the server.
struct ATL_OBJMAP_ENTRY
{
    const CLSID* clsid;
    HRESULT (*updateRegistry)(BOOL registering);
    HRESULT (*createFactory)(REFIID iid, void** factory) noexcept;
    void (*objectMain)(bool starting);
    const ATL_CATMAP_ENTRY* (*getCategoryMap)();
};

#define OBJECT_ENTRY(clsid, x) {&clsid, &x::UpdateRegistry, &x::ClassFactoryCreator, &x::ObjectMain, &x::GetCategoryMap},

// The switch that a command line holds.
enum class CRegistrationSwitch : unsigned char { None, RegServer, UnregServer, RegServerPerUser, UnregServerPerUser };

// Looks at each word after a "-" or "/", wherever that stands (the executable's own path is part of the command line), in any
// case; a word ends at a blank, a tab or the end. The first of the four words decides.
CRegistrationSwitch AtlFindRegistrationSwitch(const char* commandLine) noexcept;

// A path as a registration script has it between apostrophes: apostrophes doubled, in double quotes when it holds blanks.
std::string AtlQuotedForScript(const std::string& path);

// What objects and registration need of their module.
class CAtlModule
{
public:
    CAtlModule(const CAtlModule&) = delete;
    CAtlModule& operator=(const CAtlModule&) = delete;

    // The count that keeps the process alive; both return the new count.
    virtual LONG Lock() noexcept = 0;
    virtual LONG Unlock() noexcept = 0;

    // Runs the script that is resource `id` of the executable, for registration or removal. Replacements: %MODULE%, the
    // executable's full path (in double quotes when it holds blanks, apostrophes doubled: the scripts have it between
    // apostrophes), and those of AddCommonRGSReplacements.
    HRESULT UpdateRegistryFromResource(UINT id, BOOL registering) noexcept;

protected:
    CAtlModule() noexcept;
    ~CAtlModule();

    virtual void AddCommonRGSReplacements(CRegObject& /*registrar*/) {}

    CRegistrationScope RegistrationScope() const noexcept
    {
        return m_bPerUserRegistration ? CRegistrationScope::User : CRegistrationScope::Machine;
    }

    // Set by a per-user switch.
    bool m_bPerUserRegistration = false;
};

// The module there is; null before its construction and after its destruction.
extern CAtlModule* _pAtlModule;

// The module of an executable. A server derives from CAtlExeModuleT (below).
class CAtlExeModule : public CAtlModule
{
public:
    LONG Lock() noexcept override;
    LONG Unlock() noexcept override;

    // The server's life: COM, command line, Run. Returns the exit code: -1 when the module could not be constructed, the HRESULT
    // of a registration switch, of a failed start, or of the end.
    int WinMain(int showCommand);

    DWORD m_dwMainThreadID;
    DWORD m_dwTimeOut = 5000;
    DWORD m_dwPause = 1000;
    bool m_bDelayShutdown = true;
    bool m_bActivity = false;
    bool m_bComInitialized = false;

protected:
    explicit CAtlExeModule(std::span<const ATL_OBJMAP_ENTRY> objectMap);
    ~CAtlExeModule();

    // The message loop; ends on WM_QUIT.
    virtual void RunMessageLoop();
    // Writes or removes what identifies the application, beside its classes.
    virtual HRESULT UpdateAppId(BOOL /*registering*/) { return S_OK; }
    // True when there is nothing to register or remove and the server is to run; otherwise the work has been done with `result`.
    virtual bool ParseCommandLine(const char* commandLine, HRESULT& result);
    virtual HRESULT RegisterServer();
    virtual HRESULT UnregisterServer();

    virtual HRESULT PreMessageLoop(int showCommand);
    virtual HRESULT PostMessageLoop();
    HRESULT Run(int showCommand);

    // The calls whose failure the module has an answer to, each in a place of its own.
    virtual HRESULT InitializeCom() noexcept;
    virtual HRESULT RegisterClassObject(const CLSID& clsid, IUnknown* factory, DWORD& cookie) noexcept;
    virtual HRESULT ResumeClassObjects() noexcept;
    virtual bool StartMonitor() noexcept;
    virtual BOOL PostQuit() noexcept;

    // Set when the construction failed.
    bool m_bInitFailed = false;
    // There from the registration of the class objects on; the event until the monitor thread has closed it.
    CHandle m_hEventShutdown;
    CHandle m_hMonitorThread;

private:
    HRESULT RegisterClassObjects();
    HRESULT RevokeClassObjects() noexcept;
    void EndMessageLoop() noexcept;
    bool SignalShutdown() noexcept;
    void MonitorShutdown() noexcept;

    std::span<const ATL_OBJMAP_ENTRY> m_objectMap;
    std::vector<DWORD> m_classObjects;
    // Tells the monitor thread that there is no message loop to end any more.
    std::atomic<bool> m_ending = false;
    // Guards m_hEventShutdown: the monitor thread closes it while the main thread may come to signal it once more.
    CComCriticalSection m_csShutdown;
};

// T is the server's module class. It says in its class body
//     DECLARE_REGISTRY_APPID_RESOURCEID(101, "{...}")   the AppID script and the text that stands for %APPID%
// and may override the virtual operations above.
template <class T>
class CAtlExeModuleT : public CAtlExeModule
{
protected:
    explicit CAtlExeModuleT(std::span<const ATL_OBJMAP_ENTRY> objectMap)
        : CAtlExeModule(objectMap)
    {
    }
    ~CAtlExeModuleT() = default;

    void AddCommonRGSReplacements(CRegObject& registrar) override { registrar.AddReplacement("APPID", T::GetAppIdT()); }
    HRESULT UpdateAppId(BOOL registering) override { return T::UpdateRegistryAppId(registering); }
};

#define DECLARE_REGISTRY_APPID_RESOURCEID(id, appId)                                                                             \
public:                                                                                                                          \
    static const char* GetAppIdT() noexcept                                                                                      \
    {                                                                                                                            \
        return appId;                                                                                                            \
    }                                                                                                                            \
    static HRESULT UpdateRegistryAppId(BOOL registering) noexcept                                                                \
    {                                                                                                                            \
        return ATL::_pAtlModule->UpdateRegistryFromResource(id, registering);                                                    \
    }

#define DECLARE_REGISTRY_RESOURCEID(id)                                                                                          \
public:                                                                                                                          \
    static HRESULT UpdateRegistry(BOOL registering) noexcept                                                                     \
    {                                                                                                                            \
        return ATL::_pAtlModule->UpdateRegistryFromResource(id, registering);                                                    \
    }

} // namespace ATL
