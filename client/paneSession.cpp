// The session on the pane's thread; its own thread is in paneWorker.cpp.
#include "client/paneSession.h"

#include "client/paneFrame.h"
#include "client/paneThreads.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace kesta {

namespace {

constexpr wchar_t HOLDER_CLASS[] = L"kesta pane holder";
// For controlReady to come once the control is in its frame; then the frame is shown as it is.
constexpr ULONGLONG SHOW_LIMIT = 5000;
constexpr ULONGLONG REPAINT_DELAY = 100; // ms
constexpr Milliseconds EXIT_LIMIT{5000};

// For the threads to end that wait for no server any more.
constexpr DWORD THREAD_LIMIT = 1000; // ms

// Windows has ended all other threads already, as it does before a DLL hears of the program's end.
bool haveThreadsEnded()
{
    using IsEnding = BOOLEAN(WINAPI*)();
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress");
    return function != nullptr && reinterpret_cast<IsEnding>(reinterpret_cast<void*>(function))() != FALSE;
}

// Never destroyed: panes may be after the other static objects.
struct SLiveSessions
{
    void add(const std::shared_ptr<CSession>& session)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        sessions.erase(std::remove_if(sessions.begin(), sessions.end(), [](const auto& old) { return old.expired(); }),
                       sessions.end());
        sessions.push_back(session);
    }
    std::shared_ptr<CSession> find(const CSession* wanted)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (const std::weak_ptr<CSession>& live : sessions) {
            if (const std::shared_ptr<CSession> session = live.lock(); session.get() == wanted) {
                return session;
            }
        }
        return nullptr;
    }
    std::vector<std::shared_ptr<CSession>> all()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::shared_ptr<CSession>> found;
        for (const std::weak_ptr<CSession>& live : sessions) {
            if (std::shared_ptr<CSession> session = live.lock()) {
                found.push_back(std::move(session));
            }
        }
        return found;
    }

    std::mutex mutex;
    std::vector<std::weak_ptr<CSession>> sessions;
};

SLiveSessions& liveSessions()
{
    static auto* const s_sessions = new SLiveSessions;
    return *s_sessions;
}

// Of the program's end, or of a DLL that is unloaded, whose threads are gone then: each holds the DLL.
struct SAtEnd
{
    SAtEnd() = default;
    ~SAtEnd()
    {
        if (haveThreadsEnded()) {
            return; // the servers notice that their client's windows are gone
        }
        for (const std::shared_ptr<CSession>& session : liveSessions().all()) {
            session->abandon(L"the program ends");
        }
        finish(EXIT_LIMIT);
        unregisterClasses();
    }
    SAtEnd(const SAtEnd&) = delete;
    SAtEnd& operator=(const SAtEnd&) = delete;
};

bool waitUntil(ULONGLONG end, HANDLE handle)
{
    const ULONGLONG now = GetTickCount64();
    return waitForHandle(handle, Milliseconds(now < end ? end - now : 0));
}

// Zero stays what it means: no deadline.
ULONGLONG after(Milliseconds limit)
{
    return GetTickCount64() + static_cast<ULONGLONG>(std::max<Milliseconds::rep>(limit.count(), 1));
}

bool isDue(ULONGLONG deadline, ULONGLONG now)
{
    return deadline != 0 && now >= deadline;
}

} // namespace

bool finish(Milliseconds limit)
{
    std::vector<std::shared_ptr<CSession>> closing = liveSessions().all();
    closing.erase(std::remove_if(closing.begin(), closing.end(), [](const auto& session) { return !session->isClosing(); }),
                  closing.end());
    const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(std::max<Milliseconds::rep>(limit.count(), 0));
    bool haveAllEnded = true;
    std::vector<std::shared_ptr<CSession>> killed;
    for (const std::shared_ptr<CSession>& session : closing) {
        if (!waitUntil(end, session->workerDone())) {
            haveAllEnded = false;
            if (session->kill()) {
                killed.push_back(session);
            }
        }
    }
    const ULONGLONG killEnd = GetTickCount64() + static_cast<ULONGLONG>(EXIT_LIMIT.count());
    for (const std::shared_ptr<CSession>& session : killed) {
        waitUntil(killEnd, session->workerDone());
    }
    for (const std::shared_ptr<CSession>& session : closing) {
        session->dropWindows();
    }
    closing.clear();
    killed.clear();
    endIdleApartments(THREAD_LIMIT);
    return haveAllEnded;
}

CSession::CSession(const Options& options, std::weak_ptr<IPane> pane, std::shared_ptr<CBase> base)
    : m_options(options)
    , m_pane(std::move(pane))
    , m_base(std::move(base))
    , m_wake(CreateEventW(nullptr, FALSE, FALSE, nullptr))
    , m_workerDone(CreateEventW(nullptr, TRUE, FALSE, nullptr), SHandleCloser())
{
}

