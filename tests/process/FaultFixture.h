// The base of the tests of faults: a client with a sink and the frame in a window, and the parts that several faults need.
//
// LongFaultTest takes more than ten seconds for each test and belongs to ./test fault only.
#pragma once

#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>
#include <tlhelp32.h>

#include <format>
#include <limits>

namespace fixtures {

// In which a server ends whose client has died: one period, and its own end.
constexpr DWORD LONGEST_WITHOUT_CLIENT = WATCHDOG_PERIOD + 2000; // ms

class FaultTest : public ServerTest
{
protected:
    // With a sink and the frame in a window.
    struct Client
    {
        explicit Client(SManager& created)
            : manager(created)
            , connection(std::in_place, created.object, sink)
        {
            EXPECT_TRUE(window.takeIn(manager.frameId()));
            EXPECT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
            EXPECT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
        }
        std::string call(const char* name, const std::string& argument) const
        {
            return callMethod(manager.object, name, argument.c_str());
        }
        HRESULT result(const char* name, const std::string& argument) const
        {
            return fixtures::call(manager.object, callMethodId, name, argument.c_str()).result;
        }

        SManager& manager;
        const DISPID callMethodId = memberId(manager.object, L"callMethod");
        CSink sink;
        CClientWindow window;
        std::optional<CConnection> connection;
    };

    static std::vector<DWORD> threadsOf(DWORD process)
    {
        std::vector<DWORD> threads;
        const ATL::CHandle all(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
        THREADENTRY32 entry = {};
        entry.dwSize = sizeof entry;
        for (BOOL isThere = Thread32First(all, &entry); isThere != FALSE; isThere = Thread32Next(all, &entry)) {
            if (entry.th32OwnerProcessID == process) {
                threads.push_back(entry.th32ThreadID);
            }
        }
        return threads;
    }
    // The thread that the process began with. COM's windows do not tell it: Java's window thread has such a window too.
    static DWORD mainThread(DWORD process)
    {
        DWORD oldest = 0;
        ULONGLONG oldestTime = std::numeric_limits<ULONGLONG>::max();
        for (const DWORD id : threadsOf(process)) {
            const ATL::CHandle thread(OpenThread(THREAD_QUERY_INFORMATION, FALSE, id));
            FILETIME begin = {};
            FILETIME other = {};
            if (thread != nullptr && GetThreadTimes(thread, &begin, &other, &other, &other) != FALSE &&
                ULARGE_INTEGER{{begin.dwLowDateTime, begin.dwHighDateTime}}.QuadPart < oldestTime) {
                oldestTime = ULARGE_INTEGER{{begin.dwLowDateTime, begin.dwHighDateTime}}.QuadPart;
                oldest = id;
            }
        }
        return oldest;
    }
    // Milliseconds.
    template <class Body>
    static ULONGLONG duration(Body&& body)
    {
        const ULONGLONG begin = GetTickCount64();
        body();
        return GetTickCount64() - begin;
    }
    // The window of the frame inside a pane; null without it.
    static HWND frameIn(const CClientWindow& window, int frameId)
    {
        return FindWindowExA(window.pane(), nullptr, nullptr, std::format("kesta_frame_{}", frameId).c_str());
    }
    // As a user closes it, which ends the program.
    static void closeWindows(const CProgram& program)
    {
        for (HWND window = nullptr; (window = FindWindowExA(nullptr, window, nullptr, nullptr)) != nullptr;) {
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            if (process == program.process().id()) {
                PostMessageA(window, WM_CLOSE, 0, 0);
            }
        }
        EXPECT_EQ(program.process().exitCode(), 0u);
    }
    // The results that a client has printed of its last two calls: the server has ended.
    static void expectRpcErrors(CProgram& client)
    {
        EXPECT_TRUE(client.waitForOutput(", then 800706ba")) << client.output();
        EXPECT_THAT(client.output(),
                    testing::AnyOf(testing::HasSubstr("failed 800706ba"), testing::HasSubstr("failed 800706be")));
    }
    // Fails if there is another or none.
    static DWORD onlyServer()
    {
        const std::vector<DWORD> servers = processesNamed("KESTAx64.exe");
        EXPECT_EQ(servers.size(), 1u);
        return servers.empty() ? 0 : servers.front();
    }
    static bool livesFor(const CProcess& server, DWORD milliseconds)
    {
        return !pumpUntil([&] { return !server.isRunning(); }, {server.handle()}, milliseconds);
    }
    // The texts of a server's WARN lines so far.
    std::vector<std::string> warnings(DWORD process)
    {
        std::vector<std::string> texts;
        for (const LogLine& line : lines(process)) {
            if (line.level == "WARN") {
                texts.push_back(messageOf(line));
            }
        }
        return texts;
    }
    // Also that the server lives after the last call, and ends. "afterwards" is given its client before it does.
    template <typename Check>
    void expectFailures(int calls, const char* name, const std::string& argument, Check afterwards)
    {
        SManager manager = create();
        Client client(manager);
        for (int number = 0; number < calls; ++number) {
            ASSERT_EQ(client.result(name, argument), E_FAIL);
        }
        EXPECT_TRUE(manager.server->isRunning());
        afterwards(client);
        client.connection.reset();
        release(manager);
    }
};

class LongFaultTest : public FaultTest
{
};

} // namespace fixtures
