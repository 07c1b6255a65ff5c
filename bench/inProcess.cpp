#include "bench/inProcess.h"

#include "tests/process/Program.h"

#include <stdexcept>

namespace bench {

CInProcess::CInProcess()
{
    m_settings.setRuntime("21.0.8", fixtures::runtimeLibrary(21));
    m_settings.setControl("TestControl", fixtures::programFolder());
    CComObject<CJavaManagerATLObject>* object = nullptr;
    if (FAILED(CComObject<CJavaManagerATLObject>::CreateInstance(&object))) {
        throw std::runtime_error("the object cannot be created");
    }
    m_object = object;
    int frame = -1;
    m_object->getBeanFrameID(&frame);
    if (frame == -1 || !CBeanFrame::s_Instance) {
        throw std::runtime_error("the object has no frame");
    }
}

CInProcess::~CInProcess()
{
    m_object.Release();
}

} // namespace bench
