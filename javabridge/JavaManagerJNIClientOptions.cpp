// The options that the Java virtual machine is started with, and the header of a library file.
#include "javabridge/JavaManagerJNIClientSettings.h"

#include "support/registry.h"

#include <algorithm>
#include <format>
#include <fstream>
#include <utility>

#define LOG_SOURCE "JavaManagerJNIClient"

namespace {

// Values named "jvm_option_...", in the byte order of their names.
std::vector<MachineOption> registryOptions()
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
    std::vector<MachineOption> options;
    options.reserve(found.size());
    for (auto& [name, option] : found) {
        options.push_back({std::move(name), std::move(option)});
    }
    return options;
}

} // namespace

std::string machinePolicyFile(const char* executable)
{
    char ownExecutable[MAX_PATH + 1] = "";
    if (executable == nullptr) {
        GetModuleFileNameA(nullptr, ownExecutable, sizeof ownExecutable);
        executable = ownExecutable;
    }
    std::string path = executable;
    path.resize(path.size() - std::min<size_t>(path.size(), 4));
    return path + ".policy";
}

MachineLogSettings currentLogSettings()
{
    const Logger* const logger = Logger::instance();
    if (logger == nullptr) {
        return {"", "", false, LOGLEVEL_WARN, 2419200, 10};
    }
    return {logger->logDirectory(), logger->logFilePrefix(), logger->hasMagicDirectory(),
            logger->maxLogLevel(),  logger->oldLogFileAge(), logger->splitLogFileSize()};
}

std::vector<MachineOption> readMachineOptions(const char* executable, const MachineLogSettings& log, const Loggable* owner)
{
    const auto logOwner = [owner] { return owner; };
    std::vector<MachineOption> options = registryOptions();
    const auto add = [&](std::string text) { options.push_back({"", std::move(text)}); };

    CRegistry preferences(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    if (preferences.getDWORDValue("sun.awt.noerasebackground", -1) <= 0) {
        LOG(FINE, "Adding sun.awt.noerasebackground JVM Option");
        add("-Dsun.awt.noerasebackground=true");
    }
    preferences.closeKey();

    if (log.isVerbose) {
        LOG(FINE, "Adding additional JVM options for extra logging");
        for (const char* const option :
             {"-XX:+UnlockDiagnosticVMOptions", "-XX:+LogVMOutput", "-XX:+PrintJNIResolving", "-XX:+PrintCommandLineFlags",
              "-XX:+PrintCompilation", "-XX:+CheckJNICalls", "-XX:+PrintVMOptions"}) {
            add(option);
        }
        add("-XX:LogFile=" + log.filePrefix + "-jvm.log");
        add("-XX:ErrorFile=" + log.filePrefix + "-jvm-error.log");
    }
    add("-Dcom.orvane.qmrt.logpath=" + log.folder);
    add(std::format("-Dcom.orvane.qmrt.loglevel={}", log.level));
    add(std::format("-Dcom.orvane.qmrt.oldlogfileage={}", log.oldFileAge));
    add(std::format("-Dcom.orvane.qmrt.splitlogfilesize={}", log.splitFileSize));

    const std::string policy = machinePolicyFile(executable);
    if (std::ifstream(policy).is_open()) {
        LOG(FINE, "Enabled Java Security Manager with " << policy);
        add("-Djava.security.manager");
        add("-Djava.security.policy=" + policy);
    } else {
        LOG(FINE, "Java Security Manager was not enabled. (" << policy << ")");
    }
    return options;
}

namespace {

const int PE_OFFSET_POSITION = 0x3C;
const int32_t PE_SIGNATURE = 0x00004550;

// 0 where the file ends before.
template <class Number>
Number readNumber(std::ifstream& file)
{
    Number number = 0;
    return file.read(reinterpret_cast<char*>(&number), sizeof number) ? number : Number{0};
}

} // namespace

std::optional<uint16_t> readLibraryMachine(std::ifstream& file)
{
    file.seekg(PE_OFFSET_POSITION);
    file.seekg(readNumber<int32_t>(file));
    if (readNumber<int32_t>(file) != PE_SIGNATURE) {
        return std::nullopt;
    }
    return readNumber<uint16_t>(file);
}
