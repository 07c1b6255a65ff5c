// The executable's entry point with its module: calls of Windows, log lines, their order, and the exit code. Each call of Windows
// at start and end is noted among the log lines. Other failures of the module are tested with its base class.
#include "javabridge/JavaManagerJNIClient.h"
#include "server/KESTAserver.h"
#include "tests/beanframe/LoggedTest.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <format>
#include <functional>

using testing::ElementsAreArray;

namespace {

using InitializeHook = ImportHook<decltype(&CoInitialize)>;
using UninitializeHook = ImportHook<decltype(&CoUninitialize)>;
using RegisterHook = ImportHook<decltype(&CoRegisterClassObject)>;
using ResumeHook = ImportHook<decltype(&CoResumeClassObjects)>;
using RevokeHook = ImportHook<decltype(&CoRevokeClassObject)>;
using GetMessageHook = ImportHook<decltype(&GetMessageA)>;
using PostHook = ImportHook<decltype(&PostThreadMessageA)>;
using SleepHook = ImportHook<decltype(&Sleep)>;
using ErrorModeHook = ImportHook<decltype(&SetErrorMode)>;

constexpr DWORD COOKIE = 4711;

// The results of Windows' functions in this test, and what happens before the next message.
HRESULT s_initialize = S_OK;
HRESULT s_revoke = S_OK;
std::function<void()> s_beforeMessage;

template <class... Arguments>
void note(std::format_string<Arguments...> format, Arguments&&... arguments)
{
    OutputDebugStringA((std::format(format, std::forward<Arguments>(arguments)...) + "\n").c_str());
}

std::string guidText(const GUID& guid)
{
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return ATL::narrowText(text, wcslen(text));
}

// Ends the message loop, as the last client does.
void letGo()
{
    ATL::_pAtlModule->Lock();
    ATL::_pAtlModule->Unlock();
}

// The Logger reference that the entry point's module releases at the end of the process.
struct SModulesReference
{
    ~SModulesReference() { Logger::addRefCount(); }
};

// Its destructor throws something unexpected.
class FailingClient : public CJavaManagerJNIClient
{
public:
    FailingClient()
        : CJavaManagerJNIClient("")
    {
        m_DLLHandle = GetModuleHandleA("kernel32");
    }
    ~FailingClient() override = default;
};

class EntryTest : public LoggedTest
{
protected:
    EntryTest()
    {
        s_initialize = s_revoke = S_OK;
        s_beforeMessage = letGo;
    }

    // Runs the entry point and returns its result.
    int run()
    {
        char commandLine[] = "the command line";
        ErrorModeHook::s_original(SEM_NOOPENFILEERRORBOX);
        stream.clear();
        return ::WinMain(GetModuleHandleA(nullptr), nullptr, commandLine, SW_HIDE);
    }
    // A run: the given lines of the module, between what every run begins and ends with.
    static std::vector<std::string> wholeRun(std::vector<std::string> moduleLines)
    {
        moduleLines.insert(moduleLines.begin(), "INFO -> WinMain the command line");
        for (const std::string& line : {std::string("FINE -> cleanUp "),
                                        std::string("TRACE CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton."),
                                        std::string("FINE <- cleanUp "), std::string("FINE -> setErrorModeSilent "),
                                        std::string("SetErrorMode 3"), std::string("FINE new error mode:3"),
                                        std::string("FINE old error mode:8000"), std::string("FINE <- setErrorModeSilent "),
                                        "TRACE CHelpers::setErrorModeSilent(): success: " + getWindowsErrorText(0),
                                        std::string("INFO <- WinMain the command line")}) {
            moduleLines.push_back(line);
        }
        return moduleLines;
    }
    // The monitor thread's message to the main thread: WM_QUIT.
    static inline const std::string QUIT = "PostThreadMessageA main thread 18 0 0";

    SModulesReference modulesReference;

