#include "bench/bareJava.h"

#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

template <class Function>
Function* machineFunction(HMODULE library, const char* name)
{
    auto* const found = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    if (!found) {
        throw std::runtime_error(std::string("no Java virtual machine: ") + name);
    }
    return found;
}

template <class Reference>
Reference checked(JNIEnv* env, Reference reference, const char* what)
{
    if (!reference || env->ExceptionCheck()) {
        env->ExceptionDescribe();
        throw std::runtime_error(std::string("Java: ") + what);
    }
    return reference;
}

} // namespace

JNIEnv* startMachine(const std::string& library, const std::vector<std::string>& options)
{
    const HMODULE module = LoadLibraryA(library.c_str());
    auto* const create = machineFunction<jint JNICALL(JavaVM**, void**, void*)>(module, "JNI_CreateJavaVM");
    std::vector<JavaVMOption> texts;
    for (const std::string& option : options) {
        texts.push_back({const_cast<char*>(option.c_str()), nullptr});
    }
    JavaVMInitArgs arguments = {JNI_VERSION_1_6, static_cast<jint>(texts.size()), texts.data(), JNI_TRUE};
    JavaVM* machine = nullptr;
    void* env = nullptr;
    if (create(&machine, &env, &arguments) != JNI_OK) {
        throw std::runtime_error("JNI_CreateJavaVM failed");
    }
    return static_cast<JNIEnv*>(env);
}

JNIEnv* runningMachine()
{
    auto* const find =
        machineFunction<jint JNICALL(JavaVM**, jsize, jsize*)>(GetModuleHandleA("jvm.dll"), "JNI_GetCreatedJavaVMs");
    JavaVM* machine = nullptr;
    jsize count = 0;
    void* env = nullptr;
    if (find(&machine, 1, &count) != JNI_OK || count != 1 || machine->AttachCurrentThread(&env, nullptr) != JNI_OK) {
        throw std::runtime_error("no Java virtual machine is running");
    }
    return static_cast<JNIEnv*>(env);
}

jobject newControl(JNIEnv* env)
{
    const jclass control = checked(env, env->FindClass(CONTROL_CLASS), CONTROL_CLASS);
    return checked(env, env->NewObject(control, env->GetMethodID(control, "<init>", "()V")), "new control");
}

jobject showFrame(JNIEnv* env, const std::string& name)
{
    const jclass type = checked(env, env->FindClass(FRAME_CLASS), FRAME_CLASS);
    const jmethodID constructor = env->GetMethodID(type, "<init>", "(Ljava/lang/String;)V");
    const jobject frame = checked(env, env->NewObject(type, constructor, env->NewStringUTF(name.c_str())), "new frame");
    // Like the server's frame: undecorated, and not focusable.
    env->CallVoidMethod(frame, env->GetMethodID(type, "setFocusableWindowState", "(Z)V"), JNI_FALSE);
    env->CallVoidMethod(frame, env->GetMethodID(type, "setUndecorated", "(Z)V"), JNI_TRUE);
    env->CallVoidMethod(frame, env->GetMethodID(type, "setVisible", "(Z)V"), JNI_TRUE);
    return checked(env, frame, "setVisible");
}

jstring toJava(JNIEnv* env, BSTR text)
{
    const int length = static_cast<int>(SysStringLen(text));
    const int needed = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, length, narrow.data(), needed, nullptr, nullptr);
    return env->NewStringUTF(narrow.c_str());
}

BSTR toBstr(JNIEnv* env, jstring text)
{
    const char* const characters = env->GetStringUTFChars(text, nullptr);
    const int length = static_cast<int>(std::strlen(characters));
    const int needed = MultiByteToWideChar(CP_ACP, 0, characters, length, nullptr, 0);
    const BSTR wide = SysAllocStringLen(nullptr, static_cast<UINT>(needed));
    MultiByteToWideChar(CP_ACP, 0, characters, length, wide, needed);
    env->ReleaseStringUTFChars(text, characters);
    return wide;
}

BSTR callMethod(JNIEnv* env, jobject control, jmethodID method, BSTR name, BSTR value)
{
    const jstring javaName = toJava(env, name);
    const jstring javaValue = toJava(env, value);
    const auto answer = static_cast<jstring>(env->CallObjectMethod(control, method, javaName, javaValue));
    if (env->ExceptionCheck()) {
        return nullptr;
    }
    env->DeleteLocalRef(javaName);
    env->DeleteLocalRef(javaValue);
    const BSTR result = toBstr(env, answer);
    env->DeleteLocalRef(answer);
    return result;
}

BSTR lookUpAndCallMethod(JNIEnv* env, jobject control, jclass type, BSTR name, BSTR value)
{
    const jmethodID method = env->GetMethodID(type, "callMethod", CALL_SIGNATURE);
    return callMethod(env, control, method, name, value);
}

} // namespace bench
