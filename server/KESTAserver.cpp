#include "server/KESTAserver.h"

#include "beanframe/BeanFrame.h"
#include "com/JavaManagerATLObject.h"
#include "server/RejectedCallFilter.h"

#define LOG_SOURCE "KESTAserver"

namespace {

const ATL_OBJMAP_ENTRY OBJECT_MAP[] = {OBJECT_ENTRY(CLSID_JavaManager, CJavaManagerATLObject)};

// Whether threads queue events faster than they are fired: after a pass, which removes the messages that it has served, there are
// others already.
bool isFlooded()
{
    MSG next = {};
    PeekMessageA(&next, THREAD_MESSAGES, WM_PROCESSEVENTQUEUE, WM_PROCESSEVENTQUEUE, PM_NOREMOVE);
    return next.message == WM_PROCESSEVENTQUEUE;
}

// In a flood the next message that is not about events, if there is any. A call behind the flood, the client's release for
// instance, would have to wait longer and longer.
bool getMessage(MSG& msg, bool hasFiredEvents)
{
    if (hasFiredEvents && isFlooded() && PeekMessageA(&msg, nullptr, 0, WM_PROCESSEVENTQUEUE - 1, PM_REMOVE)) {
        return msg.message != WM_QUIT;
    }
    return GetMessageA(&msg, nullptr, 0, 0) > 0;
}

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
    bool hasFiredEvents = false;
    while (getMessage(msg, hasFiredEvents)) {
        LOG(FINE, "window message: message=" << msg.message << ", lParam=" << msg.lParam << ", wParam=" << msg.wParam);
        hasFiredEvents = msg.message == WM_PROCESSEVENTQUEUE;
        if (hasFiredEvents) {
            CBeanFrame::processEventQueue();
        }
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
        CBeanFrame::repostSwallowedMessage();
    }
}
