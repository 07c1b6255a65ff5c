// How much memory the server needs: private bytes after the start, measured against a minimal program with the same VM and
// frame, and how many calls and events add.
#include "bench/countingSink.h"
#include "bench/harness.h"
#include "bench/servers.h"

#include <iostream>
#include <stdexcept>

namespace {

constexpr int ROUNDS = 3;
constexpr int CALLS = 100000;

double privateBytes(const fixtures::CProcess& process)
{
    return static_cast<double>(process.privateBytes());
}

// Lets other threads finish their part of the start.
void settle()
{
    fixtures::pumpUntil([] { return false; }, {}, 1000);
}

double hostMemory(const bench::CServers& servers)
{
    fixtures::CProgram host(servers.hostCommand());
    if (!host.waitForOutput("ready")) {
        throw std::runtime_error("the minimal program did not start: " + host.output());
    }
    settle();
    return privateBytes(host.process());
}

// The same program as a COM server, and so with the memory that COM itself needs.
double comHostMemory()
{
    const bench::CRemote host(bench::CLSID_BARE_JAVA);
    settle();
    return privateBytes(host.process());
}

// Makes calls that raise an event each, until the last event has come.
void callAndListen(IJavaManager* object, bench::CCountingSink& sink, int calls)
{
    const ATL::CComBSTR method(L"raise");
    const ATL::CComBSTR value(L"a text of the usual length");
    const long long expected = sink.events + calls;
    for (int call = 0; call < calls; ++call) {
        ATL::CComBSTR answer;
        if (object->callMethod(method, value, &answer) != S_OK) {
            throw std::runtime_error("a call has failed");
        }
    }
    if (!fixtures::pumpUntil([&] { return sink.events == expected; })) {
        throw std::runtime_error("events are missing");
    }
}

void measure(int argc, char** argv)
{
    const bench::CServers servers(bench::STEADY_MACHINE);
    bench::Series series;
    for (int round = 0; round < bench::argument(argc, argv, "--rounds", ROUNDS); ++round) {
        const bench::CRemote server(CLSID_JavaManager);
        settle();
        series["server"].push_back(privateBytes(server.process()));
        series["host"].push_back(hostMemory(servers));
        series["COM host"].push_back(comHostMemory());
    }

    const int calls = bench::argument(argc, argv, "--calls", CALLS);
    const bench::CRemote server(CLSID_JavaManager);
    bench::CCountingSink sink(server.object());
    // The first tenth is not counted: Java loads classes late, and COM's buffers reach their size.
    callAndListen(server.object(), sink, calls / 10);
    series["before"].push_back(privateBytes(server.process()));
    const double start = bench::now();
    callAndListen(server.object(), sink, calls);
    series["calls"].push_back(calls);
    series["seconds"].push_back(bench::now() - start);
    series["after"].push_back(privateBytes(server.process()));
    bench::write(argc, argv, series);
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
