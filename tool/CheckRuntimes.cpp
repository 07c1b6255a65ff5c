// Which Java runtime the server takes and why not another one.
#include "tool/Check.h"

#include "tool/Probe.h"
#include "tool/Runtimes.h"
#include "tool/Warm.h"

#include <algorithm>
#include <format>
#include <sstream>

namespace {

const char* const AREA = "runtime";
const char* const CHOOSE = "choose a runtime: KESTAtool java list, then KESTAtool java use FOLDER";

// An entry is the chosen one by name and file: a version may stand below both keys.
bool isChosen(const JVMChoice& choice, const JVMInfo& runtime)
{
    return runtime.version == choice.chosen.version && runtime.path == choice.chosen.path;
}

// Why the server takes this one, or does not.
std::string reason(const JVMChoice& choice, const JVMEntry& entry)
{
    const bool isPreferred = !choice.items.empty() && !choice.items.back().picked.version.empty();
    if (isChosen(choice, entry)) {
        return isPreferred ? "chosen: the pattern \"" + choice.pattern + "\" picks it"
                           : "chosen: CurrentVersion names it" +
                                 std::string(choice.pattern.empty() ? "" : ", and the pattern picks none");
    }
    if (entry.isCurrent) {
        return std::string("not chosen: CurrentVersion names it, but ") +
               (isPreferred ? "the pattern picks another one" : "that of the newer key names another one");
    }
    if (!entry.isCandidate) {
        return "not chosen: its name has no underscore, so only CurrentVersion could choose it";
    }
    if (choice.pattern.empty()) {
        return "not chosen: there is no javavm, and CurrentVersion does not name it";
    }
    return "not chosen: the pattern \"" + choice.pattern + "\" picks another one or none";
}

void explainPattern(const JVMChoice& choice, CFindings& findings)
{
    if (choice.pattern.empty()) {
        findings.good("preference", "javavm", "is not set: CurrentVersion decides");
        return;
    }
    for (const JVMPatternItem& item : choice.items) {
        const std::string kind = item.isRange ? "range, as texts" : "exactly this name";
        findings.good("preference", "javavm item \"" + item.text + "\"",
                      kind + (item.picked.version.empty() ? ": matches no runtime whose name has an underscore"
                                                          : ": takes " + item.picked.version + ", the last match"));
    }
    std::istringstream items(choice.pattern);
    size_t number = 0;
    for (std::string item; std::getline(items, item, ',');) {
        if (++number > choice.items.size()) {
            findings.good("preference", "javavm item \"" + item + "\"", "is not looked at: an item before it has a match");
        }
    }
    findings.check(!choice.items.back().picked.version.empty(), "preference", "javavm", "picks " + choice.chosen.version,
                   "the pattern \"" + choice.pattern + "\" matches no runtime",
                   "KESTAtool java use FOLDER, or name an installed version in javavm");
}

std::string labelOf(const JVMEntry& entry)
{
    const std::string key = entry.key.substr(0, entry.key.size() - 1);
    return key.substr(key.rfind('\\') + 1) + "\\" + entry.version;
}

std::string namesOf(const nlohmann::json& classes)
{
    std::string names;
    for (const auto& name : classes) {
        names += (names.empty() ? "" : ", ") + name.get<std::string>();
    }
    return names;
}

// What Java says about classes that are not found, unless it only names them again; "" without such words.
std::string whyMissing(const ProbeResult& probe)
{
    constexpr std::string_view EXCEPTION = "Exception: ";
    for (const auto& error : probe.answer["classErrors"]) {
        const std::string text = fromUtf8(error.get<std::string>());
        const auto isOnlyName = [&](const auto& name) { return text.ends_with(name.template get<std::string>()); };
        if (text.starts_with(EXCEPTION) && std::ranges::none_of(probe.answer["missingClasses"], isOnlyName)) {
            return "; Java says: " + text.substr(EXCEPTION.size());
        }
    }
    return "";
}

// Rows about one start. What goes wrong with a runtime that is not chosen harms nobody.
void judgeStart(const std::string& subject, bool isNeeded, const ProbeResult& probe, CFindings& findings)
{
    const auto bad = [&](const std::string& state, const std::string& remedy) {
        if (isNeeded) {
            findings.fault("start", subject, state, remedy);
        } else {
            findings.note("start", subject, state, remedy);
        }
    };
    if (const std::string why = whyNotStarted(probe); !why.empty()) {
        bad("does not start: " + why, remedyForStart(probe));
    } else {
        findings.good("start", subject,
                      std::format("starts in {} ms: Java {}, {}", probe.answer["milliseconds"].get<int>(),
                                  probe.answer["javaVersion"].get<std::string>(), probe.answer["vendor"].get<std::string>()));
        const nlohmann::json& missing = probe.answer["missingClasses"];
        if (isNeeded && !missing.empty()) {
            const std::string why = whyMissing(probe);
            findings.fault("classes", subject, "not in the class path, or not loadable: " + namesOf(missing) + why,
                           why.empty()
                               ? "put the control archive (ORVANEControl.jar) beside KESTAx64.exe or name it in basiscontrol"
                               : "install the control again; if that does not help, tell its makers what Java says");
        } else if (isNeeded) {
            findings.good("classes", subject, "frame, listener and control are there");
        }
    }
}

} // namespace

