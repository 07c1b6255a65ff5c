#include "tool/Accept.h"

#include "atl/atl.h"
#include "tool/AcceptClient.h"
#include "tool/Probe.h"
#include "tool/ServerProcesses.h"

#include <algorithm>
#include <chrono>
#include <format>
#include <fstream>
#include <map>
#include <set>

using nlohmann::json;

namespace {

constexpr DWORD LATE_END_LIMIT = 6000; // ms, for a server whose client has gone

const char* nameOf(RowState state)
{
    switch (state) {
    case RowState::Confirmed:
        return "confirmed";
    case RowState::Refuted:
        return "refuted";
    case RowState::NotApplicable:
        return "not applicable here";
    default:
        return "failed";
    }
}

// What a child leaves besides its answer; it begins with when the run began. The file goes with the object.
class CTrail
{
public:
    explicit CTrail(const std::string& runBegin)
    {
        char folder[MAX_PATH + 1] = "";
        char path[MAX_PATH + 1] = "";
        GetTempPathA(sizeof folder, folder);
        GetTempFileNameA(folder, "kst", 0, path);
        m_path = path;
        std::ofstream(m_path) << "begun " << runBegin << std::endl;
    }
    ~CTrail()
    {
        for (const char* const ending : {"", ".x", ".vbs", ".txt"}) {
            DeleteFileA((m_path + ending).c_str());
        }
    }
    CTrail(const CTrail&) = delete;
    CTrail& operator=(const CTrail&) = delete;

    const std::string& path() const { return m_path; }
    std::set<DWORD> servers() const
    {
        std::set<DWORD> found;
        for (const std::string& line : lines("server ")) {
            found.insert(static_cast<DWORD>(std::stoul(line)));
        }
        return found;
    }
    std::string lastStep() const
    {
        const std::vector<std::string> steps = lines("step ");
        return steps.empty() ? "" : steps.back();
    }

private:
    std::vector<std::string> lines(const std::string& beginning) const
    {
        std::vector<std::string> found;
        std::ifstream file(m_path);
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(beginning)) {
                found.push_back(line.substr(beginning.size()));
            }
        }
        return found;
    }

    std::string m_path;
};

// Ends those servers of a finished scenario that do not end by themselves. What had to be done about it; "" for nothing.
std::string cleanUp(const std::set<DWORD>& own, const std::set<DWORD>& before)
{
    const ULONGLONG end = GetTickCount64() + LATE_END_LIMIT;
    std::string text;
    for (const DWORD id : own) {
        // A number that is in use again belongs to another program.
        if (before.contains(id) || !serverProcesses().contains(id)) {
            continue;
        }
        const ATL::CHandle process(OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, id));
        const ULONGLONG now = GetTickCount64();
        if (WaitForSingleObject(process, now < end ? static_cast<DWORD>(end - now) : 0) == WAIT_OBJECT_0) {
            continue;
        }
        const bool isEnded =
            TerminateProcess(process, 1) != FALSE && WaitForSingleObject(process, LATE_END_LIMIT) == WAIT_OBJECT_0;
        text +=
            std::format("; its server {} {}", id, isEnded ? "did not end and was ended" : "did not end and could not be ended");
    }
    return text;
}

std::string otherServers(const std::set<DWORD>& before)
{
    std::string text;
    for (const DWORD id : serverProcesses()) {
        text += before.contains(id) ? "" : std::format("{}{}", text.empty() ? "" : ", ", id);
    }
    return text;
}

std::string remedyOf(const Scenario& scenario, RowState state)
{
    switch (state) {
    case RowState::Refuted:
        return scenario.remedy;
    case RowState::Failed:
        return "correct what the first rows name, then run it again: KESTAtool accept --only " + std::string(scenario.id);
    default:
        return "";
    }
}

