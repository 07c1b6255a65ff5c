// A client in its own process. It creates the object, connects a sink, prints "frame ID", and then plays its role:
//   hold           pushes its window, takes the frame in, and releases everything when a line arrives on its standard input
//   hold-unpushed  the same without pushing a window
//   die-in-call    pushes its window, prints "sleeping" and calls a method that takes 40 seconds; the test ends it meanwhile
//   hang-in-sink   pushes its window, has a Java timer raise events, prints "hanging" inside its sink and stays there
//   exit, exitInEvents   pushes its window, prints "calling" and calls the method of this name, which ends the server's process
//   hold-factory   keeps the class object, too
//   die-in-sink    pushes its window, has a Java timer raise events and ends itself inside its sink, while the server waits for
//   it
#include "tests/process/Client.h"

#include <cstdio>
#include <iostream>

using namespace fixtures;

namespace {

constexpr UINT EXIT_CODE_OF_DEATH = 7;
constexpr size_t EVENTS_BEFORE_DEATH = 20;

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
        if (!pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); })) {
            return 4;
        }
    }
    std::printf("frame %d\n", frameId);
    std::fflush(stdout);

    if (role == "die-in-call") {
        std::printf("sleeping\n");
        std::fflush(stdout);
        callMethod(manager, "sleep", "40000");
    }
    if (role.starts_with("exit")) {
        std::printf("calling\n");
        std::fflush(stdout);
        callMethod(manager, role.c_str(), "3");
    }
    if (role == "hang-in-sink") {
        sink.reaction = [](const CSink::Event&) {
            std::printf("hanging\n");
            std::fflush(stdout);
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
