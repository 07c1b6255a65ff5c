// A pane that shows a Java control in a native window: it starts the control's server, takes the control's frame into a child
// window of yours, and passes calls and events.
//
//     kesta::Handlers handlers;
//     handlers.event = [](kesta::EventKind, const std::wstring& text) { ... };
//     auto pane = kesta::Pane::create(window, {0, 0, 600, 400}, {L"Stations"}, handlers);
//     pane->set(L"title", L"Wind power by site");      // made as soon as the control is ready
//
// Ownership: the Pane owns its window, the server process and everything between. Its destructor lets go of all of it without
// waiting; what is left ends in the background, in the right order, for which the library keeps hidden windows of its own. A
// server that takes longer than Options::closeLimit is ended. At the program's end finish() waits for it, but not for a library
// in a DLL. The end of the Pane's thread or of the program lets go of a server like the destructor. Handlers and completions are
// destroyed on the Pane's thread.
//
// Threads: create a Pane on a thread that handles messages; it belongs to that thread. Handlers and completions are called there,
// one after the other, never inside one of the Pane's functions but translate. call, set, get, invoke and enable may be used on
// any thread, as long as the Pane exists. COM runs on a thread of the library's own: nothing here waits for the server but
// Call::wait, and no function is refused inside the handler of a sent message.
//
// Failure: create tells why it could not make the window. From then on what fails ends in a completion's Result or in the handler
// `ended`, with an HRESULT and a text in plain words, followed by the server's own text if there is one. Handlers should not
// throw; what one throws is given to the handler `problem`.
//
// Keyboard: docs/keyboard.md says what the library, your window and the control do each. While the pane exists, it listens to
// Windows' events about the focus, and by a hook to its thread's mouse messages, because a click there closes Java's menus. Keys
// that the control does not use arrive in your message loop as messages to the pane's window.
//
// Texts are UTF-16 and may contain zero characters.
#pragma once

#include <windows.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kesta {

using Milliseconds = std::chrono::milliseconds;

// Failures of the library's own; all others are those of COM, the server and Windows.
constexpr HRESULT TIMED_OUT = static_cast<HRESULT>(0x8001011FL); // RPC_E_TIMEOUT
constexpr HRESULT CANCELLED = static_cast<HRESULT>(0x80010002L); // RPC_E_CALL_CANCELED
constexpr HRESULT NO_SERVER = static_cast<HRESULT>(0x80010108L); // RPC_E_DISCONNECTED: ended, closed or started anew

// The exit code of a server that the library has ended.
constexpr DWORD ENDED_BY_CLIENT = 1067; // ERROR_PROCESS_ABORTED

// The answer of a call, or the error text when hr is a failure.
struct Result
{
    HRESULT hr = S_OK;
    std::wstring text;

    explicit operator bool() const { return SUCCEEDED(hr); }
};

using Completion = std::function<void(const Result&)>;

struct Options
{
    std::wstring control{}; // empty: the only one that is registered
    std::wstring version{}; // empty: any
    // For the control to be there. A server that takes longer is ended, unless COM is still starting it: which process that is
    // cannot be known before it answers, for instance while the control's constructor hangs. It is let go when it does answer.
    Milliseconds startLimit{60000};
    // From the call, or from `ready` if that comes later. A call that has begun cannot be interrupted, because Java
    // cannot: it is answered with TIMED_OUT, and its own answer is thrown away. One that has not begun is never made.
    Milliseconds callLimit{30000};
    // A call that takes longer is told as Reason::HUNG. 0: twice the limit of a call.
    Milliseconds hangLimit{0};
    // For the server's end after the Pane's.
    Milliseconds closeLimit{15000};
};

enum class Reason {
    NOT_STARTED,
    DIED,
    HUNG, // a call has not returned; the server is still there, and when it answers after all, `ready` comes again
};

struct Ended
{
    Reason reason = Reason::DIED;
    HRESULT hr = S_OK;
    std::wstring text;
};

enum class EventKind { TEST_BRIDGE, CONTROL_READY, CUSTOM };

enum class Way { HERE, FORWARD, BACKWARD };

// Each may be empty.
struct Handlers
{
    // The control can be seen and used, and calls are made from now on; its name and version as setUsedControl answers them,
    // "Stations;1.0.0".
    std::function<void(const std::wstring& control)> ready;
    // Texts that begin with "kesta:" are the library's own and not told.
    std::function<void(EventKind kind, const std::wstring& text)> event;
    // There is no control any more, or it does not answer. Pane::restart begins anew, also from inside this handler.
    std::function<void(const Ended& ended)> ended;
    // Tab has gone beyond the control's last component, or Shift+Tab before its first one, and the focus is still in the control.
    // Return true if you have moved it; otherwise it goes to the next tab stop of the dialog. Pane::translate calls this for the
    // pane's own window, which has the focus while there is no control.
    std::function<bool(bool forward)> focusLeaves;
    // The focus has come into the control, or has left it for any other window: one of the client's, of another program or of the
    // control's own, a dialog for instance.
    std::function<void(bool inControl)> focusChanged;
    // What a handler or completion has thrown.
    std::function<void(const std::wstring& text)> problem;
};

