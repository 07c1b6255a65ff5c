// Three controls in one window, each with a server of its own, and a thread of this program that sends them data. When one of
// them ends, the others go on, and a button starts it again.
#include "client/kesta_pane.h"
#include "samples/window.h"

#include <array>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <format>
#include <mutex>
#include <thread>

namespace {

constexpr int GAP = 10;
constexpr int LINE = 24;
constexpr int AGAIN_WIDTH = 90;
constexpr int FIRST_BUTTON = 100;
constexpr kesta::Milliseconds PATIENCE{500};
constexpr kesta::Milliseconds PERIOD{500};
constexpr std::array<const wchar_t*, 3> REGIONS = {L"North", L"West", L"South"};

void printStep(const std::wstring& text)
{
    std::printf("%s\n", utf8(text).c_str());
    std::fflush(stdout);
}

// A pane with a line of text and a button below it.
struct SSite
{
    std::unique_ptr<kesta::Pane> pane;
    HWND status = nullptr;
    HWND again = nullptr;
};

class CPanes
{
public:
    ~CPanes() { close(); }

    // False, with the reason told, when the window cannot be made.
    bool open(HINSTANCE instance, int show);
    bool translate(const MSG& message);
    HWND window() const { return m_window; }

private:
    void openSite(size_t number);
    void arrange();
    void work(const std::stop_token& closing);
    void close();
    LRESULT handle(UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window = nullptr;
    HWND m_focus = nullptr; // what had it when the window was last the active one; also a window of Java's
    std::array<SSite, REGIONS.size()> m_sites;
    std::jthread m_worker;
};

void showMessage(const std::wstring& text)
{
    MessageBoxW(nullptr, text.c_str(), L"KESTA panes", MB_ICONERROR);
}

void showMessage(const std::exception& problem)
{
    const std::string text = problem.what();
    showMessage(std::wstring(text.begin(), text.end()));
}

bool CPanes::open(HINSTANCE instance, int show)
{
    WNDCLASSW description = {};
    description.lpfnWndProc = procedure;
    description.hInstance = instance;
    description.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    description.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    description.lpszClassName = L"KESTA panes";
    RegisterClassW(&description);
    m_window =
        CreateWindowExW(WS_EX_CONTROLPARENT, description.lpszClassName, L"KESTA panes", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                        CW_USEDEFAULT, CW_USEDEFAULT, scaled(1100), scaled(460), nullptr, nullptr, instance, this);
    if (m_window == nullptr) {
        showMessage(L"The window could not be made: error " + std::to_wstring(GetLastError()));
        return false;
    }
    for (size_t number = 0; number < m_sites.size(); ++number) {
        openSite(number);
    }
    arrange();
    ShowWindow(m_window, show);
    m_worker = std::jthread([this](const std::stop_token& closing) { work(closing); });
    return true;
}

void CPanes::openSite(size_t number)
{
    SSite& site = m_sites[number];
    const std::wstring region = REGIONS[number];
    site.status = CreateWindowExW(0, L"STATIC", L"Starting ...", WS_CHILD | WS_VISIBLE | SS_ENDELLIPSIS, 0, 0, 0, 0, m_window,
                                  nullptr, nullptr, nullptr);
    kesta::Handlers handlers;
    handlers.ready = [&site, region](const std::wstring& control) {
        printStep(region + L" is ready: " + control);
        SetWindowTextW(site.status, (control + L", process " + std::to_wstring(site.pane->process())).c_str());
        EnableWindow(site.again, FALSE);
        site.pane->set(L"title", L"Wind power, " + region, [&site](const kesta::Result& result) {
            if (!result) {
                SetWindowTextW(site.status, result.text.c_str());
            }
        });
    };
    handlers.ended = [&site, region](const kesta::Ended& ended) {
        printStep(region + L" has ended: " + ended.text);
        SetWindowTextW(site.status, ended.text.c_str());
        EnableWindow(site.again, TRUE);
    };
    handlers.event = [&site](kesta::EventKind kind, const std::wstring& text) {
        if (kind == kesta::EventKind::CUSTOM) {
            SetWindowTextW(site.status, text.c_str());
        }
    };
    handlers.problem = [&site](const std::wstring& text) { SetWindowTextW(site.status, text.c_str()); };
    std::wstring problem;
    site.pane = kesta::Pane::create(m_window, {0, 0, 300, 300}, {L"Stations"}, handlers, &problem);
    if (site.pane == nullptr) {
        return showMessage(problem);
    }
    site.again =
        CreateWindowExW(0, L"BUTTON", L"Start again", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_DISABLED, 0, 0, 0, 0, m_window,
                        reinterpret_cast<HMENU>(static_cast<INT_PTR>(FIRST_BUTTON + static_cast<int>(number))), nullptr, nullptr);
    for (HWND child : {site.status, site.again}) {
        SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)), FALSE);
    }
}

