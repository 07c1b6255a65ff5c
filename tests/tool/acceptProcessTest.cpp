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
#include <set>
#include <sstream>

namespace fixtures {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr DWORD RUN_LIMIT = 1500000; // ms

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
        CProgram tool("\"" + m_buildFolder + "\\KESTAtool.exe\" accept --json --page \"" + page + "\" " + arguments);
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

    std::set<std::string> notHere;
    for (const auto& [id, state] : states) {
        EXPECT_TRUE(state == "confirmed" || state == "not applicable here") << id << ": " << state << ": " << details[id];
        if (state == "not applicable here") {
            notHere.insert(id);
            EXPECT_NE(details[id], "") << id;
        }
    }
    EXPECT_EQ(notHere, (std::set<std::string>{"watchers",        "elevation",     "script32",      "earlyError",
                                              "busyClient",      "fullQueue",     "cover",         "dpi",
                                              "focusLost",       "sentMessage",   "focusMessage",  "currentFolder",
                                              "deadClientEarly", "remoteDesktop", "secondMonitor", "inputMethod",
                                              "modalDialog",     "earlyBound32",  "javaUpdate",    "registerInScript"}));
    EXPECT_THAT(details["sentMessage"], HasSubstr("this is Wine: its COM does not check that"));
    ASSERT_EQ(result["figures"].size(), 4u);
    for (const json& figure : result["figures"]) {
        EXPECT_GT(figure["median"].get<double>(), 0.0) << figure;
    }
    EXPECT_THAT(result["surroundings"]["windows"].get<std::string>(), HasSubstr("Wine "));
    EXPECT_EQ(result["surroundings"]["java"], "21.0.8");
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
    const char* scenarios;
    std::function<void(const CSettings& settings, const std::string& buildFolder)> plant;
    const char* told = ""; // in every one of the rows
};

void PrintTo(const Plant& plant, std::ostream* out)
{
    *out << plant.scenarios;
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

const Plant PLANTS[] = {
    {"WrongAnswers", "earlyBound,lateBound,texts,type", faultyControl("answers"), "wrong"},
    {"NoEvents", "events,click,figures,parents,parentNotify", faultyControl("noEvents")},
    {"NoException", "lateError", faultyControl("noException")},
    {"BlankView", "takeIn", faultyControl("blank"), "not painted"},
    {"ViewThatIsBlackWhenItIsLarger", "resize", faultyControl("narrow"), "1 of 3"},
    {"ViewThatFades", "minimise", faultyControl("fades"), "not painted whole"},
    {"DeafView", "click,type,focusWay,keys", faultyControl("deaf")},
    {"SlowCalls", "figures", faultyControl("slow"), "call 6"},
    {"SharedTitles", "twoServers", faultyControl("shared"), "second"},
    {"ServerThatStays", "cleanEnd,cycles,destroyedPane,deadClient",
     [](const CSettings& settings, const std::string& buildFolder) {
         faultyControl("stays")(settings, buildFolder);
         settings.removeControl("TestControl"); // the only control is there from the start
     }},
    {"ServerThatDies", "texts,figures,twoServers", faultyControl("crash"), "Property(title) failed: 0x800706B"},
    {"LostEvent", "fourThreads",
     [](const CSettings& settings, const std::string&) { settings.setControl("TestControl", programFolder() + "\\faulty"); },
     "1000 raised, 999 came"},
    {"MissingRuntime", "javaOffered,create,script,taskBar,deadServer",
     [](const CSettings& settings, const std::string&) { settings.setRuntime("21.0.8", "C:\\none\\jvm.dll"); }},
    {"MissingControl", "controls", [](const CSettings& settings, const std::string&) { settings.removeControl("TestControl"); },
     "TestControl"},
    {"NotRegistered", "registration,create,sentMessage,dpi,currentFolder,busyClient",
     [](const CSettings&, const std::string& buildFolder) {
         const CProgram server("\"" + buildFolder + "\\KESTAx64.exe\" /UnregServer");
         EXPECT_EQ(server.process().exitCode(), 0u);
     }},
    {"InterfaceMissing", "registration",
     [](const CSettings&, const std::string&) {
         removeKey("SOFTWARE\\Classes\\Interface\\{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}");
     }},
    {"ProgramWithoutLibrary", "typeLibrary",
     [](const CSettings&, const std::string& buildFolder) {
         const std::string other = buildFolder + "\\KESTAtool.exe";
         EXPECT_EQ(RegSetValueA(HKEY_LOCAL_MACHINE,
                                "SOFTWARE\\Classes\\CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\LocalServer32", REG_SZ,
                                other.c_str(), 0),
                   ERROR_SUCCESS);
     },
     "does not load"},
    {"DebugViewer", "debugViewer",
     [](const CSettings&, const std::string&) {
         static const ATL::CHandle s_event(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY"));
         EXPECT_TRUE(s_event != nullptr);
     },
     "one is running"},
    {"Direct3D", "graphics",
     [](const CSettings& settings, const std::string&) {
         SetEnvironmentVariableA("JAVA_TOOL_OPTIONS", "-Dkesta.nothing=");
         settings.setPreference("jvm_option_d3d", "-Dsun.java2d.d3d=true");
     },
     "loaded: d3d9.dll"},
    {"CallThatHangs", "texts", faultyControl("hangs"), "had not come back after 90 s, while "},
};

class PlantedFaultTest : public AcceptProcessTest, public testing::WithParamInterface<Plant>
{
};

TEST_P(PlantedFaultTest, TurnsItsRowsRed)
{
    GetParam().plant(settings, m_buildFolder);
    const std::string scenarios = GetParam().scenarios;
    const auto count = static_cast<DWORD>(std::ranges::count(scenarios, ',')) + 1;
    EXPECT_EQ(accept("--only " + scenarios), count);
    EXPECT_EQ(states.size(), count);
    for (const auto& [id, state] : states) {
        EXPECT_TRUE(state == "refuted" || state == "failed") << id << ": " << state << ": " << details[id];
        EXPECT_THAT(details[id], HasSubstr(GetParam().told)) << id;
        std::printf("%s: %s: %s\n", id.c_str(), state.c_str(), details[id].c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(Accept, PlantedFaultTest, testing::ValuesIn(PLANTS),
                         [](const auto& plant) { return std::string(plant.param.name); });

} // namespace
} // namespace fixtures
