// The singleton, and the Java virtual machine from the loading of its library to the end of the process.
#include "javabridge/JavaManagerJNIClient.h"

#include "atl/atl.h"

#include <cstdint>
#include <format>
#include <fstream>
#include <new>
#include <utility>
#include <vector>

#define LOG_SOURCE "JavaManagerJNIClient"

CJavaManagerJNIClient* CJavaManagerJNIClient::s_Instance = nullptr;

CJavaManagerJNIClient::CJavaManagerJNIClient(const char* basisControlPath)
    : m_BasisControlPath(basisControlPath)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::CJavaManagerJNIClient", basisControlPath);
}

CJavaManagerJNIClient::~CJavaManagerJNIClient()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::~CJavaManagerJNIClient");
}

void CJavaManagerJNIClient::createInstance(const char* basisControlPath)
{
    LOG_SCOPE_STATIC(FINE, "CJavaManagerJNIClient::createInstance");
    if (s_Instance == nullptr) {
        const HRESULT hr = AtlGuard([&] {
            s_Instance = new CJavaManagerJNIClient(basisControlPath);
            // The singleton stays even if the VM does not start: every operation then fails at its own check.
            s_Instance->createJVM(s_Instance->findJVM());
            return S_OK;
        });
        if (FAILED(hr)) {
            LOG(ERROR, "Java virtual machine was not started: " << std::hex << hr);
        }
    }
    if (s_Instance != nullptr) {
        LOG(TRACE, "CHECKPOINT: Successfully created JavaManagerJNIClient Singleton.");
    }
}

int CJavaManagerJNIClient::cleanUp()
{
    LOG_SCOPE_STATIC(FINE, "CJavaManagerJNIClient::cleanUp");
    if (s_Instance != nullptr) {
        s_Instance->destroyJVM();
        delete s_Instance;
        s_Instance = nullptr;
    }
    LOG(TRACE, "CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.");
    return 0;
}

void CJavaManagerJNIClient::diagnoseLibrary(const char* filename)
{
    std::ifstream binaryFile(filename, std::ios::binary);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpointer-arith" // the log line shows the comparison as it is written
    if (!LOG_CONDITION((bool)binaryFile != NULL)) {
        return;
    }
#pragma GCC diagnostic pop
    const std::optional<uint16_t> header = readLibraryMachine(binaryFile);
    if (!header.has_value()) {
        LOG(WARN, "Java Client Library (jvm.dll) does not contain any PE header");
        return;
    }
    // The widening is signed, deliberately: 0x8664 becomes 0xffff8664 and is reported as unknown.
    const int machine = static_cast<int16_t>(*header);
    if (machine == 0x014C) {
        LOG(WARN, "Java JRE for 32-bit platform");
    } else if (machine == 0x8664 || machine == 0x0200) {
        LOG(WARN, "Java JRE for 64-bit platform");
    } else {
        LOG(WARN, std::format("Java JRE for unknown platform ({:x})", static_cast<unsigned>(machine)));
    }
}

int CJavaManagerJNIClient::loadJVMlibrary(const char* filename)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::loadJVMlibrary", filename);
    // The runtime's bin folder, where the library finds the DLLs that it needs.
    const std::string loadFolder = std::string(filename) + "\\..\\..\\";
    char savedFolder[MAX_PATH + 1] = "";
    GetCurrentDirectoryA(sizeof savedFolder, savedFolder);
    SetCurrentDirectoryA(loadFolder.c_str());
    m_DLLHandle = LoadLibraryA(filename);
    const DWORD error = GetLastError();
    SetCurrentDirectoryA(savedFolder);
    LOG(FINE, "Used " << loadFolder << " as current folder while loading JVM, using " << savedFolder << " again.");
    if (!LOG_WIN32_WITH(m_DLLHandle != NULL, error)) {
        diagnoseLibrary(filename);
    }
    RETURN_IF_FALSE(m_DLLHandle != NULL, E_FAIL);
    return 0;
}

namespace {

using CreateJavaVM = jint JNICALL(JavaVM** machine, void** environment, void* arguments);

// Keeps the library loaded despite a later FreeLibrary, because the VM's threads run in it.
void pinModuleOf(CreateJavaVM* function)
{
    HMODULE pinned = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const char*>(function), &pinned);
}

} // namespace

int CJavaManagerJNIClient::createJVM(JVMInfo jvm_info)
{
    LOG_SCOPE(INFO, "CJavaManagerJNIClient::createJVM");
    std::vector<std::string> options = {"-Djava.class.path=" + findORVControls()};
    LOG(FINE, "Class Path: " << options.front());
    RETURN_IF_FAILED(loadJVMlibrary(jvm_info.path.c_str()));
    auto* const CreateJavaVMProc =
        reinterpret_cast<CreateJavaVM*>(reinterpret_cast<void*>(GetProcAddress(m_DLLHandle, "JNI_CreateJavaVM")));
    RETURN_IF_FALSE(CreateJavaVMProc != NULL, E_FAIL);

    for (MachineOption& option : readMachineOptions(m_ExecutablePath, currentLogSettings(), this)) {
        options.push_back(std::move(option.text));
    }
    if (jvm_info.version.compare(0, 3, "1.6") < 0) {
        m_JVMArguments.version = JNI_VERSION_1_4;
        LOG(FINE, "JNI 1.4 selected");
    } else {
        m_JVMArguments.version = JNI_VERSION_1_6;
        LOG(FINE, "JNI 1.6 selected");
    }
    m_JVMArguments.ignoreUnrecognized = JNI_TRUE;
    m_JVMArguments.nOptions = static_cast<jint>(options.size());
    // Never freed, as the VM is never destroyed. The texts only need to live until it has been created: it copies them.
    m_JVMArguments.options = new (std::nothrow) JavaVMOption[options.size()]();
    RETURN_IF_FALSE(m_JVMArguments.options != NULL, E_FAIL);
    for (size_t index = 0; index < options.size(); index++) {
        m_JVMArguments.options[index].optionString = options[index].data();
    }

    LOG(FINE, "About to call JNI_CreateJavaVM");
    pinModuleOf(CreateJavaVMProc);
    RETURN_IF_JNI_FAILED(CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments), E_FAIL);
    RETURN_IF_JNI_FAILED(m_JVM->AttachCurrentThread((void**)&m_ENV, NULL), E_FAIL);
    return 0;
}

unsigned int CJavaManagerJNIClient::destroyJVM()
{
    LOG_SCOPE(INFO, "CJavaManagerJNIClient::destroyJVM");
    for (const jclass reference : {m_BeanClass, m_FrameClass, m_ListenerClass}) {
        if (reference != nullptr) {
            m_ENV->DeleteLocalRef(reference);
        }
    }
    if (m_JVM != nullptr) {
        RETURN_IF_JNI_FAILED(m_JVM->DetachCurrentThread(), static_cast<unsigned int>(E_FAIL));
    }
    // The VM is not destroyed: its threads end with the process.
    if (m_DLLHandle != nullptr) {
        LOG_WIN32(FreeLibrary(m_DLLHandle));
    }
    return 0;
}
