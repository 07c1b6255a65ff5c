// Stand-in for a runtime's jvm.dll: records its calls and fails on order.
//
// Record:  PATH\jvm.record, one line an event: "loaded in FOLDER", "create in FOLDER", "version 00010006",
//          "ignoreUnrecognized 1", "option TEXT" (each, in order), "attach", "find CLASS", "detach", "unloaded".
// Orders:  PATH\jvm.orders, read at every call, lines of a word and a number:
//              create -6     JNI_CreateJavaVM returns this
//              exit 1        the process ends inside JNI_CreateJavaVM, as when a virtual machine cannot continue
//              attach -1     AttachCurrentThread returns this, and no environment
//              detach -1     DetachCurrentThread returns this
// Environments: creation and AttachCurrentThread return different ones; the record shows where the former is used.
// Threads: the thread that creates the machine.
// Failure: functions that the environment lacks (all but FindClass, which finds nothing, and ExceptionCheck) end the
//          process with exit code 99.
#define _JNI_IMPLEMENTATION_
#include <jni.h>

#include <windows.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

HMODULE s_module = nullptr;

// The library's own path with another extension.
std::string besideLibrary(const std::string& extension)
{
    char path[MAX_PATH] = "";
    GetModuleFileNameA(s_module, path, sizeof path);
    const std::string library = path;
    return library.substr(0, library.rfind('.')) + extension;
}

void record(const std::string& line)
{
    std::ofstream(besideLibrary(".record"), std::ios::app) << line << std::endl;
}

int ordered(const std::string& word, int otherwise)
{
    std::ifstream orders(besideLibrary(".orders"));
    std::string found;
    int number = 0;
    while (orders >> found >> number) {
        if (found == word) {
            return number;
        }
    }
    return otherwise;
}

std::string currentFolder()
{
    char folder[MAX_PATH] = "";
    GetCurrentDirectoryA(sizeof folder, folder);
    return folder;
}

void JNICALL notOffered()
{
    std::fprintf(stderr, "This virtual machine is a stand-in and does not offer what was called.\n");
    ExitProcess(99);
}

bool isAttached(const JNIEnv* env);

jclass JNICALL findClass(JNIEnv* env, const char* name)
{
    record(std::string("find ") + name + (isAttached(env) ? "" : " in the environment of the creation"));
    return nullptr;
}

jboolean JNICALL exceptionCheck(JNIEnv*)
{
    return JNI_FALSE;
}

template <class Table>
Table emptyTable()
{
    Table table;
    auto* const functions = reinterpret_cast<void (**)()>(&table);
    for (size_t index = 0; index < sizeof table / sizeof *functions; index++) {
        functions[index] = notOffered;
    }
    return table;
}

struct Environments
{
    JNIEnv created;
    JNIEnv attached;
};

Environments& environments()
{
    static JNINativeInterface_ s_functions = [] {
        auto table = emptyTable<JNINativeInterface_>();
        table.FindClass = findClass;
        table.ExceptionCheck = exceptionCheck;
        return table;
    }();
    static Environments s_environments = {{&s_functions}, {&s_functions}};
    return s_environments;
}

bool isAttached(const JNIEnv* env)
{
    return env == &environments().attached;
}

jint JNICALL attachCurrentThread(JavaVM*, void** env, void* arguments)
{
    record(arguments == nullptr ? "attach" : "attach with arguments");
    const int result = ordered("attach", JNI_OK);
    if (result == JNI_OK) {
        *env = &environments().attached;
    }
    return result;
}

jint JNICALL detachCurrentThread(JavaVM*)
{
    record("detach");
    return ordered("detach", JNI_OK);
}

JavaVM* machine()
{
    static JNIInvokeInterface_ s_functions = [] {
        auto table = emptyTable<JNIInvokeInterface_>();
        table.AttachCurrentThread = attachCurrentThread;
        table.DetachCurrentThread = detachCurrentThread;
        return table;
    }();
    static JavaVM s_machine = {&s_functions};
    return &s_machine;
}

std::string hexadecimal(jint number)
{
    char text[9] = "";
    std::snprintf(text, sizeof text, "%08lx", static_cast<unsigned long>(number));
    return text;
}

} // namespace

extern "C" JNIEXPORT jint JNICALL JNI_CreateJavaVM(JavaVM** vm, void** env, void* arguments)
{
    const auto& given = *static_cast<const JavaVMInitArgs*>(arguments);
    record("create in " + currentFolder());
    record("version " + hexadecimal(given.version));
    record("ignoreUnrecognized " + std::to_string(given.ignoreUnrecognized));
    for (jint index = 0; index < given.nOptions; index++) {
        const JavaVMOption& option = given.options[index];
        record(std::string("option ") + option.optionString + (option.extraInfo == nullptr ? "" : " with extra information"));
    }
    if (const int code = ordered("exit", 0); code != 0) {
        ExitProcess(static_cast<UINT>(code));
    }
    const int result = ordered("create", JNI_OK);
    if (result == JNI_OK) {
        *vm = machine();
        *env = &environments().created;
    }
    return result;
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID processEnds)
{
    s_module = instance;
    if (reason == DLL_PROCESS_ATTACH) {
        record("loaded in " + currentFolder());
    } else if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
        record("unloaded");
    }
    return TRUE;
}
