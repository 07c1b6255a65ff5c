// KESTAtool as a program, on a machine with the server of the build registered and Java 21 as its runtime.
#pragma once

#include "tests/process/Program.h"
#include "tests/process/Settings.h"
#include "tests/support/places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fixtures {

constexpr DWORD LONG_LIMIT = 3 * TIME_LIMIT;

// The folder of a pinned runtime.
inline std::string runtimeHome(int version)
{
    return std::filesystem::path(runtimeLibrary(version)).parent_path().parent_path().parent_path().string();
}

class ToolProcessTest : public testing::Test
{
protected:
    ToolProcessTest()
        : m_buildFolder(std::filesystem::path(programFolder()).parent_path().parent_path().string())
        , m_programs(m_buildFolder)
    {
        runServer("/RegServer");
        settings.setRuntime("21.0.8", runtimeLibrary(21));
        settings.setPreference("logpath", folder.path());
    }
    ~ToolProcessTest() override
    {
        for (const DWORD id : processesNamed("KESTAx64.exe")) {
            EXPECT_TRUE(CProcess(id).exitCode()) << "a server is left";
        }
        runServer("/UnregServer");
        if (HasFailure()) {
            std::printf("%s\n", output.c_str());
        }
    }
    void runServer(const std::string& word) const
    {
        const CProgram server("\"" + m_programs + "\\KESTAx64.exe\" " + word);
        EXPECT_EQ(server.process().exitCode(), 0u);
    }
    // Registers a copy of the programs in a folder of the test's own, for what is written beside them.
    void moveProgramsTo(const std::string& place)
    {
        runServer("/UnregServer");
        CreateDirectoryA(place.c_str(), nullptr);
        for (const std::string name : {"KESTAx64.exe", "KESTAtool.exe", "ORVANEControl.jar"}) {
            ASSERT_TRUE(CopyFileA((m_programs + "\\" + name).c_str(), (place + "\\" + name).c_str(), TRUE)) << name;
        }
        m_programs = place;
        runServer("/RegServer");
    }
    // Java 17 of the tool environment finds its zip.dll on the search path only.
    static void putOnSearchPath(int version)
    {
        const char* const path = std::getenv("PATH");
        SetEnvironmentVariableA("PATH", (runtimeHome(version) + "\\bin;" + (path != nullptr ? path : "")).c_str());
    }
    // The exit code; what the tool printed is in `output`.
    DWORD run(const std::string& arguments)
    {
        CProgram tool("\"" + m_programs + "\\KESTAtool.exe\" " + arguments);
        const std::optional<DWORD> exitCode = tool.process().exitCode(LONG_LIMIT);
        EXPECT_TRUE(exitCode) << arguments << " does not end";
        tool.waitForOutput("(to its end)");
        output = tool.output();
        return exitCode.value_or(ERROR_TIMEOUT);
    }
    // All of the machine's software keys, as Windows' own program writes them.
    std::string exportedMachine()
    {
        const std::string file = folder.path("export.reg");
        const CProgram regedit("regedit.exe /E \"" + file + "\" HKEY_LOCAL_MACHINE\\Software");
        EXPECT_EQ(regedit.process().exitCode(), 0u);
        const std::string text = readFile(file);
        std::filesystem::remove(file);
        return text;
    }

    CSettings settings;
    TemporaryFolder folder{TemporaryFolder::Removal::MayFail};
    std::string output;
    std::string m_buildFolder;
    std::string m_programs;
};

} // namespace fixtures
