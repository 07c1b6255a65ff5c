// What the log asks of Windows, what it makes of the answers, and what happens when Windows refuses.
#include "support/loggerImplementation.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#define LOG_SOURCE "loggerSystemTest"

using fixtures::DebugStream;
using fixtures::LoggerWorld;
using testing::Contains;
using testing::ElementsAre;

namespace {

using LockHook = ImportHook<decltype(&InitializeCriticalSectionEx)>;
using SlotHook = ImportHook<decltype(&TlsAlloc)>;
using PathHook = ImportHook<decltype(&GetModuleFileNameA)>;
// Its last parameter is a va_list*, whose attributes a template argument cannot carry.
using MessageHook = ImportHook<DWORD(WINAPI*)(DWORD, LPCVOID, DWORD, DWORD, LPSTR, DWORD, char**)>;
using FreeHook = ImportHook<decltype(&LocalFree)>;
using WriteHook = ImportHook<decltype(&WriteFile)>;
using VersionHook = ImportHook<decltype(&GetVersionExA)>;
using MetricsHook = ImportHook<decltype(&GetSystemMetrics)>;
using HardwareHook = ImportHook<decltype(&GetSystemInfo)>;
using AddressHook = ImportHook<decltype(&GetProcAddress)>;

std::vector<std::string> s_calls;

class LoggerSystemTest : public testing::Test
{
protected:
    LoggerSystemTest() { s_calls.clear(); }
    std::vector<std::string> fileBodies() const
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_world.logLines()) {
            result.push_back(line.body);
        }
        return result;
    }

    LoggerWorld m_world;
    DebugStream m_stream;
};

// ---- Locks

BOOL WINAPI noteLock(LPCRITICAL_SECTION section, DWORD spinCount, DWORD flags)
{
    s_calls.push_back("spin " + std::to_string(spinCount) + ", flags " + std::to_string(flags));
    return LockHook::s_original(section, spinCount, flags);
}

BOOL WINAPI refuseLock(LPCRITICAL_SECTION, DWORD, DWORD)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}

} // namespace

TEST_F(LoggerSystemTest, MakesItsTwoLocksWithoutSpinning)
{
    const LockHook hook("InitializeCriticalSectionEx", noteLock);
    m_world.start();
    EXPECT_THAT(s_calls, ElementsAre("spin 0, flags 0", "spin 0, flags 0"));
}

TEST_F(LoggerSystemTest, LockThatCannotBeMadeRaisesTheErrorAsAnHresult)
{
    const LockHook hook("InitializeCriticalSectionEx", refuseLock);
    try {
        const ATL::CComAutoCriticalSection lock;
        ADD_FAILURE() << "nothing was raised";
    } catch (const ATL::CAtlException& error) {
        EXPECT_EQ(static_cast<unsigned>(error.m_hr), 0x80070008u);
    }
}

namespace {

DWORD WINAPI noteSlot()
{
    s_calls.emplace_back("slot");
    return SlotHook::s_original();
}

} // namespace

TEST_F(LoggerSystemTest, TakesTwoThreadLocalSlots)
{
    const SlotHook hook("TlsAlloc", noteSlot);
    m_world.start();
    LOG_PLAIN(ERROR, "text");
    EXPECT_THAT(s_calls, ElementsAre("slot", "slot"));
}

// ---- Name of the executable

namespace {

std::string s_path;
DWORD s_pathLength;

DWORD WINAPI tellPath(HMODULE module, LPSTR buffer, DWORD size)
{
    s_calls.push_back((module == nullptr ? "own " : "other ") + std::to_string(size));
    if (s_path.size() < size) {
        std::strcpy(buffer, s_path.c_str());
    }
    return s_pathLength;
}

} // namespace

TEST_F(LoggerSystemTest, ExecutablesNameIsWhatFollowsTheLastBackslashOfItsPath)
{
    const auto nameFor = [this](const std::string& path, DWORD length) {
        s_path = path;
        s_pathLength = length;
        s_calls.clear();
        const PathHook hook("GetModuleFileNameA", tellPath);
        m_world.start();
        EXPECT_EQ(s_calls.front(), "own 260");
        m_stream.clear();
        LOG_PLAIN(WARN, "text");
        const std::string prefix = Logger::instance()->logFilePrefix();
        const std::string sent = m_stream.texts().front();
        const std::string file = "\\UNDEFINEDPRODUCT-";
        const std::string name =
            sent.substr(sizeof "UNDEFINEDPRODUCT", sent.find(' ', sizeof "UNDEFINEDPRODUCT") - sizeof "UNDEFINEDPRODUCT");
        EXPECT_TRUE(prefix.ends_with(file + name + "-" + std::to_string(GetCurrentProcessId()))) << prefix;
        return name;
    };
    EXPECT_EQ(nameFor("C:\\a folder\\b.c\\program.exe", 29), "program.exe");
    EXPECT_EQ(nameFor("program.exe", 11), "program.exe") << "a path without backslash is taken whole";
    EXPECT_EQ(nameFor("C:\\cut.exe", 260), "cut.exe");
    EXPECT_EQ(nameFor("C:\\program.exe", 261), "unknown");
    EXPECT_EQ(nameFor("C:\\program.exe", static_cast<DWORD>(-1)), "unknown");
}

