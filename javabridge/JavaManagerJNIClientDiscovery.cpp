// Which Java runtime is loaded, and which archives form its class path. Both answers come from the registry.
#include "javabridge/JavaManagerJNIClient.h"

#include "support/registry.h"

#include <algorithm>
#include <utility>
#include <vector>

#define LOG_SOURCE "JavaManagerJNIClient"

namespace {

// In the order of the scan: a current runtime under the later key replaces one under the earlier key.
const char* const RUNTIME_KEYS[] = {"SOFTWARE\\JavaSoft\\Java Runtime Environment\\", "SOFTWARE\\JavaSoft\\JRE\\"};

// What one item of the preference pattern picks, a single version or a range with both bounds included. `candidates` is sorted,
// and the last match wins.
JVMPatternItem pickCandidate(const std::vector<JVMInfo>& candidates, const std::string& item, const Loggable* owner)
{
    const auto logOwner = [owner] { return owner; };
    std::string lower = item;
    std::string upper = item;
    const size_t dash = item.find('-');
    if (dash != std::string::npos) {
        LOG(FINE, "Pattern (range) : " << item);
        lower = item.substr(0, dash);
        upper = item.substr(dash + 1);
    } else {
        LOG(FINE, "Pattern (single): " << item);
    }
    JVMPatternItem result = {item, dash != std::string::npos, {}};
    for (const JVMInfo& candidate : candidates) {
        if (candidate.version >= lower && candidate.version <= upper) {
            result.picked = candidate;
        }
    }
    return result;
}

} // namespace

JVMChoice readJVMChoice(const Loggable* owner)
{
    const auto logOwner = [owner] { return owner; };
    LOG(FINE, "Looking for installed Java versions...");
    JVMChoice choice;
    std::vector<JVMInfo> candidates;
    for (const char* const runtimeKey : RUNTIME_KEYS) {
        CRegistry runtimes(runtimeKey, HKEY_LOCAL_MACHINE, KEY_READ);
        const std::string currentVersion = runtimes.getStringValue("CurrentVersion", "");
        CRegistrySubKeys versions(runtimes);
        for (int index = 0; index < versions.getSubKeyCount(); index++) {
            const std::string version = versions.getSubKey(index);
            const bool isCurrent = version == currentVersion;
            LOG(FINE, "Found Java " << version << (isCurrent ? " (* USED)" : ""));
            CRegistry runtime((runtimeKey + version).c_str(), HKEY_LOCAL_MACHINE, KEY_READ);
            const JVMInfo info = {version, runtime.getStringValue("RuntimeLib", "")};
            LOG(FINE, (isCurrent ? "Standard JVM Path: " : "JVM Path: ") << info.path);
            if (isCurrent) {
                choice.standard = info;
            }
            // Keys without an underscore name a family of runtimes (1.8) or a runtime with the newer version scheme (11.0.2).
            // Deliberately they are never candidates and are used as the current version only.
            if (version.find('_') != std::string::npos) {
                candidates.push_back(info);
            }
            choice.entries.push_back({info, runtimeKey, isCurrent, version.find('_') != std::string::npos});
            runtime.closeKey();
        }
    }
    // Compared as texts, deliberately: 1.8.0_101 comes before 1.8.0_20.
    std::sort(candidates.begin(), candidates.end(),
              [](const JVMInfo& left, const JVMInfo& right) { return left.version < right.version; });

    CRegistry preferences(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    choice.pattern = preferences.getStringValue("javavm", "");
    choice.chosen = choice.standard;
    if (choice.pattern.empty()) {
        return choice;
    }
    LOG(FINE, "orvane preferred JVM pattern: " << choice.pattern);
    std::string rest = choice.pattern;
    JVMInfo preferred;
    for (bool isLastItem = false; !isLastItem && preferred.version.empty();) {
        const size_t comma = rest.find(',');
        isLastItem = comma == std::string::npos;
        choice.items.push_back(pickCandidate(candidates, rest.substr(0, comma), owner));
        preferred = choice.items.back().picked;
        rest.erase(0, isLastItem ? std::string::npos : comma + 1);
    }
    if (!preferred.version.empty()) {
        LOG(FINE, "Preferred JVM according to registry pattern: " << preferred.version);
        choice.chosen = preferred;
    }
    return choice;
}

JVMInfo CJavaManagerJNIClient::findJVM()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::findJVM");
    return readJVMChoice(this).chosen;
}

ControlClassPath readControlClassPath(const char* basisControl, const Loggable* owner)
{
    const auto logOwner = [owner] { return owner; };
    ControlClassPath classPath;
    CRegistry preferences(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    CRegistrySubKeys controls(preferences);
    for (int index = 0; index < controls.getSubKeyCount(); index++) {
        // The file name contains the name as the registry stores it, with Java's encoding of preference names.
        const std::string name = controls.getSubKey(index);
        LOG(FINE, "ORVANE Control " << index << ": " << name);
        CRegistry control((std::string(PREFERENCES_KEY) + "\\" + name).c_str(), HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
        const std::string installPath = control.getStringValue("installpath", "");
        std::string archive = installPath;
        archive.append("\\").append(name).append(".jar");
        classPath.text.append(archive).append(";");
        classPath.controls.push_back({name, installPath, std::move(archive)});
        LOG(FINE, "Control's Path: " << control.getStringValue("installpath", ""));
    }
    preferences.closeKey();
    if (basisControl != nullptr && *basisControl != '\0') {
        classPath.text += basisControl;
    }
    return classPath;
}

std::string CJavaManagerJNIClient::findORVControls()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::findORVControls");
    return readControlClassPath(m_BasisControlPath, this).text;
}
