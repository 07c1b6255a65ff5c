// Reads the version resource of an executable file. Stateless; any thread. Never fails: what is missing becomes a default.
#pragma once

#include <string>

class CVersion
{
public:
    // Four dotted numbers of the file version, or "" without a version resource.
    static std::string getVersionInfo(const char* path);
    // The same for the running executable; "" when no module name is set.
    static std::string getVersionInfo();
    // The product name in the first translation that has one, or "UNDEFINEDPRODUCT".
    static std::string getProductName(const char* path);
    // The same for the running executable; "UNDEFINEDPRODUCT" when no module name is set.
    static std::string getProductName();

    // Names the executable whose resource describes the process. Constant-initialised, since the log needs it during static
    // initialisation; null: the operations without parameters return their defaults.
    static const char* s_moduleName;
};
