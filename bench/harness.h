// Shared by the programs of this folder: measures several things in turn and writes the results.
//
// A program registers one benchmark for each thing to compare and calls runInTurn, which runs them in rounds: A B C A B C ...
// bench/run computes the medians and the spread over the rounds from the output.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Results by name, one number per round. Times are nanoseconds per operation.
using Series = std::map<std::string, std::vector<double>>;

// The word after `name` on the command line ("--out result.json"); null without it.
const char* text(int argc, char** argv, const char* name);
// The number after `name` ("--rounds 20").
int argument(int argc, char** argv, const char* name, int otherwise);

// Runs the registered benchmarks for the number of rounds after --rounds. Throws std::runtime_error when one fails.
Series runInTurn(int argc, char** argv);

// Writes the series as one JSON object to the file after --out, or to standard output.
void write(int argc, char** argv, const Series& series);

// The body of main: CoInitialize, the program, failures as text and exit code 1.
int guarded(void (*program)(int argc, char** argv), int argc, char** argv);

// Seconds of a clock that only goes forward.
double now();

} // namespace bench
