// What a long run leaves behind in the server: calls and events against one server process, whose memory, handles, drawing
// objects, windows, threads and Java heap are read between them. tools/soak builds and runs it, and judges the numbers.
//
//     bench_soak --calls N --events N --samples N --out FILE
//
// FILE gets a line for each sample as soon as it is taken, with the names of the columns in the first line. -1: the system does
// not tell.
#include "bench/countingSink.h"
#include "bench/harness.h"
#include "bench/servers.h"
#include "tests/process/Client.h"

#include <winternl.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace {

constexpr int CALLS = 1000000;
constexpr int EVENTS = 1000000;
constexpr int SAMPLES = 100;
// Of the calls between two samples: those that come back as an event, delayed by a timer of the server.
constexpr int TIMED_PART = 10;
constexpr int LONGEST_DELAY = 20; // ms
constexpr int EVENT_THREADS = 4;
constexpr long long UNKNOWN = -1;

ATL::CComBSTR text(const std::string& narrow)
{
    return ATL::CComBSTR(narrow.c_str());
}

// ---- What the system tells about a process

struct SCounts
{
    long long handles = UNKNOWN;
    long long threads = UNKNOWN;
};

SCounts countsOf(DWORD process)
{
    std::vector<BYTE> list(1 << 20);
    ULONG needed = 0;
    NTSTATUS status = 0;
    while ((status = NtQuerySystemInformation(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size()), &needed)) !=
           0) {
        if (list.size() > (1 << 26)) {
            return {};
        }
        list.resize(list.size() * 2);
    }
    for (size_t place = 0;;) {
        const auto* const entry = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(list.data() + place);
        if (HandleToULong(entry->UniqueProcessId) == process) {
            return {entry->HandleCount, entry->NumberOfThreads};
        }
        if (entry->NextEntryOffset == 0) {
            return {};
        }
        place += entry->NextEntryOffset;
    }
}

// The table of drawing objects, which every process has mapped and which its environment block names. Wine's GetGuiResources
// tells nothing.
struct SGdiEntry
{
    ULONGLONG object;
    ULONG owner;
    USHORT unique;
    BYTE type;
    BYTE flags;
    ULONGLONG userPointer;
};
static_assert(sizeof(SGdiEntry) == 24);
constexpr size_t GDI_ENTRIES = 65536;
constexpr size_t GDI_TABLE_IN_PEB = 0xF8;

long long gdiTableObjects(HANDLE process)
{
    PROCESS_BASIC_INFORMATION basic = {};
    void* table = nullptr;
    SIZE_T size = 0;
    if (NtQueryInformationProcess(process, ProcessBasicInformation, &basic, sizeof basic, nullptr) != 0 ||
        !ReadProcessMemory(process, reinterpret_cast<const BYTE*>(basic.PebBaseAddress) + GDI_TABLE_IN_PEB, &table, sizeof table,
                           &size) ||
        table == nullptr) {
        return UNKNOWN;
    }
    std::vector<SGdiEntry> entries(GDI_ENTRIES);
    if (!ReadProcessMemory(process, table, entries.data(), entries.size() * sizeof(SGdiEntry), &size)) {
        return UNKNOWN;
    }
    return std::ranges::count_if(entries, [](const SGdiEntry& entry) { return entry.type != 0; });
}

// Whether this system's table is the one that is expected here: it has to show objects of this process.
bool isGdiTableReadable()
{
    constexpr int MADE = 10;
    const long long before = gdiTableObjects(GetCurrentProcess());
    std::vector<HGDIOBJ> made;
    for (int number = 0; number < MADE; ++number) {
        made.push_back(CreateSolidBrush(RGB(number, 1, 2)));
    }
    const long long after = gdiTableObjects(GetCurrentProcess());
    for (const HGDIOBJ object : made) {
        DeleteObject(object);
    }
    return before != UNKNOWN && after == before + MADE && gdiTableObjects(GetCurrentProcess()) == before;
}

long long gdiObjects(HANDLE process)
{
    static const bool s_isTableReadable = isGdiTableReadable();
    const DWORD told = GetGuiResources(process, GR_GDIOBJECTS);
    return told != 0 ? told : s_isTableReadable ? gdiTableObjects(process) : UNKNOWN;
}

// Windows of a process wherever they are: at the top, inside windows of any process, and those for messages only.
long long windowsOf(DWORD process)
{
    struct SSearch
    {
        DWORD process;
        long long found;
    } search = {process, 0};
    const auto note = [](HWND window, LPARAM parameter) -> BOOL {
        auto& into = *reinterpret_cast<SSearch*>(parameter);
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        into.found += owner == into.process;
        return TRUE;
    };
    // EnumChildWindows of the desktop takes in the windows at the top and everything in them.
    EnumChildWindows(GetDesktopWindow(), note, reinterpret_cast<LPARAM>(&search));
    for (HWND window = nullptr; (window = FindWindowExA(HWND_MESSAGE, window, nullptr, nullptr)) != nullptr;) {
        note(window, reinterpret_cast<LPARAM>(&search));
    }
    return search.found;
}

// Where the system counts nothing, the windows, which are the most of them.
long long userObjects(HANDLE process, DWORD id)
{
    const DWORD told = GetGuiResources(process, GR_USEROBJECTS);
    return told != 0 ? told : windowsOf(id);
}

// ---- The client