// ---- Error texts

namespace {

std::string s_message;
void* s_messageMemory;

DWORD WINAPI tellMessage(DWORD flags, LPCVOID source, DWORD code, DWORD language, LPSTR buffer, DWORD size, char**)
{
    s_calls.push_back((source == nullptr ? "" : "with a source, ") + std::to_string(flags) + " " + std::to_string(code) + " " +
                      std::to_string(language) + " " + std::to_string(size));
    s_messageMemory = LocalAlloc(LMEM_FIXED, s_message.size() + 1);
    std::strcpy(static_cast<char*>(s_messageMemory), s_message.c_str());
    *reinterpret_cast<void**>(buffer) = s_messageMemory;
    return static_cast<DWORD>(s_message.size());
}

HLOCAL WINAPI noteFreeing(HLOCAL memory)
{
    s_calls.push_back(memory == s_messageMemory ? "freed" : "freed something else");
    return FreeHook::s_original(memory);
}

std::string errorTextOf(const std::string& message)
{
    s_message = message;
    const MessageHook hook("FormatMessageA", tellMessage);
    const FreeHook freeing("LocalFree", noteFreeing);
    return getWindowsErrorText(0xABC);
}

} // namespace

TEST_F(LoggerSystemTest, ErrorTextIsTheSystemsUpToTheFirstLineEnd)
{
    EXPECT_EQ(errorTextOf("Text."), "Text. (00000abc)");
    EXPECT_EQ(errorTextOf("Text with %1. \r\n"), "Text with %1.  (00000abc)");
    EXPECT_EQ(errorTextOf("one\rtwo\nthree"), "one (00000abc)");
    EXPECT_EQ(errorTextOf("one\ntwo\r\nthree"), "one (00000abc)");
    EXPECT_EQ(errorTextOf("\r\ntext"), " (00000abc)");
    EXPECT_EQ(errorTextOf(""), " (00000abc)");
}

TEST_F(LoggerSystemTest, ErrorTextIsAskedForInTheNeutralLanguageWithoutInsertsAndFreed)
{
    errorTextOf("Text.");
    const DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    EXPECT_THAT(s_calls, ElementsAre(std::to_string(flags) + " 2748 1024 0", "freed"));
    EXPECT_EQ(MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), 1024);
}

// ---- Writing

