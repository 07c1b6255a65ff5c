#include "tool/Warm.h"

#include "com/JavaManagerATLObjectControl.h"
#include "support/logger.h"
#include "support/registry.h"
#include "tool/Check.h"
#include "tool/Probe.h"
#include "tool/RegistryChange.h"
#include "tool/RegistryView.h"
#include "tool/Runtimes.h"

#include <format>
#include <fstream>

namespace {

const char* const AREA = "warm";
constexpr int FIRST_WITH_CLASS_DATA = 13;
constexpr DWORD DUMP_LIMIT = 180000; // ms
const char* const CHOOSE_NEWER = "choose Java 13 or newer: KESTAtool java list, then KESTAtool java use FOLDER";
const char* const SEND_REPORT = "send the result of KESTAtool report support.zip to support";

// What the archive is made for and from; files beside the server.
struct Plan
{
    std::string server;
    std::string basisControl;
    JVMInfo runtime;
    std::string archive;

    explicit Plan(const std::string& executable)
        : server(executable)
        , basisControl(basisControlOf(executable))
        , runtime(readJVMChoice(nullptr).chosen)
        , archive(fromPath(toPath(executable).replace_extension(".jsa")))
    {
    }
    std::string option() const { return "-XX:SharedArchiveFile=" + archive; }
    std::string newArchive() const { return archive + ".new"; }
    std::string classList() const { return archive + ".classes"; }
    std::string folder() const { return fromPath(toPath(archive).parent_path()); }

    std::vector<std::string> arguments(bool withFrame) const
    {
        return probeArguments({runtime, server, basisControl, withFrame});
    }
    // A start with frame and control.
    ProbeResult start(const std::string& javaOptions) const { return runProbe(arguments(true), START_LIMIT, "", javaOptions); }
};

// False when the file is there and stays.
bool removeFile(const std::string& file)
{
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL); // Java makes archives read-only
    return DeleteFileA(file.c_str()) != FALSE || GetLastError() == ERROR_FILE_NOT_FOUND;
}

// Files that exist while an archive is made.
class CWorkFiles
{
public:
    explicit CWorkFiles(const Plan& plan)
        : m_plan(plan)
    {
    }
    ~CWorkFiles()
    {
        removeFile(m_plan.newArchive());
        removeFile(m_plan.classList());
    }
    CWorkFiles(const CWorkFiles&) = delete;
    CWorkFiles& operator=(const CWorkFiles&) = delete;

private:
    const Plan& m_plan;
};

// An option in quotation marks, as the variable for Java's options wants it because of blanks.
std::string quoted(const std::string& option)
{
    return "\"" + option + "\"";
}

// Java's words behind a statement of ours.
std::string saying(const ProbeResult& probe)
{
    const std::string words = javasWords(probe);
    return words.empty() ? "" : ": " + words;
}

// Reasons to leave everything as it is.
CFindings obstacles(const Plan& plan)
{
    CFindings findings;
    if (plan.server.empty()) {
        findings.fault(AREA, "server", "is not registered for the machine, and the option would count for all users",
                       "as administrator, run in the program's folder: KESTAx64.exe /RegServer");
        return findings;
    }
    const RuntimeFile runtime = inspectRuntime(plan.runtime.path);
    if (!runtime.fault.empty()) {
        findings.fault(AREA, "runtime", "the chosen one does not work: " + runtime.fault, "KESTAtool check tells what to do");
    }
    if (const int feature = javaFeatureVersion(runtime.javaVersion); feature > 0 && feature < FIRST_WITH_CLASS_DATA) {
        findings.fault(AREA, "runtime",
                       std::format("Java {} cannot make class data of a control; Java 13 and newer can", feature), CHOOSE_NEWER);
    }
    for (const MachineOption& option : readMachineOptions(plan.server.c_str(), currentLogSettings(), nullptr)) {
        if (option.valueName != CLASS_DATA_OPTION &&
            (option.text.starts_with("-XX:SharedArchiveFile=") || option.text.starts_with("-Xshare"))) {
            findings.fault(AREA, "option", option.valueName + " already decides about class data: " + option.text,
                           "delete the value " + option.valueName + " of Prefs\\com\\orvane\\qmrt if it is not needed");
        }
    }
    if (plan.option().size() >= LONGEST_VALUE) {
        findings.fault(AREA, "folder", "its name is too long for an option: " + plan.folder(),
                       "install the program in a folder with a shorter name");
    }
    if (isWritableForAll(plan.folder())) {
        findings.fault(AREA, "folder", "every user could replace the archive in " + plan.folder(),
                       "install the program where only administrators can write, for instance below Program Files");
    }
    return findings;
}

