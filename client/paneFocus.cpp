#include "client/paneFocus.h"

#include <algorithm>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace kesta {

namespace {

struct SUnhook
{
    void operator()(HWINEVENTHOOK hook) const { UnhookWinEvent(hook); }
};
using CHook = std::unique_ptr<std::remove_pointer_t<HWINEVENTHOOK>, SUnhook>;

struct SUnhookMouse
{
    void operator()(HHOOK hook) const { UnhookWindowsHookEx(hook); }
};
using CMouseHook = std::unique_ptr<std::remove_pointer_t<HHOOK>, SUnhookMouse>;

// Windows' events come with no context of the listener's, so a thread's watches share them.
struct SListener
{
    std::vector<CHook> hooks;
    CMouseHook mouse;
    std::vector<CFocusWatch*> watches;
};

// The main thread's panes may be destroyed after its own objects of this kind, so this is none that is destroyed.
SListener& listener()
{
    thread_local auto* const s_listener = new SListener;
    return *s_listener;
}

bool isWithin(HWND window, HWND outer)
{
    return window != nullptr && (window == outer || IsChild(outer, window) != FALSE);
}

DWORD processOf(HWND window)
{
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return process;
}

bool isButtonDown(WPARAM message)
{
    switch (message) {
    case WM_LBUTTONDOWN:
    case WM_MBUTTONDOWN:
    case WM_RBUTTONDOWN:
    case WM_XBUTTONDOWN:
    case WM_NCLBUTTONDOWN:
    case WM_NCMBUTTONDOWN:
    case WM_NCRBUTTONDOWN:
    case WM_NCXBUTTONDOWN:
        return true;
    default:
        return false;
    }
}

// In the window that the user works with, whichever program's it is.
HWND focusedWindow()
{
    GUITHREADINFO foreground = {};
    foreground.cbSize = sizeof foreground;
    return GetGUIThreadInfo(0, &foreground) != FALSE ? foreground.hwndFocus : nullptr;
}

} // namespace

CFocusWatch::CFocusWatch(Frame frame, Changed changed)
    : m_frame(std::move(frame))
    , m_changed(std::move(changed))
{
    SListener& shared = listener();
    shared.watches.push_back(this);
    if (shared.hooks.empty()) {
        const auto listenTo = [&shared](DWORD event, DWORD process, DWORD thread) {
            shared.hooks.emplace_back(SetWinEventHook(event, event, nullptr, listen, process, thread, WINEVENT_OUTOFCONTEXT));
        };
        listenTo(EVENT_SYSTEM_FOREGROUND, 0, 0);
        listenTo(EVENT_OBJECT_FOCUS, 0, 0); // Java's threads too, and those of other panes' servers
        listenTo(EVENT_OBJECT_LOCATIONCHANGE, GetCurrentProcessId(), GetCurrentThreadId());
        shared.mouse.reset(SetWindowsHookExW(WH_MOUSE, listenToMouse, nullptr, GetCurrentThreadId()));
    }
}

CFocusWatch::~CFocusWatch()
{
    SListener& shared = listener();
    shared.watches.erase(std::remove(shared.watches.begin(), shared.watches.end(), this), shared.watches.end());
    if (shared.watches.empty()) {
        shared.hooks.clear();
        shared.mouse.reset();
    }
}

void CALLBACK CFocusWatch::listen(HWINEVENTHOOK, DWORD event, HWND window, LONG object, LONG, DWORD, DWORD)
{
    for (CFocusWatch* watch : listener().watches) {
        watch->hear(event, window, object);
    }
}

// All windows of this thread are the client's, and not every click in them takes the focus from the control.
LRESULT CALLBACK CFocusWatch::listenToMouse(int code, WPARAM message, LPARAM details)
{
    if (code == HC_ACTION && isButtonDown(message)) {
        for (CFocusWatch* watch : listener().watches) {
            if (const HWND frame = watch->m_frame()) {
                PostMessageW(frame, WM_NCLBUTTONDOWN, HTNOWHERE, 0); // closes Java's menus, and does nothing else
            }
        }
    }
    return CallNextHookEx(nullptr, code, message, details);
}

void CFocusWatch::hear(DWORD event, HWND window, LONG object)
{
    const HWND frame = current();
    if (frame == nullptr) {
        return;
    }
    if (event != EVENT_OBJECT_LOCATIONCHANGE) {
        m_wasInside = m_wasInside || isWithin(window, frame); // it may be outside again by now
        look();
    } else if (object == OBJID_WINDOW && IsChild(window, frame) != FALSE) {
        PostMessageW(frame, WM_MOVE, 0, 0); // Java asks Windows for the place itself
    }
}

HWND CFocusWatch::current()
{
    const HWND frame = m_frame();
    if (frame != m_known) {
        m_known = frame;
        m_isTold = false;
        m_wasInside = false;
    }
    return frame;
}

bool CFocusWatch::isInside() const
{
    const HWND frame = m_frame();
    return frame != nullptr && isWithin(focusedWindow(), frame);
}

void CFocusWatch::look()
{
    const HWND frame = current();
    if (frame == nullptr) {
        return;
    }
    const HWND focus = focusedWindow();
    if (isWithin(focus, frame)) {
        m_wasInside = true;
        if (!std::exchange(m_isTold, true)) {
            PostMessageW(frame, WM_ACTIVATE, WA_ACTIVE, 0); // no news if Java has taken the focus itself
            m_changed(true);
        }
        return;
    }
    m_isTold = false;
    if (std::exchange(m_wasInside, false)) {
        if (focus == nullptr || processOf(focus) != processOf(frame)) {
            PostMessageW(frame, WM_ACTIVATE, WA_INACTIVE, 0); // of its own windows, dialogs for instance, Java knows
        }
        m_changed(false);
    }
}

} // namespace kesta
