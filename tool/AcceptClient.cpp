#include "tool/AcceptClient.h"

#include "com/JavaManagerATLObjectControl.h"
#include "javabridge/JavaManagerJNIClientSettings.h"
#include "support/logger.h"
#include "tool/Findings.h"

#include <algorithm>
#include <format>
#include <fstream>

namespace {

constexpr SIZE FIRST_PANE = {560, 340};
constexpr int EDIT_HEIGHT = 28;
constexpr const char* WINDOW_CLASS = "KESTAaccept";
constexpr DWORD FRAME_LIMIT = 15000; // ms, for the frame's window after the creation, and for Java's graphics at its first layout
constexpr int TRIES = 5;

void check(HRESULT result, const std::string& what)
{
    if (FAILED(result)) {
        const std::string text = errorInfoText();
        throw std::runtime_error(what + " failed: " + hexadecimal(result) + (text.empty() ? "" : ": " + text));
    }
}

std::string windowTitle(HWND window)
{
    char title[80] = "";
    GetWindowTextA(window, title, sizeof title);
    return toUtf8(title);
}

bool isBelow(HWND window, HWND ancestor)
{
    return window == ancestor || IsChild(ancestor, window) != FALSE;
}

void send(std::vector<INPUT> inputs)
{
    if (SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)) != inputs.size()) {
        throw std::runtime_error("Windows does not let this program use mouse or keyboard");
    }
}

INPUT keyInput(WORD key, DWORD flags)
{
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = key;
    input.ki.wScan = static_cast<WORD>(MapVirtualKeyA(key, MAPVK_VK_TO_VSC));
    input.ki.dwFlags = flags;
    return input;
}

INPUT mouseInput(DWORD flags)
{
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dwFlags = flags;
    return input;
}

// The keyboard's keys go to the window in front: it has to be one of this process.
void checkInFront()
{
    const HWND front = GetForegroundWindow();
    DWORD process = 0;
    GetWindowThreadProcessId(front, &process);
    if (process != GetCurrentProcessId()) {
        throw std::runtime_error("another program is in front (\"" + windowTitle(front) + "\"): nothing was typed");
    }
}

} // namespace

bool pumpUntil(const std::function<bool()>& done, DWORD limit)
{
    constexpr DWORD LONGEST_NAP = 20; // ms: not every condition comes with a message
    const ULONGLONG end = GetTickCount64() + limit;
    while (!done()) {
        const ULONGLONG now = GetTickCount64();
        if (now >= end) {
            return false;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, std::min(LONGEST_NAP, static_cast<DWORD>(end - now)), QS_ALLINPUT);
        for (MSG message; PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE);) {
            TranslateMessage(&message);
            DispatchMessageA(&message);
        }
    }
    return true;
}

void pumpFor(DWORD milliseconds)
{
    pumpUntil([] { return false; }, milliseconds);
}

std::string narrow(BSTR text)
{
    const int length = static_cast<int>(SysStringLen(text));
    std::string result(static_cast<size_t>(length) * 4, '\0');
    result.resize(static_cast<size_t>(
        WideCharToMultiByte(CP_UTF8, 0, text, length, result.data(), static_cast<int>(result.size()), nullptr, nullptr)));
    return result;
}

std::string lastErrorText()
{
    return toUtf8(getWindowsErrorText(GetLastError()));
}

std::string hexadecimal(HRESULT result)
{
    return std::format("0x{:08X}", static_cast<unsigned>(result));
}

std::string errorInfoText()
{
    ATL::CComPtr<IErrorInfo> info;
    ATL::CComBSTR text;
    return GetErrorInfo(0, &info) == S_OK && SUCCEEDED(info->GetDescription(&text)) ? narrow(text) : "";
}

