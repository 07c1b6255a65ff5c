// The process-wide log: levels, statements, scopes, checks and the error backtrace.
//
// Ownership: one Logger a process, made by the first Logger::addRefCount and ended by the last Logger::release. Its memory and
// locks are never freed: Java's and the timer queue's threads still run while the process ends and may be inside a logging call.
// Threads:   any thread may log at any time, also before the Logger exists and after it ended (then nothing is written).
//            addRefCount and release are called at process start and end only.
// Failure:   logging never fails visibly. A log file that cannot be opened ends file logging, the debugger stream goes on; a line
//            for whose text there is no memory is left out (only streaming into a statement or an entry line can throw
//            std::bad_alloc).
//            Only the creation of the Logger's locks can raise: std::system_error with the HRESULT (0x8007xxxx) as its code.
//
// How a function logs:
//
//     #define LOG_SOURCE "BeanFrame"            // once a source file: the module's name, printed in the source column
//
//     HRESULT CBeanFrame::setEnabled(bool enabled)
//     {
//         LOG_SCOPE(INFO, "CBeanFrame::setEnabled", enabled);     // LOG_SCOPE_STATIC in free functions and static members
//         LOG(FINE, "text=" << text);
//         CHECK_RETURN(m_key != NULL, E_FAIL);
//         ...
//     }
//
// LOG_SCOPE opens the function's scope under the name logScope; every other macro logs on behalf of that scope's object. An
// object that may end inside the function logs through LOG_PLAIN from then on. The arguments of a statement are evaluated only
// when its level is on.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

enum LogLevel : int {
    LOGLEVEL_ALWAYS = 0,
    LOGLEVEL_ERROR = 1,
    LOGLEVEL_WARN = 2,
    LOGLEVEL_INFO = 3,
    LOGLEVEL_FINE = 4,
    LOGLEVEL_TRACE = 5,
};

// The name printed for a level. The table ends at 6, "(invalid)"; no other level may reach it.
const char* getLogLevelName(int level);

// The name of a result of the JNI invocation interface. "successfull" and "JNI_ENOMEN" are meant to stand so: log readers
// search for them.
std::string getJNIErrorName(int code);

// The system's text for a Win32 or HRESULT code, first line only, with " (%08x)" behind it. A code without text gives
// " (%08x)" alone.
std::string getWindowsErrorText(unsigned code);

class Logger;
class LogScope;

// What the level checks read. Both are -1 while no Logger exists, so that a statement that is off costs one comparison.
struct LogState
{
    static std::atomic<int> s_maxLogLevel;
    static std::atomic<int> s_traceLogLevel;
};

// True when a line of this level is written. File and line name the statement; they do not change the answer.
inline bool isLogEnabled(const char* /*file*/, int /*line*/, int level)
{
    return level <= LogState::s_maxLogLevel.load(std::memory_order_relaxed);
}

// Base of every class whose lines carry its class name. Derive virtually.
class Loggable
{
public:
    // The plain C++ name of the object's run-time type. The text stays valid until the process ends.
    virtual const char* getLogClassName() const;
    // What tells this object from others of its class; empty by default.
    virtual std::string getLogObjectInfo() const;
    // The same answer as the free function, which is what the macros below ask: a statement that is off costs no virtual call.
    virtual bool isLogEnabled(const char* file, int line, int level) const;
    virtual ~Loggable() = default;
};

// The text of one line under construction. Null texts are streamed as empty ones: a null pointer would swallow
// what follows it.
class LogStream
{
public:
    template <class T>
    LogStream& operator<<(const T& value)
    {
        m_stream << value;
        return *this;
    }
    LogStream& operator<<(const char* text);
    LogStream& operator<<(char* text) { return *this << static_cast<const char*>(text); }
    // Wide text, BSTRs included, is written in the system's ANSI code page.
    LogStream& operator<<(const wchar_t* text);
    LogStream& operator<<(wchar_t* text) { return *this << static_cast<const wchar_t*>(text); }
    LogStream& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

    // Valid until the next text is streamed.
    std::string_view view() const { return m_stream.view(); }

private:
    std::ostringstream m_stream;
};

// One log line. On the stack of the logging function only; never shared between threads.
// Keeps what a backtrace may print later (type, object text, raw clock) and builds nothing else until a line is written.
class LogEntry
{
public:
    // A statement: written when it goes out of scope. `owner` is the logging object, null in free functions and static members;
    // it is asked for its name and text here and not used afterwards, since it may be gone when the line is printed.
    LogEntry(const char* file, int line, int level, const Loggable* owner = nullptr);
    ~LogEntry();
    LogEntry(const LogEntry&) = delete;
    LogEntry& operator=(const LogEntry&) = delete;

