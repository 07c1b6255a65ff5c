// The entry point of the executable with its module: what it says to Windows and to the log, in which order, and what becomes the
// exit code. Each call of Windows that the start and the end consist of shows as a line among those of the log.
#include "javabridge/JavaManagerJNIClient.h"
#include "server/KESTAserver.h"
#include "tests/support/ImportHook.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <format>
#include <functional>
#include <stdexcept>

using testing::Contains;
using testing::ElementsAreArray;

namespace {

const auto& s_realCoInitialize = ImportHook<decltype(&CoInitialize)>::s_original;
const auto& s_realCoUninitialize = ImportHook<decltype(&CoUninitialize)>::s_original;
const auto& s_realGetMessage = ImportHook<decltype(&GetMessageA)>::s_original;
const auto& s_realGetModuleHandle = ImportHook<decltype(&GetModuleHandleA)>::s_original;
const auto& s_realPostThreadMessage = ImportHook<decltype(&PostThreadMessageA)>::s_original;
const auto& s_realSetErrorMode = ImportHook<decltype(&SetErrorMode)>::s_original;
const auto& s_realSleep = ImportHook<decltype(&Sleep)>::s_original;

constexpr DWORD COOKIE = 4711;

// What Windows answers in this test, and what happens in its calls.
struct SWindows
{
    HRESULT initialize = S_OK;
    HRESULT registerClass = S_OK;
    HRESULT resume = S_OK;
    HRESULT revoke = S_OK;
    bool isManaged = false;
    const char* commandLine = "server.exe -Embedding";
    std::function<void()> beforeMessage;
    std::function<void()> whenDispatched;
};
SWindows s_windows;

template <class... Arguments>
void note(std::format_string<Arguments...> format, Arguments&&... arguments)
{
    OutputDebugStringA((std::format(format, std::forward<Arguments>(arguments)...) + "\n").c_str());
}

std::string guidText(const GUID& guid)
{
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return std::string(text, text + wcslen(text));
}

// Ends the message loop as the last client does.
void letGo()
{
    ATL::_pAtlModule->Lock();
    ATL::_pAtlModule->Unlock();
}

// Opens the module's protected parts.
struct ModuleAccess : CKESTAserverModule
{
    using CKESTAserverModule::m_bInitFailed;
};

// The Logger reference that the entry point's module gives back at the end of the process.
struct SModulesReference
{
    ~SModulesReference() { Logger::addRefCount(); }
};

class EntryTest : public testing::Test
{
protected:
    EntryTest()
    {
        world.setPreference("loglevel", LOGLEVEL_TRACE);
        world.setPreference("logpath", "");
        world.start();
        s_windows = {};
        module().m_bComInitialized = false;
    }
    static CKESTAserverModule& module() { return static_cast<CKESTAserverModule&>(*ATL::_pAtlModule); }

