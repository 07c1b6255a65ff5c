// Version resources: of files made by the build with resources of known content, and of the running executable.
#include "support/version.h"
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

TEST(Version, moduleNameAtTheStart)
{
    EXPECT_STREQ(CVersion::s_moduleName, "KESTA.exe");
}

TEST(Version, fileVersionIsPrintedAsFourNumbers)
{
    EXPECT_EQ(CVersion::getVersionInfo(beside("versionFirst.dll").c_str()), "1.6.0.0");
    EXPECT_EQ(CVersion::getVersionInfo(beside("versionSecond.dll").c_str()), "65535.7.10.40000");
}

TEST(Version, productNameIsTakenFromTheFirstTranslationThatHasOne)
{
    EXPECT_EQ(CVersion::getProductName(beside("versionFirst.dll").c_str()), "KESTA");
    EXPECT_EQ(CVersion::getProductName(beside("versionSecond.dll").c_str()), "Second");
    EXPECT_EQ(CVersion::getProductName(beside("versionNone.dll").c_str()), "UNDEFINEDPRODUCT");
    EXPECT_EQ(CVersion::getProductName(beside("versionUntranslated.dll").c_str()), "UNDEFINEDPRODUCT");
}

TEST(Version, fileWithoutVersionResourceGivesTheDefaults)
{
    fixtures::TemporaryFolder folder;
    const std::string text = folder.path("plain.txt");
    std::ofstream(text) << "text";
    for (const std::string& path : {text, folder.path("missing.exe")}) {
        EXPECT_EQ(CVersion::getVersionInfo(path.c_str()), "");
        EXPECT_EQ(CVersion::getProductName(path.c_str()), "UNDEFINEDPRODUCT");
    }
}

TEST(Version, withoutArgumentsItIsTheRunningExecutables)
{
    // No module of that name is loaded, which means the process's own executable.
    EXPECT_EQ(CVersion::getVersionInfo(), "3.4.5.6");
    EXPECT_EQ(CVersion::getProductName(), "VERSIONTEST");
}

TEST(Version, productNameIsInTheLogFilesName)
{
    EXPECT_NE(Logger::instance()->logFilePrefix().find("\\VERSIONTEST-support_version_test.exe-"), std::string::npos);
}

TEST(Version, withoutModuleNameTheDefaultsAreGivenWithAWarning)
{
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    const ModuleName none(nullptr);
    DebugStream stream;
    EXPECT_EQ(CVersion::getVersionInfo(), "");
    EXPECT_EQ(CVersion::getProductName(), "UNDEFINEDPRODUCT");
    int warnings = 0;
    for (const std::string& message : stream.messages())
        warnings += message == "WARN No module name was set";
    EXPECT_EQ(warnings, 2);
}

TEST(Version, operationsAreLogged)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    const std::string path = beside("versionSecond.dll");
    DebugStream stream;
    CVersion::getProductName(path.c_str());
    CVersion::getVersionInfo(path.c_str());
    CVersion::getVersionInfo();
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    std::vector<std::string> bodies;
    for (const fixtures::LogLine& line : stream.lines())
        if (line.source.starts_with("version "))
            bodies.push_back(line.level + "|" + line.body);
    const std::string own = executablePath();
    EXPECT_THAT(bodies, ElementsAre("FINE|-> getProductName " + path,
                                    "TRACE|    Product name from \\StringFileInfo\\040704e4\\ProductName: Second",
                                    "FINE|<- getProductName " + path, "FINE|-> getVersionInfo " + path,
                                    "FINE|<- getVersionInfo " + path, "FINE|-> getVersionInfo ", "FINE| -> getVersionInfo " + own,
                                    "FINE| <- getVersionInfo " + own, "FINE|<- getVersionInfo "));
}
