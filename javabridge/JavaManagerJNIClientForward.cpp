// Forwarding of the client's calls to the bean's Java methods of the same names.
#include "javabridge/JavaManagerJNIClient.h"

#include "atl/atl.h"
#include "javabridge/JNIHelper.h"

#include <array>
#include <tuple>

#define LOG_SOURCE "JavaManagerJNIClient"

namespace {

// The arguments of one call as Java receives them. Owns the texts among them and deletes them in order.
template <size_t Count>
class JavaArguments
{
public:
    explicit JavaArguments(JNIEnv* env)
        : m_env(env)
    {
    }
    ~JavaArguments()
    {
        for (LocalReference<jstring>& text : m_texts) {
            text.reset();
        }
    }
    JavaArguments(const JavaArguments&) = delete;
    JavaArguments& operator=(const JavaArguments&) = delete;

    // Null from the first text on that could not be converted: its error is pending, so no other JNI function may be called.
    jstring toJava(BSTR text)
    {
        if (!m_areMade) {
            return nullptr;
        }
        LocalReference<jstring>& made = m_texts[m_count++];
        made = JNIHelper::bstrToJavaString(m_env, text);
        m_areMade = made != nullptr;
        return made.get();
    }
    static jint toJava(int number) { return number; }

    bool areMade() const { return m_areMade; }
    void leave()
    {
        for (LocalReference<jstring>& text : m_texts) {
            static_cast<void>(text.release());
        }
    }

private:
    JNIEnv* m_env;
    std::array<LocalReference<jstring>, Count> m_texts;
    size_t m_count = 0;
    bool m_areMade = true;
};

} // namespace

template <class Call, class... Arguments>
HRESULT CJavaManagerJNIClient::callJava(const Call& call, Arguments... arguments)
{
    JavaArguments<sizeof...(Arguments)> javaArguments(m_ENV);
    const std::tuple values{javaArguments.toJava(arguments)...};
    if (javaArguments.areMade()) {
        std::apply(call, values);
    }
    if (!LOG_CONDITION(checkNoJNIException()) || !javaArguments.areMade()) {
        javaArguments.leave();
        return E_FAIL;
    }
    return S_OK;
}

template <class... Arguments>
HRESULT CJavaManagerJNIClient::forward(jobject bean, jmethodID method, BSTR* result, Arguments... arguments)
{
    LocalReference<jobject> answer(nullptr, {m_ENV});
    const auto call = [&](auto... values) { answer.reset(m_ENV->CallObjectMethod(bean, method, values...)); };
    if (const HRESULT hr = callJava(call, arguments...); FAILED(hr)) {
        static_cast<void>(answer.release());
        return hr;
    }
    JNIHelper::javaStringToBstr(result, m_ENV, static_cast<jstring>(answer.get()));
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
    const CComBSTR copy(text);
    const auto call = [&](auto... values) { m_ENV->CallVoidMethod(listener, debugTextMethodID, values...); };
    return callJava(call, copy.m_str, ttl, delay);
}
