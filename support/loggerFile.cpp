#include "support/loggerImplementation.h"

#include "support/registry.h"
#include "support/version.h"

#include <algorithm>
#include <cstdio>
#include <shlobj.h>
#include <vector>

#define LOG_SOURCE "logger"

namespace {

constexpr int COMPILER_VERSION = __GNUC__ * 10000 + __GNUC_MINOR__ * 100 + __GNUC_PATCHLEVEL__;

// The file's buffer keeps this much; memory for longer lines is freed again.
constexpr size_t KEPT_BUFFER = 65536;

struct FindCloser
{
    void operator()(void* find) const { FindClose(find); }
};

std::string withBackslash(std::string directory)
{
    if (!directory.ends_with('\\')) {
        directory += '\\';
    }
    return directory;
}

// A level outside the table, 6 (no value in the registry) included, becomes `otherwise`.
int levelOr(int level, int otherwise)
{
    return level >= LOGLEVEL_ALWAYS && level <= LOGLEVEL_TRACE ? level : otherwise;
}

bool isWow64()
{
    using IsWow64ProcessFunction = BOOL(WINAPI*)(HANDLE, BOOL*);
    const auto isWow64Process = ATL::AtlFindFunction<IsWow64ProcessFunction>("kernel32", "IsWow64Process");
    BOOL result = FALSE;
    return isWow64Process != nullptr && isWow64Process(GetCurrentProcess(), &result) != FALSE && result != FALSE;
}
} // namespace

bool LogFile::open(const std::string& path)
{
    m_failed = false;
    m_handle = CreateFileA(path.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER size = {};
    m_position = isOpen() && GetFileSizeEx(m_handle, &size) ? size.QuadPart : 0;
    return isOpen();
}

void LogFile::close()
{
    if (isOpen()) {
        CloseHandle(m_handle);
    }
    m_handle = INVALID_HANDLE_VALUE;
}

void LogFile::write(std::string_view text)
{
    if (m_failed) {
        return;
    }
    m_buffer.clear();
    for (size_t place = 0; place < text.size();) {
        const size_t end = std::min(text.find('\n', place), text.size());
        m_buffer.append(text, place, end - place);
        if (end < text.size()) {
            m_buffer += "\r\n";
        }
        place = end + 1;
    }
    DWORD written = 0;
    const BOOL succeeded = WriteFile(m_handle, m_buffer.data(), static_cast<DWORD>(m_buffer.size()), &written, nullptr);
    m_failed = succeeded == FALSE || written != m_buffer.size();
    m_position += written;
    if (m_buffer.capacity() > KEPT_BUFFER) {
        std::string().swap(m_buffer); // assigning an empty text would keep the memory
    }
}

void Logger::initParametersFromRegistryOrSpecialFolder()
{
    LOG_SCOPE_STATIC(FINE, "Logger::initParametersFromRegistryOrSpecialFolder");
    m_impl->initSetDefaultLogfilePath();
    m_impl->magicDirectory = false;
    if (m_impl->initSetParametersIfDesktopFolderExists() == S_OK) {
        LogState::s_maxLogLevel = LOGLEVEL_TRACE;
        LogState::s_traceLogLevel = LOGLEVEL_TRACE;
    } else {
        m_impl->initSetParametersFromRegistry();
    }

    std::string prefix; // an empty directory turns file logging off
    if (!m_impl->logDirectory.empty()) {
        m_impl->ensureLogDirectory();
        prefix = m_impl->logDirectory + m_impl->productName + "-" + m_impl->executableName + "-" +
                 std::to_string(static_cast<int>(m_impl->processId));
    }
    m_impl->setLogFilePrefix(prefix);
}

void Logger::Implementation::initSetDefaultLogfilePath()
{
    LOG_SCOPE_STATIC(FINE, "Logger::initSetDefaultLogfilePath");
    char localappdatadir[MAX_PATH + 1] = {};
    if (FAILED(LOG_HRESULT(SHGetFolderPath(0, CSIDL_LOCAL_APPDATA, 0, SHGFP_TYPE_CURRENT, localappdatadir)))) {
        return;
    }
    logDirectory = withBackslash(localappdatadir) + productName + "-logs";
    LOG(FINE, "default log file path is " << logDirectory);
}

HRESULT Logger::Implementation::initSetParametersIfDesktopFolderExists()
{
    LOG_SCOPE_STATIC(FINE, "Logger::initSetParametersIfDesktopFolderExists");
    char desktopdir[MAX_PATH + 1] = {};
    RETURN_IF_FAILED(SHGetFolderPath(0, CSIDL_DESKTOPDIRECTORY, 0, SHGFP_TYPE_CURRENT, desktopdir));
    const std::string candidate = std::string(desktopdir) + "\\" + productName + "-logs";
    const DWORD attributes = GetFileAttributesA(candidate.c_str());
    LOG(TRACE, "file attributes are " << std::hex << attributes);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        LOG(FINE, "did not find magic logging directory " << candidate);
        return S_FALSE;
    }
    LOG(INFO, "found magic logging directory " << candidate);
    logDirectory = candidate;
    magicDirectory = true;
    return S_OK;
}

