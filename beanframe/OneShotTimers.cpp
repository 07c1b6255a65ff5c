#include "beanframe/OneShotTimers.h"

#include "beanframe/DueTimes.h"

void OneShotTimers::start(WAITORTIMERCALLBACK routine, DWORD delay, DWORD dueTime) noexcept
{
    HANDLE timer = nullptr;
    if (!CreateTimerQueueTimer(&timer, nullptr, routine, nullptr, delay, 0, WT_EXECUTEONLYONCE)) {
        return;
    }
    AtlGuard([&] {
        const CComCritSecLock lock(m_lock);
        m_timers.emplace(dueTime, timer);
        return S_OK;
    });
}

void OneShotTimers::deleteDue(DWORD now) noexcept
{
    const CComCritSecLock lock(m_lock);
    for (auto timer = findLatestDue(m_timers, now); timer != m_timers.end(); timer = findLatestDue(m_timers, now)) {
        // Does not wait for a routine that is running; the timer is then deleted when it returns.
        DeleteTimerQueueTimer(nullptr, timer->second, nullptr);
        m_timers.erase(timer);
    }
}
