// Loading of the runtime's library, and what the log says about one that cannot be loaded.
#include "tests/javabridge/StandIn.h"

namespace {

class LibraryTest : public testing::Test
{
protected:
    // What every failed load logs, around the diagnosis.
    Strings failure(const std::string& path, DWORD error, const Strings& diagnosis)
    {
        return Strings{used(path), "ERROR m_DLLHandle != NULL: failure: " + getWindowsErrorText(error)} + diagnosis +
               Strings{"ERROR m_DLLHandle != NULL: false"};
    }
    static std::string used(const std::string& path)
    {
        return "FINE Used " + path + "\\..\\..\\ as current folder while loading JVM, using " + RuntimeFolder::currentFolder() +
               " again.";
    }

    RuntimeFolder runtime;
    CBridgeClient client{nullptr};
    ClientLog log;
};

TEST_F(LibraryTest, LibraryIsLoadedWithTheRuntimesBinAsCurrentFolder)
{
    runtime.install("jvm.dll");
    const std::string before = RuntimeFolder::currentFolder();
    EXPECT_EQ(client.loadJVMlibrary(runtime.library().c_str()), 0);
    EXPECT_EQ(client.m_DLLHandle, GetModuleHandleA(runtime.library().c_str()));
    EXPECT_EQ(RuntimeFolder::currentFolder(), before);
    EXPECT_STRINGS(runtime.record(), Strings{"loaded in " + runtime.bin()});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE loadJVMlibrary " + runtime.library()});
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{used(runtime.library()), "TRACE m_DLLHandle != NULL: success", "TRACE m_DLLHandle != NULL: true"});
    FreeLibrary(client.m_DLLHandle);
}

TEST_F(LibraryTest, MissingFile)
{
    EXPECT_EQ(client.loadJVMlibrary(runtime.library().c_str()), E_FAIL);
    EXPECT_EQ(client.m_DLLHandle, nullptr);
    EXPECT_STRINGS(log.takeStatements(),
                   failure(runtime.library(), ERROR_MOD_NOT_FOUND, {"ERROR (bool)binaryFile != NULL: false"}));
}

TEST_F(LibraryTest, NoFileName)
{
    const std::string before = RuntimeFolder::currentFolder();
    EXPECT_EQ(client.loadJVMlibrary(""), E_FAIL);
    EXPECT_EQ(RuntimeFolder::currentFolder(), before);
    const Strings errors = log.takeStatements("ERROR");
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_TRUE(errors[0].starts_with("m_DLLHandle != NULL: failure: "));
    EXPECT_EQ(errors[1], "(bool)binaryFile != NULL: false");
    EXPECT_EQ(errors[2], "m_DLLHandle != NULL: false");
    LoadLibraryA("");
    const DWORD error = GetLastError();
    client.loadJVMlibrary("");
    EXPECT_STRINGS(log.takeStatements(), failure("", error, {"ERROR (bool)binaryFile != NULL: false"}));
}

TEST_F(LibraryTest, MissingFolderLeavesTheCurrentOne)
{
    const std::string before = RuntimeFolder::currentFolder();
    EXPECT_EQ(client.loadJVMlibrary("C:\\not there\\bin\\server\\jvm.dll"), E_FAIL);
    EXPECT_EQ(RuntimeFolder::currentFolder(), before);
    EXPECT_EQ(log.takeStatements().front(),
              "FINE Used C:\\not there\\bin\\server\\jvm.dll\\..\\..\\ as current folder while loading JVM, using " + before +
                  " again.");
}

// A file of 200 bytes with the PE header at 100.
std::string peFile(unsigned short machine)
{
    std::string bytes(200, '\0');
    bytes[0] = 'M';
    bytes[1] = 'Z';
    bytes[0x3C] = 100;
    bytes.replace(100, 4, std::string("PE\0\0", 4));
    bytes[104] = static_cast<char>(machine & 0xFF);
    bytes[105] = static_cast<char>(machine >> 8);
    return bytes;
}

const std::string NO_HEADER = "WARN Java Client Library (jvm.dll) does not contain any PE header";

TEST_F(LibraryTest, DiagnosisOfFilesThatAreNoLibrary)
{
    const struct
    {
        const char* name;
        std::string bytes;
        std::string warning;
    } files[] = {
        {"32-bit", peFile(0x014C), "WARN Java JRE for 32-bit platform"},
        {"Itanium", peFile(0x0200), "WARN Java JRE for 64-bit platform"},
        {"x64, reported as unknown", peFile(0x8664), "WARN Java JRE for unknown platform (ffff8664)"},
        {"ARM64", peFile(0xAA64), "WARN Java JRE for unknown platform (ffffaa64)"},
        {"positive machine", peFile(0x01C4), "WARN Java JRE for unknown platform (1c4)"},
        {"the other byte order of 32-bit", peFile(0x4C01), "WARN Java JRE for unknown platform (4c01)"},
        {"machine 0", peFile(0), "WARN Java JRE for unknown platform (0)"},
        {"cut after the signature", peFile(0x014C).substr(0, 104), "WARN Java JRE for unknown platform (0)"},
        {"text", std::string(100, 'x'), NO_HEADER},
        {"empty", "", NO_HEADER},
        {"shorter than the header's offset", "MZ", NO_HEADER},
        {"cut inside the signature", peFile(0x014C).substr(0, 102), NO_HEADER},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        runtime.installBytes(file.bytes);
        EXPECT_EQ(client.loadJVMlibrary(runtime.library().c_str()), E_FAIL);
        const Strings statements = log.takeStatements();
        ASSERT_EQ(statements.size(), 5u);
        EXPECT_EQ(statements[0], used(runtime.library()));
        EXPECT_TRUE(statements[1].starts_with("ERROR m_DLLHandle != NULL: failure: ")) << statements[1];
        EXPECT_STRINGS(Strings(statements.begin() + 2, statements.end()),
                       Strings{"TRACE (bool)binaryFile != NULL: true", file.warning, "ERROR m_DLLHandle != NULL: false"});
        EXPECT_TRUE(DeleteFileA(runtime.library().c_str())) << "the file is closed";
    }
}

TEST_F(LibraryTest, SignatureIsLookedForWhereTheOffsetPoints)
{
    std::string bytes = peFile(0x014C);
    for (const auto& [offset, warning] : {std::pair<std::string, std::string>{std::string("\x65\0\0\0", 4), NO_HEADER},
                                          {std::string("\xFF\xFF\xFF\xFF", 4), NO_HEADER},
                                          {std::string("\0\0\0\x7F", 4), NO_HEADER},
                                          {std::string("\x64\0\0\0", 4), "WARN Java JRE for 32-bit platform"}}) {
        bytes.replace(0x3C, 4, offset);
        runtime.installBytes(bytes);
        client.loadJVMlibrary(runtime.library().c_str());
        EXPECT_EQ("WARN " + log.takeStatements("WARN").at(0), warning);
    }
}

TEST_F(LibraryTest, ErrorOfTheLoadIsTheOneThatIsLogged)
{
    runtime.installBytes(std::string(5000, 'x'));
    client.loadJVMlibrary(runtime.library().c_str());
    EXPECT_STRINGS(log.takeStatements(),
                   failure(runtime.library(), ERROR_BAD_EXE_FORMAT, {"TRACE (bool)binaryFile != NULL: true", NO_HEADER}));
}

} // namespace
