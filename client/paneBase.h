// A hidden window of the pane's thread: brings work from other threads there, and is the parent of holders that have no pane.
//
// Ownership: shared by a Pane and its sessions. The window lives until the last of them has left, or until its thread ends.
// Threads: create, enter, leave and workOff on the pane's thread; post on any, also after the window's end. Failure: work that
// throws is given up, with a line for debuggers; work for a thread that has ended is dropped.
#pragma once

#include "client/paneCall.h"

#include <deque>
#include <mutex>

namespace kesta {

class CBase
{
public:
    using Work = std::function<void()>;

    // Null, with Windows' last error, when the window cannot be made.
    static std::shared_ptr<CBase> create();
    ~CBase() = default;
    CBase(const CBase&) = delete;
    CBase& operator=(const CBase&) = delete;

    HWND window() const { return m_window; }
    // Any thread. The pane's thread, a handle that is signalled once it has ended; Windows has destroyed its windows then.
    HANDLE thread() const { return m_thread.get(); }
    bool hasThreadEnded() const { return WaitForSingleObject(m_thread.get(), 0) == WAIT_OBJECT_0; }
    void enter() { ++m_users; }
    void leave();

    bool isThisThread() const { return GetCurrentThreadId() == m_threadId; }

    // Does at once what was posted.
    void workOff();
    // Does the work on the pane's thread, one after the other. Work that goes on for long lets the user's input go first.
    void post(Work work);
    // The same before all that waits already.
    void postFirst(std::deque<Work> works);

private:
    CBase() = default;

    // With the lock held.
    void schedule();
    // False when there is nothing to do.
    bool doNext();
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window = nullptr;
    const DWORD m_threadId = GetCurrentThreadId();
    CHandle m_thread;
    int m_users = 0;
    std::weak_ptr<CBase> m_self;
    std::mutex m_mutex;
    std::deque<Work> m_works;
    bool m_isScheduled = false;
    bool m_isOver = false; // work is dropped
    ULONGLONG m_turnBegin = 0;
};

HINSTANCE moduleInstance();
// Registers the class once. False, with Windows' last error, when that fails.
bool registerClass(const wchar_t* name, WNDPROC procedure, HBRUSH background);
// Forgets the registered classes that have no window, because they outlive a DLL and point to its code.
void unregisterClasses();

} // namespace kesta
