// The pane's window, and the way of handlers and completions to the client.
#include "client/kesta_pane.h"

#include "client/paneFocus.h"
#include "client/paneFrame.h"
#include "client/paneSession.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <iterator>
#include <optional>
#include <utility>

namespace kesta {

namespace {

constexpr wchar_t PANE_CLASS[] = L"kesta pane";
// For the server's window thread to show that it handles messages, before this thread waits for it.
constexpr UINT FRAME_LIMIT = 100; // ms

// What the basis control and its clients tell each other about the focus.
constexpr wchar_t OWN_EVENTS[] = L"kesta:";
constexpr wchar_t LEAVES_FORWARD[] = L"kesta:focusLeaves forward";
constexpr wchar_t LEAVES_BACKWARD[] = L"kesta:focusLeaves backward";
constexpr wchar_t FOCUS_ENTERS[] = L"kesta:focusEnters";
// Keys that nothing in the control uses; the last one is followed by a character.
constexpr wchar_t KEY_ESCAPE[] = L"kesta:key escape";
constexpr wchar_t KEY_ENTER[] = L"kesta:key enter";
constexpr wchar_t KEY_ALT[] = L"kesta:key alt ";
// What a key's message says of it: pressed once; released; with Alt.
constexpr LPARAM PRESSED = 1;
constexpr LPARAM RELEASED = static_cast<LPARAM>(0xC0000001U);
constexpr LPARAM WITH_ALT = 0x20000001;

bool isDown(int key)
{
    return GetKeyState(key) < 0;
}

bool answersMessages(HWND window)
{
    DWORD_PTR ignored = 0;
    return SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, FRAME_LIMIT, &ignored) != 0;
}

// Exceptions do not say how their texts are encoded.
std::wstring wide(const std::string& text)
{
    for (const UINT encoding : {static_cast<UINT>(CP_UTF8), static_cast<UINT>(CP_ACP)}) {
        const DWORD flags = encoding == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
        const int size = static_cast<int>(text.size());
        std::wstring whole(static_cast<size_t>(MultiByteToWideChar(encoding, flags, text.data(), size, nullptr, 0)), L'\0');
        if (!whole.empty()) {
            MultiByteToWideChar(encoding, flags, text.data(), size, whole.data(), static_cast<int>(whole.size()));
            return whole;
        }
    }
    return {};
}

// The window whose tab stops the pane's is one of: nested ones are told by their style.
HWND dialogOf(HWND window)
{
    HWND dialog = GetParent(window);
    while (dialog != nullptr && (GetWindowLongPtrW(dialog, GWL_STYLE) & WS_CHILD) != 0 &&
           (GetWindowLongPtrW(dialog, GWL_EXSTYLE) & WS_EX_CONTROLPARENT) != 0) {
        dialog = GetParent(dialog);
    }
    return dialog;
}

} // namespace

class Pane::CCore final : public IPane, public std::enable_shared_from_this<Pane::CCore>
{
public:
    CCore(const Options& options, const Handlers& handlers)
        : m_options(options)
        , m_handlers(std::make_shared<Handlers>(handlers))
    {
    }
    ~CCore() override = default;
    CCore(const CCore&) = delete;
    CCore& operator=(const CCore&) = delete;

    bool open(HWND parent, const RECT& place, std::wstring& problem);
    bool attach(HWND parent, const RECT& place);
    void close();
    void restart();
    bool focus(Way way);
    bool translate(const MSG& message);
    Result waitReady(Milliseconds limit);
    HWND window() const { return m_window; }
    // Any thread.
    std::shared_ptr<CSession> session() const;

