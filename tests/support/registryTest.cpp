// Reading values with defaults, and snapshots of a key's names.
#include "support/registry.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "registryTest"

using fixtures::DebugStream;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr const char* PATH = "SOFTWARE\\Sample";

class RegistryTest : public testing::Test
{
protected:
    void setString(const std::string& name, const std::string& value) { m_scratch.setString(PATH, name, value); }
    void setBytes(const std::string& name, const std::string& bytes, DWORD type = REG_SZ)
    {
        m_scratch.setBytes(PATH, name, type, bytes.data(), bytes.size());
    }
    std::string stringValue(const char* name)
    {
        return CRegistry(PATH, HKEY_LOCAL_MACHINE, KEY_READ).getStringValue(name, "default");
    }
    int dwordValue(const char* name) { return CRegistry(PATH, HKEY_LOCAL_MACHINE, KEY_READ).getDWORDValue(name, -1); }

    fixtures::RegistryScratch m_scratch{HKEY_LOCAL_MACHINE};
};

} // namespace

TEST_F(RegistryTest, StringsUpTo254CharactersAreReturnedWholeAndLongerOnesNotAtAll)
{
    setString("empty", "");
    setString("short", "text");
    setString("254", std::string(254, 'a'));
    setString("255", std::string(255, 'a'));
    setString("300", std::string(300, 'a'));
    EXPECT_EQ(stringValue("empty"), "");
    EXPECT_EQ(stringValue("short"), "text");
    EXPECT_EQ(stringValue("254"), std::string(254, 'a'));
    EXPECT_EQ(stringValue("255"), "default");
    EXPECT_EQ(stringValue("300"), "default");
    EXPECT_EQ(stringValue("missing"), "default");
}

TEST_F(RegistryTest, ValuesNeedNotBeTerminatedAndMayBeEmpty)
{
    setBytes("binary", "abc", REG_BINARY);
    setBytes("binary 255", std::string(255, 'b'), REG_BINARY);
    setBytes("nothing", "", REG_BINARY);
    setBytes("zero inside", std::string("ab\0cd", 5), REG_BINARY);
    EXPECT_EQ(stringValue("binary"), "abc");
    EXPECT_EQ(stringValue("binary 255"), std::string(255, 'b'));
    EXPECT_EQ(stringValue("nothing"), "") << "a value of no bytes is there, so it is not the default";
    EXPECT_EQ(stringValue("zero inside"), "ab");
}

TEST_F(RegistryTest, NumberReadAsTextIsItsBytesUpToTheFirstZero)
{
    m_scratch.setDword(PATH, "number", 0x00434241);
    m_scratch.setDword(PATH, "low zero", 0x41424300);
    EXPECT_EQ(stringValue("number"), "ABC");
    EXPECT_EQ(stringValue("low zero"), "");
}

TEST_F(RegistryTest, NumbersAreSigned32Bits)
{
    m_scratch.setDword(PATH, "number", 12);
    m_scratch.setDword(PATH, "high", 0xFFFFFFFE);
    EXPECT_EQ(dwordValue("number"), 12);
    EXPECT_EQ(dwordValue("high"), -2);
    EXPECT_EQ(dwordValue("missing"), -1);
}

TEST_F(RegistryTest, TextReadAsNumberIsItsFirstFourBytesWithTerminator)
{
    setString("abc", "abc");
    setString("abcd", "abcd");
    setBytes("one", "a", REG_BINARY);
    setBytes("three", "abc", REG_BINARY);
    setBytes("nothing", "", REG_BINARY);
    EXPECT_EQ(dwordValue("abc"), 0x00636261);
    EXPECT_EQ(dwordValue("abcd"), -1) << "five bytes do not fit";
    EXPECT_EQ(dwordValue("one"), 0x61) << "the bytes that are missing are zero";
    EXPECT_EQ(dwordValue("three"), 0x00636261);
    EXPECT_EQ(dwordValue("nothing"), 0);
}

TEST_F(RegistryTest, MissingKeyIsLoggedOnceAndReadsAnswerTheDefault)
{
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    Logger::getErrorEntries();
    DebugStream stream;
    {
        CRegistry registry("SOFTWARE\\Missing", HKEY_LOCAL_MACHINE, KEY_READ);
        EXPECT_EQ(registry.getStringValue("name", "default"), "default");
        EXPECT_EQ(registry.getDWORDValue("name", 42), 42);
        CRegistrySubKeys names(registry);
        EXPECT_EQ(names.getSubKeyCount(), 0);
        EXPECT_EQ(names.getValueCount(), 0);
    }
    const std::vector<fixtures::LogLine> lines = fixtures::parseLogLines(Logger::getErrorEntries());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, "ERROR");
    EXPECT_EQ(lines[0].source, "registry            ");
    EXPECT_EQ(lines[0].text(), "CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false");
    EXPECT_EQ(lines[1].body, "-> CRegistry  ");
    int errors = 0;
    for (const fixtures::LogLine& line : stream.lines()) {
        errors += static_cast<int>(line.level == "ERROR");
    }
    EXPECT_EQ(errors, 1);
}