    LogStream& stream();

protected:
    enum class Marker { Plain, Entry, Exit };
    struct NotPending
    {
    };
    // Without time and place, which are the derived class's affair.
    LogEntry(NotPending, const char* file, int line, int level, const Loggable* owner);
    // The depth in which it stands, inside the thread's innermost scope (null: in none).
    void takePlace(const LogScope* enclosing);

    // The finished line with its line feed; formatted once, with the id of the calling thread.
    const std::string& format();

    friend class Logger;
    friend class LogScope;

    const char* m_file;
    int m_line;
    int m_level;
    int m_depth = -1;
    int m_scopeDepth = 0; // handed on to what is nested inside
    Marker m_marker = Marker::Plain;
    bool m_pending = true;
    bool m_written = false;
    const char* m_className = "";
    std::string m_objectInfo;
    FILETIME m_time; // UTC; converted to local time only when printed
    std::optional<LogStream> m_stream;
    std::string m_formatted;
};

// Function scope: entry line on construction, exit line with the elapsed time on destruction, and a link in the thread's scope
// chain, which an error backtrace prints. Scopes of one thread end in reverse order of their creation.
//
// The system's clock is by far the dearest part of a scope that is off. A scope that is neither written nor the outermost of its
// chain therefore keeps the processor's counter instead, and its time is found only when a backtrace prints it: between that of
// an enclosing scope and now, in the proportion of the counters.
class LogScope : public LogEntry
{
public:
    LogScope(const char* file, int line, int level, const Loggable* owner = nullptr);
    ~LogScope();

    // The text for the entry line: the part of `qualifiedName` after its first "::" (the whole name when it has none)
    // and a blank.
    LogStream& name(const char* qualifiedName);
    // Writes the entry line at once.
    void writeEntry();

    const Loggable* owner() const { return m_owner; }

private:
    friend class Logger;
    void writeExit();
    void settleTime();

    const Loggable* m_owner;
    ULONGLONG m_counter;     // the processor's, at the creation
    bool m_timeKnown = true; // m_time is set
    LogScope* m_previous = nullptr;
    Logger* m_tracedBy = nullptr; // whose chain this scope is linked in; null when it is in none
};

class Logger
{
public:
    static void addRefCount();
    static void release();

    // Null while no Logger exists.
    static Logger* instance() { return s_instance.load(std::memory_order_acquire); }

    // Any integer is stored; callers keep to 0..5 (-1 silences the log).
    static void setMaxLogLevel(int level);
    // The lines collected by error backtraces of all threads since the last call; empties the buffer. "" without a Logger.
    static std::string getErrorEntries();

    // Settled during construction. The prefix is the full path of the log file without index and extension, empty = no file
    // logging; it becomes empty when a file cannot be opened.
    const std::string& logDirectory() const;
    std::string logFilePrefix() const;
    int maxLogLevel() const;
    int traceLogLevel() const;
    int oldLogFileAge() const;    // seconds
    int splitLogFileSize() const; // megabytes; 0 or less: never split
    bool hasMagicDirectory() const;

    // Places the log anew, as at construction: desktop folder, else registry. Closes an open file when its name changes.
    void initParametersFromRegistryOrSpecialFolder();
    // Deletes log files of this product that are older than the old log file age.
    void initCleanUpLogFiles();

private:
    friend class LogEntry;
    friend class LogScope;
    struct Implementation;

    Logger();
    ~Logger() = delete; // never freed, see above
    void start();
    void end();

    static std::atomic<Logger*> s_instance;
    std::unique_ptr<Implementation> m_impl;
};

// The bodies of the check macros below.
void writeCondition(const char* file, int line, const Loggable* owner, bool holds, const char* text);
inline bool logCheck(const char* file, int line, const Loggable* owner, bool holds, const char* text)
{
    if (isLogEnabled(file, line, holds ? LOGLEVEL_TRACE : LOGLEVEL_ERROR)) {
        writeCondition(file, line, owner, holds, text);
    }
    return holds;
}
HRESULT logHresult(const char* file, int line, const Loggable* owner, HRESULT result, const char* text);
HRESULT logHresultNumber(const char* file, int line, const Loggable* owner, HRESULT result, const char* text);
bool logWin32(const char* file, int line, const Loggable* owner, bool succeeded, const char* text);
bool logWin32Code(const char* file, int line, const Loggable* owner, bool succeeded, DWORD error, const char* text);
int logJniResult(const char* file, int line, const Loggable* owner, int code, const char* text);

