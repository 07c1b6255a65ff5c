// The scenarios of "accept" about the frame inside the client's window: painting, size, parents, scale, graphics.
#include "tool/AcceptClient.h"

#include <psapi.h>
#include <shellscalingapi.h>

#include <format>

using nlohmann::json;

namespace {

constexpr double ALIKE = 0.98; // a blinking caret may differ
constexpr const char* PAINTING =
    "switch Direct3D off (jvm_option_d3d = -Dsun.java2d.d3d=false), update the graphics driver, run again";

json observeTakeIn(CAcceptContext& context)
{
    CAcceptStage stage(context);
    const CAcceptPicture picture(stage.window.pane());
    context.picture("the control in the client's window", CAcceptPicture(stage.window.window()));
    return {{"isPainted", picture.isPainted()}, {"width", picture.width()}, {"height", picture.height()}};
}

Judgement judgePainted(const json& seen)
{
    const bool isPainted = seen["isPainted"].get<bool>();
    return judged(isPainted, std::format("{} x {} pixels {}", seen["width"].get<int>(), seen["height"].get<int>(),
                                         isPainted ? "painted whole" : "not painted, or not whole"));
}

json observeResize(CAcceptContext& context)
{
    constexpr SIZE LARGE = {700, 430};
    constexpr SIZE SMALL = {420, 260};
    CAcceptStage stage(context);
    json seen = json::array();
    for (const SIZE size : {LARGE, SMALL, LARGE}) {
        stage.window.resize(size);
        stage.window.fit(stage.server.frame());
        // A smaller pane is full of the old picture at once, so that alone says nothing about the new size.
        const bool hasSize = pumpUntil([&] {
            RECT frame = {};
            return GetClientRect(stage.server.frame(), &frame) != FALSE && frame.right == size.cx && frame.bottom == size.cy;
        });
        const CAcceptPicture picture = stage.window.waitUntilPainted();
        context.picture(std::format("{} x {} pixels", size.cx, size.cy), picture);
        seen.push_back(hasSize && picture.isPainted());
    }
    return {{"steps", seen}};
}

json observeMinimise(CAcceptContext& context)
{
    constexpr DWORD WHILE = 700; // ms
    CAcceptStage stage(context);
    const CAcceptPicture before(stage.window.pane());
    ShowWindow(stage.window.window(), SW_MINIMIZE);
    pumpFor(WHILE);
    const bool isAway = IsIconic(stage.window.window()) != FALSE;
    ShowWindow(stage.window.window(), SW_RESTORE);
    const CAcceptPicture after = stage.window.waitUntilPainted();
    context.picture("after minimising and restoring", CAcceptPicture(stage.window.window()));
    return {{"isAway", isAway}, {"isPainted", after.isPainted()}, {"likeness", after.likeness(before)}};
}

json observeCover(CAcceptContext& context)
{
    CAcceptStage stage(context);
    const CAcceptPicture before(stage.window.pane());
    RECT place = {};
    GetWindowRect(stage.window.window(), &place);
    CAcceptPicture covered(0, 0, {});
    {
        const CAcceptWindow other({place.left + 30, place.top + 60});
        pumpUntil([&] { return (covered = CAcceptPicture(stage.window.pane())).likeness(before) < ALIKE; });
    }
    const CAcceptPicture after = stage.window.waitUntilPainted();
    context.picture("covered", covered);
    context.picture("uncovered again", after);
    return {{"isAway", covered.likeness(before) < ALIKE}, {"isPainted", after.isPainted()}, {"likeness", after.likeness(before)}};
}

Judgement judgeReturn(const json& seen)
{
    if (!seen["isAway"].get<bool>()) {
        return undecided("the control was visible all the time");
    }
    const double likeness = seen["likeness"].get<double>();
    const bool isPainted = seen["isPainted"].get<bool>();
    return judged(isPainted && likeness >= ALIKE,
                  std::format("{:.1f} % of the pixels as before{}", 100 * likeness, isPainted ? "" : ", not painted whole"));
}

// The two windows stand side by side, so that neither covers the other.
json observeParents(CAcceptContext& context)
{
    constexpr SIZE SMALL = {420, 260};
    CAcceptStage stage(context);
    stage.window.resize(SMALL);
    CAcceptWindow second({520, 60});
    second.resize(SMALL);
    json seen = json::array();
    for (const CAcceptWindow* const parent : {&second, &stage.window}) {
        parent->takeIn(stage.server.frame());
        const CAcceptPicture picture = parent->waitUntilPainted();
        context.picture(parent == &second ? "in a second window of the client" : "back in the first one", picture);
        const size_t before = stage.server.sink.count(CUSTOM_EVENT, "button: ");
        stage.clickButton();
        const bool isHeard = pumpUntil([&] { return stage.server.sink.count(CUSTOM_EVENT, "button: ") > before; });
        seen.push_back(picture.isPainted() && isHeard);
    }
    return {{"steps", seen}};
}

Judgement judgeSteps(const json& seen)
{
    const json& steps = seen["steps"];
    int good = 0;
    for (const json& step : steps) {
        good += step.get<bool>() ? 1 : 0;
    }
    return judged(good == static_cast<int>(steps.size()), std::format("{} of {} times as it should be", good, steps.size()));
}

int awarenessOf(HANDLE process)
{
    PROCESS_DPI_AWARENESS awareness = PROCESS_DPI_UNAWARE;
    return SUCCEEDED(GetProcessDpiAwareness(process, &awareness)) ? awareness : -1;
}

// The client is aware of each monitor's scale, as most programs are.
json observeDpi(CAcceptContext& context)
{
    if (!SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2)) {
        throw CNotHere("this Windows does not let a program say that it is aware of the scale");
    }
    CAcceptServer server(context);
    const int before = awarenessOf(server.process());
    CAcceptWindow window;
    window.takeIn(server.frame());
    server->pushWindowHandle(window.handle());
    window.fit(server.frame());
    server.use(SAMPLE_CONTROL);
    window.waitUntilPainted();
    context.picture("in a client that is aware of the scale", CAcceptPicture(window.window()));
    return {{"before", before},
            {"after", awarenessOf(server.process())},
            {"client", awarenessOf(GetCurrentProcess())},
            {"scale", static_cast<int>(GetDpiForWindow(window.window())) * 100 / USER_DEFAULT_SCREEN_DPI}};
}

