#include "tests/process/ServerFixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace fixtures {

namespace {

constexpr char EXECUTABLE[] = "KESTAx64.exe";
constexpr size_t TAIL_LINES = 60;

} // namespace

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::vector<std::string> filesIn(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

int SManager::frameId() const
{
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    return id;
}

ServerTest::ServerTest()
{
    // The test program is two folders below the executable.
    const std::string program = programFolder();
    const std::string tests = program.substr(0, program.rfind('\\'));
    m_buildFolder = tests.substr(0, tests.rfind('\\'));
}

ServerTest::~ServerTest() = default;

void ServerTest::SetUp()
{
    ASSERT_TRUE(processesNamed(EXECUTABLE).empty()) << "a server process of somebody else is running";
    settings.setRuntime("21.0.8", runtimeLibrary(21));
    settings.setControl(TEST_CONTROL, m_buildFolder);
    settings.setPreference("loglevel", FULL_DETAIL);
    settings.setPreference("logpath", std::string()); // debugger stream only
    settings.setPreference("jvm_option_crash", "-XX:ErrorFile=" + folder.file("crash.log"));
    ASSERT_EQ(runServer("/RegServer"), 0u);
}

void ServerTest::TearDown()
{
    for (const auto& [id, server] : monitor.senders()) {
        m_servers.emplace(id, server);
    }
    for (const auto& [id, server] : m_servers) {
        const auto expected = m_expectedExits.find(id);
        expectEnd(*server, expected == m_expectedExits.end() ? 0 : expected->second);
    }
    EXPECT_TRUE(processesNamed(EXECUTABLE).empty()) << "a server process is left";
    EXPECT_FALSE(std::filesystem::exists(folder.file("crash.log"))) << "the virtual machine has crashed";
    EXPECT_EQ(runServer("/UnregServer"), 0u);
    if (HasFailure()) {
        std::fputs(logTail().c_str(), stdout);
    }
}

int ServerTest::cycles(int usual)
{
    const char* const wanted = std::getenv("KESTA_CYCLES");
    return wanted != nullptr ? std::stoi(wanted) : usual;
}

void ServerTest::useRuntime(int version) const
{
    const std::string library = runtimeLibrary(version);
    // One of the runtimes looks for its DLLs on the search path.
    const std::string bin = library.substr(0, library.find("\\server\\"));
    SetEnvironmentVariableA("PATH", (bin + ";C:\\windows\\system32;C:\\windows").c_str());
    settings.setRuntime("current", library);
}

void ServerTest::logToFile()
{
    settings.setPreference("logpath", folder.path());
    monitor.stop();
}

std::vector<std::string> ServerTest::logFileLines(DWORD process) const
{
    std::string content = readFile(logFile(process));
    std::erase(content, '\r');
    return splitLines(content);
}

DWORD ServerTest::runServer(const std::string& serverFolder, const std::string& arguments)
{
    const CProgram server("\"" + serverFolder + "\\" + EXECUTABLE + "\" " + arguments, serverFolder.c_str());
    const std::optional<DWORD> exitCode = server.process().exitCode();
    EXPECT_TRUE(exitCode) << "the server with " << arguments << " did not end";
    const DWORD code = exitCode.value_or(ERROR_TIMEOUT);
    m_expectedExits[server.process().id()] = code;
    m_registrations.insert(server.process().id());
    return code;
}

HRESULT ServerTest::create(SManager& manager)
{
    const std::vector<DWORD> before = processesNamed(EXECUTABLE);
    const HRESULT hr = manager.object.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER);
    for (const DWORD id : processesNamed(EXECUTABLE)) {
        if (SUCCEEDED(hr) && std::find(before.begin(), before.end(), id) == before.end()) {
            EXPECT_FALSE(manager.server) << "one creation has started two processes";
            manager.server = std::make_shared<CProcess>(id);
            addServer(manager.server);
        }
    }
    return hr;
}

SManager ServerTest::create()
{
    SManager manager;
    const HRESULT hr = create(manager);
    if (hr != S_OK || !manager.server) {
        throw std::runtime_error("JavaManager was not created: " + std::to_string(hr) + "\n" + logTail());
    }
    return manager;
}

