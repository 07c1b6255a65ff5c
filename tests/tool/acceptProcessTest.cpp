// The whole acceptance run against the real server, and faults planted in server, control and machine, each of which has to turn
// the rows red that it concerns.
#include "tests/process/Program.h"
#include "tests/process/Settings.h"
#include "tests/support/places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tlhelp32.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <ranges>
#include <set>
#include <sstream>

namespace fixtures {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr DWORD RUN_LIMIT = 1500000; // ms

constexpr const char* CLASS_KEY = "SOFTWARE\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}";

// A row, and what it has to say.
struct PlantedRow
{
    const char* id;
    const char* state;
    const char* told;
};

class AcceptProcessTest : public testing::Test
{
protected:
    AcceptProcessTest()
        : m_buildFolder(std::filesystem::path(programFolder()).parent_path().parent_path().string())
    {
        runServer("/RegServer");
        settings.setRuntime("21.0.8", runtimeLibrary(21));
        settings.setPreference("logpath", folder.path());
        settings.setControl("Stations", m_buildFolder);
        settings.setControl("TestControl", m_buildFolder);
    }
    ~AcceptProcessTest() override
    {
        EXPECT_TRUE(processesNamed("KESTAx64.exe").empty()) << "a server is left";
        runServer("/RegServer"); // a planted fault may have taken part of it away
        runServer("/UnregServer");
        if (HasFailure()) {
            std::printf("%s\n", output.c_str());
        }
    }
    void runServer(const std::string& word) const
    {
        const CProgram server("\"" + m_buildFolder + "\\KESTAx64.exe\" " + word);
        EXPECT_EQ(server.process().exitCode(), 0u);
    }
    // The exit code. The result is in `states` and `details`, by the scenarios' names.
    DWORD accept(const std::string& arguments)
    {
        CProgram tool("\"" + m_tool + "\" accept --json --page \"" + page + "\" " + arguments);
        const std::optional<DWORD> exitCode = tool.process().exitCode(RUN_LIMIT);
        EXPECT_TRUE(exitCode) << "the run does not end";
        tool.waitForOutput("(to its end)");
        output = tool.output();
        result = json::parse(output.substr(std::min(output.find("{\r\n"), output.find("{\n"))), nullptr, false);
        for (const json& scenario : result["scenarios"]) {
            states[scenario["id"]] = scenario["state"];
            details[scenario["id"]] = scenario["detail"];
        }
        return exitCode.value_or(ERROR_TIMEOUT);
    }
    // Runs the scenarios of the rows, each of which has to turn red.
    void expectRed(const std::vector<PlantedRow>& rows, const std::string& more = "")
    {
        std::string scenarios;
        for (const PlantedRow& row : rows) {
            scenarios += (scenarios.empty() ? "" : ",") + std::string(row.id);
        }
        states.clear();
        EXPECT_EQ(accept("--only " + scenarios + more), rows.size());
        EXPECT_EQ(states.size(), rows.size());
        for (const PlantedRow& row : rows) {
            EXPECT_EQ(states[row.id], row.state) << row.id;
            EXPECT_THAT(details[row.id], HasSubstr(row.told)) << row.id;
            std::printf("%s: %s: %s\n", row.id, states[row.id].c_str(), details[row.id].c_str());
        }
        // The table on the console says the same as the page.
        for (const json& scenario : result["scenarios"]) {
            const auto row =
                std::ranges::find_if(result["rows"], [&](const json& each) { return each["subject"] == scenario["what"]; });
            ASSERT_NE(row, result["rows"].end()) << scenario["what"];
            EXPECT_EQ((*row)["remedy"], scenario["remedy"]);
            EXPECT_NE(scenario["remedy"], "");
        }
    }
    // Every line below the key, with its key. Never compared whole: GoogleTest would look for the smallest difference of two
    // texts of many megabytes.
    std::set<std::string> exported(const std::string& key) const
    {
        const std::string file = folder.path("export.reg");
        const CProgram program("reg.exe export " + key + " \"" + file + "\" /y");
        EXPECT_EQ(program.process().exitCode(), 0u);
        std::string text = readFile(file);
        std::erase_if(text, [](char letter) { return letter == '\0' || letter == '\r'; });
        std::istringstream lines(text);
        std::set<std::string> found;
        std::string section;
        for (std::string line; std::getline(lines, line);) {
            section = line.starts_with('[') ? line : section;
            found.insert(section + " " + line);
        }
        return found;
    }
    static std::vector<std::string> differences(const std::set<std::string>& before, const std::set<std::string>& after)
    {
        std::vector<std::string> found;
        std::ranges::set_symmetric_difference(before, after, std::back_inserter(found));
        found.resize(std::min<size_t>(found.size(), 20));
        return found;
    }
    static std::multiset<std::string> processes()
    {
        std::multiset<std::string> names;
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
        PROCESSENTRY32 entry = {};
        entry.dwSize = sizeof entry;
        for (BOOL more = Process32First(snapshot, &entry); more != FALSE; more = Process32Next(snapshot, &entry)) {
            names.insert(entry.szExeFile);
        }
        CloseHandle(snapshot);
        return names;
    }

