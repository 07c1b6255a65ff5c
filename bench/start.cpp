// What the server adds to a start, from the creation until the frame's id is answered. Measured against a COM server written by
// hand that starts the same machine and shows the same frame.
#include "bench/harness.h"
#include "bench/servers.h"

namespace {

constexpr int ROUNDS = 8;

void measure(int argc, char** argv)
{
    const bench::CServers servers;
    bench::Series series;
    const auto start = [&](const char* name, const CLSID& clsid) {
        series[name].push_back(bench::CRemote(clsid).startTime() * 1e9);
    };
    // Once without counting, to get the files into memory.
    bench::CRemote{CLSID_JavaManager};
    bench::CRemote{bench::CLSID_BARE_JAVA};
    for (int round = 0; round < bench::argument(argc, argv, "--rounds", ROUNDS); ++round) {
        start("server", CLSID_JavaManager);
        start("bare", bench::CLSID_BARE_JAVA);
    }
    bench::write(argc, argv, series);
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
