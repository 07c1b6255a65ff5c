// The scenarios of "accept" about the machine: where it runs, who is registered, what watches it.
#include "tool/Accept.h"

#include "tool/AcceptClient.h"
#include "tool/Check.h"
#include "tool/RegistryView.h"
#include "tool/Runtimes.h"

#include <winevt.h>

#include <array>
#include <format>
#include <regex>

using nlohmann::json;

namespace {

constexpr DWORD SHORT_LIMIT = 20000; // ms
constexpr const char* REGISTER = "as administrator, run in the program's folder: KESTAx64.exe /RegServer";

json observeSession(CAcceptContext&)
{
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    USEROBJECTFLAGS flags = {};
    const bool isKnown = GetUserObjectInformationA(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) != FALSE;
    return {{"session", session}, {"isVisible", isKnown && (flags.dwFlags & WSF_VISIBLE) != 0}};
}

Judgement judgeSession(const json& seen)
{
    return judged(seen["isVisible"].get<bool>(),
                  std::format("session {}, {}", seen["session"].get<int>(),
                              seen["isVisible"].get<bool>() ? "with a desktop that is seen" : "without a desktop that is seen"));
}

json observeRegistration(CAcceptContext&)
{
    std::string server;
    const CFindings findings = checkRegistration(server);
    json faults = json::array();
    for (const Row& row : findings.rows()) {
        if (row.verdict == Verdict::Fault) {
            faults.push_back(toUtf8(row.subject + ": " + row.state));
        }
    }
    return {{"server", toUtf8(server)}, {"faults", faults}};
}

Judgement judgeRegistration(const json& seen)
{
    const json& faults = seen["faults"];
    return judged(faults.empty(), (faults.empty() ? seen["server"] : faults.front()).get<std::string>());
}

// "name id offset" of each function, in the library's order.
json functionsOf(ITypeInfo* info)
{
    json functions = json::array();
    TYPEATTR* about = nullptr;
    if (FAILED(info->GetTypeAttr(&about))) {
        return functions;
    }
    for (UINT index = 0; index < about->cFuncs; ++index) {
        FUNCDESC* function = nullptr;
        ATL::CComBSTR name;
        if (SUCCEEDED(info->GetFuncDesc(index, &function))) {
            info->GetDocumentation(function->memid, &name, nullptr, nullptr, nullptr);
            functions.push_back(std::format("{} {} {}", narrow(name), function->memid, function->oVft));
            info->ReleaseFuncDesc(function);
        }
    }
    info->ReleaseTypeAttr(about);
    return functions;
}

json observeTypeLibrary(CAcceptContext&)
{
    const std::string server = serverExecutable();
    ATL::CComPtr<ITypeLib> library;
    const HRESULT loaded = LoadTypeLibEx(ATL::CComBSTR(server.c_str()), REGKIND_NONE, &library);
    json seen = {{"loaded", loaded}, {"methods", json::array()}, {"events", json::array()}};
    ATL::CComPtr<ITypeInfo> events;
    ATL::CComPtr<ITypeInfo> dispatch;
    if (FAILED(loaded)) {
        return seen;
    }
    if (SUCCEEDED(library->GetTypeInfoOfGuid(DIID__IJavaManagerEvents, &events))) {
        seen["events"] = functionsOf(events);
    }
    // The dispatch side of a dual interface comes first; its other side has the offsets.
    HREFTYPE reference = 0;
    ATL::CComPtr<ITypeInfo> dual;
    if (SUCCEEDED(library->GetTypeInfoOfGuid(IID_IJavaManager, &dispatch)) &&
        SUCCEEDED(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference)) &&
        SUCCEEDED(dispatch->GetRefTypeInfo(reference, &dual))) {
        seen["methods"] = functionsOf(dual);
    }
    return seen;
}

Judgement judgeTypeLibrary(const json& seen)
{
    constexpr std::array METHODS = {
        "callMethod",
        "callMethodCompressed",
        "displayDebugConsole",
        "free",
        "getBasisControlVersionInfo",
        "getProperty",
        "getVersionInfo",
        "setLogLevel",
        "setProperty",
        "setUsedControl",
        "updateVersion",
        "getBeanFrameID",
        "validate",
        "setBounds",
        "testBridge",
        "enable",
        "pushWindowHandle",
    };
    json methods = json::array();
    for (size_t index = 0; index < METHODS.size(); ++index) {
        methods.push_back(std::format("{} {} {}", METHODS[index], 3 + index, (7 + index) * sizeof(void*)));
    }
    const json events = {"testBridgeEvent 2 0", "controlReady 3 0", "customEvent 4 0"};
    if (seen["loaded"].get<HRESULT>() < 0) {
        return judged(false, "does not load: " + hexadecimal(seen["loaded"].get<HRESULT>()));
    }
    return judged(seen["methods"] == methods && seen["events"] == events,
                  std::format("{} methods{}, {} events{}", seen["methods"].size(),
                              seen["methods"] == methods ? " with their ids and offsets" : ", not those of the contract",
                              seen["events"].size(), seen["events"] == events ? "" : ", not those of the contract"));
}