namespace {

enum class Disk { Works, Refuses, TakesHalf };
Disk s_disk;

BOOL WINAPI writeOrNot(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped)
{
    s_calls.emplace_back("write");
    if (s_disk == Disk::Refuses) {
        *written = 0;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    return WriteHook::s_original(file, bytes, s_disk == Disk::TakesHalf ? size / 2 : size, written, overlapped);
}

class FailedWriteTest : public LoggerSystemTest, public testing::WithParamInterface<Disk>
{
};

INSTANTIATE_TEST_SUITE_P(LoggerSystem, FailedWriteTest, testing::Values(Disk::Refuses, Disk::TakesHalf),
                         [](const auto& info) { return info.param == Disk::Refuses ? "AllOfIt" : "HalfOfIt"; });

} // namespace

TEST_P(FailedWriteTest, EndsTheFileWithoutAReportAndTheStreamGoesOn)
{
    m_world.start();
    LOG_PLAIN(WARN, "before");
    const std::string prefix = Logger::instance()->logFilePrefix();
    const std::string content = m_world.logText();
    m_stream.clear();
    const WriteHook hook("WriteFile", writeOrNot);
    s_disk = GetParam();
    LOG_PLAIN(WARN, "fails");
    s_disk = Disk::Works;
    LOG_PLAIN(WARN, "later");
    LOG_PLAIN(WARN, "and later");

    EXPECT_THAT(s_calls, ElementsAre("write")) << "one call a line, and none after the failed one";
    EXPECT_THAT(m_stream.messages(), ElementsAre("WARN fails", "WARN later", "WARN and later"));
    EXPECT_EQ(Logger::instance()->logFilePrefix(), prefix);
    const std::string after = m_world.logText();
    EXPECT_TRUE(after.starts_with(content));
    EXPECT_EQ(after.find("later"), std::string::npos);
    EXPECT_EQ(after.size() > content.size(), GetParam() == Disk::TakesHalf);
}

namespace {

std::string s_entriesMeanwhile;

// Another thread asks for the error's lines while a line goes to the file.
BOOL WINAPI readErrorsMeanwhile(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped)
{
    const std::string text(static_cast<const char*>(bytes), size);
    if (text.find("broken") != std::string::npos) {
        const HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        std::thread reader([done] {
            s_entriesMeanwhile = Logger::getErrorEntries();
            SetEvent(done);
        });
        s_calls.push_back(WaitForSingleObject(done, 10000) == WAIT_OBJECT_0 ? "read" : "the locks are held together");
        reader.detach();
        CloseHandle(done);
    }
    return WriteHook::s_original(file, bytes, size, written, overlapped);
}

} // namespace

TEST_F(LoggerSystemTest, ErrorBufferIsFreeWhileALineIsWrittenToTheFileAndGetsTheLineAfterwards)
{
    m_world.start();
    LOG_PLAIN(WARN, "before");
    s_entriesMeanwhile = "none";
    {
        const WriteHook hook("WriteFile", readErrorsMeanwhile);
        LOG_PLAIN(ERROR, "broken");
    }
    EXPECT_THAT(s_calls, ElementsAre("read"));
    EXPECT_EQ(s_entriesMeanwhile, "");
    EXPECT_TRUE(Logger::getErrorEntries().ends_with("   broken\n"));
}

// ---- System information

namespace {

BOOL WINAPI tellVersion(LPOSVERSIONINFOA info)
{
    s_calls.push_back(std::to_string(info->dwOSVersionInfoSize));
    auto& version = *reinterpret_cast<OSVERSIONINFOEXA*>(info);
    version.dwMajorVersion = 11;
    version.dwMinorVersion = 12;
    version.dwBuildNumber = 19045;
    version.wServicePackMajor = 13;
    version.wServicePackMinor = 14;
    version.wSuiteMask = 0x1AB;
    version.wProductType = 15;
    return TRUE;
}

BOOL WINAPI tellNoVersion(LPOSVERSIONINFOA)
{
    return FALSE;
}

int WINAPI tellMetric(int metric)
{
    return metric + 100000;
}

void WINAPI tellHardware(LPSYSTEM_INFO info)
{
    info->dwProcessorType = 21;
    info->wProcessorLevel = 22;
    info->wProcessorRevision = 23;
    info->dwNumberOfProcessors = 24;
    info->dwActiveProcessorMask = 0x2B;
    info->dwPageSize = 26;
}

BOOL WINAPI wow64Process(HANDLE process, PBOOL result)
{
    s_calls.emplace_back(process == GetCurrentProcess() ? "own process" : "another process");
    *result = TRUE;
    return TRUE;
}

FARPROC s_wow64Function;

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
    const VersionHook version("GetVersionExA", tellVersion);
    const MetricsHook metrics("GetSystemMetrics", tellMetric);
    const HardwareHook hardware("GetSystemInfo", tellHardware);
    const AddressHook address("GetProcAddress", tellAddress);
    s_wow64Function = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(wow64Process));
    m_world.setPreference("loglevel", LOGLEVEL_ALWAYS);
    m_world.start();
    LOG_PLAIN(ALWAYS, "text");
    const std::string gcc = std::to_string(__GNUC__ * 10000 + __GNUC_MINOR__ * 100 + __GNUC_PATCHLEVEL__);
    EXPECT_THAT(
        fileBodies(),
        ElementsAre("    UNDEFINEDPRODUCT version: , ATL version: 0x100, compiler version: " + gcc,
                    "    Windows version: 11.12.19045, service pack 13.14, suite mask: 1ab, product type 15, WOW64 process: true",
                    "    System Metrics: SM_REMOTECONTROL=108193, SM_REMOTESESSION=104096, SM_SLOWMACHINE=100073, "
                    "SM_NETWORK=100063, SM_MEDIACENTER=100087, SM_PENWINDOWS=100041, SM_TABLETPC=100086",
                    "    Hardware Info: processor type=21, level=22, revision=23, number of processors=24, processor mask=0x2b, "
                    "page size=26",
                    "   text"));
    EXPECT_THAT(s_calls, ElementsAre(std::to_string(sizeof(OSVERSIONINFOEXA)), "kernel32", "own process"));
}

TEST_F(LoggerSystemTest, InformationWithoutTheFunctionForItIsAboutAProcessThatIsNot32Bit)
{
    const AddressHook address("GetProcAddress", tellAddress);
    s_wow64Function = nullptr;
    m_world.start();
    LOG_PLAIN(WARN, "text");
    EXPECT_THAT(s_calls, ElementsAre("kernel32"));
    EXPECT_TRUE(fileBodies()[1].ends_with(", WOW64 process: false")) << fileBodies()[1];
}

TEST_F(LoggerSystemTest, VersionThatIsRefusedIsAnErrorInTheFileAndInNobodysErrorText)
{
    const VersionHook version("GetVersionExA", tellNoVersion);
    m_world.start();
    LOG_PLAIN(WARN, "text");
    const std::vector<std::string> messages = m_stream.messages();
    EXPECT_THAT(messages, Contains("ERROR GetVersionEx((OSVERSIONINFO*)&versionInfo): false"));
    const std::vector<std::string> bodies = fileBodies();
    EXPECT_THAT(bodies, Contains("    GetVersionEx((OSVERSIONINFO*)&versionInfo): false"));
    EXPECT_THAT(bodies, Contains("    Windows version: 0.0.0, service pack 0.0, suite mask: 0, product type 0, WOW64 process: "
                                 "false"));
    EXPECT_EQ(bodies.back(), "   text");
    EXPECT_EQ(Logger::getErrorEntries(), "") << "the error buffer's lock is never taken under the file's";
}