    void ready(const std::wstring& control) override;
    void event(EventKind kind, const std::wstring& text) override;
    void ended(const Ended& ended) override;
    void answered(const Completion& completion, const Result& result) override;
    bool isClosed() const override { return m_handlers == nullptr; }

private:
    // Calls the client; nothing that it throws goes further.
    template <typename Telling>
    void tell(Telling telling);
    // While the client waits inside waitReady: does the same later.
    bool putOff(CBase::Work work);
    // The same for what a session tells: never, if it was replaced by then.
    bool putOffTold(CBase::Work work);
    void focusMoved(bool isInside);
    void tellFocus(bool isInside);
    void leave(bool forward);
    void pass(const std::wstring& event);
    void refresh() const;
    void paint() const;
    LRESULT handle(UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    const Options m_options;
    std::shared_ptr<const Handlers> m_handlers; // null once the Pane is closed
    std::shared_ptr<CBase> m_base;
    std::unique_ptr<CFocusWatch> m_focusWatch; // null once the Pane is closed
    std::shared_ptr<SCall> m_entering;         // the latest call that gives the focus to a component
    bool m_isInControl = false;                // the focus, as the client was told
    int m_waits = 0;                           // for the control, one inside the other
    std::deque<CBase::Work> m_putOff;
    HWND m_window = nullptr;
    HFONT m_font = nullptr; // the client's
    mutable std::mutex m_mutex;
    std::shared_ptr<CSession> m_session; // changed on the pane's thread, with the lock held
};

bool Pane::CCore::open(HWND parent, const RECT& place, std::wstring& problem)
{
    m_base = CBase::create();
    if (m_base == nullptr) {
        problem = lastFailure(L"The pane's hidden window could not be made.").text;
        return false;
    }
    m_base->enter();
    if (!registerClass(PANE_CLASS, procedure, GetSysColorBrush(COLOR_WINDOW)) || !attach(parent, place)) {
        problem = lastFailure(L"The pane's window could not be made.").text;
        m_base->leave();
        return false;
    }
    m_focusWatch =
        std::make_unique<CFocusWatch>([this] { return session()->frame(); }, [this](bool isInside) { focusMoved(isInside); });
    restart();
    return true;
}

bool Pane::CCore::attach(HWND parent, const RECT& place)
{
    const int width = static_cast<int>(place.right - place.left);
    const int height = static_cast<int>(place.bottom - place.top);
    if (m_window == nullptr) {
        constexpr DWORD STYLE = WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_CLIPCHILDREN | WS_CLIPSIBLINGS;
        m_window = CreateWindowExW(0, PANE_CLASS, L"", STYLE, static_cast<int>(place.left), static_cast<int>(place.top), width,
                                   height, parent, nullptr, moduleInstance(), this);
        if (m_window != nullptr && m_session != nullptr) {
            m_session->dock(m_window);
        }
        return m_window != nullptr;
    }
    SetParent(m_window, parent);
    return GetAncestor(m_window, GA_PARENT) == parent &&
           MoveWindow(m_window, static_cast<int>(place.left), static_cast<int>(place.top), width, height, TRUE) != FALSE;
}

void Pane::CCore::close()
{
    m_handlers.reset();
    m_focusWatch.reset();
    session()->close();
    if (m_window != nullptr) {
        SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
        DestroyWindow(m_window);
        m_window = nullptr;
    }
    m_base->leave();
}

void Pane::CCore::restart()
{
    bool wasInside = false;
    if (const std::shared_ptr<CSession> old = session()) {
        wasInside = m_focusWatch->isInside();
        focusMoved(false);
        old->close();
    }
    const std::shared_ptr<CSession> begun = CSession::begin(m_options, weak_from_this(), m_base, m_window);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_session = begun;
    }
    if (wasInside && m_window != nullptr) {
        SetFocus(m_window); // it would stay in the old frame
    }
}

std::shared_ptr<CSession> Pane::CCore::session() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_session;
}

template <typename Telling>
void Pane::CCore::tell(Telling telling)
{
    const std::shared_ptr<const Handlers> handlers = m_handlers; // kept while one of them destroys the Pane
    if (handlers == nullptr) {
        return;
    }
    std::wstring problem;
    try {
        telling(*handlers);
        return;
    } catch (const std::exception& thrown) {
        problem = wide(thrown.what());
    } catch (...) {
        problem = L"something that is no std::exception";
    }
    problem = L"A handler of the pane has thrown: " + problem;
    try {
        if (handlers->problem) {
            handlers->problem(problem);
            return;
        }
    } catch (...) {
        problem += L" (and so has the handler for problems)";
    }
    OutputDebugStringW(problem.c_str());
}

bool Pane::CCore::putOff(CBase::Work work)
{
    if (m_waits > 0) {
        m_putOff.push_back(std::move(work));
    }
    return m_waits > 0;
}

bool Pane::CCore::putOffTold(CBase::Work work)
{
    return putOff([core = shared_from_this(), teller = session(), work = std::move(work)] {
        if (core->session() == teller) {
            work();
        }
    });
}

