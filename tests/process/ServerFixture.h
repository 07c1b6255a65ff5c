// The base of every process test: a clean registry with one Java runtime, the server registered, and a monitor of its log.
//
// After each test, every server process must have ended on its own, with exit code 0 or the one that expectExit announced, and
// without a crash report.
#pragma once

#include "tests/process/Client.h"
#include "tests/process/DebugMonitor.h"
#include "tests/process/Settings.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

namespace fixtures {

constexpr DWORD WATCHDOG_PERIOD = 15000; // ms

// Removed with its content at the end of the test.
class CTestFolder : public TemporaryFolder
{
public:
    std::string file(const std::string& name) const { return path(name); }
};

void writeFile(const std::string& path, const std::string& content);
// The names, sorted; none for a folder that is not there.
std::vector<std::string> filesIn(const std::string& folder);

// A single-threaded apartment on the test's thread.
class CApartment
{
public:
    CApartment() { CoInitialize(nullptr); }
    ~CApartment() { CoUninitialize(); }
    CApartment(const CApartment&) = delete;
    CApartment& operator=(const CApartment&) = delete;
};

// An object of the server, and its process.
struct SManager
{
    ATL::CComPtr<IJavaManager> object;
    std::shared_ptr<CProcess> server;

    IJavaManager* operator->() const { return object; }
    int frameId() const;
};

class ServerTest : public testing::Test
{
protected:
    ServerTest();
    ~ServerTest() override;
    void SetUp() override;
    void TearDown() override;

    // Full detail goes to the debugger stream; tests with many events turn it down.
    static constexpr DWORD FULL_DETAIL = 5;
    static constexpr DWORD WARNINGS = 2;
    void setLogLevel(DWORD level) const { settings.setPreference("loglevel", level); }

    // How often a long test does the same: `usual` times, or as often as KESTA_CYCLES says.
    static int cycles(int usual);

    // The control that the tests' servers show (tests/control).
    static constexpr char TEST_CONTROL[] = "TestControl";
    std::string testJar() const { return m_buildFolder + "\\TestControl.jar"; }

    // Makes servers that start from now on log to a file, and stops the monitor, whose handshake slows them down.
    void logToFile();
    std::string logFile(DWORD process) const { return folder.file("KESTA-KESTAx64.exe-" + std::to_string(process) + ".log"); }
    std::vector<std::string> logFileLines(DWORD process) const;

    // Makes one of the pinned runtimes, by its major version, the current one.
    void useRuntime(int version) const;

    // The folder of the built executable and control jar.
    const std::string& buildFolder() const { return m_buildFolder; }
    // Runs the executable to its end and returns its exit code.
    DWORD runServer(const std::string& arguments) { return runServer(m_buildFolder, arguments); }
    DWORD runServer(const std::string& folder, const std::string& arguments);

    // The result of the creation; on success the object and its new process are in `manager`.
    HRESULT create(SManager& manager);
    // The same with success asserted.
    SManager create();
    // Releases the object and expects its server to end.
    void release(SManager& manager);
    // Waits for the process's end and asserts how it ended.
    void expectEnd(const CProcess& server, DWORD exitCode = 0);
    // Announces that a process will end with another exit code than 0.
    void expectExit(DWORD process, DWORD exitCode) { m_expectedExits[process] = exitCode; }

    // What a process has sent to the debugger stream so far, except lines without a header.
    const std::vector<LogLine>& lines(DWORD process);
    // The same as messageOf returns them.
    std::vector<std::string> messages(DWORD process);
    // Waits until the process has logged exactly this message.
    bool waitForMessage(DWORD process, const std::string& message);
    size_t countMessages(DWORD process, const std::string& message);
    // Waits for a server that has logged and is not one of the known ones.
    std::shared_ptr<CProcess> waitForNewServer(const std::vector<DWORD>& known);
    std::string logTail() const;

    // The command line of a client process (clientMain.cpp), and the server that such a process was given.
    static std::string clientCommand(const char* role);
    std::shared_ptr<CProcess> serverOf(CProgram& client);

    CApartment apartment;
    CSettings settings;
    CDebugMonitor monitor;
    CTestFolder folder;

private:
    void addServer(const std::shared_ptr<CProcess>& server) { m_servers[server->id()] = server; }

    std::string m_buildFolder;
    std::map<DWORD, std::shared_ptr<CProcess>> m_servers;
    std::map<DWORD, DWORD> m_expectedExits;
    std::set<DWORD> m_registrations; // processes that ran with a switch
    size_t m_linesTaken = 0;
    std::map<DWORD, std::vector<LogLine>> m_logs;
};

// A line without header, indentation and duration: "-> " or "<- " for scopes, class and object, text.
std::string messageOf(const LogLine& line);
// The messages of a text of several log lines, such as an error text; lines without a header stay as they are.
std::vector<std::string> messagesOf(const std::string& text);
// Windows' text for an error, as the log shows it.
std::string systemText(DWORD error);

} // namespace fixtures
