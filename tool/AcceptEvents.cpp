// The scenarios of "accept" about events.
#include "tool/AcceptClient.h"

#include <algorithm>
#include <atomic>
#include <format>
#include <set>
#include <thread>

using nlohmann::json;

namespace {

json observeEvents(CAcceptContext& context)
{
    CAcceptStage stage(context);
    CAcceptSink& sink = stage.server.sink;
    const CStopwatch watch;
    stage.server->testBridge(ATL::CComBSTR(L"abc"), 3, 0);
    const bool isBack = pumpUntil([&] { return sink.count(TEST_BRIDGE_EVENT) > 0; });
    const double time = watch.milliseconds();
    const std::string answer = isBack ? std::ranges::find(sink.events, TEST_BRIDGE_EVENT, &AcceptEvent::id)->text : "";
    stage.server.call("sum", "");
    pumpUntil([&] { return sink.count(CUSTOM_EVENT, "sum;") > 0; });
    return {{"bridge", answer},
            {"ready", sink.count(CONTROL_READY)},
            {"custom", sink.count(CUSTOM_EVENT, "sum;2613")},
            {"milliseconds", time}};
}

Judgement judgeEvents(const json& seen)
{
    const bool isAll = seen["bridge"] == "abcSJBbjs" && seen["ready"] == 1 && seen["custom"] == 1;
    return judged(isAll,
                  std::format("testBridgeEvent \"{}\" after {:.1f} ms, controlReady {} times, customEvent of the sum {} times",
                              seen["bridge"].get<std::string>(), seen["milliseconds"].get<double>(), seen["ready"].get<int>(),
                              seen["custom"].get<int>()));
}

json observeDelay(CAcceptContext& context)
{
    constexpr int DELAY = 500; // ms
    CAcceptServer server(context);
    const CStopwatch watch;
    server->testBridge(ATL::CComBSTR(L"late"), 3, DELAY);
    const bool isBack = pumpUntil([&] { return server.sink.count(TEST_BRIDGE_EVENT) > 0; });
    return {{"delay", DELAY}, {"milliseconds", isBack ? watch.milliseconds() : -1}};
}

Judgement judgeDelay(const json& seen)
{
    constexpr double TICK = 16;        // ms, of the clock that the timer goes by
    constexpr double MOST_LATER = 300; // ms
    const double time = seen["milliseconds"].get<double>();
    const double late = time - seen["delay"].get<double>();
    return judged(late >= -TICK && late <= MOST_LATER,
                  std::format("wanted after {} ms, {}", seen["delay"].get<int>(),
                              time < 0 ? "did not come" : std::format("came after {:.0f} ms", time)));
}

json observeThreads(CAcceptContext& context)
{
    constexpr size_t THREADS = 4;
    constexpr size_t EACH = 250;
    CAcceptServer server(context);
    server.use(TEST_CONTROL);
    server.call("burst", std::format("{};{}", EACH, THREADS));
    pumpUntil([&] { return server.sink.count(CUSTOM_EVENT, "burst 1.") == EACH * THREADS; });
    std::set<std::string> different;
    for (const AcceptEvent& event : server.sink.events) {
        different.insert(event.text);
    }
    json perThread = json::array();
    for (size_t thread = 1; thread <= THREADS; ++thread) {
        perThread.push_back(server.sink.count(CUSTOM_EVENT, std::format("burst 1.{}.", thread)));
    }
    return {{"sent", EACH * THREADS}, {"different", different.size()}, {"perThread", perThread}};
}

Judgement judgeThreads(const json& seen)
{
    size_t sum = 0;
    for (const json& count : seen["perThread"]) {
        sum += count.get<size_t>();
    }
    return judged(seen["different"] == seen["sent"] && sum == seen["sent"].get<size_t>(),
                  std::format("{} raised, {} came, {} of them different; by thread {}", seen["sent"].get<int>(), sum,
                              seen["different"].get<int>(), seen["perThread"].dump()));
}

json observeTwo(CAcceptContext& context)
{
    CAcceptServer first(context);
    CAcceptServer second(context);
    first.use(SAMPLE_CONTROL);
    second.use(SAMPLE_CONTROL);
    first.set("title", "first");
    second.set("title", "second");
    return {{"processes", {first.processId(), second.processId()}}, {"titles", {first.get("title"), second.get("title")}}};
}

Judgement judgeTwo(const json& seen)
{
    const json& processes = seen["processes"];
    const json titles = {"first", "second"};
    return judged(processes[0] != processes[1] && seen["titles"] == titles,
                  std::format("processes {}, titles {}", processes.dump(), seen["titles"].dump()));
}

// Refuses incoming calls as an office program does while a cell is edited.
class CBusyFilter : public IMessageFilter
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown = iid == IID_IUnknown || iid == IID_IMessageFilter;
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP_(DWORD) HandleInComingCall(DWORD, HTASK, DWORD, LPINTERFACEINFO) override
    {
        return isBusy ? SERVERCALL_RETRYLATER : SERVERCALL_ISHANDLED;
    }
    STDMETHODIMP_(DWORD) RetryRejectedCall(HTASK, DWORD, DWORD) override { return static_cast<DWORD>(-1); }
    STDMETHODIMP_(DWORD) MessagePending(HTASK, DWORD, DWORD) override { return PENDINGMSG_WAITDEFPROCESS; }

    bool isBusy = false;
};