LateAnswer lateCall(IDispatch* object, DISPID method, const std::vector<std::string>& texts)
{
    std::vector<ATL::CComBSTR> words;
    std::vector<VARIANT> arguments;
    words.reserve(texts.size());
    arguments.reserve(texts.size());
    for (const std::string& text : texts) {
        words.emplace_back(text.c_str());
    }
    for (auto word = words.rbegin(); word != words.rend(); ++word) { // the last one comes first
        VARIANT argument = {};
        argument.vt = VT_BSTR;
        argument.bstrVal = *word;
        arguments.push_back(argument);
    }
    DISPPARAMS parameters = {arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    ATL::CComVariant answer;
    EXCEPINFO exception = {};
    const HRESULT result =
        object->Invoke(method, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, &exception, nullptr);
    const std::string description = narrow(exception.bstrDescription);
    for (const BSTR text : {exception.bstrSource, exception.bstrDescription, exception.bstrHelpFile}) {
        SysFreeString(text);
    }
    if (answer.vt != VT_EMPTY && answer.vt != VT_BSTR) {
        answer.ChangeType(VT_BSTR);
    }
    return {result, answer.vt == VT_BSTR ? narrow(answer.bstrVal) : "", description};
}

bool isControlThere(const std::string& name)
{
    const ControlClassPath classPath = readControlClassPath(nullptr, nullptr);
    const auto control = std::ranges::find(classPath.controls, name, &ControlArchive::name);
    return control != classPath.controls.end() && isFileThere(control->archive);
}

CAcceptContext::CAcceptContext(std::string trail, bool isLong)
    : m_trail(std::move(trail))
    , m_isLong(isLong)
{
}

std::string CAcceptContext::runBegin() const
{
    std::ifstream file(m_trail);
    for (std::string word; file >> word;) {
        if (word == "begun") {
            file >> word;
            return word;
        }
    }
    throw std::runtime_error("the run does not say when it began");
}

void CAcceptContext::step(const std::string& text) const
{
    std::ofstream(m_trail, std::ios::app) << "step " << text << std::endl;
}

void CAcceptContext::server(DWORD process) const
{
    std::ofstream(m_trail, std::ios::app) << "server " << process << std::endl;
}

void CAcceptContext::picture(const std::string& title, const CAcceptPicture& picture)
{
    m_pictures.push_back({{"title", title}, {"png", picture.png()}});
}

STDMETHODIMP CAcceptSink::QueryInterface(REFIID iid, void** object)
{
    const bool isKnown = iid == IID_IUnknown || iid == IID_IDispatch || iid == DIID__IJavaManagerEvents;
    *object = isKnown ? this : nullptr;
    return isKnown ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP CAcceptSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*)
{
    if (parameters->cArgs != 1 || parameters->rgvarg[0].vt != VT_BSTR) {
        return DISP_E_TYPEMISMATCH;
    }
    events.push_back({id, narrow(parameters->rgvarg[0].bstrVal), GetTickCount64()});
    if (reaction) {
        reaction(events.back());
    }
    return S_OK;
}

size_t CAcceptSink::count(DISPID id, const std::string& beginning) const
{
    return static_cast<size_t>(std::ranges::count_if(
        events, [&](const AcceptEvent& event) { return event.id == id && event.text.starts_with(beginning); }));
}

CAcceptServer::CAcceptServer(CAcceptContext& context)
{
    context.step("creating the object");
    const CStopwatch watch;
    check(m_object.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER), "creating the object");
    check(m_object->getBeanFrameID(&m_frameId), "getBeanFrameID");
    m_creationTime = watch.milliseconds();
    if (m_frameId == -1) {
        throw std::runtime_error("the server has no frame: " + reason());
    }
    const std::string title = "kesta_frame_" + std::to_string(m_frameId);
    if (!pumpUntil([&] { return (m_frame = FindWindowA(nullptr, title.c_str())) != nullptr; }, FRAME_LIMIT)) {
        throw std::runtime_error("there is no window " + title);
    }
    GetWindowThreadProcessId(m_frame, &m_processId);
    context.server(m_processId);
    m_process.Attach(
        OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, m_processId));
    if (m_process == nullptr) {
        throw std::runtime_error("the server's process cannot be opened: " + lastErrorText());
    }
    connect();
}

