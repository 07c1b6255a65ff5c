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
    // Even after an exception of the module.
    try {
        CJavaManagerJNIClient::cleanUp();
    } catch (...) {
        LOG(ERROR, "Unexpected exception in main class");
    }
    // Deliberately only now: while the Java runtime and the runtime libraries unload, error boxes are unwanted, but earlier
    // faults should be seen.
    LOG_HRESULT(CHelpers::setErrorModeSilent());
    return result;
}
