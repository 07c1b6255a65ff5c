// The scenarios of "accept" about times, and about how servers end; then those that only a person can show.
#include "tool/AcceptClient.h"

#include <winternl.h>

#include <algorithm>
#include <cmath>
#include <format>
#include <fstream>

using nlohmann::json;

namespace {

constexpr DWORD END_LIMIT = 5000;
constexpr DWORD WATCHDOG_LIMIT = 20000;
constexpr DWORD PING_LIMIT = 8 * 60 * 1000; // COM's own clean-up takes about six minutes

// Median and middle half of times in ms.
json figure(const char* name, std::vector<double> times)
{
    std::ranges::sort(times);
    const auto at = [&](double part) {
        return times[static_cast<size_t>(std::lround(part * static_cast<double>(times.size() - 1)))];
    };
    return {{"name", name}, {"count", times.size()}, {"median", at(0.5)}, {"lower", at(0.25)}, {"upper", at(0.75)}};
}

json observeFigures(CAcceptContext& context)
{
    constexpr int STARTS = 3;
    constexpr int CALLS = 200;
    constexpr int EVENTS = 50;
    std::vector<double> starts;
    std::vector<double> calls;
    std::vector<double> events;
    std::vector<double> trips;
    for (int number = 1; number < STARTS; ++number) {
        CAcceptServer server(context);
        starts.push_back(server.creationTime());
        server.release(END_LIMIT);
    }
    CAcceptServer server(context);
    starts.push_back(server.creationTime());
    server.use(SAMPLE_CONTROL);
    for (int number = 0; number < CALLS; ++number) {
        const CStopwatch watch;
        server.get("title");
        calls.push_back(watch.milliseconds());
    }
    const auto wait = [&](std::vector<double>& times, DISPID id, const auto& raise) {
        const size_t before = server.sink.count(id);
        const CStopwatch watch;
        raise();
        if (!pumpUntil([&] { return server.sink.count(id) > before; })) {
            throw std::runtime_error("an event does not come");
        }
        times.push_back(watch.milliseconds());
    };
    for (int number = 0; number < EVENTS; ++number) {
        wait(events, CUSTOM_EVENT, [&] { server.call("sum", ""); });
        wait(trips, TEST_BRIDGE_EVENT, [&] { server->testBridge(ATL::CComBSTR(L"abc"), 3, 0); });
    }
    return {{"figures", {figure("start", starts), figure("call", calls), figure("event", events), figure("round trip", trips)}}};
}

Judgement judgeFigures(const json& seen)
{
    constexpr double MOST[] = {20000, 10, 50, 50}; // ms, in the order of the figures
    std::string text;
    bool isGood = true;
    for (size_t index = 0; index < std::size(MOST); ++index) {
        const json& figure = seen["figures"][index];
        const double median = figure["median"].get<double>();
        isGood = isGood && median <= MOST[index];
        text += std::format("{}{} {:.1f} ms", index == 0 ? "" : ", ", figure["name"].get<std::string>(), median);
    }
    return judged(isGood, text + " (medians)");
}

json observeEnd(CAcceptContext& context)
{
    CAcceptStage stage(context);
    const CStopwatch watch;
    const std::optional<DWORD> exitCode = stage.server.release(WATCHDOG_LIMIT);
    return {{"isGone", exitCode.has_value()},
            {"exitCode", exitCode.value_or(STILL_ACTIVE)},
            {"milliseconds", watch.milliseconds()},
            {"limit", END_LIMIT}};
}

Judgement judgeEnd(const json& seen)
{
    const bool isGone = seen["isGone"].get<bool>();
    const double time = seen["milliseconds"].get<double>();
    const bool isGood = isGone && seen["exitCode"] == 0 && time <= seen["limit"].get<double>();
    return judged(isGood, isGone
                              ? std::format("gone after {:.1f} s with exit code {}", time / 1000, seen["exitCode"].get<DWORD>())
                              : std::format("still there after {:.0f} s", time / 1000));
}

json observeCycles(CAcceptContext& context)
{
    const int cycles = context.isLong() ? 200 : 5;
    int good = 0;
    double slowest = 0;
    for (int number = 0; number < cycles; ++number) {
        CAcceptServer server(context);
        const CStopwatch watch;
        good += server.release(END_LIMIT) == 0u ? 1 : 0; // the limit comes on top of the call itself
        slowest = std::max(slowest, watch.milliseconds());
    }
    return {{"cycles", cycles}, {"good", good}, {"milliseconds", slowest}};
}

Judgement judgeCycles(const json& seen)
{
    return judged(seen["good"] == seen["cycles"] && seen["milliseconds"].get<double>() <= END_LIMIT,
                  std::format("{} of {} ended with exit code 0, the slowest after {:.1f} s", seen["good"].get<int>(),
                              seen["cycles"].get<int>(), seen["milliseconds"].get<double>() / 1000));
}

json observeDestroyedPane(CAcceptContext& context)
{
    CAcceptStage stage(context);
    stage.window.destroy();
    const CStopwatch watch;
    pumpUntil([&] { return WaitForSingleObject(stage.server.process(), 0) == WAIT_OBJECT_0; }, WATCHDOG_LIMIT);
    DWORD exitCode = STILL_ACTIVE;
    GetExitCodeProcess(stage.server.process(), &exitCode);
    return {{"isGone", WaitForSingleObject(stage.server.process(), 0) == WAIT_OBJECT_0},
            {"exitCode", exitCode},
            {"milliseconds", watch.milliseconds()},
            {"limit", WATCHDOG_LIMIT}};
}

// A client in a process of its own, which ends with this one at the latest.
class CVictim
{
public:
    CVictim(const CAcceptContext& context, const char* role)
        : m_job(CreateJobObjectA(nullptr, nullptr))
    {
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(m_job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        char program[MAX_PATH + 1] = "";
        GetModuleFileNameA(nullptr, program, sizeof program);
        std::string command = std::format(R"("{}" probe --answer "{}.x" --scenario {} --trail "{}")", program, context.trail(),
                                          role, context.trail());
        STARTUPINFOA startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started = {};
        if (!CreateProcessA(program, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                            &started)) {
            throw std::runtime_error("the client cannot be started");
        }
        m_process.Attach(started.hProcess);
        CloseHandle(started.hThread);
        AssignProcessToJobObject(m_job, m_process);
    }
    // The server that the client has been given, once the client is ready.
    DWORD waitForServer(const std::string& trail) const
    {
        DWORD server = 0;
        const bool isReady = pumpUntil(
            [&] {
                std::ifstream file(trail);
                bool isReadyNow = false;
                for (std::string word; file >> word;) {
                    if (word == "server") {
                        file >> server;
                    }
                    isReadyNow = isReadyNow || word == "holding";
                }
                return isReadyNow || WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0;
            },
            USUAL_LIMIT / 2);
        if (!isReady || server == 0 || WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0) {
            throw std::runtime_error("the client that was to be ended did not get so far");
        }
        return server;
    }
    void end() const { TerminateProcess(m_process, 1); }

private:
    ATL::CHandle m_job;
    ATL::CHandle m_process;
};

json observeDeadClient(CAcceptContext& context, const char* role, DWORD limit)
{
    const CVictim victim(context, role);
    const DWORD id = victim.waitForServer(context.trail());
    const ATL::CHandle server(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, id));
    if (server == nullptr) {
        throw std::runtime_error("the server's process cannot be opened: " + lastErrorText());
    }
    victim.end();
    const CStopwatch watch;
    const bool isGone = pumpUntil([&] { return WaitForSingleObject(server, 0) == WAIT_OBJECT_0; }, limit);
    DWORD exitCode = STILL_ACTIVE;
    GetExitCodeProcess(server, &exitCode);
    return {{"isGone", isGone}, {"exitCode", exitCode}, {"milliseconds", watch.milliseconds()}, {"limit", limit}};
}

json observeDeadAfterPush(CAcceptContext& context)
{
    return observeDeadClient(context, "holdPushed", WATCHDOG_LIMIT);
}

// A server that stays is what Wine is known for. One that ends by itself has to end well there, too.
Judgement judgeEndWithoutClient(const json& seen)
{
    Judgement judgement = judgeEnd(seen);
    judgement.isBeyondWine = seen["isGone"].get<bool>();
    return judgement;
}

json observeDeadBeforePush(CAcceptContext& context)
{
    return observeDeadClient(context, "holdUnpushed", PING_LIMIT);
}

// The role of the client that is ended by others.
json holdPushed(CAcceptContext& context)
{
    CAcceptStage stage(context);
    context.step("holding");
    pumpFor(INFINITE);
    return nullptr;
}

json holdUnpushed(CAcceptContext& context)
{
    CAcceptServer server(context);
    context.step("holding");
    pumpFor(INFINITE);
    return nullptr;
}

json observeDeadServer(CAcceptContext& context)
{
    CAcceptStage stage(context);
    TerminateProcess(stage.server.process(), 1);
    WaitForSingleObject(stage.server.process(), END_LIMIT);
    const CStopwatch watch;
    std::string value;
    const HRESULT result = stage.server.tryGet("title", value);
    const double time = watch.milliseconds();
    const bool isFrameGone = pumpUntil([&] { return IsWindow(stage.server.frame()) == FALSE; }, END_LIMIT);
    return {{"result", result}, {"milliseconds", time}, {"isFrameGone", isFrameGone}};
}

Judgement judgeDeadServer(const json& seen)
{
    constexpr HRESULT EXPECTED[] = {HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), HRESULT_FROM_WIN32(RPC_S_CALL_FAILED),
                                    RPC_E_DISCONNECTED, RPC_E_SERVER_DIED};
    const auto result = seen["result"].get<HRESULT>();
    const bool isGood = std::ranges::find(EXPECTED, result) != std::end(EXPECTED) && seen["isFrameGone"].get<bool>() &&
                        seen["milliseconds"].get<double>() <= END_LIMIT;
    return judged(isGood,
                  std::format("a call gives {} after {:.0f} ms, the frame is {}", hexadecimal(result),
                              seen["milliseconds"].get<double>(), seen["isFrameGone"].get<bool>() ? "gone" : "still there"));
}

