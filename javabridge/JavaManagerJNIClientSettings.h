// What the registry and the files beside the executable say about the Java virtual machine before one is started: which runtimes
// there are and which is chosen, the class path, the options, and of what kind a library file is.
//
// The server starts with these answers, and whoever explains or changes its choice asks for the same ones.
//
// Ownership: answers are copies. Nothing is written and no library is loaded.
// Threads:   any.
// Failure:   what is missing gives empty texts; only exhausted memory throws.
//
// `owner` is the object that the lines are logged for, or null; it is not kept.
#pragma once

#include "support/logger.h"

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

// One installed Java runtime.
struct JVMInfo
{
    std::string version; // the runtime's registry key name, e.g. 1.8.0_151
    std::string path;    // full file name of its jvm.dll
};

// A subkey of one of the runtime keys.
struct JVMEntry : JVMInfo
{
    std::string key;  // the runtime key above it, with a backslash at the end
    bool isCurrent;   // the key above names it in "CurrentVersion"
    bool isCandidate; // a preference pattern can pick it
};

// One item of the preference pattern.
struct JVMPatternItem
{
    std::string text;
    bool isRange;
    JVMInfo picked; // empty: it matched no candidate
};

struct JVMChoice
{
    std::vector<JVMEntry> entries; // as they were found
    std::string pattern;
    std::vector<JVMPatternItem> items; // those that were looked at, the last one possibly with a match
    JVMInfo standard;                  // the current one; empty when there is none
    JVMInfo chosen;
};

JVMChoice readJVMChoice(const Loggable* owner);

// A control in the class path.
struct ControlArchive
{
    std::string name;
    std::string installPath;
    std::string archive;
};

struct ControlClassPath
{
    std::vector<ControlArchive> controls;
    std::string text;
};

// `basisControl` is the last element; null and empty stand for none.
ControlClassPath readControlClassPath(const char* basisControl, const Loggable* owner);

struct MachineOption
{
    std::string valueName; // of the registry; empty for the server's own options
    std::string text;
};

// What the control's own logging and a verbose VM are told.
struct MachineLogSettings
{
    std::string folder;
    std::string filePrefix;
    bool isVerbose; // the VM writes down what it does, in files with that prefix
    int level;
    int oldFileAge;    // seconds
    int splitFileSize; // megabytes
};

// Those of this process's Logger; its defaults without one.
MachineLogSettings currentLogSettings();

// The options after the class path, in the order in which the VM gets them. A null `executable` means this process's own.
std::vector<MachineOption> readMachineOptions(const char* executable, const MachineLogSettings& log, const Loggable* owner);

// The security policy that is used when it is there: named like the executable.
std::string machinePolicyFile(const char* executable);

// The machine number of a library's header, as it is in the file; nothing without a header. `file` is open and binary.
std::optional<uint16_t> readLibraryMachine(std::ifstream& file);
