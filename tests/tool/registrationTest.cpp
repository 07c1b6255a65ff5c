// Each fault of the registration that "check" can name, planted in a registry of the test's own.
#include "tests/tool/ToolTest.h"

#include "support/logger.h"
#include "tool/Check.h"

using testing::ElementsAre;

namespace {

const std::string CLASSES = "SOFTWARE\\Classes\\";
const std::string CLASS = CLASSES + "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}";
const std::string LIBRARY = "{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}";
const std::string CALLS = "Interface\\{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}";
const std::string EVENTS = "Interface\\{E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58}";
const std::string REGISTER_FOR_USER = " -> run in the program's folder: KESTAx64.exe /RegServerPerUser";
const std::string REGISTER = " -> as administrator, run in the program's folder: KESTAx64.exe /RegServer";

class RegistrationTest : public ToolTest
{
protected:
    // What a registration writes; the library is the one of the build.
    void registerServer(fixtures::RegistryScratch& root, const std::string& server)
    {
        root.setString(CLASS + "\\LocalServer32", "", server);
        for (const char* const name : {"KESTAserver.JavaManager.1", "KESTAserver.JavaManager"}) {
            root.setString(CLASSES + name + "\\CLSID", "", "{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}");
        }
        root.setString(CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win64", "", KESTA_TYPE_LIBRARY);
        for (const std::string& name : {CALLS, EVENTS}) {
            root.setString(CLASSES + name + "\\TypeLib", "", LIBRARY);
            root.setString(CLASSES + name + "\\ProxyStubClsid32", "", "{00020424-0000-0000-C000-000000000046}");
        }
    }
    std::string makeServer(const std::string& name)
    {
        fixtures::makeFile(folder.path(name), "");
        return folder.path(name);
    }
    Lines lines() { return linesOf(checkRegistration(found)); }
    Lines faults() { return faultsOf(checkRegistration(found)); }

    std::string found;
};

TEST_F(RegistrationTest, HealthyOneHasNoFault)
{
    const std::string server = makeServer("KESTAx64.exe");
    registerServer(machine, server);
    EXPECT_THAT(lines(), ElementsAre("ok machine: " + server, "ok machine, name: KESTAserver.JavaManager.1",
                                     "ok machine, name: KESTAserver.JavaManager",
                                     std::string("ok machine, type library: loads: ") + KESTA_TYPE_LIBRARY,
                                     "ok machine, interface: marshalled by the type library",
                                     "ok machine, events: marshalled by the type library",
                                     "note 32-bit programs: can call late bound only: the type library has no entry win32"));
    EXPECT_EQ(found, server);
    machine.setString(CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win32", "", server);
    EXPECT_EQ(lines().back(), "ok 32-bit programs: can call early and late bound");
}

TEST_F(RegistrationTest, MissingOneIsNamed)
{
    EXPECT_THAT(lines(), ElementsAre("FAULT class: is registered neither for this user nor for the machine" + REGISTER));
    EXPECT_EQ(found, "");
}

TEST_F(RegistrationTest, WhatIsMissingOrBrokenInItIsNamed)
{
    registerServer(machine, "\"" + folder.path("a b.exe") + "\" -x");
    EXPECT_THAT(faults(),
                ElementsAre("FAULT machine: names a file that is not there: " + folder.path("a b.exe") +
                            " -> put the program back there, or register it from where it is: KESTAx64.exe /RegServer"));
    makeServer("a b.exe");
    EXPECT_THAT(faults(), ElementsAre());

    for (const std::string name : {"KESTAserver.JavaManager.1", "KESTAserver.JavaManager"}) {
        machine.setString(CLASSES + name + "\\CLSID", "", "{0}");
        EXPECT_THAT(faults(), ElementsAre("FAULT machine, name: " + name + " does not lead to the class" + REGISTER));
        registerServer(machine, folder.path("a b.exe"));
    }

    const std::string library = CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win64";
    machine.setString(library, "", folder.path("a b.exe"));
    EXPECT_THAT(faults(), ElementsAre(testing::StartsWith("FAULT machine, type library: does not load from " +
                                                          folder.path("a b.exe") + ": ")));
    machine.setString(library, "", "stdole2.tlb");
    EXPECT_THAT(faults(), ElementsAre(testing::StartsWith("FAULT machine, type library: does not load from stdole2.tlb: ")))
        << "it is another one";
    machine.setString(library, "", "");
    EXPECT_THAT(faults(), ElementsAre("FAULT machine, type library: is not registered: calls between processes fail" + REGISTER));
    registerServer(machine, folder.path("a b.exe"));

    machine.setString(CLASSES + CALLS + "\\TypeLib", "", "");
    machine.setString(CLASSES + EVENTS + "\\ProxyStubClsid32", "", "");
    machine.setString(CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win32", "", folder.path("a b.exe"));
    EXPECT_EQ(lines().back(),
              "note 32-bit programs: can call late bound only: the interfaces are not complete in the 32-bit view");
    EXPECT_THAT(
        faults(),
        ElementsAre("FAULT machine, interface: " + CALLS + " is not complete: calls or events fail with E_NOINTERFACE" + REGISTER,
                    "FAULT machine, events: " + EVENTS + " is not complete: calls or events fail with E_NOINTERFACE" + REGISTER));
}

TEST_F(RegistrationTest, TypeLibraryMayBeInAFolderWithAnUmlaut)
{
    const std::string library = folder.path(UMLAUT + ".tlb");
    ASSERT_TRUE(CopyFileA(KESTA_TYPE_LIBRARY, library.c_str(), TRUE));
    registerServer(machine, makeServer("KESTAx64.exe"));
    machine.setString(CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win64", "", library);
    EXPECT_THAT(faults(), ElementsAre());
}

TEST_F(RegistrationTest, UsersOneIsMendedForTheUser)
{
    registerServer(user, folder.path("none.exe"));
    user.setString(CLASSES + "KESTAserver.JavaManager\\CLSID", "", "{0}");
    user.setString(CLASSES + "TypeLib\\" + LIBRARY + "\\1.0\\0\\win64", "", "");
    user.setString(CLASSES + CALLS + "\\TypeLib", "", "");
    EXPECT_THAT(faults(),
                ElementsAre("FAULT user: names a file that is not there: " + folder.path("none.exe") +
                                " -> put the program back there, or register it from where it is: KESTAx64.exe /RegServerPerUser",
                            "FAULT user, name: KESTAserver.JavaManager does not lead to the class" + REGISTER_FOR_USER,
                            "FAULT user, type library: is not registered: calls between processes fail" + REGISTER_FOR_USER,
                            "FAULT user, interface: " + CALLS + " is not complete: calls or events fail with E_NOINTERFACE" +
                                REGISTER_FOR_USER));
}

TEST_F(RegistrationTest, UsersOneComesBeforeTheMachines)
{
    registerServer(user, makeServer("new.exe"));
    EXPECT_THAT(lines(),
                testing::Contains("note machine: is registered for this user only: programs that run elevated do not find it"));
    EXPECT_THAT(faults(), ElementsAre());
    registerServer(machine, makeServer("old.exe"));
    EXPECT_THAT(faults(),
                ElementsAre("FAULT user and machine: name different programs; this user gets " + folder.path("new.exe") +
                            " -> remove the user's registration: KESTAx64.exe /UnregServerPerUser"));
    EXPECT_EQ(found, folder.path("new.exe"));
}

} // namespace