void readMemory(HANDLE process, const void* place, void* content, size_t size)
{
    if (!ReadProcessMemory(process, place, content, size, nullptr)) {
        throw CNotHere("the server's parameters cannot be read");
    }
}

template <class Value>
Value valueAt(HANDLE process, const void* place)
{
    Value value = {};
    readMemory(process, place, static_cast<void*>(&value), sizeof value);
    return value;
}

std::wstring textAt(HANDLE process, const void* place, size_t bytes)
{
    std::wstring text(bytes / sizeof(wchar_t), L'\0');
    readMemory(process, place, text.data(), text.size() * sizeof(wchar_t));
    return text;
}

// Where Windows keeps for a process what it was started with. The offsets are those of 64 bits.
const char* parametersOf(HANDLE process)
{
    PROCESS_BASIC_INFORMATION about = {};
    if (NtQueryInformationProcess(process, ProcessBasicInformation, &about, sizeof about, nullptr) != 0) {
        throw CNotHere("the server's parameters cannot be read");
    }
    return reinterpret_cast<const char*>(valueAt<PEB>(process, about.PebBaseAddress).ProcessParameters);
}
constexpr size_t FOLDER_OFFSET = 0x38; // a counted text
constexpr size_t VARIABLES_OFFSET = 0x80;
constexpr size_t VARIABLES_SIZE_OFFSET = 0x3F0; // in bytes

