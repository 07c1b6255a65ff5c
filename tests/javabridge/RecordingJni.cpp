#include "tests/javabridge/RecordingJni.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <utility>

RecordingJni* RecordingJni::s_current = nullptr;

namespace {

// A reference that the product can hold.
template <class Reference>
Reference as(void* object)
{
    return static_cast<Reference>(object);
}

// "class a/b/C" of a class reference, as look-ups name it.
std::string classNameOf(const std::string& referenceName)
{
    return referenceName.substr(std::strlen("class "));
}

} // namespace

void RecordingJni::remove(const std::string& function, jobject object, Kind kind)
{
    record(function + "(" + nameOf(object) + ")");
    auto* const reference = reinterpret_cast<Object*>(object);
    if (reference == nullptr || reference->kind != kind || reference->isDeleted) {
        ADD_FAILURE() << function << " was given what it must not delete: " << nameOf(object);
    } else {
        reference->isDeleted = true;
    }
}

JNINativeInterface_ RecordingJni::functions()
{
    JNINativeInterface_ table = {};
    table.FindClass = [](JNIEnv*, const char* name) -> jclass {
        s_current->record(std::string("FindClass(") + name + ")");
        if (s_current->missing.contains(name)) {
            s_current->raise("java.lang.NoClassDefFoundError", name);
            return nullptr;
        }
        return s_current->localClass(name);
    };
    table.GetMethodID = [](JNIEnv*, jclass objectClass, const char* name, const char* signature) -> jmethodID {
        const std::string className = s_current->nameOf(objectClass);
        s_current->record("GetMethodID(" + className + ", " + name + ", " + signature + ")");
        if (s_current->missing.contains(name) || s_current->missing.contains(classNameOf(className) + "." + name)) {
            s_current->raise("java.lang.NoSuchMethodError", name);
            return nullptr;
        }
        s_current->m_methods.push_back({classNameOf(className), name, signature});
        return reinterpret_cast<jmethodID>(&s_current->m_methods.back());
    };
    table.NewObjectV = [](JNIEnv*, jclass objectClass, jmethodID method, va_list arguments) -> jobject {
        const Outcome outcome = s_current->run("NewObject", objectClass, method, arguments);
        if (outcome.thrownClass || s_current->isNull("NewObject")) {
            return nullptr;
        }
        return as<jobject>(s_current->make(Kind::Local, "local " + classNameOf(s_current->nameOf(objectClass))));
    };
    table.CallObjectMethodV = [](JNIEnv*, jobject object, jmethodID method, va_list arguments) -> jobject {
        const Outcome outcome = s_current->run("CallObjectMethod", object, method, arguments);
        if (outcome.thrownClass || !outcome.answer) {
            return nullptr;
        }
        const std::string& signature = reinterpret_cast<const Method*>(method)->signature;
        return signature.ends_with(")Ljava/lang/String;") ? s_current->localString(outcome.answer)
                                                          : as<jobject>(s_current->make(Kind::Local, "local " + *outcome.answer));
    };
    table.CallVoidMethodV = [](JNIEnv*, jobject object, jmethodID method, va_list arguments) {
        s_current->run("CallVoidMethod", object, method, arguments);
    };
    table.RegisterNatives = [](JNIEnv*, jclass objectClass, const JNINativeMethod* methods, jint count) -> jint {
        std::string text = "RegisterNatives(" + s_current->nameOf(objectClass);
        for (jint index = 0; index < count; index++) {
            const auto function = s_current->m_functionNames.find(methods[index].fnPtr);
            text += std::string(", ") + methods[index].name + " " + methods[index].signature + " " +
                    (function == s_current->m_functionNames.end() ? "unknown function" : function->second);
        }
        s_current->record(text + ")");
        if (s_current->missing.contains(methods->name)) {
            s_current->raise("java.lang.NoSuchMethodError", methods->name);
            return JNI_ERR;
        }
        return s_current->registerResult;
    };
    table.NewGlobalRef = [](JNIEnv*, jobject object) {
        const std::string name = s_current->nameOf(object);
        s_current->record("NewGlobalRef(" + name + ")");
        return s_current->global(name.substr(std::strlen("local ")));
    };
    table.DeleteGlobalRef = [](JNIEnv*, jobject object) { s_current->remove("DeleteGlobalRef", object, Kind::Global); };
    table.DeleteLocalRef = [](JNIEnv*, jobject object) { s_current->remove("DeleteLocalRef", object, Kind::Local); };
    table.NewStringUTF = [](JNIEnv*, const char* text) -> jstring {
        s_current->record(std::string("NewStringUTF(") + text + ")");
        if (s_current->isNull("NewStringUTF")) {
            s_current->raise("java.lang.OutOfMemoryError", "Java heap space");
            return nullptr;
        }
        return s_current->localString(text);
    };
    table.GetStringUTFChars = [](JNIEnv*, jstring text, jboolean* isCopy) -> const char* {
        s_current->record("GetStringUTFChars(" + s_current->nameOf(text) + (isCopy == nullptr ? ")" : ", isCopy)"));
        if (text == nullptr || s_current->isNull("GetStringUTFChars")) {
            return nullptr;
        }
        s_current->m_heldCharacters++;
        return reinterpret_cast<const Object*>(text)->text->c_str();
    };
    table.ReleaseStringUTFChars = [](JNIEnv*, jstring text, const char* characters) {
        s_current->record("ReleaseStringUTFChars(" + s_current->nameOf(text) +
                          (characters == reinterpret_cast<const Object*>(text)->text->c_str() ? ")" : ", other characters)"));
        s_current->m_heldCharacters--;
    };
    table.ExceptionCheck = [](JNIEnv*) {
        s_current->record("ExceptionCheck()");
        return static_cast<jboolean>(s_current->isPending());
    };
    table.ExceptionOccurred = [](JNIEnv*) -> jthrowable {
        s_current->record("ExceptionOccurred()");
        if (!s_current->isPending() || s_current->isNull("ExceptionOccurred")) {
            return nullptr;
        }
        Object* const throwable = s_current->make(Kind::Local, "throwable " + s_current->m_pending->name);
        throwable->message = s_current->m_pending->message;
        return as<jthrowable>(throwable);
    };
    table.ExceptionClear = [](JNIEnv*) {
        s_current->record("ExceptionClear()");
        s_current->m_pending = nullptr;
    };
    table.GetObjectClass = [](JNIEnv*, jobject object) {
        const std::string name = s_current->nameOf(object);
        s_current->record("GetObjectClass(" + name + ")");
        return s_current->isNull("GetObjectClass") ? nullptr : s_current->localClass(name.substr(name.find(' ') + 1));
    };
    return table;
}

