// The process-wide log: levels, statements, scopes, checks and the error backtrace.
//
// Ownership: one Logger per process, created by the first Logger::addRefCount and ended by the last Logger::release. Its memory
//            and locks are never freed: threads of Java and of the timer queue still run while the process ends and may be inside
//            a logging call.
// Threads:   any thread may log at any time, even before the Logger exists and after it has ended (then nothing is written).
//            addRefCount and release are called at process start and end only.
// Failure:   logging never throws and never fails visibly; an exception of a statement's argument reaches the caller. A log file
//            that cannot be opened ends file logging, but not the debugger stream. A line whose text runs out of memory ends in
//            " [out of memory]" or, if there is not even memory for that, is left out. Only creating and placing the Logger
//            throws: CAtlException with the HRESULT 0x8007xxxx for a lock, std::bad_alloc for the rest.
//
// How a function logs:
//
//     #define LOG_SOURCE "BeanFrame"            // once per source file: the module's name, printed in the source column
//
//     HRESULT CBeanFrame::setEnabled(bool enabled)
//     {
//         LOG_SCOPE(FINE, "CBeanFrame::setEnabled", enabled);     // LOG_SCOPE_STATIC in free functions and static members
//         RETURN_IF_FALSE(beanObject != NULL, E_FAIL);
//         LOG(FINE, "bean=" << beanObject);
//         ...
//     }
//
// LOG_SCOPE opens the function's scope. In member functions, statements and checks log on behalf of the object; in free
// functions, and in static members after LOG_SCOPE_STATIC, they log without one. LOG_PLAIN always logs without an object: use it
// where the object may be gone. The arguments of a statement are evaluated only when its level is on.
#pragma once

#include <windows.h>

#include <atomic>
#include <climits>
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

// Around a backtrace. 124 characters and a line feed each; the first ends in one backslash.
inline constexpr std::string_view LOG_BANNER_BEGIN =
    "/******************************************** error detected - begin backtrace "
    "********************************************\\\n";
inline constexpr std::string_view LOG_BANNER_END = "\\************************************************** end error backtrace "
                                                   "***************************************************/\n";
static_assert(LOG_BANNER_BEGIN.size() == 125 && LOG_BANNER_END.size() == 125);

// The name of a result of the JNI invocation interface. "successfull" and "JNI_ENOMEN" are deliberate.
std::string getJNIErrorName(int code);

// The system's text for a Win32 or HRESULT code, first line only, followed by " (%08x)". A code without text gets
// " (%08x)" alone.
std::string getWindowsErrorText(unsigned code);

// Whether a starting Logger removes old log files. A program that only reads logs defines it as false.
extern const bool LOGGER_REMOVES_OLD_FILES;

class Logger;
class LogScope;

// What the level checks read. Without a Logger both are OFF, below every level: a statement that is off costs one comparison.
struct LogState
{
    static constexpr int OFF = INT_MIN;
    static std::atomic<int> s_maxLogLevel;
    static std::atomic<int> s_traceLogLevel;
};

// True when a line of this level is written. File and line do not matter.
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
    // Distinguishes this object from others of its class; empty by default.
    virtual std::string getLogObjectInfo() const;
    // Same as the free function, which the macros below call instead: a statement that is off costs no virtual call.
    virtual bool isLogEnabled(const char* file, int line, int level) const;
    virtual ~Loggable() = default;

protected:
    // The object that the macros below log for: `this` in a member function, none elsewhere.
    const Loggable* logOwner() const { return this; }
};

inline const Loggable* logOwner()
{
    return nullptr;
}

// Where a statement or check is in the source, and which object it logs for.
struct LogPlace
{
    const char* file;
    int line;
    const Loggable* owner = nullptr;
};

// The text of one line under construction. Null texts are streamed as empty ones: a null pointer would swallow what follows it.
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
    // Ends the text here, as the stream itself does when it runs out of memory.
    void setIncomplete() { m_stream.setstate(std::ios_base::badbit); }
    bool isComplete() const { return !m_stream.bad(); }

