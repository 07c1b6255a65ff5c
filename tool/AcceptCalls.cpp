// The scenarios of "accept" about creation, calls and errors.
#include "tool/AcceptClient.h"

#include <algorithm>
#include <format>
#include <fstream>

using nlohmann::json;

namespace {

constexpr const char* UNKNOWN_METHOD = "nonsense";

json observeCreate(CAcceptContext& context)
{
    CAcceptServer server(context);
    ATL::CComBSTR java;
    server->getVersionInfo(ATL::CComBSTR(L"java"), &java);
    const LONG_PTR style = GetWindowLongPtrA(server.frame(), GWL_EXSTYLE);
    return {{"frameId", server.frameId()},
            {"process", server.processId()},
            {"java", narrow(java)},
            {"isInTaskBar", IsWindowVisible(server.frame()) != FALSE && (style & WS_EX_APPWINDOW) != 0},
            {"isSilent", (style & WS_EX_NOACTIVATE) != 0},
            {"milliseconds", server.creationTime()}};
}

Judgement judgeCreate(const json& seen)
{
    const bool isOwn = seen["frameId"] == seen["process"];
    return judged(isOwn,
                  std::format("frame {} of process {}, Java {}, after {:.0f} ms", seen["frameId"].get<int>(),
                              seen["process"].get<int>(), seen["java"].get<std::string>(), seen["milliseconds"].get<double>()));
}

Judgement judgeTaskBar(const json& seen)
{
    const bool isSilent = seen["isSilent"].get<bool>();
    const bool isInTaskBar = seen["isInTaskBar"].get<bool>();
    return judged(isSilent && !isInTaskBar,
                  std::format("the frame {} activation and {} in the task bar", isSilent ? "takes no" : "takes",
                              isInTaskBar ? "asks for a button" : "has no button"));
}

// Each method once, in an order that keeps the object usable. "name: what came" for those that went wrong.
template <class Call>
json callAll(CAcceptServer& server, Call call)
{
    json wrong = json::array();
    int calls = 0;
    const auto expect = [&](const char* method, const std::string& expected, const std::string& got) {
        ++calls;
        if (got != expected && !(expected == "*" && !got.empty() && !got.starts_with("0x"))) {
            wrong.push_back(std::string(method) + ": " + got);
        }
    };
    const std::string text = "Set by acceptance";
    expect("pushWindowHandle", "", call(19, {"0"}));
    expect("setUsedControl", "*", call(12, {SAMPLE_CONTROL, ""}));
    if (!wrong.empty() && !isControlThere(SAMPLE_CONTROL)) {
        throw CNotHere(std::string("the control ") + SAMPLE_CONTROL + " is not registered, or its jar is not there");
    }
    expect("setProperty", text, call(11, {"title", text}));
    expect("getProperty", text, call(8, {"title"}));
    expect("callMethod", "begun", call(3, {"sum", ""}));
    expect("callMethodCompressed", "begun", call(4, {"sum", "1", ""}));
    expect("setLogLevel", "2", call(10, {"2"}));
    expect("displayDebugConsole", "shown", call(5, {}));
    expect("getBasisControlVersionInfo", "*", call(7, {}));
    expect("getVersionInfo", "*", call(9, {"java"}));
    expect("updateVersion", "*", call(13, {"1.0"}));
    expect("setBounds", "", call(16, {"0", "0", "400", "300"}));
    expect("validate", "", call(15, {}));
    expect("enable", "", call(18, {"-1"}));
    expect("testBridge", "", call(17, {"abc", "1", "0"}));
    expect("getBeanFrameID", std::to_string(server.frameId()), call(14, {}));
    expect("free", "freed", call(6, {}));
    return {{"calls", calls}, {"wrong", wrong}};
}

std::string earlyCall(IJavaManager* object, DISPID method, const std::vector<std::string>& texts)
{
    std::vector<ATL::CComBSTR> words;
    std::vector<int> numbers;
    words.reserve(texts.size());
    numbers.reserve(texts.size());
    for (const std::string& text : texts) {
        words.emplace_back(text.c_str());
        numbers.push_back(std::atoi(text.c_str()));
    }
    ATL::CComBSTR answer;
    int id = 0;
    HRESULT result = E_NOTIMPL;
    switch (method) {
    case 3:
        result = object->callMethod(words[0], words[1], &answer);
        break;
    case 4:
        result = object->callMethodCompressed(words[0], numbers[1], words[2], &answer);
        break;
    case 5:
        result = object->displayDebugConsole(&answer);
        break;
    case 6:
        result = object->free(&answer);
        break;
    case 7:
        result = object->getBasisControlVersionInfo(&answer);
        break;
    case 8:
        result = object->getProperty(words[0], &answer);
        break;
    case 9:
        result = object->getVersionInfo(words[0], &answer);
        break;
    case 10:
        result = object->setLogLevel(numbers[0], &answer);
        break;
    case 11:
        result = object->setProperty(words[0], words[1], &answer);
        break;
    case 12:
        result = object->setUsedControl(words[0], words[1], &answer);
        break;
    case 13:
        result = object->updateVersion(words[0], &answer);
        break;
    case 14:
        result = object->getBeanFrameID(&id);
        return FAILED(result) ? hexadecimal(result) : std::to_string(id);
    case 15:
        result = object->validate();
        break;
    case 16:
        result = object->setBounds(numbers[0], numbers[1], numbers[2], numbers[3]);
        break;
    case 17:
        result = object->testBridge(words[0], numbers[1], numbers[2]);
        break;
    case 18:
        result = object->enable(static_cast<VARIANT_BOOL>(numbers[0]));
        break;
    default:
        result = object->pushWindowHandle(numbers[0]);
    }
    return FAILED(result) ? hexadecimal(result) : narrow(answer);
}

json observeEarly(CAcceptContext& context)
{
    CAcceptServer server(context);
    return callAll(
        server, [&](DISPID method, const std::vector<std::string>& texts) { return earlyCall(server.object(), method, texts); });
}

json observeLate(CAcceptContext& context)
{
    CAcceptServer server(context);
    ATL::CComPtr<IDispatch> object;
    server->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&object));
    return callAll(server, [&](DISPID method, const std::vector<std::string>& texts) {
        const LateAnswer answer = lateCall(object, method, texts);
        return FAILED(answer.result) ? hexadecimal(answer.result) : answer.text;
    });
}

