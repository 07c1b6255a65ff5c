#include "client/kesta_text.h" // first: it includes what it needs
#include "tests/languages/headerUser.h"

static_assert(__cplusplus < 202002L);

std::wstring encodedByCxx17(const std::wstring& text)
{
    return kesta::text::encode(text);
}
