// Version resources: of files made by the build with resources of known content, and of the running executable.
#include "support/version.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

using fixtures::DebugStream;
using testing::ElementsAre;

namespace {

std::string executablePath()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

std::string beside(const char* name)
{
    return (std::filesystem::path(executablePath()).parent_path() / name).string();
}

// "LEVEL|body" of what the module said.
std::vector<std::string> linesOf(const DebugStream& stream)
{
    std::vector<std::string> result;
    for (const fixtures::LogLine& line : stream.lines()) {
        if (line.source == "version             ") {
            result.push_back(line.level + "|" + line.body);
        }
    }
    return result;
}

// Sets another module name for the time of a test.
class ModuleName
{
public:
    explicit ModuleName(const char* name) { CVersion::s_moduleName = name; }
    ~ModuleName() { CVersion::s_moduleName = m_before; }
    ModuleName(const ModuleName&) = delete;
    ModuleName& operator=(const ModuleName&) = delete;

private:
    const char* m_before = CVersion::s_moduleName;
};

} // namespace

TEST(VersionTest, ModuleNameAtTheStart)
{
    EXPECT_STREQ(CVersion::s_moduleName, "KESTA.exe");
}

TEST(VersionTest, FileVersionIsPrintedAsFourNumbers)
{
    EXPECT_EQ(CVersion::getVersionInfo(beside("versionFirst.dll").c_str()), "1.6.0.0");
    EXPECT_EQ(CVersion::getVersionInfo(beside("versionSecond.dll").c_str()), "65535.7.10.40000");
}

TEST(VersionTest, ProductNameIsTakenFromTheFirstTranslationThatHasOne)
{
    EXPECT_EQ(CVersion::getProductName(beside("versionFirst.dll").c_str()), "KESTA");
    EXPECT_EQ(CVersion::getProductName(beside("versionSecond.dll").c_str()), "Second");
    EXPECT_EQ(CVersion::getProductName(beside("versionNone.dll").c_str()), "UNDEFINEDPRODUCT");
    EXPECT_EQ(CVersion::getProductName(beside("versionUntranslated.dll").c_str()), "UNDEFINEDPRODUCT");
}

TEST(VersionTest, FirstOfTwoProductNamesIsTaken)
{
    EXPECT_EQ(CVersion::getProductName(beside("versionBoth.dll").c_str()), "First");
}

namespace {
using QueryHook = ImportHook<decltype(&VerQueryValueA)>;
using PathHook = ImportHook<decltype(&GetModuleFileNameA)>;

std::vector<std::string> s_calls;

BOOL WINAPI noteQuery(LPCVOID block, LPCSTR name, LPVOID* value, PUINT length)
{
    s_calls.emplace_back(name);
    return QueryHook::s_original(block, name, value, length);
}

DWORD WINAPI notePath(HMODULE module, LPSTR buffer, DWORD size)
{
    s_calls.push_back((module == nullptr                            ? "own "
                       : module == GetModuleHandleA("kernel32.dll") ? "kernel32 "
                                                                    : "another ") +
                      std::to_string(size));
    return PathHook::s_original(module, buffer, size);
}
} // namespace

TEST(VersionTest, ResourceIsAskedForTheFixedInformationAndThenTranslationByTranslation)
{
    const QueryHook hook("VerQueryValueA", noteQuery);
    s_calls.clear();
    CVersion::getVersionInfo(beside("versionBoth.dll").c_str());
    EXPECT_THAT(s_calls, ElementsAre("\\"));
    s_calls.clear();
    CVersion::getProductName(beside("versionBoth.dll").c_str());
    EXPECT_THAT(s_calls, ElementsAre("\\VarFileInfo\\Translation", "\\StringFileInfo\\040904e4\\ProductName"));
    s_calls.clear();
    CVersion::getProductName(beside("versionSecond.dll").c_str());
    EXPECT_THAT(s_calls, ElementsAre("\\VarFileInfo\\Translation", "\\StringFileInfo\\040904e4\\ProductName",
                                     "\\StringFileInfo\\040704e4\\ProductName"));
    s_calls.clear();
    CVersion::getProductName(beside("versionUntranslated.dll").c_str());
    EXPECT_THAT(s_calls, ElementsAre("\\VarFileInfo\\Translation"));
}