void CPanes::arrange()
{
    RECT area = {};
    GetClientRect(m_window, &area);
    const int gap = scaled(GAP);
    const int line = scaled(LINE);
    const int againWidth = scaled(AGAIN_WIDTH);
    const int count = static_cast<int>(m_sites.size());
    const int width = (static_cast<int>(area.right) - (count + 1) * gap) / count;
    const int bottom = static_cast<int>(area.bottom) - gap - line;
    int left = gap;
    for (const SSite& site : m_sites) {
        if (site.pane != nullptr) {
            MoveWindow(site.pane->window(), left, gap, width, bottom - 2 * gap, TRUE);
            MoveWindow(site.status, left, bottom, width - againWidth - gap, line, TRUE);
            MoveWindow(site.again, left + width - againWidth, bottom, againWidth, line, TRUE);
        }
        left += width + gap;
    }
}

// A call from this thread waits for its own answer only. A control that is busy or gone costs it the limit, and then the next one
// has its turn. What a pane refuses is told once, not every time.
void CPanes::work(const std::stop_token& closing)
{
    std::array<std::wstring, REGIONS.size()> problems;
    std::mutex mutex;
    std::condition_variable_any isTime;
    for (int round = 0; !closing.stop_requested(); ++round) {
        for (size_t number = 0; number < m_sites.size() && !closing.stop_requested(); ++number) {
            const std::wstring rows =
                std::format(L"Alta;{}|Bergen;{}|Troms\u00F8;{}", 400 + round, 600 + 2 * round, 300 + 3 * round);
            if (m_sites[number].pane == nullptr) {
                continue;
            }
            const kesta::Result result = m_sites[number].pane->set(L"rows", rows).wait(PATIENCE);
            const std::wstring problem = result ? L"" : result.text;
            if (problem != problems[number] && !result) {
                printStep(REGIONS[number] + (L" takes no rows: " + problem));
            }
            problems[number] = problem;
        }
        std::unique_lock lock(mutex);
        isTime.wait_for(lock, closing, PERIOD, [] { return false; }); // or until it closes
    }
}

void CPanes::close()
{
    m_worker = {}; // ends it, since it uses the panes; waits for one call at most
    for (SSite& site : m_sites) {
        site.pane.reset();
    }
}

bool CPanes::translate(const MSG& message)
{
    for (const SSite& site : m_sites) {
        if (site.pane != nullptr && site.pane->translate(message)) {
            return true;
        }
    }
    return false;
}

LRESULT CPanes::handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_SIZE:
        if (wParam != SIZE_MINIMIZED) {
            arrange();
        }
        return 0;
    case WM_ACTIVATE:
        if (LOWORD(wParam) == WA_INACTIVE) {
            m_focus = GetFocus();
        } else if (HIWORD(wParam) == 0 && m_focus != nullptr) {
            SetFocus(m_focus);
            return 0;
        }
        return DefWindowProcW(m_window, message, wParam, lParam);
    case WM_COMMAND:
        if (const size_t number = static_cast<size_t>(LOWORD(wParam)) - FIRST_BUTTON; number < m_sites.size()) {
            EnableWindow(m_sites[number].again, FALSE);
            SetWindowTextW(m_sites[number].status, L"Starting ...");
            m_sites[number].pane->restart();
        }
        return 0;
    case WM_CLOSE:
        close();
        DestroyWindow(m_window);
        return 0;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(m_window, message, wParam, lParam);
    }
}

// No exception may leave it: the callers between it and WinMain are Windows' own.
LRESULT CALLBACK CPanes::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_NCCREATE) {
        auto* panes = static_cast<CPanes*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        panes->m_window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(panes));
    }
    auto* panes = reinterpret_cast<CPanes*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    try {
        return panes != nullptr ? panes->handle(message, wParam, lParam) : DefWindowProcW(window, message, wParam, lParam);
    } catch (const std::exception& problem) {
        showMessage(problem);
        return 0;
    }
}

} // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int show)
{
    try {
        CPanes panes;
        if (!panes.open(instance, show)) {
            return 1;
        }
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0) {
            if (!panes.translate(message) && !IsDialogMessageW(panes.window(), &message)) {
                TranslateMessage(&message);
                DispatchMessageW(&message);
            }
        }
        return static_cast<int>(message.wParam);
    } catch (const std::exception& problem) {
        showMessage(problem);
        return 1;
    }
}
