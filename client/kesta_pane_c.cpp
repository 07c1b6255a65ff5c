#include "client/kesta_pane_c.h"

#include "client/kesta_pane.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

struct kesta_pane
{
    std::unique_ptr<kesta::Pane> pane;
};

struct kesta_call
{
    kesta::Call call;
};

namespace {

static_assert(KESTA_TIMED_OUT == kesta::TIMED_OUT && KESTA_CANCELLED == kesta::CANCELLED && KESTA_NO_SERVER == kesta::NO_SERVER);
static_assert(KESTA_ENDED_BY_CLIENT == kesta::ENDED_BY_CLIENT);
static_assert(KESTA_NOT_STARTED == static_cast<int>(kesta::Reason::NOT_STARTED));
static_assert(KESTA_HUNG == static_cast<int>(kesta::Reason::HUNG));
static_assert(KESTA_CUSTOM == static_cast<int>(kesta::EventKind::CUSTOM));
static_assert(KESTA_BACKWARD == static_cast<int>(kesta::Way::BACKWARD));

// No exception goes through functions of C. There are none but those of memory and of texts that are too long for it.
template <typename Function>
HRESULT guarded(Function function) noexcept
{
    try {
        function();
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

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

// Issues a call, and keeps it if it is wanted.
template <typename Issue>
HRESULT issue(kesta_call** kept, Issue function) noexcept
{
    return guarded([&] {
        auto call = kept != nullptr ? std::make_unique<kesta_call>() : nullptr;
        kesta::Call issued = function();
        if (call != nullptr) {
            call->call = std::move(issued);
        }
        if (kept != nullptr) {
            *kept = call.release();
        }
    });
}

HRESULT give(const kesta::Result& result, wchar_t** answer, size_t* length)
{
    if (length != nullptr) {
        *length = result.text.size();
    }
    if (answer != nullptr) {
        const size_t size = result.text.size() + 1;
        *answer = static_cast<wchar_t*>(std::malloc(size * sizeof(wchar_t)));
        if (*answer != nullptr) {
            std::copy_n(result.text.c_str(), size, *answer);
        }
    }
    return result.hr;
}

// For functions that wait for a result.
template <typename Wait>
HRESULT giveResult(wchar_t** answer, size_t* length, Wait function) noexcept
{
    if (answer != nullptr) {
        *answer = nullptr;
    }
    if (length != nullptr) {
        *length = 0;
    }
    HRESULT hr = S_OK;
    const HRESULT failed = guarded([&] { hr = give(function(), answer, length); });
    return FAILED(failed) ? failed : hr;
}

// For functions that issue a call and wait for it.
template <typename Issue>
HRESULT waitFor(unsigned limit, wchar_t** answer, Issue function) noexcept
{
    return giveResult(answer, nullptr, [&] { return kesta::Call(function()).wait(kesta::Milliseconds(limit)); });
}

// False when memory ends.
template <typename Function>
BOOL isTrue(Function function) noexcept
{
    bool result = false;
    static_cast<void>(guarded([&] { result = function(); }));
    return result ? TRUE : FALSE;
}

kesta::Value valueOf(const kesta_value& value)
{
    switch (value.kind) {
    case KESTA_NUMBER:
        return {value.number};
    case KESTA_TRUTH:
        return {value.number != 0};
    default:
        return {textOf(value.text, value.length)};
    }
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
    if (given.focus_changed != nullptr) {
        handlers.focusChanged = [given](bool inControl) { given.focus_changed(given.context, inControl ? TRUE : FALSE); };
    }
    if (given.problem != nullptr) {
        handlers.problem = [given](const std::wstring& text) { given.problem(given.context, text.c_str()); };
    }
    return handlers;
}

} // namespace

kesta_pane* kesta_pane_create(HWND parent, const RECT* place, const kesta_options* options, const kesta_handlers* handlers,
                              wchar_t* problem, size_t problem_size)
{
    std::unique_ptr<kesta_pane> made;
    std::wstring text;
    const HRESULT hr = guarded([&] {
        kesta::Options chosen;
        if (options != nullptr) {
            chosen.control = textOf(options->control);
            chosen.version = textOf(options->version);
            setLimit(chosen.startLimit, options->start_limit);
            setLimit(chosen.callLimit, options->call_limit);
            setLimit(chosen.hangLimit, options->hang_limit);
            setLimit(chosen.closeLimit, options->close_limit);
        }
        made = std::make_unique<kesta_pane>();
        made->pane = kesta::Pane::create(parent, place != nullptr ? *place : RECT(), chosen,
                                         handlers != nullptr ? handlersOf(*handlers) : kesta::Handlers(), &text);
        if (made->pane == nullptr) {
            made.reset();
        }
    });
    if (FAILED(hr)) {
        made.reset();
    }
    if (made == nullptr && problem != nullptr && problem_size > 0) {
        const std::wstring_view reason = FAILED(hr) ? L"There is not enough memory for the pane." : std::wstring_view(text);
        problem[reason.copy(problem, problem_size - 1)] = L'\0';
    }
    return made.release();
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
    return isTrue([&] { return pane->pane->setParent(parent, *place); });
}

HRESULT kesta_pane_call(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, size_t length,
                        kesta_completion completion, void* context, kesta_call** call)
{
    return issue(call,
                 [&] { return pane->pane->call(textOf(name), textOf(argument, length), completionOf(completion, context)); });
}

HRESULT kesta_pane_set(kesta_pane* pane, const wchar_t* name, const wchar_t* value, size_t length, kesta_completion completion,
                       void* context, kesta_call** call)
{
    return issue(call, [&] { return pane->pane->set(textOf(name), textOf(value, length), completionOf(completion, context)); });
}

HRESULT kesta_pane_get(kesta_pane* pane, const wchar_t* name, kesta_completion completion, void* context, kesta_call** call)
{
    return issue(call, [&] { return pane->pane->get(textOf(name), completionOf(completion, context)); });
}

HRESULT kesta_pane_enable(kesta_pane* pane, BOOL enabled, kesta_completion completion, void* context, kesta_call** call)
{
    return issue(call, [&] { return pane->pane->enable(enabled != FALSE, completionOf(completion, context)); });
}

HRESULT kesta_pane_invoke(kesta_pane* pane, long member, const kesta_value* arguments, size_t count, kesta_completion completion,
                          void* context, kesta_call** call)
{
    return issue(call, [&] {
        std::vector<kesta::Value> values;
        std::transform(arguments, arguments + count, std::back_inserter(values), valueOf);
        return pane->pane->invoke(member, std::move(values), completionOf(completion, context));
    });
}

BOOL kesta_call_is_done(const kesta_call* call)
{
    return call->call.isDone() ? TRUE : FALSE;
}

HRESULT kesta_call_wait(const kesta_call* call, unsigned limit, wchar_t** answer, size_t* length)
{
    return giveResult(answer, length, [&] { return call->call.wait(kesta::Milliseconds(limit)); });
}

void kesta_call_cancel(const kesta_call* call)
{
    static_cast<void>(guarded([&] { call->call.cancel(); }));
}

void kesta_call_free(kesta_call* call)
{
    delete call;
}

HRESULT kesta_pane_call_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, unsigned limit, wchar_t** answer)
{
    return waitFor(limit, answer, [&] { return pane->pane->call(textOf(name), textOf(argument)); });
}

HRESULT kesta_pane_set_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* value, unsigned limit, wchar_t** answer)
{
    return waitFor(limit, answer, [&] { return pane->pane->set(textOf(name), textOf(value)); });
}

