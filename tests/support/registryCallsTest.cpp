// What the readers ask of the Windows registry, and what they make of refusals.
#include "support/registry.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <type_traits>

using fixtures::DebugStream;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using CloseHook = ImportHook<decltype(&RegCloseKey)>;
using QueryHook = ImportHook<decltype(&RegQueryValueExA)>;
using InfoHook = ImportHook<decltype(&RegQueryInfoKeyA)>;
using KeyNameHook = ImportHook<decltype(&RegEnumKeyExA)>;
using ValueNameHook = ImportHook<decltype(&RegEnumValueA)>;

constexpr const char* PATH = "SOFTWARE\\Sample";

std::vector<std::string> s_calls;
bool s_isRefused;
HKEY s_openKey;

void note(const std::string& call)
{
    s_calls.push_back(call);
}

LSTATUS WINAPI noteOpening(HKEY root, LPCSTR keyPath, DWORD options, REGSAM access, HKEY* key)
{
    char text[64];
    std::snprintf(text, sizeof text, " %lx %lx", options, access);
    note("open " +
         std::string(root == HKEY_LOCAL_MACHINE  ? "machine "
                     : root == HKEY_CURRENT_USER ? "user "
                                                 : "? ") +
         keyPath + text);
    const LSTATUS status = OpenHook::s_original(root, keyPath, options, access, key);
    s_openKey = *key;
    return status;
}

LSTATUS WINAPI noteClosing(HKEY key)
{
    note(key == s_openKey ? "close" : "close another key");
    return CloseHook::s_original(key);
}

LSTATUS WINAPI noteQuery(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size)
{
    note("query " + std::string(name) + " " + std::to_string(*size));
    return QueryHook::s_original(key, name, reserved, type, data, size);
}

LSTATUS WINAPI noteInfo(HKEY key, LPSTR name, LPDWORD nameSize, LPDWORD reserved, LPDWORD subKeys, LPDWORD longestKey,
                        LPDWORD longestClass, LPDWORD values, LPDWORD longestName, LPDWORD longestValue, LPDWORD security,
                        PFILETIME time)
{
    note("info");
    const LSTATUS status = InfoHook::s_original(key, name, nameSize, reserved, subKeys, longestKey, longestClass, values,
                                                longestName, longestValue, security, time);
    return s_isRefused ? ERROR_ACCESS_DENIED : status;
}

// The second name is refused.
LSTATUS WINAPI noteKeyName(HKEY key, DWORD index, LPSTR name, LPDWORD size, LPDWORD reserved, LPSTR keyClass, LPDWORD classSize,
                           PFILETIME time)
{
    note("key " + std::to_string(index) + " " + std::to_string(*size));
    const LSTATUS status = KeyNameHook::s_original(key, index, name, size, reserved, keyClass, classSize, time);
    return index == 1 ? ERROR_NO_MORE_ITEMS : status;
}

LSTATUS WINAPI noteValueName(HKEY key, DWORD index, LPSTR name, LPDWORD size, LPDWORD reserved, LPDWORD type, LPBYTE data,
                             LPDWORD dataSize)
{
    note("value " + std::to_string(index) + " " + std::to_string(*size));
    const LSTATUS status = ValueNameHook::s_original(key, index, name, size, reserved, type, data, dataSize);
    return index == 1 ? ERROR_NO_MORE_ITEMS : status;
}

class RegistryCallsTest : public testing::Test
{
protected:
    RegistryCallsTest()
    {
        for (const char* name : {"a", "bcd", "ef"}) {
            m_scratch.createKey(std::string(PATH) + "\\" + name);
            m_scratch.setDword(PATH, std::string("value ") + name, 1);
        }
        s_calls.clear();
        s_isRefused = false;
        s_openKey = nullptr;
    }

    fixtures::RegistryScratch m_scratch{HKEY_LOCAL_MACHINE};
};

template <class Derived>
concept DerivesDirectly = requires(Loggable* loggable) { static_cast<Derived*>(loggable); };

} // namespace