    CSettings settings;
    TemporaryFolder folder{TemporaryFolder::Removal::MayFail};
    std::string page = folder.path("result.html");
    std::string output;
    json result;
    std::map<std::string, std::string> states;
    std::map<std::string, std::string> details;
    std::string m_buildFolder;
    std::string m_tool = m_buildFolder + "\\KESTAtool.exe";
};

TEST_F(AcceptProcessTest, WholeRunIsConfirmedOrSaysWhyNotAndLeavesNothing)
{
    // The first use of COM starts services of Wine's, and that of the script host registers its own library.
    EXPECT_EQ(accept("--only create,script"), 0u);
    states.clear();
    const auto machineBefore = exported("HKLM\\Software");
    const auto userBefore = exported("HKCU\\Software");
    EXPECT_GT(machineBefore.size(), 1000u);
    const auto processesBefore = processes();
    EXPECT_EQ(accept(""), 0u);
    EXPECT_THAT(differences(machineBefore, exported("HKLM\\Software")), testing::IsEmpty());
    EXPECT_THAT(differences(userBefore, exported("HKCU\\Software")), testing::IsEmpty());
    EXPECT_EQ(processes(), processesBefore);

    // Where Wine differs from the prediction, the scenario has still to come to its point.
    const std::map<std::string, std::string> notHere = {
        {"script32", "there is no "},
        {"earlyError", "(seen: 0x80004005, without a text)"},
        {"busyClient", "(seen: 3 of 3 events came, "},
        {"fullQueue", "(seen: the other thread's call gives 0x00000000)"},
        {"cover", "% of the pixels as before"},
        {"dpi", "(seen: server's awareness 0 before and 0 after, client's 2; scale 100 %)"},
        {"focusLost", "(seen: Java's caret stops: Java heard of it)"},
        {"sentMessage",
         "this is Wine: its COM does not check that (seen: inside the sent message 0x00000000, afterwards 0x00000000)"},
        {"focusMessage", "(seen: inside the sent message 0x00000000, afterwards 0x00000000)"},
        {"currentFolder", "(seen: C:\\"},
        {"variables", "(seen: a variable of the client reaches the server)"},
        {"elevation", "the server is not registered for this user only"},
        {"watchers", "this user cannot read the event logs"},
        {"deadClientEarly", "it takes minutes: KESTAtool accept --long"},
        {"remoteDesktop", "only a person can show it: "},
        {"secondMonitor", "only a person can show it: "},
        {"busyWindow", "only a person can show it: "},
        {"openPopup", "only a person can show it: "},
        {"javaDialog", "only a person can show it: "},
        {"firstStart", "only a person can show it: "},
        {"systemBox", "only a person can show it: "},
        {"codePage", "only a person can show it: "},
        {"inputMethod", "only a person can show it: "},
        {"modalDialog", "only a person can show it: "},
        {"earlyBound32", "only a person can show it: "},
        {"javaUpdate", "only a person can show it: "},
        {"registerInScript", "only a person can show it: "},
    };
    for (const auto& [id, state] : states) {
        const auto expected = notHere.find(id);
        EXPECT_EQ(state, expected == notHere.end() ? "confirmed" : "not applicable here") << id << ": " << details[id];
        EXPECT_THAT(details[id], HasSubstr(expected == notHere.end() ? "" : expected->second)) << id;
        std::printf("%s: %s: %s\n", id.c_str(), state.c_str(), details[id].c_str());
    }
    EXPECT_EQ(std::ranges::count(states | std::views::values, "not applicable here"), std::ssize(notHere));
    ASSERT_EQ(result["figures"].size(), 4u);
    for (const json& figure : result["figures"]) {
        EXPECT_GT(figure["median"].get<double>(), 0.0) << figure;
    }
    EXPECT_THAT(result["surroundings"]["windows"].get<std::string>(), HasSubstr("Wine "));
    EXPECT_EQ(result["surroundings"]["java"], "21.0.8");
    EXPECT_TRUE(CopyFileA(page.c_str(), (programFolder() + "\\result.html").c_str(), FALSE)); // for those who want to look
    const std::string text = readFile(page);
    EXPECT_THAT(text, testing::AllOf(HasSubstr("\"png\":\"iVBOR"), HasSubstr("\"what\":\"events of four threads\"")));
}

TEST_F(AcceptProcessTest, TextsBeyondAsciiAreTheSameInTableAndPage)
{
    settings.setRuntime("21.0.8_\xFC", "C:\\none\\jvm.dll"); // u with two dots, in Windows' code page
    EXPECT_EQ(accept("--only javaOffered"), 1u);
    EXPECT_THAT(details["javaOffered"], HasSubstr("21.0.8_\xC3\xBC (it is not there)"));
    EXPECT_THAT(result["rows"][0]["state"].get<std::string>(), HasSubstr("21.0.8_\xC3\xBC (it is not there)"));
    EXPECT_THAT(readFile(page), HasSubstr("21.0.8_\xC3\xBC (it is not there)"));
}

// A fault, and the rows that it turns red.
struct Plant
{
    const char* name;
    std::vector<PlantedRow> rows;
    std::function<void(const CSettings& settings, const std::string& buildFolder)> plant;
};

void PrintTo(const Plant& plant, std::ostream* out)
{
    *out << plant.name;
}

// The sample control with a fault of its own.
std::function<void(const CSettings&, const std::string&)> faultyControl(const char* fault)
{
    return [fault](const CSettings& settings, const std::string&) {
        settings.setControl("Stations", programFolder() + "\\faulty");
        settings.setPreference("jvm_option_fault", std::string("-Dkesta.fault=") + fault);
    };
}

void removeKey(const char* path)
{
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, path), ERROR_SUCCESS) << path;
}

