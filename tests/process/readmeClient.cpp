// The client that README.md prints, word for word, inside a program. Exit code 0: the text arrived.
#include "KESTAserver_h.h"

#include <comutil.h>
#include <wrl/client.h>

#include <string>

using Microsoft::WRL::ComPtr;

int main()
{
    CoInitialize(nullptr);
    const HWND window = CreateWindowA("STATIC", "client", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 640, 480,
                                      nullptr, nullptr, nullptr, nullptr);
    const HWND pane =
        CreateWindowA("STATIC", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 600, 400, window, nullptr, nullptr, nullptr);
    int result = 0;
    {
#include "readmeClient.inc"
        result = answer == _bstr_t(L"Hello") ? 0 : 1;
    }
    DestroyWindow(window);
    CoUninitialize();
    return result;
}