JNIInvokeInterface_ RecordingJni::invocation()
{
    JNIInvokeInterface_ table = {};
    table.AttachCurrentThread = [](JavaVM*, void** environment, void* arguments) {
        s_current->record(arguments == nullptr ? "AttachCurrentThread(NULL)" : "AttachCurrentThread(arguments)");
        if (s_current->attachResult == JNI_OK) {
            *environment = s_current->env();
        }
        return s_current->attachResult;
    };
    table.DetachCurrentThread = [](JavaVM*) {
        s_current->record("DetachCurrentThread()");
        return s_current->detachResult;
    };
    return table;
}

RecordingJni::RecordingJni()
{
    static const JNINativeInterface_ FUNCTIONS = functions();
    static const JNIInvokeInterface_ INVOCATION = invocation();
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
    return as<jobject>(make(Kind::Global, "global " + name));
}

jclass RecordingJni::localClass(const std::string& name)
{
    return as<jclass>(make(Kind::Local, "class " + name));
}

jstring RecordingJni::localString(const std::optional<std::string>& text)
{
    if (!text) {
        return nullptr;
    }
    Object* const string = make(Kind::Local, "\"" + *text + "\"");
    string->text = text;
    return as<jstring>(string);
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

RecordingJni::Outcome RecordingJni::run(const std::string& function, jobject object, jmethodID id, va_list arguments)
{
    const auto& method = *reinterpret_cast<const Method*>(id);
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
