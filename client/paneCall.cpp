#include "client/paneCall.h"

#include <algorithm>

namespace kesta {

bool waitForHandle(HANDLE handle, Milliseconds limit)
{
    const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(std::max<Milliseconds::rep>(limit.count(), 0));
    for (;;) {
        MSG message;
        PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
        const ULONGLONG now = GetTickCount64();
        const DWORD left = now < end ? static_cast<DWORD>(std::min<ULONGLONG>(end - now, INFINITE - 1)) : 0;
        const DWORD seen = MsgWaitForMultipleObjects(1, &handle, FALSE, left, QS_SENDMESSAGE);
        if (seen != WAIT_OBJECT_0 + 1) {
            return seen == WAIT_OBJECT_0;
        }
    }
}

SCall::SCall(long method, std::vector<Value> values, std::wstring description, Completion whenDone, Delivery delivery)
    : member(method)
    , arguments(std::move(values))
    , what(std::move(description))
    , m_delivery(std::move(delivery))
    , m_completion(std::move(whenDone))
    , m_done(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
}

bool SCall::answer(Result result)
{
    return settle(std::move(result), false);
}

bool SCall::answerTimedOut(Milliseconds limit)
{
    return settle({TIMED_OUT, what + L" was not answered within " + std::to_wstring(limit.count()) + L" ms"}, true);
}

bool SCall::cancel()
{
    return settle({CANCELLED, what + L" was cancelled"}, true);
}

// One lock for both, because a call that has not begun must not begin once its answer says so.
bool SCall::settle(Result result, bool isGivenUp)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isAnswered) {
            return false;
        }
        m_isAnswered = true;
        if (isGivenUp) {
            result.text += m_isBegun ? L". The control is still busy with it."
                                     : L" and will not be made: the control is busy or not ready yet.";
        }
        m_result = std::move(result);
    }
    SetEvent(m_done.get());
    m_delivery(shared_from_this());
    return true;
}

Result SCall::result() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_result;
}

Completion SCall::takeCompletion()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_completion, nullptr);
}

bool SCall::begin()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isBegun = !m_isAnswered;
    return m_isBegun;
}

bool Call::isDone() const
{
    return m_call != nullptr && m_call->isDone();
}

Result Call::wait(Milliseconds limit) const
{
    if (m_call == nullptr) {
        return {E_INVALIDARG, L"There is no call to wait for."};
    }
    if (!waitForHandle(m_call->done(), limit)) {
        m_call->answerTimedOut(limit);
    }
    return m_call->result();
}

void Call::cancel() const
{
    if (m_call != nullptr) {
        m_call->cancel();
    }
}

} // namespace kesta
