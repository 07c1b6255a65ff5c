// A Java virtual machine that runs nothing: it records every JNI call with its arguments, in order, and returns what the test
// says.
//
// One at a time; the main thread only. JNI and invocation functions that the product does not use are null. References stay
// readable after their deletion: a later use appears in the record and does not crash.
#pragma once

#include <jni.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class RecordingJni
{
public:
    RecordingJni();
    ~RecordingJni();
    RecordingJni(const RecordingJni&) = delete;
    RecordingJni& operator=(const RecordingJni&) = delete;

    JNIEnv* env() { return &m_env; }
    JavaVM* vm() { return &m_vm; }

    // What happens in a Java method or constructor.
    struct Outcome
    {
        std::optional<std::string> thrownClass;
        std::optional<std::string> message; // of the exception
        std::optional<std::string> answer;  // the String that comes back; none: null
    };
    static Outcome answers(const std::string& text) { return {{}, {}, text}; }
    static Outcome answersNull() { return {}; }
    static Outcome throws(const std::string& exceptionClass, const std::optional<std::string>& message)
    {
        return {exceptionClass, message, {}};
    }
    // By method name, for a constructor "class.<init>", for a method on one object only "OBJECT: NAME". Other methods answer
    // "answer of NAME".
    std::map<std::string, Outcome> outcomes;
    // Classes and methods that do not exist: a look-up returns null and leaves a Java error pending.
    std::set<std::string> missing;
    // JNI functions that return null from their nth call since the last takeCalls on (1 = the first). NewStringUTF then leaves an
    // OutOfMemoryError pending, as on exhausted memory.
    std::map<std::string, int> nullFrom;
    // The result of RegisterNatives for natives that exist.
    jint registerResult = JNI_OK;
    jint attachResult = JNI_OK;
    jint detachResult = JNI_OK;

    // References for the test's own use.
    jobject global(const std::string& name);
    jclass localClass(const std::string& name);
    jstring localString(const std::optional<std::string>& text);
    // The name of a native function in the record.
    void nameFunction(void* function, const std::string& name) { m_functionNames[function] = name; }
    void raise(const std::string& exceptionClass, const std::optional<std::string>& message);
    // Adds an event of another kind to the record.
    void note(const std::string& event) { record(event); }

    // Called with every line of the record as it is written.
    std::function<void(const std::string&)> onCall;
    // The record since the last call of this. A call made while a Java exception is pending ends in " [pending]".
    std::vector<std::string> takeCalls();
    // Names of the references that were handed out and not deleted, sorted.
    std::vector<std::string> liveLocals() const { return live(Kind::Local); }
    std::vector<std::string> liveGlobals() const { return live(Kind::Global); }
    int heldCharacters() const { return m_heldCharacters; }
    bool isPending() const { return m_pending != nullptr; }
    // The four numbers in the place of setBounds' arguments.
    std::vector<jint> lastBounds;

private:
    enum class Kind { Local, Global };
    struct Object
    {
        Kind kind;
        std::string name;
        std::optional<std::string> text; // of a string
        std::optional<std::string> message;
        bool isDeleted = false;
    };
    struct Method
    {
        std::string ofClass;
        std::string name;
        std::string signature;
    };

    std::vector<std::string> live(Kind kind) const;
    void record(const std::string& call);
    bool isNull(const std::string& function);
    Object* make(Kind kind, const std::string& name);
    std::string nameOf(jobject object) const;
    std::string argumentsText(const Method& method, va_list arguments);
    // Notes the call of a method and does what the test said; the answer is a String's text.
    Outcome run(const std::string& function, jobject object, jmethodID id, va_list arguments);
    void remove(const std::string& function, jobject object, Kind kind);
    static JNINativeInterface_ functions();
    static JNIInvokeInterface_ invocation();

    static RecordingJni* s_current;
    JNIEnv m_env = {};
    JavaVM m_vm = {};
    std::deque<Object> m_objects;
    std::deque<Method> m_methods;
    std::map<void*, std::string> m_functionNames;
    std::map<std::string, int> m_callCounts;
    std::vector<std::string> m_calls;
    Object* m_pending = nullptr;
    int m_heldCharacters = 0;
};
