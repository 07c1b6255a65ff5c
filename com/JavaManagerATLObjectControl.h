// Which control archive belongs to an executable. The object starts with this answer, and whoever explains a start asks for the
// same one. Any thread; only exhausted memory throws.
#pragma once

#include <functional>
#include <string>

// The archive that the registry names, or the one beside the executable when there is none. The answer need not exist. A null
// `executable` is the one of this process; `doesFileExist` is asked in the order of the choice.
std::string chooseBasisControl(const char* executable, const std::function<bool(const std::string&)>& doesFileExist);
