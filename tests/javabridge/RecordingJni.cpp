#include "tests/javabridge/RecordingJni.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

RecordingJni* RecordingJni::s_current = nullptr;

namespace {

template <class Table, size_t Index>
void JNICALL unexpected()
{
    std::fprintf(stderr, "The product called function %zu of the table of %zu, which this recording does not know.\n", Index,
                 sizeof(Table) / sizeof(void*));
    std::fflush(stderr);
    std::abort();
}

template <class Table>
Table unexpectedTable()
{
    Table table;
    [&]<size_t... Indices>(std::index_sequence<Indices...>) {
        void(JNICALL* const functions[])() = {unexpected<Table, Indices>...};
        static_assert(sizeof table == sizeof functions);
        std::memcpy(&table, functions, sizeof table);
    }(std::make_index_sequence<sizeof(Table) / sizeof(void*)>());
    return table;
}

// "class a/b/C" of a class reference, as look-ups name it.
std::string classNameOf(const std::string& referenceName)
{
    return referenceName.substr(std::strlen("class "));
}

} // namespace

// The functions of the two tables.
struct RecordingFunctions
{
    using Object = RecordingJni::Object;
    using Kind = RecordingJni::Kind;
    using Method = RecordingJni::Method;

    static RecordingJni& self() { return *RecordingJni::s_current; }
    template <class Reference>
    static Reference as(Object* object)
    {
        return reinterpret_cast<Reference>(object);
    }

    static jclass JNICALL findClass(JNIEnv*, const char* name)
    {
        self().record(std::string("FindClass(") + name + ")");
        if (self().missing.contains(name)) {
            self().raise("java.lang.NoClassDefFoundError", name);
            return nullptr;
        }
        return self().isNull("FindClass") ? nullptr : as<jclass>(self().make(Kind::Local, std::string("class ") + name));
    }

    static jmethodID JNICALL getMethodID(JNIEnv*, jclass objectClass, const char* name, const char* signature)
    {
        const std::string className = self().nameOf(objectClass);
        self().record("GetMethodID(" + className + ", " + name + ", " + signature + ")");
        if (self().missing.contains(name) || self().missing.contains(classNameOf(className) + "." + name)) {
            self().raise("java.lang.NoSuchMethodError", name);
            return nullptr;
        }
        if (self().isNull("GetMethodID")) {
            return nullptr;
        }
        self().m_methods.push_back({classNameOf(className), name, signature});
        return reinterpret_cast<jmethodID>(&self().m_methods.back());
    }

    static const Method& method(jmethodID id) { return *reinterpret_cast<const Method*>(id); }

    static jobject JNICALL newObject(JNIEnv*, jclass objectClass, jmethodID id, va_list arguments)
    {
        const auto outcome = self().run("NewObject", objectClass, method(id), arguments);
        if (outcome.thrownClass || self().isNull("NewObject")) {
            return nullptr;
        }
        return as<jobject>(self().make(Kind::Local, "local " + classNameOf(self().nameOf(objectClass))));
    }

    static jobject JNICALL callObjectMethod(JNIEnv*, jobject object, jmethodID id, va_list arguments)
    {
        const auto outcome = self().run("CallObjectMethod", object, method(id), arguments);
        if (outcome.thrownClass || !outcome.answer) {
            return nullptr;
        }
        const std::string& signature = method(id).signature;
        return signature.ends_with(")Ljava/lang/String;") ? self().localString(outcome.answer)
                                                          : as<jobject>(self().make(Kind::Local, "local " + *outcome.answer));
    }

    static void JNICALL callVoidMethod(JNIEnv*, jobject object, jmethodID id, va_list arguments)
    {
        self().run("CallVoidMethod", object, method(id), arguments);
    }

    static jint JNICALL registerNatives(JNIEnv*, jclass objectClass, const JNINativeMethod* methods, jint count)
    {
        std::string text = "RegisterNatives(" + self().nameOf(objectClass);
        for (jint index = 0; index < count; index++) {
            const auto function = self().m_functionNames.find(methods[index].fnPtr);
            text += std::string(", ") + methods[index].name + " " + methods[index].signature + " " +
                    (function == self().m_functionNames.end() ? "unknown function" : function->second);
        }
        self().record(text + ")");
        if (self().missing.contains(methods->name)) {
            self().raise("java.lang.NoSuchMethodError", methods->name);
            return JNI_ERR;
        }
        return self().registerResult;
    }

    static jobject JNICALL newGlobalRef(JNIEnv*, jobject object)
    {
        const std::string name = self().nameOf(object);
        self().record("NewGlobalRef(" + name + ")");
        return as<jobject>(self().make(Kind::Global, "global " + name.substr(std::strlen("local "))));
    }

