#include "bench/harness.h"

#include "atl/base.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr int ROUNDS = 20;
constexpr double NANOSECONDS = 1e9;

class CCollector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.skipped != benchmark::internal::NotSkipped) {
                throw std::runtime_error(run.run_name.function_name + ": " + run.skip_message);
            }
            series[run.run_name.function_name].push_back(run.real_accumulated_time / static_cast<double>(run.iterations) *
                                                         NANOSECONDS);
        }
    }

    Series series;
};

} // namespace

const char* text(int argc, char** argv, const char* name)
{
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], name) == 0) {
            return argv[index + 1];
        }
    }
    return nullptr;
}

int argument(int argc, char** argv, const char* name, int otherwise)
{
    const char* const found = text(argc, argv, name);
    return found ? std::atoi(found) : otherwise;
}

Series runInTurn(int argc, char** argv)
{
    // The library removes its own options from the command line; the program's stay.
    benchmark::Initialize(&argc, argv);
    CCollector collector;
    const int rounds = argument(argc, argv, "--rounds", ROUNDS);
    for (int round = 0; round < rounds; ++round) {
        benchmark::RunSpecifiedBenchmarks(&collector);
    }
    return collector.series;
}

void write(int argc, char** argv, const Series& series)
{
    std::ostringstream json;
    json << '{';
    const char* separator = "";
    for (const auto& [name, numbers] : series) {
        json << separator << '"' << name << "\": [";
        separator = ", ";
        for (size_t index = 0; index < numbers.size(); ++index) {
            json << (index ? ", " : "") << numbers[index];
        }
        json << ']';
    }
    json << '}';
    if (const char* const path = text(argc, argv, "--out")) {
        std::ofstream(path) << json.str();
    } else {
        std::cout << json.str() << std::endl;
    }
}

int guarded(void (*program)(int argc, char** argv), int argc, char** argv)
{
    CoInitialize(nullptr);
    try {
        program(argc, argv);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    } catch (const ATL::CAtlException& failure) {
        std::fprintf(stderr, "failed with %08lx\n", static_cast<unsigned long>(failure.m_hr));
    }
    return 1;
}

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace bench
