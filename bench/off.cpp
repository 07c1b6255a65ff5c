// What logging costs when it is off: a statement, and a scope, which is always created.
#include "bench/harness.h"
#include "support/logger.h"

#include <windows.h>

#define LOG_SOURCE "off"

namespace {

// What a statement that is off may cost: a comparison with a number that can change at any time.
volatile int s_level = LOGLEVEL_WARN;

void statement(benchmark::State& state)
{
    for (auto _ : state) {
        LOG_PLAIN(FINE, "text" << state.iterations());
    }
}

void comparison(benchmark::State& state)
{
    for (auto _ : state) {
        if (s_level >= LOGLEVEL_FINE) {
            state.SkipWithError("the level has changed");
        }
    }
}

class CLogging : public virtual Loggable
{
public:
    // Not inlined, so that the cost of the whole scope is in it, as in any function that logs.
    __attribute__((noinline)) void method() { LOG_SCOPE(FINE, "CLogging::method"); }
};

void scope(benchmark::State& state)
{
    CLogging object;
    for (auto _ : state) {
        object.method();
    }
}

__attribute__((noinline)) void readClockAndSlots(DWORD slot)
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    benchmark::DoNotOptimize(time);
    TlsSetValue(slot, TlsGetValue(slot));
}

void clockAndSlots(benchmark::State& state)
{
    const DWORD slot = TlsAlloc();
    for (auto _ : state) {
        readClockAndSlots(slot);
    }
    TlsFree(slot);
}

void measure(int argc, char** argv)
{
    benchmark::RegisterBenchmark("statement", statement);
    benchmark::RegisterBenchmark("comparison", comparison);
    benchmark::RegisterBenchmark("scope", scope);
    benchmark::RegisterBenchmark("clock and slots", clockAndSlots);
    bench::write(argc, argv, bench::runInTurn(argc, argv));
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
