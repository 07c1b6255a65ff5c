#include "client/paneBase.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace kesta {

namespace {

constexpr wchar_t CLASS_NAME[] = L"kesta pane base";
constexpr UINT WM_WORK = WM_APP;
constexpr UINT_PTR TURN_TIMER = 1;
constexpr ULONGLONG TURN = 20; // ms

struct SClasses
{
    std::mutex mutex;
    std::vector<const wchar_t*> names;
};

// Never destroyed: panes may be, after the library's static objects.
SClasses& classes()
{
    static auto* const s_classes = new SClasses;
    return *s_classes;
}

} // namespace

HINSTANCE moduleInstance()
{
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, CLASS_NAME,
                       &module);
    return module;
}

bool registerClass(const wchar_t* name, WNDPROC procedure, HBRUSH background)
{
    WNDCLASSEXW description = {};
    description.cbSize = sizeof description;
    description.lpfnWndProc = procedure;
    description.hInstance = moduleInstance();
    description.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    description.hbrBackground = background;
    description.lpszClassName = name;
    SClasses& shared = classes();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (RegisterClassExW(&description) == 0) {
        return GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
    }
    shared.names.push_back(name);
    return true;
}

void unregisterClasses()
{
    SClasses& shared = classes();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    const auto unregister = [](const wchar_t* name) { return UnregisterClassW(name, moduleInstance()) != FALSE; };
    shared.names.erase(std::remove_if(shared.names.begin(), shared.names.end(), unregister), shared.names.end());
}

std::shared_ptr<CBase> CBase::create()
{
    if (!registerClass(CLASS_NAME, procedure, nullptr)) {
        return nullptr;
    }
    std::shared_ptr<CBase> base(new CBase);
    base->m_self = base;
    base->m_thread.reset(OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId()));
    if (base->m_thread == nullptr) {
        return nullptr;
    }
    // Top-level: a window under HWND_MESSAGE would be no proper place for a frame.
    base->m_window = CreateWindowExW(WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, CLASS_NAME, L"", WS_POPUP | WS_CLIPCHILDREN, 0, 0, 1, 1,
                                     nullptr, nullptr, moduleInstance(), nullptr);
    if (base->m_window == nullptr) {
        return nullptr;
    }
    SetWindowLongPtrW(base->m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(base.get()));
    return base;
}

void CBase::leave()
{
    if (--m_users > 0) {
        return;
    }
    std::deque<Work> dropped; // destroyed without the lock: it may hold what posts
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOver = true;
        dropped.swap(m_works);
    }
    SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
    DestroyWindow(m_window);
}

void CBase::post(Work work)
{
    std::deque<Work> dropped; // destroyed without the lock
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isOver) {
        return;
    }
    m_works.push_back(std::move(work));
    if (!m_isScheduled) {
        m_turnBegin = GetTickCount64();
        schedule();
        if (!m_isScheduled && hasThreadEnded()) {
            m_isOver = true;
            dropped.swap(m_works);
        }
    }
}

// A full message queue refuses the message; the next post tries again.
void CBase::schedule()
{
    if (GetTickCount64() - m_turnBegin > TURN && SetTimer(m_window, TURN_TIMER, USER_TIMER_MINIMUM, nullptr) != 0) {
        m_isScheduled = true; // timers come after the user's input, posted messages before it
    } else {
        m_isScheduled = PostMessageW(m_window, WM_WORK, 0, 0) != 0;
    }
}

void CBase::postFirst(std::deque<Work> works)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isOver || works.empty()) {
        return;
    }
    m_works.insert(m_works.begin(), std::make_move_iterator(works.begin()), std::make_move_iterator(works.end()));
    if (!m_isScheduled) {
        m_turnBegin = GetTickCount64();
        schedule();
    }
}

void CBase::workOff()
{
    while (doNext()) {
    }
}

// The next one is scheduled first, because this one may handle messages itself, in a dialog for instance.
bool CBase::doNext()
{
    const std::shared_ptr<CBase> keep = m_self.lock();
    Work work;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isScheduled = false;
        if (m_works.empty()) {
            return false;
        }
        work = std::move(m_works.front());
        m_works.pop_front();
        if (!m_works.empty()) {
            schedule();
        }
    }
    try {
        work();
    } catch (...) {
        OutputDebugStringW(L"The pane has given up some work, probably because there is no memory.");
    }
    return true;
}

LRESULT CALLBACK CBase::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* base = reinterpret_cast<CBase*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (base != nullptr && message == WM_TIMER && wParam == TURN_TIMER) {
        KillTimer(window, TURN_TIMER);
        base->m_turnBegin = GetTickCount64();
        base->doNext();
        return 0;
    }
    if (base != nullptr && message == WM_WORK) {
        base->doNext();
        return 0;
    }
    if (message == WM_CLOSE) {
        return 0; // sent to all top-level windows by those who want the program to end, and no user's doing
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

} // namespace kesta