std::string systemFolder(UINT(WINAPI* get)(LPSTR, UINT))
{
    char folder[MAX_PATH] = "";
    get(folder, sizeof folder);
    return folder;
}

// A program takes the library beside it instead of Wine's own.
class CLibraryOfTheTests
{
public:
    CLibraryOfTheTests(const std::string& program, const char* library)
        : m_key("Software\\Wine\\AppDefaults\\" + program)
    {
        EXPECT_EQ(
            RegSetKeyValueA(HKEY_CURRENT_USER, (m_key + "\\DllOverrides").c_str(), library, REG_SZ, "native", sizeof "native"),
            ERROR_SUCCESS);
    }
    ~CLibraryOfTheTests() { RegDeleteTreeA(HKEY_CURRENT_USER, m_key.c_str()); }
    CLibraryOfTheTests(const CLibraryOfTheTests&) = delete;
    CLibraryOfTheTests& operator=(const CLibraryOfTheTests&) = delete;

private:
    std::string m_key;
};

// A session whose windows nobody sees, for what this process starts from now on.
void goOutOfSight()
{
    const HWINSTA station = CreateWindowStationA("KestaUnseen", 0, WINSTA_ALL_ACCESS, nullptr);
    EXPECT_NE(station, nullptr);
    EXPECT_TRUE(SetProcessWindowStation(station));
}

