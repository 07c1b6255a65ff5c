#include "client/paneThreads.h"

#include <objbase.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace kesta {

namespace {

using Work = std::function<void(HRESULT)>;

constexpr wchar_t THREAD_NAME[] = L"kesta pane"; // as debuggers show it

// Never destroyed: at the program's end idle threads still wait.
struct SApartments
{
    const HANDLE wake = CreateSemaphoreW(nullptr, 0, MAXLONG, nullptr); // once for each work, and for each thread that is to end
    std::mutex mutex;                                                   // guards what follows
    std::condition_variable hasEnded;
    std::deque<Work> works;
    LONG idle = 0;   // not counting those that were woken
    LONG ending = 0; // without work
};

SApartments& apartments()
{
    static auto* const s_apartments = new SApartments;
    return *s_apartments;
}

// Windows has the function since version 1607.
void nameThisThread()
{
    using Name = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription");
    if (function != nullptr) {
        reinterpret_cast<Name>(reinterpret_cast<void*>(function))(GetCurrentThread(), THREAD_NAME);
    }
}

// An apartment handles messages also while it has nothing to do.
void awaitWake(HANDLE wake)
{
    while (MsgWaitForMultipleObjects(1, &wake, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0 + 1) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
    }
}

// Empty: the thread is to end.
Work nextWork()
{
    SApartments& shared = apartments();
    {
        const std::lock_guard<std::mutex> lock(shared.mutex);
        if (shared.wake == nullptr) {
            ++shared.ending;
            return {};
        }
        ++shared.idle;
    }
    awaitWake(shared.wake);
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (shared.works.empty()) {
        return {};
    }
    Work work = std::move(shared.works.front());
    shared.works.pop_front();
    return work;
}

void serve(Work work)
{
    nameThisThread();
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    while (work) {
        work(hr);
        work = nullptr; // it may hold a session
        work = nextWork();
    }
    if (SUCCEEDED(hr)) {
        CoUninitialize();
    }
    SApartments& shared = apartments();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    --shared.ending;
    shared.hasEnded.notify_all();
}

} // namespace

void runInApartment(Work work)
{
    SApartments& shared = apartments();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (shared.idle == 0) {
        std::thread(serve, std::move(work)).detach();
        return;
    }
    shared.works.push_back(std::move(work));
    --shared.idle;
    ReleaseSemaphore(shared.wake, 1, nullptr);
}

void endIdleApartments()
{
    SApartments& shared = apartments();
    std::unique_lock<std::mutex> lock(shared.mutex);
    if (shared.idle > 0) {
        shared.ending += shared.idle;
        ReleaseSemaphore(shared.wake, std::exchange(shared.idle, 0), nullptr);
    }
    shared.hasEnded.wait(lock, [&] { return shared.ending <= 0; });
}

} // namespace kesta
