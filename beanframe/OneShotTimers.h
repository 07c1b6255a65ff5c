// Timers of the system's default timer queue that fire once. The system keeps such a timer, and its memory, until it is deleted,
// also after it has fired.
//
// Threads: any.
// Failure: nothing throws. A timer that cannot be created is missing; one that cannot be remembered is not deleted.
#pragma once

#include "atl/atl.h"

#include <map>

class OneShotTimers
{
public:
    // Calls the routine, with a null parameter, on a thread of the timer queue after `delay` milliseconds. `dueTime` is when that
    // will be on the clock that deleteDue is given.
    void start(WAITORTIMERCALLBACK routine, DWORD delay, DWORD dueTime) noexcept;
    // Deletes the timers that are due, also one that runs late and has not fired yet: from now on the caller does its work.
    void deleteDue(DWORD now) noexcept;

private:
    CComAutoCriticalSection m_lock;
    std::multimap<DWORD, HANDLE> m_timers;
};
