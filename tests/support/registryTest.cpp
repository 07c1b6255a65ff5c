// Reading values with defaults, snapshots of a key's names, and the registry calls of both.
#include "support/registry.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using CloseHook = ImportHook<decltype(&RegCloseKey)>;
using QueryHook = ImportHook<decltype(&RegQueryValueExA)>;
using InfoHook = ImportHook<decltype(&RegQueryInfoKeyA)>;
using KeyNameHook = ImportHook<decltype(&RegEnumKeyExA)>;
using ValueNameHook = ImportHook<decltype(&RegEnumValueA)>;
using Strings = std::vector<std::string>;

constexpr const char* PATH = "SOFTWARE\\Sample";

Strings s_calls;
HKEY s_openKey;
LSTATUS s_infoStatus = ERROR_SUCCESS; // result of the query for the counts

// Records the registry calls while it is alive.
struct Questions
{
    Questions() { s_calls.clear(); }

    const OpenHook open{"RegOpenKeyExA", [](HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key) -> LSTATUS {
                            char text[64];
                            std::snprintf(text, sizeof text, "open %s %s %lx %lx",
                                          root == HKEY_LOCAL_MACHINE ? "machine" : "another root", path, options, access);
                            s_calls.emplace_back(text);
                            const LSTATUS status = OpenHook::s_original(root, path, options, access, key);
                            s_openKey = *key;
                            return status;
                        }};
    const CloseHook close{"RegCloseKey", [](HKEY key) -> LSTATUS {
                              s_calls.emplace_back(key == s_openKey ? "close" : "close another key");
                              return CloseHook::s_original(key);
                          }};
    const QueryHook query{"RegQueryValueExA",
                          [](HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
                              s_calls.push_back("query " + std::string(name) + " " + std::to_string(*size));
                              return QueryHook::s_original(key, name, reserved, type, data, size);
                          }};
    const InfoHook info{"RegQueryInfoKeyA", [](auto... arguments) -> LSTATUS {
                            s_calls.emplace_back("info");
                            InfoHook::s_original(arguments...);
                            return s_infoStatus;
                        }};
    // Fails for the second name.
    const KeyNameHook keyName{"RegEnumKeyExA", [](HKEY key, DWORD index, LPSTR name, LPDWORD size, auto... rest) -> LSTATUS {
                                  s_calls.push_back("key " + std::to_string(index) + " " + std::to_string(*size));
                                  const LSTATUS status = KeyNameHook::s_original(key, index, name, size, rest...);
                                  return index == 1 ? ERROR_NO_MORE_ITEMS : status;
                              }};
    const ValueNameHook valueName{"RegEnumValueA", [](HKEY key, DWORD index, LPSTR name, LPDWORD size, auto... rest) -> LSTATUS {
                                      s_calls.push_back("value " + std::to_string(index) + " " + std::to_string(*size));
                                      const LSTATUS status = ValueNameHook::s_original(key, index, name, size, rest...);
                                      return index == 1 ? ERROR_NO_MORE_ITEMS : status;
                                  }};
};

class RegistryTest : public testing::Test
{
protected:
    ~RegistryTest() override { Logger::setMaxLogLevel(LOGLEVEL_WARN); }
    void setString(const std::string& name, const std::string& value) { m_scratch.setString(PATH, name, value); }
    void setBytes(const std::string& name, const std::string& bytes)
    {
        m_scratch.setBytes(PATH, name, REG_BINARY, bytes.data(), bytes.size());
    }
    void addKey(const std::string& name) { m_scratch.createKey(std::string(PATH) + "\\" + name); }
    static CRegistry opened() { return CRegistry(PATH, HKEY_LOCAL_MACHINE, KEY_READ); }
    static std::string stringValue(const char* name) { return opened().getStringValue(name, "default"); }
    static int dwordValue(const char* name) { return opened().getDWORDValue(name, -1); }
    static Strings subKeys(CRegistrySubKeys& names) { return all(names.getSubKeyCount(), names, &CRegistrySubKeys::getSubKey); }
    static Strings values(CRegistrySubKeys& names) { return all(names.getValueCount(), names, &CRegistrySubKeys::getValue); }

    fixtures::RegistryScratch m_scratch{HKEY_LOCAL_MACHINE};

private:
    static Strings all(int count, CRegistrySubKeys& names, std::string (CRegistrySubKeys::*get)(int))
    {
        Strings result;
        for (int index = 0; index < count; ++index) {
            result.push_back((names.*get)(index));
        }
        return result;
    }
};

