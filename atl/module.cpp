#include "atl/module.h"

#include "atl/categories.h"
#include "atl/typelib.h"

#include <cstring>

namespace ATL {

CAtlModule* _pAtlModule = nullptr;

namespace {

struct SwitchName
{
    const char* word;
    CRegistrationSwitch value;
};

bool isWord(const char* text, const char* word) noexcept
{
    const size_t length = strlen(word);
    return _strnicmp(text, word, length) == 0 && (text[length] == '\0' || text[length] == ' ' || text[length] == '\t');
}

HRESULT executablePath(std::string& path)
{
    char buffer[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    if (length == 0) {
        return AtlHresultFromLastError();
    }
    if (length >= MAX_PATH) {
        return AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER);
    }
    path.assign(buffer, length);
    return S_OK;
}

// Uninitialises COM at the end of a scope, also when an exception ends it.
class ComScope
{
public:
    explicit ComScope(bool& initialized) noexcept
        : m_initialized(initialized)
    {
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
    ~ComScope()
    {
        if (m_initialized) {
            CoUninitialize();
            m_initialized = false;
        }
    }

private:
    bool& m_initialized;
};

} // namespace

CRegistrationSwitch AtlFindRegistrationSwitch(const char* commandLine) noexcept
{
    static constexpr SwitchName NAMES[] = {
        {"RegServer", CRegistrationSwitch::RegServer},
        {"UnregServer", CRegistrationSwitch::UnregServer},
        {"RegServerPerUser", CRegistrationSwitch::RegServerPerUser},
        {"UnregServerPerUser", CRegistrationSwitch::UnregServerPerUser},
    };
    for (const char* mark = strpbrk(commandLine, "-/"); mark != nullptr; mark = strpbrk(mark + 1, "-/")) {
        for (const SwitchName& name : NAMES) {
            if (isWord(mark + 1, name.word)) {
                return name.value;
            }
        }
    }
    return CRegistrationSwitch::None;
}

std::string AtlQuotedForScript(const std::string& path)
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
        std::string path;
        if (const HRESULT hr = executablePath(path); FAILED(hr)) {
            return hr;
        }
        CRegObject registrar(RegistrationScope());
        registrar.AddReplacement("MODULE", AtlQuotedForScript(path));
        AddCommonRGSReplacements(registrar);
        const HMODULE executable = GetModuleHandleA(nullptr);
        return registering ? registrar.ResourceRegister(executable, id) : registrar.ResourceUnregister(executable, id);
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
    // The monitor thread is still there when the loop ended without it.
    m_ending = true;
    SignalShutdown();
    if (m_hMonitorThread != nullptr) {
        WaitForSingleObject(m_hMonitorThread, m_dwTimeOut * 2);
    }
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

int CAtlExeModule::WinMain(int showCommand)
{
    if (m_bInitFailed) {
        return -1;
    }
    HRESULT hr = InitializeCom();
    m_bComInitialized = SUCCEEDED(hr);
    // A managed runtime in the process may have initialised COM in another mode; that one serves as well.
    if (FAILED(hr) && !(hr == RPC_E_CHANGED_MODE && GetModuleHandleA("Mscoree.dll") != nullptr)) {
        return hr;
    }
    const ComScope com(m_bComInitialized);
    hr = S_OK;
    if (ParseCommandLine(GetCommandLineA(), hr)) {
        hr = Run(showCommand);
    }
    return hr;
}

HRESULT CAtlExeModule::InitializeCom() noexcept
{
    return CoInitialize(nullptr);
}

bool CAtlExeModule::ParseCommandLine(const char* commandLine, HRESULT& result)
{
    const CRegistrationSwitch found = AtlFindRegistrationSwitch(commandLine);
    if (found == CRegistrationSwitch::None) {
        return true;
    }
    m_bPerUserRegistration = found == CRegistrationSwitch::RegServerPerUser || found == CRegistrationSwitch::UnregServerPerUser;
    if (found == CRegistrationSwitch::RegServer || found == CRegistrationSwitch::RegServerPerUser) {
        result = UpdateAppId(TRUE);
        if (SUCCEEDED(result)) {
            result = RegisterServer();
        }
    } else {
        result = UnregisterServer();
        if (SUCCEEDED(result)) {
            result = UpdateAppId(FALSE);
        }
    }
    return false;
}

HRESULT CAtlExeModule::RegisterServer()
{
    const CRegistrationScope scope = RegistrationScope();
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        HRESULT hr = entry.updateRegistry(TRUE);
        if (SUCCEEDED(hr)) {
            hr = AtlRegisterCategories(*entry.clsid, entry.getCategoryMap(), scope);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    std::string path;
    const HRESULT hr = executablePath(path);
    return FAILED(hr) ? hr : AtlRegisterTypeLib(path, scope);
}

HRESULT CAtlExeModule::UnregisterServer()
{
    const CRegistrationScope scope = RegistrationScope();
    for (const ATL_OBJMAP_ENTRY& entry : m_objectMap) {
        HRESULT hr = entry.updateRegistry(FALSE);
        if (SUCCEEDED(hr)) {
            hr = AtlUnregisterCategories(*entry.clsid, entry.getCategoryMap(), scope);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    std::string path;
    const HRESULT hr = executablePath(path);
    return FAILED(hr) ? hr : AtlUnRegisterTypeLib(path, scope);
}

HRESULT CAtlExeModule::Run(int showCommand)
{
    HRESULT hr = PreMessageLoop(showCommand);
    if (hr == S_OK) {
        RunMessageLoop();
    }
    if (SUCCEEDED(hr)) {
        hr = PostMessageLoop();
    }
    return hr;
}

HRESULT CAtlExeModule::PreMessageLoop(int /*showCommand*/)
{
    if (const HRESULT hr = RegisterClassObjects(); FAILED(hr)) {
        return hr;
    }
    if (!m_bDelayShutdown) {
        const HRESULT hr = ResumeClassObjects();
        if (FAILED(hr)) {
            RevokeClassObjects();
        }
        return hr;
    }
    // From here on the thread has a message queue, so that a post which finds none means that the thread is gone.
    MSG message;
    PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    if (!StartMonitor()) {
        RevokeClassObjects();
        return E_FAIL;
    }
    const HRESULT hr = ResumeClassObjects();
    if (FAILED(hr)) {
        SignalShutdown();
        WaitForSingleObject(m_hMonitorThread, m_dwTimeOut * 2);
        m_hMonitorThread.Close();
        RevokeClassObjects();
    }
    return hr;
}

void CAtlExeModule::RunMessageLoop()
{
    MSG message;
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
}

HRESULT CAtlExeModule::PostMessageLoop()
{
    const HRESULT hr = RevokeClassObjects();
    if (m_bDelayShutdown) {
        Sleep(m_dwPause);
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
            hr = RegisterClassObject(*entry.clsid, factory, cookie);
        }
        if (FAILED(hr)) {
            return hr;
        }
        m_classObjects.push_back(cookie);
    }
    return S_OK;
}

HRESULT CAtlExeModule::RegisterClassObject(const CLSID& clsid, IUnknown* factory, DWORD& cookie) noexcept
{
    // Single use, deliberately: without REGCLS_MULTIPLEUSE each creation by a client starts a server process of its own.
    return CoRegisterClassObject(clsid, factory, CLSCTX_LOCAL_SERVER, REGCLS_SUSPENDED, &cookie);
}

HRESULT CAtlExeModule::ResumeClassObjects() noexcept
{
    return CoResumeClassObjects();
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

bool CAtlExeModule::SignalShutdown() noexcept
{
    if (m_bInitFailed) {
        return false;
    }
    // Whoever comes after the monitor thread has closed the event finds nothing left to signal.
    const CComCritSecLock lock(m_csShutdown);
    return m_hEventShutdown != nullptr && SetEvent(m_hEventShutdown) != FALSE;
}

BOOL CAtlExeModule::PostQuit() noexcept
{
    return PostThreadMessageA(m_dwMainThreadID, WM_QUIT, 0, 0);
}

void CAtlExeModule::EndMessageLoop() noexcept
{
    // The post fails while the thread's queue is full. Nothing tells when there is room again, so it is tried until it is posted.
    while (!m_ending && !PostQuit()) {
        if (GetLastError() == ERROR_INVALID_THREAD_ID) {
            return;
        }
        if (GetCurrentThreadId() == m_dwMainThreadID) {
            // This thread empties the queue itself: it can only note the end.
            PostQuitMessage(0);
            return;
        }
        Sleep(1);
    }
}

} // namespace ATL
