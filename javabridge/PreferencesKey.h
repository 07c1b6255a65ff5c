// The host application's Java preferences branch. Always read in the 32-bit registry view, where its installer writes it.
#pragma once

#include <windows.h>

inline constexpr char PREFERENCES_KEY[] = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
inline constexpr REGSAM PREFERENCES_ACCESS = KEY_READ | KEY_WOW64_32KEY;