    // Runs the entry point and gives what it returned.
    int run()
    {
        char commandLine[] = "the command line";
        s_realSetErrorMode(SEM_NOOPENFILEERRORBOX);
        stream.clear();
        return ::WinMain(GetModuleHandleA(nullptr), nullptr, commandLine, SW_HIDE);
    }
    // The lines of the run, whole.
    std::vector<std::string> lines() const
    {
        std::vector<std::string> lines;
        for (const fixtures::LogLine& line : stream.lines()) {
            const std::string marker = line.body.substr(std::min(line.body.find_first_not_of(' '), line.body.size()), 3);
            lines.push_back((line.level.empty() ? "" : line.level + " ") +
                            (!line.level.empty() && (marker == "-> " || marker == "<- ") ? marker : "") + line.text());
        }
        return lines;
    }
    // What begins and ends every run, around the module's own lines.
    static std::vector<std::string> wholeRun(const std::vector<std::string>& moduleLines)
    {
        std::vector<std::string> all = {"INFO -> WinMain the command line"};
        all.insert(all.end(), moduleLines.begin(), moduleLines.end());
        for (const char* line : {"FINE -> cleanUp ", "TRACE CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.",
                                 "FINE <- cleanUp ", "FINE -> setErrorModeSilent ", "SetErrorMode 3", "FINE new error mode:3",
                                 "FINE old error mode:8000", "FINE <- setErrorModeSilent "}) {
            all.push_back(line);
        }
        all.push_back("TRACE CHelpers::setErrorModeSilent(): success: " + getWindowsErrorText(0));
        all.push_back("INFO <- WinMain the command line");
        return all;
    }
    // A start as far as the loop.
    static std::vector<std::string> started(const std::vector<std::string>& further)
    {
        std::vector<std::string> all = {"CoInitialize", "CoRegisterClassObject {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} 4 4",
                                        "CoResumeClassObjects"};
        all.insert(all.end(), further.begin(), further.end());
        return all;
    }
    static inline const std::string LOOP_BEGIN = "FINE -> CKESTAserverModule  RunMessageLoop ";
    static inline const std::string LOOP_END = "FINE <- CKESTAserverModule  RunMessageLoop ";
    static inline const std::string REVOCATION = "CoRevokeClassObject 4711";
    // The monitor thread's message to the main thread: WM_QUIT.
    static inline const std::string QUIT = "PostThreadMessageA main thread 18 0 0";

    SModulesReference modulesReference;
    fixtures::LoggerWorld world;
    fixtures::RegistryScratch classes{HKEY_CLASSES_ROOT};
    fixtures::DebugStream stream;

    const ImportHook<decltype(&CoInitialize)> initialize{"CoInitialize", [](LPVOID reserved) -> HRESULT {
                                                             note("CoInitialize{}", reserved ? " not null" : "");
                                                             return FAILED(s_windows.initialize) ? s_windows.initialize
                                                                                                 : s_realCoInitialize(reserved);
                                                         }};
    const ImportHook<decltype(&CoUninitialize)> uninitialize{"CoUninitialize", [] {
                                                                 note("CoUninitialize");
                                                                 s_realCoUninitialize();
                                                             }};
    const ImportHook<decltype(&CoRegisterClassObject)> registerClass{
        "CoRegisterClassObject", [](REFCLSID clsid, LPUNKNOWN, DWORD context, DWORD flags, LPDWORD cookie) -> HRESULT {
            note("CoRegisterClassObject {} {} {}", guidText(clsid), context, flags);
            *cookie = COOKIE;
            return s_windows.registerClass;
        }};
    const ImportHook<decltype(&CoResumeClassObjects)> resume{"CoResumeClassObjects", []() -> HRESULT {
                                                                 note("CoResumeClassObjects");
                                                                 return s_windows.resume;
                                                             }};
    const ImportHook<decltype(&CoRevokeClassObject)> revoke{"CoRevokeClassObject", [](DWORD cookie) -> HRESULT {
                                                                note("CoRevokeClassObject {}", cookie);
                                                                return s_windows.revoke;
                                                            }};
    const ImportHook<decltype(&GetCommandLineA)> commandLine{"GetCommandLineA",
                                                             []() -> LPSTR { return const_cast<LPSTR>(s_windows.commandLine); }};
    const ImportHook<decltype(&GetModuleHandleA)> moduleHandle{
        "GetModuleHandleA", [](LPCSTR name) -> HMODULE {
            const bool isAsked = name != nullptr && std::string(name) == "Mscoree.dll";
            return isAsked && s_windows.isManaged ? s_realGetModuleHandle("kernel32") : s_realGetModuleHandle(name);
        }};
    const ImportHook<decltype(&GetMessageA)> getMessage{"GetMessageA",
                                                        [](LPMSG message, HWND window, UINT first, UINT last) -> BOOL {
                                                            EXPECT_EQ(window, nullptr);
                                                            EXPECT_EQ(first, 0u);
                                                            EXPECT_EQ(last, 0u);
                                                            if (s_windows.beforeMessage) {
                                                                s_windows.beforeMessage();
                                                            }
                                                            return s_realGetMessage(message, window, first, last);
                                                        }};
    const ImportHook<decltype(&TranslateMessage)> translate{"TranslateMessage", [](const MSG* message) -> BOOL {
                                                                note("TranslateMessage {}", message->message);
                                                                return FALSE;
                                                            }};
    const ImportHook<decltype(&DispatchMessageA)> dispatch{"DispatchMessageA", [](const MSG* message) -> LRESULT {
                                                               note("DispatchMessageA {}", message->message);
                                                               if (s_windows.whenDispatched) {
                                                                   s_windows.whenDispatched();
                                                               }
                                                               return 0;
                                                           }};
    const ImportHook<decltype(&PostThreadMessageA)> postThreadMessage{
        "PostThreadMessageA", [](DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
            note("PostThreadMessageA {} {} {} {}", thread == module().m_dwMainThreadID ? "main thread" : "somebody", message,
                 wParam, lParam);
            return s_realPostThreadMessage(thread, message, wParam, lParam);
        }};
    const ImportHook<decltype(&Sleep)> sleep{"Sleep", [](DWORD time) {
                                                 if (time < 500) {
                                                     s_realSleep(time);
                                                 } else {
                                                     note("Sleep {}", time);
                                                 }
                                             }};
    const ImportHook<decltype(&SetErrorMode)> errorMode{"SetErrorMode", [](UINT mode) -> UINT {
                                                            note("SetErrorMode {}", mode);
                                                            return s_realSetErrorMode(mode);
                                                        }};
};

} // namespace

