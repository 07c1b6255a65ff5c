// What the verb "accept" tries out: a table of scenarios. Each is one prediction about a real machine and one row of the result.
//
// A scenario has two halves. `observe` runs in a child process, does what a client does, and answers with what it has seen.
// `judge` runs in the parent and compares that with the prediction; it looks at nothing but its arguments.
//
// A prediction is refuted only by what contradicts it. Where nothing was seen, or too little to decide, the row is "failed":
// under Wine a refuted row may be excused, and nobody is to correct a page because a click went astray.
//
// Threads: `observe` on the child's main thread, in a single-threaded apartment. Failure: `observe` throws std::runtime_error
// when it could not get as far as the prediction, and CNotHere when this machine has no means for it.
#pragma once

#include <windows.h>

#include <nlohmann/json.hpp>

#include <span>
#include <stdexcept>
#include <string>

class CAcceptContext;

enum class RowState {
    Confirmed,
    Refuted,       // seen, and not as predicted
    NotApplicable, // this machine cannot show it
    Failed,        // the scenario did not get so far, or did not come back, or saw nothing that decides
};

struct Judgement
{
    RowState state;
    std::string detail;        // what was seen, in UTF-8
    bool isBeyondWine = false; // refuted in a way that Wine's known difference does not explain
};

// What most scenarios have.
constexpr DWORD USUAL_LIMIT = 90000; // ms, with a slow first start
constexpr const char* TELL_THE_MAKERS = "tell the makers, with the page and KESTAtool report";

struct Scenario
{
    const char* id;
    const char* area;
    const char* what;
    const char* prediction;
    DWORD limit;                                        // ms
    nlohmann::json (*observe)(CAcceptContext& context); // null: only a person can show it
    Judgement (*judge)(const nlohmann::json& seen);
    const char* remedy;           // what to do when it is refuted
    const char* wine = nullptr;   // how Wine is known to differ; the row is then not applicable
    const char* byHand = nullptr; // how a person shows it
    bool isLong = false;          // runs only when asked for
};

class CNotHere : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The subjects, each in a file of its own.
std::span<const Scenario> machineScenarios();
std::span<const Scenario> callScenarios();
std::span<const Scenario> eventScenarios();
std::span<const Scenario> windowScenarios();
std::span<const Scenario> inputScenarios();
std::span<const Scenario> lifeScenarios();
// What Windows has noticed of all the others: the last one that runs.
std::span<const Scenario> watcherScenarios();
std::span<const Scenario> personScenarios();
// What a client does that a scenario starts and ends; no rows.
std::span<const Scenario> clientRoles();

// What becomes of a child's answer: the judgement, except where it could not come to one. `ending` tells how a child without
// answer ended.
Judgement judgeAnswer(const Scenario& scenario, const nlohmann::json& answer, const std::string& ending, bool isWine);

// An event of Windows' log, given as XML, in one line: who logged it, its number and its data.
std::string eventLine(const std::string& xml);

inline Judgement judged(bool isAsPredicted, std::string detail)
{
    return {isAsPredicted ? RowState::Confirmed : RowState::Refuted, std::move(detail)};
}

// For what was seen and decides nothing.
inline Judgement undecided(std::string detail)
{
    return {RowState::Failed, std::move(detail)};
}
