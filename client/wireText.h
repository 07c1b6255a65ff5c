// Texts as they cross to the server and back. Everything that crosses goes through these two functions.
#pragma once

#include <string>

// Without the encoding, texts cross as they are, and only ASCII arrives whole.
#if __has_include("client/kesta_text.h")
#include "client/kesta_text.h"
#define KESTA_ENCODES 1
#endif

namespace kesta {

inline std::wstring toWire(const std::wstring& plain)
{
#ifdef KESTA_ENCODES
    return text::encode(std::wstring_view(plain));
#else
    return plain;
#endif
}

inline std::wstring fromWire(const std::wstring& wire)
{
#ifdef KESTA_ENCODES
    return text::decode(std::wstring_view(wire));
#else
    return wire;
#endif
}

} // namespace kesta