template <class Derived>
concept DerivesDirectly = requires(Loggable* loggable) { static_cast<Derived*>(loggable); };

// Not copyable, and derived virtually.
template <class Reader>
constexpr bool IS_A_READER =
    std::has_virtual_destructor_v<Reader> && !std::is_copy_constructible_v<Reader> && !std::is_copy_assignable_v<Reader> &&
    std::is_base_of_v<Loggable, Reader> && !DerivesDirectly<Reader>;
static_assert(IS_A_READER<CRegistry> && IS_A_READER<CRegistrySubKeys>);

} // namespace

TEST_F(RegistryTest, TextsUpTo254CharactersAreReturnedWholeAndLongerOnesNotAtAll)
{
    setString("empty", "");
    setString("254", std::string(254, 'a'));
    setString("255", std::string(255, 'a'));
    setString("300", std::string(300, 'a'));
    EXPECT_EQ(stringValue("empty"), "");
    EXPECT_EQ(stringValue("254"), std::string(254, 'a'));
    EXPECT_EQ(stringValue("255"), "default");
    EXPECT_EQ(stringValue("300"), "default");
    EXPECT_EQ(stringValue("missing"), "default");
}

TEST_F(RegistryTest, TextIsTheBytesUpToTheFirstZeroWhateverTheirType)
{
    setBytes("unterminated", "abc");
    setBytes("full", std::string(255, 'b'));
    setBytes("nothing", "");
    setBytes("zero inside", std::string("ab\0cd", 5));
    m_scratch.setDword(PATH, "number", 0x00434241);
    EXPECT_EQ(stringValue("unterminated"), "abc");
    EXPECT_EQ(stringValue("full"), std::string(255, 'b'));
    EXPECT_EQ(stringValue("nothing"), "") << "it is there, so it is not the default";
    EXPECT_EQ(stringValue("zero inside"), "ab");
    EXPECT_EQ(stringValue("number"), "ABC");
}

TEST_F(RegistryTest, NumberIsUpToFourBytesSignedWhateverTheirType)
{
    m_scratch.setDword(PATH, "number", 12);
    m_scratch.setDword(PATH, "high", 0xFFFFFFFE);
    setString("abc", "abc");
    setString("abcd", "abcd");
    setBytes("one", "a");
    setBytes("nothing", "");
    EXPECT_EQ(dwordValue("number"), 12);
    EXPECT_EQ(dwordValue("high"), -2);
    EXPECT_EQ(dwordValue("missing"), -1);
    EXPECT_EQ(dwordValue("abc"), 0x00636261);
    EXPECT_EQ(dwordValue("abcd"), -1) << "five bytes do not fit";
    EXPECT_EQ(dwordValue("one"), 0x61) << "the bytes that are missing are zero";
    EXPECT_EQ(dwordValue("nothing"), 0);
}

TEST_F(RegistryTest, SnapshotHoldsTheNamesThatTheKeyHad)
{
    addKey("b");
    addKey("a");
    setString("one", "1");
    setString("", "the key's own value");
    CRegistry registry = opened();
    CRegistrySubKeys names(registry);
    registry.closeKey();
    m_scratch.deleteValue(PATH, "one");
    EXPECT_THAT(subKeys(names), UnorderedElementsAre("a", "b"));
    EXPECT_THAT(values(names), UnorderedElementsAre("one", ""));
}

TEST_F(RegistryTest, NameThatDoesNotFitIsEmptyAndStillCounted)
{
    setString(std::string(16382, 'v'), "1");
    setString(std::string(16383, 'w'), "1");
    CRegistry registry = opened();
    {
        CRegistrySubKeys names(registry);
        EXPECT_THAT(subKeys(names), IsEmpty()) << "it has values only";
        EXPECT_THAT(values(names), UnorderedElementsAre(std::string(16382, 'v'), ""));
    }
    addKey(std::string(254, 'k'));
    addKey(std::string(255, 'l'));
    CRegistrySubKeys names(registry);
    EXPECT_THAT(subKeys(names), UnorderedElementsAre(std::string(254, 'k'), ""));
}

// ---- Registry calls

