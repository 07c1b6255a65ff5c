/* The pane of kesta_pane.h for C, and for languages that call C. What that header says of ownership, threads and failure holds
 * here too. Texts are UTF-16, with their length in code units where they may contain zero characters.
 *
 * Functions that return an HRESULT and nothing else fail with E_OUTOFMEMORY only, and have done nothing then.
 */
#ifndef KESTA_PANE_C_H
#define KESTA_PANE_C_H

#include <windows.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kesta_pane kesta_pane;

/* Limits in milliseconds. 0 or NULL: the default. */
typedef struct kesta_options
{
    const wchar_t* control;
    const wchar_t* version;
    unsigned start_limit;
    unsigned call_limit;
    unsigned hang_limit;
    unsigned close_limit;
} kesta_options;

/* Failures of the library's own, and the exit code of a server that it has ended. */
#define KESTA_TIMED_OUT ((HRESULT)0x8001011FL)
#define KESTA_CANCELLED ((HRESULT)0x80010002L)
#define KESTA_NO_SERVER ((HRESULT)0x80010108L)
#define KESTA_ENDED_BY_CLIENT 1067

enum { KESTA_NOT_STARTED, KESTA_DIED, KESTA_HUNG };
enum { KESTA_TEST_BRIDGE, KESTA_CONTROL_READY, KESTA_CUSTOM };
enum { KESTA_HERE, KESTA_FORWARD, KESTA_BACKWARD };

/* Each may be NULL. The context is passed back as it is. */
typedef struct kesta_handlers
{
    void* context;
    void (*ready)(void* context, const wchar_t* control);
    void (*event)(void* context, int kind, const wchar_t* text, size_t length);
    void (*ended)(void* context, int reason, HRESULT hr, const wchar_t* text);
    BOOL (*focus_leaves)(void* context, BOOL forward);
    void (*focus_changed)(void* context, BOOL in_control);
    void (*problem)(void* context, const wchar_t* text); /* of handlers in C++ */
} kesta_handlers;

typedef void (*kesta_completion)(void* context, HRESULT hr, const wchar_t* text, size_t length);

/* NULL when the window could not be made; the reason is then in `problem`, if that is not NULL, cut to its size. */
kesta_pane* kesta_pane_create(HWND parent, const RECT* place, const kesta_options* options, const kesta_handlers* handlers,
                              wchar_t* problem, size_t problem_size);
void kesta_pane_close(kesta_pane* pane);
HWND kesta_pane_window(const kesta_pane* pane);
BOOL kesta_pane_set_parent(kesta_pane* pane, HWND parent, const RECT* place);

/* A call that was issued; any thread. */
typedef struct kesta_call kesta_call;
enum { KESTA_TEXT, KESTA_NUMBER, KESTA_TRUTH };
typedef struct kesta_value
{
    int kind;
    int number; /* not 0: true */
    const wchar_t* text;
    size_t length;
} kesta_value;

/* A length of KESTA_ENDS_IN_ZERO: the text ends at its first zero character. The completion may be NULL. So may `call`; a call is
 * made whether or not one is kept, and what is kept is for kesta_call_free. */
#define KESTA_ENDS_IN_ZERO ((size_t)-1)
HRESULT kesta_pane_call(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, size_t length,
                        kesta_completion completion, void* context, kesta_call** call);
HRESULT kesta_pane_set(kesta_pane* pane, const wchar_t* name, const wchar_t* value, size_t length, kesta_completion completion,
                       void* context, kesta_call** call);
HRESULT kesta_pane_get(kesta_pane* pane, const wchar_t* name, kesta_completion completion, void* context, kesta_call** call);
HRESULT kesta_pane_enable(kesta_pane* pane, BOOL enabled, kesta_completion completion, void* context, kesta_call** call);
HRESULT kesta_pane_invoke(kesta_pane* pane, long member, const kesta_value* arguments, size_t count, kesta_completion completion,
                          void* context, kesta_call** call);

BOOL kesta_call_is_done(const kesta_call* call);
/* Cancels the call at the limit. The answer, or the error's text, is for kesta_free; it is NULL only when there is no memory.
 * `answer` and `length` may be NULL. */
HRESULT kesta_call_wait(const kesta_call* call, unsigned limit, wchar_t** answer, size_t* length);
void kesta_call_cancel(const kesta_call* call);
void kesta_call_free(kesta_call* call);

/* Both in one, for texts that end in a zero character. */
HRESULT kesta_pane_call_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, unsigned limit,
                                 wchar_t** answer);
HRESULT kesta_pane_set_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* value, unsigned limit, wchar_t** answer);
HRESULT kesta_pane_get_and_wait(kesta_pane* pane, const wchar_t* name, unsigned limit, wchar_t** answer);
void kesta_free(wchar_t* text);

BOOL kesta_pane_is_ready(const kesta_pane* pane);
/* The answer is the control's name and version, or the reason why there is none; for kesta_free. */
HRESULT kesta_pane_wait_ready(kesta_pane* pane, unsigned limit, wchar_t** answer);
DWORD kesta_pane_process(const kesta_pane* pane);
BOOL kesta_pane_focus(kesta_pane* pane, int way);
HRESULT kesta_pane_restart(kesta_pane* pane);
BOOL kesta_pane_translate(kesta_pane* pane, const MSG* message);
BOOL kesta_finish(unsigned limit);

#ifdef __cplusplus
}
#endif

#endif
