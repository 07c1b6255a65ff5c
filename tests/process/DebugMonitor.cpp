#include "tests/process/DebugMonitor.h"

#include <cstring>
#include <stdexcept>

namespace fixtures {

namespace {

// What a sender leaves in the shared page.
struct Page
{
    DWORD process;
    char text[4096 - sizeof(DWORD)];
};

constexpr char SERVER_LINE[] = "KESTA KESTAx64.exe ";

// Far more than a sender has the page, and less than the ten seconds that the next one waits for it.
constexpr DWORD SENDER_LIMIT = 3000; // ms

} // namespace

CDebugMonitor::CDebugMonitor()
    : m_mutexOfSenders(CreateMutexA(nullptr, FALSE, "DBWinMutex"))
    , m_mapping(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Page), "DBWIN_BUFFER"))
    , m_bufferReady(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY"))
    , m_dataReady(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY"))
    , m_changed(CreateEventA(nullptr, FALSE, FALSE, nullptr))
    , m_stop(CreateEventA(nullptr, TRUE, FALSE, nullptr))
{
    if (m_mutexOfSenders == nullptr || m_mapping == nullptr || m_bufferReady == nullptr || m_dataReady == nullptr) {
        throw std::runtime_error("the debugger stream cannot be read");
    }
    m_collector = std::thread([this] { collect(); });
}

CDebugMonitor::~CDebugMonitor()
{
    stop();
}

void CDebugMonitor::stop()
{
    if (!m_collector.joinable()) {
        return;
    }
    SetEvent(m_stop);
    m_collector.join();
    m_bufferReady.Close();
    m_dataReady.Close();
    m_mapping.Close();
}

void CDebugMonitor::collect()
{
    const auto* const page = static_cast<const Page*>(MapViewOfFile(m_mapping, FILE_MAP_READ, 0, 0, 0));
    const HANDLE handles[] = {m_stop, m_dataReady};
    SetEvent(m_bufferReady);
    for (DWORD result = 0; (result = WaitForMultipleObjects(2, handles, FALSE, SENDER_LIMIT)) != WAIT_OBJECT_0;) {
        if (result == WAIT_TIMEOUT) {
            SetEvent(m_bufferReady);
            continue;
        }
        Line line{page->process, std::string(page->text, strnlen(page->text, sizeof page->text))};
        if (line.text.ends_with('\n')) {
            line.text.pop_back();
        }
        const bool isServers = line.text.starts_with(SERVER_LINE);
        if (isServers) {
            line.text.erase(0, sizeof SERVER_LINE - 1);
        }
        {
            const std::lock_guard lock(m_mutex);
            if (isServers && !m_senders.contains(line.process)) {
                m_senders.emplace(line.process, std::make_shared<CProcess>(line.process));
            }
            m_lines.push_back(std::move(line));
        }
        SetEvent(m_bufferReady);
        SetEvent(m_changed);
    }
    UnmapViewOfFile(page);
}

std::vector<CDebugMonitor::Line> CDebugMonitor::linesFrom(size_t first) const
{
    const std::lock_guard lock(m_mutex);
    return {m_lines.begin() + static_cast<std::ptrdiff_t>(first), m_lines.end()};
}

std::map<DWORD, std::shared_ptr<CProcess>> CDebugMonitor::senders() const
{
    const std::lock_guard lock(m_mutex);
    return m_senders;
}

} // namespace fixtures
