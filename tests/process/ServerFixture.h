// The stage of every process test: a clean machine with one Java runtime and the server registered, a monitor of the server's
// log, and the end of every server process looked at.
//
// What holds after each test, whatever it did: every server process has ended by itself with exit code 0 (others are announced
// with expectExit), none has left a crash report, and no server process is left.
#pragma once

#include "tests/process/Client.h"
#include "tests/process/DebugMonitor.h"
#include "tests/process/Settings.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

namespace fixtures {

// A folder of the test's own, deleted at its end.
class CTemporaryFolder
{
public:
    explicit CTemporaryFolder(const char* name);
    ~CTemporaryFolder();
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    // Without a backslash behind it.
    const std::string& path() const { return m_path; }
    std::string file(const char* name) const { return m_path + "\\" + name; }

private:
    std::string m_path;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
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

// An object of the server and the process that serves it.
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

    // Full detail goes to the debugger stream; tests that measure turn it down.
    static constexpr DWORD FULL_DETAIL = 5;
    static constexpr DWORD WARNINGS = 2;
    void setLogLevel(DWORD level) const { settings.setPreference("loglevel", level); }

    // Lets servers that start from now on log to a file, and stops the monitor, whose handshake slows them down.
    void logToFile();
    std::string logFile(DWORD process) const
    {
        return folder.file(("KESTA-KESTAx64.exe-" + std::to_string(process) + ".log").c_str());
    }
    std::vector<std::string> logFileLines(DWORD process) const;

    // Where executable and control jar of the build stand.
    const std::string& buildFolder() const { return m_buildFolder; }
    // Runs the executable with the arguments to its end and gives its exit code.
    DWORD runServer(const std::string& arguments) { return runServer(m_buildFolder, arguments); }
    DWORD runServer(const std::string& folder, const std::string& arguments);

    // The result of the creation; on success the object and its new process are in `manager`.
    HRESULT create(SManager& manager);
    // The same with success asserted.
    SManager create();
    // Waits for the process's end and asserts how it ended.
    void expectEnd(const CProcess& server, DWORD exitCode = 0);
    // Announces that a process is not to end with exit code 0.
    void expectExit(DWORD process, DWORD exitCode) { m_expectedExits[process] = exitCode; }

    // The log lines of a process without header, indentation and duration: "-> " or "<- " for scopes, class and object text,
    // message.
    std::vector<std::string> messages(DWORD process) const;
    // Waits until the process has logged such a message, which is compared whole.
    bool waitForMessage(DWORD process, const std::string& message);
    size_t countMessages(DWORD process, const std::string& message) const;
    // The one process that logged and is not in the list of known ones, waited for.
    std::shared_ptr<CProcess> waitForNewServer(const std::vector<DWORD>& known);
    std::string logTail() const;

    CApartment apartment;
    CSettings settings;
    CDebugMonitor monitor;
    CTemporaryFolder folder{"test"};

private:
    void addServer(const std::shared_ptr<CProcess>& server) { m_servers[server->id()] = server; }

    std::string m_buildFolder;
    std::map<DWORD, std::shared_ptr<CProcess>> m_servers;
    std::map<DWORD, DWORD> m_expectedExits;
    std::set<DWORD> m_registrations; // processes that ran a switch
};

// One log line, taken apart. `message` begins after the indentation.
struct SLogLine
{
    std::string time;
    DWORD thread = 0;
    std::string level;
    std::string source;
    std::string marker; // "", "->" or "<-"
    size_t depth = 0;
    std::string message;

    // The message without the " [12 ms]" of an exit line.
    std::string messageWithoutDuration() const;
    // The same with the marker and a blank before it.
    std::string text() const;
};
// A text of several log lines, such as an error text, as ServerTest::messages gives them; lines of another form stay as they are.
std::vector<std::string> messagesOf(const std::string& text);
// Windows' own text of an error as the log shows it.
std::string systemText(DWORD error);
// Nothing for a banner or the rest of a text of several lines. The line may begin with the product and executable names.
std::optional<SLogLine> parseLogLine(const std::string& line);

} // namespace fixtures
