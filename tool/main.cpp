// Process entry of KESTAtool.
#include "support/logger.h"
#include "tool/CommandLine.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <iostream>

const bool LOGGER_REMOVES_OLD_FILES = false;

namespace {

constexpr int UNEXPECTED = 199;

// Whether the output is a console, which then understands colours.
bool enableColours()
{
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(output, &mode) != FALSE && SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

} // namespace

int main(int count, char** arguments)
{
    try {
        return runTool(std::vector<std::string>(arguments + 1, arguments + count), std::cout, std::cerr, enableColours());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "KESTAtool: %s\n", error.what());
        return UNEXPECTED;
    }
}
