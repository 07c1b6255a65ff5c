#include "support/loggerImplementation.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <typeinfo>

namespace {
// Demangled type names by the address of the encoded name. Entries stay until the process ends, so that a lookup takes no lock.
// Two threads may add the same type twice, which does no harm.
struct TypeName
{
    const char* encoded;
    std::string plain;
    const TypeName* next;
};
constinit std::atomic<const TypeName*> s_typeNames[64];

std::string demangle(const char* encoded)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> plain(abi::__cxa_demangle(encoded, nullptr, nullptr, &status), &std::free);
    if (plain == nullptr) { // the name of a type is always well-formed
        throw std::bad_alloc();
    }
    return plain.get();
}

const char* plainTypeName(const char* encoded)
{
    auto& bucket = s_typeNames[(reinterpret_cast<std::uintptr_t>(encoded) >> 4) % std::size(s_typeNames)];
    const TypeName* first = bucket.load(std::memory_order_acquire);
    for (const TypeName* entry = first; entry != nullptr; entry = entry->next) {
        if (entry->encoded == encoded) {
            return entry->plain.c_str();
        }
    }

    auto* added = new TypeName{encoded, demangle(encoded), first};
    while (!bucket.compare_exchange_weak(added->next, added, std::memory_order_release, std::memory_order_relaxed)) {
    }
    return added->plain.c_str();
}

const char* afterLast(const char* text, char separator)
{
    const char* found = std::strrchr(text, separator);
    return found != nullptr ? found + 1 : text;
}

constexpr std::string_view LINE_CUT = " [out of memory]";
} // namespace

const char* Loggable::getLogClassName() const
{
    return plainTypeName(typeid(*this).name());
}

std::string Loggable::getLogObjectInfo() const
{
    return {};
}

bool Loggable::isLogEnabled(const char* file, int line, int level) const
{
    return ::isLogEnabled(file, line, level);
}

LogStream& LogStream::operator<<(const char* text)
{
    if (text != nullptr) {
        m_stream << text;
    }
    return *this;
}

LogStream& LogStream::operator<<(const wchar_t* text)
{
    if (text == nullptr) {
        return *this;
    }
    try {
        m_stream << ATL::narrowText(text, std::wcslen(text));
    } catch (...) {
        setIncomplete();
    }
    return *this;
}

LogStream& LogStream::operator<<(std::ios_base& (*manipulator)(std::ios_base&))
{
    m_stream << manipulator;
    return *this;
}

LogEntry::LogEntry(const LogPlace& place, int level)
    : m_file(place.file)
    , m_line(place.line)
    , m_level(level)
{
    GetSystemTimeAsFileTime(&m_time);
    if (place.owner != nullptr) {
        try {
            m_className = place.owner->getLogClassName();
            m_objectInfo = place.owner->getLogObjectInfo();
        } catch (...) {
            m_isComplete = false;
        }
    }
    if (const Logger* const logger = Logger::instance()) {
        const LogScope* const enclosing = logger->m_impl->innermostScope();
        m_depth = enclosing != nullptr ? enclosing->m_depth + 1 : 0;
    }
}

LogEntry::~LogEntry()
{
    if (!m_pending) {
        return;
    }
    if (Logger* logger = Logger::instance()) {
        logger->m_impl->write(*this);
    }
}

LogStream& LogEntry::stream()
{
    if (!m_stream) {
        m_stream.emplace();
    }
    return *m_stream;
}

const std::string& LogEntry::format()
{
    if (!m_formatted.empty()) {
        return m_formatted;
    }

    FILETIME local;
    SYSTEMTIME time;
    FileTimeToLocalFileTime(&m_time, &local);
    FileTimeToSystemTime(&local, &time);
    char header[500];
    const int length =
        std::snprintf(header, sizeof header, "%04d-%02d-%02d %02d:%02d:%02d.%03d %05d %-6s %-20.20s %03d ", time.wYear,
                      time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds,
                      static_cast<int>(GetCurrentThreadId()), getLogLevelName(m_level), afterLast(m_file, '\\'), m_line);

    // Kept only when complete: after running out of memory, a later backtrace may format the line again.
    std::string whole;
    whole.reserve(256);
    whole.append(header, static_cast<size_t>(length));
    if (m_depth >= 0) {
        whole.append(static_cast<size_t>(std::min(m_depth, 20)), ' ');
        whole += m_marker == Marker::Plain ? "   " : m_marker == Marker::Entry ? "-> " : "<- ";
    }
    if (*m_className != '\0') {
        whole.append(m_className).append(" ").append(m_objectInfo).append(" ");
    }
    if (m_stream) {
        whole += m_stream->view();
    }
    if (!m_isComplete || (m_stream && !m_stream->isComplete())) {
        whole += LINE_CUT;
    }
    whole += '\n';
    m_formatted = std::move(whole);
    return m_formatted;
}

LogScope::LogScope(const LogPlace& place, int level)
    : LogEntry(place, level)
{
    m_pending = false;
    Logger* const logger = Logger::instance();
    if (logger == nullptr || level > LogState::s_traceLogLevel.load(std::memory_order_relaxed)) {
        return;
    }
    m_tracedBy = logger;
    m_previous = logger->m_impl->innermostScope();
    logger->m_impl->setInnermostScope(this);
    m_marker = Marker::Entry;
}

