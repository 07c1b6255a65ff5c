// Which basis control the first object takes.
#include "tests/com/ComWorld.h"

#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

using testing::ElementsAre;

namespace {

using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using ModuleNameHook = ImportHook<decltype(&GetModuleFileNameA)>;

std::vector<std::string> s_openings;

LSTATUS WINAPI noteOpening(HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key)
{
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(access, static_cast<REGSAM>(KEY_READ | KEY_WOW64_32KEY));
    s_openings.emplace_back(path);
    return OpenHook::s_original(root, path, options, access, key);
}

// The executable's path and its length, as the product gets them from Windows.
std::string s_executable;
DWORD s_length = 0;

DWORD WINAPI otherExecutable(HMODULE module, LPSTR path, DWORD size)
{
    if (module != nullptr || size != 260) {
        return ModuleNameHook::s_original(module, path, size);
    }
    path[s_executable.copy(path, size - 1)] = '\0';
    return s_length;
}

} // namespace

class BasisControlTest : public ComWorld
{
protected:
    BasisControlTest() { setExecutable(folder.path("program.exe")); }
    static void setExecutable(const std::string& path)
    {
        s_executable = path;
        s_length = static_cast<DWORD>(path.size());
    }
    // The log lines of the choice, for an object that is created in the executable named above.
    std::vector<std::string> choice()
    {
        CJavaManagerATLObject::s_Instance = nullptr;
        stream.clear();
        CComPtr<Object> object;
        {
            const ModuleNameHook hook("GetModuleFileNameA", otherExecutable);
            object = create();
        }
        std::vector<std::string> result = lines({"JavaManagerATLObject"});
        EXPECT_EQ(CBeanFrame::s_Instance != nullptr, !linesWith(result, "CHECKPOINT").empty());
        std::erase_if(result, [](const std::string& line) {
            return line.find("-> @object doesFileExist") == line.npos && line.find("Basiscontrol path") == line.npos &&
                   line.find("(basiscontrol)") == line.npos;
        });
        return result;
    }
    void forgetPreference()
    {
        world.machine().deleteValue(fixtures::LoggerWorld::PREFERENCES_KEY, "basiscontrol", KEY_WOW64_32KEY);
    }

    const std::string missing = folder.path("missing.jar");
    const std::string beside = folder.path("ORVANEControl.jar");
    const std::string looks = "FINE -> @object doesFileExist ";
    const std::string takes = "FINE @object Basiscontrol path: ";
    const std::string isThere = "TRACE @object doesFileExist(basiscontrol): true";
    const std::string isMissing = "ERROR @object doesFileExist(basiscontrol): false";
};

TEST_F(BasisControlTest, OfTheRegistryComesFirstThenTheOneBesideTheExecutable)
{
    std::ofstream(beside) << "the control that is shipped";
    EXPECT_THAT(choice(), ElementsAre(looks + basisControl, takes + basisControl, looks + basisControl, isThere));
    world.setPreference("basiscontrol", missing);
    EXPECT_THAT(choice(), ElementsAre(looks + missing, looks + beside, takes + beside, looks + beside, isThere));
    DeleteFileA(beside.c_str());
    EXPECT_THAT(choice(), ElementsAre(looks + missing, looks + beside, takes + missing, looks + missing, isMissing));
}

TEST_F(BasisControlTest, BesideTheExecutableIsTheDefaultAndNotLookedForTwice)
{
    forgetPreference();
    EXPECT_THAT(choice(), ElementsAre(looks + beside, takes + beside, looks + beside, isMissing));
    std::ofstream(beside) << "the control that is shipped";
    EXPECT_THAT(choice(), ElementsAre(looks + beside, takes + beside, looks + beside, isThere));
}

// The folder is the path before the last backslash. The buffer has 260 characters: a longer or a negative length means no path.
TEST_F(BasisControlTest, DefaultIsEmptyWithoutThePathOfTheExecutable)
{
    forgetPreference();
    setExecutable("C:\\a folder\\of many\\program.exe");
    const std::string control = "C:\\a folder\\of many\\ORVANEControl.jar";
    EXPECT_THAT(choice(), ElementsAre(looks + control, takes + control, looks + control, isMissing));
    s_length = 260;
    EXPECT_THAT(choice(), ElementsAre(looks + control, takes + control, looks + control, isMissing));
    for (const DWORD length : {261ul, 0x7FFFFFFFul, 0x80000000ul, 0xFFFFFFFFul}) {
        SCOPED_TRACE(length);
        s_length = length;
        EXPECT_THAT(choice(), ElementsAre(looks, takes, looks, isMissing));
    }
}

TEST_F(BasisControlTest, IsReadFromOneKeyInThe32BitViewThatIsOpenedForReadingOnly)
{
    const char* const key = fixtures::LoggerWorld::PREFERENCES_KEY;
    world.machine().createKey("SOFTWARE\\Wow6432Node"); // from now on the two views are separate
    world.machine().setString(key, "basiscontrol", basisControl, KEY_WOW64_32KEY);
    world.machine().setString(key, "basiscontrol", folder.path("of the other view.jar"));
    s_openings.clear();
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    EXPECT_THAT(choice(), ElementsAre(looks + basisControl, takes + basisControl, looks + basisControl, isThere));
    EXPECT_THAT(s_openings, ElementsAre("SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt"));
}

TEST_F(BasisControlTest, ExistsWhenItsAttributesCanBeRead)
{
    const CComPtr<Object> object = create();
    const auto exists = [&](const std::string& path) { return (access(object)->*&ObjectAccess::doesFileExist)(path); };
    EXPECT_TRUE(exists(basisControl));
    EXPECT_TRUE(exists(folder.path())) << "a folder has attributes, too";
    EXPECT_FALSE(exists(missing));
    EXPECT_FALSE(exists(folder.path("no folder") + "\\basis.jar"));
    EXPECT_FALSE(exists(""));
}
