// What the tests of the tool share: a machine of their own, and findings as lines.
#pragma once

#include "tests/support/fixtures.h"
#include "tool/Findings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

inline const std::string PREFERENCES = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
inline const std::string UMLAUT = "J\xFCrgen"; // in the system's code page
inline const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\JRE";

// "FAULT subject: state -> remedy" for a row of the table, in the order of discovery. Notes and good rows have no remedy here.
inline Lines linesOf(const CFindings& findings)
{
    Lines lines;
    for (const Row& row : findings.rows()) {
        const std::string text = row.subject + ": " + row.state;
        lines.push_back(row.verdict == Verdict::Fault  ? "FAULT " + text + " -> " + row.remedy
                        : row.verdict == Verdict::Note ? "note " + text
                                                       : "ok " + text);
    }
    return lines;
}

// Only the faults of them.
inline Lines faultsOf(const CFindings& findings)
{
    Lines lines = linesOf(findings);
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("FAULT "); });
    return lines;
}

// Everything below a key: a line for each key and for each value, with type and bytes.
inline void exportKey(HKEY key, const std::string& path, Lines& lines)
{
    lines.push_back("[" + path + "]");
    char name[512] = "";
    for (DWORD index = 0;; ++index) {
        BYTE data[1024] = {};
        DWORD nameSize = sizeof name;
        DWORD dataSize = sizeof data;
        DWORD type = 0;
        if (RegEnumValueA(key, index, name, &nameSize, nullptr, &type, data, &dataSize) != ERROR_SUCCESS) {
            break;
        }
        lines.push_back(std::string(name) + "=" + std::to_string(type) + ":" +
                        std::string(reinterpret_cast<const char*>(data), dataSize));
    }
    for (DWORD index = 0;; ++index) {
        DWORD nameSize = sizeof name;
        if (RegEnumKeyExA(key, index, name, &nameSize, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return;
        }
        HKEY below = nullptr;
        RegOpenKeyExA(key, name, 0, KEY_READ, &below);
        exportKey(below, path + "\\" + name, lines);
        RegCloseKey(below);
    }
}

class ToolTest : public testing::Test
{
protected:
    // A runtime below JavaSoft whose library is the given file.
    void install(const std::string& version, const std::string& library)
    {
        machine.setString(RUNTIMES + "\\" + version, "RuntimeLib", library);
    }
    static Lines machineKeys()
    {
        Lines lines;
        exportKey(HKEY_LOCAL_MACHINE, "", lines);
        return lines;
    }
    void makeCurrent(const std::string& version) { machine.setString(RUNTIMES, "CurrentVersion", version); }
    void prefer(const std::string& pattern) { machine.setString(PREFERENCES, "javavm", pattern, KEY_WOW64_32KEY); }
    // A file that is a library for the processor, as far as its header goes.
    std::string libraryFor(const std::string& name, uint16_t processor)
    {
        std::string bytes(0x40, '\0');
        bytes[0x3C] = 0x40;
        bytes += std::string("PE\0\0", 4) + static_cast<char>(processor & 0xFF) + static_cast<char>(processor >> 8);
        fixtures::makeFile(folder.path(name), bytes);
        return folder.path(name);
    }
    // The stand-in for a runtime's library that the build has made: "jvm.dll" or "nojvm.dll".
    static std::string standIn(const std::string& name)
    {
        char path[MAX_PATH + 1] = "";
        GetModuleFileNameA(nullptr, path, sizeof path);
        return (std::filesystem::path(path).parent_path().parent_path() / "standins" / "jvm" / name).string();
    }

    fixtures::TemporaryFolder folder;
    fixtures::RegistryScratch machine{HKEY_LOCAL_MACHINE};
    fixtures::RegistryScratch user{HKEY_CURRENT_USER};
};
