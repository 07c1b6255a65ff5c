#include "beanframe/BeanFrame.h"

#include "javabridge/JavaManagerJNIClient.h"

#include <charconv>
#include <new>

#define LOG_SOURCE "BeanFrame"

CBeanFrame* CBeanFrame::s_Instance = nullptr;
DWORD CBeanFrame::s_MainThreadId = 0;
std::atomic<int> CBeanFrame::s_InstanceUsers = 0;

namespace {

constexpr int FRAME_ID_BUFFER = 30;

// Makes a forwarding operation's one call. The singleton exists from the constructor until the process cleans up its Java side;
// after that, calls fail as they do without a bean frame. A text that cannot be converted comes back as a result, too.
template <class Call>
HRESULT forward(Call&& call)
{
    CJavaManagerJNIClient* const client = CJavaManagerJNIClient::s_Instance;
    HRESULT result = E_FAIL;
    const HRESULT thrown = AtlGuard([&] {
        result = client == nullptr ? E_FAIL : call(*client);
        return S_OK;
    });
    if (FAILED(thrown)) {
        LOG_PLAIN(ERROR, "A text of the call was not converted: " << std::hex << thrown);
        return thrown;
    }
    return result;
}

// As OLE Automation converts it.
std::string automationText(int number)
{
    CComVariant text(number);
    return SUCCEEDED(text.ChangeType(VT_BSTR)) ? narrowText(text.bstrVal) : std::string();
}

} // namespace

void CBeanFrame::createInstance(const char* basisControlPath, const char* beanPackage, const char* beanClass)
{
    LOG_SCOPE_STATIC(INFO, "CBeanFrame::createInstance", basisControlPath << "," << beanPackage << "," << beanClass);
    if (s_Instance != nullptr) {
        LOG(WARN, "double creation of BeanFrameInstance");
        return;
    }
    std::atomic_ref(s_Instance).store(new (std::nothrow) CBeanFrame(basisControlPath, beanPackage, beanClass));
}

// Events that Java raises meanwhile find no instance yet and are dropped.
CBeanFrame::CBeanFrame(const char* basisControlPath, const char* beanPackage, const char* beanClass)
{
    LOG_SCOPE(INFO, "CBeanFrame::CBeanFrame", basisControlPath << "," << beanPackage << "," << beanClass);
    s_MainThreadId = GetCurrentThreadId();

    CJavaManagerJNIClient::createInstance(basisControlPath);
    forward([&](CJavaManagerJNIClient& client) {
        return client.startBean(&beanObject, &frameObject, &frameID, beanPackage, beanClass);
    });
    forward([&](CJavaManagerJNIClient& client) { return client.regEventListener(&listener, frameObject, beanObject); });

    if (CJavaManagerJNIClient::s_Instance != nullptr && beanObject != nullptr && frameObject != nullptr && listener != nullptr &&
        frameID != 0) {
        LOG(TRACE, "CHECKPOINT: Successfully created BeanFrame.");
    }
}

CBeanFrame::~CBeanFrame()
{
    LOG_SCOPE(INFO, "CBeanFrame::~CBeanFrame");
    forward([&](CJavaManagerJNIClient& client) { return client.stopBean(beanObject, frameObject, listener); });

    // From here on Java's threads find no instance. Those that already use it are in a native callback, which takes only short
    // locks; the memory is freed when they have returned.
    std::atomic_ref(s_Instance).store(nullptr);
    while (s_InstanceUsers.load() != 0) {
        SwitchToThread();
    }
}

void CBeanFrame::deleteInstance()
{
    LOG_SCOPE_STATIC(INFO, "CBeanFrame::deleteInstance");
    RETURN_IF_FALSE(s_Instance!=NULL, );
    dropEvents();
    delete s_Instance;
    // What Java raised meanwhile: each event would cost the end of the process a message and an error backtrace.
    dropEvents();
}

void CBeanFrame::dropEvents()
{
    CComCritSecLock lock(s_EventQueueLock);
    for (QueueEntry* const entry : s_EventQueue) {
        delete entry;
    }
    s_EventQueue.clear();
    s_EventIndex.clear();
}