LogScope::~LogScope()
{
    // The Logger may have ended or been replaced inside this scope: the chain that this scope is in is then no longer used.
    if (m_tracedBy == nullptr || m_tracedBy != Logger::instance()) {
        return;
    }
    if (m_written) {
        leaveOutOnFailure([this] { writeExit(); });
    }
    m_tracedBy->m_impl->setInnermostScope(m_previous);
}

void LogScope::writeExit()
{
    LogEntry exit({m_file, m_line}, m_level);
    exit.m_pending = false;
    exit.m_isComplete = m_isComplete && (!m_stream || m_stream->isComplete());
    exit.m_className = m_className;
    exit.m_objectInfo = m_objectInfo;
    exit.m_depth = m_depth;
    exit.m_marker = Marker::Exit;
    if (m_stream) {
        exit.stream() << m_stream->view();
    }
    const LONGLONG milliseconds = (ticks(exit.m_time) - ticks(m_time)) / 10000;
    if (milliseconds >= 10) {
        exit.stream() << " [" << milliseconds << " ms]";
    }
    m_tracedBy->m_impl->write(exit);
}

LogStream& LogScope::name(const char* qualifiedName)
{
    const char* separator = std::strstr(qualifiedName, "::");
    return stream() << (separator != nullptr ? separator + 2 : qualifiedName) << " ";
}

void LogScope::writeEntry()
{
    if (Logger* const logger = Logger::instance()) {
        logger->m_impl->write(*this);
    }
}

int Logger::Implementation::backtraceCounter() const
{
    return static_cast<int>(reinterpret_cast<INT_PTR>(TlsGetValue(counterSlot)));
}

void Logger::Implementation::setBacktraceCounter(int counter)
{
    TlsSetValue(counterSlot, reinterpret_cast<void*>(static_cast<INT_PTR>(counter)));
}

void Logger::Implementation::write(LogEntry& entry) noexcept
{
    const bool isError = entry.m_level == LOGLEVEL_ERROR;
    const bool beginsBacktrace = isError && backtraceCounter() == 0;
    if (beginsBacktrace) {
        setBacktraceCounter(1);
        leaveOutOnFailure([this] { output(LOG_BANNER_BEGIN, false); });
    }
    const bool intoErrorBuffer = backtraceCounter() >= 1;
    writeLine(entry, intoErrorBuffer);
    if (isError) {
        // The whole chain each time, even scopes already written: a client sees its error text alone.
        for (LogScope* scope = innermostScope(); scope != nullptr; scope = scope->m_previous) {
            writeLine(*scope, intoErrorBuffer);
        }
    }
    if (beginsBacktrace) {
        leaveOutOnFailure([this] { output(LOG_BANNER_END, false); });
        setBacktraceCounter(0);
    }
}

void Logger::Implementation::writeLine(LogEntry& entry, bool intoErrorBuffer) noexcept
{
    leaveOutOnFailure([&] {
        output(entry.format(), intoErrorBuffer);
        entry.m_written = true;
    });
}

void Logger::Implementation::output(std::string_view line, bool intoErrorBuffer)
{
    std::string text;
    text.reserve(productName.size() + executableName.size() + line.size() + 2);
    OutputDebugStringA(text.append(productName).append(" ").append(executableName).append(" ").append(line).c_str());
    writeToFile(line);
    if (intoErrorBuffer) {
        const ATL::CComCritSecLock lock(errorLock);
        errorBuffer += line;
    }
}

namespace {
const char* outcomeOf(HRESULT result)
{
    return SUCCEEDED(result) ? ": success: " : ": failure: ";
}

// Logs a check: its text and its outcome, which is evaluated only when its level is on.
template <class Outcome>
void writeResult(const LogPlace& place, bool succeeded, const char* text, Outcome outcome)
{
    const int level = succeeded ? LOGLEVEL_TRACE : LOGLEVEL_ERROR;
    if (!isLogEnabled(place.file, place.line, level)) {
        return;
    }
    LogEntry entry(place, level);
    LogStream& stream = entry.stream() << text;
    try {
        stream << outcome();
    } catch (...) {
        stream.setIncomplete();
    }
}
} // namespace

void writeCondition(const LogPlace& place, bool holds, const char* text)
{
    writeResult(place, holds, text, [holds] { return holds ? ": true" : ": false"; });
}

HRESULT logHresult(const LogPlace& place, HRESULT result, const char* text)
{
    writeResult(place, SUCCEEDED(result), text,
                [result] { return outcomeOf(result) + getWindowsErrorText(static_cast<unsigned>(result)); });
    return result;
}

HRESULT logHresultNumber(const LogPlace& place, HRESULT result, const char* text)
{
    writeResult(place, SUCCEEDED(result), text, [result] { return outcomeOf(result) + std::to_string(result); });
    return result;
}

bool logWin32(const LogPlace& place, bool succeeded, const char* text)
{
    // First: building an entry reads thread-local slots, which resets the last error.
    const DWORD error = GetLastError();
    return logWin32With(place, succeeded, error, text);
}

bool logWin32With(const LogPlace& place, bool succeeded, DWORD error, const char* text)
{
    writeResult(place, succeeded, text,
                [=] { return succeeded ? std::string(": success") : ": failure: " + getWindowsErrorText(error); });
    return succeeded;
}

int logJniResult(const LogPlace& place, int code, const char* text)
{
    writeResult(place, code == 0, text, [code] { return ": " + getJNIErrorName(code); });
    return code;
}