    static void remove(const std::string& function, jobject object, Kind kind)
    {
        self().record(function + "(" + self().nameOf(object) + ")");
        auto* const reference = reinterpret_cast<Object*>(object);
        if (reference == nullptr || reference->kind != kind || reference->isDeleted) {
            std::fprintf(stderr, "%s was given what it must not delete: %s\n", function.c_str(), self().nameOf(object).c_str());
            std::fflush(stderr);
            std::abort();
        }
        reference->isDeleted = true;
    }
    static void JNICALL deleteGlobalRef(JNIEnv*, jobject object) { remove("DeleteGlobalRef", object, Kind::Global); }
    static void JNICALL deleteLocalRef(JNIEnv*, jobject object) { remove("DeleteLocalRef", object, Kind::Local); }

    static jstring JNICALL newStringUTF(JNIEnv*, const char* text)
    {
        self().record(std::string("NewStringUTF(") + text + ")");
        if (self().isNull("NewStringUTF")) {
            self().raise("java.lang.OutOfMemoryError", "Java heap space");
            return nullptr;
        }
        return self().localString(text);
    }

    static const char* JNICALL getStringUTFChars(JNIEnv*, jstring text, jboolean* isCopy)
    {
        self().record("GetStringUTFChars(" + self().nameOf(text) + (isCopy == nullptr ? ")" : ", isCopy)"));
        if (text == nullptr || self().isNull("GetStringUTFChars")) {
            return nullptr;
        }
        self().m_heldCharacters++;
        return reinterpret_cast<const Object*>(text)->text->c_str();
    }

    static void JNICALL releaseStringUTFChars(JNIEnv*, jstring text, const char* characters)
    {
        self().record("ReleaseStringUTFChars(" + self().nameOf(text) +
                      (characters == reinterpret_cast<const Object*>(text)->text->c_str() ? ")" : ", other characters)"));
        self().m_heldCharacters--;
    }

    static jboolean JNICALL exceptionCheck(JNIEnv*)
    {
        self().record("ExceptionCheck()");
        return static_cast<jboolean>(self().isPending());
    }

    static jthrowable JNICALL exceptionOccurred(JNIEnv*)
    {
        self().record("ExceptionOccurred()");
        if (!self().isPending() || self().isNull("ExceptionOccurred")) {
            return nullptr;
        }
        Object* const throwable = self().make(Kind::Local, "throwable " + self().m_pending->name);
        throwable->message = self().m_pending->message;
        return as<jthrowable>(throwable);
    }

    static void JNICALL exceptionClear(JNIEnv*)
    {
        self().record("ExceptionClear()");
        self().m_pending = nullptr;
    }

    static jclass JNICALL getObjectClass(JNIEnv*, jobject object)
    {
        const std::string name = self().nameOf(object);
        self().record("GetObjectClass(" + name + ")");
        return self().isNull("GetObjectClass") ? nullptr
                                               : as<jclass>(self().make(Kind::Local, "class " + name.substr(name.find(' ') + 1)));
    }

    static jint JNICALL attachCurrentThread(JavaVM*, void** environment, void* arguments)
    {
        self().record(arguments == nullptr ? "AttachCurrentThread(NULL)" : "AttachCurrentThread(arguments)");
        if (self().attachResult == JNI_OK) {
            *environment = self().env();
        }
        return self().attachResult;
    }

    static jint JNICALL detachCurrentThread(JavaVM*)
    {
        self().record("DetachCurrentThread()");
        return self().detachResult;
    }
};

RecordingJni::RecordingJni()
{
    static const JNINativeInterface_ FUNCTIONS = [] {
        auto table = unexpectedTable<JNINativeInterface_>();
        table.FindClass = RecordingFunctions::findClass;
        table.GetMethodID = RecordingFunctions::getMethodID;
        table.NewObjectV = RecordingFunctions::newObject;
        table.CallObjectMethodV = RecordingFunctions::callObjectMethod;
        table.CallVoidMethodV = RecordingFunctions::callVoidMethod;
        table.RegisterNatives = RecordingFunctions::registerNatives;
        table.NewGlobalRef = RecordingFunctions::newGlobalRef;
        table.DeleteGlobalRef = RecordingFunctions::deleteGlobalRef;
        table.DeleteLocalRef = RecordingFunctions::deleteLocalRef;
        table.NewStringUTF = RecordingFunctions::newStringUTF;
        table.GetStringUTFChars = RecordingFunctions::getStringUTFChars;
        table.ReleaseStringUTFChars = RecordingFunctions::releaseStringUTFChars;
        table.ExceptionCheck = RecordingFunctions::exceptionCheck;
        table.ExceptionOccurred = RecordingFunctions::exceptionOccurred;
        table.ExceptionClear = RecordingFunctions::exceptionClear;
        table.GetObjectClass = RecordingFunctions::getObjectClass;
        return table;
    }();
    static const JNIInvokeInterface_ INVOCATION = [] {
        auto table = unexpectedTable<JNIInvokeInterface_>();
        table.AttachCurrentThread = RecordingFunctions::attachCurrentThread;
        table.DetachCurrentThread = RecordingFunctions::detachCurrentThread;
        return table;
    }();
    m_env.functions = &FUNCTIONS;
    m_vm.functions = &INVOCATION;
    s_current = this;
}

