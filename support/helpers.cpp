#include "support/helpers.h"

#include "support/logger.h"

#define LOG_SOURCE "helpers"

std::string CHelpers::buildIdentifierString(const char* prefix, int number)
{
    LOG_SCOPE_STATIC(FINE, "CHelpers::buildIdentifierString", prefix << ", " << number);
    return prefix + std::to_string(number);
}

int CHelpers::setErrorModeSilent()
{
    LOG_SCOPE_STATIC(FINE, "CHelpers::setErrorModeSilent");
    constexpr UINT NEW_MODE = SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX;
    const UINT oldMode = SetErrorMode(NEW_MODE);
    LOG(FINE, "new error mode:" << std::hex << NEW_MODE);
    LOG(FINE, "old error mode:" << std::hex << oldMode);
    return 0;
}
