#include "javabridge/SharedText.h"

#include <new>
#include <optional>
#include <string>
#include <utility>

struct SharedText::Record
{
    explicit Record(CComBSTR text)
        : wide(std::move(text))
    {
    }

    const CComBSTR wide; // never null: a text with a record, even an empty one, is a BSTR
    std::optional<std::string> narrow;
};

SharedText::SharedText(BSTR text)
{
    if (text != nullptr) {
        assign(CComBSTR(text, SysStringLen(text)));
    }
}

SharedText::SharedText(const char* text)
{
    if (text != nullptr) {
        assign(CComBSTR(text));
    }
}

void SharedText::assign(CComBSTR text)
{
    try {
        m_record = std::make_shared<Record>(std::move(text));
    } catch (const std::bad_alloc&) {
        AtlThrow(E_OUTOFMEMORY);
    }
}

void SharedText::append(const char* text)
{
    if (text == nullptr) {
        return;
    }
    CComBSTR joined(bstr(), SysStringLen(bstr()));
    joined += CComBSTR(text);
    assign(std::move(joined));
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
