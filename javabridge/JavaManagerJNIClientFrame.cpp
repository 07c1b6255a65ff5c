// Life of one control: frame, bean and listener, from their creation to their release.
#include "javabridge/JavaManagerJNIClient.h"

#include "atl/atl.h"
#include "javabridge/ListenerNatives.h"
#include "support/helpers.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#define LOG_SOURCE "JavaManagerJNIClient"

template <class... Arguments>
LocalReference<jobject> CJavaManagerJNIClient::newObject(jclass objectClass, jmethodID constructor, Arguments... arguments)
{
    if (objectClass == nullptr || constructor == nullptr) {
        return {};
    }
    return {captured(m_ENV->NewObject(objectClass, constructor, arguments...)), {m_ENV}};
}

jobject CJavaManagerJNIClient::toGlobalReference(LocalReference<jobject> local)
{
    return m_ENV->NewGlobalRef(local.get());
}

void CJavaManagerJNIClient::deleteGlobalReference(jobject object)
{
    if (m_ENV != nullptr) {
        m_ENV->DeleteGlobalRef(object);
    }
}

std::string CJavaManagerJNIClient::jniClassName(const char* package, const char* name)
{
    std::string path = package;
    if (!path.empty()) {
        path += "/";
    }
    path += name;
    std::replace(path.begin(), path.end(), '.', '/');
    return path;
}

HRESULT CJavaManagerJNIClient::startBean(jobject* beanObject, jobject* frameObject, int* frameID, const char* bean_package,
                                         const char* bean_class)
try {
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::startBean", bean_package << ", " << bean_class);
    RETURN_IF_FALSE(beanObject!=NULL, E_FAIL);
    RETURN_IF_FALSE(frameObject!=NULL, E_FAIL);
    RETURN_IF_FALSE(frameID!=NULL, E_FAIL);
    RETURN_IF_FALSE(bean_package!=NULL, E_FAIL);
    RETURN_IF_FALSE(bean_class!=NULL, E_FAIL);

    m_BeanClass = findClass(jniClassName(bean_package, bean_class).c_str());
    RETURN_IF_FALSE(m_BeanClass!=NULL, E_FAIL);
    jmethodID constructID = findMethod(m_BeanClass, "<init>", "()V");
    RETURN_IF_FALSE(constructID!=NULL, E_FAIL);
    LocalReference<jobject> localReference(m_ENV->NewObject(m_BeanClass, constructID), {m_ENV});
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    RETURN_IF_FALSE(localReference != NULL, E_FAIL);
    *beanObject = toGlobalReference(std::move(localReference));

    m_FrameClass = findClass(FRAME_CLASS);
    constructID = findMethod(m_FrameClass, "<init>", "(Ljava/lang/String;)V");
    *frameID = createUniqueID();
    // The reference of the name deliberately stays until the thread ends.
    const jstring frameName = captured(m_ENV->NewStringUTF(CHelpers::buildIdentifierString("kesta_frame_", *frameID).c_str()));
    localReference = frameName == nullptr ? LocalReference<jobject>() : newObject(m_FrameClass, constructID, frameName);
    RETURN_IF_FALSE(localReference!=NULL, E_FAIL);
    *frameObject = toGlobalReference(std::move(localReference));

    LOG_HRESULT_NUMBER(setFrameFocusableWindowState(*frameObject, false));
    LOG_HRESULT_NUMBER(setFrameAlwaysOnTop(*frameObject, false));
    LOG_HRESULT_NUMBER(setFrameUndecorated(*frameObject, true));
    LOG(TRACE, "CHECKPOINT: Successfully started bean.");
    return S_OK;
} catch (const std::bad_alloc&) {
    LOG(ERROR, "The bean was not started: out of memory");
    return E_FAIL;
}

HRESULT CJavaManagerJNIClient::addBean(jobject frame, jobject bean)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::addBean");
    const jmethodID addID = findMethod(frame, m_FrameClass, "add", "(Ljava/awt/Component;)Ljava/awt/Component;");
    RETURN_IF_FALSE(addID!=NULL, E_FAIL);
    LocalReference<jobject> component(m_ENV->CallObjectMethod(frame, addID, bean), {m_ENV});
    if (!LOG_CONDITION(checkNoJNIException())) {
        static_cast<void>(component.release()); // deliberately stays until the thread ends
        return E_FAIL;
    }
    component.reset();
    LOG(INFO, "Successfully added Bean to KESTAFrame!");
    return S_OK;
}