// Makes the new archive; a fault when Java does not.
CFindings dump(const Plan& plan)
{
    CFindings findings;
    const ProbeResult listed = plan.start(quoted("-XX:DumpLoadedClassList=" + plan.classList()));
    if (const std::string why = whyNotStarted(listed); !why.empty() || !listed.answer["hasFrame"].get<bool>()) {
        findings.fault(AREA, "start", why.empty() ? "the frame with the control cannot be shown" : "Java does not start: " + why,
                       "KESTAtool check tells what to do");
        return findings;
    }
    const std::string version = listed.answer["javaVersion"].get<std::string>();
    if (javaFeatureVersion(version) < FIRST_WITH_CLASS_DATA) {
        findings.fault(AREA, "runtime", "Java " + version + " cannot make class data of a control; Java 13 and newer can",
                       CHOOSE_NEWER);
        return findings;
    }
    if (!isFileThere(plan.classList())) {
        findings.fault(AREA, "classes",
                       "Java wrote no list of its classes to " + plan.folder() + saying(listed) +
                           " (the folder must be writable, and only HotSpot runtimes write one)",
                       ELEVATE);
        return findings;
    }
    // Most versions end the process when the archive is made; Java 25 goes on.
    const ProbeResult dumped = runProbe(plan.arguments(false), DUMP_LIMIT, "",
                                        quoted("-Xshare:dump") + " " + quoted("-XX:SharedClassListFile=" + plan.classList()) +
                                            " " + quoted("-XX:SharedArchiveFile=" + plan.newArchive()));
    if (!isFileThere(plan.newArchive())) {
        findings.fault(AREA, "archive", "Java made none" + saying(dumped), SEND_REPORT);
    }
    return findings;
}

// Starts without and with the new archive; a fault when Java does not use it.
CFindings tryOut(const Plan& plan)
{
    CFindings findings;
    const ProbeResult without = plan.start("");
    const ProbeResult with = plan.start(quoted("-XX:SharedArchiveFile=" + plan.newArchive()));
    const bool isUsed = whyNotStarted(with).empty() && with.answer["usesClassData"].get<bool>();
    if (!isUsed || !whyNotStarted(without).empty()) {
        findings.fault(AREA, "archive", "Java does not use what it has made" + saying(with), SEND_REPORT);
        return findings;
    }
    findings.good(AREA, "start",
                  std::format("Java, frame and control are there after {} ms instead of {} ms (one start each)",
                              with.answer["frameMilliseconds"].get<int>(), without.answer["frameMilliseconds"].get<int>()));
    return findings;
}

void writeRecord(const Plan& plan, DWORD createdKeys)
{
    const ClassDataRecord record =
        describeClassData(plan.archive, plan.runtime.path, readControlClassPath(plan.basisControl.c_str(), nullptr).text);
    nlohmann::json json = {{"library", toUtf8(record.library)},
                           {"classPath", toUtf8(record.classPath)},
                           {"files", nlohmann::json::array()},
                           {"createdKeys", createdKeys}};
    for (const std::string& file : record.files) {
        json["files"].push_back(toUtf8(file));
    }
    std::ofstream(classDataRecordFile(plan.archive)) << json.dump(2) << "\n";
}

DWORD createdKeys(const std::string& archive)
{
    std::ifstream file(classDataRecordFile(archive));
    const nlohmann::json record = nlohmann::json::parse(file, nullptr, false);
    return record.is_object() ? record.value("createdKeys", 0U) : 0;
}