Result Pane::CCore::waitReady(Milliseconds limit)
{
    constexpr ULONGLONG LONGEST = INFINITE - 1;
    const ULONGLONG begin = GetTickCount64();
    const auto wanted = static_cast<ULONGLONG>(std::max<Milliseconds::rep>(limit.count(), 0));
    std::shared_ptr<CSession> current;
    std::optional<int> exitCode;
    ++m_waits;
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, m_base->window(), 0, 0, PM_REMOVE) != FALSE) {
            if (message.message == WM_QUIT) { // whichever window's messages are asked for
                exitCode = static_cast<int>(message.wParam);
            } else {
                DispatchMessageW(&message);
            }
        }
        current = session();
        const ULONGLONG passed = GetTickCount64() - begin;
        if (m_handlers == nullptr || current->isReady() || current->end() != nullptr || passed >= wanted) {
            break;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(std::min(wanted - passed, LONGEST)),
                                  QS_SENDMESSAGE | QS_POSTMESSAGE | QS_TIMER);
    }
    --m_waits;
    if (exitCode) {
        PostQuitMessage(*exitCode);
    }
    if (m_waits == 0) {
        m_base->postFirst(std::exchange(m_putOff, {}));
    }
    if (m_handlers == nullptr) {
        return {NO_SERVER, L"The pane was closed meanwhile."};
    }
    if (current->isReady()) {
        return {S_OK, current->control()};
    }
    if (current->end() != nullptr) {
        return {current->end()->hr, current->end()->text};
    }
    return current->tooLate(limit);
}

// Told later, because it may have been moved by the client itself.
void Pane::CCore::focusMoved(bool isInside)
{
    if (!isInside && m_entering != nullptr) {
        m_entering->cancel(); // made later, it would bring the focus back
    }
    if (std::exchange(m_isInControl, isInside) != isInside) {
        m_base->post([core = shared_from_this(), isInside] { core->tellFocus(isInside); });
    }
}

void Pane::CCore::tellFocus(bool isInside)
{
    if (putOff([core = shared_from_this(), isInside] { core->tellFocus(isInside); })) {
        return;
    }
    tell([&](const Handlers& handlers) {
        if (handlers.focusChanged) {
            handlers.focusChanged(isInside);
        }
    });
}

void Pane::CCore::ready(const std::wstring& control)
{
    if (putOffTold([this, control] { ready(control); })) {
        return;
    }
    if (m_window != nullptr && GetFocus() == m_window) {
        focus(Way::HERE);
    }
    tell([&](const Handlers& handlers) {
        if (handlers.ready) {
            handlers.ready(control);
        }
    });
}

void Pane::CCore::event(EventKind kind, const std::wstring& text)
{
    if (putOffTold([this, kind, text] { event(kind, text); })) {
        return;
    }
    if (kind == EventKind::CUSTOM && text.rfind(OWN_EVENTS, 0) == 0) {
        if (m_focusWatch == nullptr || !m_focusWatch->isInside()) {
            return; // the user was faster
        }
        if (text == LEAVES_FORWARD || text == LEAVES_BACKWARD) {
            leave(text == LEAVES_FORWARD);
        } else {
            pass(text);
        }
        return;
    }
    tell([&](const Handlers& handlers) {
        if (handlers.event) {
            handlers.event(kind, text);
        }
    });
}

void Pane::CCore::ended(const Ended& ended)
{
    if (putOffTold([this, ended] { this->ended(ended); })) {
        return;
    }
    if (ended.reason != Reason::HUNG) {
        focusMoved(false);
    }
    // The focus has gone with the server's windows. In the pane's own it is still in its place among the client's.
    if (m_window != nullptr && GetFocus() == nullptr && GetActiveWindow() == GetAncestor(m_window, GA_ROOT)) {
        SetFocus(m_window);
    }
    tell([&](const Handlers& handlers) {
        if (handlers.ended) {
            handlers.ended(ended);
        }
    });
}

void Pane::CCore::answered(const Completion& completion, const Result& result)
{
    if (!putOff([core = shared_from_this(), completion, result] { core->answered(completion, result); })) {
        tell([&](const Handlers&) { completion(result); });
    }
}

