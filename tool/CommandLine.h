// The program's command line. Each verb is one function that adds itself to the application and runs when it is chosen.
#pragma once

#include "tool/Findings.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

// Runs the program with its arguments (without its own name) and gives the exit code: 0, the number of findings, or from 100 on
// when the command line cannot be understood. `isColoured` is about the output.
int runTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& errors, bool isColoured);

// Prints findings in one of the two forms, with the line that says what to do next, and gives the exit code.
int printResult(const CFindings& findings, const nlohmann::json& details, bool isJson, bool isColoured, std::ostream& out);