CAcceptServer::~CAcceptServer()
{
    if (m_object != nullptr) {
        release(0);
    }
}

void CAcceptServer::connect()
{
    ATL::CComPtr<IConnectionPointContainer> container;
    check(m_object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container)),
          "looking for the events");
    check(container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point), "looking for the events");
    check(m_point->Advise(&sink, &m_cookie), "connecting the sink");
}

// The next failure's text begins with the oldest error. Late bound, because that carries the text everywhere.
std::string CAcceptServer::reason() const
{
    constexpr DISPID VALIDATE = 15;
    const std::string text = lateCall(m_object, VALIDATE, {}).description;
    return text.empty() ? "KESTAtool check says why" : text.substr(0, text.find_first_of("\r\n"));
}

void CAcceptServer::use(const char* control)
{
    ATL::CComBSTR answer;
    const HRESULT result = m_object->setUsedControl(ATL::CComBSTR(control), ATL::CComBSTR(L""), &answer);
    if (FAILED(result) && !isControlThere(control)) {
        throw CNotHere(std::string("the control ") + control + " is not registered, or its jar is not there");
    }
    check(result, std::string("setUsedControl(") + control + ")");
}

HRESULT CAcceptServer::tryGet(const char* name, std::string& value)
{
    ATL::CComBSTR answer;
    const HRESULT result = m_object->getProperty(ATL::CComBSTR(name), &answer);
    value = narrow(answer);
    return result;
}

std::string CAcceptServer::get(const char* name)
{
    std::string value;
    check(tryGet(name, value), std::string("getProperty(") + name + ")");
    return value;
}

void CAcceptServer::set(const char* name, const std::string& value)
{
    ATL::CComBSTR answer;
    check(m_object->setProperty(ATL::CComBSTR(name), ATL::CComBSTR(value.c_str()), &answer),
          std::string("setProperty(") + name + ")");
}

std::string CAcceptServer::call(const char* name, const std::string& argument)
{
    ATL::CComBSTR answer;
    check(m_object->callMethod(ATL::CComBSTR(name), ATL::CComBSTR(argument.c_str()), &answer),
          std::string("callMethod(") + name + ")");
    return narrow(answer);
}

std::optional<DWORD> CAcceptServer::release(DWORD limit)
{
    if (m_point != nullptr) {
        m_point->Unadvise(m_cookie);
        m_point.Release();
        CoDisconnectObject(&sink, 0); // no late release from the other process may reach a sink that is gone
    }
    m_object.Release();
    DWORD exitCode = STILL_ACTIVE;
    if (!pumpUntil([&] { return WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0; }, limit) ||
        GetExitCodeProcess(m_process, &exitCode) == FALSE) {
        return std::nullopt;
    }
    return exitCode;
}