std::shared_ptr<CSession> CSession::begin(const Options& options, std::weak_ptr<IPane> pane, std::shared_ptr<CBase> base,
                                          HWND paneWindow)
{
    static const SAtEnd s_atEnd;
    const std::shared_ptr<CSession> session(new CSession(options, std::move(pane), std::move(base)));
    session->m_self = session;
    session->m_base->enter();
    session->m_startDeadline = after(options.startLimit);
    liveSessions().add(session);

    Result problem;
    if (registerClass(HOLDER_CLASS, holderProcedure, nullptr)) {
        session->m_holder = CreateWindowExW(WS_EX_NOPARENTNOTIFY, HOLDER_CLASS, L"", WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS,
                                            0, 0, 1, 1, session->m_base->window(), nullptr, moduleInstance(), nullptr);
    }
    if (session->m_holder == nullptr) {
        problem = lastFailure(L"The pane's inner window could not be made.");
    } else {
        SetWindowLongPtrW(session->m_holder, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(session.get()));
        session->dock(paneWindow);
        if (!session->watchPaneThread() || !runInApartment([session](HRESULT hr) { session->work(hr); }, session->m_workerDone)) {
            problem = lastFailure(L"The pane's thread could not be started.");
        }
    }
    if (!problem) {
        session->stopWatching();
        SetEvent(session->m_workerDone.get());
        session->post([problem](CSession& failed) {
            failed.over({Reason::NOT_STARTED, problem.hr, problem.text});
            failed.workerEnded();
        });
    }
    session->reschedule();
    return session;
}

void CSession::dock(HWND paneWindow)
{
    if (m_holder == nullptr) {
        return;
    }
    if (paneWindow == nullptr) {
        ShowWindow(m_holder, SW_HIDE);
        SetParent(m_holder, m_base->window());
        return;
    }
    SetParent(m_holder, paneWindow);
    RECT area = {};
    GetClientRect(paneWindow, &area);
    fill(area.right, area.bottom);
    if (isReady()) {
        reveal();
    }
}

// Java paints all of a window that comes to sight only if its size changes then.
void CSession::reveal()
{
    ShowWindow(m_holder, SW_SHOWNA);
    RECT area = {};
    GetClientRect(m_holder, &area);
    fit(m_frame, area.right, area.bottom + 1);
    fit(m_frame, area.right, area.bottom);
    repaintSoon();
}

// Under Wine, what a program paints in its own window covers the other process's picture in it.
void CSession::repaintSoon()
{
    if (isReady()) {
        m_repaintDeadline = GetTickCount64() + REPAINT_DELAY;
        reschedule();
    }
}

void CSession::fill(LONG width, LONG height)
{
    if (m_holder != nullptr && !m_isOver) {
        MoveWindow(m_holder, 0, 0, static_cast<int>(std::max(width, 1L)), static_cast<int>(std::max(height, 1L)), TRUE);
    }
}

void CSession::close()
{
    if (m_isOver) {
        return;
    }
    constexpr wchar_t WHY[] = L"the pane was closed or started anew";
    if (m_isHung) {
        abandon(WHY);
        kill(); // now: the windows around a frame whose thread stands still wait for it when they are moved elsewhere
    }
    stop(WHY);
}

std::shared_ptr<SCall> CSession::issue(long member, std::vector<Value> arguments, std::wstring what, Completion completion)
{
    const auto call = std::make_shared<SCall>(member, std::move(arguments), std::move(what), std::move(completion),
                                              [weak = weak_from_this()](const std::shared_ptr<SCall>& answered) {
                                                  if (const std::shared_ptr<CSession> session = weak.lock()) {
                                                      session->post([answered](CSession& own) { own.answered(answered); });
                                                  }
                                              });
    std::wstring refusal;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isAccepting) {
            call->deadline = m_isServing ? after(m_options.callLimit) : 0;
            m_waiting.push_back(call);
            m_unanswered.push_back(call);
        } else {
            refusal = m_refusal;
        }
    }
    if (!refusal.empty()) {
        call->answer({NO_SERVER, call->what + L" was not made: " + refusal});
    } else {
        SetEvent(m_wake.get());
        post([](CSession& own) { own.reschedule(); });
    }
    return call;
}

void CSession::abandon(const std::wstring& why)
{
    std::vector<std::shared_ptr<SCall>> unanswered;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_isAccepting) {
            return;
        }
        m_isAccepting = false;
        m_refusal = why;
        unanswered.swap(m_unanswered);
        m_waiting.clear();
    }
    limitEnd();
    for (const std::shared_ptr<SCall>& call : unanswered) {
        call->answer({NO_SERVER, call->what + L" has no answer: " + why});
    }
    SetEvent(m_wake.get());
}

