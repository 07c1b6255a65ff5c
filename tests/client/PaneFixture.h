// The base of the tests with panes and real servers: windows, what handlers were told, and what a process has left open.
#pragma once

#include "client/kesta_pane.h"
#include "tests/process/ServerFixture.h"

namespace fixtures {

using kesta::EventKind;
using kesta::Pane;
using kesta::Reason;
using std::chrono::milliseconds;

// A top-level window.
class CHostWindow
{
public:
    CHostWindow();
    ~CHostWindow() { destroy(); }
    CHostWindow(const CHostWindow&) = delete;
    CHostWindow& operator=(const CHostWindow&) = delete;

    HWND handle() const { return m_window; }
    void destroy();

private:
    HWND m_window;
};

// What the handlers of one pane were told.
struct SRecord
{
    kesta::Handlers handlers();
    bool hasEvent(EventKind kind, const std::wstring& text) const;

    std::vector<std::wstring> readies;
    std::vector<std::pair<EventKind, std::wstring>> events;
    std::vector<kesta::Ended> ended;
    bool isOtherThread = false; // a handler was called on another thread than the one that made the handlers
};

// The longest time, in ms, in which the thread did not handle a timer's messages.
class CPulse
{
public:
    CPulse();
    ~CPulse();
    CPulse(const CPulse&) = delete;
    CPulse& operator=(const CPulse&) = delete;

    ULONGLONG longestGap() const { return m_longest; }

private:
    static void CALLBACK beat(HWND window, UINT message, UINT_PTR id, DWORD time);

    UINT_PTR m_timer;
    ULONGLONG m_last = GetTickCount64();
    ULONGLONG m_longest = 0;
};

// Handles messages until the condition holds, which may come true without a message to this thread.
bool eventually(const std::function<bool()>& done, DWORD limit = TIME_LIMIT);

class PaneTest : public ServerTest
{
protected:
    static constexpr RECT PLACE = {10, 20, 410, 320};

    static kesta::Options options();
    // A pane in the window, told to the record, without waiting.
    std::unique_ptr<Pane> open(const kesta::Options& chosen = options());
    // Expects the pane to become ready.
    void awaitReady(const SRecord& told, size_t times = 1);
    std::unique_ptr<Pane> openReady(const kesta::Options& chosen = options());

    // Answers, with messages handled meanwhile; a failure's text in brackets.
    std::wstring call(Pane& pane, const wchar_t* name, const wchar_t* argument);
    static HWND holderOf(const Pane& pane) { return GetWindow(pane.window(), GW_CHILD); }
    static HWND frameOf(const Pane& pane) { return GetWindow(holderOf(pane), GW_CHILD); }
    // Whether the control fills the pane and is painted, waiting for it.
    static bool fills(const Pane& pane);
    // Of a server, which TearDown expects to end so.
    std::shared_ptr<CProcess> killed(DWORD process);

    CHostWindow window;
    SRecord record;
};

class LongPaneTest : public PaneTest
{
};

struct SLeftovers
{
    size_t windows = 0;
    size_t threads = 0;
    size_t servers = 0;
};
SLeftovers leftovers();
// Of this process; takes a while.
size_t countHandles();

} // namespace fixtures
