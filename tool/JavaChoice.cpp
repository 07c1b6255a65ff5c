#include "tool/JavaChoice.h"

#include "support/logger.h"
#include "support/registry.h"
#include "tool/Check.h"
#include "tool/Probe.h"
#include "tool/RegistryChange.h"
#include "tool/RegistryView.h"
#include "tool/Runtimes.h"

#include <algorithm>
#include <filesystem>

namespace {

const char* const AREA = "java";
const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\JRE";
const std::string OWN_PREFIX = "KESTA_"; // no dash or comma may follow: the preference would take them for a pattern
const char* const PATTERN = "javavm";
const char* const KEPT_PATTERN = "PreviousJavavm";
const char* const KEPT_RUNTIME_KEYS = "CreatedRuntimeKeys";
const char* const KEPT_PREFERENCE_KEYS = "CreatedPreferenceKeys";

// The keys that `use` has made, "" without one.
std::string ownKey()
{
    for (const std::string& name : CRegistryView(HKEY_LOCAL_MACHINE, RUNTIMES, KEY_WOW64_64KEY).subKeys()) {
        if (name.starts_with(OWN_PREFIX)) {
            return name;
        }
    }
    return "";
}

LSTATUS restore(const std::string& name)
{
    CRegistryChange own;
    CRegistryChange preferences;
    const std::string path = RUNTIMES + "\\" + name;
    LSTATUS status = own.open(path, KEY_WOW64_64KEY);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    const DWORD runtimeKeys = own.number(KEPT_RUNTIME_KEYS);
    const DWORD preferenceKeys = own.number(KEPT_PREFERENCE_KEYS);
    const auto current = registryText(HKEY_LOCAL_MACHINE, PREFERENCES_KEY, PATTERN, KEY_WOW64_32KEY);
    // A preference that somebody has changed since is theirs.
    if (current == name && preferences.open(PREFERENCES_KEY, KEY_WOW64_32KEY) == ERROR_SUCCESS) {
        preferences.remove(PATTERN);
        own.copyTo(preferences, KEPT_PATTERN, PATTERN);
    }
    removeEmptyKeys(PREFERENCES_KEY, KEY_WOW64_32KEY, preferenceKeys);
    status = RegDeleteKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), KEY_WOW64_64KEY, 0);
    if (runtimeKeys > 1) {
        removeEmptyKeys(RUNTIMES, KEY_WOW64_64KEY, runtimeKeys - 1);
    }
    return status;
}

// Writes both places. What it cannot finish it leaves to `restore`.
LSTATUS enter(const std::string& name, const std::string& home, const std::string& library)
{
    const std::string path = RUNTIMES + "\\" + name;
    const DWORD runtimeKeys = missingKeys(path, KEY_WOW64_64KEY);
    const DWORD preferenceKeys = missingKeys(PREFERENCES_KEY, KEY_WOW64_32KEY);
    CRegistryChange own;
    CRegistryChange preferences;
    LSTATUS status = own.create(path, KEY_WOW64_64KEY);
    if (status == ERROR_SUCCESS) {
        status = own.setNumber(KEPT_RUNTIME_KEYS, runtimeKeys);
    }
    if (status == ERROR_SUCCESS) {
        status = own.setNumber(KEPT_PREFERENCE_KEYS, preferenceKeys);
    }
    if (status == ERROR_SUCCESS) {
        status = preferences.create(PREFERENCES_KEY, KEY_WOW64_32KEY);
    }
    if (status == ERROR_SUCCESS) {
        status = preferences.copyTo(own, PATTERN, KEPT_PATTERN);
    }
    if (status == ERROR_SUCCESS) {
        status = own.setText("JavaHome", home);
    }
    if (status == ERROR_SUCCESS) {
        status = own.setText("RuntimeLib", library);
    }
    return status == ERROR_SUCCESS ? preferences.setText(PATTERN, name) : status;
}

// Takes back what `use` did before and does it for another runtime. When that fails, the first one is used again.
LSTATUS replace(const std::string& before, const std::string& name, const std::string& home, const std::string& library)
{
    const auto textBefore = [path = RUNTIMES + "\\" + before](const char* value) {
        return registryText(HKEY_LOCAL_MACHINE, path, value, KEY_WOW64_64KEY).value_or("");
    };
    const std::string homeBefore = textBefore("JavaHome");
    const std::string libraryBefore = textBefore("RuntimeLib");
    LSTATUS status = before.empty() ? ERROR_SUCCESS : restore(before);
    if (status == ERROR_SUCCESS) {
        status = enter(name, home, library);
        if (status != ERROR_SUCCESS) {
            restore(name);
            if (!before.empty()) {
                enter(before, homeBefore, libraryBefore);
            }
        }
    }
    return status;
}

std::string nameFor(const RuntimeFile& runtime, const std::string& folder)
{
    std::string name = OWN_PREFIX + (runtime.javaVersion.empty() ? fromPath(toPath(folder).filename()) : runtime.javaVersion);
    std::ranges::replace_if(name, [](char character) { return character == '-' || character == ',' || character == '\\'; }, '.');
    return name;
}

// A fault when the library does not start as the server would start it.
CFindings tryStart(const std::string& library, const std::string& name)
{
    CFindings findings;
    const std::string server = serverExecutable();
    const ProbeResult probe = runProbe(probeArguments({{name, library}, server, basisControlOf(server)}), START_LIMIT);
    const std::string why = whyNotStarted(probe);
    findings.check(why.empty(), AREA, library,
                   why.empty() ? "starts: Java " + probe.answer["javaVersion"].get<std::string>() : "",
                   "does not start and was not registered: " + why, remedyForStart(probe));
    return findings;
}

} // namespace

CFindings listRuntimes()
{
    const JVMChoice choice = readJVMChoice(nullptr);
    CFindings findings = checkRuntimes(choice);
    findings.append(checkUnseenRuntimes(choice));
    return findings;
}

CFindings useRuntime(const std::string& folder, bool withoutStart)
{
    CFindings findings;
    std::error_code error;
    const std::string home = fromPath(std::filesystem::absolute(toPath(folder), error));
    const std::string library = libraryBelow(home);
    const RuntimeFile runtime = inspectRuntime(library);
    if (library.empty() || !runtime.fault.empty()) {
        findings.fault(AREA, home, library.empty() ? "there is no bin\\server\\jvm.dll below it" : runtime.fault,
                       "name the folder of a 64-bit runtime, above its folder bin: KESTAtool java list");
        return findings;
    }
    const std::string name = nameFor(runtime, home);
    if (!withoutStart) {
        findings = tryStart(library, name);
        if (findings.faultCount() > 0) {
            return findings;
        }
    }
    const LSTATUS status = replace(ownKey(), name, home, library);
    findings.check(status == ERROR_SUCCESS, AREA, name, "is what the server takes from its next start on: " + library,
                   "could not be registered: " + getWindowsErrorText(static_cast<unsigned>(status)), ELEVATE);
    findings.setNextStep("restart the program that shows the control; KESTAtool java remove takes this back.");
    return findings;
}

CFindings removeRuntime()
{
    CFindings findings;
    const std::string name = ownKey();
    if (name.empty()) {
        findings.good(AREA, "registry", "has no runtime that this program has registered");
        return findings;
    }
    const LSTATUS status = restore(name);
    findings.check(status == ERROR_SUCCESS, AREA, name, "is removed, and the preference is as it was before",
                   "could not be removed: " + getWindowsErrorText(static_cast<unsigned>(status)), ELEVATE);
    return findings;
}
