// A process whose ordinary static object logs at its construction and at its end. What goes to the debugger stream is printed,
// until the very end of the process; the test that starts it reads that.
#include "support/logger.h"

#include <string>

#define LOG_SOURCE "probe"

namespace {

LONG CALLBACK print(EXCEPTION_POINTERS* exception)
{
    constexpr DWORD printException = 0x40010006; // DBG_PRINTEXCEPTION_C
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != printException)
        return EXCEPTION_CONTINUE_SEARCH;
    const std::string text(reinterpret_cast<const char*>(record.ExceptionInformation[1]), record.ExceptionInformation[0] - 1);
    const size_t header = text.find(".exe ") + 5;
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data() + header, static_cast<DWORD>(text.size() - header), &written, nullptr);
    return EXCEPTION_CONTINUE_EXECUTION;
}

class OrdinaryStatic
{
public:
    OrdinaryStatic()
    {
        AddVectoredExceptionHandler(1, &print);
        LOG_PLAIN(WARN, "static begins");
    }
    ~OrdinaryStatic()
    {
        LOG_PLAIN(WARN, "static ends");
        Logger::setMaxLogLevel(LOGLEVEL_FINE);
    }
    OrdinaryStatic(const OrdinaryStatic&) = delete;
    OrdinaryStatic& operator=(const OrdinaryStatic&) = delete;
};

const OrdinaryStatic s_ordinary;

} // namespace

int main()
{
    LOG_PLAIN(WARN, "main");
    return 0;
}