json observeFolder(CAcceptContext& context)
{
    CAcceptServer server(context);
    const auto folder = valueAt<UNICODE_STRING>(server.process(), parametersOf(server.process()) + FOLDER_OFFSET);
    const std::wstring text = textAt(server.process(), folder.Buffer, folder.Length);
    char system[MAX_PATH] = "";
    GetSystemDirectoryA(system, sizeof system);
    return {{"folder", narrow(ATL::CComBSTR(text.c_str()))}, {"system", system}};
}

Judgement judgeFolder(const json& seen)
{
    std::string folder = seen["folder"].get<std::string>();
    if (folder.ends_with('\\')) {
        folder.pop_back();
    }
    return judged(lstrcmpiA(folder.c_str(), seen["system"].get<std::string>().c_str()) == 0, folder);
}

json observeVariables(CAcceptContext& context)
{
    SetEnvironmentVariableA("KESTA_OF_THE_CLIENT", "1");
    CAcceptServer server(context);
    const char* const parameters = parametersOf(server.process());
    std::wstring variables = L'\0' + textAt(server.process(), valueAt<void*>(server.process(), parameters + VARIABLES_OFFSET),
                                            valueAt<size_t>(server.process(), parameters + VARIABLES_SIZE_OFFSET));
    CharUpperBuffW(variables.data(), static_cast<DWORD>(variables.size()));
    const auto has = [&](const std::wstring& name) { return variables.find(L'\0' + name + L'=') != std::wstring::npos; };
    return {{"hasOwn", has(L"SYSTEMROOT")}, {"hasClients", has(L"KESTA_OF_THE_CLIENT")}};
}