HRESULT kesta_pane_get_and_wait(kesta_pane* pane, const wchar_t* name, unsigned limit, wchar_t** answer)
{
    return waitFor(limit, answer, [&] { return pane->pane->get(textOf(name)); });
}

void kesta_free(wchar_t* text)
{
    std::free(text);
}

BOOL kesta_pane_is_ready(const kesta_pane* pane)
{
    return pane->pane->isReady() ? TRUE : FALSE;
}

HRESULT kesta_pane_wait_ready(kesta_pane* pane, unsigned limit, wchar_t** answer)
{
    return giveResult(answer, nullptr, [&] { return pane->pane->waitReady(kesta::Milliseconds(limit)); });
}

DWORD kesta_pane_process(const kesta_pane* pane)
{
    return pane->pane->process();
}

BOOL kesta_pane_focus(kesta_pane* pane, int way)
{
    return isTrue([&] { return pane->pane->focus(static_cast<kesta::Way>(way)); });
}

HRESULT kesta_pane_restart(kesta_pane* pane)
{
    return guarded([&] { pane->pane->restart(); });
}

BOOL kesta_pane_translate(kesta_pane* pane, const MSG* message)
{
    return isTrue([&] { return pane->pane->translate(*message); });
}

BOOL kesta_finish(unsigned limit)
{
    return isTrue([&] { return kesta::finish(kesta::Milliseconds(limit)); });
}
