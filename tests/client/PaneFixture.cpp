#include "tests/client/PaneFixture.h"

#include <tlhelp32.h>

#include <algorithm>
#include <set>

namespace fixtures {

namespace {

constexpr UINT PULSE = 10; // ms
constexpr DWORD POLL = 20; // ms
CPulse* s_pulse = nullptr;

// The test control has a button at the lower right, with a border and dark letters on a light ground.
bool isPainted(HWND frame)
{
    constexpr int HEIGHT = 60;
    constexpr int WIDTH = 120;
    RECT place = {};
    GetWindowRect(frame, &place);
    const HDC screen = GetDC(nullptr);
    std::set<COLORREF> colours;
    for (int y = 0; y < HEIGHT; y += 3) {
        for (int x = 0; x < WIDTH; x += 3) {
            colours.insert(GetPixel(screen, static_cast<int>(place.right) - 1 - x, static_cast<int>(place.bottom) - 1 - y));
        }
    }
    ReleaseDC(nullptr, screen);
    return colours.size() > 3;
}

} // namespace

CHostWindow::CHostWindow()
    : m_window(CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"host", WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 40,
                               40, 640, 480, nullptr, nullptr, nullptr, nullptr))
{
}

void CHostWindow::destroy()
{
    if (m_window != nullptr) {
        DestroyWindow(m_window);
        m_window = nullptr;
    }
}

kesta::Handlers SRecord::handlers()
{
    const auto note = [this, thread = GetCurrentThreadId()] { isOtherThread = isOtherThread || GetCurrentThreadId() != thread; };
    kesta::Handlers handlers;
    handlers.ready = [this, note](const std::wstring& control) {
        note();
        readies.push_back(control);
    };
    handlers.event = [this, note](EventKind kind, const std::wstring& text) {
        note();
        events.emplace_back(kind, text);
    };
    handlers.ended = [this, note](const kesta::Ended& end) {
        note();
        ended.push_back(end);
    };
    return handlers;
}

bool SRecord::hasEvent(EventKind kind, const std::wstring& text) const
{
    return std::find(events.begin(), events.end(), std::make_pair(kind, text)) != events.end();
}

CPulse::CPulse()
    : m_timer(SetTimer(nullptr, 0, PULSE, beat))
{
    s_pulse = this;
}

CPulse::~CPulse()
{
    KillTimer(nullptr, m_timer);
    s_pulse = nullptr;
}

void CALLBACK CPulse::beat(HWND, UINT, UINT_PTR, DWORD)
{
    const ULONGLONG now = GetTickCount64();
    s_pulse->m_longest = std::max(s_pulse->m_longest, now - s_pulse->m_last);
    s_pulse->m_last = now;
}

bool eventually(const std::function<bool()>& done, DWORD limit)
{
    const ULONGLONG end = GetTickCount64() + limit;
    while (!pumpUntil(done, {}, POLL)) {
        if (GetTickCount64() >= end) {
            return false;
        }
    }
    return true;
}

kesta::Options PaneTest::options()
{
    kesta::Options options;
    options.control = L"TestControl";
    return options;
}

std::unique_ptr<Pane> PaneTest::open(const kesta::Options& chosen)
{
    return Pane::create(window.handle(), PLACE, chosen, record.handlers());
}

void PaneTest::awaitReady(const SRecord& told, size_t times)
{
    EXPECT_TRUE(pumpUntil([&] { return told.readies.size() >= times; })) << "the pane is not ready";
    for (const kesta::Ended& end : told.ended) {
        std::printf("ended: %ls\n", end.text.c_str());
    }
}

std::unique_ptr<Pane> PaneTest::openReady(const kesta::Options& chosen)
{
    std::unique_ptr<Pane> pane = open(chosen);
    awaitReady(record);
    return pane;
}

std::wstring PaneTest::call(Pane& pane, const wchar_t* name, const wchar_t* argument)
{
    std::optional<kesta::Result> result;
    pane.call(name, argument, [&](const kesta::Result& answer) { result = answer; });
    EXPECT_TRUE(pumpUntil([&] { return result.has_value(); }));
    return *result ? result->text : L"(" + result->text + L")";
}

bool PaneTest::fills(const Pane& pane)
{
    return eventually([&] {
        RECT outer = {};
        RECT inner = {};
        GetClientRect(pane.window(), &outer);
        return GetClientRect(frameOf(pane), &inner) != FALSE && EqualRect(&outer, &inner) != FALSE &&
               IsWindowVisible(frameOf(pane)) != FALSE && isPainted(frameOf(pane));
    });
}

std::shared_ptr<CProcess> PaneTest::killed(DWORD process)
{
    expectExit(process, kesta::ENDED_BY_CLIENT);
    return std::make_shared<CProcess>(process);
}

// One by one, because Wine's GetProcessHandleCount always says 0.
size_t countHandles()
{
    constexpr ULONG_PTR LAST = 0x8000;
    size_t count = 0;
    for (ULONG_PTR handle = 4; handle < LAST; handle += 4) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != FALSE ? 1 : 0;
    }
    return count;
}

SLeftovers leftovers()
{
    SLeftovers left;
    const auto count = [](HWND window, LPARAM counter) -> BOOL {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        *reinterpret_cast<size_t*>(counter) += process == GetCurrentProcessId() ? 1 : 0;
        return TRUE;
    };
    EnumChildWindows(GetDesktopWindow(), count, reinterpret_cast<LPARAM>(&left.windows));
    const ATL::CHandle all(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL isThere = Thread32First(all, &entry); isThere != FALSE; isThere = Thread32Next(all, &entry)) {
        left.threads += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    left.servers = processesNamed("KESTAx64.exe").size();
    return left;
}

} // namespace fixtures
