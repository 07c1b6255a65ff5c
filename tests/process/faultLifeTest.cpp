// Faults at the start and the end of a server process.
#include "tests/process/FaultFixture.h"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <map>
#include <random>
#include <string_view>

namespace fixtures {
namespace {

using testing::Contains;

constexpr const char* ABOUT_TO_START = "CJavaManagerJNIClient  About to call JNI_CreateJavaVM";

class InstalledFaultTest : public FaultTest
{
protected:
    // A folder with the executable and the control's jar, as on a user's machine, from which the server is registered.
    std::string install()
    {
        for (const char* const name : {"KESTAx64.exe", "ORVANEControl.jar"}) {
            std::filesystem::copy_file(buildFolder() + "\\" + name, folder.file(name));
        }
        EXPECT_EQ(runServer(folder.path(), "/RegServer"), 0u);
        return folder.path();
    }
    void TearDown() override
    {
        EXPECT_EQ(runServer("/RegServer"), 0u); // the folder goes
        FaultTest::TearDown();
    }
};

// With a policy file beside the executable the server asks for a security manager, which Java 24 and newer refuse.
class PolicyFaultTest : public InstalledFaultTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Pinned, PolicyFaultTest, testing::Values(11, 17, 21, 25), testing::PrintToStringParamName());

TEST_P(PolicyFaultTest, StartsAMachineThatKnowsSecurityManagersAndNoOther)
{
    install();
    writeFile(folder.file("KESTAx64.policy"), "grant { permission java.security.AllPermission; };\n");
    useRuntime(GetParam());
    SManager manager;
    if (GetParam() < 24) {
        EXPECT_EQ(create(manager), S_OK);
        Client client(manager);
        EXPECT_THAT(messages(manager.server->id()),
                    Contains("CJavaManagerJNIClient  Enabled Java Security Manager with " + folder.file("KESTAx64.policy")));
        EXPECT_EQ(client.call("echo", "there"), "there");
        client.connection.reset();
        release(manager);
        return;
    }
    EXPECT_LE(duration([&] { EXPECT_TRUE(FAILED(create(manager))); }), 10000u);
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 1);
    EXPECT_EQ(messages(server->id()).back(), ABOUT_TO_START);
}

class ExitingCallFaultTest : public FaultTest, public testing::WithParamInterface<const char*>
{
};

