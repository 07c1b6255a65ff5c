// What the sample clients with windows share.
#pragma once

#include <windows.h>

#include <string>

// A length for a screen at 100 %, on this one.
inline int scaled(int length)
{
    return MulDiv(length, static_cast<int>(GetDpiForSystem()), USER_DEFAULT_SCREEN_DPI);
}

// For the standard output.
inline std::string utf8(const std::wstring& text)
{
    std::string bytes(3 * text.size(), '\0');
    bytes.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                                         static_cast<int>(bytes.size()), nullptr, nullptr)));
    return bytes;
}
