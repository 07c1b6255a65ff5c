#include "support/loggerImplementation.h"

#include "support/version.h"

#define LOG_SOURCE "logger"

// Constant-initialised: other static initialisers log before this file's own have run.
constinit std::atomic<int> LogState::s_maxLogLevel{OFF};
constinit std::atomic<int> LogState::s_traceLogLevel{OFF};
constinit std::atomic<Logger*> Logger::s_instance{nullptr};

namespace {
constinit int s_referenceCount = 0;

// Keeps the Logger from static initialisation to the end of static destruction. It is in the file that defines Logger, so that
// the linker takes it out of the library wherever something logs.
class LoggerGuard
{
public:
    LoggerGuard() { Logger::addRefCount(); }
    ~LoggerGuard() { Logger::release(); }
    LoggerGuard(const LoggerGuard&) = delete;
    LoggerGuard& operator=(const LoggerGuard&) = delete;
};
// Constructed before every ordinary static object and, since destruction runs backwards, destroyed after it.
__attribute__((init_priority(101))) const LoggerGuard s_guard;
} // namespace

void Logger::addRefCount()
{
    if (s_referenceCount == 0) {
        auto* logger = new Logger; // never freed, see the header
        ++s_referenceCount;
        logger->start();
        return;
    }
    ++s_referenceCount;
    LOG_SCOPE_STATIC(FINE, "Logger::addRefCount", "logging already initialized");
}

void Logger::release()
{
    if (s_referenceCount-- == 1) {
        instance()->end();
        return;
    }
    LOG_SCOPE_STATIC(FINE, "Logger::release", "not time to deinitialize log yet");
}

Logger::Logger()
    : m_impl(std::make_unique<Implementation>())
{
    m_impl->counterSlot = TlsAlloc();
    m_impl->scopeSlot = TlsAlloc();
    m_impl->processId = GetCurrentProcessId();

    char path[MAX_PATH + 1] = {};
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    m_impl->executablePath = path;
    // npos + 1 is 0: without a backslash, the name is the whole path.
    m_impl->executableName =
        length > MAX_PATH ? "unknown" : m_impl->executablePath.substr(m_impl->executablePath.rfind('\\') + 1);
    m_impl->productName = CVersion::getProductName();
}

void Logger::start()
{
    s_instance.store(this, std::memory_order_release);
    LogState::s_traceLogLevel = LOGLEVEL_TRACE;
    LogState::s_maxLogLevel = LOGLEVEL_WARN;

    // Deliberately kept, although the initial level, WARN, suppresses it.
    LOG_PLAIN(INFO, "Beginning logging to debug stream (logging parameters not yet initialized)");
    initParametersFromRegistryOrSpecialFolder();
    LOG_PLAIN(INFO, "Beginning logging with log level " << getLogLevelName(maxLogLevel()) << ", log file prefix is "
                                                        << logFilePrefix());
    LOG_PLAIN(INFO, "Executable path: " << m_impl->executablePath);
    if (LOGGER_REMOVES_OLD_FILES) {
        initCleanUpLogFiles();
    }
}

// Threads of Java and of the timer queue still run. They may hold the pointer or be inside a call, so memory, locks and
// thread-local slots stay; only the file is closed, for good.
void Logger::end()
{
    LOG_PLAIN(FINE, "End of logging, further static deinitializers can not log anymore");
    LogState::s_maxLogLevel = LogState::OFF;
    LogState::s_traceLogLevel = LogState::OFF;
    {
        const ATL::CComCritSecLock lock(m_impl->fileLock);
        m_impl->file.close();
        m_impl->openAttempted = true;
    }
    s_instance.store(nullptr, std::memory_order_release);
}

void Logger::setMaxLogLevel(int level)
{
    LOG_SCOPE_STATIC(FINE, "Logger::setMaxLogLevel", level);
    if (instance() != nullptr) {
        LogState::s_maxLogLevel = level;
    }
}

std::string Logger::getErrorEntries()
{
    LOG_SCOPE_STATIC(FINE, "Logger::getErrorEntries");
    std::string entries;
    if (const Logger* logger = instance()) {
        const ATL::CComCritSecLock lock(logger->m_impl->errorLock);
        entries.swap(logger->m_impl->errorBuffer);
    }
    return entries;
}

const std::string& Logger::logDirectory() const
{
    return m_impl->logDirectory;
}

std::string Logger::logFilePrefix() const
{
    const ATL::CComCritSecLock lock(m_impl->fileLock);
    return m_impl->logFilePrefix;
}

int Logger::maxLogLevel() const
{
    return LogState::s_maxLogLevel;
}

int Logger::traceLogLevel() const
{
    return LogState::s_traceLogLevel;
}

int Logger::oldLogFileAge() const
{
    return m_impl->oldLogFileAge;
}

int Logger::splitLogFileSize() const
{
    return m_impl->splitLogFileSize;
}

bool Logger::hasMagicDirectory() const
{
    return m_impl->magicDirectory;
}