void Logger::Implementation::initSetParametersFromRegistry()
{
    LOG_SCOPE_STATIC(FINE, "Logger::initSetParametersFromRegistry");
    CRegistry registry(PREFERENCES_KEY, HKEY_LOCAL_MACHINE, PREFERENCES_ACCESS);
    const int maxLevel = levelOr(registry.getDWORDValue("loglevel", 6), LOGLEVEL_WARN);
    const int traceLevel = levelOr(registry.getDWORDValue("traceloglevel", 6), LOGLEVEL_TRACE);
    logDirectory = registry.getStringValue("logpath", logDirectory.c_str());
    oldLogFileAge = registry.getDWORDValue("oldlogfileage", oldLogFileAge);
    splitLogFileSize = registry.getDWORDValue("splitlogfilesize", splitLogFileSize);

    LogState::s_maxLogLevel = maxLevel;
    LogState::s_traceLogLevel = traceLevel;
    LOG(FINE, "Log level parameters from registry: loglevel=" << getLogLevelName(maxLevel)
                                                              << ", traceloglevel=" << getLogLevelName(traceLevel));
    LOG(FINE, "Log file parameters after reading from registry: logpath=" << logDirectory << ", oldlogfileage=" << oldLogFileAge
                                                                          << ", splitlogfilesize=" << splitLogFileSize);
}

void Logger::Implementation::ensureLogDirectory()
{
    LOG_SCOPE_STATIC(FINE, "Logger::ensureLogDirectory");
    logDirectory = withBackslash(logDirectory);
    const std::string& directory = logDirectory;                     // named as the check below prints it
    LOG(TRACE, "ensuring directory " << directory << " exisits..."); // the spelling is deliberate
    const DWORD attributes = GetFileAttributesA(directory.c_str());
    LOG(TRACE, "file attributes are " << std::hex << attributes);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        LOG_WIN32(CreateDirectory(directory.c_str(), 0));
    }
}

void Logger::Implementation::setLogFilePrefix(const std::string& prefix)
{
    LOG_SCOPE_STATIC(FINE, "Logger::setLogFilePrefix", prefix);
    bool redirect;
    {
        const ATL::CComCritSecLock lock(fileLock);
        redirect = file.isOpen() && prefix != logFilePrefix;
        if (!redirect) {
            logFilePrefix = prefix;
        }
    }
    if (!redirect) {
        return;
    }

    LOG(INFO, "Re-directing logging, closing this log file");
    {
        const ATL::CComCritSecLock lock(fileLock);
        file.close();
        openAttempted = false;
        logFilePrefix = prefix;
    }
    LOG(INFO,
        "Re-directing logging with log level " << getLogLevelName(LogState::s_maxLogLevel) << ", log file prefix is " << prefix);
}

std::string Logger::Implementation::logFileName() const
{
    if (splitFileIndex == 0) {
        return logFilePrefix + ".log";
    }
    char index[16];
    std::snprintf(index, sizeof index, "-%04d", splitFileIndex);
    return logFilePrefix + index + ".log";
}

void Logger::Implementation::writeToFile(std::string_view text)
{
    const ATL::CComCritSecLock lock(fileLock);
    if (logFilePrefix.empty()) {
        return;
    }
    // Repeated when the system information alone has filled the file: the text then belongs in the next one.
    while (!openAttempted) {
        openFile();
    }
    if (!file.isOpen()) {
        return;
    }
    file.write(text);
    if (splitLogFileSize > 0 && (file.position() >> 20) > splitLogFileSize) {
        file.close();
        openAttempted = false;
        ++splitFileIndex;
    }
}