CFindings checkRuntimes(const JVMChoice& choice)
{
    CFindings findings;
    explainPattern(choice, findings);
    if (choice.chosen.version.empty() && choice.chosen.path.empty()) {
        findings.fault(AREA, "chosen",
                       choice.entries.empty() ? "no runtime is registered below JavaSoft"
                                              : "none of the registered runtimes is chosen",
                       CHOOSE);
    }
    for (const JVMEntry& entry : choice.entries) {
        const RuntimeFile file = inspectRuntime(entry.path);
        const std::string version = file.javaVersion.empty() ? "" : " (Java " + file.javaVersion + ")";
        const std::string why = reason(choice, entry) + version;
        if (file.fault.empty()) {
            findings.good(AREA, labelOf(entry), why + ", " + entry.path);
        } else if (isChosen(choice, entry)) {
            findings.fault(AREA, labelOf(entry), why + ", but " + file.fault, file.remedy);
        } else {
            findings.note(AREA, labelOf(entry), why + "; " + file.fault);
        }
    }
    return findings;
}

CFindings checkStarts(const JVMChoice& choice, const std::string& server, const std::string& basisControl, bool expectsClassData,
                      DWORD limit)
{
    CFindings findings;
    for (const JVMEntry& entry : choice.entries) {
        if (inspectRuntime(entry.path).fault.empty()) {
            const ProbeResult probe = runProbe(probeArguments({entry, server, basisControl}), limit);
            judgeStart(labelOf(entry), isChosen(choice, entry), probe, findings);
            if (expectsClassData && isChosen(choice, entry) && whyNotStarted(probe).empty()) {
                findings.check(probe.answer["usesClassData"].get<bool>(), "class data", labelOf(entry), "is used by Java",
                               "is ignored by Java: the archive does not fit this runtime, class path or these options",
                               MAKE_CLASS_DATA_AGAIN);
            }
        }
    }
    return findings;
}

CFindings checkUnseenRuntimes(const JVMChoice& choice)
{
    CFindings findings;
    for (const FoundRuntime& runtime : findRuntimes()) {
        const auto isSeen = [&](const JVMEntry& entry) { return lstrcmpiA(entry.path.c_str(), runtime.library.c_str()) == 0; };
        if (runtime.library.empty()) {
            findings.note(AREA, runtime.folder, "has no jvm.dll, though " + runtime.source + " names it");
        } else if (std::ranges::none_of(choice.entries, isSeen)) {
            const RuntimeFile file = inspectRuntime(runtime.library);
            findings.note(AREA, runtime.folder,
                          "is not seen by the server" + (file.javaVersion.empty() ? "" : " (Java " + file.javaVersion + ")") +
                              (file.fault.empty() ? "" : "; " + file.fault) + "; found by " + runtime.source,
                          file.fault.empty() ? "to use it: KESTAtool java use \"" + runtime.folder + "\"" : "");
        }
    }
    return findings;
}