TEST_F(RegistryTest, OperationsAreLoggedAsScopes)
{
    m_scratch.setDword(PATH, "number", 12);
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    DebugStream stream;
    {
        CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
        registry.getStringValue("name", "none");
        registry.getDWORDValue("number", -1);
        CRegistrySubKeys names(registry);
        names.getSubKeyCount();
        names.getValueCount();
        names.getValue(0);
    }
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    std::vector<std::string> bodies;
    for (const fixtures::LogLine& line : stream.lines()) {
        if (line.source.starts_with("registry ")) {
            bodies.push_back(line.level + "|" + line.body);
        }
    }
    EXPECT_THAT(bodies,
                ElementsAre("FINE|-> CRegistry  CRegistry SOFTWARE\\Sample",
                            "TRACE|    CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true",
                            "FINE|<- CRegistry  CRegistry SOFTWARE\\Sample", "FINE|-> CRegistry  getStringValue name, none",
                            "FINE|<- CRegistry  getStringValue name, none", "FINE|-> CRegistry  getDWORDValue number, -1",
                            "FINE|<- CRegistry  getDWORDValue number, -1", "FINE|-> CRegistrySubKeys  CRegistrySubKeys ",
                            "FINE| -> CRegistrySubKeys  getKeyNames ", "FINE| <- CRegistrySubKeys  getKeyNames ",
                            "FINE|<- CRegistrySubKeys  CRegistrySubKeys ", "FINE|-> CRegistrySubKeys  getSubKeyCount ",
                            "FINE|<- CRegistrySubKeys  getSubKeyCount ", "FINE|-> CRegistrySubKeys  getValueCount ",
                            "FINE|<- CRegistrySubKeys  getValueCount ", "FINE|-> CRegistrySubKeys  getValue 0",
                            "FINE|<- CRegistrySubKeys  getValue 0", "FINE|-> CRegistrySubKeys  ~CRegistrySubKeys ",
                            "FINE|<- CRegistrySubKeys  ~CRegistrySubKeys ", "FINE|-> CRegistry  ~CRegistry ",
                            "FINE| -> CRegistry  closeKey ", "FINE| <- CRegistry  closeKey ", "FINE|<- CRegistry  ~CRegistry "));
}

TEST_F(RegistryTest, ClosedKeyAnswersDefaultsAndCanBeClosedAgain)
{
    setString("name", "value");
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    registry.closeKey();
    registry.closeKey();
    EXPECT_EQ(registry.getStringValue("name", "default"), "default");
    CRegistrySubKeys names(registry);
    EXPECT_EQ(names.getValueCount(), 0);
}

TEST_F(RegistryTest, SnapshotHoldsTheNamesOfAKey)
{
    m_scratch.createKey(std::string(PATH) + "\\b");
    m_scratch.createKey(std::string(PATH) + "\\a");
    setString("one", "1");
    setString("", "the key's own value");
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    registry.closeKey();
    m_scratch.deleteValue(PATH, "one");
    ASSERT_EQ(names.getSubKeyCount(), 2);
    ASSERT_EQ(names.getValueCount(), 2);
    EXPECT_THAT((std::vector{names.getSubKey(0), names.getSubKey(1)}), UnorderedElementsAre("a", "b"));
    EXPECT_THAT((std::vector{names.getValue(0), names.getValue(1)}), UnorderedElementsAre("one", ""));
}

TEST_F(RegistryTest, KeyWithValuesOnlyHasNoSubkeys)
{
    setString("one", "1");
    setString("two", "2");
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    EXPECT_EQ(names.getSubKeyCount(), 0);
    EXPECT_EQ(names.getValueCount(), 2);
}

TEST_F(RegistryTest, NameThatDoesNotFitIsEmptyAndStillCounted)
{
    const std::string longKey(254, 'k');
    const std::string tooLongKey(255, 'l');
    m_scratch.createKey(std::string(PATH) + "\\" + longKey);
    m_scratch.createKey(std::string(PATH) + "\\" + tooLongKey);
    const std::string longValue(16382, 'v');
    const std::string tooLongValue(16383, 'w');
    setString(longValue, "1");
    setString(tooLongValue, "1");
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    ASSERT_EQ(names.getSubKeyCount(), 2);
    ASSERT_EQ(names.getValueCount(), 2);
    EXPECT_THAT((std::vector{names.getSubKey(0), names.getSubKey(1)}), UnorderedElementsAre(longKey, ""));
    EXPECT_THAT((std::vector{names.getValue(0), names.getValue(1)}), UnorderedElementsAre(longValue, ""));
}

TEST_F(RegistryTest, ClassNamesAreThoseOfTheObjects)
{
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    EXPECT_STREQ(registry.getLogClassName(), "CRegistry");
    EXPECT_EQ(registry.getLogObjectInfo(), "");
}
