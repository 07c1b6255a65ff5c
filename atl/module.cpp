#include "atl/module.h"

#include "atl/categories.h"
#include "atl/typelib.h"

#include <cstring>
#include <memory>

namespace ATL {

CAtlModule* _pAtlModule = nullptr;

namespace {

struct RegistrationSwitch
{
    const char* word;
    BOOL registering;
    CRegistrationScope scope;
};

bool isWord(const char* text, const char* word) noexcept
{
    const size_t length = strlen(word);
    return _strnicmp(text, word, length) == 0 && (text[length] == '\0' || text[length] == ' ' || text[length] == '\t');
}

// Null when there is none: the server is to run.
const RegistrationSwitch* findSwitch(const char* commandLine) noexcept
{
    static constexpr RegistrationSwitch SWITCHES[] = {
        {"RegServer", TRUE, CRegistrationScope::Machine},
        {"UnregServer", FALSE, CRegistrationScope::Machine},
        {"RegServerPerUser", TRUE, CRegistrationScope::User},
        {"UnregServerPerUser", FALSE, CRegistrationScope::User},
    };
    for (const char* mark = strpbrk(commandLine, "-/"); mark != nullptr; mark = strpbrk(mark + 1, "-/")) {
        for (const RegistrationSwitch& known : SWITCHES) {
            if (isWord(mark + 1, known.word)) {
                return &known;
            }
        }
    }
    return nullptr;
}

std::string executablePath()
{
    char buffer[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    if (length == 0) {
        AtlThrow(AtlHresultFromLastError());
    }
    if (length >= MAX_PATH) {
        AtlThrow(AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER));
    }
    return std::string(buffer, length);
}

// The registry gets the path in the code page. A path that it cannot write would name a program that is not there.
void checkPathIsInCodePage()
{
    wchar_t path[MAX_PATH];
    const std::wstring_view wide(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    const CComBSTR again(narrowText(wide.data(), wide.size()).c_str());
    if (std::wstring_view(again, again.Length()) != wide) {
        AtlThrow(AtlHresultFromWin32(ERROR_NO_UNICODE_TRANSLATION));
    }
}

// A path for use between apostrophes in a registration script.
std::string quotedForScript(const std::string& path)
{
    std::string text;
    for (const char c : path) {
        text += c;
        if (c == '\'') {
            text += c;
        }
    }
    return path.find(' ') == std::string::npos ? text : '"' + text + '"';
}

} // namespace

CAtlModule::CAtlModule() noexcept
{
    _pAtlModule = this;
}

CAtlModule::~CAtlModule()
{
    _pAtlModule = nullptr;
}

HRESULT CAtlModule::UpdateRegistryFromResource(UINT id, BOOL registering) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        if (registering != FALSE) {
            checkPathIsInCodePage();
        }
        CRegObject registrar(m_registrationScope);
        registrar.AddReplacement("MODULE", quotedForScript(executablePath()));
        AddCommonRGSReplacements(registrar);
        return registrar.UpdateFromResource(id, registering);
    });
}

CAtlExeModule::CAtlExeModule(std::span<const ATL_OBJMAP_ENTRY> objectMap)
    : m_dwMainThreadID(GetCurrentThreadId())
    , m_objectMap(objectMap)
{
    m_bInitFailed = FAILED(m_csShutdown.Init());
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        entry.objectMain(true);
    }
}

CAtlExeModule::~CAtlExeModule()
{
    // After an exception of the loop the monitor thread is still waiting.
    m_ending = true;
    EndMonitor();
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        entry.objectMain(false);
    }
}

LONG CAtlExeModule::Lock() noexcept
{
    return static_cast<LONG>(CoAddRefServerProcess());
}

LONG CAtlExeModule::Unlock() noexcept
{
    const ULONG count = CoReleaseServerProcess();
    if (count == 0) {
        if (m_bDelayShutdown) {
            m_bActivity = true;
            SignalShutdown();
        } else {
            EndMessageLoop();
        }
    }
    return static_cast<LONG>(count);
}

int CAtlExeModule::WinMain(int /*showCommand*/)
{
    if (m_bInitFailed) {
        return -1;
    }
    const HRESULT hr = CoInitialize(nullptr);
    m_bComInitialized = SUCCEEDED(hr);
    // A managed runtime in the process may have initialised COM in another mode, which will do.
    if (FAILED(hr) && !(hr == RPC_E_CHANGED_MODE && GetModuleHandleA("Mscoree.dll") != nullptr)) {
        return hr;
    }
    // Also when an exception ends the loop.
    const auto uninitialize = [](bool* initialized) {
        if (std::exchange(*initialized, false)) {
            CoUninitialize();
        }
    };
    const std::unique_ptr<bool, decltype(uninitialize)> com(&m_bComInitialized, uninitialize);
    const RegistrationSwitch* const found = findSwitch(GetCommandLineA());
    if (found == nullptr) {
        return Run();
    }
    m_registrationScope = found->scope;
    return AtlGuard([&] { return UpdateRegistration(found->registering); });
}