Judgement judgeCalls(const json& seen)
{
    constexpr int METHODS = 17;
    const json& wrong = seen["wrong"];
    return judged(wrong.empty() && seen["calls"] == METHODS,
                  std::format("{} of {} methods answered as they should{}", seen["calls"].get<size_t>() - wrong.size(), METHODS,
                              wrong.empty() ? "" : "; " + wrong.front().get<std::string>()));
}

json observeTexts(CAcceptContext& context)
{
    CAcceptServer server(context);
    server.use(SAMPLE_CONTROL);
    const std::string sent = "Troms\\u00F8 \\u6F22";
    server.set("title", sent);
    return {{"sent", sent}, {"got", server.get("title")}, {"codePage", GetACP()}};
}

Judgement judgeTexts(const json& seen)
{
    return judged(seen["sent"] == seen["got"],
                  std::format("code page {}: {}", seen["codePage"].get<int>(), seen["got"].get<std::string>()));
}

json observeEarlyError(CAcceptContext& context)
{
    CAcceptServer server(context);
    server.use(SAMPLE_CONTROL);
    ATL::CComBSTR answer;
    const HRESULT result = server->callMethod(ATL::CComBSTR(UNKNOWN_METHOD), ATL::CComBSTR(L""), &answer);
    return {{"result", result}, {"text", errorInfoText()}};
}

json observeLateError(CAcceptContext& context)
{
    CAcceptServer server(context);
    server.use(SAMPLE_CONTROL);
    ATL::CComPtr<IDispatch> object;
    server->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&object));
    const LateAnswer answer = lateCall(object, 3, {UNKNOWN_METHOD, ""});
    return {{"result", answer.result}, {"text", answer.description}};
}

Judgement judgeError(const json& seen)
{
    const auto result = seen["result"].get<HRESULT>();
    if (SUCCEEDED(result)) {
        return undecided("the call of a method that is not there did not fail");
    }
    const std::string text = seen["text"].get<std::string>();
    const size_t reason = text.find("Exception: ");
    const std::string line = text.substr(std::min(reason, text.size()));
    return judged(reason != std::string::npos,
                  hexadecimal(result) + (text.empty()                  ? ", without a text"
                                         : reason == std::string::npos ? ", with a text that names no exception"
                                                                       : ", " + line.substr(0, line.find_first_of("\r\n"))));
}

constexpr const char* SCRIPT = R"(Dim control
Set control = CreateObject("KESTAserver.JavaManager.1")
WScript.Echo "frame " & control.getBeanFrameID()
WScript.Echo "java " & control.getVersionInfo("java")
Set control = Nothing
)";

