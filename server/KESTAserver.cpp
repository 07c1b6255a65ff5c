#include "server/KESTAserver.h"

#include "beanframe/BeanFrame.h"
#include "com/JavaManagerATLObject.h"
#include "server/RejectedCallFilter.h"

#define LOG_SOURCE "KESTAserver"

namespace {

const ATL_OBJMAP_ENTRY OBJECT_MAP[] = {OBJECT_ENTRY(CLSID_JavaManager, CJavaManagerATLObject)};

} // namespace

CKESTAserverModule::CKESTAserverModule()
    : CAtlExeModuleT(OBJECT_MAP)
{
}

void CKESTAserverModule::RunMessageLoop()
{
    LOG_SCOPE(FINE, "CKESTAserverModule::RunMessageLoop");
    const CRejectedCallFilter filter;
    MSG msg;
    while (GetMessageA(&msg, nullptr, 0, 0) > 0) {
        LOG(FINE, "window message: message=" << msg.message << ", lParam=" << msg.lParam << ", wParam=" << msg.wParam);
        if (msg.message == WM_PROCESSEVENTQUEUE) {
            CBeanFrame::processEventQueue();
        }
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
        CBeanFrame::repostSwallowedMessage();
    }
}
