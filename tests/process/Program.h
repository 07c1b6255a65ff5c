// Processes of a test: those it starts, and those that COM starts for it.
//
// While they wait, functions handle the calling thread's window messages, so that the server can call its sinks.
// Failure: what cannot be started or opened throws std::runtime_error, which fails the test.
#pragma once

#include "atl/atl.h"

#include <windows.h>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace fixtures {

constexpr DWORD TIME_LIMIT = 40000; // ms, after which a wait gives up

// Handles messages until the condition holds, which is checked whenever messages have been handled or one of the handles is
// signalled. False when the time is up.
bool pumpUntil(const std::function<bool()>& done, const std::vector<HANDLE>& handles = {}, DWORD limit = TIME_LIMIT);

std::vector<DWORD> processesNamed(const char* executable);

// The test program's folder, without a backslash at the end.
std::string programFolder();

class CProcess
{
public:
    explicit CProcess(DWORD id);
    CProcess(DWORD id, HANDLE handle)
        : m_id(id)
        , m_handle(handle)
    {
    }
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    DWORD id() const { return m_id; }
    HANDLE handle() const { return m_handle; }
    bool isRunning() const { return WaitForSingleObject(m_handle, 0) == WAIT_TIMEOUT; }
    // Waits for the process's end; nothing when the time is up.
    std::optional<DWORD> exitCode(DWORD limit = TIME_LIMIT) const;
    void kill(DWORD exitCode) const { TerminateProcess(m_handle, exitCode); }
    SIZE_T privateBytes() const;

private:
    DWORD m_id;
    ATL::CHandle m_handle;
};

// A program whose standard input and output the test controls. Killed if it is still running at the end.
class CProgram
{
public:
    explicit CProgram(std::string commandLine, const char* folder = nullptr);
    ~CProgram();
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;

    const CProcess& process() const { return *m_process; }
    std::string output() const;
    // Waits until the program has printed the text; false when it ended or the time is up before that.
    bool waitForOutput(const std::string& text);
    // Writes a line to the program's standard input.
    void send(const std::string& line) const;

private:
    void readOutput();

    std::optional<CProcess> m_process;
    ATL::CHandle m_input;
    ATL::CHandle m_output;
    ATL::CHandle m_changed;
    mutable std::mutex m_mutex;
    std::string m_text;
    bool m_ended = false;
    std::thread m_reader;
};

} // namespace fixtures
