#include "javabridge/SharedText.h"

#include <new>
#include <optional>
#include <utility>

namespace {

// Exhausted memory leaves this file as the COM error that callers expect.
template <class Work>
auto orOutOfMemory(Work work) -> decltype(work())
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        AtlThrow(E_OUTOFMEMORY);
    }
}

// Converts into the memory that `room` gives for a number of characters; asks for none when there is nothing to convert.
template <class Room>
void widen(const char* text, size_t length, Room room)
{
    if (length == 0) {
        return;
    }
    const int narrowLength = static_cast<int>(length);
    const int needed = MultiByteToWideChar(CP_ACP, 0, text, narrowLength, nullptr, 0);
    if (MultiByteToWideChar(CP_ACP, 0, text, narrowLength, room(static_cast<size_t>(needed)), needed) == 0) {
        AtlThrow(AtlHresultFromLastError());
    }
}

} // namespace

std::string narrowText(const wchar_t* text, size_t length)
{
    if (length == 0) {
        return {};
    }
    return orOutOfMemory([&] {
        const int wideLength = static_cast<int>(length);
        const int needed = WideCharToMultiByte(CP_ACP, 0, text, wideLength, nullptr, 0, nullptr, nullptr);
        std::string narrow(static_cast<size_t>(needed), '\0');
        if (WideCharToMultiByte(CP_ACP, 0, text, wideLength, narrow.data(), needed, nullptr, nullptr) == 0) {
            AtlThrow(AtlHresultFromLastError());
        }
        return narrow;
    });
}

std::string narrowText(BSTR text)
{
    return narrowText(text, SysStringLen(text));
}

std::wstring wideText(const char* text, size_t length)
{
    std::wstring wide;
    widen(text, length, [&](size_t needed) {
        return orOutOfMemory([&] {
            wide.resize(needed);
            return wide.data();
        });
    });
    return wide;
}

CComBSTR wideBstr(const char* text, size_t length)
{
    if (length == 0) {
        return CComBSTR(L"");
    }
    CComBSTR wide;
    widen(text, length, [&](size_t needed) {
        wide = CComBSTR(nullptr, needed);
        return wide.m_str;
    });
    return wide;
}

struct SharedText::Record
{
    CComBSTR wide; // never null: a text with a record, even an empty one, is a BSTR
    std::optional<std::string> narrow;
};

SharedText::SharedText(BSTR text)
{
    if (text != nullptr) {
        assign({text, SysStringLen(text)});
    }
}

SharedText::SharedText(const char* text)
{
    if (text != nullptr) {
        assign(wideText(text, std::char_traits<char>::length(text)));
    }
}

void SharedText::assign(std::wstring_view text)
{
    auto record = orOutOfMemory([] { return std::make_shared<Record>(); });
    record->wide = CComBSTR(text.data(), text.size());
    m_record = std::move(record);
}

void SharedText::append(const char* text)
{
    if (text == nullptr) {
        return;
    }
    const std::wstring tail = wideText(text, std::char_traits<char>::length(text));
    assign(orOutOfMemory([&] { return std::wstring(std::wstring_view(bstr(), SysStringLen(bstr()))) + tail; }));
}

BSTR SharedText::bstr() const
{
    return m_record ? m_record->wide.m_str : nullptr;
}

const char* SharedText::narrow() const
{
    if (!m_record) {
        return "";
    }
    std::optional<std::string>& narrow = m_record->narrow;
    if (!narrow) {
        narrow = narrowText(m_record->wide.m_str);
    }
    return narrow->c_str();
}
