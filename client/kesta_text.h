// Texts on their way to a control and back.
//
// A text passes the server as bytes of the machine's ANSI code page, and only printable ASCII arrives as it was sent. So client
// and control write every other UTF-16 code unit as \uXXXX, with four upper-case hexadecimal digits, and also a backslash with a
// "u" behind it; nothing else is changed. tests/texts/encoding.txt is the rule, with examples.
//
//     control->setProperty(_bstr_t(L"title"), _bstr_t(kesta::text::encode(L"Troms\u00F8").c_str()), answer.GetAddress());
//     std::wstring title = kesta::text::decode(std::wstring_view(answer, answer.length()));
//
// decode(encode(text)) is the text again, whatever it holds: zero characters, unpaired surrogates, backslashes. The functions may
// be called on any thread and fail only when there is no memory left (std::bad_alloc). C++17; needs nothing but the standard
// library.
#pragma once

#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>

namespace kesta::text {

namespace detail {

constexpr std::size_t ESCAPE_LENGTH = 6; // backslash, "u" and four digits

template <class Unit>
std::basic_string<Unit> encode(std::basic_string_view<Unit> text)
{
    std::basic_string<Unit> encoded;
    encoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        const Unit unit = text[index];
        const bool opensEscape = unit == '\\' && index + 1 < text.size() && text[index + 1] == 'u';
        if (unit >= ' ' && unit <= '~' && !opensEscape) {
            encoded += unit;
            continue;
        }
        encoded += static_cast<Unit>('\\');
        encoded += static_cast<Unit>('u');
        for (int shift = 12; shift >= 0; shift -= 4) {
            encoded += static_cast<Unit>("0123456789ABCDEF"[(unit >> shift) & 0xF]);
        }
    }
    return encoded;
}

// The value of an upper-case hexadecimal digit, or -1.
template <class Unit>
int digit(Unit unit)
{
    if (unit >= '0' && unit <= '9') {
        return unit - '0';
    }
    return unit >= 'A' && unit <= 'F' ? unit - 'A' + 10 : -1;
}

// The code unit that an escape at this place stands for, or -1.
template <class Unit>
int unitAt(std::basic_string_view<Unit> text, std::size_t index)
{
    if (text.size() - index < ESCAPE_LENGTH || text[index] != '\\' || text[index + 1] != 'u') {
        return -1;
    }
    int unit = 0;
    for (std::size_t place = index + 2; place < index + ESCAPE_LENGTH; ++place) {
        const int value = digit(text[place]);
        if (value < 0) {
            return -1;
        }
        unit = unit * 16 + value;
    }
    return unit;
}

template <class Unit>
std::basic_string<Unit> decode(std::basic_string_view<Unit> text)
{
    std::basic_string<Unit> decoded;
    decoded.reserve(text.size());
    std::size_t index = 0;
    while (index < text.size()) {
        const int unit = unitAt(text, index);
        decoded += unit < 0 ? text[index] : static_cast<Unit>(unit);
        index += unit < 0 ? 1 : ESCAPE_LENGTH;
    }
    return decoded;
}

} // namespace detail

inline std::u16string encode(std::u16string_view text)
{
    return detail::encode(text);
}

inline std::u16string decode(std::u16string_view text)
{
    return detail::decode(text);
}

#if WCHAR_MAX <= 0xFFFF // as on Windows

inline std::wstring encode(std::wstring_view text)
{
    return detail::encode(text);
}

inline std::wstring decode(std::wstring_view text)
{
    return detail::decode(text);
}

#endif

} // namespace kesta::text
