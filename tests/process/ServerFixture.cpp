#include "tests/process/ServerFixture.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fixtures {

namespace {

constexpr char EXECUTABLE[] = "KESTAx64.exe";
constexpr char STREAM_PREFIX[] = "KESTA KESTAx64.exe ";
constexpr size_t TAIL_LINES = 60;

// Columns of a log line's header: time, thread, level, source, line number, each followed by a blank.
constexpr size_t TIME_WIDTH = 23;
constexpr size_t LEVEL_WIDTH = 6;
constexpr size_t SOURCE_WIDTH = 20;
constexpr size_t MARKER_WIDTH = 3;

void deleteTree(const std::string& path)
{
    for (const std::string& name : filesIn(path)) {
        const std::string file = path + "\\" + name;
        const DWORD attributes = GetFileAttributesA(file.c_str());
        SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
            deleteTree(file);
        } else {
            DeleteFileA(file.c_str());
        }
    }
    RemoveDirectoryA(path.c_str());
}

std::string trimmed(std::string text)
{
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace

CTemporaryFolder::CTemporaryFolder(const char* name)
{
    char temporary[MAX_PATH + 1] = {};
    GetTempPathA(MAX_PATH, temporary);
    m_path = temporary + std::string("kesta-") + std::to_string(GetCurrentProcessId()) + "-" + name;
    deleteTree(m_path);
    if (!CreateDirectoryA(m_path.c_str(), nullptr)) {
        throw std::runtime_error("the folder " + m_path + " cannot be created");
    }
}

CTemporaryFolder::~CTemporaryFolder()
{
    deleteTree(m_path);
}

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> filesIn(const std::string& folder)
{
    std::vector<std::string> names;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA((folder + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        const std::string name = found.cFileName;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    } while (FindNextFileA(search, &found));
    FindClose(search);
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
    // The test program stands two folders below the executable.
    const std::string program = programFolder();
    const std::string tests = program.substr(0, program.rfind('\\'));
    m_buildFolder = tests.substr(0, tests.rfind('\\'));
}

ServerTest::~ServerTest() = default;

void ServerTest::SetUp()
{
    ASSERT_TRUE(processesNamed(EXECUTABLE).empty()) << "a server process of somebody else is running";
    settings.setRuntime("21.0.8", runtimeLibrary(21));
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
    EXPECT_EQ(readFile(folder.file("crash.log")), "") << "the virtual machine has crashed";
    EXPECT_EQ(runServer("/UnregServer"), 0u);
    if (HasFailure()) {
        std::fputs(logTail().c_str(), stdout);
    }
}

void ServerTest::logToFile()
{
    settings.setPreference("logpath", folder.path());
    monitor.stop();
}

std::vector<std::string> ServerTest::logFileLines(DWORD process) const
{
    std::vector<std::string> lines;
    std::istringstream content(readFile(logFile(process)));
    for (std::string line; std::getline(content, line);) {
        std::erase(line, '\r');
        lines.push_back(line);
    }
    return lines;
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

std::vector<std::string> ServerTest::messages(DWORD process) const
{
    std::vector<std::string> texts;
    for (const std::string& text : monitor.lines(process)) {
        if (const auto line = parseLogLine(text)) {
            texts.push_back(line->text());
        }
    }
    return texts;
}

size_t ServerTest::countMessages(DWORD process, const std::string& message) const
{
    const std::vector<std::string> texts = messages(process);
    return static_cast<size_t>(std::count(texts.begin(), texts.end(), message));
}

bool ServerTest::waitForMessage(DWORD process, const std::string& message)
{
    return pumpUntil([&] { return countMessages(process, message) != 0; }, {monitor.changed()});
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
    std::vector<CDebugMonitor::Line> lines = monitor.lines();
    std::erase_if(lines, [&](const CDebugMonitor::Line& line) {
        return !line.text.starts_with(STREAM_PREFIX) || m_registrations.contains(line.process);
    });
    std::string text = "last lines of the servers' log:\n";
    for (size_t index = lines.size() - std::min(lines.size(), TAIL_LINES); index < lines.size(); ++index) {
        text += std::to_string(lines[index].process) + " " + lines[index].text + "\n";
    }
    return text;
}

std::string SLogLine::messageWithoutDuration() const
{
    const size_t bracket = message.rfind(" [");
    const bool hasDuration = marker == "<-" && bracket != std::string::npos && message.ends_with(" ms]");
    return hasDuration ? message.substr(0, bracket) : message;
}

std::string SLogLine::text() const
{
    return (marker.empty() ? "" : marker + " ") + messageWithoutDuration();
}

std::vector<std::string> messagesOf(const std::string& text)
{
    std::vector<std::string> messages;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto parsed = parseLogLine(line);
        messages.push_back(parsed ? parsed->text() : line);
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

std::optional<SLogLine> parseLogLine(const std::string& text)
{
    size_t place = text.starts_with(STREAM_PREFIX) ? sizeof STREAM_PREFIX - 1 : 0;
    SLogLine line;
    line.time = text.substr(std::min(place, text.size()), TIME_WIDTH);
    if (line.time.size() != TIME_WIDTH || !std::isdigit(static_cast<unsigned char>(line.time[0])) || line.time[4] != '-') {
        return std::nullopt;
    }
    place += TIME_WIDTH + 1;
    const size_t threadEnd = text.find(' ', place);
    line.thread = static_cast<DWORD>(std::stoul(text.substr(place, threadEnd - place)));
    place = threadEnd + 1;
    line.level = trimmed(text.substr(place, LEVEL_WIDTH));
    place += LEVEL_WIDTH + 1;
    line.source = trimmed(text.substr(place, SOURCE_WIDTH));
    place += SOURCE_WIDTH + 1;
    place = text.find(' ', place) + 1;
    const size_t end = text.find_first_not_of(' ', place);
    if (end == std::string::npos) {
        return line;
    }
    const std::string marker = text.substr(end, MARKER_WIDTH);
    if (marker == "-> " || marker == "<- ") {
        line.marker = marker.substr(0, 2);
        line.depth = end - place;
        line.message = text.substr(end + MARKER_WIDTH);
    } else {
        line.depth = end - place - MARKER_WIDTH;
        line.message = text.substr(end);
    }
    return line;
}

} // namespace fixtures
