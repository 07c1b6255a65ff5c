// The server module: COM start-up, registration switches, class object, message loop, shutdown.
//
// Ownership: one global instance. Through ObjectMain it keeps the Logger alive while it exists.
// Threads:   the main thread, except the monitor thread, which waits for the last unlock.
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
    // Dispatches window messages and processes the bean frame's events until WM_QUIT or an error.
    void RunMessageLoop() override;
};
