// The verb "warm": an archive of class data for runtime, frame and control, which Java maps into memory instead of reading,
// checking and linking the classes one by one.
//
// The list of classes is that of a real start in a child process, with the server's class path and options; from it the runtime
// itself makes the archive (-Xshare:dump, through the same JNI start: some runtimes have no java.exe). A static archive and not
// -XX:ArchiveClassesAtExit, because that one needs the runtime's own archive below it, which many runtimes come without.
//
// The archive lies beside the executable that is registered for the machine, under its name with ".jsa". The option that names it
// counts for all users, and whoever can write to the archive decides what runs in their processes: so it lies where only those
// can write who could replace the server itself, and never in a folder for temporary files on its way there. A folder in which
// every user can write is refused, and so is a server that is registered for one user only.
//
// Beside it, ".jsa.json" keeps what it was made for. Java compares that too and starts without class data when it differs, even
// without the runtime's own archive; "check" tells which part it was.
//
// Threads: the main thread. Failure: what goes wrong is a fault among the findings; a `warm` that fails leaves nothing behind,
// not even an archive that was made earlier.
#pragma once

#include "javabridge/JavaManagerJNIClientSettings.h"
#include "tool/Findings.h"

#include <windows.h>

#include <string>
#include <vector>

inline constexpr char CLASS_DATA_OPTION[] = "jvm_option_KESTA_warm";
inline constexpr char MAKE_CLASS_DATA_AGAIN[] = "make it again: KESTAtool warm (or do without: KESTAtool warm --remove)";

CFindings makeClassData();
CFindings removeClassData();

// The file that an option names, the last one if there are several; "" when none does.
std::string classDataArchive(const std::vector<MachineOption>& options);
// Whether the archive fits runtime and class path, as far as that can be told without a start.
CFindings checkClassData(const std::vector<MachineOption>& options, const std::string& library, const std::string& classPath);

// What an archive was made for, and what taking it back needs.
struct ClassDataRecord
{
    std::string library;
    std::string classPath;
    std::vector<std::string> files; // the archive, the library and the class path's, each with its size and time
    DWORD createdKeys;              // keys above the option that `warm` has made
};

// The record of files as they are now.
ClassDataRecord describeClassData(const std::string& archive, const std::string& library, const std::string& classPath);
std::string classDataRecordFile(const std::string& archive);
// Whether every user can add or replace files in a folder.
bool isWritableForAll(const std::string& folder);
