#include "client/kesta_pane_c.h"

#include "client/kesta_pane.h"

#include <algorithm>
#include <cstdlib>

struct kesta_pane
{
    std::unique_ptr<kesta::Pane> pane;
};

namespace {

std::wstring textOf(const wchar_t* text, size_t length = KESTA_ENDS_IN_ZERO)
{
    if (text == nullptr) {
        return {};
    }
    return length == KESTA_ENDS_IN_ZERO ? std::wstring(text) : std::wstring(text, length);
}

void setLimit(kesta::Milliseconds& limit, unsigned wanted)
{
    limit = wanted != 0 ? kesta::Milliseconds(wanted) : limit;
}

kesta::Completion completionOf(kesta_completion completion, void* context)
{
    if (completion == nullptr) {
        return {};
    }
    return [completion, context](const kesta::Result& result) {
        completion(context, result.hr, result.text.c_str(), result.text.size());
    };
}

HRESULT waitFor(const kesta::Call& call, unsigned limit, wchar_t** answer)
{
    const kesta::Result result = call.wait(kesta::Milliseconds(limit));
    if (answer != nullptr) {
        const size_t size = result.text.size() + 1;
        *answer = static_cast<wchar_t*>(std::malloc(size * sizeof(wchar_t)));
        if (*answer != nullptr) {
            std::copy_n(result.text.c_str(), size, *answer);
        }
    }
    return result.hr;
}

kesta::Handlers handlersOf(const kesta_handlers& given)
{
    kesta::Handlers handlers;
    if (given.ready != nullptr) {
        handlers.ready = [given](const std::wstring& control) { given.ready(given.context, control.c_str()); };
    }
    if (given.event != nullptr) {
        handlers.event = [given](kesta::EventKind kind, const std::wstring& text) {
            given.event(given.context, static_cast<int>(kind), text.c_str(), text.size());
        };
    }
    if (given.ended != nullptr) {
        handlers.ended = [given](const kesta::Ended& ended) {
            given.ended(given.context, static_cast<int>(ended.reason), ended.hr, ended.text.c_str());
        };
    }
    if (given.focus_leaves != nullptr) {
        handlers.focusLeaves = [given](bool forward) {
            return given.focus_leaves(given.context, forward ? TRUE : FALSE) != FALSE;
        };
    }
    return handlers;
}

} // namespace

kesta_pane* kesta_pane_create(HWND parent, const RECT* place, const kesta_options* options, const kesta_handlers* handlers,
                              wchar_t* problem, size_t problem_size)
{
    kesta::Options chosen;
    if (options != nullptr) {
        chosen.control = textOf(options->control);
        chosen.version = textOf(options->version);
        setLimit(chosen.startLimit, options->start_limit);
        setLimit(chosen.callLimit, options->call_limit);
        setLimit(chosen.hangLimit, options->hang_limit);
        setLimit(chosen.closeLimit, options->close_limit);
    }
    std::wstring text;
    std::unique_ptr<kesta::Pane> pane =
        kesta::Pane::create(parent, place != nullptr ? *place : RECT(), chosen,
                            handlers != nullptr ? handlersOf(*handlers) : kesta::Handlers(), &text);
    if (pane == nullptr && problem != nullptr && problem_size > 0) {
        problem[text.copy(problem, problem_size - 1)] = L'\0';
    }
    return pane != nullptr ? new kesta_pane{std::move(pane)} : nullptr;
}

void kesta_pane_close(kesta_pane* pane)
{
    delete pane;
}

HWND kesta_pane_window(const kesta_pane* pane)
{
    return pane->pane->window();
}

BOOL kesta_pane_set_parent(kesta_pane* pane, HWND parent, const RECT* place)
{
    return pane->pane->setParent(parent, *place) ? TRUE : FALSE;
}

void kesta_pane_call(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, size_t length, kesta_completion completion,
                     void* context)
{
    pane->pane->call(textOf(name), textOf(argument, length), completionOf(completion, context));
}

void kesta_pane_set(kesta_pane* pane, const wchar_t* name, const wchar_t* value, size_t length, kesta_completion completion,
                    void* context)
{
    pane->pane->set(textOf(name), textOf(value, length), completionOf(completion, context));
}

void kesta_pane_get(kesta_pane* pane, const wchar_t* name, kesta_completion completion, void* context)
{
    pane->pane->get(textOf(name), completionOf(completion, context));
}

void kesta_pane_enable(kesta_pane* pane, BOOL enabled, kesta_completion completion, void* context)
{
    pane->pane->enable(enabled != FALSE, completionOf(completion, context));
}

HRESULT kesta_pane_call_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, unsigned limit, wchar_t** answer)
{
    return waitFor(pane->pane->call(textOf(name), textOf(argument)), limit, answer);
}

HRESULT kesta_pane_set_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* value, unsigned limit, wchar_t** answer)
{
    return waitFor(pane->pane->set(textOf(name), textOf(value)), limit, answer);
}

HRESULT kesta_pane_get_and_wait(kesta_pane* pane, const wchar_t* name, unsigned limit, wchar_t** answer)
{
    return waitFor(pane->pane->get(textOf(name)), limit, answer);
}

void kesta_free(wchar_t* text)
{
    std::free(text);
}

BOOL kesta_pane_is_ready(const kesta_pane* pane)
{
    return pane->pane->isReady() ? TRUE : FALSE;
}

DWORD kesta_pane_process(const kesta_pane* pane)
{
    return pane->pane->process();
}

BOOL kesta_pane_focus(kesta_pane* pane, int way)
{
    return pane->pane->focus(static_cast<kesta::Way>(way)) ? TRUE : FALSE;
}

void kesta_pane_restart(kesta_pane* pane)
{
    pane->pane->restart();
}

BOOL kesta_pane_translate(kesta_pane* pane, const MSG* message)
{
    return pane->pane->translate(*message) ? TRUE : FALSE;
}

BOOL kesta_finish(unsigned limit)
{
    return kesta::finish(kesta::Milliseconds(limit)) ? TRUE : FALSE;
}
