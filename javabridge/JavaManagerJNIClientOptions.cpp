// The options that the Java virtual machine is started with.
#include "javabridge/JavaManagerJNIClient.h"

#include "support/registry.h"

#include <algorithm>
#include <format>
#include <fstream>
#include <utility>

#define LOG_SOURCE "JavaManagerJNIClient"

namespace {

// Values named "jvm_option_...", in the byte order of their names.
std::vector<std::string> registryOptions()
{
    std::vector<std::pair<std::string, std::string>> found;
    CRegistry preferences(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    CRegistrySubKeys names(preferences);
    for (int index = 0; index < names.getValueCount(); index++) {
        const std::string name = names.getValue(index);
        if (name.starts_with("jvm_option_")) {
            CRegistry value(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
            found.emplace_back(name, value.getStringValue(name.c_str(), ""));
        }
    }
    preferences.closeKey();
    std::sort(found.begin(), found.end(), [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<std::string> options;
    options.reserve(found.size());
    for (auto& [name, option] : found) {
        options.push_back(std::move(option));
    }
    return options;
}

// Named after the executable.
std::string policyFile()
{
    char executable[MAX_PATH + 1] = "";
    GetModuleFileNameA(nullptr, executable, sizeof executable);
    std::string path = executable;
    path.resize(path.size() - std::min<size_t>(path.size(), 4));
    return path + ".policy";
}

} // namespace

std::vector<std::string> CJavaManagerJNIClient::machineOptions()
{
    std::vector<std::string> options = registryOptions();

    CRegistry preferences(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    if (preferences.getDWORDValue("sun.awt.noerasebackground", -1) <= 0) {
        LOG(FINE, "Adding sun.awt.noerasebackground JVM Option");
        options.emplace_back("-Dsun.awt.noerasebackground=true");
    }
    preferences.closeKey();

    const Logger* const logger = Logger::instance();
    if (logger != nullptr && logger->hasMagicDirectory()) {
        LOG(FINE, "Adding additional JVM options for extra logging");
        const std::string prefix = logger->logFilePrefix();
        options.insert(options.end(),
                       {"-XX:+UnlockDiagnosticVMOptions", "-XX:+LogVMOutput", "-XX:+PrintJNIResolving",
                        "-XX:+PrintCommandLineFlags", "-XX:+PrintCompilation", "-XX:+CheckJNICalls", "-XX:+PrintVMOptions",
                        "-XX:LogFile=" + prefix + "-jvm.log", "-XX:ErrorFile=" + prefix + "-jvm-error.log"});
    }
    // Without a Logger the control's own logging gets a Logger's initial values.
    options.push_back("-Dcom.orvane.qmrt.logpath=" + (logger != nullptr ? logger->logDirectory() : ""));
    options.push_back(
        std::format("-Dcom.orvane.qmrt.loglevel={}", logger != nullptr ? logger->maxLogLevel() : int{LOGLEVEL_WARN}));
    options.push_back(std::format("-Dcom.orvane.qmrt.oldlogfileage={}", logger != nullptr ? logger->oldLogFileAge() : 2419200));
    options.push_back(std::format("-Dcom.orvane.qmrt.splitlogfilesize={}", logger != nullptr ? logger->splitLogFileSize() : 10));

    const std::string policy = policyFile();
    if (std::ifstream(policy).is_open()) {
        LOG(FINE, "Enabled Java Security Manager with " << policy);
        options.emplace_back("-Djava.security.manager");
        options.push_back("-Djava.security.policy=" + policy);
    } else {
        LOG(FINE, "Java Security Manager was not enabled. (" << policy << ")");
    }
    return options;
}
