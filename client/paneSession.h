// One server and what belongs to it: the thread that talks to it, its frame, and the holder, the window around the frame whose
// handle the server is given. A Pane has one session after the other.
//
// Ownership: a session lives until its server has ended and nothing refers to its windows, if need be without its Pane. The
// holder is a child of the pane's window or, without one, of the base's: it has a parent at any time, and so the server's watch
// over it never sees a client that has died. Threads: as said at each group. Failure: ends in IPane::ended or in a call's answer.
#pragma once

#include "client/paneBase.h"
#include "client/paneCall.h"
#include "client/paneObject.h"

#include <deque>
#include <mutex>

namespace kesta {

// What a session tells its Pane, on the pane's thread.
struct IPane
{
    virtual ~IPane() = default;
    virtual void ready(const std::wstring& control) = 0;
    virtual void event(EventKind kind, const std::wstring& text) = 0;
    virtual void ended(const Ended& ended) = 0;
    virtual void answered(const Completion& completion, const Result& result) = 0;
    // Tells the client nothing any more.
    virtual bool isClosed() const = 0;
};

class CSession : public std::enable_shared_from_this<CSession>
{
public:
    // Pane's thread. The pane's window may be null. Begins to start the server.
    static std::shared_ptr<CSession> begin(const Options& options, std::weak_ptr<IPane> pane, std::shared_ptr<CBase> base,
                                           HWND paneWindow);
    ~CSession() = default;
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    // Pane's thread. The holder fills the pane's window, or, for null, waits hidden in the base.
    void dock(HWND paneWindow);
    void fill(LONG width, LONG height);
    // Has Java paint all of the frame again, once there was time for this program to paint what is around it.
    void repaintSoon();
    // Ends the server, hung or not, in the background. The Pane hears only answers from now on.
    void close();
    bool isReady() const { return m_isReady && !m_isOver; }
    // As setUsedControl answered, once it is ready.
    const std::wstring& control() const { return m_control; }
    // Why it is over; null as long as it is not.
    const Ended* end() const { return m_end.get(); }
    // For a limit of the start, with what it waits for.
    Result tooLate(Milliseconds limit) const;
    HWND frame() const { return m_isReady && !m_isOver ? m_frame : nullptr; }
    DWORD process() const { return m_isOver ? 0 : m_processId; }

    // Any thread. The call is answered in any case.
    std::shared_ptr<SCall> issue(long member, std::vector<Value> arguments, std::wstring what, Completion completion);
    // Lets the server go for good, without the pane's thread: its calls are answered, and nothing new begins.
    void abandon(const std::wstring& why);
    // Ends the server's process. False if it is not known yet.
    bool kill();
    // The own thread is idle again.
    HANDLE workerDone() const { return m_workerDone.get(); }
    // Its server has ended or is about to.
    bool isClosing() const;
    // Once the own thread is idle: forgets its windows at once if their thread is this one and its Pane is gone.
    void dropWindows();

private:
    CSession(const Options& options, std::weak_ptr<IPane> pane, std::shared_ptr<CBase> base);

    // Pane's thread.
    void begun(HWND frame, const std::wstring& control);
    void event(EventKind kind, const std::wstring& text);
    void show();
    void reveal();
    void answered(const std::shared_ptr<SCall>& call);
    void answersAgain();
    void over(const Ended& ended);
    void stop(const std::wstring& why);
    void workerEnded();
    void reschedule();
    void tick();
    void lookAtCalls(ULONGLONG now);
    ULONGLONG hangLimit() const;
    static void CALLBACK timer(HWND window, UINT message, UINT_PTR id, DWORD time);
    static LRESULT CALLBACK holderProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    // Any thread. Ends the server at the limit for its end, whatever the threads are busy with by then.
    void limitEnd();
    void removeEndLimit();
    bool watchPaneThread();
    // The session may be destroyed then.
    void stopWatching();

    // The session's own thread, with the result of COM's initialisation.
    void work(HRESULT hr);
    Result start(CServerObject& object);
    Result watchServer(int frameId);
    Result lookForFrame(DWORD id, HWND& frame);
    void serve(const CServerObject& object);
    std::shared_ptr<SCall> nextCall();
    void awaitEnd();
    bool hasServerEnded(DWORD wait = 0) const;
    // Handles messages, COM's among them, until the time is up, the server ends or there is something to do.
    void idle(DWORD limit);
    void step(const std::wstring& what);
    // The server's end, with the process's exit code, behind a failure that it may have caused.
    std::wstring endText() const;

    // Brings work to the pane's thread; it keeps the session alive.
    void post(std::function<void(CSession&)> work);

    const Options m_options;
    const std::weak_ptr<IPane> m_pane;
    const std::shared_ptr<CBase> m_base;
    HWND m_holder = nullptr; // set before the own thread starts, as the next one
    HANDLE m_threadWait = nullptr;

    // Pane's thread.
    std::shared_ptr<CSession> m_self; // until the worker has ended
    HWND m_frame = nullptr;
    DWORD m_processId = 0;
    std::wstring m_control;
    std::unique_ptr<const Ended> m_end;
    bool m_isBegun = false;        // the control is in its frame
    bool m_isControlReady = false; // and has said that it can be seen
    bool m_isReady = false;
    bool m_isOver = false;
    bool m_isHung = false;
    ULONGLONG m_startDeadline = 0; // GetTickCount64, as all of these; 0: none
    ULONGLONG m_showDeadline = 0;
    ULONGLONG m_repaintDeadline = 0;

    // All threads.
    const CHandle m_wake;
    const std::shared_ptr<void> m_workerDone; // an event
    mutable std::mutex m_mutex;               // guards what follows
    std::deque<std::shared_ptr<SCall>> m_waiting;
    std::vector<std::shared_ptr<SCall>> m_unanswered; // the waiting ones among them
    std::shared_ptr<SCall> m_current;                 // the one that was begun
    ULONGLONG m_currentBegin = 0;
    bool m_isAccepting = true; // false: calls are refused, for the reason
    bool m_isServing = false;  // calls are made, and their limits run
    bool m_isWorkerOver = false;
    HANDLE m_endTimer = nullptr;
    std::wstring m_refusal;
    std::wstring m_step{L"starting the server"};
    std::shared_ptr<void> m_process; // the server's, a handle
};

} // namespace kesta