// Under the file lock. The flags are set before the system information is written, since its lines come back here.
void Logger::Implementation::openFile()
{
    const std::string name = logFileName(); // may throw: the next line then tries again
    openAttempted = true;
    if (!file.open(name)) {
        OutputDebugStringA("Could not open log file, giving up logging to files");
        logFilePrefix.clear();
        return;
    }
    if (splitFileIndex != 0 || systemInformationWritten) {
        return;
    }
    systemInformationWritten = true;
    // The line that opened the file may be the first of a backtrace. The information must stay out of it and out of the client's
    // error text, even when it contains an error: the error buffer's lock is never taken under the file lock.
    const ThreadSetAside aside(*this);
    leaveOutOnFailure([this] { writeSystemInformation(); });
}

void Logger::Implementation::writeSystemInformation()
{
    LOG_SCOPE_STATIC(FINE, "Logger::writeSystemInformation");
    LOG(ALWAYS, productName << " version: " << CVersion::getVersionInfo() << ", ATL version: 0x" << std::hex << ATL::ATL_VER
                            << ", compiler version: " << std::dec << COMPILER_VERSION);

    OSVERSIONINFOEXA versionInfo = {};
    versionInfo.dwOSVersionInfoSize = sizeof versionInfo;
    LOG_CONDITION(GetVersionEx((OSVERSIONINFO*)&versionInfo));
    LOG(ALWAYS, "Windows version: " << versionInfo.dwMajorVersion << "." << versionInfo.dwMinorVersion << "."
                                    << versionInfo.dwBuildNumber << ", service pack " << versionInfo.wServicePackMajor << "."
                                    << versionInfo.wServicePackMinor << ", suite mask: " << std::hex << versionInfo.wSuiteMask
                                    << std::dec << ", product type " << static_cast<int>(versionInfo.wProductType)
                                    << ", WOW64 process: " << (isWow64() ? "true" : "false"));

    LOG(ALWAYS, "System Metrics: SM_REMOTECONTROL="
                    << GetSystemMetrics(SM_REMOTECONTROL) << ", SM_REMOTESESSION=" << GetSystemMetrics(SM_REMOTESESSION)
                    << ", SM_SLOWMACHINE=" << GetSystemMetrics(SM_SLOWMACHINE) << ", SM_NETWORK=" << GetSystemMetrics(SM_NETWORK)
                    << ", SM_MEDIACENTER=" << GetSystemMetrics(SM_MEDIACENTER) << ", SM_PENWINDOWS="
                    << GetSystemMetrics(SM_PENWINDOWS) << ", SM_TABLETPC=" << GetSystemMetrics(SM_TABLETPC));

    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    LOG(ALWAYS, "Hardware Info: processor type=" << system.dwProcessorType << ", level=" << system.wProcessorLevel
                                                 << ", revision=" << system.wProcessorRevision
                                                 << ", number of processors=" << system.dwNumberOfProcessors
                                                 << ", processor mask=0x" << std::hex << system.dwActiveProcessorMask << std::dec
                                                 << ", page size=" << system.dwPageSize);
}

bool isOldLogFile(const FILETIME& now, const FILETIME& lastWrite, int oldLogFileAge)
{
    return (ticks(now) - ticks(lastWrite)) / 10000000 > oldLogFileAge;
}

void Logger::initCleanUpLogFiles()
{
    LOG_SCOPE_STATIC(FINE, "Logger::initCleanUpLogFiles");
    if (logFilePrefix().empty()) {
        return;
    }
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    std::vector<std::string> oldFiles;
    WIN32_FIND_DATAA found;
    const HANDLE first = FindFirstFileA((m_impl->logDirectory + m_impl->productName + "-*.log").c_str(), &found);
    if (first == INVALID_HANDLE_VALUE) {
        return;
    }
    {
        const std::unique_ptr<void, FindCloser> find(first);
        do {
            if (isOldLogFile(now, found.ftLastWriteTime, m_impl->oldLogFileAge)) {
                oldFiles.emplace_back(found.cFileName);
            }
        } while (FindNextFileA(find.get(), &found));
    }
    for (const std::string& name : oldFiles) {
        LOG(INFO, "Deleting old log file " << name);
        DeleteFileA((m_impl->logDirectory + name).c_str()); // a file that is in use stays until next time
    }
}
