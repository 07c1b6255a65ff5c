// The verb "java": lists runtimes, makes the server use one of them, and takes that back.
//
// `use` adds one key below JavaSoft\JRE, whose name has an underscore so that a preference can pick it, and sets javavm to it.
// What was there before is kept in that key; `remove` restores it and removes what `use` has added, and nothing else.
//
// Threads: the main thread. Failure: what the registry refuses is a fault among the findings; a `use` that fails half-way is
// taken back.
#pragma once

#include "tool/Findings.h"

#include <string>

// The runtimes that the server considers and those that it does not see.
CFindings listRuntimes();
// The runtime must start before anything is written, except `withoutStart`.
CFindings useRuntime(const std::string& folder, bool withoutStart = false);
CFindings removeRuntime();