// An elevated console, for what this process starts from now on.
void elevate()
{
    struct
    {
        HANDLE token = nullptr;
        HANDLE thread = nullptr;
    } given;
    constexpr ULONG ACCESS_TOKEN = 9;
    using Set = LONG(NTAPI*)(HANDLE, ULONG, void*, ULONG);
    const auto set =
        reinterpret_cast<Set>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll"), "NtSetInformationProcess")));
    HANDLE own = nullptr;
    TOKEN_LINKED_TOKEN linked = {};
    DWORD size = 0;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &own));
    EXPECT_TRUE(GetTokenInformation(own, TokenLinkedToken, &linked, sizeof linked, &size));
    EXPECT_TRUE(
        DuplicateTokenEx(linked.LinkedToken, MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary, &given.token));
    EXPECT_EQ(set(GetCurrentProcess(), ACCESS_TOKEN, &given, sizeof given), 0);
    for (const HANDLE token : {own, linked.LinkedToken, given.token}) {
        CloseHandle(token);
    }
}

const Plant PLANTS[] = {
    {"WrongAnswers",
     {{"earlyBound", "refuted", "setProperty: wrong"},
      {"lateBound", "refuted", "setProperty: wrong"},
      {"texts", "refuted", "wrong"},
      {"type", "refuted", "the control has \"wrong\""}},
     faultyControl("answers")},
    {"NoEvents",
     {{"events", "refuted", "customEvent of the sum 0 times"},
      {"click", "refuted", "no event of the button"},
      {"figures", "failed", "an event does not come"},
      {"parents", "refuted", "0 of 2"},
      {"parentNotify", "failed", "does not report the click"},
      {"busyClient", "failed", "no event came even before"}},
     faultyControl("noEvents")},
    {"NoException",
     {{"earlyError", "failed", "did not fail"}, {"lateError", "failed", "did not fail"}},
     faultyControl("noException")},
    {"ControlThatDoesNotStart",
     {{"texts", "failed", "setUsedControl(Stations) failed: 0x80004005"},
      {"earlyBound", "refuted", "setUsedControl: 0x80004005"}},
     faultyControl("broken")},
    {"BlankView", {{"takeIn", "refuted", "not painted"}}, faultyControl("blank")},
    {"ViewThatIsBlackWhenItIsLarger", {{"resize", "refuted", "1 of 3"}}, faultyControl("narrow")},
    {"ViewThatFades", {{"minimise", "refuted", "not painted whole"}}, faultyControl("fades")},
    {"DeafView",
     {{"click", "refuted", "no event of the button"},
      {"type", "refuted", "the control has \"\""},
      {"focusWay", "refuted", "Java has \"\""},
      {"focusLost", "failed", "the focus did not go into the frame and out again"},
      {"keys", "failed", "the focus did not come into the frame"}},
     faultyControl("deaf")},
    {"BasisControlWithFaults",
     {{"delay", "refuted", "wanted after 500 ms, came after "},
      {"taskBar", "refuted", "the frame takes activation"},
      {"clickBeforeUse", "refuted", "the client's window comes to the front"}},
     [](const CSettings& settings, const std::string&) { settings.setControl("Basis", programFolder() + "\\faulty"); }},
    {"SlowCalls", {{"figures", "refuted", "call 6"}}, faultyControl("slow")},
    {"SharedTitles", {{"twoServers", "refuted", "titles [\"second\",\"second\"]"}}, faultyControl("shared")},
    {"ServerThatStays",
     {{"cleanEnd", "refuted", "gone after 1"},
      {"cycles", "refuted", "of 5 ended with exit code 0, the slowest after 1"},
      {"destroyedPane", "refuted", "still there after 20 s"},
      {"deadClient", "refuted", "still there after 20 s"}},
     [](const CSettings& settings, const std::string& buildFolder) {
         faultyControl("stays")(settings, buildFolder);
         settings.removeControl("TestControl"); // the only control is there from the start
     }},
    {"ServerThatDies",
     {{"texts", "failed", "Property(title) failed: 0x800706B"},
      {"figures", "failed", "Property(title) failed: 0x800706B"},
      {"twoServers", "failed", "Property(title) failed: 0x800706B"}},
     faultyControl("crash")},
    {"LostEvent",
     {{"fourThreads", "refuted", "1000 raised, 999 came"}},
     [](const CSettings& settings, const std::string&) { settings.setControl("TestControl", programFolder() + "\\faulty"); }},
    {"NoBurst",
     {{"fullQueue", "failed", "no call could be made while a sink was stuck"}},
     [](const CSettings& settings, const std::string&) {
         settings.setControl("TestControl", programFolder() + "\\faulty");
         settings.setPreference("jvm_option_fault", "-Dkesta.fault=silent");
     }},
    {"MissingRuntime",
     {{"javaOffered", "refuted", "it is not there"},
      {"create", "failed", "the server has no frame: "},
      {"script", "refuted", "frame -1"},
      {"taskBar", "failed", "the server has no frame: "},
      {"deadServer", "failed", "the server has no frame: "}},
     [](const CSettings& settings, const std::string&) { settings.setRuntime("21.0.8", "C:\\none\\jvm.dll"); }},
    {"MissingControl",
     {{"controls", "refuted", "not in the folder named: TestControl"}},
     [](const CSettings& settings, const std::string&) { settings.removeControl("TestControl"); }},
    {"NotRegistered",
     {{"registration", "refuted", "is registered neither for this user nor for the machine"},
      {"create", "failed", "creating the object failed: 0x80040154"},
      {"sentMessage", "failed", "creating the object failed: 0x80040154"},
      {"focusMessage", "failed", "creating the object failed: 0x80040154"},
      {"dpi", "failed", "creating the object failed: 0x80040154"},
      {"cover", "failed", "creating the object failed: 0x80040154"},
      {"currentFolder", "failed", "creating the object failed: 0x80040154"},
      {"variables", "failed", "creating the object failed: 0x80040154"}},
     [](const CSettings&, const std::string& buildFolder) {
         const CProgram server("\"" + buildFolder + "\\KESTAx64.exe\" /UnregServer");
         EXPECT_EQ(server.process().exitCode(), 0u);
     }},
    {"InterfaceMissing",
     {{"registration", "refuted", "is not complete"}},
     [](const CSettings&, const std::string&) {
         removeKey("SOFTWARE\\Classes\\Interface\\{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}");
     }},
    {"ProgramWithoutLibrary",
     {{"typeLibrary", "refuted", "does not load"}},
     [](const CSettings&, const std::string& buildFolder) {
         const std::string other = buildFolder + "\\KESTAtool.exe";
         EXPECT_EQ(
             RegSetValueA(HKEY_LOCAL_MACHINE, (std::string(CLASS_KEY) + "\\LocalServer32").c_str(), REG_SZ, other.c_str(), 0),
             ERROR_SUCCESS);
     }},
    {"UnseenSession",
     {{"session", "refuted", "without a desktop that is seen"}},
     [](const CSettings&, const std::string&) { goOutOfSight(); }},
    {"DebugViewer",
     {{"debugViewer", "refuted", "one is running"}},
     [](const CSettings&, const std::string&) {
         static const ATL::CHandle s_event(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY"));
         EXPECT_TRUE(s_event != nullptr);
     }},
    {"Direct3D",
     {{"graphics", "refuted", "loaded: d3d9.dll"}},
     [](const CSettings& settings, const std::string&) {
         SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", "-Dkesta.nothing=");
         settings.setPreference("jvm_option_d3d", "-Dsun.java2d.d3d=true");
     }},
    {"CallThatHangs", {{"texts", "failed", "had not come back after 90 s, while "}}, faultyControl("hangs")},
};

class PlantedFaultTest : public AcceptProcessTest, public testing::WithParamInterface<Plant>
{
};

TEST_P(PlantedFaultTest, TurnsItsRowsRed)
{
    GetParam().plant(settings, m_buildFolder);
    expectRed(GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(Accept, PlantedFaultTest, testing::ValuesIn(PLANTS),
                         [](const auto& plant) { return std::string(plant.param.name); });

// Only in a log of its own can Windows tell of a program of ours, and Wine keeps none: a library of the tests answers instead.
// Of its three events one is older than the run, and one is about another program.
TEST_F(AcceptProcessTest, EventAboutAProgramOfOursTurnsWatchersRed)
{
    m_tool = folder.path("KESTAtool.exe");
    const std::string library = folder.path("wevtapi.dll");
    ASSERT_TRUE(CopyFileA((m_buildFolder + "\\KESTAtool.exe").c_str(), m_tool.c_str(), TRUE));
    ASSERT_TRUE(CopyFileA((programFolder() + "\\wevtapi\\wevtapi.dll").c_str(), library.c_str(), TRUE));
    const CLibraryOfTheTests preferred("KESTAtool.exe", "wevtapi");
    const auto event = [](const char* time, const char* program) {
        return std::string("Application\t<Event><System><Provider Name='Application Error'/><EventID>1000</EventID><TimeCreated "
                           "SystemTime='") +
               time + "'/></System><EventData><Data>" + program + "</Data></EventData></Event>\n";
    };
    makeFile(library + ".events", event("2020-01-01T00:00:00.000Z", "KESTAold.exe"));
    EXPECT_EQ(accept("--only watchers"), 0u);
    EXPECT_THAT(details["watchers"], HasSubstr("1 of 3 event logs read, nothing about KESTA"));
    makeFile(library + ".events", event("2020-01-01T00:00:00.000Z", "KESTAold.exe") +
                                      event("2199-01-01T00:00:00.000Z", "KESTAx64.exe") +
                                      event("2199-01-02T00:00:00.000Z", "other.exe"));
    expectRed({{"watchers", "refuted", "1 event about KESTA since 20"}});
    EXPECT_THAT(details["watchers"], testing::EndsWith("for instance Application Error 1000: KESTAx64.exe"));
}

// There is no 32-bit script host here; that of 64 bits stands in for it.
TEST_F(AcceptProcessTest, ScriptThatGetsNoFrameTurnsScript32Red)
{
    const std::string host = systemFolder(GetSystemWow64DirectoryA) + "\\cscript.exe";
    CreateDirectoryA(systemFolder(GetSystemWow64DirectoryA).c_str(), nullptr);
    ASSERT_TRUE(CopyFileA((systemFolder(GetSystemDirectoryA) + "\\cscript.exe").c_str(), host.c_str(), TRUE));
    EXPECT_EQ(accept("--only script32"), 0u);
    EXPECT_EQ(states["script32"], "confirmed") << details["script32"];
    settings.setRuntime("21.0.8", "C:\\none\\jvm.dll");
    expectRed({{"script32", "refuted", "frame -1"}});
    DeleteFileA(host.c_str());
}

// A server that was started by hand offers its class to everybody.
TEST_F(AcceptProcessTest, ServerOfTheUserOnlyThatIsFoundTurnsElevationRed)
{
    runServer("/UnregServer");
    const std::string program = m_buildFolder + "\\KESTAx64.exe";
    EXPECT_EQ(RegSetValueA(HKEY_CURRENT_USER, (std::string(CLASS_KEY) + "\\LocalServer32").c_str(), REG_SZ, program.c_str(), 0),
              ERROR_SUCCESS);
    EXPECT_EQ(accept("--only elevation"), 0u);
    EXPECT_EQ(details["elevation"], "this console is not elevated");
    elevate();
    EXPECT_EQ(accept("--only elevation"), 0u);
    EXPECT_EQ(states["elevation"], "not applicable here");
    EXPECT_THAT(details["elevation"], HasSubstr("it looks for classes of the machine only"));
    const CProgram server("\"" + program + "\"");
    EXPECT_EQ(WaitForInputIdle(server.process().handle(), TIME_LIMIT), 0u);
    expectRed({{"elevation", "refuted", "creating the object gives 0x00000000"}});
    EXPECT_EQ(server.process().exitCode(), 0u);
    EXPECT_EQ(RegDeleteTreeA(HKEY_CURRENT_USER, CLASS_KEY), ERROR_SUCCESS);
}

// Wine leaves every server whose client has died early; this one ends by itself, and badly.
TEST_F(AcceptProcessTest, ServerThatEndsBadlyTurnsDeadClientEarlyRed)
{
    faultyControl("dies")(settings, m_buildFolder);
    settings.removeControl("TestControl"); // the only control is there from the start
    expectRed({{"deadClientEarly", "refuted", " s with exit code 5"}}, " --long");
}

} // namespace
} // namespace fixtures