bool Pane::CCore::focus(Way way)
{
    const std::shared_ptr<CSession> current = session(); // null while the pane's window is made
    const HWND frame = current != nullptr && m_focusWatch != nullptr ? current->frame() : nullptr;
    if (frame == nullptr || !answersMessages(frame) || m_focusWatch == nullptr) {
        return false; // the wait handles messages of others, and the client may close the pane in one
    }
    if (!m_focusWatch->isInside()) {
        SetFocus(frame);
        if (GetFocus() != frame || m_focusWatch == nullptr) {
            return false; // it is switched off or hidden, or a handler of the client's has closed the pane
        }
        m_focusWatch->look(); // Java has to know before it is asked for a component
    }
    // In a program that is not the active one, the call would have Java take the foreground.
    if (way != Way::HERE && m_focusWatch->isInside()) {
        m_entering =
            session()->issue(CALL_METHOD, {FOCUS_ENTERS, way == Way::FORWARD ? L"forward" : L"backward"}, FOCUS_ENTERS, {});
    }
    return true;
}

void Pane::CCore::leave(bool forward)
{
    bool isDone = false;
    tell([&](const Handlers& handlers) { isDone = handlers.focusLeaves && handlers.focusLeaves(forward); });
    if (isDone || m_handlers == nullptr || m_window == nullptr) {
        return;
    }
    const HWND dialog = dialogOf(m_window);
    const HWND next = GetNextDlgTabItem(dialog, m_window, forward ? FALSE : TRUE);
    if (next == nullptr || next == m_window) {
        return;
    }
    // A dialog also selects a field's text, and marks its button for Enter.
    SendMessageW(dialog, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(next), TRUE);
    if (GetFocus() != next) {
        SetFocus(next);
    }
    if (m_focusWatch != nullptr) {
        m_focusWatch->look();
    }
}

// Posted, so that the key goes through the client's message loop as any other. IsDialogMessage looks for a mnemonic when it sees
// the character, and needs no key before it.
void Pane::CCore::pass(const std::wstring& event)
{
    const bool isEscape = event == KEY_ESCAPE;
    if (isEscape || event == KEY_ENTER) {
        const WPARAM key = isEscape ? VK_ESCAPE : VK_RETURN;
        PostMessageW(m_window, WM_KEYDOWN, key, PRESSED);
        PostMessageW(m_window, WM_KEYUP, key, RELEASED);
    } else if (event.rfind(KEY_ALT, 0) == 0 && event.size() == std::size(KEY_ALT)) {
        PostMessageW(m_window, WM_SYSCHAR, event.back(), WITH_ALT);
    }
}

// While the control has the focus, its keys do not come to this thread at all. What is left is the pane's own window while there
// is no control in it: in a window without a dialog manager, Tab would end there.
bool Pane::CCore::translate(const MSG& message)
{
    if (message.hwnd != m_window || m_window == nullptr || message.message != WM_KEYDOWN || message.wParam != VK_TAB ||
        isDown(VK_CONTROL) || isDown(VK_MENU)) {
        return false;
    }
    leave(!isDown(VK_SHIFT));
    return true;
}

// A control that is shown covers the text.
void Pane::CCore::refresh() const
{
    if (m_session == nullptr || !m_session->isReady()) {
        InvalidateRect(m_window, nullptr, TRUE);
    }
}

void Pane::CCore::paint() const
{
    PAINTSTRUCT painting = {};
    const HDC context = BeginPaint(m_window, &painting);
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(m_window)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(m_window, text.data(), static_cast<int>(text.size()))));
    if (!text.empty()) {
        RECT area = {};
        GetClientRect(m_window, &area);
        const HGDIOBJ font = m_font != nullptr ? static_cast<HGDIOBJ>(m_font) : GetStockObject(DEFAULT_GUI_FONT);
        const HGDIOBJ before = SelectObject(context, font);
        SetBkMode(context, TRANSPARENT);
        SetTextColor(context, GetSysColor(COLOR_WINDOWTEXT));
        RECT needed = area;
        DrawTextW(context, text.c_str(), -1, &needed, DT_CENTER | DT_WORDBREAK | DT_NOPREFIX | DT_CALCRECT);
        area.top = std::max(area.top, (area.bottom - (needed.bottom - needed.top)) / 2);
        DrawTextW(context, text.c_str(), -1, &area, DT_CENTER | DT_WORDBREAK | DT_NOPREFIX);
        SelectObject(context, before);
    }
    EndPaint(m_window, &painting);
}

