// Loading of the runtime's library, and what the log says about one that cannot be loaded.
#include "tests/javabridge/StandIn.h"

namespace {

class LibraryTest : public testing::Test
{
protected:
    RuntimeFolder runtime;
    CBridgeClient client{nullptr};
    ClientLog log;
};

TEST_F(LibraryTest, MissingFileOrFolderCannotBeDiagnosedAndLeavesTheCurrentFolder)
{
    const std::string before = RuntimeFolder::currentFolder();
    for (const std::string& path : {runtime.library(), std::string(), std::string("C:\\not there\\bin\\server\\jvm.dll")}) {
        LoadLibraryA(path.c_str());
        const DWORD error = GetLastError();
        EXPECT_EQ(client.loadJVMlibrary(path.c_str()), E_FAIL);
        EXPECT_EQ(client.m_DLLHandle, nullptr);
        EXPECT_LINES(log.takeErrors(), Strings{"m_DLLHandle != NULL: failure: " + getWindowsErrorText(error),
                                               "(bool)binaryFile != NULL: false", "m_DLLHandle != NULL: false"});
        EXPECT_EQ(RuntimeFolder::currentFolder(), before);
    }
}

// A file of 3000 bytes with the PE header where it is said to be.
std::string peFile(unsigned short machine, unsigned short header = 100)
{
    std::string bytes(3000, '\0');
    bytes.replace(0, 2, "MZ");
    bytes[0x3C] = static_cast<char>(header & 0xFF);
    bytes[0x3D] = static_cast<char>(header >> 8);
    bytes.replace(header, 4, std::string("PE\0\0", 4));
    bytes[header + 4u] = static_cast<char>(machine & 0xFF);
    bytes[header + 5u] = static_cast<char>(machine >> 8);
    return bytes;
}

std::string withOffset(const std::string& offset)
{
    return peFile(0x014C).replace(0x3C, offset.size(), offset);
}

TEST_F(LibraryTest, FilesThatAreNoLibraryAreDiagnosed)
{
    const std::string noHeader = "Java Client Library (jvm.dll) does not contain any PE header";
    const struct
    {
        std::string bytes;
        std::string warning;
    } files[] = {
        {peFile(0x014C), "Java JRE for 32-bit platform"},
        {peFile(0x0200), "Java JRE for 64-bit platform"},
        {peFile(0x8664), "Java JRE for unknown platform (ffff8664)"}, // x64, deliberately
        {peFile(0xAA64), "Java JRE for unknown platform (ffffaa64)"},
        {peFile(0x01C4), "Java JRE for unknown platform (1c4)"},
        {peFile(0x4C01), "Java JRE for unknown platform (4c01)"}, // the other byte order of 32-bit
        {peFile(0), "Java JRE for unknown platform (0)"},
        {peFile(0x014C, 0x0A0D), "Java JRE for 32-bit platform"}, // read as text, the offset is another one
        {peFile(0x014C).substr(0, 104), "Java JRE for unknown platform (0)"},
        {peFile(0x014C).substr(0, 102), noHeader},
        {withOffset("\x65"), noHeader},
        {withOffset("\xFF\xFF\xFF\xFF"), noHeader},
        {withOffset(std::string("\0\0\0\x7F", 4)), noHeader},
        {std::string(5000, 'x'), noHeader},
        {"MZ", noHeader},
        {"", noHeader},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(&file - files);
        runtime.installBytes(file.bytes);
        EXPECT_EQ(client.loadJVMlibrary(runtime.library().c_str()), E_FAIL);
        const Strings lines = log.take();
        ASSERT_EQ(lines.size(), 6u);
        EXPECT_TRUE(lines[2].starts_with("ERROR m_DLLHandle != NULL: failure: ")) << lines[2];
        EXPECT_LINES(Strings(lines.begin() + 3, lines.end()),
                     Strings{"TRACE (bool)binaryFile != NULL: true", "WARN " + file.warning, "ERROR m_DLLHandle != NULL: false"});
        EXPECT_TRUE(DeleteFileA(runtime.library().c_str())) << "the file is closed";
    }
}

} // namespace