#define LOG_SCOPE_OF_(owner, level, name_, ...)                                                                                  \
    LogScope logScope(LOG_SOURCE, __LINE__, level, owner);                                                                       \
    if (::isLogEnabled(LOG_SOURCE, __LINE__, level)) {                                                                           \
        logScope.name(name_) __VA_OPT__(<< __VA_ARGS__);                                                                         \
        logScope.writeEntry();                                                                                                   \
    }
#define LOG_OF_(owner, level, ...)                                                                                               \
    do {                                                                                                                         \
        if (::isLogEnabled(LOG_SOURCE, __LINE__, level))                                                                         \
            LogEntry(LOG_SOURCE, __LINE__, level, owner).stream() << __VA_ARGS__;                                                \
    } while (false)

// Levels are written ALWAYS, ERROR, WARN, INFO, FINE, TRACE.
#define LOG_SCOPE(level, name, ...) LOG_SCOPE_OF_(this, LOGLEVEL_##level, name __VA_OPT__(, ) __VA_ARGS__)
#define LOG_SCOPE_STATIC(level, name, ...) LOG_SCOPE_OF_(nullptr, LOGLEVEL_##level, name __VA_OPT__(, ) __VA_ARGS__)
#define LOG(level, ...) LOG_OF_(logScope.owner(), LOGLEVEL_##level, __VA_ARGS__)
#define LOG_PLAIN(level, ...) LOG_OF_(nullptr, LOGLEVEL_##level, __VA_ARGS__)

// The checks, by what is checked and what happens then. Each evaluates its argument once and logs the argument's own text, taken
// at this outermost macro so that NULL or CreateDirectory come out as they are written.
//
//                  logs only, gives the value     returns `result` from the function on failure
//   condition      CHECK_LOG                      CHECK_RETURN                    ": true" TRACE / ": false" ERROR
//   HRESULT        HRESULT_LOG                    HRESULT_RETURN (its own value)  ": success: " text / ": failure: " text
//                  HRESULT_NUMBER_LOG                                             the same with the HRESULT in decimal
//   Win32 call     WIN32_LOG, WIN32_LOG_CODE                                      ": success" / ": failure: " text of the error
//   JNI result     JNI_RESULT_LOG                 JNI_RESULT_RETURN               ": " name of the code, not 0 is ERROR
#define CHECK_LOG(condition) ::logCheck(LOG_SOURCE, __LINE__, logScope.owner(), static_cast<bool>(condition), #condition)
#define CHECK_RETURN(condition, result)                                                                                          \
    do {                                                                                                                         \
        if (!::logCheck(LOG_SOURCE, __LINE__, logScope.owner(), static_cast<bool>(condition), #condition))                       \
            return result;                                                                                                       \
    } while (false)
#define HRESULT_LOG(call) ::logHresult(LOG_SOURCE, __LINE__, logScope.owner(), (call), #call)
#define HRESULT_NUMBER_LOG(call) ::logHresultNumber(LOG_SOURCE, __LINE__, logScope.owner(), (call), #call)
#define HRESULT_RETURN(call)                                                                                                     \
    do {                                                                                                                         \
        const HRESULT checkedResult_ = ::logHresult(LOG_SOURCE, __LINE__, logScope.owner(), (call), #call);                      \
        if (checkedResult_ < 0)                                                                                                  \
            return checkedResult_;                                                                                               \
    } while (false)
#define WIN32_LOG(call) ::logWin32(LOG_SOURCE, __LINE__, logScope.owner(), static_cast<bool>(call), #call)
// For calls whose error code had to be saved before something else reset it.
#define WIN32_LOG_CODE(condition, error)                                                                                         \
    ::logWin32Code(LOG_SOURCE, __LINE__, logScope.owner(), static_cast<bool>(condition), error, #condition)
#define JNI_RESULT_LOG(call) ::logJniResult(LOG_SOURCE, __LINE__, logScope.owner(), (call), #call)
#define JNI_RESULT_RETURN(call, result)                                                                                          \
    do {                                                                                                                         \
        if (::logJniResult(LOG_SOURCE, __LINE__, logScope.owner(), (call), #call) != 0)                                          \
            return result;                                                                                                       \
    } while (false)