// The script's output; the host runs in a process of its own, which is ended with its time.
std::string runScript(CAcceptContext& context, const std::string& host)
{
    constexpr DWORD SCRIPT_LIMIT = 60000; // ms
    if (GetFileAttributesA(host.c_str()) == INVALID_FILE_ATTRIBUTES) {
        throw CNotHere("there is no " + host);
    }
    const std::string script = context.trail() + ".vbs";
    const std::string outputFile = context.trail() + ".txt";
    std::ofstream(script) << SCRIPT;
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const HANDLE output = CreateFileA(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output;
    PROCESS_INFORMATION started = {};
    std::string command = "\"" + host + "\" //nologo \"" + script + "\"";
    const bool isStarted = CreateProcessA(host.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                          nullptr, &startup, &started) != FALSE;
    CloseHandle(output);
    const ATL::CHandle process(started.hProcess);
    const ATL::CHandle thread(started.hThread);
    const bool isLate = isStarted && WaitForSingleObject(process, SCRIPT_LIMIT) != WAIT_OBJECT_0;
    if (isLate) {
        TerminateProcess(process, 1);
    }
    std::ifstream file(outputFile);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    file.close();
    DeleteFileA(script.c_str());
    DeleteFileA(outputFile.c_str());
    if (!isStarted) {
        throw CNotHere(host + " does not start");
    }
    if (const size_t place = text.find("frame "); place != std::string::npos) {
        context.server(static_cast<DWORD>(std::atoi(text.c_str() + place + 6))); // -1 is no process
    }
    if (isLate) {
        throw std::runtime_error(std::format("the script had not come back after {} s", SCRIPT_LIMIT / 1000));
    }
    return text;
}

std::string systemFolder(UINT(WINAPI* get)(LPSTR, UINT))
{
    char folder[MAX_PATH] = "";
    get(folder, sizeof folder);
    return folder;
}

json observeScript(CAcceptContext& context)
{
    return {{"output", runScript(context, systemFolder(GetSystemDirectoryA) + "\\cscript.exe")}};
}

json observeScript32(CAcceptContext& context)
{
    return {{"output", runScript(context, systemFolder(GetSystemWow64DirectoryA) + "\\cscript.exe")}};
}

Judgement judgeScript(const json& seen)
{
    const std::string output = seen["output"].get<std::string>();
    const bool isGood =
        output.starts_with("frame ") && !output.starts_with("frame -1") && output.find("java ") != std::string::npos;
    std::string line = output;
    std::ranges::replace_if(line, [](char letter) { return letter == '\r' || letter == '\n'; }, ' ');
    return judged(isGood, line.empty() ? "the script printed nothing" : line);
}

constexpr Scenario SCENARIOS[] = {
    {"create", "calls", "creation", "The object is created; its frame has the number of its server's process.", USUAL_LIMIT,
     observeCreate, judgeCreate, "run KESTAtool check, which names what is missing"},
    {"taskBar", "calls", "frame before embedding", "The frame has no task bar button and is not activated.", USUAL_LIMIT,
     observeCreate, judgeTaskBar, TELL_THE_MAKERS},
    {"earlyBound", "calls", "17 methods, early bound", "All methods answer through the interface.", USUAL_LIMIT, observeEarly,
     judgeCalls, TELL_THE_MAKERS},
    {"lateBound", "calls", "17 methods, late bound", "All methods answer through IDispatch.", USUAL_LIMIT, observeLate,
     judgeCalls, TELL_THE_MAKERS},
    {"script", "calls", "64-bit script", "A script of this Windows creates the object and calls it.", USUAL_LIMIT, observeScript,
     judgeScript, TELL_THE_MAKERS},
    {"script32", "calls", "32-bit script", "A 32-bit script creates the object and calls it, late bound.", USUAL_LIMIT,
     observeScript32, judgeScript, TELL_THE_MAKERS},
    {"texts", "calls", "texts", "A text beyond ASCII, encoded, comes back as it was sent.", USUAL_LIMIT, observeTexts, judgeTexts,
     TELL_THE_MAKERS},
    {"earlyError", "calls", "error text, early bound", "A failing call carries the Java exception in its error information.",
     USUAL_LIMIT, observeEarlyError, judgeError, TELL_THE_MAKERS, "it carries no error information between processes"},
    {"lateError", "calls", "error text, late bound", "A failing call carries the Java exception in its exception information.",
     USUAL_LIMIT, observeLateError, judgeError, TELL_THE_MAKERS},
};

} // namespace

std::span<const Scenario> callScenarios()
{
    return SCENARIOS;
}
