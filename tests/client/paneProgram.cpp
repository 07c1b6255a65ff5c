// Programs that end, or unload the DLL that has the library in it. The argument says how; exit code 0: as expected.
//   leak    ends with a pane that nobody destroys
//   static  ends with a pane that is destroyed after the library's own objects
//   dll     ends with a DLL whose pane was closed just now, without finish
//   unload  loads, uses and unloads the DLL, twice: with a message loop, and step by step
#include "client/kesta_pane.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr ULONGLONG LIMIT = 40000; // ms
std::unique_ptr<kesta::Pane> s_pane;

template <typename Condition>
bool pumpUntil(Condition condition)
{
    const ULONGLONG end = GetTickCount64() + LIMIT;
    while (!condition()) {
        if (GetTickCount64() > end) {
            return false;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
            DispatchMessageW(&message);
        }
    }
    return true;
}

template <typename Function>
Function function(HMODULE dll, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
}

bool endInOwnTime(HWND window, bool isLeaked)
{
    s_pane = kesta::Pane::create(window, {0, 0, 300, 200}, {L"TestControl"}, {});
    const bool isReady = pumpUntil([] { return s_pane->isReady(); });
    if (isLeaked) {
        static_cast<void>(s_pane.release());
    }
    return isReady;
}

bool useDll(HMODULE dll, HWND window, bool isStepByStep)
{
    function<void (*)(HWND)>(dll, "openPane")(window);
    const bool isReady = isStepByStep ? function<BOOL (*)()>(dll, "waitReady")() != FALSE
                                      : pumpUntil([&] { return function<DWORD (*)()>(dll, "readyProcess")() != 0; });
    function<void (*)()>(dll, "closePane")();
    return isReady;
}

bool unload(HWND window)
{
    for (int round = 0; round < 2; ++round) {
        const HMODULE dll = LoadLibraryW(L"pane_dll.dll");
        if (!useDll(dll, window, round == 1) || function<BOOL (*)()>(dll, "finishPanes")() == FALSE) {
            std::puts("not used");
            return false;
        }
        FreeLibrary(dll);
        if (GetModuleHandleW(L"pane_dll.dll") != nullptr) {
            std::puts("still loaded");
            return false;
        }
        for (const wchar_t* name : {L"kesta pane", L"kesta pane base", L"kesta pane holder"}) {
            WNDCLASSW description = {};
            if (GetClassInfoW(dll, name, &description) != FALSE) {
                std::printf("the class %ls is left\n", name);
                return false;
            }
        }
    }
    return true;
}

} // namespace

int main(int count, char** arguments)
{
    const char* const how = count > 1 ? arguments[1] : "";
    const HWND window = CreateWindowW(L"STATIC", L"client", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, 640, 480,
                                      nullptr, nullptr, nullptr, nullptr);
    bool isGood = false;
    if (std::strcmp(how, "leak") == 0 || std::strcmp(how, "static") == 0) {
        isGood = endInOwnTime(window, std::strcmp(how, "leak") == 0);
    } else if (std::strcmp(how, "dll") == 0) {
        isGood = useDll(LoadLibraryW(L"pane_dll.dll"), window, false);
    } else if (std::strcmp(how, "unload") == 0) {
        isGood = unload(window);
    }
    std::puts("ends");
    return isGood ? 0 : 1;
}