TEST_F(RegistryCallsTest, KeyIsOpenedBelowTheRootAndWithTheAccessThatWereGiven)
{
    const OpenHook opening("RegOpenKeyExA", noteOpening);
    const CRegistry first(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    const CRegistry second("SOFTWARE\\Missing\\", HKEY_LOCAL_MACHINE, KEY_READ | KEY_WOW64_32KEY);
    const CRegistry third("Software", HKEY_CURRENT_USER, KEY_QUERY_VALUE);
    EXPECT_THAT(s_calls, ElementsAre("open machine SOFTWARE\\Sample 0 20019", "open machine SOFTWARE\\Missing\\ 0 20219",
                                     "open user Software 0 1"));
}

TEST_F(RegistryCallsTest, KeyIsClosedOnceAndNotAskedAfterwards)
{
    const OpenHook opening("RegOpenKeyExA", noteOpening);
    const CloseHook closing("RegCloseKey", noteClosing);
    const QueryHook query("RegQueryValueExA", noteQuery);
    const InfoHook info("RegQueryInfoKeyA", noteInfo);
    {
        CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
        registry.closeKey();
        EXPECT_EQ(s_calls.back(), "close");
        s_calls.clear();
        registry.closeKey();
        EXPECT_EQ(registry.getStringValue("value a", "default"), "default");
        EXPECT_EQ(registry.getDWORDValue("value a", 7), 7);
        CRegistrySubKeys names(registry);
        EXPECT_EQ(names.getSubKeyCount() + names.getValueCount(), 0);
    }
    EXPECT_THAT(s_calls, IsEmpty());
    {
        const CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
        s_calls.clear();
    }
    EXPECT_THAT(s_calls, ElementsAre("close")) << "its end closes the key";
}

TEST_F(RegistryCallsTest, KeyThatIsNotThereIsNeitherAskedNorClosed)
{
    const CloseHook closing("RegCloseKey", noteClosing);
    const QueryHook query("RegQueryValueExA", noteQuery);
    const InfoHook info("RegQueryInfoKeyA", noteInfo);
    {
        CRegistry registry("SOFTWARE\\Missing", HKEY_LOCAL_MACHINE, KEY_READ);
        EXPECT_EQ(registry.getStringValue("name", "default"), "default");
        EXPECT_EQ(registry.getDWORDValue("name", -1), -1);
        CRegistrySubKeys names(registry);
        names.getKeyNames(nullptr);
        EXPECT_EQ(names.getSubKeyCount() + names.getValueCount(), 0);
    }
    EXPECT_THAT(s_calls, IsEmpty());
}

TEST_F(RegistryCallsTest, ValuesAreReadOnceIntoTheirFixedSizes)
{
    const QueryHook query("RegQueryValueExA", noteQuery);
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    registry.getStringValue("value a", "default");
    registry.getStringValue("missing", "default");
    registry.getDWORDValue("value a", 0);
    registry.getDWORDValue("missing", 0);
    EXPECT_THAT(s_calls, ElementsAre("query value a 255", "query missing 255", "query value a 4", "query missing 4"));
}

TEST_F(RegistryCallsTest, EveryNameIsAskedForWithTheWholeSizeAndOneThatIsRefusedIsEmpty)
{
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    const OpenHook opening("RegOpenKeyExA", noteOpening);
    const CloseHook closing("RegCloseKey", noteClosing);
    const InfoHook info("RegQueryInfoKeyA", noteInfo);
    const KeyNameHook keys("RegEnumKeyExA", noteKeyName);
    const ValueNameHook values("RegEnumValueA", noteValueName);
    {
        CRegistrySubKeys names(registry);
        EXPECT_THAT(s_calls,
                    ElementsAre("info", "key 0 255", "key 1 255", "key 2 255", "value 0 16383", "value 1 16383", "value 2 16383"))
            << "and the key is neither opened nor closed";
        ASSERT_EQ(names.getSubKeyCount(), 3);
        ASSERT_EQ(names.getValueCount(), 3);
        EXPECT_NE(names.getSubKey(0), "");
        EXPECT_EQ(names.getSubKey(1), "");
        EXPECT_NE(names.getSubKey(2), "");
        EXPECT_NE(names.getValue(0), "");
        EXPECT_EQ(names.getValue(1), "");
        EXPECT_NE(names.getValue(2), "");
    }
    EXPECT_EQ(s_calls.size(), 7u) << "nor at the end of the snapshot";
}

TEST_F(RegistryCallsTest, KeyThatTellsNoCountsHasNoNames)
{
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    const InfoHook info("RegQueryInfoKeyA", noteInfo);
    const KeyNameHook keys("RegEnumKeyExA", noteKeyName);
    const ValueNameHook values("RegEnumValueA", noteValueName);
    s_isRefused = true;
    DebugStream stream;
    CRegistrySubKeys names(registry);
    EXPECT_EQ(names.getSubKeyCount(), 0);
    EXPECT_EQ(names.getValueCount(), 0);
    EXPECT_THAT(s_calls, ElementsAre("info"));
    EXPECT_THAT(stream.texts(), IsEmpty()) << "no error to anyone";
}

TEST_F(RegistryCallsTest, FailedReadsAreNotLogged)
{
    Logger::setMaxLogLevel(LOGLEVEL_INFO);
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    m_scratch.setBytes(PATH, "long", REG_BINARY, std::string(300, 'x').data(), 300);
    DebugStream stream;
    EXPECT_EQ(registry.getStringValue("missing", "default"), "default");
    EXPECT_EQ(registry.getStringValue("long", "default"), "default");
    EXPECT_EQ(registry.getDWORDValue("long", 1), 1);
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    EXPECT_THAT(stream.texts(), IsEmpty());
}

TEST_F(RegistryCallsTest, NamesAreHandedOutUnderAScopeOfTheirOwn)
{
    CRegistry registry(PATH, HKEY_LOCAL_MACHINE, KEY_READ);
    CRegistrySubKeys names(registry);
    EXPECT_STREQ(names.getLogClassName(), "CRegistrySubKeys");
    EXPECT_EQ(names.getLogObjectInfo(), "");
    Logger::setMaxLogLevel(LOGLEVEL_FINE);
    DebugStream stream;
    names.getSubKey(2);
    std::vector<std::string> lines;
    for (const fixtures::LogLine& line : stream.lines()) {
        lines.push_back(line.level + "|" + line.source + "|" + line.body);
    }
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
    EXPECT_THAT(lines, ElementsAre("FINE|registry            |-> CRegistrySubKeys  getSubKey 2",
                                   "FINE|registry            |<- CRegistrySubKeys  getSubKey 2"));
}

TEST_F(RegistryCallsTest, ReadersAreNotCopiedAndLogLikeEveryObject)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<CRegistry>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CRegistrySubKeys>);
    EXPECT_FALSE(std::is_copy_constructible_v<CRegistry> || std::is_copy_assignable_v<CRegistry>);
    EXPECT_FALSE(std::is_copy_constructible_v<CRegistrySubKeys> || std::is_copy_assignable_v<CRegistrySubKeys>);
    EXPECT_FALSE(DerivesDirectly<CRegistry> || DerivesDirectly<CRegistrySubKeys>);
}
