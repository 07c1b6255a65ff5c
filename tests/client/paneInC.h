/* A client in C. Returns 0, or the number of the step that failed. Call it on a thread that may handle messages. */
#pragma once

#include <windows.h>

#ifdef __cplusplus
extern "C"
#endif
    int
    usePaneFromC(HWND window);
