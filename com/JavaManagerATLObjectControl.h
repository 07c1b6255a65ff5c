// Which control the object shows, and which archive belongs to an executable. The object starts with these answers, and whoever
// explains a start asks for the same ones. Any thread; only exhausted memory throws.
#pragma once

#include <functional>
#include <string>

inline constexpr char BEAN_PACKAGE[] = "com.orvane.tech.client.qmrt.win";
inline constexpr char BEAN_CLASS[] = "QMRTWinControl";

// True when the attributes can be read. Whether the file can be is Java's affair; a folder will do as well.
bool isFileThere(const std::string& path);

// The archive that the registry names, or the one beside the executable when there is none. The answer need not exist. A null
// `executable` is the one of this process; `doesFileExist` is asked in the order of the choice.
std::string chooseBasisControl(const char* executable, const std::function<bool(const std::string&)>& doesFileExist);
