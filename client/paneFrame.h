// The Java frame's window, which belongs to the server's process. What waits for that process is for the session's own thread.
#pragma once

#include "client/kesta_pane.h"

namespace kesta {

struct SFoundFrame
{
    HWND window = nullptr;     // null: not there yet
    DWORD strangerProcess = 0; // another process that has a window of the same name, if any
};

std::wstring frameName(DWORD id);
// Among the top-level windows, by name and by process: the first frame's id is its process's. Any program can use the name.
SFoundFrame findFrame(DWORD id);

// Makes it a child that fills the holder. Waits for the server's window thread.
Result takeIn(HWND frame, HWND holder);
// Never waits. Java lays out when the size changes.
void fit(HWND frame, LONG width, LONG height);

} // namespace kesta