private:
    std::ostringstream m_stream;
};

// One log line, on the stack of the logging function only. Keeps what a backtrace may print later (class name, object text, time)
// and formats nothing until a line is written.
class LogEntry
{
public:
    // A statement: written when it goes out of scope. Takes the owner's name and text now, since the owner may be gone by then.
    LogEntry(const LogPlace& place, int level);
    ~LogEntry();
    LogEntry(const LogEntry&) = delete;
    LogEntry& operator=(const LogEntry&) = delete;

    LogStream& stream();

protected:
    enum class Marker { Plain, Entry, Exit };

    // The finished line with its line feed; formatted once, with the id of the calling thread. May run out of memory.
    const std::string& format();

    friend class Logger;
    friend class LogScope;

    const char* m_file;
    int m_line;
    int m_level;
    int m_depth = -1; // no indentation
    Marker m_marker = Marker::Plain;
    bool m_pending = true;
    bool m_written = false;
    bool m_isComplete = true; // false: there was no memory for the owner's text
    const char* m_className = "";
    std::string m_objectInfo;
    FILETIME m_time; // UTC; converted to local time only when written
    std::optional<LogStream> m_stream;
    std::string m_formatted;
};

// Function scope: entry line on construction, exit line with the elapsed time on destruction, and a link in the thread's scope
// chain, which an error backtrace prints. Scopes of one thread end in reverse order of their creation.
class LogScope : public LogEntry
{
public:
    LogScope(const LogPlace& place, int level);
    ~LogScope();

    // The text for the entry line: the part of `qualifiedName` after its first "::" (the whole name when it has none)
    // and a blank.
    LogStream& name(const char* qualifiedName);
    // Writes the entry line at once.
    void writeEntry();

private:
    friend class Logger;
    void writeExit();

    LogScope* m_previous = nullptr;
    Logger* m_tracedBy = nullptr; // the Logger whose chain this scope is in; null when in none
};

class Logger
{
public:
    static void addRefCount();
    static void release();

    // Null while no Logger exists.
    static Logger* instance() { return s_instance.load(std::memory_order_acquire); }

    // 0 to 5, or -1 to silence the log; not checked.
    static void setMaxLogLevel(int level);
    // The lines collected by error backtraces of all threads since the last call; empties the buffer. "" without a Logger.
    static std::string getErrorEntries();

    // Set during construction. The prefix is the full path of the log file without index and extension. Empty means no file
    // logging; it becomes empty when a file cannot be opened.
    const std::string& logDirectory() const;
    std::string logFilePrefix() const;
    int maxLogLevel() const;
    int traceLogLevel() const;
    int oldLogFileAge() const;    // seconds
    int splitLogFileSize() const; // megabytes; 0 or less: never split
    bool hasMagicDirectory() const;

