// What the server starts Java with, and where it writes.
#include "tool/Check.h"

#include "com/JavaManagerATLObjectControl.h"
#include "support/logger.h"
#include "support/registry.h"
#include "tool/Probe.h"
#include "tool/Runtimes.h"
#include "tool/ServerProcesses.h"
#include "tool/Warm.h"

#include <cstdlib>
#include <filesystem>
#include <format>
#include <fstream>

namespace {

constexpr int FIRST_WITHOUT_SECURITY_MANAGER = 24;
constexpr DWORD LATE_END_LIMIT = 6000; // ms, for a server whose client has gone

bool canBeRead(const std::string& path)
{
    return std::ifstream(path).is_open();
}

// The server takes what is there; Java has to read it, too. A folder with classes is as good as an archive.
void checkArchive(const std::string& name, const std::string& path, const std::string& remedy, CFindings& findings)
{
    if (isFileThere(path) && !canBeRead(path) && !std::filesystem::is_directory(toPath(path))) {
        findings.fault("class path", name, "cannot be read: " + path,
                       "let this user read the file, and close the program that holds it");
    } else {
        findings.check(isFileThere(path), "class path", name, path, "is not there: " + path, remedy);
    }
}

// Empty, or what makes an option harmful.
std::string faultOf(const std::string& option)
{
    if (option.empty()) {
        return std::format("is empty or longer than {} characters", LONGEST_VALUE - 1);
    }
    if (option.front() != '-') {
        return "does not begin with a dash: Java ignores it";
    }
    if (option.starts_with("-Djava.class.path=")) {
        return "replaces the class path, so that the control is not found";
    }
    if (option == "-Djava.awt.headless=true") {
        return "keeps Java from showing a window";
    }
    return option.ends_with(' ') ? "has a blank at its end" : "";
}

} // namespace

std::string basisControlOf(const std::string& server)
{
    return chooseBasisControl(server.c_str(), isFileThere);
}

CFindings checkClassPath(const ControlClassPath& classPath, const std::string& basisControl)
{
    CFindings findings;
    for (const ControlArchive& control : classPath.controls) {
        if (control.installPath.empty()) {
            findings.note("class path", control.name, "has no installpath, so the class path contains " + control.archive);
        } else {
            checkArchive(control.name, control.archive,
                         "install this control again, or remove its key below Prefs\\com\\orvane\\qmrt", findings);
        }
    }
    checkArchive("basis control", basisControl, "put ORVANEControl.jar beside KESTAx64.exe, or name it in the value basiscontrol",
                 findings);
    return findings;
}

CFindings checkOptions(const std::vector<MachineOption>& options)
{
    CFindings findings;
    int number = 1; // the class path is the machine's first option
    for (const MachineOption& option : options) {
        ++number;
        const std::string subject = std::to_string(number) + " " + (option.valueName.empty() ? "(server)" : option.valueName);
        const std::string fault = option.valueName.empty() ? "" : faultOf(option.text);
        findings.check(fault.empty(), "option", subject, option.text, option.text + " " + fault,
                       "correct or delete the value " + option.valueName + " of Prefs\\com\\orvane\\qmrt");
    }
    return findings;
}

CFindings checkPolicy(const std::string& policyFile, const std::string& javaVersion)
{
    CFindings findings;
    const bool isThere = canBeRead(policyFile);
    if (!isThere) {
        findings.good("policy", "security manager", "off, since there is no " + policyFile);
        return findings;
    }
    const int feature = javaFeatureVersion(javaVersion);
    findings.check(feature < FIRST_WITHOUT_SECURITY_MANAGER, "policy", "security manager",
                   "on, with " + policyFile + (feature == 0 ? " (Java's version is unknown; 24 and newer refuse it)" : ""),
                   policyFile + " switches it on, and Java " + javaVersion + " refuses to start with one",
                   "delete or rename the file, or choose Java 23 or older: KESTAtool java use FOLDER");
    return findings;
}

CFindings checkVariables()
{
    CFindings findings;
    // Others, as JDK_JAVA_OPTIONS and CLASSPATH, are read by java.exe only, or give way to what the server says.
    for (const char* const name : {"JAVA_TOOL_OPTIONS", "_JAVA_OPTIONS"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr) {
            findings.note("variable", name, std::string("is set for this console and may change Java's start: ") + value);
        }
    }
    if (findings.rows().empty()) {
        findings.good("variable", "Java's variables", "none is set");
    }
    return findings;
}

