// Version resources: of files that the build makes with known content, and of the running executable.
#include "support/version.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <format>
#include <functional>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using AddressHook = ImportHook<decltype(&GetProcAddress)>;
using LibraryHook = ImportHook<decltype(&LoadLibraryExA)>;
using PathHook = ImportHook<decltype(&GetModuleFileNameA)>;
using Strings = std::vector<std::string>;

constexpr const char* UNDEFINED = "UNDEFINEDPRODUCT";
constexpr const char* TRANSLATION = "\\VarFileInfo\\Translation";
constexpr const char* FIRST_NAME = "\\StringFileInfo\\040904e4\\ProductName";
constexpr const char* SECOND_NAME = "\\StringFileInfo\\040704e4\\ProductName";

std::string beside(const std::string& name)
{
    return (std::filesystem::path(fixtures::modulePath()).parent_path() / name).string();
}

std::string versionOf(const std::string& name)
{
    return CVersion::getVersionInfo(beside(name).c_str());
}

std::string productOf(const std::string& name)
{
    return CVersion::getProductName(beside(name).c_str());
}

std::function<decltype(VerQueryValueA)> s_query;

BOOL WINAPI query(LPCVOID block, LPCSTR name, LPVOID* value, PUINT length)
{
    return s_query(block, name, value, length);
}

// Replaces VerQueryValueA, which the product looks up.
decltype(&VerQueryValueA) s_realQuery = nullptr;
FARPROC addressWithQuery(HMODULE module, LPCSTR name)
{
    const FARPROC address = AddressHook::s_original(module, name);
    if (std::string(name) != "VerQueryValueA") {
        return address;
    }
    s_realQuery = reinterpret_cast<decltype(&VerQueryValueA)>(reinterpret_cast<void (*)()>(address));
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(query));
}

// The resource that was read last.
bool isFreed()
{
    return FailingAllocations::lastNothrowArray() == nullptr;
}

class VersionTest : public testing::Test
{
protected:
    ~VersionTest() override
    {
        CVersion::s_moduleName = m_moduleName;
        Logger::setMaxLogLevel(LOGLEVEL_WARN);
    }

    Strings m_calls;
    const char* const m_moduleName = CVersion::s_moduleName;
};

} // namespace

TEST_F(VersionTest, VersionIsFourNumbersAndProductNameThatOfTheFirstTranslationThatHasOne)
{
    s_query = [this](LPCVOID block, LPCSTR name, LPVOID* value, PUINT length) {
        m_calls.emplace_back(name);
        return s_realQuery(block, name, value, length);
    };
    const AddressHook hook("GetProcAddress", addressWithQuery);
    for (const auto& [name, version, product, calls] :
         {std::tuple{"versionFirst.dll", "1.6.0.0", "KESTA", Strings{"\\", TRANSLATION, FIRST_NAME}},
          {"versionSecond.dll", "65535.7.10.40000", "Second", {"\\", TRANSLATION, FIRST_NAME, SECOND_NAME}},
          {"versionBoth.dll", "1.0.0.0", "First", {"\\", TRANSLATION, FIRST_NAME}},
          {"versionNone.dll", "1.0.0.0", UNDEFINED, {"\\", TRANSLATION, FIRST_NAME}},
          {"versionUntranslated.dll", "1.0.0.0", UNDEFINED, {"\\", TRANSLATION}},
          {"CTestTestfile.cmake", "", UNDEFINED, {}},
          {"missing.exe", "", UNDEFINED, {}}}) {
        m_calls.clear();
        EXPECT_EQ(versionOf(name), version);
        EXPECT_TRUE(isFreed());
        EXPECT_EQ(productOf(name), product);
        EXPECT_TRUE(isFreed());
        EXPECT_EQ(m_calls, calls) << "nothing else is asked for";
    }
}

TEST_F(VersionTest, ResourceForWhichThereIsNoMemoryGivesEmptyTexts)
{
    const FailingAllocations failing(FailingAllocations::Kind::NothrowArrays);
    EXPECT_EQ(versionOf("versionFirst.dll"), "");
    EXPECT_EQ(productOf("versionFirst.dll"), "") << "and not the default";
}

TEST_F(VersionTest, ResourceThatTellsNothingGivesTheDefaults)
{
    s_query = [](LPCVOID, LPCSTR, LPVOID*, PUINT) { return FALSE; };
    const AddressHook hook("GetProcAddress", addressWithQuery);
    EXPECT_EQ(versionOf("versionFirst.dll"), "");
    EXPECT_TRUE(isFreed());
    EXPECT_EQ(productOf("versionFirst.dll"), UNDEFINED);
    EXPECT_TRUE(isFreed());
}

TEST_F(VersionTest, DamagedResourceIsReadNoFurtherThanItsLength)
{
    char text[] = "KESTAxxx";
    s_query = [&](LPCVOID block, LPCSTR name, LPVOID* value, PUINT length) {
        const BOOL isThere = s_realQuery(block, name, value, length);
        if (name == std::string("\\")) {
            *length = sizeof(VS_FIXEDFILEINFO) - 1;
        } else if (name == std::string(FIRST_NAME)) {
            *value = text;
            *length = 5;
        }
        return isThere;
    };
    const AddressHook hook("GetProcAddress", addressWithQuery);
    EXPECT_EQ(versionOf("versionFirst.dll"), "");
    EXPECT_EQ(productOf("versionFirst.dll"), "KESTA");
}

