// What the source files of the logger share. Only they and their tests include it.
#pragma once

#include "atl/base.h"
#include "support/logger.h"

#include <string>
#include <string_view>
#include <utility>

// A file time in its units of 100 ns.
inline LONGLONG ticks(const FILETIME& time)
{
    return static_cast<LONGLONG>(static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

// A text file opened for appending, which others may read and write at the same time. Each text is one write call, so that lines
// stay whole even when another process appends to the same file.
class LogFile
{
public:
    LogFile() = default;
    ~LogFile() { close(); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    bool open(const std::string& path);
    bool isOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
    void close();
    // Appends with line feeds as CR LF. After the first failed write nothing more is written until the next open.
    void write(std::string_view text);
    // Where the next write goes; 0 after a failed write, so that a full disk starts no new files. Counted here, since asking
    // the system would make each line a tenth slower; text appended by another process is not counted.
    LONGLONG position() const { return m_failed ? 0 : m_position; }

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
    bool m_failed = false;
    LONGLONG m_position = 0;
    std::string m_buffer;
};

struct Logger::Implementation
{
    // While it exists, the calling thread is in no scope and no backtrace. Restores both at its end: otherwise every later line
    // of the thread would be nested in the wrong scope, or part of an error.
    class ThreadSetAside
    {
    public:
        explicit ThreadSetAside(Implementation& logger)
            : m_logger(logger)
            , m_counter(logger.backtraceCounter())
            , m_scope(logger.innermostScope())
        {
            m_logger.setBacktraceCounter(NO_BACKTRACE);
            m_logger.setInnermostScope(nullptr);
        }
        ~ThreadSetAside()
        {
            m_logger.setInnermostScope(m_scope);
            m_logger.setBacktraceCounter(m_counter);
        }
        ThreadSetAside(const ThreadSetAside&) = delete;
        ThreadSetAside& operator=(const ThreadSetAside&) = delete;

    private:
        Implementation& m_logger;
        const int m_counter;
        LogScope* const m_scope;
    };

    // Counter of a thread whose errors start no backtrace and go into no error text.
    static constexpr int NO_BACKTRACE = -1;

    // loggerEntry.cpp
    // Writes an entry, within a backtrace if it is an ERROR. Leaves out lines for which there is no memory.
    void write(LogEntry& entry) noexcept;
    void writeLine(LogEntry& entry, bool intoErrorBuffer) noexcept;
    void output(std::string_view line, bool intoErrorBuffer);
    int backtraceCounter() const;
    void setBacktraceCounter(int counter);
    LogScope* innermostScope() const { return static_cast<LogScope*>(TlsGetValue(scopeSlot)); }
    void setInnermostScope(LogScope* scope) { TlsSetValue(scopeSlot, scope); }

    // loggerFile.cpp
    void initSetDefaultLogfilePath();
    // S_OK when the folder exists, S_FALSE when not, else the failure of the folder lookup.
    HRESULT initSetParametersIfDesktopFolderExists();
    void initSetParametersFromRegistry();
    void ensureLogDirectory();
    void setLogFilePrefix(const std::string& prefix);
    std::string logFileName() const;
    void writeToFile(std::string_view text);
    void openFile();
    void writeSystemInformation();

    std::string productName;
    std::string executableName;
    std::string executablePath;
    DWORD processId = 0;

    std::string logDirectory;
    std::string logFilePrefix;
    int splitFileIndex = 0;
    int splitLogFileSize = 10;
    int oldLogFileAge = 28 * 24 * 60 * 60;
    bool magicDirectory = false;

    // Recursive, because the system information is written under this lock.
    ATL::CComAutoCriticalSection fileLock; // guards the file and its state, the prefix and the index
    LogFile file;
    bool openAttempted = false;
    bool systemInformationWritten = false;

    ATL::CComAutoCriticalSection errorLock; // guards errorBuffer
    std::string errorBuffer;

    DWORD counterSlot = TLS_OUT_OF_INDEXES; // a thread's depth of error backtraces
    DWORD scopeSlot = TLS_OUT_OF_INDEXES;   // a thread's innermost scope
};

// Runs a part of the logging that may run out of memory. If it does, the debugger stream says so.
template <class Function>
void leaveOutOnFailure(Function&& function) noexcept
{
    try {
        std::forward<Function>(function)();
    } catch (...) {
        OutputDebugStringA("Out of memory, a log line was left out");
    }
}

// Age in whole seconds, strictly greater than the limit. A file from the future is not old.
bool isOldLogFile(const FILETIME& now, const FILETIME& lastWrite, int oldLogFileAge);
