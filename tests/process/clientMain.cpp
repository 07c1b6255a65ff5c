// A client in its own process. It creates the object, connects a sink, prints "frame ID", and then plays its role:
//   hold           pushes its window, takes the frame in, and releases everything when a line arrives on its standard input
//   tell           the same, and prints "created" and "pushed" as soon as it has the object and the server its window
//   hold-unpushed  the same without pushing a window
//   hold-factory   keeps the class object, too
//   block-close    pushes its window, makes the control's end take 20 seconds and prints "blocked"
//   sleep          pushes its window, prints "calling" and calls a method that takes 60 seconds; the test ends the client or the
//   server meanwhile
//   hang-in-sink   pushes its window, has a Java timer raise events, destroys the window inside its sink, prints "hanging" and
//   stays there
//   wait-in-sink   pushes its window, has Java raise 6,000 events in half a minute, prints "waiting" inside its sink and stays
//   there until a line arrives; then prints after each thousand how many have come
//   die-in-sink    pushes its window, has a Java timer raise events and ends itself inside its sink, while the server waits for
//   it
//   exit, exitInEvents, crash   pushes its window, prints "calling" and calls the method of this name, which ends the server's
//   process; then prints the results of the call that failed and of one more
//   exit-after-hook      the same with "exit", a shutdown hook that takes 2 seconds and a control whose end takes a minute
#include "tests/process/Client.h"

#include <cstdio>
#include <format>
#include <iostream>
#include <set>

using namespace fixtures;

namespace {

constexpr UINT EXIT_CODE_OF_DEATH = 7;
constexpr size_t EVENTS_BEFORE_DEATH = 20;

void say(const std::string& text)
{
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

// Makes the call, then others until one fails, and one more. Prints the results of the last two.
void callUntilItFails(IJavaManager* manager, const char* name, const char* argument)
{
    const DISPID id = memberId(manager, L"callMethod");
    say("calling");
    HRESULT result = call(manager, id, name, argument).result;
    while (SUCCEEDED(result)) {
        result = call(manager, id, "echo", "").result;
    }
    const HRESULT next = call(manager, id, "echo", "").result;
    say(std::format("failed {:08x}, then {:08x}", static_cast<DWORD>(result), static_cast<DWORD>(next)));
}

int serve(const std::string& role)
{
    ATL::CComPtr<IJavaManager> manager;
    ATL::CComPtr<IClassFactory> factory;
    HRESULT created = role != "hold-factory"
                          ? manager.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER)
                          : CoGetClassObject(CLSID_JavaManager, CLSCTX_LOCAL_SERVER, nullptr, IID_PPV_ARGS(&factory));
    if (factory != nullptr) {
        created = factory->CreateInstance(nullptr, IID_PPV_ARGS(&manager));
    }
    if (FAILED(created)) {
        say(std::format("creation failed {:08x}", static_cast<DWORD>(created)));
        return 1;
    }
    if (role == "tell") {
        say("created");
    }
    int frameId = 0;
    if (FAILED(manager->getBeanFrameID(&frameId))) {
        return 2;
    }
    std::set<std::string> texts; // of the events that have come
    CSink sink;
    CConnection connection(manager, sink);
    CClientWindow window;
    if (role != "hold-unpushed") {
        if (!window.takeIn(frameId) || FAILED(manager->pushWindowHandle(window.handle()))) {
            return 3;
        }
        if (role == "tell") {
            say("pushed");
        }
        if (!pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); })) {
            return 4;
        }
    }
    say("frame " + std::to_string(frameId));

    if (role == "block-close") {
        callMethod(manager, "blockClose", "20000");
        say("blocked");
    }
    if (role == "sleep") {
        callUntilItFails(manager, "sleep", "60000");
    }
    if (role == "exit" || role == "exitInEvents" || role == "crash") {
        callUntilItFails(manager, role.c_str(), "3");
    }
    if (role == "exit-after-hook") {
        callMethod(manager, "blockTheEnd", "2000");
        callMethod(manager, "blockClose", "60000");
        callUntilItFails(manager, "exit", "3");
    }
    if (role == "hang-in-sink") {
        sink.reaction = [&](const CSink::Event&) {
            window.destroy();
            say("hanging");
            Sleep(INFINITE);
        };
        callMethod(manager, "startTimer", "10");
    }
    if (role == "wait-in-sink") {
        sink.events.clear();
        sink.reaction = [&](const CSink::Event& event) {
            texts.insert(event.text);
            if (texts.size() == 1) {
                say("waiting");
                std::string line;
                std::getline(std::cin, line);
            }
            if (texts.size() % 1000 == 0) {
                say(std::format("got {} events, {} different", sink.events.size(), texts.size()));
            }
        };
        callMethod(manager, "burst", "6000;1;5");
        pumpUntil([&] { return !texts.empty(); });
    }
    if (role == "die-in-sink") {
        sink.reaction = [&](const CSink::Event&) {
            if (sink.events.size() > EVENTS_BEFORE_DEATH) {
                TerminateProcess(GetCurrentProcess(), EXIT_CODE_OF_DEATH);
            }
        };
        callMethod(manager, "startTimer", "1");
    }
    const ATL::CHandle lineArrived(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    std::thread reader([&] {
        std::string line;
        std::getline(std::cin, line);
        SetEvent(lineArrived);
    });
    pumpUntil([&] { return WaitForSingleObject(lineArrived, 0) == WAIT_OBJECT_0; }, {lineArrived}, INFINITE);
    reader.join();
    return 0;
}

} // namespace

int main(int count, char** arguments)
{
    CoInitialize(nullptr);
    const int result = count == 2 ? serve(arguments[1]) : -1;
    CoUninitialize();
    return result;
}
