// The pane that README.md prints, word for word, inside a program. Exit code 0: the text arrived.
#include "client/kesta_pane.h"

namespace {

constexpr ULONGLONG LIMIT = 40000; // ms

std::wstring textOf(HWND window)
{
    wchar_t text[200] = L"";
    GetWindowTextW(window, text, 200);
    return text;
}

} // namespace

int main()
{
    const HWND window = CreateWindowW(L"STATIC", L"client", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 640, 480,
                                      nullptr, nullptr, nullptr, nullptr);
    int result = 1;
    {
#include "readmePane.inc"
        const ULONGLONG end = GetTickCount64() + LIMIT;
        while (result != 0 && GetTickCount64() < end) {
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
                DispatchMessageW(&message);
            }
            result = textOf(window) == L"Wind power by site" ? 0 : 1;
        }
    }
    DestroyWindow(window);
    return result;
}
