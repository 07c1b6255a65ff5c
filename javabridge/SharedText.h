// A shared, reference-counted text: a BSTR and, made on demand, its narrow copy in the system's ANSI code page.
//
// Ownership: copies share one record; the last one frees both forms.
// Threads:   copies may be destroyed on any thread; the record itself is used by one thread at a time.
// Failure:   exhausted memory throws CAtlException(E_OUTOFMEMORY), a failed code page conversion the error of GetLastError.
#pragma once

#include "atl/atl.h"

#include <windows.h>

#include <memory>

class SharedText
{
public:
    SharedText() = default;
    // Copies the BSTR, embedded zeros included; a null BSTR makes a text without a record.
    explicit SharedText(BSTR text);
    // Copies narrow text through the ANSI code page.
    explicit SharedText(const char* text);

    // Appends narrow text; other copies do not change.
    void append(const char* text);

    // Null when the text has no record; valid as long as this object holds the record.
    BSTR bstr() const;
    // "" when the text has no record; valid as long as this object holds the record.
    const char* narrow() const;

private:
    struct Record;
    // Starts a new record, which no copy shares.
    void assign(CComBSTR text);
    std::shared_ptr<Record> m_record;
};