// While a call that does not return is under way, the own thread would not notice the end of the pane's.
bool CSession::watchPaneThread()
{
    const WAITORTIMERCALLBACK ended = [](void* session, BOOLEAN) {
        static_cast<CSession*>(session)->abandon(L"the pane's thread has ended");
    };
    return RegisterWaitForSingleObject(&m_threadWait, m_base->thread(), ended, this, INFINITE, WT_EXECUTEONLYONCE) != FALSE;
}

// Not on the pane's thread, which may be busy with something else, or gone.
void CSession::limitEnd()
{
    const auto limit = std::clamp<Milliseconds::rep>(m_options.closeLimit.count(), 0, INFINITE - 1);
    const WAITORTIMERCALLBACK end = [](void* session, BOOLEAN) { static_cast<CSession*>(session)->kill(); };
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isWorkerOver && m_endTimer == nullptr) {
        CreateTimerQueueTimer(&m_endTimer, nullptr, end, this, static_cast<DWORD>(limit), 0, WT_EXECUTEONLYONCE);
    }
}

void CSession::stopWatching()
{
    if (m_threadWait != nullptr) {
        UnregisterWaitEx(std::exchange(m_threadWait, nullptr), INVALID_HANDLE_VALUE); // after a call that is under way
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isWorkerOver = true;
    }
    removeEndLimit();
}

void CSession::removeEndLimit()
{
    HANDLE timer = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        timer = std::exchange(m_endTimer, nullptr);
    }
    if (timer != nullptr) {
        DeleteTimerQueueTimer(nullptr, timer, INVALID_HANDLE_VALUE); // after a call that is under way
    }
}

bool CSession::kill()
{
    std::shared_ptr<void> process;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        process = m_process;
    }
    if (process != nullptr) {
        TerminateProcess(process.get(), ENDED_BY_CLIENT);
    }
    return process != nullptr;
}

bool CSession::isClosing() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_isAccepting;
}

void CSession::dropWindows()
{
    if (!m_base->isThisThread()) {
        return;
    }
    const std::shared_ptr<IPane> pane = m_pane.lock(); // what waits in the base may keep a closed one
    if (pane == nullptr || pane->isClosed()) {         // handlers may be called otherwise
        m_base->workOff();
    }
}

void CSession::post(std::function<void(CSession&)> work)
{
    m_base->post([session = shared_from_this(), work = std::move(work)] { work(*session); });
}

void CSession::begun(HWND frame, const std::wstring& control)
{
    if (m_isOver) {
        return;
    }
    m_isBegun = true;
    m_frame = frame;
    m_control = control;
    m_startDeadline = 0;
    m_showDeadline = GetTickCount64() + SHOW_LIMIT;
    if (m_isControlReady) {
        show();
    }
    reschedule();
}

void CSession::event(EventKind kind, const std::wstring& text)
{
    if (m_isOver) {
        return;
    }
    if (const std::shared_ptr<IPane> pane = m_pane.lock()) {
        pane->event(kind, text);
    }
    if (kind == EventKind::CONTROL_READY) {
        m_isControlReady = true;
        show();
    }
}

void CSession::show()
{
    if (!m_isBegun || m_isReady || m_isOver) {
        return;
    }
    m_isReady = true;
    m_showDeadline = 0;
    reveal();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isServing = true;
        for (const std::shared_ptr<SCall>& call : m_unanswered) {
            call->deadline = after(m_options.callLimit);
        }
    }
    SetEvent(m_wake.get());
    reschedule();
    if (const std::shared_ptr<IPane> pane = m_pane.lock()) {
        pane->ready(m_control);
    }
}

void CSession::answered(const std::shared_ptr<SCall>& call)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_unanswered.erase(std::remove(m_unanswered.begin(), m_unanswered.end(), call), m_unanswered.end());
    }
    reschedule();
    const Completion completion = call->takeCompletion(); // also when nobody calls it any more
    if (const std::shared_ptr<IPane> pane = m_pane.lock(); pane != nullptr && completion) {
        pane->answered(completion, call->result());
    }
}

void CSession::answersAgain()
{
    if (!m_isHung || m_isOver) {
        return;
    }
    m_isHung = false;
    reschedule(); // the next call may hang as well
    if (const std::shared_ptr<IPane> pane = m_pane.lock()) {
        pane->ready(m_control);
    }
}

void CSession::over(const Ended& ended)
{
    if (m_isOver) {
        return;
    }
    m_end = std::make_unique<const Ended>(ended);
    stop(ended.text);
    if (const std::shared_ptr<IPane> pane = m_pane.lock()) {
        pane->ended(ended);
    }
}

void CSession::stop(const std::wstring& why)
{
    m_isOver = true;
    m_startDeadline = 0;
    m_showDeadline = 0;
    m_repaintDeadline = 0;
    abandon(why);  // first, so that its limit runs if Windows waits
    dock(nullptr); // for the frame's thread
    reschedule();
}

