#include "tool/Probe.h"

#include "atl/atl.h"
#include "support/logger.h"
#include "tool/Findings.h"

#include <format>
#include <fstream>
#include <sstream>

namespace {

std::string ownExecutable()
{
    char path[MAX_PATH + 1] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    return path;
}

// A new file in the folder for temporary ones, removed at the end.
class CTemporaryFile
{
public:
    CTemporaryFile()
    {
        char folder[MAX_PATH + 1] = "";
        GetTempPathA(sizeof folder, folder);
        GetTempFileNameA(folder, "kst", 0, m_path);
    }
    ~CTemporaryFile() { DeleteFileA(m_path); }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    std::string path() const { return m_path; }
    std::string read() const
    {
        std::ifstream file(m_path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // For a child process to write to.
    HANDLE openForChild() const
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
        return CreateFileA(m_path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0, nullptr);
    }

private:
    char m_path[MAX_PATH + 1] = "";
};

// A variable of the environment that children inherit, with its earlier value at the end.
class CInheritedVariable
{
public:
    CInheritedVariable(const char* name, const std::string& added)
        : m_name(name)
    {
        char earlier[32767] = ""; // the longest
        m_earlier.assign(earlier, GetEnvironmentVariableA(name, earlier, sizeof earlier));
        if (!added.empty()) {
            SetEnvironmentVariableA(name, (m_earlier + " " + added).c_str());
        }
    }
    ~CInheritedVariable() { SetEnvironmentVariableA(m_name, m_earlier.empty() ? nullptr : m_earlier.c_str()); }
    CInheritedVariable(const CInheritedVariable&) = delete;
    CInheritedVariable& operator=(const CInheritedVariable&) = delete;

private:
    const char* m_name;
    std::string m_earlier;
};

// None of the arguments contains a quotation mark, which no path can.
std::string commandLine(const std::string& executable, const std::vector<std::string>& arguments, const std::string& answerFile)
{
    std::string line = "\"" + executable + "\" probe --answer \"" + answerFile + "\"";
    for (const std::string& argument : arguments) {
        line += " \"" + argument + (argument.ends_with('\\') ? "\\\"" : "\"");
    }
    return line;
}

} // namespace

std::string javasWords(const ProbeResult& probe)
{
    constexpr size_t FIRST = 200;
    std::string words;
    std::istringstream lines(probe.output);
    for (std::string line; words.size() < FIRST && std::getline(lines, line);) {
        line.resize(line.find_last_not_of("\r ") + 1);
        // Those tell of variables, and of what Java can do without.
        const bool isIncidental = line.starts_with("Picked up ") || line.find(" VM warning: ") != std::string::npos;
        if (!line.empty() && !isIncidental) {
            words += (words.empty() ? "" : "; ") + line;
        }
    }
    return words.substr(0, FIRST);
}

std::string whyNotStarted(const ProbeResult& probe)
{
    if (!probe.answer.is_null() && probe.answer["isStarted"].get<bool>()) {
        return "";
    }
    std::string why = probe.ending;
    if (!probe.answer.is_null()) {
        // The first line that the log has about it.
        const nlohmann::json& errors = probe.answer["errors"];
        why = errors.empty() ? "the log does not say why" : fromUtf8(errors.front().get<std::string>());
    }
    const std::string words = javasWords(probe);
    return words.empty() ? why : why + "; Java says: " + words;
}

std::string remedyForStart(const ProbeResult& probe)
{
    return javasWords(probe).empty()
               ? "choose a runtime: KESTAtool java list, then KESTAtool java use FOLDER"
               : "correct what Java names: see the rows \"option\", \"policy\" and \"variable\" of KESTAtool "
                 "check; if none of them is to blame, choose another runtime: KESTAtool java list";
}

std::vector<std::string> probeArguments(const RuntimeStart& start)
{
    std::vector<std::string> arguments = {"--version", start.runtime.version, "--library", start.runtime.path,
                                          "--control", start.basisControl,    "--program", start.server};
    if (start.withFrame) {
        arguments.emplace_back("--frame");
    }
    return arguments;
}

void writeAnswer(const nlohmann::json& answer, const std::string& answerFile)
{
    std::ofstream(answerFile) << answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ProbeResult runProbe(const std::vector<std::string>& arguments, DWORD limit, const std::string& executable,
                     const std::string& javaOptions)
{
    const CTemporaryFile answer;
    const CTemporaryFile output;
    const ATL::CHandle outputHandle(output.openForChild());
    const CInheritedVariable options("_JAVA_OPTIONS", javaOptions);
    const std::string program = executable.empty() ? ownExecutable() : executable;
    std::string command = commandLine(program, arguments, answer.path());
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = outputHandle;
    startup.hStdError = outputHandle;
    PROCESS_INFORMATION started = {};
    // In the folder of its answer, where what Java writes when it crashes may lie.
    const std::string folder = fromPath(toPath(answer.path()).parent_path());
    if (!CreateProcessA(program.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, folder.c_str(),
                        &startup, &started)) {
        return {nullptr, "it could not be started: " + getWindowsErrorText(GetLastError()), ""};
    }
    const ATL::CHandle process(started.hProcess);
    const ATL::CHandle thread(started.hThread);
    if (WaitForSingleObject(process, limit) != WAIT_OBJECT_0) {
        TerminateProcess(process, 1);
        WaitForSingleObject(process, INFINITE);
        return {nullptr, std::format("it had not come back after {} s", limit / 1000), output.read()};
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process, &exitCode);
    ProbeResult result = {nlohmann::json::parse(answer.read(), nullptr, false), "", output.read()};
    if (result.answer.is_discarded()) {
        result.answer = nullptr;
        result.ending = std::format("its process ended with exit code {:08x}", exitCode);
    }
    return result;
}