INSTANTIATE_TEST_SUITE_P(Exits, ExitingCallFaultTest, testing::Values("exit", "exitInEvents"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(ExitingCallFaultTest, EndsTheServerWithItsCodeAndFailsTheCalls)
{
    CProgram client(clientCommand(GetParam()));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(client.waitForOutput("calling"));
    EXPECT_LE(duration([&] { expectEnd(*server, 3); }), 5000u);
    expectRpcErrors(client);
}

class ExitFaultTest : public FaultTest
{
};

// Its end is not asked for.
TEST_F(ExitFaultTest, ControlThatExitsIsNotClosedAndItsShutdownHooksAreWaitedFor)
{
    CProgram client(clientCommand("exit-after-hook"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    ASSERT_TRUE(client.waitForOutput("calling"));
    const ULONGLONG taken = duration([&] { expectEnd(*server, 3); });
    EXPECT_LE(1900u, taken);
    EXPECT_LE(taken, 7000u);
    expectRpcErrors(client);
}

class ExitingStartFaultTest : public FaultTest, public testing::WithParamInterface<const char*>
{
};

INSTANTIATE_TEST_SUITE_P(Exits, ExitingStartFaultTest, testing::Values("constructor", "open"),
                         [](const auto& info) { return std::string(info.param); });

ULONGLONG milliseconds(const FILETIME& time)
{
    return ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart / 10000;
}

// The control makes a file before it exits.
TEST_P(ExitingStartFaultTest, EndsTheServerWithItsCodeAndFailsTheCreation)
{
    const std::string file = folder.file("exits");
    settings.setPreference("jvm_option_exit", std::string("-Dkesta.test.exitIn=") + GetParam());
    settings.setPreference("jvm_option_file", "-Dkesta.test.exitFile=" + file);
    CProgram client(clientCommand("hold"));
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 3);
    EXPECT_EQ(client.process().exitCode(), 1u) << "there is no object";
    EXPECT_TRUE(client.waitForOutput("creation failed 800706b")) << client.output();
    FILETIME end = {};
    FILETIME other = {};
    WIN32_FILE_ATTRIBUTE_DATA exits = {};
    ASSERT_TRUE(GetProcessTimes(server->handle(), &other, &end, &other, &other));
    ASSERT_TRUE(GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &exits));
    std::printf("%llu ms\n", milliseconds(end) - milliseconds(exits.ftLastWriteTime));
    EXPECT_LE(milliseconds(end), milliseconds(exits.ftLastWriteTime) + 5000);
}

class CrashFaultTest : public FaultTest
{
protected:
    // A start whose control crashes Java.
    void crash()
    {
        CProgram client(clientCommand("crash"));
        server = serverOf(client);
        const std::optional<DWORD> code = server->exitCode();
        ASSERT_TRUE(code);
        EXPECT_NE(*code, 0u);
        expectExit(server->id(), *code);
        expectRpcErrors(client);
        // A slow computer may have the watchdog's timer come before Java is through with its file.
        std::vector<LogLine> log = lines(server->id());
        std::erase_if(log, [main = log.front().thread](const LogLine& line) { return line.thread != main; });
        EXPECT_EQ(messageOf(log.back()), "<- bstrToJavaString ") << "the log ends abruptly";
    }

    std::shared_ptr<CProcess> server;
};

// Where the page about the log says.
TEST_F(CrashFaultTest, JavaThatCrashesWritesItsFileIntoTheClientsFolderOrAsTheOptionSays)
{
    settings.setPreference("jvm_option_dump", "-XX:-CreateCoredumpOnCrash");
    crash();
    EXPECT_TRUE(std::filesystem::remove(folder.file("crash.log"))) << "named by an option";
    settings.removePreference("jvm_option_crash");
    crash();
    const std::string file = std::format("hs_err_pid{}.log", server->id());
    EXPECT_TRUE(std::filesystem::remove(std::filesystem::current_path() / file));
}

class FactoryFaultTest : public FaultTest
{
};

// The frame belongs to the process: the second object shares it, and takes it away at its end.
TEST_F(FactoryFaultTest, SecondObjectOfAProcessTakesTheFrameWithIt)
{
    ATL::CComPtr<IClassFactory> factory;
    ASSERT_EQ(CoGetClassObject(CLSID_JavaManager, CLSCTX_LOCAL_SERVER, nullptr, IID_PPV_ARGS(&factory)), S_OK);
    SManager first;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_PPV_ARGS(&first.object)), S_OK);
    first.server = waitForNewServer({});
    ASSERT_TRUE(first.server);
    const DWORD id = first.server->id();
    ATL::CComPtr<IJavaManager> second;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_PPV_ARGS(&second)), S_OK);
    EXPECT_THAT(messages(id), Contains("CJavaManagerATLObject  s_Instance == NULL: false"));
    int frameId = 0;
    EXPECT_EQ(second->getBeanFrameID(&frameId), S_OK);
    EXPECT_EQ(frameId, first.frameId());
    EXPECT_EQ(callMethod(second, "echo", "there"), "there");
    second.Release();
    EXPECT_EQ(callMethod(first.object, "echo", "anybody"), "(failed)");
    EXPECT_TRUE(first.server->isRunning());
    factory.Release();
    release(first);
}

TEST_F(LongFaultTest, ClientThatDiesWithTheClassObjectEndsItsServer)
{
    CProgram client(clientCommand("hold-factory"));
    const std::shared_ptr<CProcess> server = serverOf(client);
    client.process().kill(9);
    EXPECT_LE(duration([&] { expectEnd(*server); }), LONGEST_WITHOUT_CLIENT);
}

// There is no watchdog yet. On Windows COM drops the dead client's references after some minutes; Wine does not, and the test
// ends the server itself.
TEST_F(FactoryFaultTest, ClientThatDiesWhileJavaStartsLeavesAServerThatGoesOn)
{
    CProgram client(clientCommand("hold"));
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    ASSERT_TRUE(waitForMessage(server->id(), ABOUT_TO_START));
    client.process().kill(9);
    EXPECT_TRUE(
        waitForMessage(server->id(), std::format("CBeanFrame {} CHECKPOINT: Successfully created BeanFrame.", server->id())));
    EXPECT_TRUE(livesFor(*server, 2000));
    expectExit(server->id(), ERROR_PROCESS_ABORTED);
    server->kill(ERROR_PROCESS_ABORTED);
}

