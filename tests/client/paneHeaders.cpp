// The client's headers in a program of other habits: with the macros of Windows' headers, and nothing of this project's settings.
#include <windows.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

// As the headers of other compilers define them.
#ifndef min
#define min(a, b) (((a) < (b)) ? (a) : (b))
#endif
#ifndef max
#define max(a, b) (((a) > (b)) ? (a) : (b))
#endif

#include "client/kesta_pane.h"
#include "client/kesta_pane_c.h"
#include "client/kesta_text.h"

static_assert(__cplusplus < 202002L);

// Some of each, so that the templates in them are compiled too.
std::unique_ptr<kesta::Pane> openInAnotherProgram(HWND parent)
{
    kesta::Handlers handlers;
    handlers.ready = [](const std::wstring&) {};
    auto pane = kesta::Pane::create(parent, {0, 0, 100, 100}, {L"Stations"}, handlers);
    pane->invoke(3, {L"echo", kesta::text::encode(std::wstring(L"text")), 1, true}).cancel();
    return kesta_finish(0) != FALSE ? std::move(pane) : nullptr;
}