class CSoak
{
public:
    explicit CSoak(std::ofstream& out)
        : m_out(out)
        , m_servers(bench::STEADY_MACHINE)
        , m_server(CLSID_JavaManager)
        , m_sink(m_server.object())
        , m_start(bench::now())
    {
        int frame = -1;
        check(object()->getBeanFrameID(&frame), "getBeanFrameID");
        if (!m_window.takeIn(frame)) {
            throw std::runtime_error("the frame's window is not there");
        }
        check(object()->pushWindowHandle(m_window.handle()), "pushWindowHandle");
        ATL::CComBSTR version;
        check(object()->setUsedControl(text("TestControl"), text(""), &version), "setUsedControl");
        call("watchTexts", "");
        // Until controlReady has come.
        waitFor([this] { return m_sink.events > 0; });
        m_sink.events = 0;
        m_out << "calls,events,seconds,private bytes,handles,GDI objects,USER objects,threads,Java heap,references\n";
    }

    // Some threads of the control raise events, and the client calls meanwhile.
    void step(int calls, int events)
    {
        const int timed = std::min(calls, events) / TIMED_PART;
        const int perThread = (events - timed) / EVENT_THREADS;
        const int inLastThread = (events - timed) % EVENT_THREADS;
        if (perThread > 0) {
            call("burst", std::to_string(perThread) + ";" + std::to_string(EVENT_THREADS));
        }
        if (inLastThread > 0) {
            call("burst", std::to_string(inLastThread));
        }
        m_events += events;
        for (int number = 0; number < calls; ++number) {
            if (number % TIMED_PART == 0 && number / TIMED_PART < timed) {
                check(object()->testBridge(text("timed"), 2, 1 + number % LONGEST_DELAY), "testBridge");
            } else {
                callOnce(number);
            }
        }
        m_calls += calls;
        waitFor([this] { return m_sink.events >= m_events; });
        if (m_sink.events != m_events) {
            throw std::runtime_error("more events than were raised: " + std::to_string(m_sink.events - m_events));
        }
    }

    void sample()
    {
        // "BYTES;REFERENCES"
        std::string java = call("heap", "");
        std::ranges::replace(java, ';', ',');
        const DWORD id = process().id();
        const SCounts counts = countsOf(id);
        m_out << m_calls << ',' << m_events << ',' << bench::now() - m_start << ',' << process().privateBytes() << ','
              << counts.handles << ',' << gdiObjects(process().handle()) << ',' << userObjects(process().handle(), id) << ','
              << counts.threads << ',' << java << std::endl;
    }

private:
    IJavaManager* object() const { return m_server.object(); }
    const fixtures::CProcess& process() const { return m_server.process(); }
    static void check(HRESULT result, const char* what)
    {
        if (result != S_OK) {
            std::ostringstream failure;
            failure << what << " failed with " << std::hex << static_cast<unsigned long>(result);
            throw std::runtime_error(failure.str());
        }
    }
    void waitFor(const std::function<bool()>& done) const
    {
        if (!fixtures::pumpUntil([&] { return done() || !m_server.process().isRunning(); }) || !m_server.process().isRunning()) {
            throw std::runtime_error(m_server.process().isRunning() ? "events are missing" : "the server has ended");
        }
    }
    std::string call(const char* method, const std::string& argument)
    {
        ATL::CComBSTR answer;
        check(object()->callMethod(text(method), text(argument), &answer), method);
        return fixtures::narrow(answer);
    }
    // In turn a call with an answer, and a property set and read. None is late bound: Wine loses 120 bytes at each such call,
    // also in a server that answers a constant.
    void callOnce(int number)
    {
        const std::string value = "a text of the usual length " + std::to_string(number);
        ATL::CComBSTR answer;
        switch (number % 3) {
        case 0:
            expect(call("echo", value), value);
            break;
        case 1:
            check(object()->setProperty(text("soak"), text(value), &answer), "setProperty");
            m_property = value;
            break;
        default:
            check(object()->getProperty(text("soak"), &answer), "getProperty");
            expect(fixtures::narrow(answer), m_property);
            break;
        }
    }
    static void expect(const std::string& answer, const std::string& expected)
    {
        if (answer != expected) {
            throw std::runtime_error("wrong answer: " + answer);
        }
    }

    std::ofstream& m_out;
    bench::CServers m_servers;
    fixtures::CClientWindow m_window;
    bench::CRemote m_server;
    bench::CCountingSink m_sink;
    double m_start;
    std::string m_property;
    long long m_calls = 0;
    long long m_events = 0;
};

// The part of a whole that belongs to a step, so that all parts add up.
int part(int whole, int step, int steps)
{
    return static_cast<int>(static_cast<long long>(whole) * (step + 1) / steps - static_cast<long long>(whole) * step / steps);
}

void measure(int argc, char** argv)
{
    const int calls = bench::argument(argc, argv, "--calls", CALLS);
    const int events = bench::argument(argc, argv, "--events", EVENTS);
    const int samples = std::max(1, bench::argument(argc, argv, "--samples", SAMPLES));
    const char* const file = bench::text(argc, argv, "--out");
    if (file == nullptr) {
        throw std::runtime_error("--out FILE is missing");
    }
    std::ofstream out(file);
    CSoak soak(out);
    soak.sample();
    for (int number = 0; number < samples; ++number) {
        soak.step(part(calls, number, samples), part(events, number, samples));
        soak.sample();
    }
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
