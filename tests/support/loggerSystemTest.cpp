// The log's calls of Windows: their arguments, the use of their results, and what happens when they fail.
#include "support/loggerImplementation.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <map>
#include <thread>
#include <utility>

#define LOG_SOURCE "loggerSystemTest"

using fixtures::BEGIN_BANNER;
using fixtures::END_BANNER;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

namespace {

using InitializeHook = ImportHook<decltype(&InitializeCriticalSectionEx)>;
using EnterHook = ImportHook<decltype(&EnterCriticalSection)>;
using LeaveHook = ImportHook<decltype(&LeaveCriticalSection), struct Leave>;
using SlotHook = ImportHook<decltype(&TlsAlloc)>;
using PathHook = ImportHook<decltype(&GetModuleFileNameA)>;
// Its last parameter is a va_list*, whose attributes a template argument cannot carry.
using MessageHook = ImportHook<DWORD(WINAPI*)(DWORD, LPCVOID, DWORD, DWORD, LPSTR, DWORD, char**)>;
using FreeHook = ImportHook<decltype(&LocalFree)>;
using WriteHook = ImportHook<decltype(&WriteFile)>;
using CloseHook = ImportHook<decltype(&CloseHandle)>;
using VersionHook = ImportHook<decltype(&GetVersionExA)>;
using MetricsHook = ImportHook<decltype(&GetSystemMetrics)>;
using HardwareHook = ImportHook<decltype(&GetSystemInfo)>;
using AddressHook = ImportHook<decltype(&GetProcAddress)>;

std::vector<std::string> s_calls;
std::map<const CRITICAL_SECTION*, std::string> s_locks;

void noteLock(const std::string& call, const CRITICAL_SECTION* section)
{
    if (s_locks.contains(section)) {
        s_calls.push_back(call + " " + s_locks[section]);
    }
}

std::vector<std::string> takeCalls()
{
    return std::exchange(s_calls, {});
}

class LoggerSystemTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerSystemTest()
    {
        s_calls.clear();
        s_locks.clear();
    }
    std::vector<std::string> filed() const { return fixtures::bodies(m_world.logLines()); }
};

} // namespace

// ---- Locks and slots

TEST_F(LoggerSystemTest, FileAndErrorTextHaveALockEachAndTheTwoAreNeverHeldTogether)
{
    const InitializeHook initialize("InitializeCriticalSectionEx", [](LPCRITICAL_SECTION section, DWORD spins, DWORD flags) {
        EXPECT_EQ(spins, 0u);
        EXPECT_EQ(flags, 0u);
        s_locks.try_emplace(section, s_locks.empty() ? "file" : "errors");
        return InitializeHook::s_original(section, spins, flags);
    });
    const EnterHook enter("EnterCriticalSection", [](LPCRITICAL_SECTION section) {
        EnterHook::s_original(section);
        noteLock("enter", section);
    });
    const LeaveHook leave("LeaveCriticalSection", [](LPCRITICAL_SECTION section) {
        noteLock("leave", section);
        LeaveHook::s_original(section);
    });
    const WriteHook write("WriteFile", [](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
        s_calls.emplace_back("write");
        return WriteHook::s_original(file, bytes, size, written, overlapped);
    });
    const CloseHook close("CloseHandle", [](HANDLE handle) {
        s_calls.emplace_back("close");
        return CloseHook::s_original(handle);
    });
    m_world.start();
    EXPECT_EQ(s_locks.size(), 2u);
    LOG_PLAIN(WARN, "opens the file");
    takeCalls();
    LOG_PLAIN(ERROR, "broken");
    EXPECT_THAT(takeCalls(), ElementsAre("enter file", "write", "leave file", "enter file", "write", "leave file", "enter errors",
                                         "leave errors", "enter file", "write", "leave file"));
    Logger::getErrorEntries();
    EXPECT_THAT(takeCalls(), ElementsAre("enter errors", "leave errors"));
    m_world.stop();
    EXPECT_THAT(takeCalls(), ElementsAre("enter file", "close", "leave file"));
}