// Starts with the process id, so that frames of different server processes have different names. After the wrap, deliberately, 0
// comes before the process id.
int CJavaManagerJNIClient::createUniqueID()
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::createUniqueID");
    if (m_UniqueWindowID < 0) {
        LOG(INFO, "Unique Window ID was not initialized yet (-1)");
    } else {
        LOG(INFO, "Unique Window ID was " << m_UniqueWindowID);
    }
    if (m_UniqueWindowID < 1) {
        m_UniqueWindowID = static_cast<int>(GetCurrentProcessId());
    } else if (m_UniqueWindowID < INT_MAX) {
        m_UniqueWindowID++;
    } else {
        m_UniqueWindowID = 0;
    }
    LOG(INFO, "Unique Window ID=" << m_UniqueWindowID);
    return m_UniqueWindowID;
}

HRESULT CJavaManagerJNIClient::regEventListener(jobject* listener, jobject /*frame*/, jobject bean)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::regEventListener");
    RETURN_IF_FALSE(listener!=NULL, E_FAIL);
    m_ListenerClass = findClass(LISTENER_CLASS);
    const jmethodID constructID = findMethod(m_ListenerClass, "<init>", "()V");
    // Deliberately not owned: when a step fails, it stays until the thread ends.
    const jobject localReference = newObject(m_ListenerClass, constructID).release();
    RETURN_IF_FALSE(localReference!=NULL, E_FAIL);
    *listener = m_ENV->NewGlobalRef(localReference);

    const ListenerNatives& natives = listenerNatives();
    const char* const textOnly = "(Ljava/lang/String;)V";
    registerNative(m_ListenerClass, "testBridgeEvent", "(Ljava/lang/String;I)V",
                   reinterpret_cast<void*>(natives.testBridgeEvent));
    registerNative(m_ListenerClass, "OnControlReady", textOnly, reinterpret_cast<void*>(natives.OnControlReady));
    registerNative(m_ListenerClass, "OnCustomEvent", textOnly, reinterpret_cast<void*>(natives.OnCustomEvent));

    const jmethodID addORVListenerID = findMethod(bean, m_BeanClass, "addORVANEControlListener", LISTENER_SETTER);
    RETURN_IF_FALSE(addORVListenerID!=NULL, E_FAIL);
    LOG(TRACE, "call addORVANEControlListener method");
    m_ENV->CallVoidMethod(bean, addORVListenerID, *listener);
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    m_ENV->DeleteLocalRef(localReference);
    LOG(TRACE, "CHECKPOINT: Successfully registered event listener.");
    return S_OK;
}

HRESULT CJavaManagerJNIClient::registerNative(jclass listenerClass, const char* name, const char* signature, void* function)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::registerNative", name << ", " << signature);
    const JNINativeMethod native = {const_cast<char*>(name), const_cast<char*>(signature), function};
    m_ENV->RegisterNatives(listenerClass, &native, 1);
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    return S_OK;
}

HRESULT CJavaManagerJNIClient::callBooleanSetterOnFrame(jobject frame, const char* methodName, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::callBooleanSetterOnFrame", methodName << ", " << value);
    const jmethodID methodID = findMethod(frame, m_FrameClass, methodName, "(Z)V");
    RETURN_IF_FALSE(methodID!=NULL, E_FAIL);
    m_ENV->CallVoidMethod(frame, methodID, static_cast<jboolean>(value));
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    return S_OK;
}

HRESULT CJavaManagerJNIClient::setFrameFocusableWindowState(jobject frame, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameFocusableWindowState", value);
    return callBooleanSetterOnFrame(frame, "setFocusableWindowState", value);
}

HRESULT CJavaManagerJNIClient::setFrameAlwaysOnTop(jobject frame, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameAlwaysOnTop", value);
    return callBooleanSetterOnFrame(frame, "setAlwaysOnTop", value);
}

