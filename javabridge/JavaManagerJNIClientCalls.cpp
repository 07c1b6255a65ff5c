// JNI look-ups and the capture of Java exceptions.
#include "javabridge/JavaManagerJNIClient.h"

#define LOG_SOURCE "JavaManagerJNIClient"

jclass CJavaManagerJNIClient::findClass(const char* name)
{
    return m_ENV == nullptr ? nullptr : captured(m_ENV->FindClass(name));
}

jmethodID CJavaManagerJNIClient::findMethod(jclass objectClass, const char* name, const char* signature)
{
    if (m_ENV == nullptr || objectClass == nullptr) {
        return nullptr;
    }
    return captured(m_ENV->GetMethodID(objectClass, name, signature));
}

jmethodID CJavaManagerJNIClient::findMethod(jobject object, jclass objectClass, const char* name, const char* signature)
{
    return object == nullptr ? nullptr : findMethod(objectClass, name, signature);
}

namespace {

// The answer of a Java method without parameters about the pending exception, if any.
class ExceptionText
{
public:
    ExceptionText(JNIEnv* env, jobject object, jclass objectClass, const char* method)
        : m_env(env)
    {
        const jmethodID methodID = env->GetMethodID(objectClass, method, "()Ljava/lang/String;");
        if (methodID != nullptr) {
            m_string = {static_cast<jstring>(env->CallObjectMethod(object, methodID)), {env}};
        }
        if (m_string != nullptr) {
            m_characters = env->GetStringUTFChars(m_string.get(), nullptr);
        }
    }
    ~ExceptionText()
    {
        if (m_characters != nullptr) {
            m_env->ReleaseStringUTFChars(m_string.get(), m_characters);
        }
    }
    ExceptionText(const ExceptionText&) = delete;
    ExceptionText& operator=(const ExceptionText&) = delete;

    const char* textOr(const char* defaultText) const { return m_characters != nullptr ? m_characters : defaultText; }

private:
    JNIEnv* m_env;
    LocalReference<jstring> m_string;
    const char* m_characters = nullptr;
};

} // namespace

bool CJavaManagerJNIClient::checkNoJNIException()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::checkNoJNIException");
    if (m_ENV == nullptr || !m_ENV->ExceptionCheck()) {
        return true;
    }
    LocalReference<jthrowable> exception(m_ENV->ExceptionOccurred(), {m_ENV});
    if (exception == nullptr) {
        LOG(ERROR, "Exception: Could not get throwable object for details!");
        return false;
    }
    // The exception stays pending to the end, even during look-ups and calls. Neither class reference is deleted.
    const jclass exceptionClass = m_ENV->GetObjectClass(exception.get());
    const jclass classClass = m_ENV->FindClass("java/lang/Class");
    if (exceptionClass == nullptr || classClass == nullptr) {
        LOG(ERROR, "Exception: unknown");
    } else {
        const ExceptionText name(m_ENV, exceptionClass, classClass, "getName");
        const ExceptionText message(m_ENV, exception.get(), exceptionClass, "getMessage");
        // The line feed is part of the text, besides the one that ends every entry.
        LOG(ERROR, "Exception: " << name.textOr("(null name)") << ": " << message.textOr("") << "\n");
    }
    exception.reset();
    m_ENV->ExceptionClear();
    return false;
}
