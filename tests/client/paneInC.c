#include "tests/client/paneInC.h"

#include "client/kesta_pane_c.h"

#include <wchar.h>

#define LIMIT 40000

struct seen
{
    int ready;
    int events;
    size_t completed_length;
    int ended;
    int hung;
    int left;  /* by Tab */
    int focus; /* 1: came, 2: left afterwards */
};

static void on_ready(void* context, const wchar_t* control)
{
    ((struct seen*)context)->ready = wcsncmp(control, L"TestControl", 11) == 0;
}

static void on_event(void* context, int kind, const wchar_t* text, size_t length)
{
    ((struct seen*)context)->events += kind == KESTA_CUSTOM && length == 6 && wcscmp(text, L"raised") == 0;
}

static void on_ended(void* context, int reason, HRESULT hr, const wchar_t* text)
{
    ((struct seen*)context)->ended += reason == KESTA_DIED && FAILED(hr) && *text != L'\0';
    ((struct seen*)context)->hung += reason == KESTA_HUNG && hr == KESTA_TIMED_OUT && *text != L'\0';
}

static void on_completed(void* context, HRESULT hr, const wchar_t* text, size_t length)
{
    ((struct seen*)context)->completed_length = SUCCEEDED(hr) && text[length] == L'\0' ? length : 0;
}

static BOOL on_focus_leaves(void* context, BOOL forward)
{
    ((struct seen*)context)->left += forward;
    return TRUE;
}

static void on_focus_changed(void* context, BOOL in_control)
{
    struct seen* seen = context;
    seen->focus = in_control ? 1 : seen->focus == 1 ? 2 : 0;
}

static int pump_until(int (*done)(const struct seen*), const struct seen* seen, kesta_pane* pane)
{
    const ULONGLONG end = GetTickCount64() + LIMIT;
    while (!done(seen)) {
        MSG message;
        if (GetTickCount64() > end) {
            return 0;
        }
        MsgWaitForMultipleObjects(0, NULL, FALSE, 100, QS_ALLINPUT);
        while (PeekMessageW(&message, NULL, 0, 0, PM_REMOVE)) {
            if (!kesta_pane_translate(pane, &message)) {
                DispatchMessageW(&message);
            }
        }
    }
    return 1;
}

static int is_ready(const struct seen* seen)
{
    return seen->ready;
}

static int has_event(const struct seen* seen)
{
    return seen->events > 0;
}

static int is_completed(const struct seen* seen)
{
    return seen->completed_length == 3;
}

static int is_hung(const struct seen* seen)
{
    return seen->hung > 0;
}

static int is_inside(const struct seen* seen)
{
    return seen->focus == 1;
}

static int is_outside(const struct seen* seen)
{
    return seen->focus == 2;
}

/* Calls that are kept. Returns 0, or the number of the step that failed. */
static int keep_calls(kesta_pane* pane)
{
    const kesta_value arguments[] = {{KESTA_TEXT, 0, L"echo", KESTA_ENDS_IN_ZERO}, {KESTA_TEXT, 0, L"a\0b and more", 3}};
    const kesta_value bridge[] = {{KESTA_TEXT, 0, L"bridge", 6}, {KESTA_NUMBER, 1, NULL, 0}, {KESTA_NUMBER, 0, NULL, 0}};
    const kesta_value off[] = {{KESTA_TRUTH, 0, NULL, 0}};
    kesta_call* call = NULL;
    kesta_call* behind = NULL;
    wchar_t* answer = NULL;
    size_t length = 0;
    int failed = 0;
    if (kesta_pane_invoke(pane, 3, arguments, 2, NULL, NULL, &call) != S_OK ||
        kesta_call_wait(call, 20000, &answer, &length) != S_OK || length != 3 || wmemcmp(answer, L"a\0b", 4) != 0 ||
        !kesta_call_is_done(call)) {
        failed = 20;
    }
    kesta_free(answer);
    kesta_call_free(call);
    if (kesta_pane_invoke(pane, 17, bridge, 3, NULL, NULL, &call) != S_OK || FAILED(kesta_call_wait(call, 20000, NULL, NULL))) {
        failed = 21;
    }
    kesta_call_free(call);
    if (kesta_pane_invoke(pane, 18, off, 1, NULL, NULL, &call) != S_OK || FAILED(kesta_call_wait(call, 20000, NULL, NULL))) {
        failed = 22;
    }
    kesta_call_free(call);
    if (kesta_pane_enable(pane, TRUE, NULL, NULL, &call) != S_OK || FAILED(kesta_call_wait(call, 20000, NULL, NULL))) {
        failed = 26;
    }
    kesta_call_free(call);
    if (kesta_pane_call(pane, L"sleep", L"300", 3, NULL, NULL, &call) != S_OK ||
        kesta_pane_set(pane, L"text", L"never", 5, NULL, NULL, &behind) != S_OK) {
        return 23;
    }
    kesta_call_cancel(behind);
    if (kesta_call_wait(behind, 0, NULL, NULL) != KESTA_CANCELLED || kesta_call_wait(call, 50, NULL, NULL) != KESTA_TIMED_OUT) {
        failed = 24;
    }
    kesta_call_free(behind);
    kesta_call_free(call);
    if (kesta_pane_call(pane, L"echo", L"too long", KESTA_ENDS_IN_ZERO - 1, NULL, NULL, NULL) != E_OUTOFMEMORY) {
        failed = 25;
    }
    return failed;
}

