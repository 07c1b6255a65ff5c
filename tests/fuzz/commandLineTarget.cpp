// Command lines: which switch the entry point finds in one.
#include "atl/atl.h"
#include "tests/fuzz/Target.h"
#include "tests/support/ImportHook.h"

#include <algorithm>
#include <cctype>

namespace fuzz {

namespace {

using namespace ATL;

using CommandLineHook = ImportHook<decltype(&GetCommandLineA), struct CommandLine>;
using PathHook = ImportHook<decltype(&GetModuleFileNameA), struct Path>;

std::string s_commandLine;
// Whether the module runs, and whether it has then asked for the program's path.
bool s_isRunning = false;
bool s_isPathAsked = false;

// Notes what it is told to do, and does none of it.
class CNotingModule final : public CAtlExeModule
{
public:
    CNotingModule()
        : CAtlExeModule({})
    {
        // There is no client whose end it would wait for.
        m_bDelayShutdown = false;
    }

    // "run", or the switch.
    std::string done()
    {
        s_isPathAsked = false;
        s_isRunning = true;
        WinMain(SW_HIDE);
        s_isRunning = false;
        if (m_done.empty() && s_isPathAsked) {
            m_done = "UnregServer"; // which begins with the classes and their type library
        }
        return m_done != "run" && m_registrationScope == CRegistrationScope::User ? m_done + "PerUser" : m_done;
    }

protected:
    void RunMessageLoop() override { m_done += "run"; }
    HRESULT UpdateAppId(BOOL registering) override
    {
        m_done += registering ? "RegServer" : "(the AppID before the classes)";
        return E_ABORT;
    }

private:
    std::string m_done;
};

// The same the other way round: the first place of each word, and of these the first one.
std::string expected(const std::string& commandLine)
{
    std::string lower = commandLine;
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char c) { return static_cast<char>(c < 0x80 ? std::tolower(c) : c); });
    std::string found = "run";
    size_t first = std::string::npos;
    for (const std::string word : {"RegServer", "UnregServer", "RegServerPerUser", "UnregServerPerUser"}) {
        std::string wanted = word;
        std::ranges::transform(wanted, wanted.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        for (size_t place = lower.find(wanted); place != std::string::npos; place = lower.find(wanted, place + 1)) {
            const size_t end = place + wanted.size();
            const bool isMarked = place > 0 && (lower[place - 1] == '-' || lower[place - 1] == '/');
            const bool isWhole = end == lower.size() || lower[end] == ' ' || lower[end] == '\t';
            if (isMarked && isWhole && place < first) {
                first = place;
                found = word;
            }
        }
    }
    return found;
}

} // namespace

void commandLine(Bytes input)
{
    s_commandLine = textOf(input).c_str(); // up to its first zero
    // Once, because each takes longer than an input.
    [[maybe_unused]] static const HRESULT s_com = CoInitialize(nullptr);
    [[maybe_unused]] static const auto* const s_line = new CommandLineHook(
        "GetCommandLineA", []() -> LPSTR { return s_isRunning ? s_commandLine.data() : CommandLineHook::s_original(); });
    [[maybe_unused]] static const auto* const s_path =
        new PathHook("GetModuleFileNameA", [](HMODULE module, LPSTR buffer, DWORD size) -> DWORD {
            s_isPathAsked = true;
            return s_isRunning ? 0 : PathHook::s_original(module, buffer, size);
        });
    const std::string done = CNotingModule().done();
    expect(done == expected(s_commandLine), "done: " + done + ", expected: " + expected(s_commandLine));
}

} // namespace fuzz
