// Threads for sessions: COM's apartments that are used again.
//
// Kept, because a program may have few under Wine: an apartment that has held a sink has an endpoint until the program's end, and
// the program's COM hears nothing any more when there are more than sixty. Each holds the library's module, so that a DLL stays
// loaded as long as one of them is there.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>

namespace kesta {

// Any thread. Runs the work in a single-threaded apartment, with the result of its initialisation, and then signals the event,
// when the thread is idle again. False, with Windows' last error, when there is no idle thread and none can be started.
bool runInApartment(std::function<void(HRESULT)> work, std::shared_ptr<void> done);
// Any thread. Ends the idle ones; at the limit it waits no longer for them.
void endIdleApartments(DWORD limit);

} // namespace kesta