// Puts the archive in its place and writes the option.
LSTATUS enter(const Plan& plan)
{
    if (MoveFileExA(plan.newArchive().c_str(), plan.archive.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE) {
        return static_cast<LSTATUS>(GetLastError());
    }
    writeRecord(plan, missingKeys(PREFERENCES_KEY, KEY_WOW64_32KEY));
    CRegistryChange preferences;
    const LSTATUS status = preferences.create(PREFERENCES_KEY, KEY_WOW64_32KEY);
    return status == ERROR_SUCCESS ? preferences.setText(CLASS_DATA_OPTION, plan.option()) : status;
}

// Removes what there is of option, keys and archive. `wasThere` tells whether there was anything.
LSTATUS takeBack(const std::string& archive, bool& wasThere)
{
    CRegistryChange preferences;
    if (registryText(HKEY_LOCAL_MACHINE, PREFERENCES_KEY, CLASS_DATA_OPTION, KEY_WOW64_32KEY)) {
        wasThere = true;
        LSTATUS status = preferences.open(PREFERENCES_KEY, KEY_WOW64_32KEY);
        status = status == ERROR_SUCCESS ? preferences.remove(CLASS_DATA_OPTION) : status;
        if (status != ERROR_SUCCESS) {
            return status;
        }
    }
    if (const std::string record = classDataRecordFile(archive); isFileThere(record)) {
        removeEmptyKeys(PREFERENCES_KEY, KEY_WOW64_32KEY, createdKeys(archive));
    }
    for (const std::string& file : {archive, classDataRecordFile(archive)}) {
        wasThere = wasThere || isFileThere(file);
        if (!removeFile(file)) {
            return static_cast<LSTATUS>(GetLastError());
        }
    }
    return ERROR_SUCCESS;
}

const char* remedyFor(LSTATUS status)
{
    return status == ERROR_ACCESS_DENIED
               ? ELEVATE
               : "end the programs that show a control, since they use the archive, and repeat the command";
}

// The archive that the option names, else the one beside the server.
std::string presentArchive(const Plan& plan)
{
    const std::string option = registryText(HKEY_LOCAL_MACHINE, PREFERENCES_KEY, CLASS_DATA_OPTION, KEY_WOW64_32KEY).value_or("");
    const std::string named = classDataArchive({{CLASS_DATA_OPTION, option}});
    return named.empty() ? plan.archive : named;
}

} // namespace

CFindings makeClassData()
{
    const Plan plan(machineServerExecutable());
    CFindings findings = obstacles(plan);
    if (findings.faultCount() > 0) {
        return findings;
    }
    bool wasThere = false;
    LSTATUS status = takeBack(presentArchive(plan), wasThere);
    const CWorkFiles files(plan);
    for (CFindings (*const step)(const Plan&) : {dump, tryOut}) {
        if (status == ERROR_SUCCESS && findings.faultCount() == 0) {
            findings.append(step(plan));
        }
    }
    if (findings.faultCount() > 0) {
        return findings;
    }
    if (status == ERROR_SUCCESS) {
        status = enter(plan);
        if (status != ERROR_SUCCESS) {
            takeBack(plan.archive, wasThere);
        }
    }
    findings.check(status == ERROR_SUCCESS, AREA, "archive", "is what the server uses from its next start on: " + plan.archive,
                   "could not be put in its place: " + getWindowsErrorText(static_cast<unsigned>(status)), remedyFor(status));
    findings.setNextStep("restart the program that shows the control; KESTAtool warm --remove takes this back.");
    return findings;
}

CFindings removeClassData()
{
    CFindings findings;
    const Plan plan(machineServerExecutable());
    const std::string archive = presentArchive(plan);
    bool wasThere = false;
    const LSTATUS status = takeBack(archive, wasThere);
    findings.check(status == ERROR_SUCCESS, AREA, "archive",
                   wasThere ? "is removed, and the options are as they were before: " + archive : "there is none",
                   "could not be removed whole: " + archive + ": " + getWindowsErrorText(static_cast<unsigned>(status)),
                   remedyFor(status));
    return findings;
}
