// The other side of the comparisons across processes, with as little code as possible: a single-use COM server for IJavaManager
// that answers with constants. Its command line says what else it does:
//     constant   nothing
//     java       starts a Java virtual machine when the object is created, shows the control's frame, and passes callMethod on
//                to the control, on its main thread like the server
//     host       starts and shows the same without any COM; prints "ready" and waits until it is killed
#include "bench/bareJava.h"
#include "bench/servers.h"

#include <cstdio>
#include <fstream>
#include <optional>
#include <string_view>

namespace {

constexpr wchar_t ANSWER[] = L"a text of the usual length";
constexpr int FRAME_ID = 1;

struct SJava
{
    JNIEnv* env;
    jobject control;
    jclass type;
};

bool s_withJava = false;
std::optional<SJava> s_java;

void startJava()
{
    std::ifstream file(fixtures::programFolder() + "\\" + bench::BARE_MACHINE);
    std::string library;
    std::getline(file, library);
    std::vector<std::string> options;
    for (std::string line; std::getline(file, line);) {
        options.push_back(line);
    }
    JNIEnv* const env = bench::startMachine(library, options);
    const jobject control = bench::newControl(env);
    bench::showFrame(env, "bare_frame");
    s_java = {env, control, env->GetObjectClass(control)};
}

HRESULT constant(BSTR* result)
{
    *result = SysAllocString(ANSWER);
    return S_OK;
}

class CBareObject final : public IJavaManager
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IJavaManager;
        *object = known ? this : nullptr;
        return known ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) {
            PostQuitMessage(0);
        }
        return left;
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 1, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override { return *info = typeInfo().Detach(), S_OK; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        return typeInfo()->GetIDsOfNames(names, count, ids);
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                        UINT* argumentError) override
    {
        return typeInfo()->Invoke(static_cast<IJavaManager*>(this), id, flags, parameters, result, exception, argumentError);
    }

    STDMETHODIMP callMethod(BSTR name, BSTR value, BSTR* result) override
    {
        if (!s_java) {
            return constant(result);
        }
        *result = bench::lookUpAndCallMethod(s_java->env, s_java->control, s_java->type, name, value);
        return *result ? S_OK : E_FAIL;
    }
    STDMETHODIMP callMethodCompressed(BSTR, int, BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP displayDebugConsole(BSTR* result) override { return constant(result); }
    STDMETHODIMP free(BSTR* result) override { return constant(result); }
    STDMETHODIMP getBasisControlVersionInfo(BSTR* result) override { return constant(result); }
    STDMETHODIMP getProperty(BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP getVersionInfo(BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP setLogLevel(int, BSTR* result) override { return constant(result); }
    STDMETHODIMP setProperty(BSTR, BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP setUsedControl(BSTR, BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP updateVersion(BSTR, BSTR* result) override { return constant(result); }
    STDMETHODIMP getBeanFrameID(int* uid) override { return *uid = FRAME_ID, S_OK; }
    STDMETHODIMP validate() override { return S_OK; }
    STDMETHODIMP setBounds(int, int, int, int) override { return S_OK; }
    STDMETHODIMP testBridge(BSTR, int, int) override { return S_OK; }
    STDMETHODIMP enable(VARIANT_BOOL) override { return S_OK; }
    STDMETHODIMP pushWindowHandle(int) override { return S_OK; }

private:
    static ATL::CComPtr<ITypeInfo> typeInfo()
    {
        static const ATL::CComPtr<ITypeInfo> s_info = [] {
            ATL::CComPtr<ITypeLib> library;
            ATL::CComPtr<ITypeInfo> info;
            if (FAILED(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, LOCALE_USER_DEFAULT, &library)) ||
                FAILED(library->GetTypeInfoOfGuid(IID_IJavaManager, &info))) {
                std::abort();
            }
            return info;
        }();
        return s_info;
    }

    ULONG m_references = 0;
};

class CBareFactory final : public IClassFactory
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IClassFactory;
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    // Lives as long as the process.
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** object) override
    {
        static CBareObject s_object;
        if (s_withJava) {
            startJava();
        }
        return s_object.QueryInterface(iid, object);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

void runMessageLoop()
{
    MSG message;
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    try {
        if (mode == "host") {
            startJava();
            std::puts("ready");
            std::fflush(stdout);
            runMessageLoop();
            return 0;
        }
        s_withJava = mode == "java";
        CoInitialize(nullptr);
        CBareFactory factory;
        DWORD cookie = 0;
        const CLSID& clsid = s_withJava ? bench::CLSID_BARE_JAVA : bench::CLSID_BARE;
        if (FAILED(CoRegisterClassObject(clsid, &factory, CLSCTX_LOCAL_SERVER, REGCLS_SINGLEUSE, &cookie))) {
            return 1;
        }
        runMessageLoop();
        CoUninitialize();
        return 0;
    } catch (const std::exception& failure) {
        std::puts(failure.what());
        return 1;
    }
}
