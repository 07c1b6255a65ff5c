// What has to be tried out happens in a child process with a time limit, since it may crash or never come back: the start of a
// runtime, and the start of the registered server. The child is this program again, with the hidden verb "probe".
//
// Threads: the main thread. Failure: everything that goes wrong in a child is part of its answer, or of how it ended.
#pragma once

#include "javabridge/JavaManagerJNIClientSettings.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

struct ProbeResult
{
    nlohmann::json answer; // null: the child gave none
    std::string ending;    // empty when it ended well; else how it ended
    std::string output;    // what the child, or Java in it, has printed
};

// Runs the program's own executable, or `executable`, with "probe" and the arguments. `javaOptions` come behind all others that
// Java gets.
ProbeResult runProbe(const std::vector<std::string>& arguments, DWORD limit, const std::string& executable = "",
                     const std::string& javaOptions = "");

// The first words that Java has printed besides warnings, in one line; "" without any.
std::string javasWords(const ProbeResult& probe);
// Of a runtime's start: "" when it started, else why not, with Java's words.
std::string whyNotStarted(const ProbeResult& probe);
// What to do about a runtime that does not start. What Java complains about is an option far more often than itself.
std::string remedyForStart(const ProbeResult& probe);

constexpr DWORD START_LIMIT = 60000; // ms

// A runtime's start as the server would do it.
struct RuntimeStart
{
    JVMInfo runtime;
    std::string server; // its executable, beside which the policy file is
    std::string basisControl;
    bool withFrame = false; // also show the frame with its control
};

// The arguments of a child that tries it.
std::vector<std::string> probeArguments(const RuntimeStart& start);

// The child's side. Both write their answer to the file and give the exit code.
//
// Starts the runtime with the class path and the options of this machine, and looks for the classes that the server needs.
// Answer: "isStarted", "errors" (lines of the log), "milliseconds", "javaVersion", "vendor", "missingClasses" with "classErrors"
// (lines of the log), "usesClassData".
// With its frame it adds "hasFrame" and "frameMilliseconds" (from the beginning); Java is then ended by itself, so that it writes
// what it was told to write at its end.
int probeRuntime(const RuntimeStart& start, const std::string& answerFile);
// Creates the COM object as a client does, and releases it. Answer: "result" (an HRESULT), "error", "createMilliseconds",
// "frameId", "hasWindow", "callMilliseconds", "releaseMilliseconds".
// `isLive` adds what ProbeLive.h finds out.
int probeServer(bool isLive, const std::vector<std::string>& controls, const std::string& answerFile);

// Writes an answer for the parent.
void writeAnswer(const nlohmann::json& answer, const std::string& answerFile);
