// Reading values with defaults, and snapshots of a key's names.
#include "support/registry.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "registryTest"

using fixtures::DebugStream;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

constexpr const char* path = "SOFTWARE\\Sample";

class Registry : public testing::Test
{
protected:
    void setString(const std::string& name, const std::string& value) { m_scratch.setString(path, name, value); }
    void setBytes(const std::string& name, const std::string& bytes, DWORD type = REG_SZ)
    {
        m_scratch.setBytes(path, name, type, bytes.data(), bytes.size());
    }
    std::string stringValue(const char* name)
    {
        return CRegistry(path, HKEY_LOCAL_MACHINE, KEY_READ).getStringValue(name, "default");
    }
    int dwordValue(const char* name) { return CRegistry(path, HKEY_LOCAL_MACHINE, KEY_READ).getDWORDValue(name, -1); }

    fixtures::RegistryScratch m_scratch{HKEY_LOCAL_MACHINE};
};

} // namespace

TEST_F(Registry, stringsUpTo254CharactersAreReturnedWholeAndLongerOnesNotAtAll)
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

TEST_F(Registry, valuesNeedNotBeTerminatedAndMayBeEmpty)
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

TEST_F(Registry, numberReadAsTextIsItsBytesUpToTheFirstZero)
{
    m_scratch.setDword(path, "number", 0x00434241);
    m_scratch.setDword(path, "low zero", 0x41424300);
    EXPECT_EQ(stringValue("number"), "ABC");
    EXPECT_EQ(stringValue("low zero"), "");
}

TEST_F(Registry, numbersAreSigned32Bits)
{
    m_scratch.setDword(path, "number", 12);
    m_scratch.setDword(path, "high", 0xFFFFFFFE);
    EXPECT_EQ(dwordValue("number"), 12);
    EXPECT_EQ(dwordValue("high"), -2);
    EXPECT_EQ(dwordValue("missing"), -1);
}

TEST_F(Registry, textReadAsNumberIsItsFirstFourBytesWithTerminator)
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

TEST_F(Registry, missingKeyIsLoggedOnceAndReadsAnswerTheDefault)
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
    for (const fixtures::LogLine& line : stream.lines())
        errors += line.level == "ERROR";
    EXPECT_EQ(errors, 1);
}

TEST_F(Registry, operationsAreLoggedAsScopes)
{
    m_scratch.setDword(path, "number", 12);
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    DebugStream stream;
    {
        CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
        registry.getStringValue("name", "none");
        registry.getDWORDValue("number", -1);
        CRegistrySubKeys names(registry);
        names.getSubKeyCount();
        names.getValueCount();
        names.getValue(0);
    }
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    std::vector<std::string> bodies;
    for (const fixtures::LogLine& line : stream.lines())
        if (line.source.starts_with("registry "))
            bodies.push_back(line.level + "|" + line.body);
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

TEST_F(Registry, closedKeyAnswersDefaultsAndCanBeClosedAgain)
{
    setString("name", "value");
    CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
    registry.closeKey();
    registry.closeKey();
    EXPECT_EQ(registry.getStringValue("name", "default"), "default");
    CRegistrySubKeys names(registry);
    EXPECT_EQ(names.getValueCount(), 0);
}

TEST_F(Registry, snapshotHoldsTheNamesOfAKey)
{
    m_scratch.createKey(std::string(path) + "\\b");
    m_scratch.createKey(std::string(path) + "\\a");
    setString("one", "1");
    setString("", "the key's own value");
    CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    registry.closeKey();
    m_scratch.deleteValue(path, "one");
    ASSERT_EQ(names.getSubKeyCount(), 2);
    ASSERT_EQ(names.getValueCount(), 2);
    EXPECT_THAT((std::vector{names.getSubKey(0), names.getSubKey(1)}), UnorderedElementsAre("a", "b"));
    EXPECT_THAT((std::vector{names.getValue(0), names.getValue(1)}), UnorderedElementsAre("one", ""));
}

TEST_F(Registry, keyWithValuesOnlyHasNoSubkeys)
{
    setString("one", "1");
    setString("two", "2");
    CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    EXPECT_EQ(names.getSubKeyCount(), 0);
    EXPECT_EQ(names.getValueCount(), 2);
}

TEST_F(Registry, nameThatDoesNotFitIsEmptyAndStillCounted)
{
    const std::string longKey(254, 'k');
    const std::string tooLongKey(255, 'l');
    m_scratch.createKey(std::string(path) + "\\" + longKey);
    m_scratch.createKey(std::string(path) + "\\" + tooLongKey);
    const std::string longValue(16382, 'v');
    const std::string tooLongValue(16383, 'w');
    setString(longValue, "1");
    setString(tooLongValue, "1");
    CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    ASSERT_EQ(names.getSubKeyCount(), 2);
    ASSERT_EQ(names.getValueCount(), 2);
    EXPECT_THAT((std::vector{names.getSubKey(0), names.getSubKey(1)}), UnorderedElementsAre(longKey, ""));
    EXPECT_THAT((std::vector{names.getValue(0), names.getValue(1)}), UnorderedElementsAre(longValue, ""));
}

TEST_F(Registry, classNamesAreThoseOfTheObjects)
{
    CRegistry registry(path, HKEY_LOCAL_MACHINE, KEY_READ);
    EXPECT_STREQ(registry.getLogClassName(), "CRegistry");
    EXPECT_EQ(registry.getLogObjectInfo(), "");
}