LRESULT Pane::CCore::handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_SIZE:
        if (m_session != nullptr) {
            m_session->fill(LOWORD(lParam), HIWORD(lParam));
        }
        refresh();
        return 0;
    case WM_WINDOWPOSCHANGED: // also for another parent
        if (m_session != nullptr) {
            m_session->repaintSoon();
        }
        return DefWindowProcW(m_window, message, wParam, lParam);
    case WM_PAINT:
        paint();
        if (m_session != nullptr) {
            m_session->repaintSoon();
        }
        return 0;
    case WM_SETTEXT: {
        const LRESULT result = DefWindowProcW(m_window, message, wParam, lParam);
        refresh();
        return result;
    }
    case WM_SETFONT:
        m_font = reinterpret_cast<HFONT>(wParam);
        refresh();
        return 0;
    case WM_GETFONT:
        return reinterpret_cast<LRESULT>(m_font);
    case WM_SETFOCUS:
        focus(!isDown(VK_TAB) ? Way::HERE : isDown(VK_SHIFT) ? Way::BACKWARD : Way::FORWARD);
        return 0;
    case WM_DESTROY: {
        // The children still exist: they are destroyed after this message.
        const HWND window = std::exchange(m_window, nullptr);
        if (m_session != nullptr) {
            m_session->dock(nullptr);
        }
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
        return 0;
    }
    default:
        return DefWindowProcW(m_window, message, wParam, lParam);
    }
}

LRESULT CALLBACK Pane::CCore::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_NCCREATE) {
        auto* core = static_cast<CCore*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        core->m_window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(core));
    }
    auto* core = reinterpret_cast<CCore*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (core == nullptr) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    const std::shared_ptr<CCore> keep = core->shared_from_this(); // the client may destroy the pane meanwhile
    return core->handle(message, wParam, lParam);
}

Pane::Pane(std::shared_ptr<CCore> core)
    : m_core(std::move(core))
{
}

std::unique_ptr<Pane> Pane::create(HWND parent, const RECT& place, const Options& options, const Handlers& handlers,
                                   std::wstring* problem)
{
    const auto core = std::make_shared<CCore>(options, handlers);
    std::wstring text;
    if (!core->open(parent, place, text)) {
        if (problem != nullptr) {
            *problem = text;
        }
        return nullptr;
    }
    return std::unique_ptr<Pane>(new Pane(core));
}

Pane::~Pane()
{
    m_core->close();
}

HWND Pane::window() const
{
    return m_core->window();
}

bool Pane::setParent(HWND parent, const RECT& place)
{
    const std::shared_ptr<CCore> keep = m_core; // the client may destroy the pane meanwhile
    return keep->attach(parent, place);
}

Call Pane::call(const std::wstring& name, const std::wstring& argument, Completion completion)
{
    return Call(m_core->session()->issue(CALL_METHOD, {name, argument}, L"callMethod(" + name + L")", std::move(completion)));
}

Call Pane::set(const std::wstring& name, const std::wstring& value, Completion completion)
{
    return Call(m_core->session()->issue(SET_PROPERTY, {name, value}, L"setProperty(" + name + L")", std::move(completion)));
}

Call Pane::get(const std::wstring& name, Completion completion)
{
    return Call(m_core->session()->issue(GET_PROPERTY, {name}, L"getProperty(" + name + L")", std::move(completion)));
}

Call Pane::enable(bool isEnabled, Completion completion)
{
    return Call(
        m_core->session()->issue(ENABLE, {isEnabled}, isEnabled ? L"enable(true)" : L"enable(false)", std::move(completion)));
}

Call Pane::invoke(long member, std::vector<Value> arguments, Completion completion)
{
    return Call(
        m_core->session()->issue(member, std::move(arguments), L"Method " + std::to_wstring(member), std::move(completion)));
}

bool Pane::isReady() const
{
    return m_core->session()->isReady();
}

Result Pane::waitReady(Milliseconds limit)
{
    const std::shared_ptr<CCore> keep = m_core; // the client may destroy the pane meanwhile
    return keep->waitReady(limit);
}

DWORD Pane::process() const
{
    return m_core->session()->process();
}

bool Pane::focus(Way way)
{
    const std::shared_ptr<CCore> keep = m_core; // the client may destroy the pane meanwhile
    return keep->focus(way);
}

void Pane::restart()
{
    const std::shared_ptr<CCore> keep = m_core;
    keep->restart();
}

bool Pane::translate(const MSG& message)
{
    const std::shared_ptr<CCore> keep = m_core; // the client may destroy the pane meanwhile
    return keep->translate(message);
}

} // namespace kesta
