// Collects what the server processes send to the debugger stream, with their process ids.
//
// Ownership: the four kernel objects of the debugger stream's protocol; one monitor at a time per session.
// Threads:   it collects on its own thread; every operation may be called from any thread.
// A sender waits until its line is taken, so a process is certain to be alive when it is opened at its first line.
// A sender that was killed while it had the shared page never gives it back. The monitor then offers the page anew, or each later
// line of any process would take ten seconds and be lost.
#pragma once

#include "tests/process/Program.h"

#include <map>
#include <memory>

namespace fixtures {

class CDebugMonitor
{
public:
    struct Line
    {
        DWORD process;
        std::string text; // without the names of product and executable at its start and the line feed at its end
    };

    CDebugMonitor();
    ~CDebugMonitor();
    CDebugMonitor(const CDebugMonitor&) = delete;
    CDebugMonitor& operator=(const CDebugMonitor&) = delete;

    // Stops collecting; what was collected stays.
    void stop();

    // All lines but the first ones.
    std::vector<Line> linesFrom(size_t first) const;
    // The server processes that have sent something, by process id.
    std::map<DWORD, std::shared_ptr<CProcess>> senders() const;
    // Signalled once after new lines; for one waiting thread.
    HANDLE changed() const { return m_changed; }

private:
    void collect();

    ATL::CHandle m_mutexOfSenders;
    ATL::CHandle m_mapping;
    ATL::CHandle m_bufferReady;
    ATL::CHandle m_dataReady;
    ATL::CHandle m_changed;
    ATL::CHandle m_stop;
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
    std::map<DWORD, std::shared_ptr<CProcess>> m_senders;
    std::thread m_collector;
};

} // namespace fixtures