CAcceptWindow::CAcceptWindow(POINT place)
{
    WNDCLASSA about = {};
    about.lpfnWndProc = windowProcedure;
    about.lpszClassName = WINDOW_CLASS;
    about.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    about.hbrBackground = CreateSolidBrush(CAcceptPicture::MARKER); // lives as long as the class
    RegisterClassA(&about);
    RECT area = {0, 0, FIRST_PANE.cx, FIRST_PANE.cy + EDIT_HEIGHT};
    constexpr DWORD STYLE = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
    AdjustWindowRect(&area, STYLE, FALSE);
    m_window = CreateWindowExA(WS_EX_TOPMOST, WINDOW_CLASS, "KESTAtool accept: please leave mouse and keyboard alone", STYLE,
                               place.x, place.y, area.right - area.left, area.bottom - area.top, nullptr, nullptr, nullptr, this);
    SetWindowLongPtrA(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    m_edit = CreateWindowExA(WS_EX_CLIENTEDGE, "EDIT", "", WS_CHILD | WS_VISIBLE | WS_TABSTOP, 0, 0, FIRST_PANE.cx, EDIT_HEIGHT,
                             m_window, nullptr, nullptr, nullptr);
    m_pane = CreateWindowExA(0, WINDOW_CLASS, "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, EDIT_HEIGHT, FIRST_PANE.cx,
                             FIRST_PANE.cy, m_window, nullptr, nullptr, nullptr);
    if (m_pane == nullptr) {
        throw std::runtime_error("the client's window cannot be made: " + lastErrorText());
    }
    for (const HWND child : {m_edit, m_pane}) {
        SetWindowLongPtrA(child, GWLP_USERDATA,
                          SetWindowLongPtrA(child, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(childProcedure)));
    }
    ShowWindow(m_window, SW_SHOWNORMAL);
    UpdateWindow(m_window);
    SetForegroundWindow(m_window);
    SetFocus(m_edit);
}

CAcceptWindow::~CAcceptWindow()
{
    destroy();
}

void CAcceptWindow::destroy()
{
    if (m_window != nullptr) {
        DestroyWindow(m_window);
    }
    m_window = nullptr;
}

LRESULT CALLBACK CAcceptWindow::windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* const self = reinterpret_cast<CAcceptWindow*>(GetWindowLongPtrA(window, GWLP_USERDATA));
    if (message == ORDER && self != nullptr && self->onOrder) {
        return self->onOrder();
    }
    return message == WM_CLOSE ? 0 : DefWindowProcA(window, message, wParam, lParam);
}

// A child keeps its own procedure where other windows have their owner.
LRESULT CALLBACK CAcceptWindow::childProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    const auto* const self = reinterpret_cast<CAcceptWindow*>(GetWindowLongPtrA(GetAncestor(window, GA_PARENT), GWLP_USERDATA));
    if (self != nullptr && self->spy) {
        self->spy(window, message, wParam);
    }
    return CallWindowProcA(reinterpret_cast<WNDPROC>(GetWindowLongPtrA(window, GWLP_USERDATA)), window, message, wParam, lParam);
}

void CAcceptWindow::takeIn(HWND frame) const
{
    const LONG_PTR style = GetWindowLongPtrA(frame, GWL_STYLE) & ~LONG_PTR{WS_CAPTION | WS_THICKFRAME} & ~LONG_PTR{WS_POPUP};
    SetWindowLongPtrA(frame, GWL_STYLE, style | WS_CHILD | WS_CLIPCHILDREN);
    SetParent(frame, m_pane);
    fit(frame);
    RECT pane = {};
    RECT inner = {};
    GetClientRect(m_pane, &pane);
    if (!pumpUntil([&] {
            return GetParent(frame) == m_pane && GetClientRect(frame, &inner) != FALSE && EqualRect(&inner, &pane) != FALSE;
        })) {
        throw std::runtime_error(std::format("the frame does not fill the pane: {} x {} instead of {} x {}", inner.right,
                                             inner.bottom, pane.right, pane.bottom));
    }
}

void CAcceptWindow::fit(HWND frame) const
{
    RECT pane = {};
    GetClientRect(m_pane, &pane);
    SetWindowPos(frame, nullptr, 0, 0, pane.right, pane.bottom,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_ASYNCWINDOWPOS);
}