    const InitializeHook initialize{"CoInitialize", [](LPVOID reserved) -> HRESULT {
                                        note("CoInitialize{}", reserved ? " not null" : "");
                                        return FAILED(s_initialize) ? s_initialize : InitializeHook::s_original(reserved);
                                    }};
    const UninitializeHook uninitialize{"CoUninitialize", [] {
                                            note("CoUninitialize");
                                            UninitializeHook::s_original();
                                        }};
    const RegisterHook registerClass{"CoRegisterClassObject",
                                     [](REFCLSID clsid, LPUNKNOWN, DWORD context, DWORD flags, LPDWORD cookie) -> HRESULT {
                                         note("CoRegisterClassObject {} {} {}", guidText(clsid), context, flags);
                                         *cookie = COOKIE;
                                         return S_OK;
                                     }};
    const ResumeHook resume{"CoResumeClassObjects", []() -> HRESULT {
                                note("CoResumeClassObjects");
                                return S_OK;
                            }};
    const RevokeHook revoke{"CoRevokeClassObject", [](DWORD cookie) -> HRESULT {
                                note("CoRevokeClassObject {}", cookie);
                                return s_revoke;
                            }};
    const GetMessageHook getMessage{"GetMessageA", [](LPMSG message, HWND window, UINT first, UINT last) -> BOOL {
                                        s_beforeMessage();
                                        return GetMessageHook::s_original(message, window, first, last);
                                    }};
    const PostHook post{"PostThreadMessageA", [](DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
                            const auto& module = static_cast<CKESTAserverModule&>(*ATL::_pAtlModule);
                            note("PostThreadMessageA {} {} {} {}", thread == module.m_dwMainThreadID ? "main thread" : "somebody",
                                 message, wParam, lParam);
                            return PostHook::s_original(thread, message, wParam, lParam);
                        }};
    const SleepHook sleep{"Sleep", [](DWORD time) { time < 500 ? SleepHook::s_original(time) : note("Sleep {}", time); }};
    const ErrorModeHook errorMode{"SetErrorMode", [](UINT mode) -> UINT {
                                      note("SetErrorMode {}", mode);
                                      return ErrorModeHook::s_original(mode);
                                  }};
};

} // namespace

// The exit code is the result of revoking the class object.
TEST_F(EntryTest, AWholeRunFromComToTheSilentErrorMode)
{
    for (const HRESULT result : {S_OK, CO_E_OBJNOTREG}) {
        s_revoke = result;
        EXPECT_EQ(run(), result);
        EXPECT_THAT(lines(),
                    ElementsAreArray(wholeRun({"CoInitialize", "CoRegisterClassObject {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} 4 4",
                                               "CoResumeClassObjects", "FINE -> @module RunMessageLoop ", QUIT,
                                               "FINE <- @module RunMessageLoop ", "CoRevokeClassObject 4711", "Sleep 1000",
                                               "CoUninitialize"})));
    }
}

TEST_F(EntryTest, WithoutComNothingIsRegisteredAndTheResultIsComs)
{
    s_initialize = E_OUTOFMEMORY;
    EXPECT_EQ(run(), E_OUTOFMEMORY);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun({"CoInitialize"})));
}

// Whatever is thrown.
TEST_F(EntryTest, AnExceptionOfTheModuleIsLoggedAndTheJavaSideIsCleanedUpAllTheSame)
{
    s_beforeMessage = [] { throw 1; };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(lines(), ElementsAreArray(wholeRun(
                             {"CoInitialize", "CoRegisterClassObject {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} 4 4",
                              "CoResumeClassObjects", "FINE -> @module RunMessageLoop ", "FINE <- @module RunMessageLoop ",
                              "CoUninitialize", fixtures::BEGIN_BANNER, "ERROR Unexpected exception in main class",
                              "INFO -> WinMain the command line", fixtures::END_BANNER})));
    // Ends the monitor thread.
    letGo();
    for (const ULONGLONG start = GetTickCount64(); !stream.contains(QUIT) && GetTickCount64() - start < 5000;) {
        SwitchToThread();
    }
    EXPECT_TRUE(stream.contains(QUIT));
}

TEST_F(EntryTest, AnExceptionOfTheJavaSideIsLoggedAndTheModulesResultStays)
{
    FailingClient client;
    CJavaManagerJNIClient::s_Instance = &client;
    const ImportHook<decltype(&FreeLibrary)> freeLibrary("FreeLibrary", [](HMODULE) -> BOOL { throw 1; });
    s_initialize = E_ACCESSDENIED;
    EXPECT_EQ(run(), E_ACCESSDENIED);
    CJavaManagerJNIClient::s_Instance = nullptr;
    std::vector<std::string> order = lines();
    std::erase_if(order, [](const std::string& line) {
        return line != "FINE -> cleanUp " && line != "ERROR Unexpected exception in main class" && line != "SetErrorMode 3";
    });
    EXPECT_THAT(order, testing::ElementsAre("FINE -> cleanUp ", "ERROR Unexpected exception in main class", "SetErrorMode 3"));
}
