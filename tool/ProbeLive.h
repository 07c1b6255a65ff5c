// A client in small, for "check --live": takes the frame into a window of its own, calls the control and waits for an event.
//
// Threads: one, in a single-threaded apartment. Failure: what does not work is in the answer.
#pragma once

#include "KESTAserver_h.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

// Adds to the answer: "isTakenIn", with "isReadyReceived" if it is so; "isEventReceived" with "eventMilliseconds";
// "customEvents", which nobody has ordered; and if there are `controls`, the names of those in the class path, "isControlReady"
// with "controlError".
void probeLive(IJavaManager* object, int frameId, const std::vector<std::string>& controls, nlohmann::json& answer);

// What a call that has just failed said of itself, without its backtrace; the text of its result when nothing came with it.
std::string errorText(HRESULT result);
