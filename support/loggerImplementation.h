// What the source files of the logger share. Nothing outside this room and its tests includes it.
#pragma once

#include "support/logger.h"

#include <string>
#include <string_view>

// A Win32 critical section for std::lock_guard. Recursive, which the system information block needs: it logs under the file lock.
// Never deleted while threads may still log; that is why the Logger, which owns two, is never freed.
class LogLock
{
public:
    // Raises std::system_error with the HRESULT made from GetLastError().
    LogLock();
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    void lock() { EnterCriticalSection(&m_section); }
    void unlock() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

// A text file opened for appending, which others may read and write meanwhile. One write call a text, so that no line is torn
// even when another process appends to the same file.
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
    // Where the next write goes; 0 after a failed write, so that a full disk starts no new files. Counted, since asking the
    // system after each line costs as much as a tenth of the line: what another process appends meanwhile is not in it.
    LONGLONG position() const { return m_failed ? 0 : m_position; }

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
    bool m_failed = false;
    LONGLONG m_position = 0;
    std::string m_buffer;
};

struct Logger::Implementation
{
    // loggerEntry.cpp
    // Writes an entry and, for an ERROR, the backtrace around it.
    void write(LogEntry& entry);
    void writeOrDrop(LogEntry& entry) noexcept;
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

    LogLock fileLock; // guards the file and its state, the prefix and the index
    LogFile file;
    bool openAttempted = false;
    bool systemInformationWritten = false;

    LogLock errorLock; // guards errorBuffer
    std::string errorBuffer;

    DWORD counterSlot = TLS_OUT_OF_INDEXES; // a thread's depth of error backtraces
    DWORD scopeSlot = TLS_OUT_OF_INDEXES;   // a thread's innermost scope
};

// Age in whole seconds, strictly greater than the limit. A file from the future is not old.
bool isOldLogFile(const FILETIME& now, const FILETIME& lastWrite, int oldLogFileAge);