json observeBusy(CAcceptContext& context)
{
    constexpr int EVENTS = 3;
    constexpr DWORD WHILE = 1500;     // ms
    constexpr DWORD TOO_LONG = 10000; // for an event that the server then gives up, and no second one
    CAcceptServer server(context);
    server.use(SAMPLE_CONTROL);
    CBusyFilter filter;
    ATL::CComPtr<IMessageFilter> before;
    if (FAILED(CoRegisterMessageFilter(&filter, &before))) {
        throw CNotHere("no message filter can be registered");
    }
    server.set("rows", "a;1");
    server.call("sum", "");
    const bool comesBefore = pumpUntil([&] { return server.sink.count(CUSTOM_EVENT, "sum;1") > 0; });
    server.sink.events.clear();
    filter.isBusy = true;
    for (int number = 0; number < EVENTS; ++number) {
        server.call("sum", "");
    }
    pumpFor(WHILE);
    const size_t early = server.sink.count(CUSTOM_EVENT, "sum;1");
    filter.isBusy = false;
    pumpFor(WHILE);
    const size_t came = server.sink.count(CUSTOM_EVENT, "sum;1");
    filter.isBusy = true;
    server.call("sum", "");
    pumpFor(TOO_LONG);
    filter.isBusy = false;
    pumpFor(WHILE);
    const size_t tooLate = server.sink.count(CUSTOM_EVENT, "sum;1") - came;
    server.call("sum", "");
    const bool comesAgain = pumpUntil([&] { return server.sink.count(CUSTOM_EVENT, "sum;1") > came + tooLate; });
    CoRegisterMessageFilter(before, nullptr);
    return {{"comesBefore", comesBefore}, {"raised", EVENTS},        {"early", early}, {"came", came},
            {"tooLate", tooLate},         {"comesAgain", comesAgain}};
}

Judgement judgeBusy(const json& seen)
{
    if (!seen["comesBefore"].get<bool>()) {
        return undecided("no event came even before the client refused any");
    }
    return judged(
        seen["early"] == 0 && seen["came"] == seen["raised"] && seen["tooLate"] == 0 && seen["comesAgain"].get<bool>(),
        std::format("{} of {} events came, {} of them while the client refused; one that it refused for ten seconds {}; "
                    "afterwards events {}",
                    seen["came"].get<int>(), seen["raised"].get<int>(), seen["early"].get<int>(),
                    seen["tooLate"] == 0 ? "is lost" : "came",
                    seen["comesAgain"].get<bool>() ? "come again" : "do not come any more"));
}

// A call from a second thread of the client, while the first one does not come out of its sink.
json observeFullQueue(CAcceptContext& context)
{
    constexpr DWORD STUCK = 12000; // ms
    constexpr DWORD CALL_AFTER = 6000;
    CAcceptServer server(context);
    server.use(TEST_CONTROL);
    ATL::CComPtr<IStream> stream;
    CoMarshalInterThreadInterfaceInStream(IID_IJavaManager, server.object(), &stream);
    HRESULT result = E_PENDING; // no call was made
    std::atomic<bool> isStuck{false};
    bool wasStuck = false;
    std::thread other([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        ATL::CComPtr<IJavaManager> object;
        if (SUCCEEDED(CoUnmarshalInterface(stream, IID_IJavaManager, reinterpret_cast<void**>(&object)))) {
            Sleep(CALL_AFTER);
            int id = 0;
            result = isStuck ? object->getBeanFrameID(&id) : result;
        }
        object.Release();
        CoUninitialize();
    });
    server.sink.reaction = [&](const AcceptEvent&) {
        if (!std::exchange(wasStuck, true)) {
            isStuck = true;
            Sleep(STUCK);
            isStuck = false;
        }
    };
    server.call("burst", "12000;1");
    pumpUntil([&] { return wasStuck; });
    other.join();
    return {{"result", result}};
}

Judgement judgeFullQueue(const json& seen)
{
    const auto result = seen["result"].get<HRESULT>();
    if (result == E_PENDING) {
        return undecided("no call could be made while a sink was stuck");
    }
    return judged(FAILED(result), "the other thread's call gives " + hexadecimal(result));
}

constexpr Scenario SCENARIOS[] = {
    {"events", "calls", "three events", "All three events reach the sink, through Java.", USUAL_LIMIT, observeEvents, judgeEvents,
     TELL_THE_MAKERS},
    {"delay", "calls", "delayed event", "An event with a delay comes when it is due.", USUAL_LIMIT, observeDelay, judgeDelay,
     TELL_THE_MAKERS},
    {"fourThreads", "calls", "events of four threads", "All events of four Java threads come, each once.", USUAL_LIMIT,
     observeThreads, judgeThreads, TELL_THE_MAKERS},
    {"twoServers", "calls", "two servers", "Two objects have two processes and share nothing.", USUAL_LIMIT, observeTwo, judgeTwo,
     TELL_THE_MAKERS},
    {"busyClient", "calls", "busy client",
     "Events for a client that refuses calls for a moment come late; after five seconds one is lost.", USUAL_LIMIT, observeBusy,
     judgeBusy, TELL_THE_MAKERS, "it delivers calls by its own rules"},
    {"fullQueue", "calls", "12,000 events at once", "While a sink is stuck under many events, other calls to the server fail.",
     USUAL_LIMIT, observeFullQueue, judgeFullQueue, "correct the page for clients: other calls go on",
     "its message queues take more"},
};

} // namespace

std::span<const Scenario> eventScenarios()
{
    return SCENARIOS;
}
