// The archive of class data: when it is refused to make one, and what "check" says of one, without a start.
#include "tests/tool/ToolTest.h"

#include "tool/Warm.h"

#include <nlohmann/json.hpp>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>

using testing::ElementsAre;

namespace {

const std::string SERVER_KEY = "SOFTWARE\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\LocalServer32";
const std::string ANEW = " -> make it again: KESTAtool warm (or do without: KESTAtool warm --remove)";

void letEveryoneWrite(const std::string& folder)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(
        ConvertStringSecurityDescriptorToSecurityDescriptorA("D:P(A;OICI;FA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
    EXPECT_TRUE(SetFileSecurityA(folder.c_str(), DACL_SECURITY_INFORMATION, descriptor));
    LocalFree(descriptor);
}

class WarmTest : public ToolTest
{
protected:
    WarmTest()
    {
        fixtures::makeFile(archive, "data");
        fixtures::makeFile(library, "library");
        fixtures::makeFile(control, "control");
    }
    // A server of the machine with a current runtime of that version.
    void prepare(const std::string& server, const std::string& version)
    {
        machine.setString(SERVER_KEY, "", server);
        const std::filesystem::path home = folder.path("java" + version);
        std::filesystem::create_directories(home / "bin" / "server");
        std::filesystem::copy_file(standIn("jvm.dll"), home / "bin" / "server" / "jvm.dll");
        fixtures::makeFile((home / "release").string(), "JAVA_VERSION=\"" + version + "\"\n");
        install(version, (home / "bin" / "server" / "jvm.dll").string());
        makeCurrent(version);
    }
    // What `warm` leaves beside the archive.
    void record() const
    {
        ClassDataRecord record = describeClassData(archive, library, control);
        std::ranges::transform(record.files, record.files.begin(), toUtf8);
        fixtures::makeFile(
            classDataRecordFile(archive),
            nlohmann::json{{"library", record.library}, {"classPath", record.classPath}, {"files", record.files}}.dump());
    }
    Lines checked(const std::string& usedLibrary, const std::string& classPath) const
    {
        return linesOf(checkClassData({{"", "-Xmx9m"}, {"x", "-XX:SharedArchiveFile=" + archive}}, usedLibrary, classPath));
    }

    std::string archive = folder.path("KESTAx64.jsa");
    std::string library = folder.path("jvm.dll");
    std::string control = folder.path("the control.jar");
};

TEST_F(WarmTest, ServerThatIsNotRegisteredForTheMachineIsRefused)
{
    user.setString(SERVER_KEY, "", folder.path("KESTAx64.exe"));
    EXPECT_THAT(linesOf(makeClassData()),
                ElementsAre("FAULT server: is not registered for the machine, and the option would count for all users -> as "
                            "administrator, run in the program's folder: KESTAx64.exe /RegServer"));
}

TEST_F(WarmTest, RuntimeThatIsTooOldOrBrokenIsRefused)
{
    prepare(folder.path("KESTAx64.exe"), "12.0.2");
    const Lines before = machineKeys();
    EXPECT_THAT(linesOf(makeClassData()),
                ElementsAre("FAULT runtime: Java 12 cannot make class data of a control; Java 13 and newer can -> choose Java 13 "
                            "or newer: KESTAtool java list, then KESTAtool java use FOLDER"));
    EXPECT_EQ(machineKeys(), before);
    install("12.0.2", folder.path("none.dll"));
    EXPECT_THAT(linesOf(makeClassData()), ElementsAre("FAULT runtime: the chosen one does not work: the file is not there: " +
                                                      folder.path("none.dll") + " -> KESTAtool check tells what to do"));
}

TEST_F(WarmTest, OptionThatDecidesAlreadyIsRefused)
{
    prepare(folder.path("KESTAx64.exe"), "21");
    machine.setString(PREFERENCES, "jvm_option_a", "-Xshare:off", KEY_WOW64_32KEY);
    machine.setString(PREFERENCES, "jvm_option_b", "-XX:SharedArchiveFile=C:\\x.jsa", KEY_WOW64_32KEY);
    EXPECT_THAT(linesOf(makeClassData()),
                ElementsAre("FAULT option: jvm_option_a already decides about class data: -Xshare:off -> delete the value "
                            "jvm_option_a of Prefs\\com\\orvane\\qmrt if it is not needed",
                            "FAULT option: jvm_option_b already decides about class data: -XX:SharedArchiveFile=C:\\x.jsa -> "
                            "delete the value jvm_option_b of Prefs\\com\\orvane\\qmrt if it is not needed"));
}

TEST_F(WarmTest, FolderThatEveryUserCanWriteToOrWithATooLongNameIsRefused)
{
    prepare(folder.path("KESTAx64.exe"), "21");
    EXPECT_FALSE(isWritableForAll(folder.path()));
    letEveryoneWrite(folder.path());
    EXPECT_TRUE(isWritableForAll(folder.path()));
    EXPECT_THAT(linesOf(makeClassData()),
                ElementsAre("FAULT folder: every user could replace the archive in " + folder.path() +
                            " -> install the program where only administrators can write, for instance below Program Files"));
    record();
    EXPECT_THAT(checked(library, control),
                ElementsAre("ok archive: " + archive, "FAULT folder: every user can replace the archive in " + folder.path() +
                                                          " -> KESTAtool warm --remove, and install the program where only "
                                                          "administrators can write"));
    const std::string longFolder = "C:\\" + std::string(218, 'x'); // with the option's name and the file's, 255 characters
    machine.setString(SERVER_KEY, "", longFolder + "\\KESTAx64.exe");
    EXPECT_THAT(linesOf(makeClassData()), ElementsAre("FAULT folder: its name is too long for an option: " + longFolder +
                                                      " -> install the program in a folder with a shorter name"));
    EXPECT_FALSE(std::filesystem::exists(folder.path("KESTAx64.jsa.classes")));
}

TEST_F(WarmTest, CheckKnowsWhetherTheArchiveFits)
{
    record();
    EXPECT_THAT(checked(library, control), ElementsAre("ok archive: " + archive));
    const std::string ignored = ", and Java ignores " + archive + ANEW;
    EXPECT_THAT(checked(folder.path("other.dll"), control),
                ElementsAre("FAULT archive: was made for another runtime: " + library + ignored));
    EXPECT_THAT(checked(library, "C:\\x.jar;" + control),
                ElementsAre("FAULT archive: was made for another class path: " + control + ignored));
    for (const std::string& file : {archive, library, control}) {
        record();
        const std::string content = fixtures::readFile(file);
        fixtures::makeFile(file, content + " of an update");
        EXPECT_THAT(checked(library, control),
                    ElementsAre("FAULT archive: does not fit any more: since it was made there is another " + file + ignored));
        fixtures::makeFile(file, content);
    }
    fixtures::makeFile(classDataRecordFile(archive), "{}");
    EXPECT_THAT(checked(library, control),
                ElementsAre("note archive: was not made by this program, or its record is missing: " + archive));
    std::filesystem::remove(archive);
    EXPECT_THAT(checked(library, control),
                ElementsAre("FAULT archive: is not there, so that Java starts without any class data: " + archive + ANEW));
    EXPECT_THAT(linesOf(checkClassData({{"a", "-Xmx9m"}}, library, control)),
                ElementsAre("ok archive: no option names one; KESTAtool warm would make one, for a faster start"));
}

TEST_F(WarmTest, FolderMayHaveAnUmlaut)
{
    const std::string umlaut = folder.path(UMLAUT);
    std::filesystem::create_directory(toPath(umlaut));
    archive = umlaut + "\\KESTAx64.jsa";
    fixtures::makeFile(archive, "data");
    record();
    EXPECT_THAT(checked(library, control), ElementsAre("ok archive: " + archive));
    machine.setString(SERVER_KEY, "", umlaut + "\\KESTAx64.exe");
    EXPECT_THAT(linesOf(removeClassData()),
                ElementsAre("ok archive: is removed, and the options are as they were before: " + archive));
}

TEST_F(WarmTest, RemovingTakesOptionAndFilesButNothingElse)
{
    machine.setString(SERVER_KEY, "", folder.path("KESTAx64.exe"));
    machine.setString(PREFERENCES, "jvm_option_a", "-Xmx9m", KEY_WOW64_32KEY);
    const Lines before = machineKeys();
    EXPECT_THAT(linesOf(removeClassData()),
                ElementsAre("ok archive: is removed, and the options are as they were before: " + archive))
        << "a part that was left behind";
    EXPECT_THAT(linesOf(removeClassData()), ElementsAre("ok archive: there is none"));
    // Also an archive that lies where the server was before.
    const std::string moved = folder.path("moved.jsa");
    machine.setString(PREFERENCES, CLASS_DATA_OPTION, "-XX:SharedArchiveFile=" + moved, KEY_WOW64_32KEY);
    fixtures::makeFile(moved, "");
    SetFileAttributesA(moved.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_THAT(linesOf(removeClassData()),
                ElementsAre("ok archive: is removed, and the options are as they were before: " + moved));
    EXPECT_FALSE(std::filesystem::exists(moved));
    EXPECT_EQ(machineKeys(), before);
}

TEST_F(WarmTest, ArchiveInUseIsNamedAndRemovedLater)
{
    machine.setString(SERVER_KEY, "", folder.path("KESTAx64.exe"));
    machine.setString(PREFERENCES, CLASS_DATA_OPTION, "-XX:SharedArchiveFile=" + archive, KEY_WOW64_32KEY);
    const HANDLE use = CreateFileA(archive.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    const Lines lines = linesOf(removeClassData());
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0],
                testing::AllOf(testing::StartsWith("FAULT archive: could not be removed whole: " + archive + ": "),
                               testing::EndsWith(" -> end the programs that show a control, since they use the archive, "
                                                 "and repeat the command")));
    CloseHandle(use);
    EXPECT_THAT(linesOf(removeClassData()),
                ElementsAre("ok archive: is removed, and the options are as they were before: " + archive));
    EXPECT_FALSE(std::filesystem::exists(archive));
}

} // namespace
