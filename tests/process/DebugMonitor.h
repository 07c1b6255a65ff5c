// Collects what the server processes send to the debugger stream, with their process ids.
//
// Ownership: the four kernel objects of the debugger stream's protocol; one monitor at a time in a session.
// Threads:   a thread of its own collects; every operation may be called from any thread.
// A sender waits until its line is taken, so that at its first line a process is opened while it surely lives.
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
        std::string text; // as sent, without its line feed
    };

    CDebugMonitor();
    ~CDebugMonitor();
    CDebugMonitor(const CDebugMonitor&) = delete;
    CDebugMonitor& operator=(const CDebugMonitor&) = delete;

    // Ends the collection; what was collected stays.
    void stop();

    std::vector<Line> lines() const;
    // The texts of one process.
    std::vector<std::string> lines(DWORD process) const;
    // The server processes that have sent anything, by process id.
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
