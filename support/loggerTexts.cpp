#include "support/logger.h"

#include <cstdio>
#include <cstring>
#include <iterator>

namespace {
struct LocalMemoryFreer
{
    void operator()(char* memory) const { LocalFree(memory); }
};
} // namespace

const char* getLogLevelName(int level)
{
    static constexpr const char* NAMES[] = {"ALWAYS", "ERROR", "WARN", "INFO", "FINE", "TRACE", "(invalid)"};
    // No bounds check, deliberately: callers keep to the table.
    return NAMES[level];
}

std::string getJNIErrorName(int code)
{
    // "successfull" and "JNI_ENOMEN" are deliberate.
    static constexpr const char* NAMES[] = {"successfull", "JNI_ERR",    "JNI_EDETACHED", "JNI_EVERSION",
                                            "JNI_ENOMEN",  "JNI_EEXIST", "JNI_EINVAL"};
    if (code > 0 || code <= -static_cast<int>(std::size(NAMES))) {
        return "Unknown error (" + std::to_string(code) + ")";
    }
    return NAMES[-code];
}

std::string getWindowsErrorText(unsigned code)
{
    char* message = nullptr;
    FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                   MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&message), 0, nullptr);
    const std::unique_ptr<char, LocalMemoryFreer> owner(message);

    std::string text;
    if (message != nullptr) {
        text.assign(message, std::strcspn(message, "\r\n"));
    }
    char number[16];
    std::snprintf(number, sizeof number, " (%08x)", code);
    return text + number;
}