std::string CBeanFrame::getLogObjectInfo() const
{
    char text[FRAME_ID_BUFFER];
    return {text, std::to_chars(text, text + sizeof text, frameID).ptr};
}

HRESULT CBeanFrame::callMethod(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::callMethod", arg0 << "," << arg1);
    return forward([&](CJavaManagerJNIClient& client) { return client.callMethod(beanObject, arg0, arg1, result); });
}

HRESULT CBeanFrame::callMethodCompressed(BSTR arg0, int arg1, BSTR arg2, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::callMethodCompressed", arg0 << "," << automationText(arg1) << "," << arg2);
    return forward(
        [&](CJavaManagerJNIClient& client) { return client.callMethodCompressed(beanObject, arg0, arg1, arg2, result); });
}

HRESULT CBeanFrame::displayDebugConsole(BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::displayDebugConsole");
    return forward([&](CJavaManagerJNIClient& client) { return client.displayDebugConsole(beanObject, result); });
}

HRESULT CBeanFrame::free(BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::free");
    return forward([&](CJavaManagerJNIClient& client) { return client.free(beanObject, result); });
}

HRESULT CBeanFrame::getBasisControlVersionInfo(BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::getBasisControlVersionInfo");
    return forward([&](CJavaManagerJNIClient& client) { return client.getBasisControlVersionInfo(beanObject, result); });
}

HRESULT CBeanFrame::getProperty(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::getProperty", arg0);
    return forward([&](CJavaManagerJNIClient& client) { return client.getProperty(beanObject, arg0, result); });
}

HRESULT CBeanFrame::getVersionInfo(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::getVersionInfo", arg0);
    return forward([&](CJavaManagerJNIClient& client) { return client.getVersionInfo(beanObject, arg0, result); });
}

HRESULT CBeanFrame::setLogLevel(int arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::setLogLevel");
    return forward([&](CJavaManagerJNIClient& client) { return client.setLogLevel(beanObject, arg0, result); });
}

HRESULT CBeanFrame::setProperty(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::setProperty", arg0 << "," << arg1);
    return forward([&](CJavaManagerJNIClient& client) { return client.setProperty(beanObject, arg0, arg1, result); });
}

HRESULT CBeanFrame::setUsedControl(BSTR arg0, BSTR arg1, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::setUsedControl", arg0 << "," << arg1);
    return forward(
        [&](CJavaManagerJNIClient& client) { return client.setUsedControl(frameObject, beanObject, arg0, arg1, result); });
}

HRESULT CBeanFrame::updateVersion(BSTR arg0, BSTR* result)
{
    LOG_SCOPE(INFO, "CBeanFrame::updateVersion", arg0);
    return forward([&](CJavaManagerJNIClient& client) { return client.updateVersion(beanObject, arg0, result); });
}

HRESULT CBeanFrame::setBounds(int x, int y, int width, int height)
{
    LOG_SCOPE(INFO, "CBeanFrame::setBounds", x << "," << y << "," << width << "," << height);
    return forward([&](CJavaManagerJNIClient& client) { return client.setFrameBounds(frameObject, x, y, width, height); });
}

HRESULT CBeanFrame::setEnabled(bool enabled)
{
    LOG_SCOPE(INFO, "CBeanFrame::setEnabled", enabled);
    return forward([&](CJavaManagerJNIClient& client) { return client.setFrameEnabled(frameObject, enabled); });
}

HRESULT CBeanFrame::setVisible(bool visible)
{
    LOG_SCOPE(INFO, "CBeanFrame::setVisible");
    return forward([&](CJavaManagerJNIClient& client) { return client.setFrameVisible(frameObject, visible); });
}

HRESULT CBeanFrame::validate()
{
    LOG_SCOPE(INFO, "CBeanFrame::validate");
    return forward([&](CJavaManagerJNIClient& client) { return client.validateFrameAndBean(frameObject, beanObject); });
}

HRESULT CBeanFrame::testBridge(BSTR text, int ttl, int delay)
{
    LOG_SCOPE(INFO, "CBeanFrame::testBridge", text);
    return forward([&](CJavaManagerJNIClient& client) { return client.testBridge(listener, text, ttl, delay); });
}
