// The servers that are compared across processes: ours, and two written by hand.
//
// Threads: one, in a single-threaded apartment.  Failure: std::runtime_error.
#pragma once

#include "KESTAserver_h.h"
#include "tests/process/Program.h"
#include "tests/process/Settings.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

// A server that answers every call with a constant, and one that starts the same machine, shows the same frame and makes the same
// call to the control.
constexpr CLSID CLSID_BARE = {0x2C6E8A51, 0x9D04, 0x4B3F, {0x8E, 0x71, 0x5A, 0xC3, 0x1F, 0x60, 0xB9, 0x27}};
constexpr CLSID CLSID_BARE_JAVA = {0x2C6E8A52, 0x9D04, 0x4B3F, {0x8E, 0x71, 0x5A, 0xC3, 0x1F, 0x60, 0xB9, 0x27}};

// Beside the programs: the lines of the bare server's machine, its library first and then its options.
constexpr char BARE_MACHINE[] = "bench_bare.machine";

// Registration of all for the life of the object, and the settings of the machine.
class CServers
{
public:
    // Options for the Java virtual machine, beside those that the server gives it anyway.
    explicit CServers(const std::vector<std::string>& machineOptions = {});
    ~CServers();
    CServers(const CServers&) = delete;
    CServers& operator=(const CServers&) = delete;

    // The command line of the minimal program that starts the same machine and shows the same frame, without any COM.
    std::string hostCommand() const;

private:
    void writeMachine(const std::vector<std::string>& machineOptions) const;

    fixtures::CSettings m_settings;
};

// One object in a server process of its own, which is ended with it.
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