    // Decides again, as at construction, where to log: desktop folder, else registry. Closes an open file when its name changes.
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

// The bodies of the check macros below: each logs what was checked and returns it.
void writeCondition(const LogPlace& place, bool holds, const char* text);
inline bool logCondition(const LogPlace& place, bool holds, const char* text)
{
    if (isLogEnabled(place.file, place.line, holds ? LOGLEVEL_TRACE : LOGLEVEL_ERROR)) {
        writeCondition(place, holds, text);
    }
    return holds;
}
HRESULT logHresult(const LogPlace& place, HRESULT result, const char* text);
HRESULT logHresultNumber(const LogPlace& place, HRESULT result, const char* text);
bool logWin32(const LogPlace& place, bool succeeded, const char* text);
bool logWin32With(const LogPlace& place, bool succeeded, DWORD error, const char* text);
int logJniResult(const LogPlace& place, int code, const char* text);

#define LOG_PLACE_ (LogPlace{LOG_SOURCE, __LINE__, logOwner()})
#define LOG_SCOPE_AT_(place, level, name_, ...)                                                                                  \
    LogScope logScope(place, level);                                                                                             \
    if (::isLogEnabled(LOG_SOURCE, __LINE__, level)) {                                                                           \
        logScope.name(name_) __VA_OPT__(<< __VA_ARGS__);                                                                         \
        logScope.writeEntry();                                                                                                   \
    }
#define LOG_AT_(place, level, ...)                                                                                               \
    do {                                                                                                                         \
        if (::isLogEnabled(LOG_SOURCE, __LINE__, level))                                                                         \
            LogEntry(place, level).stream() << __VA_ARGS__;                                                                      \
    } while (false)

// Levels are written ALWAYS, ERROR, WARN, INFO, FINE, TRACE.
#define LOG_SCOPE(level, name, ...) LOG_SCOPE_AT_(LOG_PLACE_, LOGLEVEL_##level, name __VA_OPT__(, ) __VA_ARGS__)
// Hides the member logOwner, which a static member function cannot call.
#define LOG_SCOPE_STATIC(level, name, ...)                                                                                       \
    [[maybe_unused]] constexpr auto logOwner = [] { return static_cast<const Loggable*>(nullptr); };                             \
    LOG_SCOPE(level, name __VA_OPT__(, ) __VA_ARGS__)
#define LOG(level, ...) LOG_AT_(LOG_PLACE_, LOGLEVEL_##level, __VA_ARGS__)
#define LOG_PLAIN(level, ...) LOG_AT_((LogPlace{LOG_SOURCE, __LINE__}), LOGLEVEL_##level, __VA_ARGS__)

// The checks, by what is checked and what happens then. Each evaluates its argument once and logs the argument's own text, taken
// at this outermost macro so that NULL or CreateDirectory are not expanded.
//
//                  logs, yields the value     also returns from the function on failure
//   condition      LOG_CONDITION              RETURN_IF_FALSE (with `result`)         ": true" TRACE / ": false" ERROR
//   HRESULT        LOG_HRESULT                RETURN_IF_FAILED (with the HRESULT)     ": success: " text / ": failure: " text
//                  LOG_HRESULT_NUMBER                                                 the same with the HRESULT in decimal
//   Win32 call     LOG_WIN32, LOG_WIN32_WITH                                          ": success" / ": failure: " error's text
//   JNI result                                RETURN_IF_JNI_FAILED (with `result`)    ": " name of the code, not 0 is ERROR
#define LOG_CONDITION(condition) ::logCondition(LOG_PLACE_, static_cast<bool>(condition), #condition)
#define RETURN_IF_FALSE(condition, result)                                                                                       \
    do {                                                                                                                         \
        if (!::logCondition(LOG_PLACE_, static_cast<bool>(condition), #condition))                                               \
            return result;                                                                                                       \
    } while (false)
#define LOG_HRESULT(call) ::logHresult(LOG_PLACE_, (call), #call)
#define LOG_HRESULT_NUMBER(call) ::logHresultNumber(LOG_PLACE_, (call), #call)
#define RETURN_IF_FAILED(call)                                                                                                   \
    do {                                                                                                                         \
        const HRESULT checkedResult_ = ::logHresult(LOG_PLACE_, (call), #call);                                                  \
        if (checkedResult_ < 0)                                                                                                  \
            return checkedResult_;                                                                                               \
    } while (false)
#define LOG_WIN32(call) ::logWin32(LOG_PLACE_, static_cast<bool>(call), #call)
// For calls whose error code had to be saved before another call could reset it.
#define LOG_WIN32_WITH(condition, error) ::logWin32With(LOG_PLACE_, static_cast<bool>(condition), error, #condition)
#define RETURN_IF_JNI_FAILED(call, result)                                                                                       \
    do {                                                                                                                         \
        if (::logJniResult(LOG_PLACE_, (call), #call) != 0)                                                                      \
            return result;                                                                                                       \
    } while (false)
