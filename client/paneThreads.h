// Threads for sessions: COM's apartments that are used again.
//
// Kept, because a program may have few under Wine: an apartment that has held a sink has an endpoint until the program's end, and
// the program's COM hears nothing any more when there are more than sixty.
#pragma once

#include <windows.h>

#include <functional>

namespace kesta {

// Any thread. Runs the work in a single-threaded apartment, with the result of its initialisation. Throws std::system_error when
// there is no idle thread and none can be started.
void runInApartment(std::function<void(HRESULT)> work);
// Any thread. Ends the idle ones, and waits until they have nothing left to do.
void endIdleApartments();

} // namespace kesta
