// The verb "accept": runs scenarios against the registered server with Windows' own means, one after the other, and writes what
// it has seen to a page.
//
// Each scenario runs in a child process with a time limit. It writes no registry key. It ends no processes but its children and,
// when they do not end themselves, the servers that COM started for those.
//
// Threads: the main thread. Failure: what goes wrong in a scenario is its row. A page that cannot be written throws
// std::runtime_error before the first scenario; when that shows itself only at the end, it is a row.
#pragma once

#include "tool/AcceptScenario.h"
#include "tool/Findings.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

struct AcceptOrder
{
    std::string page;
    std::vector<std::string> only; // ids; empty for all
    bool isLong = false;           // also what takes minutes
};

struct AcceptResult
{
    CFindings findings;
    nlohmann::json details; // "surroundings", "figures", and "scenarios" with what each has seen
};

// `progress` gets a line for each scenario. Throws std::runtime_error for an id that is not known.
AcceptResult runAcceptance(const AcceptOrder& order, std::ostream& progress);

// All scenarios that have a row, in the order of the run.
std::vector<Scenario> acceptScenarios();

// The child's side: observes one scenario, or plays a client's role, and writes the answer: "seen" and "pictures", "notHere" or
// "failed".
int probeScenario(const std::string& id, const std::string& trail, bool isLong, const std::string& answerFile);

// Windows, Java, display, and who runs it.
nlohmann::json acceptSurroundings();
std::string wineVersion(); // "" on Windows
bool isElevated();

// The page, as a text.
std::string acceptPage(const nlohmann::json& result);
