// A Java side that records instead of running, under the real Java bridge.
#pragma once

#include "javabridge/JavaManagerJNIClient.h"
#include "tests/javabridge/RecordingJni.h"

#include <functional>
#include <string>
#include <vector>

// While it is alive it is the process's Java bridge, as if a machine had been started.
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
        m_functions.CallVoidMethodV = callVoidMethod;
        m_functions.CallObjectMethodV = callObjectMethod;
        m_functions.NewGlobalRef = newGlobalRef;
        jni.env()->functions = &m_functions;
    }
    ~JavaSide()
    {
        CJavaManagerJNIClient::s_Instance = nullptr;
        s_current = nullptr;
    }
    JavaSide(const JavaSide&) = delete;
    JavaSide& operator=(const JavaSide&) = delete;

    // The record's calls of Java methods since the last take, without look-ups and reference keeping.
    std::vector<std::string> takeMethodCalls()
    {
        std::vector<std::string> result;
        for (const std::string& call : jni.takeCalls()) {
            if (call.starts_with("Call") || call.starts_with("NewObject(")) {
                result.push_back(call);
            }
        }
        return result;
    }

    RecordingJni jni;
    // Runs inside each Java method without result, as Java code does that calls a native of the listener.
    std::function<void()> insideVoidMethods;
    // The same for methods with a result.
    std::function<void()> insideObjectMethods;
    // How many global references are still given before one is refused; a negative number refuses none.
    int globalsUntilRefusal = -1;
    // The next frame gets the id that follows.
    void setLastFrameId(int id) { m_client.setLastFrameId(id); }

private:
    static void JNICALL callVoidMethod(JNIEnv* env, jobject object, jmethodID method, va_list arguments)
    {
        s_current->m_recorded->CallVoidMethodV(env, object, method, arguments);
        if (s_current->insideVoidMethods) {
            s_current->insideVoidMethods();
        }
    }
    static jobject JNICALL callObjectMethod(JNIEnv* env, jobject object, jmethodID method, va_list arguments)
    {
        const jobject answer = s_current->m_recorded->CallObjectMethodV(env, object, method, arguments);
        if (s_current->insideObjectMethods) {
            s_current->insideObjectMethods();
        }
        return answer;
    }
    static jobject JNICALL newGlobalRef(JNIEnv* env, jobject object)
    {
        return s_current->globalsUntilRefusal-- == 0 ? nullptr : s_current->m_recorded->NewGlobalRef(env, object);
    }

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
    static inline JavaSide* s_current = nullptr;
    Client m_client;
    const JNINativeInterface_* m_recorded;
    JNINativeInterface_ m_functions;
};

// An environment that any number of threads may pass to the natives: a Java string is the narrow text that its reference points
// to.
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
