// Small stateless helpers. Any thread.
#pragma once

#include <string>

class CHelpers
{
public:
    // `prefix` followed by `number` in decimal, without separator.
    static std::string buildIdentifierString(const char* prefix, int number);
    // The process then shows no message boxes for critical errors and faults. Returns 0.
    static int setErrorModeSilent();
};