Judgement judgeDpi(const json& seen)
{
    if (seen["before"] == -1 || seen["after"] == -1 || seen["client"] == -1) {
        return undecided("Windows does not tell the awareness of one of the processes");
    }
    return judged(seen["before"] == PROCESS_DPI_UNAWARE && seen["after"] == seen["client"],
                  std::format("server's awareness {} before and {} after, client's {}; scale {} %", seen["before"].get<int>(),
                              seen["after"].get<int>(), seen["client"].get<int>(), seen["scale"].get<int>()));
}

json observeGraphics(CAcceptContext& context)
{
    CAcceptStage stage(context);
    std::vector<HMODULE> modules(1024);
    DWORD size = 0;
    if (!EnumProcessModules(stage.server.process(), modules.data(), static_cast<DWORD>(modules.size() * sizeof(HMODULE)),
                            &size)) {
        throw CNotHere("the server's libraries cannot be listed");
    }
    modules.resize(std::min(modules.size(), static_cast<size_t>(size) / sizeof(HMODULE)));
    json libraries = json::array();
    for (const HMODULE module : modules) {
        char name[MAX_PATH] = "";
        GetModuleBaseNameA(stage.server.process(), module, name, sizeof name);
        CharLowerA(name);
        libraries.push_back(name);
    }
    return {{"libraries", libraries}};
}

Judgement judgeGraphics(const json& seen)
{
    std::string found;
    bool hasAwt = false;
    for (const json& library : seen["libraries"]) {
        hasAwt = hasAwt || library == "awt.dll";
        if (library == "d3d9.dll") {
            found += (found.empty() ? "" : ", ") + library.get<std::string>();
        }
    }
    if (!hasAwt) {
        return undecided("Java's graphics were not found in the server");
    }
    return judged(found.empty(), found.empty() ? "Direct3D is not loaded" : "loaded: " + found);
}

constexpr Scenario SCENARIOS[] = {
    {"takeIn", "window", "embedding", "The frame becomes a child of the client's window and is painted whole.", USUAL_LIMIT,
     observeTakeIn, judgePainted, PAINTING},
    {"resize", "window", "resize", "The frame has each new size and is painted whole.", USUAL_LIMIT, observeResize, judgeSteps,
     PAINTING},
    {"minimise", "window", "minimise and restore", "The control looks as before.", USUAL_LIMIT, observeMinimise, judgeReturn,
     PAINTING},
    {"cover", "window", "cover and uncover", "The control looks as before.", USUAL_LIMIT, observeCover, judgeReturn, PAINTING,
     "a window that lies inside another program's is not painted again where it was covered"},
    {"parents", "window", "move between parents", "The frame is painted and works in a second window, and back in the first.",
     USUAL_LIMIT, observeParents, judgeSteps, PAINTING},
    {"dpi", "window", "DPI awareness", "The server is unaware of the scale, and takes on the client's awareness when embedded.",
     USUAL_LIMIT, observeDpi, judgeDpi, "correct the page for clients: the server keeps its own awareness",
     "an embedded window does not change what its program is aware of"},
    {"graphics", "window", "graphics pipeline", "Java paints without Direct3D.", USUAL_LIMIT, observeGraphics, judgeGraphics,
     "remove the option that switches it on (KESTAtool check lists the options), and run again"},
};

} // namespace

std::span<const Scenario> windowScenarios()
{
    return SCENARIOS;
}