TEST_F(EntryTest, AWholeRunFromComToTheSilentErrorMode)
{
    // The next message, the last client's release in its wake.
    s_windows.beforeMessage = [] {
        s_windows.beforeMessage = nullptr;
        s_realPostThreadMessage(GetCurrentThreadId(), 0x8003, 0, 0);
        APTTYPE type = APTTYPE_CURRENT;
        APTTYPEQUALIFIER qualifier = {};
        EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
        EXPECT_NE(type, APTTYPE_MTA);
        EXPECT_NE(type, APTTYPE_NA);
    };
    s_windows.whenDispatched = letGo;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun(started({
                             LOOP_BEGIN,
                             "FINE CKESTAserverModule  window message: message=32771, lParam=0, wParam=0",
                             "FINE -> processEventQueue ",
                             "FINE <- processEventQueue ",
                             "TranslateMessage 32771",
                             "DispatchMessageA 32771",
                             QUIT,
                             LOOP_END,
                             REVOCATION,
                             "Sleep 1000",
                             "CoUninitialize",
                         }))));
}

TEST_F(EntryTest, AnExceptionOfTheModuleIsLoggedAndTheJavaSideIsCleanedUpAllTheSame)
{
    s_windows.beforeMessage = [] { throw std::runtime_error("out of the loop"); };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun(started({
                             LOOP_BEGIN,
                             LOOP_END,
                             "CoUninitialize",
                             fixtures::BEGIN_BANNER,
                             "ERROR Unexpected exception in main class",
                             "INFO -> WinMain the command line",
                             fixtures::END_BANNER,
                         }))));
    // Ends the monitor thread.
    letGo();
    for (const ULONGLONG start = GetTickCount64(); !stream.contains(QUIT) && GetTickCount64() - start < 5000;) {
        SwitchToThread();
    }
    EXPECT_TRUE(stream.contains(QUIT));
}

TEST_F(EntryTest, AnExceptionOfTheJavaSideIsLoggedAndTheModulesResultStays)
{
    class Client : public CJavaManagerJNIClient
    {
    public:
        Client()
            : CJavaManagerJNIClient("")
        {
            m_DLLHandle = s_realGetModuleHandle("kernel32");
        }
        ~Client() override = default;
    };
    Client client;
    CJavaManagerJNIClient::s_Instance = &client;
    const ImportHook<decltype(&FreeLibrary)> freeLibrary(
        "FreeLibrary", [](HMODULE) -> BOOL { throw std::runtime_error("out of the Java side"); });
    s_windows.initialize = E_ACCESSDENIED;
    EXPECT_EQ(run(), E_ACCESSDENIED);
    CJavaManagerJNIClient::s_Instance = nullptr;
    const std::vector<std::string> all = lines();
    const auto error = std::find(all.begin(), all.end(), "ERROR Unexpected exception in main class");
    const auto silent = std::find(all.begin(), all.end(), "SetErrorMode 3");
    EXPECT_THAT(std::vector<std::string>(all.begin(), error), Contains("FINE -> cleanUp "));
    EXPECT_LT(error, silent);
    EXPECT_NE(silent, all.end());
}