void CSession::workerEnded()
{
    KillTimer(m_base->window(), reinterpret_cast<UINT_PTR>(this));
    if (m_holder != nullptr) {
        SetWindowLongPtrW(m_holder, GWLP_USERDATA, 0);
        DestroyWindow(m_holder); // the frame has gone with its process
        m_holder = nullptr;
    }
    m_frame = nullptr;
    m_base->leave();
    m_self.reset();
}

ULONGLONG CSession::hangLimit() const
{
    constexpr Milliseconds::rep LONGEST = std::numeric_limits<Milliseconds::rep>::max() / 2; // added to a time it is one still
    const Milliseconds::rep wanted = m_options.hangLimit.count();
    const Milliseconds::rep limit =
        wanted > 0 ? std::min(wanted, LONGEST) : 2 * std::min(m_options.callLimit.count(), LONGEST / 2);
    return static_cast<ULONGLONG>(std::max<Milliseconds::rep>(limit, 1));
}

void CSession::reschedule()
{
    if (m_self == nullptr) {
        return;
    }
    const ULONGLONG now = GetTickCount64();
    ULONGLONG nearest = 0;
    const auto consider = [&nearest](ULONGLONG deadline) {
        nearest = deadline != 0 && (nearest == 0 || deadline < nearest) ? deadline : nearest;
    };
    consider(m_startDeadline);
    consider(m_showDeadline);
    consider(m_repaintDeadline);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const std::shared_ptr<SCall>& call : m_unanswered) {
            consider(call->deadline);
        }
        if (m_current != nullptr && !m_isHung && !m_isOver) {
            consider(m_currentBegin + hangLimit());
        } else if (!m_unanswered.empty() && !m_isHung) {
            consider(now + hangLimit()); // the first of them may begin at any time
        }
    }
    if (nearest == 0) {
        KillTimer(m_base->window(), reinterpret_cast<UINT_PTR>(this));
    } else {
        const ULONGLONG left = nearest > now ? std::min<ULONGLONG>(nearest - now, USER_TIMER_MAXIMUM) : 0;
        SetTimer(m_base->window(), reinterpret_cast<UINT_PTR>(this), static_cast<UINT>(left), timer);
    }
}

void CALLBACK CSession::timer(HWND, UINT, UINT_PTR id, DWORD)
{
    // The last message of a timer may come after the timer's end.
    if (const std::shared_ptr<CSession> session = liveSessions().find(reinterpret_cast<CSession*>(id))) {
        session->tick();
        session->reschedule();
    }
}

void CSession::tick()
{
    const ULONGLONG now = GetTickCount64();
    if (isDue(m_startDeadline, now)) {
        const Result late = tooLate(m_options.startLimit);
        kill(); // while COM starts the server, there is none to be known
        over({Reason::NOT_STARTED, late.hr, late.text});
    }
    if (isDue(m_showDeadline, now)) {
        show();
    }
    if (isDue(m_repaintDeadline, now)) {
        m_repaintDeadline = 0;
        RedrawWindow(m_frame, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
    }
    lookAtCalls(now);
}

Result CSession::tooLate(Milliseconds limit) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {TIMED_OUT, L"The control was not there within " + std::to_wstring(limit.count()) +
                           L" ms; at that time the pane was " + m_step + L"."};
}

void CSession::lookAtCalls(ULONGLONG now)
{
    std::vector<std::shared_ptr<SCall>> late;
    std::wstring hanging;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto isLate = [now](const auto& call) { return isDue(call->deadline, now); };
        std::copy_if(m_unanswered.begin(), m_unanswered.end(), std::back_inserter(late), isLate);
        m_unanswered.erase(std::remove_if(m_unanswered.begin(), m_unanswered.end(), isLate), m_unanswered.end());
        if (m_current != nullptr && !m_isHung && !m_isOver && now >= m_currentBegin + hangLimit()) {
            hanging = m_current->what;
        }
    }
    for (const std::shared_ptr<SCall>& call : late) {
        call->answerTimedOut(m_options.callLimit);
    }
    if (!hanging.empty()) {
        m_isHung = true;
        if (const std::shared_ptr<IPane> pane = m_pane.lock()) {
            pane->ended({Reason::HUNG, TIMED_OUT,
                         hanging + L" has not returned for " + std::to_wstring(hangLimit()) + L" ms: the control hangs."});
        }
    }
}

LRESULT CALLBACK CSession::holderProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* session = reinterpret_cast<CSession*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    switch (message) {
    case WM_SIZE:
        if (session != nullptr && session->m_frame != nullptr) {
            fit(session->m_frame, LOWORD(lParam), HIWORD(lParam));
        }
        return 0;
    case WM_ERASEBKGND:
        return TRUE; // the frame covers all of it
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

} // namespace kesta