json observeJava(CAcceptContext&)
{
    const JVMChoice choice = readJVMChoice(nullptr);
    json offered = json::array();
    for (const JVMEntry& entry : choice.entries) {
        offered.push_back(toUtf8(entry.version));
    }
    const RuntimeFile file = inspectRuntime(choice.chosen.path);
    return {{"offered", offered},
            {"chosen", toUtf8(choice.chosen.version)},
            {"library", toUtf8(choice.chosen.path)},
            {"fault", toUtf8(choice.chosen.path.empty() ? "no library is named"
                             : file.isThere             ? file.fault
                                                        : "it is not there")},
            {"unseen", findRuntimes().size()}};
}

Judgement judgeJava(const json& seen)
{
    const std::string fault = seen["fault"].get<std::string>();
    const std::string chosen = seen["chosen"].get<std::string>();
    const std::string others =
        std::format("; {} offered, {} found on this machine in all", seen["offered"].size(), seen["unseen"].get<size_t>());
    if (chosen.empty()) {
        return judged(false, "none is chosen" + others);
    }
    return judged(fault.empty(), chosen + " (" + (fault.empty() ? seen["library"].get<std::string>() : fault) + ")" + others);
}

json observeControls(CAcceptContext&)
{
    json missing = json::array();
    for (const char* const name : {SAMPLE_CONTROL, TEST_CONTROL}) {
        if (!isControlThere(name)) {
            missing.push_back(name);
        }
    }
    return {{"missing", missing}};
}

Judgement judgeControls(const json& seen)
{
    std::string names;
    for (const json& name : seen["missing"]) {
        names += (names.empty() ? "" : " and ") + name.get<std::string>();
    }
    return judged(names.empty(), names.empty() ? "both are registered" : "not registered, or not in the folder named: " + names);
}

// What Windows' own watchers log about a program.
struct Watcher
{
    const wchar_t* channel;
    const wchar_t* events;
};

constexpr Watcher WATCHERS[] = {
    {L"Microsoft-Windows-CodeIntegrity/Operational", L"EventID=3033 or EventID=3076 or EventID=3077"},
    {L"Microsoft-Windows-Windows Defender/Operational", L"EventID=1116 or EventID=1117 or EventID=1121"},
    {L"Application", L"EventID=1000 or EventID=1001 or EventID=1002"}, // crashes and hangs
};

std::string eventXml(EVT_HANDLE event)
{
    DWORD used = 0;
    DWORD count = 0;
    EvtRender(nullptr, event, EvtRenderEventXml, 0, nullptr, &used, &count);
    std::wstring text(used / sizeof(wchar_t) + 1, L'\0');
    const bool isThere = EvtRender(nullptr, event, EvtRenderEventXml, used, text.data(), &used, &count) != FALSE;
    return isThere ? narrow(ATL::CComBSTR(text.c_str())) : "";
}

json observeWatchers(CAcceptContext& context)
{
    constexpr int MOST_EVENTS = 500; // of each channel, the newest
    const std::string begin = context.runBegin();
    const std::wstring since(begin.begin(), begin.end()); // digits and punctuation
    int opened = 0;
    json logged = json::array();
    for (const Watcher& watcher : WATCHERS) {
        const std::wstring query =
            std::wstring(L"*[System[(") + watcher.events + L") and TimeCreated[@SystemTime>='" + since + L"']]]";
        const EVT_HANDLE results =
            EvtQuery(nullptr, watcher.channel, query.c_str(), EvtQueryChannelPath | EvtQueryReverseDirection);
        if (results == nullptr) {
            continue;
        }
        ++opened;
        EVT_HANDLE event = nullptr;
        DWORD count = 0;
        for (int number = 0; number < MOST_EVENTS && EvtNext(results, 1, &event, 1000, 0, &count) != FALSE; ++number) {
            const std::string xml = eventXml(event);
            if (xml.find("KESTA") != std::string::npos) {
                logged.push_back(eventLine(xml));
            }
            EvtClose(event);
        }
        EvtClose(results);
    }
    if (opened == 0) {
        throw CNotHere("this user cannot read the event logs of code integrity and scanner, or there are none");
    }
    return {{"opened", opened}, {"since", begin}, {"logged", logged}};
}

Judgement judgeWatchers(const json& seen)
{
    const json& logged = seen["logged"];
    const std::string since = seen["since"].get<std::string>();
    return judged(logged.empty(),
                  logged.empty()
                      ? std::format("{} of 3 event logs read, nothing about KESTA since {}", seen["opened"].get<int>(), since)
                      : std::format("{} event{} about KESTA since {}, for instance {}", logged.size(),
                                    logged.size() == 1 ? "" : "s", since, logged.front().get<std::string>()));
}

