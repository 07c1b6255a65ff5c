// A client in its own process. It creates the object, connects a sink, prints "frame ID", and then plays its role:
//   hold           pushes its window, takes the frame in, and releases everything when a line arrives on its standard input
//   tell           the same, and prints "created" and "pushed" as soon as it has the object and the server its window
//   hold-unpushed  the same without pushing a window
//   hold-factory   keeps the class object, too
//   block-close    pushes its window, makes the control's end take 20 seconds and prints "blocked"
//   die-in-call    pushes its window, prints "sleeping" and calls a method that takes 60 seconds; the test ends it meanwhile
//   hang-in-sink   pushes its window, has a Java timer raise events, prints "hanging" inside its sink and stays there
//   die-in-sink    pushes its window, has a Java timer raise events and ends itself inside its sink, while the server waits for
//   it
//   exit, exitInEvents, crash   pushes its window, prints "calling" and calls the method of this name, which ends the server's
//   process
//   exit-after-hook      the same with "exit", a shutdown hook that takes 2 seconds and a control whose end takes a minute
#include "tests/process/Client.h"

#include <cstdio>
#include <iostream>

using namespace fixtures;

namespace {

constexpr UINT EXIT_CODE_OF_DEATH = 7;
constexpr size_t EVENTS_BEFORE_DEATH = 20;

void say(const std::string& text)
{
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

int serve(const std::string& role)
{
    ATL::CComPtr<IJavaManager> manager;
    ATL::CComPtr<IClassFactory> factory;
    const HRESULT created = role != "hold-factory"
                                ? manager.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER)
                                : CoGetClassObject(CLSID_JavaManager, CLSCTX_LOCAL_SERVER, nullptr, IID_PPV_ARGS(&factory));
    if (FAILED(created) || (factory != nullptr && FAILED(factory->CreateInstance(nullptr, IID_PPV_ARGS(&manager))))) {
        return 1;
    }
    if (role == "tell") {
        say("created");
    }
    int frameId = 0;
    if (FAILED(manager->getBeanFrameID(&frameId))) {
        return 2;
    }
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
    if (role == "die-in-call") {
        say("sleeping");
        callMethod(manager, "sleep", "60000");
    }
    if (role == "exit" || role == "exitInEvents" || role == "crash") {
        say("calling");
        callMethod(manager, role.c_str(), "3");
    }
    if (role == "exit-after-hook") {
        callMethod(manager, "blockTheEnd", "2000");
        callMethod(manager, "blockClose", "60000");
        say("calling");
        callMethod(manager, "exit", "3");
    }
    if (role == "hang-in-sink") {
        sink.reaction = [](const CSink::Event&) {
            say("hanging");
            Sleep(INFINITE);
        };
        callMethod(manager, "startTimer", "10");
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
