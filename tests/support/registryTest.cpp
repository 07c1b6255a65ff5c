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
    void addKey(const std::string& name) { m_scratch.createKey(std::string(PATH) + "\\" + name); }
    static CRegistry opened() { return CRegistry(PATH, HKEY_LOCAL_MACHINE, KEY_READ); }
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

TEST_F(RegistryTest, ValueIsItsBytesWhateverTheirTypeUpTo255AsATextAndUpToFourAsANumber)
{
    const struct
    {
        DWORD type;
        std::string bytes;
        std::string text; // up to the first zero
        int number;       // signed; bytes that are missing are zero
    } values[] = {
        {REG_SZ, {"", 1}, "", 0},
        {REG_SZ, {"abc", 4}, "abc", 0x00636261},
        {REG_SZ, {"abcd", 5}, "abcd", -1},
        {REG_SZ, std::string(254, 'a') + '\0', std::string(254, 'a'), -1},
        {REG_SZ, std::string(255, 'a') + '\0', "default", -1},
        {REG_SZ, std::string(300, 'a') + '\0', "default", -1},
        {REG_BINARY, "", "", 0}, // it is there, so it is not the default
        {REG_BINARY, "a", "a", 0x61},
        {REG_BINARY, "abc", "abc", 0x00636261},
        {REG_BINARY, {"ab\0cd", 5}, "ab", -1},
        {REG_BINARY, std::string(255, 'b'), std::string(255, 'b'), -1},
        {REG_DWORD, {"\x0C\0\0\0", 4}, "\x0C", 12},
        {REG_DWORD, {"ABC\0", 4}, "ABC", 0x00434241},
        {REG_DWORD, "\xFE\xFF\xFF\xFF", "\xFE\xFF\xFF\xFF", -2},
    };
    for (const auto& value : values) {
        SCOPED_TRACE(&value - values);
        m_scratch.setBytes(PATH, "value", value.type, value.bytes.data(), value.bytes.size());
        EXPECT_EQ(opened().getStringValue("value", "default"), value.text);
        EXPECT_EQ(opened().getDWORDValue("value", -1), value.number);
    }
    EXPECT_EQ(opened().getStringValue("missing", "default"), "default");
    EXPECT_EQ(opened().getDWORDValue("missing", -1), -1);
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