CFindings checkLogFolder(const std::string& folder)
{
    CFindings findings;
    if (folder.empty()) {
        findings.note("log", "folder", "logpath is empty: no log files are written");
        return findings;
    }
    const std::string trial = folder + "KESTAtool-trial.tmp";
    const HANDLE file = CreateFileA(trial.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    const DWORD error = GetLastError();
    if (file != INVALID_HANDLE_VALUE) {
        CloseHandle(file);
    }
    findings.check(file != INVALID_HANDLE_VALUE, "log", "folder", folder + " can be written to",
                   folder + " cannot be written to: " + getWindowsErrorText(error),
                   "create the folder, allow the user to write there, or change the value logpath");
    return findings;
}

CFindings checkLiveStart(bool withWindow, const std::vector<std::string>& controls, DWORD limit)
{
    CFindings findings;
    std::vector<std::string> arguments = {"--server"};
    if (withWindow) {
        arguments.emplace_back("--live");
        for (const std::string& control : controls) {
            arguments.insert(arguments.end(), {"--use", control});
        }
    }
    const std::set<DWORD> serversBefore = serverProcesses();
    const ProbeResult probe = runProbe(arguments, limit);
    const nlohmann::json& answer = probe.answer;
    const char* const logNext = "read the newest file: KESTAtool log FILE (the folder stands in the row \"log\")";
    if (answer.is_null()) {
        findings.fault("live start", "server", "the client that tried it failed: " + probe.ending, logNext);
    } else if (answer["result"].get<HRESULT>() < 0) {
        findings.fault("live start", "server", "cannot be created: " + fromUtf8(answer["error"].get<std::string>()),
                       answer["result"].get<HRESULT>() == REGDB_E_CLASSNOTREG ? "correct what the rows about registration name"
                                                                              : logNext);
    } else {
        findings.good("live start", "server", "created in " + answer["createMilliseconds"].dump() + " ms");
        const bool hasFrame = answer["frameId"].get<int>() != -1 && answer["hasWindow"].get<bool>();
        findings.check(hasFrame, "live start", "frame", "kesta_frame_" + answer["frameId"].dump(),
                       "the server runs without Java or without a frame", logNext);
        if (answer.contains("isTakenIn")) {
            findings.check(answer["isTakenIn"].get<bool>(), "live start", "window", "the frame fills a window of the client",
                           "the frame did not become a child of the client's window", logNext);
            if (answer.contains("isReadyReceived")) {
                findings.check(answer["isReadyReceived"].get<bool>(), "live start", "controlReady",
                               "came when the frame was shown", "did not come, so that clients wait for it in vain", logNext);
            }
            if (answer.contains("isControlReady")) {
                findings.check(answer["isControlReady"].get<bool>(), "live start", "setUsedControl",
                               "takes keyboard input from now on",
                               "the call failed: " + fromUtf8(answer["controlError"].get<std::string>()), logNext);
            } else {
                findings.note("live start", "setUsedControl", "was not tried, since there is no control in the class path");
            }
            findings.check(answer["isEventReceived"].get<bool>(), "live start", "event",
                           "came back through Java in " + answer["eventMilliseconds"].dump() + " ms",
                           "none came back in " + answer["eventMilliseconds"].dump() + " ms", logNext);
            if (const int customEvents = answer["customEvents"].get<int>(); customEvents > 0) {
                findings.good("live start", "customEvent", std::format("the control has raised some, and {} came", customEvents));
            } else {
                findings.note("live start", "customEvent",
                              "was not tried: when the control raises one is its own affair, and it raised none so far",
                              "to see some of the sample control: KESTAtool accept --only events");
            }
        }
        if (hasFrame) {
            findings.check(answer["callResult"].get<HRESULT>() >= 0, "live start", "call",
                           "answered in " + answer["callMilliseconds"].dump() + " ms",
                           "a call failed: " + fromUtf8(answer["error"].get<std::string>()), logNext);
        }
    }
    // Not ended: which client a server belongs to cannot be told for certain.
    for (const DWORD id : serversLeftSince(serversBefore, LATE_END_LIMIT)) {
        findings.note("live start", "process", std::format("a server that was not there before is still running: {}", id),
                      "end it in the task manager unless a program shows its control");
    }
    return findings;
}

CheckResult checkMachine(const MachineLogSettings& log, CheckDepth depth, DWORD limit)
{
    CheckResult result;
    std::string registered;
    result.findings = checkRegistration(registered);
    const std::string server = serverExecutable();
    const std::string basisControl = basisControlOf(server);
    const JVMChoice choice = readJVMChoice(nullptr);
    const ControlClassPath classPath = readControlClassPath(basisControl.c_str(), nullptr);
    const std::vector<MachineOption> options = readMachineOptions(server.c_str(), log, nullptr);
    for (const CFindings& part :
         {checkRuntimes(choice), checkUnseenRuntimes(choice), checkClassPath(classPath, basisControl), checkOptions(options),
          checkPolicy(machinePolicyFile(server.c_str()), inspectRuntime(choice.chosen.path).javaVersion), checkVariables(),
          checkLogFolder(log.folder)}) {
        result.findings.append(part);
    }
    const CFindings classData = checkClassData(options, choice.chosen.path, classPath.text);
    result.findings.append(classData);
    if (depth != CheckDepth::Static) {
        const bool expectsClassData = !classDataArchive(options).empty() && classData.faultCount() == 0;
        result.findings.append(checkStarts(choice, server, basisControl, expectsClassData, limit));
        std::vector<std::string> controls;
        for (const ControlArchive& control : classPath.controls) {
            if (isFileThere(control.archive)) {
                controls.push_back(control.name);
            }
        }
        result.findings.append(checkLiveStart(depth == CheckDepth::Window, controls, limit));
    }
    result.details = {{"server", toUtf8(server)},
                      {"runtime", {{"version", toUtf8(choice.chosen.version)}, {"library", toUtf8(choice.chosen.path)}}},
                      {"classPath", toUtf8(classPath.text)},
                      {"options", nlohmann::json::array()}};
    for (const MachineOption& option : options) {
        result.details["options"].push_back({{"value", toUtf8(option.valueName)}, {"option", toUtf8(option.text)}});
    }
    return result;
}
