// Forwarding of the client's calls to the bean's Java methods of the same names.
#include "javabridge/JavaManagerJNIClient.h"

#include "atl/atl.h"
#include "javabridge/JNIHelper.h"

#include <tuple>

#define LOG_SOURCE "JavaManagerJNIClient"

namespace {

jstring toJava(JNIEnv* env, BSTR text)
{
    return JNIHelper::bstrToJavaString(env, text);
}

jint toJava(JNIEnv*, int number)
{
    return number;
}

void release(JNIEnv* env, jobject reference)
{
    if (reference != nullptr) {
        env->DeleteLocalRef(reference);
    }
}

void release(JNIEnv*, jint)
{
}

} // namespace

// Shape of every forwarding operation, behind its own look-up. On a Java exception the references of the arguments are
// deliberately left to the end of the thread, and the result is not written.
template <class... Arguments>
HRESULT CJavaManagerJNIClient::forward(jobject bean, jmethodID method, BSTR* result, Arguments... arguments)
{
    JNIEnv* const env = this->env();
    const std::tuple javaArguments{toJava(env, arguments)...};
    const auto call = [&](auto... values) { return env->CallObjectMethod(bean, method, values...); };
    const auto answer = static_cast<jstring>(std::apply(call, javaArguments));
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    std::apply([&](auto... values) { (release(env, values), ...); }, javaArguments);
    JNIHelper::javaStringToBstr(result, env, answer);
    release(env, answer);
    return S_OK;
}

HRESULT CJavaManagerJNIClient::callMethod(jobject bean, BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::callMethod", arg0 << ", " << arg1);
    const jmethodID callMethodID =
        findMethod(bean, m_BeanClass, "callMethod", "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(callMethodID != NULL, E_FAIL);
    return forward(bean, callMethodID, result, arg0, arg1);
}

HRESULT CJavaManagerJNIClient::callMethodCompressed(jobject bean, BSTR arg0, int arg1, BSTR arg2, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::callMethodCompressed", arg0 << ", " << arg1 << ", " << arg2);
    const jmethodID callMethodID =
        findMethod(bean, m_BeanClass, "callMethodCompressed", "(Ljava/lang/String;ILjava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(callMethodID != NULL, E_FAIL);
    return forward(bean, callMethodID, result, arg0, arg1, arg2);
}

HRESULT CJavaManagerJNIClient::displayDebugConsole(jobject bean, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::displayDebugConsole");
    const jmethodID displayConsoleID = findMethod(bean, m_BeanClass, "displayDebugConsole", "()Ljava/lang/String;");
    RETURN_IF_FALSE(displayConsoleID != NULL, E_FAIL);
    return forward(bean, displayConsoleID, result);
}

HRESULT CJavaManagerJNIClient::free(jobject bean, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::free");
    const jmethodID freeID = findMethod(bean, m_BeanClass, "free", "()Ljava/lang/String;");
    RETURN_IF_FALSE(freeID != NULL, E_FAIL);
    return forward(bean, freeID, result);
}

HRESULT CJavaManagerJNIClient::getBasisControlVersionInfo(jobject bean, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::getBasisControlVersionInfo");
    const jmethodID getBasisControlVersionInfoID =
        findMethod(bean, m_BeanClass, "getBasisControlVersionInfo", "()Ljava/lang/String;");
    RETURN_IF_FALSE(getBasisControlVersionInfoID != NULL, E_FAIL);
    return forward(bean, getBasisControlVersionInfoID, result);
}

HRESULT CJavaManagerJNIClient::getProperty(jobject bean, BSTR arg0, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::getProperty", arg0);
    const jmethodID getPropertyID = findMethod(bean, m_BeanClass, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(getPropertyID != NULL, E_FAIL);
    return forward(bean, getPropertyID, result, arg0);
}

HRESULT CJavaManagerJNIClient::getVersionInfo(jobject bean, BSTR arg0, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::getVersionInfo", arg0);
    const jmethodID getVersionInfoID = findMethod(bean, m_BeanClass, "getVersionInfo", "(Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(getVersionInfoID != NULL, E_FAIL);
    return forward(bean, getVersionInfoID, result, arg0);
}

HRESULT CJavaManagerJNIClient::setLogLevel(jobject bean, int arg0, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setLogLevel", arg0);
    const jmethodID setLogLevelID = findMethod(bean, m_BeanClass, "setLogLevel", "(I)Ljava/lang/String;");
    RETURN_IF_FALSE(setLogLevelID != NULL, E_FAIL);
    return forward(bean, setLogLevelID, result, arg0);
}

HRESULT CJavaManagerJNIClient::setProperty(jobject bean, BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setProperty", arg0 << ", " << arg1);
    const jmethodID setPropertyID =
        findMethod(bean, m_BeanClass, "setProperty", "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(setPropertyID != NULL, E_FAIL);
    return forward(bean, setPropertyID, result, arg0, arg1);
}

HRESULT CJavaManagerJNIClient::setUsedControl(jobject frame, jobject bean, BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setUsedControl", arg0 << ", " << arg1);
    LOG_HRESULT_NUMBER(setFrameFocusableWindowState(frame, true));
    const jmethodID setUsedControlID =
        findMethod(bean, m_BeanClass, "setUsedControl", "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(setUsedControlID != NULL, E_FAIL);
    return forward(bean, setUsedControlID, result, arg0, arg1);
}

HRESULT CJavaManagerJNIClient::updateVersion(jobject bean, BSTR arg0, BSTR* result)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::updateVersion", arg0);
    const jmethodID updateVersionID = findMethod(bean, m_BeanClass, "updateVersion", "(Ljava/lang/String;)Ljava/lang/String;");
    RETURN_IF_FALSE(updateVersionID != NULL, E_FAIL);
    return forward(bean, updateVersionID, result, arg0);
}

HRESULT CJavaManagerJNIClient::testBridge(jobject listener, const wchar_t* text, int ttl, int delay)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::testBridge", text << ", " << ttl << ", " << delay);
    const jmethodID debugTextMethodID = findMethod(listener, m_ListenerClass, "testBridge", "(Ljava/lang/String;II)V");
    RETURN_IF_FALSE(debugTextMethodID != NULL, E_FAIL);
    const jstring javaText = JNIHelper::bstrToJavaString(env(), CComBSTR(text));
    env()->CallVoidMethod(listener, debugTextMethodID, javaText, static_cast<jint>(ttl), static_cast<jint>(delay));
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    release(env(), javaText);
    return S_OK;
}