// Wine gives the class object of a server that was killed before its client took it to one more client.
TEST_F(FactoryFaultTest, ServerThatIsKilledBeforeItsClientTookItFailsTheNextCreationOnly)
{
    CProgram client(clientCommand("hold"));
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    client.process().kill(9);
    ASSERT_TRUE(waitForMessage(server->id(), "-> CKESTAserverModule  RunMessageLoop "));
    server->kill(9);
    expectEnd(*server, 9);
    SManager manager;
    EXPECT_EQ(create(manager), HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
    ASSERT_EQ(create(manager), S_OK);
    EXPECT_EQ(callMethod(manager.object, "echo", "there"), "there");
    release(manager);
}

// Through the removal of the control, the frame's end and the process's. The Java side is that of the bridge's tests: its threads
// keep the listener, while the basis control stops at its removal.
TEST_F(LongFaultTest, ControlThatFiresAfterItsEndHarmsNobody)
{
    constexpr DWORD INFORMATION = 3;
    constexpr const char* DROPPED[] = {"Dropped ControlReady Event, no corresponding bean frame was found...",
                                       "Dropped custom event, no corresponding bean frame was found...",
                                       "Dropped TestBridgeEvent, no corresponding bean frame was found..."};
    setLogLevel(INFORMATION);
    settings.setPreference("basiscontrol", buildFolder() + "\\tests\\vm\\whole.jar");
    std::map<std::string, size_t> dropped;
    for (int cycle = 1; cycle <= cycles(200); ++cycle) {
        SCOPED_TRACE(std::format("cycle {}", cycle));
        SManager manager = create();
        const DWORD id = manager.server->id();
        CClientWindow window;
        CSink sink;
        CConnection connection(manager.object, sink);
        ASSERT_TRUE(window.takeIn(manager.frameId()));
        ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
        ASSERT_EQ(callMethod(manager.object, "raiseForEver", "4"), "4");
        ASSERT_TRUE(pumpUntil([&] { return sink.has(CUSTOM_EVENT, "for ever"); }));
        connection.end();
        release(manager);
        for (const char* const line : DROPPED) {
            dropped[line] += countMessages(id, line);
        }
        ASSERT_FALSE(HasFailure());
        if (cycle % 20 == 0) {
            std::printf("%d cycles\n", cycle);
            std::fflush(stdout);
        }
    }
    for (const char* const line : DROPPED) {
        std::printf("%zu times: %s\n", dropped[line], line);
        EXPECT_LT(0u, dropped[line]) << line;
    }
}

// The titles of all frames' windows.
std::vector<std::string> frames()
{
    std::vector<std::string> titles;
    EnumWindows(
        [](HWND window, LPARAM found) -> BOOL {
            std::array<char, 40> title = {};
            GetWindowTextA(window, title.data(), static_cast<int>(title.size()));
            if (std::string_view(title.data()).starts_with("kesta_frame_")) {
                reinterpret_cast<std::vector<std::string>*>(found)->emplace_back(title.data());
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&titles));
    return titles;
}

// A client or its server is killed at a random moment of its life. The next one starts while the servers of killed clients wait
// for their watchdog's check.
class RandomKills
{
public:
    explicit RandomKills(std::string clientCommand)
        : m_clientCommand(std::move(clientCommand))
    {
    }

    void startAndKill()
    {
        constexpr DWORD LIFE = 5000; // ms, by which the control is shown
        const bool isClientKilled = m_random() % 2 == 0;
        CProgram client(m_clientCommand);
        Sleep(m_random() % LIFE);
        if (!isClientKilled) {
            killNewServers();
        }
        kill(client.process());
        const bool isWatched = client.waitForOutput("pushed");
        const bool wasGiven = isWatched || client.output().find("created") != std::string::npos;
        for (const DWORD id : newServers()) {
            auto server = std::make_unique<CProcess>(id);
            if (isClientKilled && wasGiven) {
                m_left.push_back({std::move(server), isWatched, GetTickCount64() + WATCHDOG_PERIOD + 5000});
            } else {
                kill(*server); // Wine's COM never notices a client that dies before it has pushed its window
            }
        }
        lookAtServers();
    }
    // Whether servers of killed clients are still there; their time limits are checked.
    bool areServersLeft()
    {
        lookAtServers();
        return !m_left.empty();
    }
    int ended() const { return m_ended; }

private:
    static constexpr UINT KILLED = 9;

    struct SLeft
    {
        std::unique_ptr<CProcess> server;
        bool isWatched; // otherwise it was killed before its client said so, and it may be or not
        ULONGLONG deadline;
    };

    std::vector<DWORD> newServers() const
    {
        std::vector<DWORD> servers = processesNamed("KESTAx64.exe");
        std::erase_if(servers, [&](DWORD id) {
            return std::ranges::any_of(m_left, [id](const SLeft& left) { return left.server->id() == id; });
        });
        return servers;
    }
    void killNewServers() const
    {
        for (const DWORD id : newServers()) {
            kill(CProcess(id));
        }
    }
    static void kill(const CProcess& process)
    {
        process.kill(KILLED);
        EXPECT_TRUE(process.exitCode());
    }
    void lookAtServers()
    {
        std::erase_if(m_left, [&](const SLeft& left) {
            if (const std::optional<DWORD> code = left.server->exitCode(0)) {
                EXPECT_EQ(*code, 0u) << "of server " << left.server->id();
                ++m_ended;
                return true;
            }
            if (GetTickCount64() < left.deadline) {
                return false;
            }
            EXPECT_FALSE(left.isWatched) << "server " << left.server->id() << " outlives its client";
            kill(*left.server);
            return true;
        });
        for (const std::string& title : frames()) {
            EXPECT_TRUE(std::ranges::any_of(
                m_left, [&](const SLeft& left) { return title == std::format("kesta_frame_{}", left.server->id()); }))
                << title << " belongs to no server";
        }
    }

    std::string m_clientCommand;
    std::mt19937 m_random{1};
    std::vector<SLeft> m_left;
    int m_ended = 0;
};

// Java has a file for each running machine in the folder for temporary files. A start removes those of dead ones.
size_t countMachineFiles()
{
    size_t count = 0;
    for (const auto& folder : std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
        if (folder.path().filename().string().starts_with("hsperfdata")) {
            count += filesIn(folder.path().string()).size();
        }
    }
    return count;
}

std::map<std::string, std::uintmax_t> sizesOfFiles(const std::string& folder)
{
    std::map<std::string, std::uintmax_t> sizes;
    for (const std::string& name : filesIn(folder)) {
        sizes[name] = std::filesystem::file_size(folder + "\\" + name);
    }
    return sizes;
}

TEST_F(LongFaultTest, RandomKillsLeaveNothingBehind)
{
    setLogLevel(WARNINGS);
    logToFile();
    RandomKills kills(clientCommand("tell"));
    for (int start = 1; start <= cycles(500); ++start) {
        SCOPED_TRACE(std::format("start {}", start));
        kills.startAndKill();
        if (start % 50 == 0) {
            std::printf("%d starts, %d servers have ended after their clients\n", start, kills.ended());
            std::fflush(stdout);
        }
    }
    while (kills.areServersLeft()) {
        Sleep(100);
    }
    EXPECT_LT(0, kills.ended()) << "no client was killed while its control was shown";
    EXPECT_TRUE(processesNamed("KESTAx64.exe").empty());
    EXPECT_TRUE(processesNamed("process_client.exe").empty());
    EXPECT_THAT(frames(), testing::IsEmpty());
    const std::map<std::string, std::uintmax_t> logs = sizesOfFiles(folder.path());
    EXPECT_FALSE(logs.empty());
    Sleep(1000);
    EXPECT_EQ(sizesOfFiles(folder.path()), logs) << "somebody is still writing";

    // The last one may have left a class object behind.
    SManager manager;
    if (create(manager) == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)) {
        EXPECT_EQ(create(manager), S_OK);
    }
    ASSERT_TRUE(manager.object);
    Client client(manager);
    EXPECT_EQ(client.call("echo", "there"), "there");
    EXPECT_EQ(countMachineFiles(), 1u);
    client.connection.reset();
    release(manager);
}

} // namespace
} // namespace fixtures
