// The servers that are compared across processes: ours, and two written by hand.
//
// Threads: one, in a single-threaded apartment. Failure: std::runtime_error.
#pragma once

#include "KESTAserver_h.h"
#include "tests/process/Program.h"
#include "tests/process/Settings.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

// One answers every call with a constant; the other starts the same VM, shows the same frame and calls the control in the
// same way.
constexpr CLSID CLSID_BARE = {0x2C6E8A51, 0x9D04, 0x4B3F, {0x8E, 0x71, 0x5A, 0xC3, 0x1F, 0x60, 0xB9, 0x27}};
constexpr CLSID CLSID_BARE_JAVA = {0x2C6E8A52, 0x9D04, 0x4B3F, {0x8E, 0x71, 0x5A, 0xC3, 0x1F, 0x60, 0xB9, 0x27}};

// Java's own memory must not change, so that any growth is the server's: the whole heap is committed at the start, and the
// compiler is off.
inline const std::vector<std::string> STEADY_MACHINE = {"-Xms48m", "-Xmx48m", "-XX:+AlwaysPreTouch", "-XX:+UseSerialGC", "-Xint"};

// The file beside the programs with the bare server's VM: a line for its library, then one for each option.
constexpr char BARE_MACHINE[] = "bench_bare.machine";

// As a process of 64 bits sees the key of the host application.
constexpr char PREFERENCES[] = "SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

// The registration of all servers, while it is alive, and the machine's settings.
class CServers
{
public:
    // Additional options for the Java virtual machine.
    explicit CServers(const std::vector<std::string>& machineOptions = {});
    ~CServers();
    CServers(const CServers&) = delete;
    CServers& operator=(const CServers&) = delete;

    // The command line of the minimal program that starts the same VM and shows the same frame, without any COM.
    std::string hostCommand() const;
    const fixtures::CSettings& settings() const { return m_settings; }

private:
    void writeMachine(const std::vector<std::string>& machineOptions) const;

    fixtures::CSettings m_settings;
};

// One object in its own server process, which its destructor ends.
class CRemote
{
public:
    explicit CRemote(const CLSID& clsid);
    ~CRemote();
    CRemote(const CRemote&) = delete;
    CRemote& operator=(const CRemote&) = delete;

    IJavaManager* object() const { return m_object; }
    const fixtures::CProcess& process() const { return *m_process; }
    // Seconds from the creation until the frame's id was answered.
    double startTime() const { return m_startTime; }

private:
    ATL::CComPtr<IJavaManager> m_object;
    std::unique_ptr<fixtures::CProcess> m_process;
    double m_startTime = 0;
};

} // namespace bench
