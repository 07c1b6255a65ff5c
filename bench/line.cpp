// What a written line costs: file and debugger stream, flushed. Measured against a logging library with the same sinks and text.
#include "bench/harness.h"
#include "support/logger.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/msvc_sink.h>
#include <spdlog/spdlog.h>

#define LOG_SOURCE "line"

namespace {

std::unique_ptr<spdlog::logger> s_library;

void ours(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state) {
        LOG_PLAIN(INFO, "callMethod setText, value number " << ++number);
    }
}

void library(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state) {
        SPDLOG_LOGGER_INFO(s_library, "callMethod setText, value number {}", ++number);
    }
}

// The columns of our lines: time, thread, level, source, line number, indentation, text.
void openLibrary(const Logger& logger)
{
    const std::string line = "%Y-%m-%d %H:%M:%S.%e %05t INFO   line                 %# %v";
    auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(logger.logFilePrefix() + "-library.log");
    // By default this sink writes only while a debugger is attached; our log always does.
    auto debugger = std::make_shared<spdlog::sinks::msvc_sink_mt>(false);
    s_library = std::make_unique<spdlog::logger>("library", spdlog::sinks_init_list{file, debugger});
    file->set_formatter(std::make_unique<spdlog::pattern_formatter>(line));
    debugger->set_formatter(std::make_unique<spdlog::pattern_formatter>("UNDEFINEDPRODUCT bench_line.exe " + line,
                                                                        spdlog::pattern_time_type::local, "\n"));
    s_library->flush_on(spdlog::level::trace);
}

void measure(int argc, char** argv)
{
    const Logger* const logger = Logger::instance();
    if (logger == nullptr || logger->logFilePrefix().empty()) {
        throw std::runtime_error("there is no log file to write to");
    }
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    openLibrary(*logger);
    benchmark::RegisterBenchmark("line", ours);
    benchmark::RegisterBenchmark("library", library);
    bench::write(argc, argv, bench::runInTurn(argc, argv));
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
