// The server module: COM start-up, registration switches, class object, message loop, shutdown.
//
// Ownership: one global instance. It keeps the object class alive (and with it the Logger) from its construction to its destruction.
// Threads:   the main thread, but for the monitor thread that waits for the last unlock.
// Failure:   HRESULTs, which become the exit code.
#pragma once

#include "atl/atl.h"
#include "support/logger.h"

class CKESTAserverModule : public CAtlExeModuleT<CKESTAserverModule>, public virtual Loggable
{
public:
    CKESTAserverModule();

    // Drives the bean frame's event queue besides the windows of the thread. Ends on WM_QUIT.
    void RunMessageLoop();
    // Runs the AppID's registry script.
    HRESULT UpdateRegistryAppId(BOOL registering) noexcept;
};