TEST_F(VersionTest, LibraryIsTakenFromTheSystemsFolderOnly)
{
    {
        const LibraryHook hook("LoadLibraryExA", [this](LPCSTR name, HANDLE file, DWORD flags) -> HMODULE {
            m_calls.push_back(std::format("{} {:x}", name, flags));
            return LibraryHook::s_original(name, file, flags);
        });
        EXPECT_EQ(versionOf("versionFirst.dll"), "1.6.0.0");
    }
    EXPECT_THAT(m_calls, testing::AllOf(testing::Not(IsEmpty()), testing::Each("version.dll 800")));
}

TEST_F(VersionTest, MissingLibraryOrFunctionGivesTheDefaults)
{
    {
        const LibraryHook hook("LoadLibraryExA", [](LPCSTR, HANDLE, DWORD) -> HMODULE { return nullptr; });
        EXPECT_EQ(versionOf("versionFirst.dll"), "");
        EXPECT_EQ(productOf("versionFirst.dll"), UNDEFINED);
    }
    for (const std::string missing : {"GetFileVersionInfoSizeA", "GetFileVersionInfoA", "VerQueryValueA"}) {
        const AddressHook hook("GetProcAddress", [&](HMODULE module, LPCSTR name) -> FARPROC {
            return name == missing ? nullptr : AddressHook::s_original(module, name);
        });
        EXPECT_EQ(versionOf("versionFirst.dll"), "") << missing;
        EXPECT_EQ(productOf("versionFirst.dll"), UNDEFINED) << missing;
    }
}

// The initial name is that of no loaded module, which means the running executable.
TEST_F(VersionTest, WithoutArgumentsItIsTheModuleThatIsNamedOrElseTheRunningExecutable)
{
    EXPECT_STREQ(CVersion::s_moduleName, "KESTA.exe");
    EXPECT_EQ(CVersion::getVersionInfo(), "3.4.5.6");
    EXPECT_EQ(CVersion::getProductName(), "VERSIONTEST");
    const PathHook hook("GetModuleFileNameA", [this](HMODULE module, LPSTR buffer, DWORD size) -> DWORD {
        m_calls.push_back((module == nullptr ? "own " : "another ") + std::to_string(size));
        return PathHook::s_original(module, buffer, size);
    });
    CVersion::getProductName();
    CVersion::s_moduleName = "kernel32.dll";
    const std::string version = CVersion::getVersionInfo();
    const std::string product = CVersion::getProductName();
    EXPECT_THAT(m_calls, ElementsAre("own 260", "another 260", "another 260"));
    const std::string path = fixtures::modulePath("kernel32.dll");
    EXPECT_EQ(version, CVersion::getVersionInfo(path.c_str()));
    EXPECT_EQ(product, CVersion::getProductName(path.c_str()));
    EXPECT_NE(product, "VERSIONTEST");
}

TEST_F(VersionTest, WithoutModuleNameTheDefaultsAreGivenWithAWarning)
{
    CVersion::s_moduleName = nullptr;
    const fixtures::DebugStream stream;
    EXPECT_EQ(CVersion::getVersionInfo(), "");
    EXPECT_EQ(CVersion::getProductName(), UNDEFINED);
    EXPECT_THAT(stream.said("version"), ElementsAre("WARN|    No module name was set", "WARN|    No module name was set"));
}

TEST_F(VersionTest, LogIsNamedAfterTheProductAndBeginsWithItsVersion)
{
    fixtures::LoggerWorld world;
    world.start();
    EXPECT_THAT(Logger::instance()->logFilePrefix(),
                testing::HasSubstr("\\VERSIONTEST-logs\\VERSIONTEST-support_version_test.exe-"));
    LogEntry({"versionTest", 1}, LOGLEVEL_WARN).stream() << "text";
    EXPECT_THAT(world.logLines().front().body, testing::StartsWith("    VERSIONTEST version: 3.4.5.6, ATL version: "));

    world.stop();
    CVersion::s_moduleName = nullptr;
    const fixtures::DebugStream stream;
    world.start();
    EXPECT_THAT(Logger::instance()->logFilePrefix(), testing::HasSubstr("\\UNDEFINEDPRODUCT-logs\\UNDEFINEDPRODUCT-"));
    EXPECT_THAT(stream.texts(), IsEmpty()) << "the name is settled before anything can be logged";
}

TEST_F(VersionTest, OperationsAreLogged)
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    const fixtures::DebugStream stream;
    productOf("versionSecond.dll");
    CVersion::getVersionInfo();
    CVersion::getProductName();
    const std::string second = beside("versionSecond.dll");
    const std::string own = fixtures::modulePath();
    const std::string found = "Product name from ";
    EXPECT_THAT(stream.said("version"),
                ElementsAre("FINE|-> getProductName " + second, "TRACE|    " + found + SECOND_NAME + ": Second",
                            "FINE|<- getProductName " + second, "FINE|-> getVersionInfo ", "FINE| -> getVersionInfo " + own,
                            "FINE| <- getVersionInfo " + own, "FINE|<- getVersionInfo ", "FINE|-> getProductName ",
                            "FINE| -> getProductName " + own, "TRACE|     " + found + FIRST_NAME + ": VERSIONTEST",
                            "FINE| <- getProductName " + own, "FINE|<- getProductName "));
}
