// A call between the one who issues it, the pane's thread and the thread that makes it. Whoever answers first has answered it.
#pragma once

#include "client/kesta_pane.h"

#include <mutex>

namespace kesta {

struct SHandleCloser
{
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using CHandle = std::unique_ptr<void, SHandleCloser>;

// Handles messages that other threads have sent meanwhile, and no others. False at the limit.
bool waitForHandle(HANDLE handle, Milliseconds limit);

struct SCall : std::enable_shared_from_this<SCall>
{
public:
    using Delivery = std::function<void(const std::shared_ptr<SCall>&)>;

    // Delivery brings the answered call to the pane's thread; it is called on the thread that answers.
    SCall(long method, std::vector<Value> values, std::wstring description, Completion whenDone, Delivery delivery);

    // Any thread.
    bool isDone() const { return WaitForSingleObject(m_done.get(), 0) == WAIT_OBJECT_0; }
    // False if it has an answer already.
    bool answer(Result result);
    bool answerTimedOut(Milliseconds limit);
    bool cancel();
    Result result() const;
    HANDLE done() const { return m_done.get(); }

    // The thread that makes it. False if it has an answer already.
    bool begin();

    const long member;
    const std::vector<Value> arguments;
    const std::wstring what; // "callMethod(sleep)"
    // The completion, once: so that it is destroyed where it is called.
    Completion takeCompletion();

    ULONGLONG deadline = 0; // the session's, GetTickCount64; 0: none yet

private:
    // Given up, its text ends with what becomes of it.
    bool settle(Result result, bool isGivenUp);

    const Delivery m_delivery;
    Completion m_completion;
    mutable std::mutex m_mutex;
    CHandle m_done;
    bool m_isBegun = false;
    bool m_isAnswered = false;
    Result m_result;
};

} // namespace kesta
