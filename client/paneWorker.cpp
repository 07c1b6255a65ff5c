// The session's own thread: COM, the frame, and the server's end.
#include "client/paneFrame.h"
#include "client/paneSession.h"

#include <algorithm>
#include <cwchar>
#include <exception>

namespace kesta {

namespace {

constexpr DWORD POLL = 20;         // ms
constexpr DWORD END_LIMIT = 1000;  // ms
constexpr DWORD KILL_LIMIT = 5000; // ms

// The connection to a process that ends is broken shortly before its handle is signalled.
bool mayBeTheEnd(HRESULT hr)
{
    return FAILED(hr) && (HRESULT_FACILITY(hr) == FACILITY_RPC || HRESULT_FACILITY(hr) == FACILITY_WIN32);
}

Result behind(const std::wstring& what, const Result& cause)
{
    return {cause.hr, what + L" " + cause.text};
}

} // namespace

void CSession::work(HRESULT hr)
{
    Result result = FAILED(hr) ? failure(hr, L"COM is not there.") : Result();
    if (result) {
        CServerObject object;
        try {
            result = start(object);
            if (result) {
                serve(object);
            }
        } catch (const std::exception&) {
            result = {E_OUTOFMEMORY, L"There is not enough memory for the pane."};
        }
        if (!result) {
            const std::wstring text =
                hasServerEnded(mayBeTheEnd(result.hr) ? END_LIMIT : 0) ? result.text + L" " + endText() : result.text;
            post([result, text](CSession& own) { own.over({Reason::NOT_STARTED, result.hr, text}); });
        } else if (hasServerEnded()) {
            post([text = endText()](CSession& own) { own.over({Reason::DIED, NO_SERVER, text}); });
        }
        object.release();
        awaitEnd();
    } else {
        post([result](CSession& own) { own.over({Reason::NOT_STARTED, result.hr, result.text}); });
    }
    stopWatching();
    post([](CSession& own) { own.workerEnded(); });
    if (m_base->hasThreadEnded()) {
        m_self.reset(); // no other thread will
    }
}

// The order is the server's: the sink first, so that no event is lost, and the control's choice last, because it lets the frame
// take the focus.
Result CSession::start(CServerObject& object)
{
    Result result = object.create();
    if (!result) {
        return result;
    }
    result = object.connect(
        [this](EventKind kind, const std::wstring& text) { post([kind, text](CSession& own) { own.event(kind, text); }); });
    if (!result) {
        return result;
    }
    const Result id = object.invoke(GET_BEAN_FRAME_ID, {});
    if (!id) {
        return behind(L"The server does not answer.", id);
    }
    const int frameId = static_cast<int>(std::wcstol(id.text.c_str(), nullptr, 10));
    if (frameId != -1) {
        result = watchServer(frameId);
        if (!result) {
            return result;
        }
    }
    if (isClosing()) {
        return {E_ABORT, L"The pane was closed."}; // nobody reads it
    }
    // Creation succeeds without Java or its frame; this tells why they are not there.
    result = object.invoke(VALIDATE, {});
    if (!result || frameId == -1) {
        return behind(L"The server has no control to show.", result ? failure(E_FAIL, L"Its frame id is -1.") : result);
    }
    HWND frame = nullptr;
    result = lookForFrame(static_cast<DWORD>(frameId), frame);
    if (!result) {
        return result;
    }
    step(L"taking in the control's window");
    result = takeIn(frame, m_holder);
    if (!result) {
        return result;
    }
    step(L"putting the control into its window");
    // Only the lower half of a handle has a meaning, on 64-bit Windows too.
    result = object.invoke(PUSH_WINDOW_HANDLE, {static_cast<int>(reinterpret_cast<INT_PTR>(m_holder))});
    if (!result) {
        return behind(L"The control could not be put into its window.", result);
    }
    step(L"choosing the control");
    result = object.invoke(SET_USED_CONTROL, {m_options.control, m_options.version});
    if (!result) {
        return behind(L"The control \"" + m_options.control + L"\" is not there.", result);
    }
    post([frame, result](CSession& own) { own.begun(frame, result.text); });
    return {};
}

// The first frame's id is the id of its process, and there is only one frame.
Result CSession::watchServer(int frameId)
{
    const DWORD id = static_cast<DWORD>(frameId);
    const HANDLE process = OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
    if (process == nullptr) {
        return lastFailure(L"The server's process cannot be watched.");
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_process = std::shared_ptr<void>(process, SHandleCloser());
    }
    if (isClosing()) { // the limit may be over already
        removeEndLimit();
        limitEnd();
    }
    post([id](CSession& own) { own.m_processId = id; });
    return {};
}

Result CSession::lookForFrame(DWORD id, HWND& frame)
{
    while (!isClosing() && !hasServerEnded()) {
        const SFoundFrame found = findFrame(id);
        if (found.window != nullptr) {
            frame = found.window;
            return {};
        }
        std::wstring waiting = L"waiting for the window " + frameName(id);
        if (found.strangerProcess != 0) {
            waiting += L" of the server; there is one of the process " + std::to_wstring(found.strangerProcess);
        }
        step(waiting);
        idle(POLL);
    }
    return {E_ABORT, L"The control's window did not appear."};
}

void CSession::serve(const CServerObject& object)
{
    for (;;) {
        while (const std::shared_ptr<SCall> call = nextCall()) {
            Result result = object.invoke(call->member, call->arguments);
            if (mayBeTheEnd(result.hr) && hasServerEnded(END_LIMIT)) {
                result = {NO_SERVER, call->what + L" has no answer: " + endText()};
            }
            ULONGLONG duration = 0;
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_current.reset();
                duration = GetTickCount64() - m_currentBegin;
            }
            call->answer(std::move(result));
            if (duration >= hangLimit() && !hasServerEnded()) {
                post([](CSession& own) { own.answersAgain(); });
            }
            idle(0);
        }
        if (isClosing() || hasServerEnded()) {
            return;
        }
        idle(INFINITE);
    }
}

