#include "com/JavaManagerATLObject.h"

#include "beanframe/BeanFrame.h"
#include "com/JavaManagerATLObjectControl.h"

#define LOG_SOURCE "JavaManagerATLObject"

CJavaManagerATLObject* CJavaManagerATLObject::s_Instance = nullptr;

EventTarget* eventTarget()
{
    return CJavaManagerATLObject::s_Instance;
}

CJavaManagerATLObject::CJavaManagerATLObject()
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::CJavaManagerATLObject");
    if (!LOG_CONDITION(s_Instance == NULL)) {
        return;
    }
    s_Instance = this;
    // From here on nothing may throw: the object would be freed, and s_Instance would still point to it.
    const HRESULT hr = AtlGuard([&] {
        createBeanFrame();
        return S_OK;
    });
    if (FAILED(hr)) {
        // Only the number: the system's text needs memory, which may have run out.
        LOG(ERROR, "Failed to create ATL object. " << std::hex << hr);
    }
}

void CJavaManagerATLObject::createBeanFrame()
{
    const std::string basiscontrol = chooseBasisControl(nullptr, [this](const std::string& path) { return doesFileExist(path); });
    LOG(FINE, "Basiscontrol path: " << basiscontrol);
    RETURN_IF_FALSE(doesFileExist(basiscontrol), );

    CBeanFrame::createInstance(basiscontrol.c_str(), BEAN_PACKAGE, BEAN_CLASS);
    if (CBeanFrame::s_Instance == nullptr) {
        LOG(ERROR, "Failed to create ATL object.");
        return;
    }
    LOG_HRESULT(CBeanFrame::s_Instance->setVisible(true));
    LOG(TRACE, "CHECKPOINT: Successfully created ATL object."); // even when the frame could not be shown
}

CJavaManagerATLObject::~CJavaManagerATLObject()
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::~CJavaManagerATLObject");
    if (LOG_CONDITION(CBeanFrame::s_Instance!=NULL)) {
        CBeanFrame::deleteInstance();
    }
}

void CJavaManagerATLObject::ObjectMain(bool starting)
{
    if (starting) {
        Logger::addRefCount();
    }
    LOG_SCOPE_STATIC(INFO, "CJavaManagerATLObject::ObjectMain", starting);
    if (!starting) {
        Logger::release();
    }
}

HRESULT CJavaManagerATLObject::FinalConstruct()
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::FinalConstruct");
    return S_OK;
}

void CJavaManagerATLObject::FinalRelease()
{
    LOG_SCOPE(INFO, "CJavaManagerATLObject::FinalRelease");
}

const char* CJavaManagerATLObject::getLogClassName() const
{
    return "CJavaManagerATLObject";
}

bool CJavaManagerATLObject::doesFileExist(const std::string& path)
{
    LOG_SCOPE(FINE, "CJavaManagerATLObject::doesFileExist", path);
    return isFileThere(path);
}

IUnknown* CJavaManagerATLObject::targetUnknown()
{
    return static_cast<IJavaManager*>(this);
}
