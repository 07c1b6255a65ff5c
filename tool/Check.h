// The verb "check": everything that a start of the server depends on, from its registration to a live start.
//
// Threads: the main thread. Failure: what cannot be found out is a row of its own; only exhausted memory throws.
#pragma once

#include "javabridge/JavaManagerJNIClientSettings.h"
#include "tool/Findings.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// Registration in both views, per user and machine. `server` receives the executable that programs of this user get; "" without.
CFindings checkRegistration(std::string& server);

// Every runtime that the server considers, why it is chosen or not, and the preference pattern item by item.
CFindings checkRuntimes(const JVMChoice& choice);
// The same runtimes, each started in a child process with the server's class path and options. With `expectsClassData` the
// chosen one must use the archive that an option names. `limit` is in milliseconds, for each start.
CFindings checkStarts(const JVMChoice& choice, const std::string& server, const std::string& basisControl, bool expectsClassData,
                      DWORD limit);
// Runtimes of this machine that the server does not see.
CFindings checkUnseenRuntimes(const JVMChoice& choice);

// Class path, options, policy file, variables that change Java's start, and the log's folder.
CFindings checkClassPath(const ControlClassPath& classPath, const std::string& basisControl);
CFindings checkOptions(const std::vector<MachineOption>& options);
CFindings checkPolicy(const std::string& policyFile, const std::string& javaVersion);
CFindings checkVariables();
CFindings checkLogFolder(const std::string& folder);

// The registered server, created as a client does it; `withWindow` also takes its frame into a window, chooses one of the
// controls and waits for an event.
CFindings checkLiveStart(bool withWindow, const std::vector<std::string>& controls, DWORD limit);

struct CheckResult
{
    CFindings findings;
    nlohmann::json details; // what the server would use: runtime, class path, options
};

// How far a check goes.
enum class CheckDepth { Static, Starts, Window };

// `log` is what the server's Logger would have.
CheckResult checkMachine(const MachineLogSettings& log, CheckDepth depth, DWORD limit);

// The executable that is registered for the machine; "" without one.
std::string machineServerExecutable();
// The executable whose settings count: the registered one, else the one beside this program.
std::string serverExecutable();
// The basis control that a server takes. Like the server, this asks only whether there is a file of that name.
std::string basisControlOf(const std::string& server);
