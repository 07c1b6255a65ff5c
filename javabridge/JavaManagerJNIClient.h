// The one Java virtual machine of the process and everything done through JNI: runtime discovery, start and end of the VM,
// frame, bean and listener, forwarding of the client's calls, capture of Java exceptions.
//
// Ownership: the singleton owns the class references and the loaded jvm.dll. Bean, frame and listener are global references
//            that it creates; the caller keeps them, passes them to each operation and in the end to stopBean, which deletes
//            them. The VM itself is never destroyed: its threads end with the process.
// Threads:   the main thread only (the one that created the VM and owns m_ENV), singleton creation and removal included.
// Failure:   HRESULTs, S_OK or E_FAIL unless stated; the reason is in the log. Java exceptions and errors are logged and cleared
//            at once, those of look-ups and constructors included. Without a VM look-ups return null and each operation
//            fails at its own check; a null class, method or receiver never reaches a JNI function. Only the forwarding
//            operations throw: CAtlException, for exhausted memory or a failed code page conversion.
#pragma once

#include "javabridge/JavaManagerJNIClientSettings.h"
#include "javabridge/LocalReference.h"
#include "support/logger.h"

#include <oaidl.h>

#include <string>

class CJavaManagerJNIClient : public virtual Loggable
{
public:
    // Creates the singleton when there is none, chooses a runtime and starts the VM. The singleton stays when the VM
    // does not start. `basisControlPath` is not copied and must outlive this call.
    static void createInstance(const char* basisControlPath);
    // Detaches the thread, unloads the library and removes the singleton. Returns 0, also without a singleton.
    static int cleanUp();
    // Null before createInstance and after cleanUp.
    static CJavaManagerJNIClient* s_Instance;

    // Lifecycle of one control, in the order of use. The first three parameters of startBean and the first of regEventListener
    // are outputs. regEventListener does not use `frame`.
    HRESULT startBean(jobject* beanObject, jobject* frameObject, int* frameID, const char* bean_package, const char* bean_class);
    HRESULT regEventListener(jobject* listener, jobject frame, jobject bean);
    HRESULT addBean(jobject frame, jobject bean);
    // Always S_OK; releases whatever is not null.
    HRESULT stopBean(jobject bean, jobject frame, jobject listener);

    HRESULT setFrameFocusableWindowState(jobject frame, bool value);
    HRESULT setFrameAlwaysOnTop(jobject frame, bool value);
    HRESULT setFrameUndecorated(jobject frame, bool value);
    HRESULT setFrameVisible(jobject frame, bool value);
    HRESULT setFrameEnabled(jobject frame, bool value);
    // The four values are logged and not passed to Java. Deliberate: what the frame receives is undefined, hosts move the window
    // themselves.
    HRESULT setFrameBounds(jobject frame, int x, int y, int width, int height);
    HRESULT validateFrameAndBean(jobject frame, jobject bean);

    // Forwarding to the Java method of the same name. `result` receives a new BSTR that the caller owns, on success only; its
    // previous content is not freed. A null Java string becomes an empty result.
    HRESULT callMethod(jobject bean, BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT callMethodCompressed(jobject bean, BSTR arg0, int arg1, BSTR arg2, BSTR* result);
    HRESULT displayDebugConsole(jobject bean, BSTR* result);
    HRESULT free(jobject bean, BSTR* result);
    HRESULT getBasisControlVersionInfo(jobject bean, BSTR* result);
    HRESULT getProperty(jobject bean, BSTR arg0, BSTR* result);
    HRESULT getVersionInfo(jobject bean, BSTR arg0, BSTR* result);
    HRESULT setLogLevel(jobject bean, int arg0, BSTR* result);
    HRESULT setProperty(jobject bean, BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT setUsedControl(jobject frame, jobject bean, BSTR arg0, BSTR arg1, BSTR* result);
    HRESULT updateVersion(jobject bean, BSTR arg0, BSTR* result);
    HRESULT testBridge(jobject listener, const wchar_t* text, int ttl, int delay);

protected:
    // What the Java side has to have besides the bean, and the signature of the bean's methods for listeners.
    static constexpr char FRAME_CLASS[] = "com/velmora/tq/kesta/KESTAFrame";
    static constexpr char LISTENER_CLASS[] = "com/velmora/tq/kesta/KESTAListener";
    static constexpr char LISTENER_SETTER[] = "(Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;)V";
    // A class's name as JNI writes it.
    static std::string jniClassName(const char* package, const char* name);

    explicit CJavaManagerJNIClient(const char* basisControlPath);
    ~CJavaManagerJNIClient() override;
    CJavaManagerJNIClient(const CJavaManagerJNIClient&) = delete;
    CJavaManagerJNIClient& operator=(const CJavaManagerJNIClient&) = delete;

    // Start and end of the VM, in the order of use.
    JVMInfo findJVM();
    std::string findORVControls();
    int loadJVMlibrary(const char* filename);
    int createJVM(JVMInfo jvm_info);
    unsigned int destroyJVM();
    // Says in the log why a file could not be loaded as a library of this process.
    void diagnoseLibrary(const char* filename);

    int createUniqueID();
    HRESULT registerNative(jclass listenerClass, const char* name, const char* signature, void* function);
    HRESULT callBooleanSetterOnFrame(jobject frame, const char* methodName, bool value);

    // True when no Java exception was pending; otherwise it is logged and cleared.
    bool checkNoJNIException();

    // Returns the result of a look-up or constructor; if it is null, logs and clears its error.
    template <class Found>
    Found captured(Found found)
    {
        if (found == nullptr) {
            checkNoJNIException();
        }
        return found;
    }
    // Without a VM, or when the class or `object` (on which the method will be called) is null, look-ups return null without
    // calling JNI.
    jclass findClass(const char* name);
    jmethodID findMethod(jclass objectClass, const char* name, const char* signature);
    jmethodID findMethod(jobject object, jclass objectClass, const char* name, const char* signature);
    // Without class or constructor, returns null and calls nothing.
    template <class... Arguments>
    LocalReference<jobject> newObject(jclass objectClass, jmethodID constructor, Arguments... arguments);
    jobject toGlobalReference(LocalReference<jobject> local);
    void deleteGlobalReference(jobject object);

    // Converts the arguments to Java's, passes them to `call` and checks for an exception; a text that cannot be converted counts
    // as an exception. On failure the references of the texts deliberately stay until the thread ends.
    template <class Call, class... Arguments>
    HRESULT callJava(const Call& call, Arguments... arguments);
    // The common end of the operations that forward to the bean. On failure the result is not written.
    template <class... Arguments>
    HRESULT forward(jobject bean, jmethodID method, BSTR* result, Arguments... arguments);

    JavaVM* m_JVM = nullptr;
    JNIEnv* m_ENV = nullptr;
    JavaVMInitArgs m_JVMArguments = {};
    HMODULE m_DLLHandle = nullptr;
    const char* m_BasisControlPath;
    const char* m_ExecutablePath = nullptr; // whose policy file counts; null for this process's own
    jclass m_BeanClass = nullptr;
    jclass m_FrameClass = nullptr;
    jclass m_ListenerClass = nullptr;
    int m_UniqueWindowID = -1;
};