/* Java asks for the focus a moment after it has come, and takes it back if it has gone on by then. */
static int has_java_focus(kesta_pane* pane)
{
    const ULONGLONG end = GetTickCount64() + LIMIT;
    int has_focus = 0;
    while (!has_focus && GetTickCount64() < end) {
        wchar_t* answer = NULL;
        has_focus = kesta_pane_call_and_wait(pane, L"focusOwner", L"", 20000, &answer) == S_OK && wcscmp(answer, L"field") == 0;
        kesta_free(answer);
        Sleep(20);
    }
    return has_focus;
}

/* Into the control and out again. Returns 0, or the number of the step that failed. */
static int move_focus(kesta_pane* pane, HWND window, const struct seen* seen)
{
    SetForegroundWindow(window);
    if (!kesta_pane_focus(pane, KESTA_HERE) || !pump_until(is_inside, seen, pane) || !has_java_focus(pane)) {
        return 10;
    }
    SetFocus(window);
    return pump_until(is_outside, seen, pane) ? 0 : 11;
}

/* Another window around the pane, a call that takes longer than a second, and another server. Returns 0, or the number of the
 * step that failed. */
static int move_and_restart(kesta_pane* pane, HWND window, struct seen* seen)
{
    const RECT place = {0, 0, 200, 100};
    const HWND other = CreateWindowW(L"STATIC", L"other", WS_OVERLAPPEDWINDOW, 0, 0, 300, 200, NULL, NULL, NULL, NULL);
    const MSG tab = {kesta_pane_window(pane), WM_KEYDOWN, VK_TAB, 0, 0, {0, 0}};
    const DWORD process = kesta_pane_process(pane);
    int failed = 0;
    if (!kesta_pane_set_parent(pane, other, &place) || GetParent(kesta_pane_window(pane)) != other ||
        !kesta_pane_set_parent(pane, window, &place) || GetParent(kesta_pane_window(pane)) != window) {
        failed = 30;
    }
    DestroyWindow(other);
    if (kesta_pane_set_parent(pane, other, &place)) {
        failed = 31;
    }
    if (!kesta_pane_translate(pane, &tab) || seen->left != 1) {
        failed = 32;
    }
    seen->hung = 0;
    seen->ready = 0;
    kesta_pane_call(pane, L"sleep", L"1500", KESTA_ENDS_IN_ZERO, NULL, NULL, NULL);
    if (!pump_until(is_hung, seen, pane) || !pump_until(is_ready, seen, pane)) {
        failed = 33;
    }
    if (kesta_pane_restart(pane) != S_OK || kesta_pane_wait_ready(pane, LIMIT, NULL) != S_OK ||
        kesta_pane_process(pane) == process) {
        failed = 34;
    }
    return failed;
}

int usePaneFromC(HWND window)
{
    const RECT place = {0, 0, 300, 200};
    const kesta_options options = {L"TestControl", NULL, 0, 20000, 1000, 0};
    struct seen seen = {0};
    const kesta_handlers handlers = {&seen, on_ready, on_event, on_ended, on_focus_leaves, on_focus_changed, NULL};
    wchar_t problem[200] = L"";
    wchar_t* answer = NULL;
    HRESULT hr = S_OK;
    int failed = 0;
    kesta_pane* pane = kesta_pane_create(NULL, &place, &options, &handlers, problem, 20);
    if (pane != NULL || wcscmp(problem, L"The pane's window c") != 0) {
        return 1;
    }
    pane = kesta_pane_create(window, &place, &options, &handlers, problem, 200);
    if (pane == NULL || !IsWindow(kesta_pane_window(pane)) || kesta_pane_wait_ready(pane, 1, NULL) != KESTA_TIMED_OUT ||
        kesta_pane_wait_ready(pane, LIMIT, &answer) != S_OK || wcsncmp(answer, L"TestControl;", 12) != 0 || seen.ready != 0 ||
        !pump_until(is_ready, &seen, pane)) {
        return 2;
    }
    kesta_free(answer);
    if (!kesta_pane_is_ready(pane) || kesta_pane_process(pane) == 0) {
        failed = 3;
    }
    hr = kesta_pane_call_and_wait(pane, L"echo", L"there", 20000, &answer);
    if (hr != S_OK || answer == NULL || wcscmp(answer, L"there") != 0) {
        failed = 4;
    }
    kesta_free(answer);
    hr = kesta_pane_call_and_wait(pane, L"throw", L"on purpose", 20000, &answer);
    if (SUCCEEDED(hr) || answer == NULL || wcsstr(answer, L"on purpose") == NULL) {
        failed = 5;
    }
    kesta_free(answer);
    if (kesta_pane_set_and_wait(pane, L"text", L"abc", 20000, NULL) != S_OK) {
        failed = 6;
    }
    kesta_pane_get(pane, L"text", on_completed, &seen, NULL);
    if (!pump_until(is_completed, &seen, pane)) {
        failed = 7;
    }
    kesta_pane_call(pane, L"raise", L"raised and more", 6, NULL, NULL, NULL);
    if (!pump_until(has_event, &seen, pane)) {
        failed = 8;
    }
    failed = failed != 0 ? failed : keep_calls(pane);
    failed = failed != 0 ? failed : move_focus(pane, window, &seen);
    failed = failed != 0 ? failed : move_and_restart(pane, window, &seen);
    kesta_pane_close(pane);
    return seen.ended == 0 ? failed : 9;
}