Judgement judgeVariables(const json& seen)
{
    if (!seen["hasOwn"].get<bool>()) {
        return undecided("the server's variables were not found");
    }
    return judged(!seen["hasClients"].get<bool>(), seen["hasClients"].get<bool>() ? "a variable of the client reaches the server"
                                                                                  : "a variable of the client is not there");
}

constexpr Scenario SCENARIOS[] = {
    {"figures", "times", "figures", "Start within 20 s, call within 10 ms, event and round trip within 50 ms (medians).", 120000,
     observeFigures, judgeFigures, "look for a scanner or debug viewer, and run again; KESTAtool log FILE shows slow calls"},
    {"currentFolder", "life", "current folder", "The server's current folder is the system's.", USUAL_LIMIT, observeFolder,
     judgeFolder, "correct the page for controls: relative file names lead elsewhere", "its servers have the client's folder"},
    {"variables", "life", "environment variables", "The server has the variables of its user, not those of the client.",
     USUAL_LIMIT, observeVariables, judgeVariables, "correct the page for administrators: variables of a console do reach it",
     "its servers have the client's variables"},
    {"cleanEnd", "life", "clean end", "After the last release the server is gone within 5 s, with exit code 0.", USUAL_LIMIT,
     observeEnd, judgeEnd, TELL_THE_MAKERS},
    {"cycles", "life", "start and end again and again", "Every server ends within 5 s with exit code 0.", 1800000, observeCycles,
     judgeCycles, TELL_THE_MAKERS},
    {"destroyedPane", "life", "pane destroyed", "The server ends itself within 20 s, with exit code 0.", USUAL_LIMIT,
     observeDestroyedPane, judgeEnd, TELL_THE_MAKERS},
    {"deadClient", "life", "client killed", "The server ends itself within 20 s, with exit code 0.", USUAL_LIMIT,
     observeDeadAfterPush, judgeEnd, TELL_THE_MAKERS},
    {"deadClientEarly", "life", "client killed before it pushed a window",
     "COM drops the dead client's references after some minutes, and the server ends.", PING_LIMIT + USUAL_LIMIT,
     observeDeadBeforePush, judgeEndWithoutClient, "end such servers in the task manager, and tell the makers",
     "it never drops a dead client's references", nullptr, true},
    {"deadServer", "life", "server ended under the client", "A call fails at once, and the client goes on.", USUAL_LIMIT,
     observeDeadServer, judgeDeadServer, TELL_THE_MAKERS},
};

