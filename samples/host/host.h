// The ids of the sample host's window and its controls.
#pragma once

#include <windows.h>

#define ID_WINDOW 100
#define ID_PANE 101
#define ID_CALLS_TITLE 102
#define ID_OPERATION_LABEL 103
#define ID_OPERATION 104
#define ID_NAME_LABEL 105
#define ID_NAME 106
#define ID_ARGUMENT_LABEL 107
#define ID_ARGUMENT 108
#define ID_AGAIN 109
#define ID_CALL 110
#define ID_ANSWER_TITLE 111
#define ID_ANSWER 112
#define ID_EVENTS_TITLE 113
#define ID_EVENTS 114
#define ID_STATUS 115

#ifndef RC_INVOKED
// The entries of ID_OPERATION, in their order.
enum : int { CALL_METHOD, SET_PROPERTY, GET_PROPERTY };
#endif
