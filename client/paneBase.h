// A hidden window of the pane's thread: brings work from other threads there, and is the parent of holders that have no pane.
//
// Ownership: shared by a Pane and its sessions. The window lives until the last of them has left.
// Threads: create, enter and leave on the pane's thread; post on any, also after the window's end.
#pragma once

#include "client/kesta_pane.h"

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
    void enter() { ++m_users; }
    void leave();

    // Does the work on the pane's thread, one after the other. Work that goes on for long lets the user's input go first.
    void post(Work work);

private:
    CBase() = default;

    // With the lock held.
    void schedule();
    void doNext();
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window = nullptr;
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

} // namespace kesta
