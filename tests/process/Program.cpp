#include "tests/process/Program.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <stdexcept>

namespace fixtures {

namespace {

std::runtime_error lastError(const std::string& what)
{
    return std::runtime_error(what + " failed with error " + std::to_string(GetLastError()));
}

} // namespace

bool pumpUntil(const std::function<bool()>& done, const std::vector<HANDLE>& handles, DWORD limit)
{
    const ULONGLONG deadline = GetTickCount64() + limit;
    for (;;) {
        MSG message;
        while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageA(&message);
        }
        if (done()) {
            return true;
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) {
            return false;
        }
        MsgWaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, static_cast<DWORD>(deadline - now),
                                  QS_ALLINPUT);
    }
}

std::vector<DWORD> processesNamed(const char* executable)
{
    std::vector<DWORD> found;
    const ATL::CHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
        if (_stricmp(entry.szExeFile, executable) == 0) {
            found.push_back(entry.th32ProcessID);
        }
    }
    return found;
}

std::string programFolder()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string program = path;
    return program.substr(0, program.rfind('\\'));
}

CProcess::CProcess(DWORD id)
    : CProcess(id, OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_TERMINATE, FALSE, id))
{
    if (m_handle == nullptr) {
        throw lastError("OpenProcess of " + std::to_string(id));
    }
}

std::optional<DWORD> CProcess::exitCode(DWORD limit) const
{
    if (!pumpUntil([&] { return !isRunning(); }, {m_handle}, limit)) {
        return std::nullopt;
    }
    DWORD code = 0;
    GetExitCodeProcess(m_handle, &code);
    return code;
}

SIZE_T CProcess::privateBytes() const
{
    PROCESS_MEMORY_COUNTERS counters = {};
    if (!GetProcessMemoryInfo(m_handle, &counters, sizeof counters)) {
        throw lastError("GetProcessMemoryInfo of " + std::to_string(m_id));
    }
    return counters.PagefileUsage; // the same number as the private bytes, which Wine leaves empty
}

CProgram::CProgram(std::string commandLine, const char* folder)
    : m_changed(CreateEventA(nullptr, FALSE, FALSE, nullptr))
{
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE childInput = nullptr;
    HANDLE childOutput = nullptr;
    HANDLE input = nullptr;
    HANDLE output = nullptr;
    if (!CreatePipe(&childInput, &input, &inherited, 0) || !CreatePipe(&output, &childOutput, &inherited, 0)) {
        throw lastError("CreatePipe");
    }
    m_input.Attach(input);
    m_output.Attach(output);
    const ATL::CHandle ends[] = {ATL::CHandle(childInput), ATL::CHandle(childOutput)};
    SetHandleInformation(input, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(output, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childInput;
    startup.hStdOutput = childOutput;
    startup.hStdError = childOutput;
    PROCESS_INFORMATION started = {};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, folder, &startup, &started)) {
        throw lastError("Starting " + commandLine);
    }
    CloseHandle(started.hThread);
    m_process.emplace(started.dwProcessId, started.hProcess);
    m_reader = std::thread([this] { readOutput(); });
}

CProgram::~CProgram()
{
    if (m_process->isRunning()) {
        m_process->kill(ERROR_PROCESS_ABORTED);
    }
    m_reader.join();
}

void CProgram::readOutput()
{
    char buffer[4096];
    DWORD size = 0;
    bool more = true;
    while (more) {
        more = ReadFile(m_output, buffer, sizeof buffer, &size, nullptr) != 0 && size > 0;
        {
            const std::lock_guard lock(m_mutex);
            m_text.append(buffer, more ? size : 0);
            m_ended = !more;
        }
        SetEvent(m_changed);
    }
}

std::string CProgram::output() const
{
    const std::lock_guard lock(m_mutex);
    std::string text = m_text;
    std::erase(text, '\r');
    return text;
}

bool CProgram::waitForOutput(const std::string& text)
{
    bool found = false;
    pumpUntil(
        [&] {
            const std::lock_guard lock(m_mutex);
            found = m_text.find(text) != std::string::npos;
            return found || m_ended;
        },
        {m_changed});
    return found;
}

void CProgram::send(const std::string& line) const
{
    DWORD written = 0;
    const std::string text = line + "\n";
    if (!WriteFile(m_input, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) {
        throw lastError("WriteFile to the program's input");
    }
}

} // namespace fixtures
