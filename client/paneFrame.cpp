#include "client/paneFrame.h"

#include "client/paneObject.h"

#include <algorithm>

namespace kesta {

std::wstring frameName(DWORD id)
{
    return L"kesta_frame_" + std::to_wstring(id);
}

SFoundFrame findFrame(DWORD id)
{
    SFoundFrame found;
    const std::wstring name = frameName(id);
    HWND window = nullptr;
    while (found.window == nullptr && (window = FindWindowExW(nullptr, window, nullptr, name.c_str())) != nullptr) {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == id) {
            found.window = window;
        } else {
            found.strangerProcess = process;
        }
    }
    return found;
}

Result takeIn(HWND frame, HWND holder)
{
    constexpr LONG_PTR TOP_LEVEL_STYLES = WS_CAPTION | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX | WS_SYSMENU;
    const LONG_PTR style = GetWindowLongPtrW(frame, GWL_STYLE) & ~TOP_LEVEL_STYLES & ~LONG_PTR{WS_POPUP};
    SetWindowLongPtrW(frame, GWL_STYLE, style | WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS);
    // Without this, each click in the frame is a message that this program has to handle first.
    SetWindowLongPtrW(frame, GWL_EXSTYLE, GetWindowLongPtrW(frame, GWL_EXSTYLE) | WS_EX_NOPARENTNOTIFY);
    SetParent(frame, holder);
    if (GetAncestor(frame, GA_PARENT) != holder) {
        return lastFailure(L"The control's window could not be taken into the pane.");
    }
    // Java repaints only for a size that differs from the last one.
    RECT area = {};
    GetClientRect(holder, &area);
    fit(frame, area.right, area.bottom + 1);
    return {};
}

void fit(HWND frame, LONG width, LONG height)
{
    SetWindowPos(frame, nullptr, 0, 0, static_cast<int>(std::max(width, 1L)), static_cast<int>(std::max(height, 1L)),
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_ASYNCWINDOWPOS);
}

} // namespace kesta