void addRow(CFindings& findings, const Scenario& scenario, const Judgement& judgement)
{
    const std::string state = std::string(nameOf(judgement.state)) + ": " + fromUtf8(judgement.detail);
    const std::string remedy = remedyOf(scenario, judgement.state);
    switch (judgement.state) {
    case RowState::Confirmed:
        findings.good(scenario.area, scenario.what, state);
        break;
    case RowState::NotApplicable:
        findings.note(scenario.area, scenario.what, state);
        break;
    case RowState::Refuted:
        findings.fault(scenario.area, scenario.what, state + " (predicted: " + scenario.prediction + ")", remedy);
        break;
    default:
        findings.fault(scenario.area, scenario.what, state, remedy);
    }
}

std::vector<Scenario> chosenScenarios(const std::vector<std::string>& only)
{
    std::vector<Scenario> all = acceptScenarios();
    for (const std::string& id : only) {
        if (std::ranges::find(all, id, &Scenario::id) == all.end()) {
            throw std::runtime_error("there is no scenario " + id);
        }
    }
    if (!only.empty()) {
        std::erase_if(all, [&](const Scenario& scenario) { return std::ranges::find(only, scenario.id) == only.end(); });
    }
    return all;
}

// Found out before the run, which takes minutes. What an earlier run has written stays until this one is over.
void checkPage(const std::string& path)
{
    if (!std::ofstream(path, std::ios::app)) {
        throw std::runtime_error("cannot write " + path);
    }
}

bool writePage(const std::string& path, const json& result)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << acceptPage(result) << std::flush;
    return file.good();
}

struct Run
{
    json answer;
    std::string ending;
    std::string left; // what had to be cleaned up
};

// As event logs write it.
std::string timeNow()
{
    return std::format("{:%Y-%m-%dT%H:%M:%S}Z", std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()));
}

Run runScenario(const Scenario& scenario, bool isLong, const std::string& runBegin, const std::set<DWORD>& serversBefore)
{
    const CTrail trail(runBegin);
    std::vector<std::string> arguments = {"--scenario", scenario.id, "--trail", trail.path()};
    if (isLong) {
        arguments.emplace_back("--long");
    }
    const ProbeResult probe = runProbe(arguments, scenario.limit);
    Run run = {probe.answer, toUtf8(probe.ending), cleanUp(trail.servers(), serversBefore)};
    if (run.answer.is_null() && !trail.lastStep().empty()) {
        run.ending += ", while " + trail.lastStep();
    }
    return run;
}

// A row of its own, for what no scenario sees.
void addCleanUpRow(CFindings& findings, const std::set<DWORD>& serversBefore)
{
    // A server whose creation failed half-way is not known, and may still be ending.
    pumpUntil([&] { return otherServers(serversBefore).empty(); }, LATE_END_LIMIT);
    const std::string left = otherServers(serversBefore);
    findings.check(left.empty(), "machine", "clean-up", "confirmed: no server of the run is left",
                   "failed: servers run that were not there before and may be other programs': " + left,
                   "look at them in the task manager; the program ends only those that it knows to be its own");
}

} // namespace

