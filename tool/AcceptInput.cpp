// The scenarios of "accept" about mouse, keyboard and focus, and about calls out of handlers.
#include "tool/AcceptClient.h"

#include <atomic>
#include <format>
#include <thread>

using nlohmann::json;

namespace {

json observeClick(CAcceptContext& context)
{
    CAcceptStage stage(context);
    stage.clickButton();
    const bool isHeard = pumpUntil([&] { return stage.server.sink.count(CUSTOM_EVENT, "button: hello") > 0; });
    return {{"isHeard", isHeard}};
}

Judgement judgeClick(const json& seen)
{
    return judged(seen["isHeard"].get<bool>(),
                  seen["isHeard"].get<bool>() ? "the button's event came" : "no event of the button");
}

json observeType(CAcceptContext& context)
{
    CAcceptStage stage(context);
    const std::string got = stage.typeIntoField("kesta42");
    context.picture("after typing", CAcceptPicture(stage.window.window()));
    return {{"typed", "kesta42"}, {"got", got}};
}

Judgement judgeType(const json& seen)
{
    return judged(seen["typed"] == seen["got"], std::format("typed \"{}\", the control has \"{}\"",
                                                            seen["typed"].get<std::string>(), seen["got"].get<std::string>()));
}

// Whether Java's caret blinks: while the field believes that it has the focus. A caret that goes, or a field that is painted
// once more, is a change or two.
bool isCaretBlinking(HWND frame)
{
    constexpr DWORD STEP = 150; // ms, several in a period
    constexpr int STEPS = 20;
    constexpr int BLINKS = 3;
    CAcceptPicture last(frame);
    int changes = 0;
    for (int number = 0; number < STEPS && changes < BLINKS; ++number) {
        pumpFor(STEP);
        CAcceptPicture now(frame);
        changes += now.likeness(last) < 1 ? 1 : 0;
        last = std::move(now);
    }
    return changes == BLINKS;
}

json observeFocus(CAcceptContext& context)
{
    CAcceptStage stage(context);
    stage.typeIntoField("java1");
    const bool isBlinking = isCaretBlinking(stage.server.frame());
    clickInto(stage.window.edit());
    typeText("native2");
    char native[40] = "";
    GetWindowTextA(stage.window.edit(), native, sizeof native);
    const bool isStillBlinking = isCaretBlinking(stage.server.frame());
    context.picture("the focus is in the client's field above", CAcceptPicture(stage.window.window()));
    return {{"java", stage.server.get("text")},
            {"native", native},
            {"isBlinking", isBlinking},
            {"isStillBlinking", isStillBlinking},
            {"back", stage.typeIntoField("java3")}};
}

Judgement judgeKeysFollow(const json& seen)
{
    const bool isGood = seen["java"] == "java1" && seen["native"] == "native2" && seen["back"] == "java3";
    return judged(isGood,
                  std::format("Java has \"{}\", the client's field \"{}\", then Java \"{}\"", seen["java"].get<std::string>(),
                              seen["native"].get<std::string>(), seen["back"].get<std::string>()));
}

Judgement judgeFocusLost(const json& seen)
{
    if (seen["java"] != "java1" || seen["native"] != "native2") {
        return undecided("the focus did not go into the frame and out again");
    }
    if (!seen["isBlinking"].get<bool>()) {
        return undecided("Java's caret does not blink even with the focus, so nothing can be told");
    }
    return judged(seen["isStillBlinking"].get<bool>(), seen["isStillBlinking"].get<bool>()
                                                           ? "Java's caret goes on blinking beside the client's"
                                                           : "Java's caret stops: Java heard of it");
}

json observeKeys(CAcceptContext& context)
{
    constexpr DWORD MOMENT = 800; // ms
    CAcceptStage stage(context);
    const std::string got = stage.typeIntoField("a1");
    int seenByClient = 0;
    stage.window.spy = [&](HWND, UINT message, WPARAM) {
        seenByClient += message == WM_KEYDOWN || message == WM_SYSKEYDOWN || message == WM_CHAR ? 1 : 0;
    };
    pressKey('S', VK_CONTROL);
    pressKey(VK_ESCAPE);
    pressKey(VK_F1);
    pressKey(VK_TAB); // to the button
    pressKey(VK_TAB); // round to the first component
    const auto leaves = [&] { return stage.server.sink.count(CUSTOM_EVENT, "kesta:focusLeaves forward"); };
    pumpUntil([&] { return leaves() > 0; });
    pumpFor(MOMENT);
    return {{"got", got}, {"seenByClient", seenByClient}, {"leaves", leaves()}};
}

Judgement judgeKeys(const json& seen)
{
    if (seen["got"] != "a1") {
        return undecided("the focus did not come into the frame");
    }
    if (seen["seenByClient"] == 0 && seen["leaves"] == 0) {
        return undecided("the keys did not come to the client, and Java did nothing with them either");
    }
    return judged(seen["seenByClient"] == 0,
                  std::format("of Ctrl+S, Esc, F1 and Tab the client saw {} messages; it was told {} times "
                              "that the focus leaves",
                              seen["seenByClient"].get<int>(), seen["leaves"].get<int>()));
}

json observeParentNotify(CAcceptContext& context)
{
    CAcceptStage stage(context);
    int sent = 0;
    int all = 0;
    stage.window.spy = [&](HWND, UINT message, WPARAM wParam) {
        if (message == WM_PARENTNOTIFY && LOWORD(wParam) == WM_LBUTTONDOWN) {
            ++all;
            sent += (InSendMessageEx(nullptr) & (ISMEX_REPLIED | ISMEX_SEND)) == ISMEX_SEND ? 1 : 0;
        }
    };
    stage.clickButton();
    pumpUntil([&] { return stage.server.sink.count(CUSTOM_EVENT, "button: ") > 0; });
    return {{"all", all}, {"sent", sent}, {"isHeard", stage.server.sink.count(CUSTOM_EVENT, "button: ") > 0}};
}

Judgement judgeParentNotify(const json& seen)
{
    if (!seen["isHeard"].get<bool>()) {
        return undecided("the control's button does not report the click");
    }
    return judged(seen["all"] == 1 && seen["sent"] == 1,
                  std::format("one click: {} messages, {} of them sent by the other thread", seen["all"].get<int>(),
                              seen["sent"].get<int>()));
}

json observeHandler(CAcceptContext& context)
{
    CAcceptServer server(context);
    server.use(SAMPLE_CONTROL);
    CAcceptWindow window;
    std::string value;
    HRESULT sent = E_PENDING;
    HRESULT posted = E_PENDING;
    window.onOrder = [&] { return sent = server.tryGet("title", value); };
    std::atomic<bool> isDone{false};
    std::thread other([&] {
        SendMessageA(window.window(), CAcceptWindow::ORDER, 0, 0);
        isDone = true;
    });
    pumpUntil([&] { return isDone.load(); });
    other.join();
    window.onOrder = [&] { return posted = server.tryGet("title", value); };
    PostMessageA(window.window(), CAcceptWindow::ORDER, 0, 0);
    pumpUntil([&] { return posted != E_PENDING; });
    return {{"sent", sent}, {"posted", posted}};
}

json observeFocusHandler(CAcceptContext& context)
{
    CAcceptStage stage(context);
    clickInto(stage.window.edit());
    json seen = {{"sent", E_PENDING}, {"posted", S_OK}};
    std::string value;
    stage.window.spy = [&](HWND window, UINT message, WPARAM) {
        if (message == WM_KILLFOCUS && window == stage.window.edit() && seen["sent"] == E_PENDING) {
            seen["sent"] = S_FALSE; // while the call is out
            seen["sent"] = stage.server.tryGet("text", value);
        }
    };
    for (int tries = 0; tries < 3 && seen["sent"] == E_PENDING; ++tries) {
        stage.clickField();
    }
    pumpUntil([&] { return seen["sent"] != E_PENDING && seen["sent"] != S_FALSE; });
    seen["posted"] = stage.server.tryGet("text", value);
    return seen;
}

Judgement judgeHandler(const json& seen)
{
    const auto sent = seen["sent"].get<HRESULT>();
    const auto posted = seen["posted"].get<HRESULT>();
    if (sent == E_PENDING) {
        return undecided("the handler was never called");
    }
    if (FAILED(posted) && posted != RPC_E_CANTCALLOUT_ININPUTSYNCCALL) {
        return undecided("no call works: afterwards " + hexadecimal(posted));
    }
    return judged(sent == RPC_E_CANTCALLOUT_ININPUTSYNCCALL && SUCCEEDED(posted),
                  std::format("inside the sent message {}, afterwards {}", hexadecimal(sent), hexadecimal(posted)));
}

json observeClickBeforeUse(CAcceptContext& context)
{
    CAcceptServer server(context);
    CAcceptWindow window;
    window.takeIn(server.frame());
    server->pushWindowHandle(window.handle());
    window.fit(server.frame());
    pumpUntil([&] { return server.sink.count(CONTROL_READY) > 0; });
    const CAcceptWindow other({700, 420});
    clickInto(other.edit());
    const bool isOtherInFront = GetForegroundWindow() == other.window();
    clickInto(server.frame());
    constexpr DWORD MOMENT = 500; // ms
    pumpFor(MOMENT);
    return {{"isOtherInFront", isOtherInFront}, {"isStillInFront", GetForegroundWindow() == other.window()}};
}

Judgement judgeClickBeforeUse(const json& seen)
{
    if (!seen["isOtherInFront"].get<bool>()) {
        return undecided("a click did not bring a window of the client to the front");
    }
    return judged(seen["isStillInFront"].get<bool>(), seen["isStillInFront"].get<bool>()
                                                          ? "the other window stays in front"
                                                          : "the client's window comes to the front");
}

constexpr Scenario SCENARIOS[] = {
    {"click", "input", "mouse", "A click on the control's button raises its event.", USUAL_LIMIT, observeClick, judgeClick,
     TELL_THE_MAKERS},
    {"type", "input", "keyboard", "What is typed after a click into the control's field arrives there.", USUAL_LIMIT, observeType,
     judgeType, TELL_THE_MAKERS},
    {"focusWay", "input", "focus there and back", "Keys go where was clicked last: Java, the client's field, Java.", USUAL_LIMIT,
     observeFocus, judgeKeysFollow, TELL_THE_MAKERS},
    {"focusLost", "input", "focus that leaves Java", "Java does not hear that the focus has gone to the client.", USUAL_LIMIT,
     observeFocus, judgeFocusLost, "correct the pages for clients and for controls: Java hears it",
     "it tells also a frame inside another program's window"},
    {"keys", "input", "keys in the frame", "The client sees no key while the focus is in the frame.", USUAL_LIMIT, observeKeys,
     judgeKeys, "correct the page for clients: these keys reach the client"},
    {"parentNotify", "input", "WM_PARENTNOTIFY", "A press in the frame is sent to the pane while Java's thread waits.",
     USUAL_LIMIT, observeParentNotify, judgeParentNotify,
     "correct the page for clients: a busy client does not hold up Java's input"},
    {"sentMessage", "input", "call in a sent message", "COM refuses it (0x8001010D); a call in a posted message works.",
     USUAL_LIMIT, observeHandler, judgeHandler, "correct the page for clients, which says so", "its COM does not check that"},
    {"focusMessage", "input", "call as the focus leaves",
     "COM refuses a call in WM_KILLFOCUS after a click into the frame (0x8001010D).", USUAL_LIMIT, observeFocusHandler,
     judgeHandler, "correct the page for clients, which says so", "its COM does not check that"},
    {"clickBeforeUse", "input", "click before setUsedControl", "The client's window does not come to the front.", USUAL_LIMIT,
     observeClickBeforeUse, judgeClickBeforeUse, "correct the page for clients: it does come to the front"},
};

} // namespace

std::span<const Scenario> inputScenarios()
{
    return SCENARIOS;
}
