// The module: the object that represents a COM server executable.
//
// It keeps the process alive while it is needed (Lock, Unlock), registers and removes the server (command-line switches), and
// runs it: class objects, message loop, shutdown.
//
// Ownership: one instance at a time, constructed and destroyed on the main thread, before the first object and after the last. It
//            owns the registrations of the class objects, and the monitor thread, which its destructor ends.
// Threads:   the main thread; the monitor thread waits for the last Unlock and ends the message loop.
// Failure:   HRESULTs, which become the exit code; an exception of the message loop leaves WinMain.
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

// What objects and registration need from their module.
class CAtlModule
{
public:
    CAtlModule(const CAtlModule&) = delete;
    CAtlModule& operator=(const CAtlModule&) = delete;

    // The number of locks, which keep the process alive; both return the new number.
    virtual LONG Lock() noexcept = 0;
    virtual LONG Unlock() noexcept = 0;

    // Runs the script that is the executable's resource `id`. Its replacements are those of AddCommonRGSReplacements and
    // %MODULE%, the executable's full path: in double quotes when it has blanks, and with doubled apostrophes, because scripts
    // put it between apostrophes.
    HRESULT UpdateRegistryFromResource(UINT id, BOOL registering) noexcept;

protected:
    CAtlModule() noexcept;
    ~CAtlModule();

    virtual void AddCommonRGSReplacements(CRegObject& /*registrar*/) {}

    // Set by the switch.
    CRegistrationScope m_registrationScope = CRegistrationScope::Machine;
};

// The one module; null before its construction and after its destruction.
extern CAtlModule* _pAtlModule;

// The module of an executable. A server derives from CAtlExeModuleT (below).
class CAtlExeModule : public CAtlModule
{
public:
    LONG Lock() noexcept override;
    LONG Unlock() noexcept override;

    // Initialises COM and does what the command line says: registers, removes or runs the server. Returns the exit code:
    // -1 when the module could not be constructed, else the HRESULT of the registration, of a failed start or of the shutdown.
    //
    // A switch is a word after any "-" or "/" of the command line (the executable's path is part of it), in any case; a word ends
    // at a blank, a tab or the end. The first one decides.
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

    // Ends on WM_QUIT.
    virtual void RunMessageLoop() = 0;
    // Registers or removes the AppID.
    virtual HRESULT UpdateAppId(BOOL registering) = 0;

    // Set when the construction failed.
    bool m_bInitFailed = false;

private:
    HRESULT UpdateRegistration(BOOL registering);
    HRESULT UpdateServer(BOOL registering);
    HRESULT Run();
    HRESULT PreMessageLoop();
    HRESULT RegisterClassObjects();
    HRESULT RevokeClassObjects() noexcept;
    bool StartMonitor() noexcept;
    void MonitorShutdown() noexcept;
    void EndMonitor() noexcept;
    void SignalShutdown() noexcept;
    void EndMessageLoop() noexcept;

    std::span<const ATL_OBJMAP_ENTRY> m_objectMap;
    std::vector<DWORD> m_classObjects;
    // Made when the class objects are registered; the monitor thread closes the event.
    CHandle m_hEventShutdown;
    CHandle m_hMonitorThread;
    // Guards m_hEventShutdown: the main thread may signal it again while the monitor thread closes it.
    CComCriticalSection m_csShutdown;
    // Tells the monitor thread that there is no message loop left to end.
    std::atomic<bool> m_ending = false;
};

// The base of the server's module class T, which overrides RunMessageLoop and contains
//     DECLARE_REGISTRY_APPID_RESOURCEID(101, "{...}")   the number of the AppID script and the text for %APPID%
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
