// A client in a DLL, for paneProgram.
#include "client/kesta_pane.h"

namespace {

// Never destroyed with the DLL, but by closePane.
kesta::Pane* s_pane = nullptr;

} // namespace

extern "C" {

__declspec(dllexport) void openPane(HWND parent)
{
    s_pane = kesta::Pane::create(parent, {0, 0, 300, 200}, {L"TestControl"}, {}).release();
}

__declspec(dllexport) DWORD readyProcess()
{
    return s_pane->isReady() ? s_pane->process() : 0;
}

// Without the handling of messages that readyProcess needs.
__declspec(dllexport) BOOL waitReady()
{
    return s_pane->waitReady(kesta::Milliseconds(40000)) ? TRUE : FALSE;
}

__declspec(dllexport) void closePane()
{
    delete s_pane;
    s_pane = nullptr;
}

__declspec(dllexport) BOOL finishPanes()
{
    return kesta::finish(kesta::Milliseconds(10000)) ? TRUE : FALSE;
}
}