constexpr Scenario ROLES[] = {
    {"holdPushed", "", "", "", INFINITE, holdPushed, nullptr, ""},
    {"holdUnpushed", "", "", "", INFINITE, holdUnpushed, nullptr, ""},
};

constexpr Scenario BY_HAND[] = {
    {"remoteDesktop", "by hand", "remote desktop", "The control is painted whole after connecting and disconnecting.", 0, nullptr,
     nullptr, "", nullptr, "take the frame in with KESTAhost, connect by remote desktop and go back to the screen"},
    {"secondMonitor", "by hand", "second monitor", "Popups of the control open on the monitor that the window was dragged to.", 0,
     nullptr, nullptr, "", nullptr, "drag KESTAhost to a second monitor and open a combo box at its lower edge"},
    {"busyWindow", "by hand", "client that handles no messages", "Meanwhile mouse and keyboard do nothing in the control either.",
     0, nullptr, nullptr, "", nullptr, "let a client sleep ten seconds in a button's handler, and click into the control"},
    {"openPopup", "by hand", "open combo box", "It stays open when the user clicks into a field of the client.", 0, nullptr,
     nullptr, "", nullptr, "open a combo box of the control and click beside the frame"},
    {"javaDialog", "by hand", "Java's dialogs for files and printers", "They look as in old versions of Windows.", 0, nullptr,
     nullptr, "", nullptr, "use a control that opens such a dialog of Windows (FileDialog, PrintJob)"},
    {"firstStart", "by hand", "first start after a boot",
     "It takes 5 to 20 s, and some clients show \"Server Busy\" when they are clicked meanwhile.", 0, nullptr, nullptr, "",
     nullptr, "boot, start a client of each kind that is in use, and click into it while the control is missing"},
    {"systemBox", "by hand", "library that Java lacks", "A box of the system names it while the client waits.", 0, nullptr,
     nullptr, "", nullptr, "on a machine for tests, take vcruntime140.dll away from a runtime, and start a client"},
    {"codePage", "by hand", "log folder on a Japanese or Chinese Windows",
     "When its name ends in a letter whose last byte is that of a backslash, the logs lie beside it.", 0, nullptr, nullptr, "",
     nullptr, "name such a folder in logpath (U+8868 in Japanese) and start a client"},
    {"inputMethod", "by hand", "input method", "Japanese or Chinese can be typed into the control.", 0, nullptr, nullptr, "",
     nullptr, "type into the control's field with an input method switched on"},
    {"modalDialog", "by hand", "modal dialog of the control", "The client's own controls stay usable meanwhile.", 0, nullptr,
     nullptr, "", nullptr, "use a control that shows a dialog"},
    {"earlyBound32", "by hand", "32-bit program, early bound",
     "QueryInterface gives E_NOINTERFACE until the type library has an entry win32.", 0, nullptr, nullptr, "", nullptr,
     "this program has 64 bits; use a 32-bit client of your own"},
    {"javaUpdate", "by hand", "update of Java", "After some updates the registry names no current runtime any more.", 0, nullptr,
     nullptr, "", nullptr, "update the Java that is in use, then run KESTAtool check"},
    {"registerInScript", "by hand", "registration in a script", "PowerShell does not wait for /RegServer without -Wait.", 0,
     nullptr, nullptr, "", nullptr, "this program changes no registration; run Start-Process with and without -Wait"},
};

} // namespace

std::span<const Scenario> lifeScenarios()
{
    return SCENARIOS;
}

std::span<const Scenario> clientRoles()
{
    return ROLES;
}

std::span<const Scenario> personScenarios()
{
    return BY_HAND;
}
