// The server module: COM start-up, registration switches, class object, message loop, shutdown.
//
// Ownership: one global instance. It keeps the object class alive (and with it the Logger) from its construction to its
//            destruction.
// Threads:   the main thread, but for the monitor thread that waits for the last unlock.
// Failure:   HRESULTs, which become the exit code.
#pragma once

#include "atl/atl.h"
#include "support/logger.h"

class CKESTAserverModule : public CAtlExeModuleT<CKESTAserverModule>, public virtual Loggable
{
public:
    CKESTAserverModule();

    DECLARE_REGISTRY_APPID_RESOURCEID(101, "{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}")

protected:
    // Drives the bean frame's event queue besides the windows of the thread. Ends on WM_QUIT or an error.
    void RunMessageLoop() override;
};
