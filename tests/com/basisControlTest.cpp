// Which basis control the first object takes, and what stays of an object whose bean frame cannot be created.
#include "tests/com/ComWorld.h"

#include "beanframe/BeanFrame.h"
#include "tests/beanframe/FailingFrameMemory.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using ModuleNameHook = ImportHook<decltype(&GetModuleFileNameA)>;

struct Opening
{
    HKEY root;
    std::string path;
    REGSAM access;
    bool operator==(const Opening&) const = default;
};

std::vector<Opening> s_openings;

LSTATUS WINAPI noteOpening(HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key)
{
    s_openings.push_back({root, path, access});
    return OpenHook::s_original(root, path, options, access, key);
}

// The executable that the product believes to be, and the length that Windows tells of its path.
std::string s_executable;
DWORD s_length = 0;
int s_questions = 0;

DWORD WINAPI otherExecutable(HMODULE module, LPSTR path, DWORD size)
{
    if (module != nullptr || size != 260) {
        return ModuleNameHook::s_original(module, path, size);
    }
    ++s_questions;
    s_executable.copy(path, size - 1);
    path[std::min<size_t>(s_executable.size(), size - 1)] = '\0';
    return s_length;
}

} // namespace

class BasisControlTest : public ComWorld
{
protected:
    BasisControlTest()
        : missing(folder.path("missing.jar"))
        , beside(folder.path("ORVANEControl.jar"))
    {
        setExecutable(folder.path("program.exe"));
        s_questions = 0;
    }
    static void setExecutable(const std::string& path)
    {
        s_executable = path;
        s_length = static_cast<DWORD>(path.size());
    }
    // The lines of the choice, of an object that is created as if by the executable named above.
    std::vector<std::string> choice()
    {
        CJavaManagerATLObject::s_Instance = nullptr;
        stream.clear();
        CComPtr<Object> object;
        {
            const ModuleNameHook hook("GetModuleFileNameA", otherExecutable);
            object = create();
        }
        EXPECT_EQ(CBeanFrame::s_Instance != nullptr, !linesWith(lines(), "CHECKPOINT").empty());
        std::vector<std::string> result;
        for (const std::string& line : lines()) {
            if (line.find("-> " + OBJECT + "doesFileExist") != std::string::npos ||
                line.find("Basiscontrol path") != std::string::npos || line.find("(basiscontrol)") != std::string::npos) {
                result.push_back(line.substr(0, line.find(OBJECT)) + line.substr(line.find(OBJECT) + OBJECT.size()));
            }
        }
        return result;
    }
    void forgetPreference()
    {
        world.machine().deleteValue(fixtures::LoggerWorld::PREFERENCES_KEY, "basiscontrol", KEY_WOW64_32KEY);
    }

    const std::string missing;
    const std::string beside;
};

TEST_F(BasisControlTest, OfTheRegistryIsTakenWhenItIsThere)
{
    std::ofstream(beside) << "the control that is shipped";
    EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist " + basisControl, "FINE Basiscontrol path: " + basisControl,
                                      "FINE -> doesFileExist " + basisControl, "TRACE doesFileExist(basiscontrol): true"));
    EXPECT_EQ(s_questions, 1);
}

TEST_F(BasisControlTest, BesideTheExecutableIsTakenWhenTheRegistrysIsMissing)
{
    std::ofstream(beside) << "the control that is shipped";
    world.setPreference("basiscontrol", missing);
    EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist " + missing, "FINE -> doesFileExist " + beside,
                                      "FINE Basiscontrol path: " + beside, "FINE -> doesFileExist " + beside,
                                      "TRACE doesFileExist(basiscontrol): true"));
}

TEST_F(BasisControlTest, OfTheRegistryIsNamedWhenBothAreMissing)
{
    world.setPreference("basiscontrol", missing);
    EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist " + missing, "FINE -> doesFileExist " + beside,
                                      "FINE Basiscontrol path: " + missing, "FINE -> doesFileExist " + missing,
                                      "ERROR doesFileExist(basiscontrol): false"));
}

TEST_F(BasisControlTest, BesideTheExecutableIsTheDefaultAndNotLookedForTwice)
{
    forgetPreference();
    EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist " + beside, "FINE Basiscontrol path: " + beside,
                                      "FINE -> doesFileExist " + beside, "ERROR doesFileExist(basiscontrol): false"));
    std::ofstream(beside) << "the control that is shipped";
    EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist " + beside, "FINE Basiscontrol path: " + beside,
                                      "FINE -> doesFileExist " + beside, "TRACE doesFileExist(basiscontrol): true"));
}

