#include "tool/ProbeLive.h"

#include "tool/AcceptClient.h"

#include <nlohmann/json.hpp>

namespace {

constexpr DWORD EVENT_LIMIT = 15000; // ms
constexpr int THROUGH_JAVA = 2;      // hops of the bridge test: the server and Java's listener
constexpr SIZE FRAME_SIZE = {480, 320};

// A window with a pane, gone at its end.
class CPane
{
public:
    CPane()
        : m_window(CreateWindowExA(0, "STATIC", "KESTAtool", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT, CW_USEDEFAULT,
                                   FRAME_SIZE.cx + 40, FRAME_SIZE.cy + 60, nullptr, nullptr, nullptr, nullptr))
        , m_pane(CreateWindowExA(0, "STATIC", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0, FRAME_SIZE.cx, FRAME_SIZE.cy,
                                 m_window, nullptr, nullptr, nullptr))
    {
        ShowWindow(m_window, SW_SHOWNOACTIVATE);
    }
    ~CPane() { DestroyWindow(m_window); }
    CPane(const CPane&) = delete;
    CPane& operator=(const CPane&) = delete;

    HWND handle() const { return m_pane; }
    // The frame becomes a child that fills the pane.
    bool takeIn(HWND frame) const
    {
        SetWindowLongPtrA(frame, GWL_STYLE, WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN);
        SetParent(frame, m_pane);
        SetWindowPos(frame, nullptr, 0, 0, FRAME_SIZE.cx, FRAME_SIZE.cy, SWP_FRAMECHANGED | SWP_NOZORDER | SWP_NOACTIVATE);
        RECT place = {};
        GetWindowRect(frame, &place);
        return GetParent(frame) == m_pane && place.right - place.left == FRAME_SIZE.cx &&
               place.bottom - place.top == FRAME_SIZE.cy;
    }

private:
    HWND m_window;
    HWND m_pane;
};

// The only control needs no name. Of several, any will do: an archive's name may differ from that of the control inside.
void chooseControl(IJavaManager* object, const std::vector<std::string>& controls, nlohmann::json& answer)
{
    HRESULT result = E_FAIL;
    for (size_t index = 0; index < controls.size() && FAILED(result); ++index) {
        const ATL::CComBSTR name(controls.size() == 1 ? "" : controls[index].c_str());
        ATL::CComBSTR text;
        result = object->setUsedControl(name, ATL::CComBSTR(L""), &text);
        answer["controlError"] = FAILED(result) ? errorText(result) : "";
    }
    answer["isControlReady"] = SUCCEEDED(result);
}

} // namespace

void probeLive(IJavaManager* object, int frameId, const std::vector<std::string>& controls, nlohmann::json& answer)
{
    CAcceptSink sink;
    ATL::CComPtr<IConnectionPointContainer> container;
    ATL::CComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    const bool isConnected =
        SUCCEEDED(object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container))) &&
        SUCCEEDED(container->FindConnectionPoint(DIID__IJavaManagerEvents, &point)) && SUCCEEDED(point->Advise(&sink, &cookie));

    const CPane pane;
    const HWND frame = FindWindowA(nullptr, ("kesta_frame_" + std::to_string(frameId)).c_str());
    const HRESULT pushed = object->pushWindowHandle(static_cast<int>(reinterpret_cast<INT_PTR>(pane.handle())));
    const bool isTakenIn = SUCCEEDED(pushed) && pane.takeIn(frame) && IsWindowVisible(frame) != FALSE;
    answer["isTakenIn"] = isTakenIn;
    if (isTakenIn) {
        answer["isReadyReceived"] = pumpUntil([&] { return sink.count(CONTROL_READY) > 0; }, EVENT_LIMIT);
    }
    if (!controls.empty()) {
        chooseControl(object, controls, answer);
    }
    const ULONGLONG begin = GetTickCount64();
    answer["isEventReceived"] = isConnected && SUCCEEDED(object->testBridge(ATL::CComBSTR(L"KESTAtool"), THROUGH_JAVA, 0)) &&
                                pumpUntil([&] { return sink.count(TEST_BRIDGE_EVENT) > 0; }, EVENT_LIMIT);
    answer["eventMilliseconds"] = GetTickCount64() - begin;
    answer["customEvents"] = sink.count(CUSTOM_EVENT);
    if (isConnected) {
        point->Unadvise(cookie);
    }
}