TEST(VersionTest, ModuleNameIsThatOfAnyLoadedModule)
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(GetModuleHandleA("kernel32.dll"), path, MAX_PATH);
    const PathHook hook("GetModuleFileNameA", notePath);
    s_calls.clear();
    EXPECT_NE(CVersion::getProductName(), CVersion::getProductName(path));
    {
        const ModuleName other("kernel32.dll");
        EXPECT_EQ(CVersion::getVersionInfo(), CVersion::getVersionInfo(path));
        EXPECT_EQ(CVersion::getProductName(), CVersion::getProductName(path));
    }
    EXPECT_THAT(s_calls, ElementsAre("own 260", "kernel32 260", "kernel32 260"));
}

TEST(VersionTest, FileWithoutVersionResourceGivesTheDefaults)
{
    fixtures::TemporaryFolder folder;
    const std::string text = folder.path("plain.txt");
    std::ofstream(text) << "text";
    for (const std::string& path : {text, folder.path("missing.exe")}) {
        EXPECT_EQ(CVersion::getVersionInfo(path.c_str()), "");
        EXPECT_EQ(CVersion::getProductName(path.c_str()), "UNDEFINEDPRODUCT");
    }
}

TEST(VersionTest, WithoutArgumentsItIsTheRunningExecutables)
{
    // No module of that name is loaded, which means the process's own executable.
    EXPECT_EQ(CVersion::getVersionInfo(), "3.4.5.6");
    EXPECT_EQ(CVersion::getProductName(), "VERSIONTEST");
}

TEST(VersionTest, ProductNameIsInTheLogFilesName)
{
    EXPECT_NE(Logger::instance()->logFilePrefix().find("\\VERSIONTEST-support_version_test.exe-"), std::string::npos);
}

TEST(VersionTest, WithoutModuleNameTheDefaultsAreGivenWithAWarning)
{
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    const ModuleName none(nullptr);
    DebugStream stream;
    EXPECT_EQ(CVersion::getVersionInfo(), "");
    EXPECT_EQ(CVersion::getProductName(), "UNDEFINEDPRODUCT");
    EXPECT_THAT(linesOf(stream), ElementsAre("WARN|    No module name was set", "WARN|    No module name was set"));
}

TEST(VersionTest, LogOfAProcessWithoutModuleNameIsThatOfTheUndefinedProduct)
{
    fixtures::LoggerWorld world;
    const ModuleName none(nullptr);
    DebugStream stream;
    world.start();
    EXPECT_TRUE(Logger::instance()->logFilePrefix().starts_with(world.appData() + "\\UNDEFINEDPRODUCT-logs\\UNDEFINEDPRODUCT-"));
    EXPECT_THAT(stream.texts(), testing::IsEmpty()) << "its name is settled before anything can be logged";
}

TEST(VersionTest, LogBeginsWithTheVersionOfTheExecutable)
{
    fixtures::LoggerWorld world;
    world.start();
    LogEntry({"versionTest", 1}, LOGLEVEL_WARN).stream() << "text";
    const std::string gcc = std::to_string(__GNUC__ * 10000 + __GNUC_MINOR__ * 100 + __GNUC_PATCHLEVEL__);
    EXPECT_EQ(world.logLines().front().body, "    VERSIONTEST version: 3.4.5.6, ATL version: 0x100, compiler version: " + gcc);
}

TEST(VersionTest, OperationsAreLogged)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    const std::string path = beside("versionSecond.dll");
    DebugStream stream;
    CVersion::getProductName(path.c_str());
    CVersion::getVersionInfo(path.c_str());
    CVersion::getVersionInfo();
    CVersion::getProductName();
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    const std::string own = executablePath();
    EXPECT_THAT(linesOf(stream),
                ElementsAre("FINE|-> getProductName " + path,
                            "TRACE|    Product name from \\StringFileInfo\\040704e4\\ProductName: Second",
                            "FINE|<- getProductName " + path, "FINE|-> getVersionInfo " + path, "FINE|<- getVersionInfo " + path,
                            "FINE|-> getVersionInfo ", "FINE| -> getVersionInfo " + own, "FINE| <- getVersionInfo " + own,
                            "FINE|<- getVersionInfo ", "FINE|-> getProductName ", "FINE| -> getProductName " + own,
                            "TRACE|     Product name from \\StringFileInfo\\040904e4\\ProductName: VERSIONTEST",
                            "FINE| <- getProductName " + own, "FINE|<- getProductName "));
}
