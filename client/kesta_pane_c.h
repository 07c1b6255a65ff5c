/* The pane of kesta_pane.h for C, and for languages that call C. What that header says of ownership, threads and failure holds
 * here too. Texts are UTF-16, with their length in code units where they may contain zero characters.
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
} kesta_handlers;

typedef void (*kesta_completion)(void* context, HRESULT hr, const wchar_t* text, size_t length);

/* NULL when the window could not be made; the reason is then in `problem`, if that is not NULL, cut to its size. */
kesta_pane* kesta_pane_create(HWND parent, const RECT* place, const kesta_options* options, const kesta_handlers* handlers,
                              wchar_t* problem, size_t problem_size);
void kesta_pane_close(kesta_pane* pane);
HWND kesta_pane_window(const kesta_pane* pane);
BOOL kesta_pane_set_parent(kesta_pane* pane, HWND parent, const RECT* place);

/* A length of KESTA_ENDS_IN_ZERO: the text ends at its first zero character. The completion may be NULL. */
#define KESTA_ENDS_IN_ZERO ((size_t)-1)
void kesta_pane_call(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, size_t length, kesta_completion completion,
                     void* context);
void kesta_pane_set(kesta_pane* pane, const wchar_t* name, const wchar_t* value, size_t length, kesta_completion completion,
                    void* context);
void kesta_pane_get(kesta_pane* pane, const wchar_t* name, kesta_completion completion, void* context);
void kesta_pane_enable(kesta_pane* pane, BOOL enabled, kesta_completion completion, void* context);

/* The same with a wait of at most `limit` milliseconds. The answer, or the error's text, is for kesta_free; it is never NULL
 * unless there is no memory. */
HRESULT kesta_pane_call_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* argument, unsigned limit,
                                 wchar_t** answer);
HRESULT kesta_pane_set_and_wait(kesta_pane* pane, const wchar_t* name, const wchar_t* value, unsigned limit, wchar_t** answer);
HRESULT kesta_pane_get_and_wait(kesta_pane* pane, const wchar_t* name, unsigned limit, wchar_t** answer);
void kesta_free(wchar_t* text);

BOOL kesta_pane_is_ready(const kesta_pane* pane);
DWORD kesta_pane_process(const kesta_pane* pane);
BOOL kesta_pane_focus(kesta_pane* pane, int way);
void kesta_pane_restart(kesta_pane* pane);
BOOL kesta_pane_translate(kesta_pane* pane, const MSG* message);
BOOL kesta_finish(unsigned limit);

#ifdef __cplusplus
}
#endif

#endif