// The path is cut before its last backslash. The buffer has 260 characters; what Windows says to be longer, or negative, is no
// path.
TEST_F(BasisControlTest, DefaultIsEmptyWithoutThePathOfTheExecutable)
{
    forgetPreference();
    setExecutable("C:\\a folder\\of many\\program.exe");
    EXPECT_THAT(linesWith(choice(), "path"), ElementsAre("FINE Basiscontrol path: C:\\a folder\\of many\\ORVANEControl.jar"));
    s_length = 260;
    EXPECT_THAT(linesWith(choice(), "path"), ElementsAre("FINE Basiscontrol path: C:\\a folder\\of many\\ORVANEControl.jar"));
    for (const DWORD length : {261ul, 0x7FFFFFFFul, 0x80000000ul, 0xFFFFFFFFul}) {
        SCOPED_TRACE(length);
        s_length = length;
        EXPECT_THAT(choice(), ElementsAre("FINE -> doesFileExist ", "FINE Basiscontrol path: ", "FINE -> doesFileExist ",
                                          "ERROR doesFileExist(basiscontrol): false"));
    }
}

TEST_F(BasisControlTest, IsReadFromThe32BitView)
{
    const char* const key = fixtures::LoggerWorld::PREFERENCES_KEY;
    world.machine().createKey("SOFTWARE\\Wow6432Node"); // from here on the two views are two
    world.machine().setString(key, "basiscontrol", basisControl, KEY_WOW64_32KEY);
    world.machine().setString(key, "basiscontrol", folder.path("of the other view.jar"));
    EXPECT_THAT(linesWith(choice(), "path"), ElementsAre("FINE Basiscontrol path: " + basisControl));
}

TEST_F(BasisControlTest, IsReadFromOneKeyThatIsOpenedForReadingOnly)
{
    s_openings.clear();
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    const CComPtr<Object> object = create();
    EXPECT_THAT(s_openings, ElementsAre(Opening{HKEY_LOCAL_MACHINE, "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt",
                                                KEY_READ | KEY_WOW64_32KEY}));
}

TEST_F(BasisControlTest, ExistsWhenItsAttributesCanBeRead)
{
    const CComPtr<Object> object = create();
    stream.clear();
    ObjectAccess* const access = static_cast<ObjectAccess*>(static_cast<CJavaManagerATLObject*>(object.p));
    const auto exists = [&](const std::string& path) { return (access->*&ObjectAccess::doesFileExist)(path); };
    EXPECT_TRUE(exists(basisControl));
    EXPECT_TRUE(exists(folder.path())) << "a folder has attributes, too";
    EXPECT_FALSE(exists(missing));
    EXPECT_FALSE(exists(folder.path("no folder") + "\\basis.jar"));
    EXPECT_FALSE(exists(""));
    EXPECT_EQ(lines().front(), "FINE -> " + OBJECT + "doesFileExist " + basisControl);
    EXPECT_EQ(lines().back(), "FINE <- " + OBJECT + "doesFileExist ");
}

TEST_F(BasisControlTest, ObjectWithoutBeanFrameIsCreatedAllTheSame)
{
    CComPtr<Object> object;
    {
        const FailingFrameMemory memory;
        object = create();
    }
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    const std::string scope = OBJECT + "CJavaManagerATLObject ";
    std::vector<std::string> end = lines();
    end.erase(end.begin(), std::find(end.begin(), end.end(), "TRACE " + OBJECT + "doesFileExist(basiscontrol): true"));
    EXPECT_THAT(end, ElementsAre("TRACE " + OBJECT + "doesFileExist(basiscontrol): true",
                                 "ERROR " + OBJECT + "Failed to create ATL object.", "INFO -> " + scope, "INFO <- " + scope,
                                 "INFO -> " + OBJECT + "FinalConstruct ", "INFO <- " + OBJECT + "FinalConstruct "))
        << "the scope once more in the error backtrace";
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, -1);
    EXPECT_EQ(object->validate(), E_FAIL);
    EXPECT_THAT(takeErrorText(), testing::HasSubstr("CJavaManagerATLObject  Failed to create ATL object.\n"));
}

TEST_F(BasisControlTest, ObjectOutlivesMemoryThatIsExhaustedOnTheWayToItsFrame)
{
    java.insideVoidMethods = [] { AtlThrow(E_OUTOFMEMORY); };
    const CComPtr<Object> object = create();
    java.insideVoidMethods = nullptr;
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(lines(), "ERROR"),
                ElementsAre("ERROR " + OBJECT + "Failed to create ATL object. " + getWindowsErrorText(0x8007000E)));
}

// The first object stays the process's object even when it has gone: no later one creates a bean frame.
TEST_F(BasisControlTest, EndedObjectIsNeverReplaced)
{
    CComPtr<Object> first = create();
    const CJavaManagerATLObject* const address = first.p;
    first.Release();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, address);
    java.jni.takeCalls();
    stream.clear();
    CComPtr<Object> second = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, address);
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(lines(), "ERROR"), ElementsAre("ERROR " + OBJECT + "s_Instance == NULL: false"));
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
    int id = 0;
    EXPECT_EQ(second->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, -1);
    EXPECT_EQ(second->validate(), E_FAIL);
}