TEST_F(RegistryTest, KeyIsOpenedWithTheAccessThatWasGivenReadInFixedSizesAndClosedOnce)
{
    setString("text", "x");
    const Questions questions;
    {
        CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ | KEY_WOW64_32KEY);
        registry.getStringValue("text", "default");
        registry.getStringValue("missing", "default");
        registry.getDWORDValue("text", 0);
        registry.closeKey();
        registry.closeKey();
        EXPECT_EQ(registry.getStringValue("text", "default"), "default");
        EXPECT_EQ(registry.getDWORDValue("text", 7), 7);
        CRegistrySubKeys names(registry);
        EXPECT_EQ(names.getSubKeyCount() + names.getValueCount(), 0);
    }
    EXPECT_THAT(s_calls, ElementsAre("open machine SOFTWARE\\Sample 0 20219", "query text 255", "query missing 255",
                                     "query text 4", "close"));
    s_calls.clear();
    {
        const CRegistry registry("Software", HKEY_CURRENT_USER, KEY_QUERY_VALUE);
    }
    EXPECT_THAT(s_calls, ElementsAre("open another root Software 0 1", "close")) << "its end closes it";
}

TEST_F(RegistryTest, MissingKeyIsLoggedOnceAndNeitherAskedNorClosed)
{
    Logger::getErrorEntries();
    const Questions questions;
    {
        CRegistry registry("SOFTWARE\\Missing", HKEY_LOCAL_MACHINE, KEY_READ);
        EXPECT_EQ(registry.getStringValue("name", "default"), "default");
        EXPECT_EQ(registry.getDWORDValue("name", 42), 42);
        CRegistrySubKeys names(registry);
        names.getKeyNames(nullptr);
        EXPECT_EQ(names.getSubKeyCount() + names.getValueCount(), 0);
    }
    EXPECT_THAT(s_calls, ElementsAre("open machine SOFTWARE\\Missing 0 20019"));
    EXPECT_THAT(fixtures::bodies(fixtures::parseLogLines(Logger::getErrorEntries())),
                ElementsAre("ERROR|    CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false",
                            "FINE|-> CRegistry  "));
}

TEST_F(RegistryTest, EveryNameIsAskedForWithTheWholeSizeAndOneThatIsRefusedIsEmpty)
{
    for (const char* name : {"a", "bcd", "ef"}) {
        addKey(name);
        setString(name, "1");
    }
    CRegistry registry = opened();
    const Questions questions;
    {
        CRegistrySubKeys names(registry);
        EXPECT_THAT(subKeys(names), ElementsAre("a", "", "ef"));
        EXPECT_THAT(values(names), ElementsAre("a", "", "ef"));
    }
    EXPECT_THAT(s_calls,
                ElementsAre("info", "key 0 255", "key 1 255", "key 2 255", "value 0 16383", "value 1 16383", "value 2 16383"))
        << "the key is neither opened nor closed";

    s_calls.clear();
    s_infoStatus = ERROR_ACCESS_DENIED;
    CRegistrySubKeys names(registry);
    EXPECT_THAT(s_calls, ElementsAre("info"));
    EXPECT_EQ(names.getSubKeyCount() + names.getValueCount(), 0);
}

// ---- What is logged

TEST_F(RegistryTest, OperationsAreLoggedAsScopesAndFailedReadsNotAtAll)
{
    addKey("a");
    setString("text", "x");
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    const fixtures::DebugStream stream;
    {
        CRegistry registry = opened();
        registry.getStringValue("missing", "none");
        registry.getDWORDValue("missing", -1);
        CRegistrySubKeys names(registry);
        names.getSubKeyCount();
        names.getSubKey(0);
        names.getValueCount();
        names.getValue(0);
    }
    Strings expected;
    const auto scope = [&expected](const std::string& text, const Strings& inside = {}) {
        expected.push_back("FINE|-> " + text);
        expected.insert(expected.end(), inside.begin(), inside.end());
        expected.push_back("FINE|<- " + text);
    };
    scope("CRegistry  CRegistry SOFTWARE\\Sample",
          {"TRACE|    CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true"});
    scope("CRegistry  getStringValue missing, none");
    scope("CRegistry  getDWORDValue missing, -1");
    scope("CRegistrySubKeys  CRegistrySubKeys ",
          {"FINE| -> CRegistrySubKeys  getKeyNames ", "FINE| <- CRegistrySubKeys  getKeyNames "});
    scope("CRegistrySubKeys  getSubKeyCount ");
    scope("CRegistrySubKeys  getSubKey 0");
    scope("CRegistrySubKeys  getValueCount ");
    scope("CRegistrySubKeys  getValue 0");
    scope("CRegistrySubKeys  ~CRegistrySubKeys ");
    scope("CRegistry  ~CRegistry ", {"FINE| -> CRegistry  closeKey ", "FINE| <- CRegistry  closeKey "});
    EXPECT_EQ(stream.said("registry"), expected);
    EXPECT_EQ(stream.said(), expected);
}
