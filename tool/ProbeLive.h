// A client in small, for "check --live": takes the frame into a window of its own, calls the control and waits for an event.
//
// Threads: one, in a single-threaded apartment. Failure: what does not work is in the answer.
#pragma once

#include "KESTAserver_h.h"

#include <nlohmann/json_fwd.hpp>

// Adds "isTakenIn", "isControlReady" and "isEventReceived" with "eventMilliseconds" to the answer.
void probeLive(IJavaManager* object, int frameId, nlohmann::json& answer);