void CAcceptWindow::resize(SIZE pane)
{
    RECT area = {0, 0, pane.cx, pane.cy + EDIT_HEIGHT};
    AdjustWindowRect(&area, static_cast<DWORD>(GetWindowLongPtrA(m_window, GWL_STYLE)), FALSE);
    SetWindowPos(m_window, nullptr, 0, 0, area.right - area.left, area.bottom - area.top,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    SetWindowPos(m_edit, nullptr, 0, 0, pane.cx, EDIT_HEIGHT, SWP_NOZORDER | SWP_NOACTIVATE);
    SetWindowPos(m_pane, nullptr, 0, EDIT_HEIGHT, pane.cx, pane.cy, SWP_NOZORDER | SWP_NOACTIVATE);
}

CAcceptPicture CAcceptWindow::waitUntilPainted() const
{
    constexpr DWORD STEP = 100;        // ms
    constexpr DWORD STILL_TIME = 1500; // ms, after which what is painted has to be there still
    const ULONGLONG end = GetTickCount64() + REACTION_LIMIT;
    while (!CAcceptPicture(m_pane).isPainted() && GetTickCount64() < end) {
        pumpFor(STEP);
    }
    pumpFor(STILL_TIME);
    return CAcceptPicture(m_pane);
}

void clickAt(POINT place, HWND window)
{
    constexpr DWORD MOMENT = 80; // ms, as a hand has it
    const HWND target = WindowFromPoint(place);
    if (!isBelow(target, window)) {
        throw std::runtime_error("another window is in the way (\"" + windowTitle(GetAncestor(target, GA_ROOT)) +
                                 "\"): nothing was clicked");
    }
    SetCursorPos(place.x, place.y);
    send({mouseInput(MOUSEEVENTF_MOVE)});
    pumpFor(MOMENT);
    send({mouseInput(MOUSEEVENTF_LEFTDOWN)});
    pumpFor(MOMENT);
    send({mouseInput(MOUSEEVENTF_LEFTUP)});
    pumpFor(MOMENT);
}

void clickInto(HWND child)
{
    RECT place = {};
    GetWindowRect(child, &place);
    clickAt({(place.left + place.right) / 2, (place.top + place.bottom) / 2}, child);
}

void typeText(const std::string& letters)
{
    constexpr DWORD MOMENT = 30; // ms
    for (const char letter : letters) {
        const auto key = static_cast<WORD>(LOBYTE(VkKeyScanA(letter)));
        checkInFront();
        send({keyInput(key, 0)});
        pumpFor(MOMENT);
        send({keyInput(key, KEYEVENTF_KEYUP)});
        pumpFor(MOMENT);
    }
}

void pressKey(WORD key, WORD modifier)
{
    checkInFront();
    if (modifier != 0) {
        send({keyInput(modifier, 0)});
    }
    send({keyInput(key, 0), keyInput(key, KEYEVENTF_KEYUP)});
    if (modifier != 0) {
        send({keyInput(modifier, KEYEVENTF_KEYUP)});
    }
}

CAcceptStage::CAcceptStage(CAcceptContext& context, const char* control)
    : server(context)
{
    context.step("taking the frame into a window");
    window.takeIn(server.frame());
    check(server->pushWindowHandle(window.handle()), "pushWindowHandle");
    window.fit(server.frame());
    if (!pumpUntil([this] { return server.sink.count(CONTROL_READY) > 0; }, FRAME_LIMIT)) {
        throw std::runtime_error("the event controlReady does not come");
    }
    context.step("choosing the control");
    server.use(control);
    if (std::string_view(control) == SAMPLE_CONTROL) {
        server.set("title", "Wind power by site, GWh");
        server.set("rows", "Alta;412|Bergen;655|Molde;538|Narvik;287|Stavanger;721");
        server.set("text", "hello");
    }
    window.waitUntilPainted();
    context.step("working with it");
}

// The pane's own left or right edge, whichever the distance is from.
POINT CAcceptStage::fromBottom(int fromLeft, int fromRight, int up) const
{
    RECT place = {};
    GetWindowRect(server.frame(), &place);
    return {fromLeft > 0 ? place.left + fromLeft : place.right - fromRight, place.bottom - up};
}

void CAcceptStage::clickField()
{
    clickAt(fromBottom(200, 0, 26), server.frame());
}

void CAcceptStage::clickButton()
{
    clickAt(fromBottom(0, 60, 26), server.frame());
}

// The first click also activates the frame, and Java may then give the focus to another component.
std::string CAcceptStage::typeIntoField(const std::string& letters)
{
    std::string text;
    for (int tries = 0; tries < TRIES && text != letters; ++tries) {
        server.set("text", "");
        clickField();
        typeText(letters);
        pumpUntil([&] { return (text = server.get("text")) == letters; }, REACTION_LIMIT / TRIES);
    }
    return text;
}
