// The ways into JNI: environment, look-ups, and the capture of Java exceptions.
#include "javabridge/JavaManagerJNIClient.h"

#define LOG_SOURCE "JavaManagerJNIClient"

JNIEnv* CJavaManagerJNIClient::env()
{
    if (m_LookupFailed) {
        m_LookupFailed = false;
        m_ENV->ExceptionClear();
    }
    return m_ENV;
}

jclass CJavaManagerJNIClient::findClass(const char* name)
{
    JNIEnv* const env = this->env();
    if (env == nullptr) {
        return nullptr;
    }
    const jclass found = env->FindClass(name);
    m_LookupFailed = found == nullptr;
    return found;
}

jmethodID CJavaManagerJNIClient::findMethod(jclass objectClass, const char* name, const char* signature)
{
    if (m_ENV == nullptr || objectClass == nullptr) {
        return nullptr;
    }
    const jmethodID found = env()->GetMethodID(objectClass, name, signature);
    m_LookupFailed = found == nullptr;
    return found;
}

jmethodID CJavaManagerJNIClient::findMethod(jobject object, jclass objectClass, const char* name, const char* signature)
{
    return object == nullptr ? nullptr : findMethod(objectClass, name, signature);
}

void CJavaManagerJNIClient::deleteGlobalReference(jobject object)
{
    if (JNIEnv* const env = this->env(); env != nullptr) {
        env->DeleteGlobalRef(object);
    }
}

namespace {

// What a Java method without parameters answers about the pending exception. Empty handed when the method or its answer is
// missing.
class ExceptionText
{
public:
    ExceptionText(JNIEnv* env, jobject object, jclass objectClass, const char* method)
        : m_env(env)
    {
        const jmethodID methodID = env->GetMethodID(objectClass, method, "()Ljava/lang/String;");
        if (methodID != nullptr) {
            m_string = static_cast<jstring>(env->CallObjectMethod(object, methodID));
        }
        if (m_string != nullptr) {
            m_characters = env->GetStringUTFChars(m_string, nullptr);
        }
    }
    ~ExceptionText()
    {
        if (m_characters != nullptr) {
            m_env->ReleaseStringUTFChars(m_string, m_characters);
        }
        if (m_string != nullptr) {
            m_env->DeleteLocalRef(m_string);
        }
    }
    ExceptionText(const ExceptionText&) = delete;
    ExceptionText& operator=(const ExceptionText&) = delete;

    const char* textOr(const char* defaultText) const { return m_characters != nullptr ? m_characters : defaultText; }

private:
    JNIEnv* m_env;
    jstring m_string = nullptr;
    const char* m_characters = nullptr;
};

} // namespace

bool CJavaManagerJNIClient::checkNoJNIException()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::checkNoJNIException");
    JNIEnv* const env = this->env();
    if (env == nullptr || !env->ExceptionCheck()) {
        return true;
    }
    const jthrowable exception = env->ExceptionOccurred();
    if (exception == nullptr) {
        LOG(ERROR, "Exception: Could not get throwable object for details!");
        return false;
    }
    // From here to the end the exception stays pending, look-ups and calls included. Neither class reference is deleted.
    const jclass exceptionClass = env->GetObjectClass(exception);
    const jclass classClass = env->FindClass("java/lang/Class");
    if (exceptionClass == nullptr || classClass == nullptr) {
        LOG(ERROR, "Exception: unknown");
    } else {
        const ExceptionText name(env, exceptionClass, classClass, "getName");
        const ExceptionText message(env, exception, exceptionClass, "getMessage");
        // The line feed is part of the text and stands besides the one that ends every entry.
        LOG(ERROR, "Exception: " << name.textOr("(null name)") << ": " << message.textOr("") << "\n");
    }
    env->DeleteLocalRef(exception);
    env->ExceptionClear();
    return false;
}
