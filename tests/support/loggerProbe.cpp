// A process whose static objects log in constructor and destructor. It prints its debugger stream until the very end, for the
// test that starts it.
#include "support/logger.h"

#include <string>

#define LOG_SOURCE "probe"

namespace {

LONG CALLBACK print(EXCEPTION_POINTERS* exception)
{
    constexpr DWORD PRINT_EXCEPTION = 0x40010006; // DBG_PRINTEXCEPTION_C
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != PRINT_EXCEPTION) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const std::string text(reinterpret_cast<const char*>(record.ExceptionInformation[1]), record.ExceptionInformation[0] - 1);
    const size_t header = text.find(".exe ") + 5;
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data() + header, static_cast<DWORD>(text.size() - header), &written, nullptr);
    return EXCEPTION_CONTINUE_EXECUTION;
}

class Static
{
public:
    explicit Static(const char* name)
        : m_name(name)
    {
        LOG_PLAIN(WARN, m_name << " begins");
    }
    ~Static()
    {
        LOG_PLAIN(WARN, m_name << " ends");
        Logger::setMaxLogLevel(LOGLEVEL_FINE);
    }
    Static(const Static&) = delete;
    Static& operator=(const Static&) = delete;

private:
    const char* m_name;
};

// Early: link order alone would construct the log's guard before ordinary objects of the program, but not before an early one.
struct Printing
{
    Printing() { AddVectoredExceptionHandler(1, &print); }
};
__attribute__((init_priority(200))) const Printing s_printing;
__attribute__((init_priority(201))) const Static s_early("early static");
const Static s_ordinary("ordinary static");

} // namespace

int main()
{
    LOG_PLAIN(WARN, "main");
    return 0;
}
