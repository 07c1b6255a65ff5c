// A program beside the client: a field as a window of its own. Prints the window's handle. The test ends it.
#include <windows.h>

#include <cstdio>

int main()
{
    const HWND window =
        CreateWindowExW(0, L"EDIT", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 600, 300, 120, nullptr, nullptr, nullptr, nullptr);
    std::printf("%p\n", static_cast<void*>(window));
    std::fflush(stdout);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return 0;
}
