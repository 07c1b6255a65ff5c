// Unpacks the archives that the tool writes, and checks what their headers say.
#pragma once

#include <map>
#include <string>

// The content of each file by its name.
std::map<std::string, std::string> unzip(const std::string& archive);
