// Process entry.
#include "javabridge/JavaManagerJNIClient.h"
#include "server/KESTAserver.h"
#include "support/helpers.h"

#define LOG_SOURCE "KESTAserver"

namespace {

CKESTAserverModule s_module;

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR lpCmdLine, int nShowCmd)
{
    LOG_SCOPE_STATIC(INFO, "WinMain", lpCmdLine);
    int result = 0;
    try {
        result = s_module.WinMain(nShowCmd);
    } catch (...) {
        LOG(ERROR, "Unexpected exception in main class");
    }
    // The Java side is cleaned up whatever happened to the module.
    try {
        CJavaManagerJNIClient::cleanUp();
    } catch (...) {
        LOG(ERROR, "Unexpected exception in main class");
    }
    // Silent only from here on, so that the process can end without error boxes while the Java runtime and the runtime libraries
    // unload; a fault before this point should be seen.
    LOG_HRESULT(CHelpers::setErrorModeSilent());
    return result;
}
