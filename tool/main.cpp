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

// The output, if it is a console: it shows colours, and the texts in Windows' code page instead of its own, which would show
// other letters for umlauts. As before at the program's end, which may be Ctrl+C.
class CConsole
{
public:
    CConsole()
    {
        const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
        DWORD mode = 0;
        if (GetConsoleMode(output, &mode) != FALSE) {
            s_codePage = GetConsoleOutputCP();
            SetConsoleOutputCP(GetACP());
            SetConsoleCtrlHandler(restore, TRUE);
            m_isColoured = SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
        }
    }
    ~CConsole() { restore(0); }
    CConsole(const CConsole&) = delete;
    CConsole& operator=(const CConsole&) = delete;

    bool isColoured() const { return m_isColoured; }

private:
    static BOOL WINAPI restore(DWORD)
    {
        if (s_codePage != 0) {
            SetConsoleOutputCP(s_codePage);
        }
        return FALSE; // the program ends as it would without this
    }

    static inline UINT s_codePage = 0;
    bool m_isColoured = false;
};

} // namespace

int main(int count, char** arguments)
{
    const CConsole console;
    try {
        const int exitCode =
            runTool(std::vector<std::string>(arguments + 1, arguments + count), std::cout, std::cerr, console.isColoured());
        std::cout.flush();
        return exitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "KESTAtool: %s\n", error.what());
        return UNEXPECTED;
    }
}
