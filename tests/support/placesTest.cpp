// Private folders and keys start empty, whatever an earlier process with the same id has left behind.
#include "tests/support/places.h"

#include <gmock/gmock.h>

using fixtures::RegistryScratch;
using fixtures::TemporaryFolder;

namespace {

std::string readMark()
{
    char text[16] = "none";
    DWORD size = sizeof text;
    RegGetValueA(HKEY_LOCAL_MACHINE, nullptr, "mark", RRF_RT_REG_SZ, nullptr, text, &size);
    return text;
}

} // namespace

TEST(PlacesTest, FolderIsNewAndLeavesOthersAlone)
{
    std::vector<std::string> names;
    {
        std::vector<std::unique_ptr<TemporaryFolder>> folders;
        for (int i = 0; i < 3; ++i) {
            folders.push_back(std::make_unique<TemporaryFolder>());
            names.push_back(folders.back()->path());
        }
    }
    for (const std::string& name : names) {
        EXPECT_FALSE(std::filesystem::exists(name));
    }
    std::filesystem::create_directory(names[0]);
    fixtures::makeFile(names[0] + "\\left behind", "");
    fixtures::makeFile(names[1], "");
    {
        const TemporaryFolder folder;
        EXPECT_EQ(folder.path(), names[2]);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
    EXPECT_TRUE(std::filesystem::exists(names[0] + "\\left behind"));
    EXPECT_EQ(std::filesystem::remove_all(names[0]), 2u);
    EXPECT_TRUE(std::filesystem::remove(names[1]));
}

TEST(PlacesTest, RegistryIsNewAndLeavesOtherKeysAlone)
{
    const RegistryScratch first(HKEY_LOCAL_MACHINE);
    RegSetValueExA(HKEY_LOCAL_MACHINE, "mark", 0, REG_SZ, reinterpret_cast<const BYTE*>("first"), 6);
    EXPECT_EQ(readMark(), "first");
    {
        const RegistryScratch second(HKEY_LOCAL_MACHINE);
        EXPECT_EQ(readMark(), "none");
    }
}
