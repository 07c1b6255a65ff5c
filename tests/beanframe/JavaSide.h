// A recording Java side below the real Java bridge.
#pragma once

#include "javabridge/JavaManagerJNIClient.h"
#include "tests/javabridge/RecordingJni.h"

#include <functional>
#include <regex>
#include <string>
#include <vector>

// While it is alive, the process has a Java bridge, as if a machine had been started.
class JavaSide
{
public:
    JavaSide()
        : m_client(jni)
    {
        CJavaManagerJNIClient::s_Instance = &m_client;
        s_current = this;
        m_recorded = jni.env()->functions;
        m_functions = *m_recorded;
        m_functions.CallVoidMethodV = [](JNIEnv* env, jobject object, jmethodID method, va_list arguments) {
            s_current->m_recorded->CallVoidMethodV(env, object, method, arguments);
            s_current->runInside();
        };
        m_functions.CallObjectMethodV = [](JNIEnv* env, jobject object, jmethodID method, va_list arguments) {
            const jobject answer = s_current->m_recorded->CallObjectMethodV(env, object, method, arguments);
            s_current->runInside();
            return answer;
        };
        m_functions.NewGlobalRef = [](JNIEnv* env, jobject object) {
            return s_current->globalsUntilRefusal-- == 0 ? nullptr : s_current->m_recorded->NewGlobalRef(env, object);
        };
        jni.env()->functions = &m_functions;
    }
    ~JavaSide()
    {
        CJavaManagerJNIClient::s_Instance = nullptr;
        s_current = nullptr;
    }
    JavaSide(const JavaSide&) = delete;
    JavaSide& operator=(const JavaSide&) = delete;

    // The recorded calls of Java methods since the last take, without packages, look-ups and reference handling.
    std::vector<std::string> takeMethodCalls()
    {
        static const std::regex s_package("global [a-z/]+/");
        std::vector<std::string> result = jni.takeCalls();
        std::erase_if(result, [](const std::string& call) { return !call.starts_with("Call"); });
        for (std::string& call : result) {
            call = std::regex_replace(call, s_package, "");
        }
        return result;
    }

    RecordingJni jni;
    // Runs inside each Java method, like Java code that calls a native of the listener.
    std::function<void()> insideMethods;
    // How many global references are created before one fails; if negative, none fails.
    int globalsUntilRefusal = -1;
    // The next frame gets the next id.
    void setLastFrameId(int id) { m_client.setLastFrameId(id); }

private:
    class Client : public CJavaManagerJNIClient
    {
    public:
        explicit Client(RecordingJni& jni)
            : CJavaManagerJNIClient("")
        {
            m_ENV = jni.env();
        }
        ~Client() override = default;
        void setLastFrameId(int id) { m_UniqueWindowID = id; }
    };

    void runInside() const
    {
        if (insideMethods) {
            insideMethods();
        }
    }

    static inline JavaSide* s_current = nullptr;
    Client m_client;
    const JNINativeInterface_* m_recorded;
    JNINativeInterface_ m_functions;
};

// An environment that any number of threads may pass to the natives. A Java string is a pointer to narrow text.
class NativeEnvironment
{
public:
    NativeEnvironment()
    {
        m_functions.GetStringUTFChars = [](JNIEnv*, jstring text, jboolean*) { return reinterpret_cast<const char*>(text); };
        m_functions.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char*) {};
        m_env.functions = &m_functions;
    }
    NativeEnvironment(const NativeEnvironment&) = delete;
    NativeEnvironment& operator=(const NativeEnvironment&) = delete;

    JNIEnv* env() { return &m_env; }
    static jstring text(const char* characters) { return reinterpret_cast<jstring>(const_cast<char*>(characters)); }

private:
    JNINativeInterface_ m_functions = {};
    JNIEnv m_env = {};
};
