// Java runtimes as files, wherever they are: what their library is like, and which ones this machine has besides those that the
// server looks at.
//
// Nothing is started and nothing is written. Threads: any. Failure: what cannot be found out is empty; only exhausted memory
// throws.
#pragma once

#include <string>
#include <vector>

struct RuntimeFile
{
    std::string library;     // full name of jvm.dll
    bool isThere;            // can be opened
    std::string fault;       // empty, or what is wrong with it
    std::string remedy;      // what to do about that
    std::string javaVersion; // of the file "release" beside the folder "bin"; often missing in old runtimes
};

// Looks at the file without running any of it.
RuntimeFile inspectRuntime(const std::string& library);

// 8 for "1.8.0_151", 21 for "21.0.8"; 0 when the text names no version.
int javaFeatureVersion(const std::string& javaVersion);

// The library below a runtime's folder, or below the jre of a development kit; empty when there is none.
std::string libraryBelow(const std::string& folder);

struct FoundRuntime
{
    std::string source; // the registry key, variable or folder that led to it
    std::string folder;
    std::string library; // empty: there is none below the folder
};

// What the installers of several vendors write, JAVA_HOME, and the folders in which runtimes usually are. A runtime that is found
// in several ways is listed once, by its first source.
std::vector<FoundRuntime> findRuntimes();