HRESULT CAtlExeModule::UpdateRegistration(BOOL registering)
{
    const HRESULT hr = registering ? UpdateAppId(TRUE) : UpdateServer(FALSE);
    if (FAILED(hr)) {
        return hr;
    }
    return registering ? UpdateServer(TRUE) : UpdateAppId(FALSE);
}

// The classes with their categories, then the type library.
HRESULT CAtlExeModule::UpdateServer(BOOL registering)
{
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        HRESULT hr = entry.updateRegistry(registering);
        if (SUCCEEDED(hr)) {
            hr = AtlUpdateCategories(*entry.clsid, entry.getCategoryMap(), m_registrationScope, registering);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    const std::string path = executablePath();
    return registering ? AtlRegisterTypeLib(path, m_registrationScope) : AtlUnRegisterTypeLib(path, m_registrationScope);
}

HRESULT CAtlExeModule::Run()
{
    HRESULT hr = PreMessageLoop();
    if (hr == S_OK) {
        RunMessageLoop();
    }
    if (FAILED(hr)) {
        return hr;
    }
    hr = RevokeClassObjects();
    if (m_bDelayShutdown) {
        Sleep(m_dwPause);
    }
    return hr;
}

HRESULT CAtlExeModule::PreMessageLoop()
{
    HRESULT hr = RegisterClassObjects();
    if (FAILED(hr)) {
        return hr;
    }
    if (m_bDelayShutdown && !StartMonitor()) {
        RevokeClassObjects();
        return E_FAIL;
    }
    hr = CoResumeClassObjects();
    if (FAILED(hr)) {
        EndMonitor();
        RevokeClassObjects();
    }
    return hr;
}

HRESULT CAtlExeModule::RegisterClassObjects()
{
    m_classObjects.reserve(m_objectMap.size());
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        CComPtr<IUnknown> factory;
        HRESULT hr = entry.createFactory(IID_IUnknown, reinterpret_cast<void**>(&factory));
        DWORD cookie = 0;
        if (SUCCEEDED(hr)) {
            // Without REGCLS_MULTIPLEUSE, deliberately: each creation by a client starts its own server process.
            hr = CoRegisterClassObject(*entry.clsid, factory, CLSCTX_LOCAL_SERVER, REGCLS_SUSPENDED, &cookie);
        }
        if (FAILED(hr)) {
            return hr;
        }
        m_classObjects.push_back(cookie);
    }
    return S_OK;
}

HRESULT CAtlExeModule::RevokeClassObjects() noexcept
{
    for (const DWORD cookie : m_classObjects) {
        if (const HRESULT hr = CoRevokeClassObject(cookie); FAILED(hr)) {
            return hr;
        }
    }
    m_classObjects.clear();
    return S_OK;
}

bool CAtlExeModule::StartMonitor() noexcept
{
    // Creates this thread's message queue, so that a later post which finds none means that the thread has ended.
    MSG message;
    PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    m_hEventShutdown.Attach(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (m_hEventShutdown == nullptr) {
        return false;
    }
    const auto monitor = [](void* module) -> DWORD {
        static_cast<CAtlExeModule*>(module)->MonitorShutdown();
        return 0;
    };
    m_hMonitorThread.Attach(CreateThread(nullptr, 0, monitor, this, 0, nullptr));
    if (m_hMonitorThread == nullptr) {
        m_hEventShutdown.Close();
        return false;
    }
    return true;
}

void CAtlExeModule::MonitorShutdown() noexcept
{
    WaitForSingleObject(m_hEventShutdown, INFINITE);
    {
        const CComCritSecLock lock(m_csShutdown);
        m_hEventShutdown.Close();
    }
    EndMessageLoop();
}

void CAtlExeModule::EndMonitor() noexcept
{
    SignalShutdown();
    if (m_hMonitorThread != nullptr) {
        WaitForSingleObject(m_hMonitorThread, m_dwTimeOut * 2);
        m_hMonitorThread.Close();
    }
}

void CAtlExeModule::SignalShutdown() noexcept
{
    if (m_bInitFailed) {
        return;
    }
    // Once the monitor thread has closed the event, there is nothing left to signal.
    const CComCritSecLock lock(m_csShutdown);
    if (m_hEventShutdown != nullptr) {
        SetEvent(m_hEventShutdown);
    }
}

void CAtlExeModule::EndMessageLoop() noexcept
{
    // The post fails while the thread's queue is full, and nothing signals when there is room again.
    while (!m_ending && !PostThreadMessageA(m_dwMainThreadID, WM_QUIT, 0, 0)) {
        if (GetLastError() == ERROR_INVALID_THREAD_ID) {
            return;
        }
        if (GetCurrentThreadId() == m_dwMainThreadID) {
            // This thread itself would have to empty the queue, so waiting is no use.
            PostQuitMessage(0);
            return;
        }
        Sleep(1);
    }
}

} // namespace ATL