TEST_F(LoggerSystemTest, LockThatCannotBeMadeRaisesTheErrorAsAnHresultAndThereIsNoLogger)
{
    try {
        const InitializeHook hook("InitializeCriticalSectionEx", [](LPCRITICAL_SECTION, DWORD, DWORD) -> BOOL {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return FALSE;
        });
        Logger::addRefCount();
        ADD_FAILURE() << "nothing was raised";
    } catch (const ATL::CAtlException& error) {
        EXPECT_EQ(static_cast<unsigned>(error.m_hr), 0x80070008u);
    }
    EXPECT_EQ(Logger::instance(), nullptr);
    m_world.start();
    EXPECT_NE(Logger::instance(), nullptr) << "the next reference tries again";
}

TEST_F(LoggerSystemTest, TakesTwoThreadLocalSlots)
{
    const SlotHook hook("TlsAlloc", []() -> DWORD {
        s_calls.emplace_back("slot");
        return SlotHook::s_original();
    });
    m_world.start();
    LOG_PLAIN(ERROR, "text");
    EXPECT_THAT(s_calls, ElementsAre("slot", "slot"));
}

TEST_F(LoggerSystemTest, ThreadThatIsInsideALoggingCallWhenTheLogEndsWritesNothingMore)
{
    m_world.start();
    LOG_PLAIN(WARN, "opens the file");
    const std::string file = m_world.logFile();
    const ATL::CHandle isInside(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    const ATL::CHandle hasEnded(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    std::atomic<DWORD> lateThread = 0;
    const EnterHook enter("EnterCriticalSection", [&](LPCRITICAL_SECTION section) {
        DWORD self = GetCurrentThreadId();
        if (lateThread.compare_exchange_strong(self, 0)) {
            SetEvent(isInside);
            WaitForSingleObject(hasEnded, 60000);
        }
        EnterHook::s_original(section);
    });
    std::thread late([&lateThread] {
        lateThread = GetCurrentThreadId();
        LOG_PLAIN(WARN, "too late");
    });
    EXPECT_EQ(WaitForSingleObject(isInside, 60000), WAIT_OBJECT_0);
    Logger::release();
    SetEvent(hasEnded);
    late.join();
    EXPECT_THAT(fixtures::readFile(file), EndsWith("    opens the file\r\n"));
    EXPECT_TRUE(std::filesystem::remove(file)) << "it is closed";
}

// ---- Name of the executable

TEST_F(LoggerSystemTest, ExecutablesNameIsWhatFollowsTheLastBackslashOfItsPath)
{
    const struct
    {
        std::string path;
        DWORD length;
        std::string name;
    } paths[] = {
        {"C:\\a folder\\b.c\\program.exe", 29, "program.exe"},
        {"program.exe", 11, "program.exe"}, // a path without backslash is taken whole
        {"C:\\cut.exe", 260, "cut.exe"},
        {"C:\\program.exe", 261, "unknown"},
        {"C:\\program.exe", static_cast<DWORD>(-1), "unknown"},
    };
    const std::string product = m_world.PRODUCT;
    for (const auto& [path, length, name] : paths) {
        const PathHook hook("GetModuleFileNameA", [&](HMODULE module, LPSTR buffer, DWORD size) {
            EXPECT_EQ(module, nullptr);
            EXPECT_EQ(size, 260u);
            std::strcpy(buffer, path.c_str());
            return length;
        });
        open(LOGLEVEL_WARN);
        LOG_PLAIN(WARN, "text");
        EXPECT_THAT(m_stream.texts(), ElementsAre(StartsWith(product + " " + name + " ")));
        EXPECT_THAT(Logger::instance()->logFilePrefix(),
                    EndsWith("\\" + product + "-" + name + "-" + std::to_string(GetCurrentProcessId())));
    }
}

// ---- Error texts

TEST_F(LoggerSystemTest, ErrorTextIsTheSystemsNeutralOneUpToTheFirstLineEnd)
{
    const auto textOf = [](const std::string& message) {
        void* memory = nullptr;
        int freed = 0;
        const MessageHook hook(
            "FormatMessageA", [&](DWORD flags, LPCVOID source, DWORD code, DWORD language, LPSTR buffer, DWORD size, char**) {
                EXPECT_EQ(flags, static_cast<DWORD>(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                                    FORMAT_MESSAGE_IGNORE_INSERTS));
                EXPECT_EQ(source, nullptr);
                EXPECT_EQ(code, 0xABCu);
                EXPECT_EQ(language, 0x400u);
                EXPECT_EQ(size, 0u);
                memory = LocalAlloc(LMEM_FIXED, message.size() + 1);
                std::strcpy(static_cast<char*>(memory), message.c_str());
                *reinterpret_cast<void**>(buffer) = memory;
                return static_cast<DWORD>(message.size());
            });
        const FreeHook freeing("LocalFree", [&](HLOCAL block) {
            EXPECT_EQ(block, memory);
            ++freed;
            return FreeHook::s_original(block);
        });
        const std::string text = getWindowsErrorText(0xABC);
        EXPECT_EQ(freed, 1);
        return text;
    };
    EXPECT_EQ(textOf("Text with %1. \r\n"), "Text with %1.  (00000abc)");
    EXPECT_EQ(textOf("one\rtwo\nthree"), "one (00000abc)");
    EXPECT_EQ(textOf("one\ntwo\r\nthree"), "one (00000abc)");
    EXPECT_EQ(textOf("\r\ntext"), " (00000abc)");
    EXPECT_EQ(textOf("Text."), "Text. (00000abc)");
}

TEST_F(LoggerSystemTest, ErrorWithoutATextIsItsNumber)
{
    EXPECT_EQ(getWindowsErrorText(0xE0ABCDEF), " (e0abcdef)");
}

// ---- System information

namespace {

FARPROC s_wow64Function;

BOOL WINAPI wow64Process(HANDLE process, PBOOL result)
{
    s_calls.emplace_back(process == GetCurrentProcess() ? "own process" : "another process");
    *result = TRUE;
    return TRUE;
}

FARPROC WINAPI tellAddress(HMODULE module, LPCSTR name)
{
    if (std::strcmp(name, "IsWow64Process") != 0) {
        return AddressHook::s_original(module, name);
    }
    s_calls.emplace_back(module == GetModuleHandleA("kernel32.dll") ? "kernel32" : "another module");
    return s_wow64Function;
}

} // namespace

TEST_F(LoggerSystemTest, InformationNamesEachOfTheSystemsAnswers)
{
    const VersionHook version("GetVersionExA", [](LPOSVERSIONINFOA info) -> BOOL {
        s_calls.push_back(std::to_string(info->dwOSVersionInfoSize));
        auto& answer = *reinterpret_cast<OSVERSIONINFOEXA*>(info);
        answer.dwMajorVersion = 11;
        answer.dwMinorVersion = 12;
        answer.dwBuildNumber = 19045;
        answer.wServicePackMajor = 13;
        answer.wServicePackMinor = 14;
        answer.wSuiteMask = 0x1AB;
        answer.wProductType = 15;
        return TRUE;
    });
    const MetricsHook metrics("GetSystemMetrics", [](int metric) { return metric + 100000; });
    const HardwareHook hardware("GetSystemInfo", [](LPSYSTEM_INFO info) {
        info->dwProcessorType = 21;
        info->wProcessorLevel = 22;
        info->wProcessorRevision = 23;
        info->dwNumberOfProcessors = 24;
        info->dwActiveProcessorMask = 0x2B;
        info->dwPageSize = 26;
    });
    const AddressHook address("GetProcAddress", tellAddress);
    s_wow64Function = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(wow64Process));
    m_world.start(LOGLEVEL_TRACE);
    const std::string gcc = std::to_string(__GNUC__ * 10000 + __GNUC_MINOR__ * 100 + __GNUC_PATCHLEVEL__);
    const std::vector<std::string> expected = {
        "ALWAYS|    UNDEFINEDPRODUCT version: , ATL version: 0x100, compiler version: " + gcc,
        "TRACE|    GetVersionEx((OSVERSIONINFO*)&versionInfo): true",
        "ALWAYS|    Windows version: 11.12.19045, service pack 13.14, suite mask: 1ab, product type 15, WOW64 process: true",
        "ALWAYS|    System Metrics: SM_REMOTECONTROL=108193, SM_REMOTESESSION=104096, SM_SLOWMACHINE=100073, "
        "SM_NETWORK=100063, SM_MEDIACENTER=100087, SM_PENWINDOWS=100041, SM_TABLETPC=100086",
        "ALWAYS|    Hardware Info: processor type=21, level=22, revision=23, number of processors=24, processor mask=0x2b, "
        "page size=26"};
    std::vector<std::string> information;
    for (const std::string& line : filed()) {
        if (line.starts_with("ALWAYS|") || line.find("GetVersionEx") != std::string::npos) {
            information.push_back(line);
        }
    }
    EXPECT_EQ(information, expected);
    EXPECT_THAT(s_calls, ElementsAre(std::to_string(sizeof(OSVERSIONINFOEXA)), "kernel32", "own process"));
}

TEST_F(LoggerSystemTest, AnswersThatAreRefusedAreErrorsInTheFileAndInNobodysErrorText)
{
    const VersionHook version("GetVersionExA", [](LPOSVERSIONINFOA) -> BOOL { return FALSE; });
    const AddressHook address("GetProcAddress", tellAddress);
    s_wow64Function = nullptr;
    m_world.start();
    LOG_PLAIN(WARN, "text");
    const std::vector<std::string> lines = filed();
    EXPECT_THAT(lines, Contains("ERROR|    GetVersionEx((OSVERSIONINFO*)&versionInfo): false"));
    EXPECT_THAT(lines,
                Contains("ALWAYS|    Windows version: 0.0.0, service pack 0.0, suite mask: 0, product type 0, WOW64 process: "
                         "false"));
    EXPECT_EQ(lines.back(), "WARN|   text");
    EXPECT_EQ(Logger::getErrorEntries(), "");
}

// Neither the error that opens the file nor the thread's later lines are affected.
TEST_F(LoggerSystemTest, InformationThatRunsOutOfMemoryIsLeftOut)
{
    const MetricsHook metrics("GetSystemMetrics", [](int) -> int { throw std::bad_alloc(); });
    m_world.start();
    m_stream.clear();
    {
        LOG_SCOPE_STATIC(INFO, "Sample::scope");
        LOG(ERROR, "broken");
        LOG(WARN, "inside");
    }
    LOG_PLAIN(WARN, "outside");
    const std::vector<std::string> lines = filed();
    ASSERT_EQ(lines.size(), 3 + 7u);
    EXPECT_EQ(lines[2], "ALWAYS|    System Metrics: SM_REMOTECONTROL=");
    EXPECT_THAT((std::vector(lines.end() - 7, lines.end())), ElementsAre(BEGIN_BANNER, "ERROR|    broken", "INFO|-> ", END_BANNER,
                                                                         "WARN|    inside", "INFO|<- ", "WARN|   outside"));
    EXPECT_THAT(m_stream.said(), Contains("Out of memory, a log line was left out"));
    EXPECT_THAT(fixtures::bodies(fixtures::parseLogLines(Logger::getErrorEntries())),
                ElementsAre("ERROR|    broken", "INFO|-> "));
}
