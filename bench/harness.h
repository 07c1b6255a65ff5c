// What the programs of this folder share: measuring several things in turn, and saying what came out.
//
// A program registers its benchmarks (one for each thing that is compared) and calls runInTurn, which runs them one after the
// other, round by round: A B C A B C ... The medians and the spread over the rounds are made by bench/run from the output.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// What was measured, by name; one number a round. Times are nanoseconds for one operation.
using Series = std::map<std::string, std::vector<double>>;

// The number after `name` on the command line ("--rounds 20").
int argument(int argc, char** argv, const char* name, int otherwise);

// Runs the registered benchmarks for as many rounds as --rounds says. A benchmark that fails throws std::runtime_error.
Series runInTurn(int argc, char** argv);

// Writes the series as one JSON object to the file after --out, or to the standard output.
void write(int argc, char** argv, const Series& series);

// The body of main: CoInitialize, the program, failures as text and exit code 1.
int guarded(void (*program)(int argc, char** argv), int argc, char** argv);

// Seconds of a clock that only goes forward.
double now();

} // namespace bench