TEST_F(EntryTest, WithoutComNothingIsRegisteredAndTheResultIsComs)
{
    s_windows.initialize = E_OUTOFMEMORY;
    EXPECT_EQ(run(), E_OUTOFMEMORY);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({"CoInitialize"})));
}

TEST_F(EntryTest, ComInAnotherModeEndsTheProcessUnlessARuntimeManagesIt)
{
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(run(), static_cast<int>(0x80010106));
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({"CoInitialize"})));

    s_windows.isManaged = true;
    s_windows.beforeMessage = letGo;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun(started({LOOP_BEGIN, QUIT, LOOP_END, REVOCATION, "Sleep 1000"}))))
        << "COM is not uninitialised: it was not initialised here";

    // Another failure is not forgiven.
    s_windows.initialize = E_OUTOFMEMORY;
    EXPECT_EQ(run(), E_OUTOFMEMORY);
    s_realCoUninitialize();
}

TEST_F(EntryTest, WithoutCriticalSectionTheExitCodeIsMinusOne)
{
    module().*& ModuleAccess::m_bInitFailed = true;
    EXPECT_EQ(run(), -1);
    module().*& ModuleAccess::m_bInitFailed = false;
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({})));
}

TEST_F(EntryTest, AClassObjectThatIsRefusedIsTheResult)
{
    s_windows.registerClass = CO_E_OBJISREG;
    EXPECT_EQ(run(), CO_E_OBJISREG);
    EXPECT_THAT(lines(),
                ElementsAreArray(wholeRun(
                    {"CoInitialize", "CoRegisterClassObject {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} 4 4", "CoUninitialize"})));
}

TEST_F(EntryTest, ClassObjectsThatCannotBeResumedAreRevokedWithoutPause)
{
    s_windows.resume = CO_E_SERVER_STOPPING;
    EXPECT_EQ(run(), CO_E_SERVER_STOPPING);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun(started({QUIT, REVOCATION, "CoUninitialize"}))));
    MSG message;
    EXPECT_TRUE(PeekMessageA(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) << "the monitor thread had posted before";
}

TEST_F(EntryTest, AFailingRevocationIsTheResultAfterThePause)
{
    s_windows.beforeMessage = letGo;
    s_windows.revoke = CO_E_OBJNOTREG;
    EXPECT_EQ(run(), CO_E_OBJNOTREG);
    EXPECT_THAT(lines(),
                ElementsAreArray(wholeRun(started({LOOP_BEGIN, QUIT, LOOP_END, REVOCATION, "Sleep 1000", "CoUninitialize"}))));
}

TEST_F(EntryTest, ASwitchRegistersAndRunsNoServer)
{
    s_windows.commandLine = "server.exe -REGSERVER";
    EXPECT_EQ(run(), S_OK);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({"CoInitialize", "CoUninitialize"})));
    const auto description = [] {
        char text[64] = {};
        DWORD size = sizeof text;
        RegGetValueA(HKEY_CLASSES_ROOT, "KESTAserver.JavaManager", nullptr, RRF_RT_REG_SZ, nullptr, text, &size);
        return std::string(text);
    };
    EXPECT_EQ(description(), "KESTA Java Manager");

    s_windows.commandLine = "server.exe /unregserver";
    EXPECT_EQ(run(), S_OK);
    EXPECT_EQ(description(), "");
    // What is not there any more cannot be removed: the type library's failure is the exit code.
    EXPECT_LT(run(), 0);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({"CoInitialize", "CoUninitialize"})));
}