RecordingJni::~RecordingJni()
{
    s_current = nullptr;
}

jobject RecordingJni::global(const std::string& name)
{
    return reinterpret_cast<jobject>(make(Kind::Global, "global " + name));
}

jclass RecordingJni::localClass(const std::string& name)
{
    return reinterpret_cast<jclass>(make(Kind::Local, "class " + name));
}

jstring RecordingJni::localString(const std::optional<std::string>& text)
{
    if (!text) {
        return nullptr;
    }
    Object* const string = make(Kind::Local, "\"" + *text + "\"");
    string->text = text;
    return reinterpret_cast<jstring>(string);
}

void RecordingJni::raise(const std::string& exceptionClass, const std::optional<std::string>& message)
{
    m_objects.push_back({Kind::Local, exceptionClass, {}, message, true});
    m_pending = &m_objects.back();
}

std::vector<std::string> RecordingJni::takeCalls()
{
    m_callCounts.clear();
    return std::exchange(m_calls, {});
}

std::vector<std::string> RecordingJni::live(Kind kind) const
{
    std::vector<std::string> names;
    for (const Object& object : m_objects) {
        if (object.kind == kind && !object.isDeleted) {
            names.push_back(object.name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void RecordingJni::record(const std::string& call)
{
    m_calls.push_back(call + (isPending() ? " [pending]" : ""));
    if (onCall) {
        onCall(m_calls.back());
    }
}

bool RecordingJni::isNull(const std::string& function)
{
    const auto from = nullFrom.find(function);
    return ++m_callCounts[function] >= (from == nullFrom.end() ? 1000000 : from->second);
}

RecordingJni::Object* RecordingJni::make(Kind kind, const std::string& name)
{
    m_objects.push_back({kind, name, {}, {}, false});
    return &m_objects.back();
}

std::string RecordingJni::nameOf(jobject object) const
{
    if (object == nullptr) {
        return "null";
    }
    const auto* const reference = reinterpret_cast<const Object*>(object);
    return reference->name + (reference->isDeleted ? " (deleted)" : "");
}

std::string RecordingJni::argumentsText(const Method& method, va_list arguments)
{
    if (method.name == "setBounds") {
        lastBounds.clear();
        for (int index = 0; index < 4; index++) {
            lastBounds.push_back(va_arg(arguments, jint));
        }
        return ", ...";
    }
    std::string text;
    for (size_t at = 1; method.signature[at] != ')'; at++) {
        switch (method.signature[at]) {
        case 'Z':
            text += va_arg(arguments, int) != 0 ? ", true" : ", false";
            break;
        case 'I':
            text += ", " + std::to_string(va_arg(arguments, jint));
            break;
        default:
            text += ", " + nameOf(va_arg(arguments, jobject));
            at = method.signature.find(';', at);
        }
    }
    return text;
}

RecordingJni::Outcome RecordingJni::run(const std::string& function, jobject object, const Method& method, va_list arguments)
{
    record(function + "(" + nameOf(object) + ", " + method.name + argumentsText(method, arguments) + ")");
    Outcome outcome = answers("answer of " + method.name);
    if (method.name == "getMessage") {
        outcome = {{}, {}, reinterpret_cast<const Object*>(object)->message};
    } else if (method.name == "getName") {
        outcome = answers(classNameOf(nameOf(object)));
    }
    if (const auto toldObject = outcomes.find(nameOf(object) + ": " + method.name); toldObject != outcomes.end()) {
        outcome = toldObject->second;
    } else if (const auto told = outcomes.find(method.name); told != outcomes.end()) {
        outcome = told->second;
    } else if (const auto toldClass = outcomes.find(method.ofClass + "." + method.name); toldClass != outcomes.end()) {
        outcome = toldClass->second;
    }
    if (outcome.thrownClass) {
        raise(*outcome.thrownClass, outcome.message);
    }
    return outcome;
}