// An argument of Pane::invoke.
class Value
{
public:
    Value(std::wstring text)
        : m_value(std::move(text))
    {
    }
    Value(const wchar_t* text)
        : m_value(std::wstring(text))
    {
    }
    Value(int number)
        : m_value(number)
    {
    }
    Value(bool isTrue)
        : m_value(isTrue)
    {
    }
    const std::variant<std::wstring, int, bool>& get() const { return m_value; }

private:
    std::variant<std::wstring, int, bool> m_value;
};

struct SCall;

// A call that was issued. Copies are the same call; it is made whether or not one is kept. Any thread.
class Call
{
public:
    Call() = default;
    explicit Call(std::shared_ptr<SCall> call)
        : m_call(std::move(call))
    {
    }
    bool isDone() const;
    // Waits for the answer and cancels the call at the limit. Meanwhile the thread handles messages that others send to it and
    // nothing else: no handler is called, and its windows do not react to the user. So wait briefly on a thread with windows.
    Result wait(Milliseconds limit) const;
    // Answers the call with CANCELLED, unless it has its answer. One that has not begun is never made.
    void cancel() const;

private:
    std::shared_ptr<SCall> m_call;
};

class Pane
{
public:
    // Makes the window, a child of `parent` at `place` (in the parent's coordinates) with WS_TABSTOP, begins to start the server,
    // and returns at once. Null when the window could not be made; `problem` then says why.
    static std::unique_ptr<Pane> create(HWND parent, const RECT& place, const Options& options, const Handlers& handlers,
                                        std::wstring* problem = nullptr);
    // Answers calls that are under way with NO_SERVER, for those who wait; completions are not called any more.
    ~Pane();
    Pane(const Pane&) = delete;
    Pane& operator=(const Pane&) = delete;

    // The window, to be moved, sized, shown, enabled and given another parent as any other. While there is no control in it, it
    // shows its own text (SetWindowTextW). Null once it was destroyed with its parent.
    HWND window() const;
    // Puts the pane into another window, also after its window was destroyed with the former parent: the control lives on. False,
    // with Windows' last error, when it could not be done.
    bool setParent(HWND parent, const RECT& place);

    // The control's methods and properties.
    Call call(const std::wstring& name, const std::wstring& argument, Completion completion = {});
    Call set(const std::wstring& name, const std::wstring& value, Completion completion = {});
    Call get(const std::wstring& name, Completion completion = {});
    // Switches the control's components on or off.
    Call enable(bool isEnabled, Completion completion = {});
    // Any method of the server by its member id.
    Call invoke(long member, std::vector<Value> arguments, Completion completion = {});

    bool isReady() const;
    // For programs that go on step by step: waits until the control is ready, with its name and version as the answer's text, or
    // until it cannot come, with the reason. At the limit the answer is TIMED_OUT, and the start goes on. Meanwhile the thread
    // handles messages that others send to it and those of the library's own, and no others; handlers are called later, when it
    // handles messages again. They hear nothing of a server that restart has replaced by then.
    Result waitReady(Milliseconds limit);
    // The id of the server's process; 0 until it is known, and after its end.
    DWORD process() const;

    // Gives the focus to the control: to its first component, its last one, or the one that had it, to which it also goes while
    // your program is not the active one. False if the control cannot take it now: it is not there, switched off or hidden, or
    // does not answer. Giving the focus to the pane's window does the same, also before the control is there.
    bool focus(Way way = Way::HERE);
    // Starts another server in place of this one; a server that hangs is ended. Calls that are under way are answered with
    // NO_SERVER.
    void restart();
    // For your message loop, before TranslateAccelerator and IsDialogMessage. True: the message is dealt with, perhaps by the
    // handler focusLeaves.
    bool translate(const MSG& message);

    class CCore;

private:
    explicit Pane(std::shared_ptr<CCore> core);

    std::shared_ptr<CCore> m_core;
};

// Waits until the servers of all panes that were destroyed have ended; at the limit the others are ended, and those that COM is
// still starting are waited for no longer. True if there were none of either. Any thread.
// The end of the program does this by itself, with five seconds. A DLL calls it before it is unloaded, on the thread of its
// panes; without it the DLL stays loaded, and the program's end waits for nothing: the servers notice it themselves, within 15
// seconds.
bool finish(Milliseconds limit);

} // namespace kesta
