#include "client/paneThreads.h"

#include "client/paneBase.h"

#include <objbase.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace kesta {

namespace {

struct SWork
{
    std::function<void(HRESULT)> run;
    std::shared_ptr<void> done;
};

struct SThread
{
    std::shared_ptr<void> handle;
    DWORD id = 0;
    bool isLeaving = false;
};

constexpr wchar_t THREAD_NAME[] = L"kesta pane"; // as debuggers show it

// Never destroyed: at the program's end idle threads still wait.
struct SApartments
{
    const HANDLE wake = CreateSemaphoreW(nullptr, 0, MAXLONG, nullptr); // once for each work, and for each thread that is to end
    std::mutex mutex;                                                   // guards what follows
    std::condition_variable hasEnded;
    std::deque<SWork> works;
    LONG idle = 0;                // not counting those that were woken
    LONG ending = 0;              // were woken without work
    std::vector<SThread> threads; // until they are known to have ended
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

// Empty: the thread is to end. The former work is told to be done in one step with the thread being idle, so that whoever waits
// for it can end the thread.
SWork nextWork(const std::shared_ptr<void>& done)
{
    SApartments& shared = apartments();
    {
        const std::lock_guard<std::mutex> lock(shared.mutex);
        ++shared.idle;
        SetEvent(done.get());
    }
    awaitWake(shared.wake);
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (shared.works.empty()) {
        return {};
    }
    SWork work = std::move(shared.works.front());
    shared.works.pop_front();
    return work;
}

void serve(SWork work)
{
    nameThisThread();
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    while (work.run) {
        work.run(hr);
        work.run = nullptr; // it may hold a session
        work = nextWork(std::exchange(work.done, nullptr));
    }
    if (SUCCEEDED(hr)) {
        CoUninitialize();
    }
    SApartments& shared = apartments();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    --shared.ending;
    for (SThread& thread : shared.threads) {
        thread.isLeaving = thread.isLeaving || thread.id == GetCurrentThreadId();
    }
    shared.hasEnded.notify_all();
}

// Leaves the module and the thread in one call, because the module's code may be gone then.
DWORD WINAPI threadMain(void* work)
{
    serve(std::move(*std::unique_ptr<SWork>(static_cast<SWork*>(work))));
    FreeLibraryAndExitThread(moduleInstance(), 0);
}

bool hasThreadEnded(const SThread& thread)
{
    return WaitForSingleObject(thread.handle.get(), 0) == WAIT_OBJECT_0;
}

// With the lock held.
bool start(SApartments& shared, std::unique_ptr<SWork> work)
{
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, THREAD_NAME, &module) == FALSE) {
        return false;
    }
    shared.threads.erase(std::remove_if(shared.threads.begin(), shared.threads.end(), hasThreadEnded), shared.threads.end());
    shared.threads.reserve(shared.threads.size() + 1);
    DWORD id = 0;
    const HANDLE thread = CreateThread(nullptr, 0, threadMain, work.get(), 0, &id);
    if (thread == nullptr) {
        const DWORD error = GetLastError();
        FreeLibrary(module);
        SetLastError(error);
        return false;
    }
    static_cast<void>(work.release()); // the thread's
    shared.threads.push_back({std::shared_ptr<void>(thread, CloseHandle), id, false});
    return true;
}

} // namespace

bool runInApartment(std::function<void(HRESULT)> work, std::shared_ptr<void> done)
{
    SApartments& shared = apartments();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (shared.wake == nullptr) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return false;
    }
    if (shared.idle == 0) {
        return start(shared, std::make_unique<SWork>(SWork{std::move(work), std::move(done)}));
    }
    shared.works.push_back({std::move(work), std::move(done)});
    --shared.idle;
    ReleaseSemaphore(shared.wake, 1, nullptr);
    return true;
}

void endIdleApartments(DWORD limit)
{
    SApartments& shared = apartments();
    std::vector<std::shared_ptr<void>> leaving;
    {
        std::unique_lock<std::mutex> lock(shared.mutex);
        if (shared.idle > 0) {
            shared.ending += shared.idle;
            ReleaseSemaphore(shared.wake, std::exchange(shared.idle, 0), nullptr);
        }
        shared.hasEnded.wait_for(lock, std::chrono::milliseconds(limit), [&] { return shared.ending <= 0; });
        for (const SThread& thread : shared.threads) {
            if (thread.isLeaving) {
                leaving.push_back(thread.handle);
            }
        }
    }
    for (const std::shared_ptr<void>& thread : leaving) {
        WaitForSingleObject(thread.get(), limit);
    }
}

} // namespace kesta
