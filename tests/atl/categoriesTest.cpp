#include "atl/categories.h"
#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const CLSID CLASS_ID = {0x11111111, 0x2222, 0x3333, {1, 2, 3, 4, 5, 6, 7, 0xAB}};
const GUID FIRST = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const GUID SECOND = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};

using Type = ATL_CATMAP_ENTRY::Type;
const ATL_CATMAP_ENTRY MAP[] = {
    {Type::Implemented, &FIRST}, {Type::Implemented, &SECOND}, {Type::Required, &FIRST}, {Type::Required, nullptr}};

class CategoriesTest : public RegistryTest
{
};

} // namespace

TEST_F(CategoriesTest, AreKeysOfTheClass)
{
    EXPECT_EQ(AtlRegisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), S_OK);
    const std::string clsid = "CLSID\\{11111111-2222-3333-0102-0304050607AB}";
    EXPECT_THAT(classes(), ElementsAre("CLSID", clsid, clsid + "\\Implemented Categories",
                                       clsid + "\\Implemented Categories\\{AAAAAAAA-0000-0000-0000-000000000001}",
                                       clsid + "\\Implemented Categories\\{AAAAAAAA-0000-0000-0000-000000000002}",
                                       clsid + "\\Required Categories",
                                       clsid + "\\Required Categories\\{AAAAAAAA-0000-0000-0000-000000000001}"));
    EXPECT_EQ(AtlUnregisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), S_OK);
    EXPECT_THAT(classes(), ElementsAre("CLSID", clsid));
    EXPECT_EQ(AtlUnregisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), S_OK);
}

TEST_F(CategoriesTest, PerUserLieUnderTheUser)
{
    EXPECT_EQ(AtlRegisterCategories(CLASS_ID, MAP + 2, CRegistrationScope::User), S_OK);
    EXPECT_THAT(classes(), IsEmpty());
    const std::string clsid = "Software\\Classes\\CLSID\\{11111111-2222-3333-0102-0304050607AB}";
    EXPECT_THAT(contentOf(HKEY_CURRENT_USER),
                ElementsAre("Software", "Software\\Classes", "Software\\Classes\\CLSID", clsid, clsid + "\\Required Categories",
                            clsid + "\\Required Categories\\{AAAAAAAA-0000-0000-0000-000000000001}"));
}

TEST_F(CategoriesTest, ForeignCategoriesStay)
{
    EXPECT_EQ(AtlRegisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(AtlUnregisterCategories(CLASS_ID, MAP + 2, CRegistrationScope::Machine), S_OK);
    const std::string clsid = "CLSID\\{11111111-2222-3333-0102-0304050607AB}";
    EXPECT_THAT(classes(), ElementsAre("CLSID", clsid, clsid + "\\Implemented Categories",
                                       clsid + "\\Implemented Categories\\{AAAAAAAA-0000-0000-0000-000000000001}",
                                       clsid + "\\Implemented Categories\\{AAAAAAAA-0000-0000-0000-000000000002}"));
}

TEST_F(CategoriesTest, AClassWithoutAnyWritesNothing)
{
    EXPECT_EQ(AtlRegisterCategories(CLASS_ID, nullptr, CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(AtlUnregisterCategories(CLASS_ID, nullptr, CRegistrationScope::Machine), S_OK);
    EXPECT_THAT(classes(), IsEmpty());
}

TEST_F(CategoriesTest, AKeyThatCannotBeWrittenOrOpenedIsAnError)
{
    {
        const ImportHook<decltype(&RegCreateKeyExA)> hook("RegCreateKeyExA",
                                                          [](HKEY, LPCSTR, DWORD, LPSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES,
                                                             PHKEY, LPDWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        EXPECT_EQ(AtlRegisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), E_ACCESSDENIED);
    }
    EXPECT_EQ(AtlRegisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), S_OK);
    const ImportHook<decltype(&RegOpenKeyExA)> hook(
        "RegOpenKeyExA", [](HKEY, LPCSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(AtlUnregisterCategories(CLASS_ID, MAP, CRegistrationScope::Machine), E_ACCESSDENIED);
}