HRESULT CJavaManagerJNIClient::setFrameUndecorated(jobject frame, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameUndecorated", value);
    return callBooleanSetterOnFrame(frame, "setUndecorated", value);
}

HRESULT CJavaManagerJNIClient::setFrameVisible(jobject frame, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameVisible", value);
    return callBooleanSetterOnFrame(frame, "setVisible", value);
}

HRESULT CJavaManagerJNIClient::setFrameEnabled(jobject frame, bool value)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameEnabled", value);
    return callBooleanSetterOnFrame(frame, "setEnabled", value);
}

HRESULT CJavaManagerJNIClient::setFrameBounds(jobject frame, int x, int y, int width, int height)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::setFrameBounds", x << ", " << y << ", " << width << ", " << height);
    const jmethodID setBoundsID = findMethod(frame, m_FrameClass, "setBounds", "(IIII)V");
    RETURN_IF_FALSE(setBoundsID!=NULL, E_FAIL);
    // Deliberately without the four values. The variadic form, because the VM would read past the end of an empty array.
    m_ENV->CallVoidMethod(frame, setBoundsID);
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    return S_OK;
}

HRESULT CJavaManagerJNIClient::validateFrameAndBean(jobject frame, jobject bean)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::validateFrameAndBean");
    // Without a bean, deliberately, the frame is not validated either.
    const jmethodID validateID = bean == nullptr ? nullptr : findMethod(frame, m_FrameClass, "validate", "()V");
    RETURN_IF_FALSE(validateID!=NULL, E_FAIL);
    m_ENV->CallVoidMethod(frame, validateID);
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    // Deliberately the method of the frame's class: both inherit it from the same class. A frame with its own validate works too,
    // except in a VM that checks JNI calls, which ends the process.
    m_ENV->CallVoidMethod(bean, validateID);
    RETURN_IF_FALSE(checkNoJNIException(), E_FAIL);
    return S_OK;
}

HRESULT CJavaManagerJNIClient::stopBean(jobject bean, jobject frame, jobject listener)
{
    LOG_SCOPE(FINE, "CJavaManagerJNIClient::stopBean");
    // A step that fails is logged, and the next one runs regardless.
    if (bean != nullptr) {
        // Neither answer nor result matters; failed checks are logged where they fail.
        const HRESULT hr = AtlGuard([&] {
            free(bean, &CComBSTR());
            return S_OK;
        });
        if (FAILED(hr)) {
            LOG(WARN, "The answer of free was not converted: " << std::hex << hr);
        }
        const jmethodID removeID = findMethod(m_BeanClass, "removeORVANEControlListener", LISTENER_SETTER);
        if (LOG_CONDITION(removeID!=NULL)) {
            m_ENV->CallVoidMethod(bean, removeID, listener);
            checkNoJNIException();
        }
        const jmethodID removeAllID = findMethod(m_BeanClass, "removeAll", "()V");
        if (LOG_CONDITION(removeAllID!=NULL)) {
            m_ENV->CallVoidMethod(bean, removeAllID);
            checkNoJNIException();
        }
        if (frame != nullptr) {
            const jmethodID removeCID = findMethod(m_FrameClass, "remove", "(Ljava/awt/Component;)V");
            if (LOG_CONDITION(removeCID!=NULL)) {
                m_ENV->CallVoidMethod(frame, removeCID, bean);
                checkNoJNIException();
            }
        }
        deleteGlobalReference(bean);
    }
    LOG(TRACE, "CHECKPOINT: Successfully freed bean.");
    if (frame != nullptr) {
        const jmethodID disposeID = findMethod(m_FrameClass, "dispose", "()V");
        if (LOG_CONDITION(disposeID!=NULL)) {
            m_ENV->CallVoidMethod(frame, disposeID);
            checkNoJNIException();
        }
        deleteGlobalReference(frame);
    }
    LOG(TRACE, "CHECKPOINT: Successfully freed frame.");
    if (listener != nullptr) {
        deleteGlobalReference(listener);
    }
    LOG(TRACE, "CHECKPOINT: Successfully freed listener.");
    return S_OK;
}