void ServerTest::release(SManager& manager)
{
    manager.object.Release();
    expectEnd(*manager.server);
}

void ServerTest::expectEnd(const CProcess& server, DWORD exitCode)
{
    m_expectedExits[server.id()] = exitCode;
    const std::optional<DWORD> code = server.exitCode();
    if (!code) {
        ADD_FAILURE() << "server process " << server.id() << " did not end";
        server.kill(ERROR_PROCESS_ABORTED);
        server.exitCode();
        m_expectedExits[server.id()] = ERROR_PROCESS_ABORTED; // reported once
        return;
    }
    EXPECT_EQ(exitCode, *code) << "exit code of server process " << server.id();
}

const std::vector<LogLine>& ServerTest::lines(DWORD process)
{
    for (const CDebugMonitor::Line& line : monitor.linesFrom(m_linesTaken)) {
        ++m_linesTaken;
        if (LogLine parsed = parseLogLine(line.text); !parsed.level.empty()) {
            m_logs[line.process].push_back(std::move(parsed));
        }
    }
    return m_logs[process];
}

std::vector<std::string> ServerTest::messages(DWORD process)
{
    std::vector<std::string> texts;
    for (const LogLine& line : lines(process)) {
        texts.push_back(messageOf(line));
    }
    return texts;
}

size_t ServerTest::countMessages(DWORD process, const std::string& message)
{
    const std::vector<std::string> texts = messages(process);
    return static_cast<size_t>(std::count(texts.begin(), texts.end(), message));
}

bool ServerTest::waitForMessage(DWORD process, const std::string& message)
{
    size_t seen = 0;
    return pumpUntil(
        [&] {
            const std::vector<LogLine>& all = lines(process);
            while (seen < all.size()) {
                if (messageOf(all[seen++]) == message) {
                    return true;
                }
            }
            return false;
        },
        {monitor.changed()});
}

std::shared_ptr<CProcess> ServerTest::waitForNewServer(const std::vector<DWORD>& known)
{
    std::shared_ptr<CProcess> found;
    pumpUntil(
        [&] {
            for (const auto& [id, server] : monitor.senders()) {
                if (!m_expectedExits.contains(id) && !m_servers.contains(id) &&
                    std::find(known.begin(), known.end(), id) == known.end()) {
                    found = server;
                }
            }
            return found != nullptr;
        },
        {monitor.changed()});
    return found;
}

std::string ServerTest::logTail() const
{
    std::vector<CDebugMonitor::Line> all = monitor.linesFrom(0);
    const auto senders = monitor.senders();
    std::erase_if(all, [&](const CDebugMonitor::Line& line) {
        return !senders.contains(line.process) || m_registrations.contains(line.process);
    });
    std::string text = "last lines of the servers' log:\n";
    for (size_t index = all.size() - std::min(all.size(), TAIL_LINES); index < all.size(); ++index) {
        text += std::to_string(all[index].process) + " " + all[index].text + "\n";
    }
    return text;
}

std::string ServerTest::clientCommand(const char* role)
{
    return "\"" + programFolder() + "\\process_client.exe\" " + role;
}

std::shared_ptr<CProcess> ServerTest::serverOf(CProgram& client)
{
    if (!client.waitForOutput("frame ")) {
        throw std::runtime_error("the client has no frame: " + client.output());
    }
    const DWORD id = static_cast<DWORD>(std::stoul(client.output().substr(client.output().find("frame ") + 6)));
    return monitor.senders().at(id);
}

std::string messageOf(const LogLine& line)
{
    return line.body.substr(std::min(line.body.find_first_not_of(' '), line.body.size()));
}

std::vector<std::string> messagesOf(const std::string& text)
{
    std::vector<std::string> messages;
    for (const LogLine& line : parseLogLines(text)) {
        messages.push_back(line.level.empty() ? line.body : messageOf(line));
    }
    if (text.ends_with('\n')) {
        messages.emplace_back();
    }
    return messages;
}

std::string systemText(DWORD error)
{
    char text[256] = {};
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, sizeof text, nullptr);
    char number[16] = {};
    std::snprintf(number, sizeof number, " (%08lx)", error);
    return std::string(text, std::strcspn(text, "\r\n")) + number;
}

} // namespace fixtures
