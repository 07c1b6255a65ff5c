// The server's object in the measuring process: everything from the COM object to Java and back, but no call across processes.
#pragma once

#include "beanframe/BeanFrame.h"
#include "com/JavaManagerATLObject.h"
#include "tests/process/Settings.h"

#include <jni.h>

namespace bench {

class CInProcess
{
public:
    // Starts the object with its machine on Java 21, at the default log level, WARN. The control's archive is beside the program.
    CInProcess();
    ~CInProcess();
    CInProcess(const CInProcess&) = delete;
    CInProcess& operator=(const CInProcess&) = delete;

    IJavaManager* object() const { return m_object; }

private:
    class CModule final : public CAtlModule
    {
    public:
        LONG Lock() noexcept override { return ++m_locks; }
        LONG Unlock() noexcept override { return --m_locks; }

    private:
        LONG m_locks = 0;
    };

    fixtures::CSettings m_settings;
    CModule m_module;
    CComPtr<IJavaManager> m_object;
};

} // namespace bench
