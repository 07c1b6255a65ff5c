// Shared by the files of the sample host: the ids of the window's controls and the printed steps.
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
#define ID_LATE_BOUND 109
#define ID_CALL 110
#define ID_ANSWER_TITLE 111
#define ID_ANSWER 112
#define ID_EVENTS_TITLE 113
#define ID_EVENTS 114
#define ID_STATUS 115

#ifndef RC_INVOKED
#include <string>

// The entries of ID_OPERATION and the columns of ID_EVENTS, in their order.
enum : int { CALL_METHOD, SET_PROPERTY, GET_PROPERTY };
enum : int { COLUMN_TIME, COLUMN_THREAD, COLUMN_EVENT, COLUMN_TEXT };

// Prints one line with the milliseconds since the program started. Any thread.
void printStep(const std::string& text);

// Uses the window as a person would, checks what it shows, and closes it at the end. Runs on its own thread while the
// window exists. Returns the exit code of the program: 0 when everything worked.
int drive(HWND window);
#endif