std::shared_ptr<SCall> CSession::nextCall()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    while (m_isServing && m_isAccepting && !m_waiting.empty() && !hasServerEnded()) {
        const std::shared_ptr<SCall> call = std::move(m_waiting.front());
        m_waiting.pop_front();
        if (call->begin()) {
            m_current = call;
            m_currentBegin = GetTickCount64();
            return call;
        }
    }
    return nullptr;
}

// After the last release the server needs about a second to end. Its windows go with it, so the holder is free of them then.
void CSession::awaitEnd()
{
    const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(std::max<Milliseconds::rep>(m_options.closeLimit.count(), 0));
    while (m_process != nullptr && !hasServerEnded()) {
        const ULONGLONG now = GetTickCount64();
        if (now >= end) {
            kill();
            WaitForSingleObject(m_process.get(), KILL_LIMIT);
            return;
        }
        idle(static_cast<DWORD>(std::min<ULONGLONG>(end - now, INFINITE - 1)));
    }
}

bool CSession::hasServerEnded(DWORD wait) const
{
    return m_process != nullptr && WaitForSingleObject(m_process.get(), wait) == WAIT_OBJECT_0;
}

void CSession::idle(DWORD limit)
{
    HANDLE handles[2] = {m_wake.get()};
    DWORD count = 1;
    if (m_process != nullptr) {
        handles[count++] = m_process.get();
    }
    MsgWaitForMultipleObjectsEx(count, handles, limit, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
        DispatchMessageW(&message);
    }
}

void CSession::step(const std::wstring& what)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_step = what;
}

std::wstring CSession::endText() const
{
    DWORD code = 0;
    GetExitCodeProcess(m_process.get(), &code);
    return L"The server's process has ended with the exit code " + std::to_wstring(code) + L".";
}

} // namespace kesta