json observeDebugViewer(CAcceptContext&)
{
    const ATL::CHandle event(OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_BUFFER_READY"));
    return {{"isThere", event != nullptr}};
}

Judgement judgeDebugViewer(const json& seen)
{
    return judged(!seen["isThere"].get<bool>(),
                  seen["isThere"].get<bool>() ? "one is running: each log line waits for it" : "none");
}

json observeElevation(CAcceptContext&)
{
    std::array<wchar_t, 39> classId = {};
    StringFromGUID2(CLSID_JavaManager, classId.data(), static_cast<int>(classId.size()));
    const std::string path = "SOFTWARE\\Classes\\CLSID\\" + narrow(ATL::CComBSTR(classId.data())) + "\\LocalServer32";
    const bool isForMachine = registryText(HKEY_LOCAL_MACHINE, path, "", KEY_WOW64_64KEY).has_value();
    const bool isForUser = registryText(HKEY_CURRENT_USER, path, "", KEY_WOW64_64KEY).has_value();
    if (isForMachine || !isForUser) {
        throw CNotHere("the server is not registered for this user only");
    }
    if (!isElevated()) {
        throw CNotHere("this console is not elevated");
    }
    ATL::CComPtr<IUnknown> object;
    const HRESULT result =
        CoCreateInstance(CLSID_JavaManager, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, reinterpret_cast<void**>(&object));
    if (result == REGDB_E_CLASSNOTREG && !wineVersion().empty()) {
        throw CNotHere("this is Wine: it looks for classes of the machine only, elevated or not");
    }
    return {{"result", result}};
}

Judgement judgeElevation(const json& seen)
{
    const auto result = seen["result"].get<HRESULT>();
    if (FAILED(result) && result != REGDB_E_CLASSNOTREG) {
        return undecided("creating the object gives " + hexadecimal(result));
    }
    return judged(result == REGDB_E_CLASSNOTREG, "creating the object gives " + hexadecimal(result));
}

constexpr Scenario SCENARIOS[] = {
    {"session", "machine", "session", "The program runs where a user sees its windows.", SHORT_LIMIT, observeSession,
     judgeSession, "run it in a console on the machine's own screen, not through a service, SSH or WinRM"},
    {"registration", "machine", "registration", "Class, interfaces and type library are registered and their files are there.",
     SHORT_LIMIT, observeRegistration, judgeRegistration, REGISTER},
    {"typeLibrary", "machine", "type library", "Windows reads the library in the program: 17 methods, 3 events, ids and order.",
     SHORT_LIMIT, observeTypeLibrary, judgeTypeLibrary, REGISTER},
    {"javaOffered", "machine", "Java in the registry",
     "The registry names a 64-bit runtime that is there. (Many installers of today write no such key.)", SHORT_LIMIT, observeJava,
     judgeJava, "choose a runtime: KESTAtool java list, then, as administrator, KESTAtool java use FOLDER"},
    {"controls", "machine", "controls", "The sample control and the test control of the program's folder are registered.",
     SHORT_LIMIT, observeControls, judgeControls,
     "as administrator, for each of the two: reg add HKLM\\SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt\\NAME /reg:32 /v "
     "installpath "
     "/d FOLDER"},
    {"debugViewer", "machine", "debug viewer", "No program collects debug output, which would slow down every call.", SHORT_LIMIT,
     observeDebugViewer, judgeDebugViewer, "close the debug viewer and run again"},
    {"elevation", "machine", "elevation", "An elevated program does not find a server that is registered for the user only.",
     SHORT_LIMIT, observeElevation, judgeElevation, "correct the page for clients: elevated programs do find it"},
};

constexpr Scenario WATCHER_SCENARIOS[] = {
    {"watchers", "machine", "code integrity, scanner, crashes", "Windows has logged nothing against a program of ours.",
     SHORT_LIMIT, observeWatchers, judgeWatchers,
     "look at the event in the event viewer: it tells which program was blocked, or crashed, and why"},
};

} // namespace

std::string eventLine(const std::string& xml)
{
    const auto first = [&](const char* pattern) {
        std::smatch found;
        return std::regex_search(xml, found, std::regex(pattern)) ? found[1].str() : std::string();
    };
    static const std::regex s_data("<Data[^>]*>([^<]+)</Data>");
    std::string line = first("<Provider[^>]* Name=['\"]([^'\"]*)") + " " + first("<EventID[^>]*>([0-9]+)<");
    const char* separator = ": ";
    for (std::sregex_iterator data(xml.begin(), xml.end(), s_data); data != std::sregex_iterator(); ++data) {
        line += separator + (*data)[1].str();
        separator = ", ";
    }
    return line;
}

std::span<const Scenario> machineScenarios()
{
    return SCENARIOS;
}

std::span<const Scenario> watcherScenarios()
{
    return WATCHER_SCENARIOS;
}
