// Texts as they cross to the server and back: only ASCII crosses whole, so everything else is encoded.
#pragma once

#include "client/kesta_text.h"

namespace kesta {

inline std::wstring toWire(const std::wstring& plain)
{
    return text::encode(std::wstring_view(plain));
}

inline std::wstring fromWire(const std::wstring& wire)
{
    return text::decode(std::wstring_view(wire));
}

} // namespace kesta
