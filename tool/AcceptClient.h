// The parts of a client that the scenarios of "accept" are made of: server, events, window, mouse and keyboard.
//
// Ownership: each class owns what its name says and gives it back in its destructor; nothing outlives the scenario's process.
// Threads: one, in a single-threaded apartment. While they wait, functions handle its messages.
// Failure: what a client needs and does not get throws std::runtime_error. Texts are UTF-8.
#pragma once

#include "atl/atl.h"
#include "tool/AcceptPicture.h"
#include "tool/AcceptScenario.h"

#include "KESTAserver_h.h"

#include <windows.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

constexpr DWORD REACTION_LIMIT = 8000; // ms, for what a user sees or hears of at once

constexpr DISPID TEST_BRIDGE_EVENT = 2;
constexpr DISPID CONTROL_READY = 3;
constexpr DISPID CUSTOM_EVENT = 4;

constexpr const char* SAMPLE_CONTROL = "Stations";
constexpr const char* TEST_CONTROL = "TestControl"; // has calls that raise events from threads of their own

// Handles messages until the condition holds; false when the time is up.
bool pumpUntil(const std::function<bool()>& done, DWORD limit = REACTION_LIMIT);
void pumpFor(DWORD milliseconds);

std::string narrow(BSTR text);
std::string hexadecimal(HRESULT result);
std::string lastErrorText();
// What the failing call said of itself; "" when nothing came with it.
std::string errorInfoText();

struct LateAnswer
{
    HRESULT result;
    std::string text;
    std::string description;
};

// As a script calls: all arguments are texts, which the server's side converts.
LateAnswer lateCall(IDispatch* object, DISPID method, const std::vector<std::string>& texts);

class CStopwatch
{
public:
    double milliseconds() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_begin).count();
    }

private:
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

// Whether the server has the control's jar in its class path, and the jar is there.
bool isControlThere(const std::string& name);

// What a scenario leaves for the parent: its pictures, its servers, and how far it has come.
class CAcceptContext
{
public:
    CAcceptContext(std::string trail, bool isLong);
    CAcceptContext(const CAcceptContext&) = delete;
    CAcceptContext& operator=(const CAcceptContext&) = delete;

    bool isLong() const { return m_isLong; }
    const std::string& trail() const { return m_trail; }
    // When the whole run began, as event logs write it; the parent leaves it in the trail.
    std::string runBegin() const;
    // In the trail, which the parent reads also when this process never answers.
    void step(const std::string& text) const;
    void server(DWORD process) const;
    void picture(const std::string& title, const CAcceptPicture& picture);
    const nlohmann::json& pictures() const { return m_pictures; }

private:
    std::string m_trail;
    bool m_isLong;
    nlohmann::json m_pictures = nlohmann::json::array();
};

struct AcceptEvent
{
    DISPID id;
    std::string text;
    ULONGLONG time; // GetTickCount64
};

// Records its events. It must outlive its connection.
class CAcceptSink : public IDispatch
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*) override;

    std::vector<AcceptEvent> events;
    std::function<void(const AcceptEvent&)> reaction;

    size_t count(DISPID id, const std::string& beginning = "") const;
};

// An object of the server, its process and its connected sink.
class CAcceptServer
{
public:
    explicit CAcceptServer(CAcceptContext& context);
    ~CAcceptServer();
    CAcceptServer(const CAcceptServer&) = delete;
    CAcceptServer& operator=(const CAcceptServer&) = delete;

    IJavaManager* operator->() const { return m_object; }
    IJavaManager* object() const { return m_object; }
    int frameId() const { return m_frameId; }
    HWND frame() const { return m_frame; }
    DWORD processId() const { return m_processId; }
    HANDLE process() const { return m_process; }
    double creationTime() const { return m_creationTime; } // ms
    // Chooses the control and lets it have the keyboard. Throws CNotHere when the machine does not have it, but not when it does
    // not start.
    void use(const char* control);
    std::string get(const char* name);
    void set(const char* name, const std::string& value);
    HRESULT tryGet(const char* name, std::string& value);
    std::string call(const char* name, const std::string& argument);
    // Drops every reference and waits for the process's end; nothing when the time is up.
    std::optional<DWORD> release(DWORD limit);

    CAcceptSink sink;

private:
    void connect();
    std::string reason() const;

    ATL::CComPtr<IJavaManager> m_object;
    ATL::CComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
    int m_frameId = -1;
    HWND m_frame = nullptr;
    DWORD m_processId = 0;
    ATL::CHandle m_process;
    double m_creationTime = 0;
};

// A window in front of all others with an edit field of its own and, below that, a pane for the frame. The pane has the marker's
// colour.
class CAcceptWindow
{
public:
    explicit CAcceptWindow(POINT place = {60, 60});
    ~CAcceptWindow();
    CAcceptWindow(const CAcceptWindow&) = delete;
    CAcceptWindow& operator=(const CAcceptWindow&) = delete;

    HWND window() const { return m_window; }
    HWND edit() const { return m_edit; }
    HWND pane() const { return m_pane; }
    int handle() const { return static_cast<int>(reinterpret_cast<INT_PTR>(m_pane)); }
    void destroy();
    // Makes the frame a child that fills the pane.
    void takeIn(HWND frame) const;
    void fit(HWND frame) const;
    void resize(SIZE pane);
    // Waits until the control in the pane is visible; the last picture either way.
    CAcceptPicture waitUntilPainted() const;

    // Called with each message that comes to the edit field or the pane, before it is handled.
    std::function<void(HWND window, UINT message, WPARAM wParam)> spy;
    std::function<LRESULT()> onOrder; // answers the message ORDER, in the window's procedure
    static constexpr UINT ORDER = WM_APP + 1;

private:
    static LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK childProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_window = nullptr;
    HWND m_edit = nullptr;
    HWND m_pane = nullptr;
};

// Mouse and keyboard, as a user has them. Nothing is clicked or typed when it would reach a program that is not ours.
void clickAt(POINT place, HWND window);
void clickInto(HWND child);                // in its middle; below its own top-level window
void typeText(const std::string& letters); // small letters and digits
void pressKey(WORD key, WORD modifier = 0);

// The frame in a window of the client, with the sample control in use and events connected: what most scenarios begin with.
class CAcceptStage
{
public:
    explicit CAcceptStage(CAcceptContext& context, const char* control = SAMPLE_CONTROL);

    // Its places in the pane, whatever the pane's size is.
    void clickField();
    void clickButton();
    // Clicks and types until the control has the text, up to five times as a user would, and gives what it has.
    std::string typeIntoField(const std::string& letters);

    CAcceptWindow window; // outlives the server's object
    CAcceptServer server;

private:
    POINT fromBottom(int fromLeft, int fromRight, int up) const;
};
