#include "tool/SupportFile.h"

#include "support/version.h"
#include "tool/CommandLine.h"
#include "tool/LogMask.h"
#include "tool/Probe.h"
#include "tool/Runtimes.h"
#include "tool/ZipFile.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <format>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr size_t MOST_LOGS = 50;
constexpr size_t MOST_CRASHES = 10;
constexpr const char* AREA = "report";
constexpr const char* OWN_LOG = "KESTA-KESTAtool.exe-"; // what "check" tells anyway

std::string unmasked(std::string_view line)
{
    return std::string(line);
}

// Files whose names begin and end so, the newest first.
std::vector<fs::path> filesOf(const fs::path& folder, const std::string& begin, const std::string& end)
{
    std::vector<std::pair<fs::file_time_type, fs::path>> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = fromPath(entry.path().filename());
        if (name.starts_with(begin) && name.ends_with(end) && entry.is_regular_file(error)) {
            found.emplace_back(entry.last_write_time(error), entry.path());
        }
    }
    std::ranges::sort(found, std::greater());
    std::vector<fs::path> files;
    files.reserve(found.size());
    for (auto& [time, path] : found) {
        files.push_back(std::move(path));
    }
    return files;
}

fs::path systemFolder()
{
    wchar_t folder[MAX_PATH + 1] = L"";
    GetSystemDirectoryW(folder, MAX_PATH);
    return folder;
}

// Java writes into the server's current folder, which COM sets to the system's, or else into the folder for temporary files.
std::vector<fs::path> crashFiles(const fs::path& logFolder)
{
    std::vector<fs::path> files = filesOf(logFolder, "KESTA-", "-jvm-error.log");
    std::error_code error;
    for (const fs::path& folder :
         {logFolder, fs::temp_directory_path(error), toPath(serverExecutable()).parent_path(), systemFolder()}) {
        for (fs::path& file : filesOf(folder, "hs_err_pid", ".log")) {
            if (std::ranges::find(files, file) == files.end()) {
                files.push_back(std::move(file));
            }
        }
    }
    return files;
}

std::string windowsVersion()
{
    using GetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto address = GetProcAddress(GetModuleHandleA("ntdll"), "RtlGetVersion");
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    reinterpret_cast<GetVersionFunction>(reinterpret_cast<void*>(address))(&version);
    return std::format("{}.{}.{}", version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber);
}

std::string versions()
{
    const std::string server = serverExecutable();
    std::string text = std::format("Windows: {}\r\nCode page: {}\r\nServer: {} {}\r\nTool: {}\r\n", windowsVersion(), GetACP(),
                                   server, CVersion::getVersionInfo(server.c_str()), CVersion::getVersionInfo());
    const auto add = [&](const std::string& library) {
        const RuntimeFile runtime = inspectRuntime(library);
        text += std::format("Java: {} {} {}\r\n", runtime.javaVersion, library, runtime.fault);
    };
    for (const JVMEntry& entry : readJVMChoice(nullptr).entries) {
        add(entry.path);
    }
    for (const FoundRuntime& runtime : findRuntimes()) {
        add(runtime.library);
    }
    return toUtf8(text);
}

void addFile(CZipFile& archive, CFindings& findings, const std::string& folder, const fs::path& file, const LineMask& mask)
{
    const std::string name = folder + fromPath(file.filename());
    if (!std::ifstream(file).is_open()) {
        findings.fault(AREA, name, "cannot be read: " + fromPath(file),
                       "close the program that holds the file, and repeat the command");
        return;
    }
    long long size = 0;
    archive.add(toUtf8(name), [&](const CZipFile::Sink& sink) {
        maskFile(file, mask, [&](std::string_view piece) {
            size += static_cast<long long>(piece.size());
            sink(piece);
        });
    });
    findings.good(AREA, name, std::format("{} bytes", size));
}

} // namespace

CFindings writeReport(const ReportOrder& order)
{
    CFindings findings;
    CZipFile archive(order.archive);
    const auto addText = [&](const std::string& name, const std::string& text) {
        archive.add(name, text);
        findings.good(AREA, name, std::format("{} bytes", text.size()));
    };
    const CheckResult result = checkMachine(order.log, order.depth, START_LIMIT);
    nlohmann::json json = result.findings.json();
    json.update(result.details);
    std::ostringstream table;
    printResult(result.findings, result.details, false, false, table);
    addText("check.txt", toUtf8(table.str()));
    addText("check.json", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
    addText("versions.txt", versions());

    std::vector<fs::path> logs = filesOf(toPath(order.log.folder), "KESTA-", ".log");
    std::erase_if(logs, [](const fs::path& file) {
        const std::string name = fromPath(file.filename());
        return name.find("-jvm") != std::string::npos || name.starts_with(OWN_LOG);
    });
    if (logs.size() > MOST_LOGS) {
        findings.note(AREA, "logs", std::format("only the newest {} of {} are in the archive", MOST_LOGS, logs.size()));
        logs.resize(MOST_LOGS);
    }
    for (const fs::path& log : logs) {
        addFile(archive, findings, "logs/", log, order.withTexts ? LineMask(unmasked) : maskedLogLine);
    }
    std::vector<fs::path> crashes = crashFiles(toPath(order.log.folder));
    for (; crashes.size() > MOST_CRASHES; crashes.pop_back()) {
        findings.note(AREA, "crashes",
                      std::format("only {} are in the archive; left out: {}", MOST_CRASHES, fromPath(crashes.back())));
    }
    for (const fs::path& crash : crashes) {
        addFile(archive, findings, "crashes/", crash, order.withTexts ? LineMask(unmasked) : CCrashMask());
    }
    archive.end();
    findings.setNextStep("look through " + order.archive + " and send it to support.");
    return findings;
}