std::vector<Scenario> acceptScenarios()
{
    std::vector<Scenario> all;
    for (const auto part : {machineScenarios(), callScenarios(), eventScenarios(), windowScenarios(), inputScenarios(),
                            lifeScenarios(), watcherScenarios(), personScenarios()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Judgement judgeAnswer(const Scenario& scenario, const json& answer, const std::string& ending, bool isWine)
{
    if (answer.is_null()) {
        return {RowState::Failed, ending};
    }
    if (answer.contains("notHere")) {
        return {RowState::NotApplicable, answer["notHere"].get<std::string>()};
    }
    if (answer.contains("failed")) {
        return {RowState::Failed, answer["failed"].get<std::string>()};
    }
    Judgement judgement = scenario.judge(answer["seen"]);
    if (judgement.state == RowState::Refuted && isWine && scenario.wine != nullptr && !judgement.isBeyondWine) {
        return {RowState::NotApplicable, std::string("this is Wine: ") + scenario.wine + " (seen: " + judgement.detail + ")"};
    }
    return judgement;
}

AcceptResult runAcceptance(const AcceptOrder& order, std::ostream& progress)
{
    const std::vector<Scenario> chosen = chosenScenarios(order.only);
    checkPage(order.page);
    const std::string begin = timeNow();
    const std::set<DWORD> serversBefore = serverProcesses();
    AcceptResult result;
    result.details = {{"surroundings", acceptSurroundings()}, {"figures", json::array()}, {"scenarios", json::array()}};
    const bool isWine = result.details["surroundings"]["isWine"].get<bool>();
    POINT mouse = {};
    GetCursorPos(&mouse);
    size_t number = 0;
    for (const Scenario& scenario : chosen) {
        progress << std::format("[{:2}/{}] {}, {} ... ", ++number, chosen.size(), scenario.area, scenario.what) << std::flush;
        const CStopwatch watch;
        Run run;
        Judgement judgement;
        if (scenario.observe == nullptr) {
            judgement = {RowState::NotApplicable, std::string("only a person can show it: ") + scenario.byHand};
        } else if (scenario.isLong && !order.isLong) {
            judgement = {RowState::NotApplicable, "it takes minutes: KESTAtool accept --long"};
        } else {
            run = runScenario(scenario, order.isLong, begin, serversBefore);
            judgement = judgeAnswer(scenario, run.answer, run.ending, isWine);
        }
        if (!run.left.empty()) {
            judgement.detail += run.left;
            judgement.state = judgement.state == RowState::Confirmed ? RowState::Failed : judgement.state;
        }
        progress << std::format("{} ({:.1f} s)", nameOf(judgement.state), watch.milliseconds() / 1000) << std::endl;
        addRow(result.findings, scenario, judgement);
        json entry = {{"id", scenario.id},
                      {"area", scenario.area},
                      {"what", scenario.what},
                      {"prediction", scenario.prediction},
                      {"state", nameOf(judgement.state)},
                      {"detail", judgement.detail},
                      {"remedy", remedyOf(scenario, judgement.state)},
                      {"seconds", watch.milliseconds() / 1000},
                      {"pictures", json::array()}};
        if (run.answer.is_object() && run.answer.contains("seen")) {
            entry["seen"] = run.answer["seen"];
            entry["pictures"] = run.answer["pictures"];
            if (scenario.id == std::string_view("figures")) {
                result.details["figures"] = entry["seen"]["figures"];
            }
            if (scenario.id == std::string_view("create")) {
                result.details["surroundings"]["java"] = entry["seen"]["java"];
            }
        }
        result.details["scenarios"].push_back(entry);
    }
    SetCursorPos(mouse.x, mouse.y);
    addCleanUpRow(result.findings, serversBefore);
    json page = result.details;
    page["findings"] = result.findings.faultCount();
    page["next"] = toUtf8(result.findings.nextStep());
    if (!writePage(order.page, page)) {
        result.findings.fault("page", order.page, "could not be written",
                              "send this table instead, or run it again: KESTAtool accept --page FILE");
    }
    for (json& scenario : result.details["scenarios"]) {
        scenario.erase("pictures"); // they are in the page
    }
    return result;
}

int probeScenario(const std::string& id, const std::string& trail, bool isLong, const std::string& answerFile)
{
    const std::vector<Scenario> all = acceptScenarios();
    const auto role = std::ranges::find(clientRoles(), id, &Scenario::id);
    const auto found = std::ranges::find(all, id, &Scenario::id);
    CoInitialize(nullptr);
    json answer;
    try {
        CAcceptContext context(trail, isLong);
        const json seen = (role != clientRoles().end() ? *role : *found).observe(context);
        answer = {{"seen", seen}, {"pictures", context.pictures()}};
    } catch (const CNotHere& reason) {
        answer = {{"notHere", reason.what()}};
    } catch (const std::runtime_error& error) {
        answer = {{"failed", error.what()}};
    }
    writeAnswer(answer, answerFile);
    CoUninitialize();
    return 0;
}
