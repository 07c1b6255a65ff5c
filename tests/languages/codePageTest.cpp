// Texts of every kind between a client and its control, on machines with different code pages. Wine takes the code page from
// LC_ALL, which CMakeLists.txt sets for each of these tests.
#include "client/kesta_text.h"
#include "tests/process/ServerFixture.h"

#include <algorithm>
#include <format>
#include <random>

namespace fixtures {
namespace {

using ATL::CComBSTR;
using kesta::text::decode;
using kesta::text::encode;
using namespace std::literals;

constexpr size_t TEXTS = 500;

constexpr std::wstring_view PIECES[] = {
    L"plain"sv,
    L" "sv,
    L"~!;|"sv,
    L"\u00fcml\u00e4ut\u00df"sv,
    L"Troms\u00f8"sv,
    L"\u20ac"sv,
    L"\x80\x9f"sv,
    L"\u03a9"sv,
    L"e\u0301"sv,
    L"\u65e5\u672c\u8a9e"sv,
    L"\uff76\uff85"sv,
    L"\u05d0\u202e"sv,
    L"\U0001f600"sv,
    L"\xd83d"sv,
    L"\xde00"sv,
    L"\0"sv,
    L"\t\r\n"sv,
    L"\x7f"sv,
    L"\\"sv,
    L"\\\\"sv,
    L"\\u"sv,
    L"\\u0041"sv,
    L"\\u00e9"sv,
    L"C:\\users\\temp"sv,
    L"\ufeff\uffff"sv,
    L"{\"site\":\"Troms\u00f8\",\"path\":\"C:\\\\users\"}"sv, // JSON, with the letter as it is and as a number
    L"{\"site\":\"Troms\\u00f8\",\"path\":\"C:\\\\users\"}"sv,
};

// The same ones in each run: first each piece alone, then mixtures.
std::vector<std::wstring> texts()
{
    std::mt19937 random(14);
    std::vector<std::wstring> all(std::begin(PIECES), std::end(PIECES));
    while (all.size() < TEXTS) {
        std::wstring text;
        for (auto pieces = 1 + random() % 8; pieces > 0; --pieces) {
            text += PIECES[random() % std::size(PIECES)];
        }
        all.push_back(text);
    }
    return all;
}

std::string unitsOf(const std::wstring& text)
{
    std::string units;
    for (const wchar_t unit : text) {
        units += std::format("{:04X}", static_cast<unsigned>(unit));
    }
    return units;
}

// No code page has these, or the control side takes them for its encoding of something else.
bool cannotCrossPlain(const std::wstring& text)
{
    return decode(text) != text || std::ranges::any_of(text, [](wchar_t unit) { return unit == 0 || (unit & 0xF800) == 0xD800; });
}

bool isAscii(const std::wstring& text)
{
    return std::ranges::all_of(text, [](wchar_t unit) { return unit > 0 && unit < 0x80; });
}

class CodePageTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        setLogLevel(WARNINGS);
    }

    static std::wstring call(const SManager& manager, const wchar_t* method, const std::wstring& argument)
    {
        CComBSTR text;
        text.Attach(SysAllocStringLen(argument.data(), static_cast<UINT>(argument.size())));
        CComBSTR answer;
        EXPECT_EQ(manager->callMethod(CComBSTR(method), text, &answer), S_OK) << unitsOf(argument);
        return {answer.m_str, answer.Length()};
    }
    // The code units that the control has got, as it sees them.
    static std::string unitsInTheControl(const SManager& manager, const std::wstring& argument)
    {
        return narrow(CComBSTR(call(manager, L"units", argument).c_str()));
    }

    // Each text in the control, back from it, and in an event.
    void expectEveryTextWhole(unsigned codePage)
    {
        ASSERT_EQ(GetACP(), codePage);
        const std::vector<std::wstring> all = texts();
        SManager manager = create();
        CSink sink;
        CConnection connection(manager.object, sink);
        for (size_t number = 0; number < all.size(); ++number) {
            const std::wstring encoded = encode(all[number]);
            EXPECT_EQ(unitsInTheControl(manager, encoded), unitsOf(all[number]));
            EXPECT_EQ(unitsOf(decode(call(manager, L"echo", encoded))), unitsOf(all[number]));
            call(manager, L"raise", encode(std::to_wstring(number) + L" " + all[number]));
        }
        EXPECT_TRUE(pumpUntil([&] { return sink.events.size() == all.size(); }));
        std::vector<std::string> brought(all.size());
        for (const CSink::Event& event : sink.events) { // in the server's own order
            const std::wstring text = decode(std::wstring(event.text.begin(), event.text.end()));
            const size_t number = std::stoul(text);
            ASSERT_LT(number, brought.size());
            brought[number] = unitsOf(text.substr(text.find(L' ') + 1));
        }
        for (size_t number = 0; number < all.size(); ++number) {
            EXPECT_EQ(brought[number], unitsOf(all[number]));
        }
        connection.end();
        release(manager);
    }

    // The same without the encoding: `survivor` arrives by luck, `victim` does not.
    void expectPlainTextsDamaged(unsigned codePage, const std::wstring& survivor, const std::wstring& victim)
    {
        ASSERT_EQ(GetACP(), codePage);
        SManager manager = create();
        size_t damaged = 0;
        for (const std::wstring& text : texts()) {
            const bool isWhole = unitsInTheControl(manager, text) == unitsOf(text);
            damaged += isWhole ? 0 : 1;
            EXPECT_FALSE(isWhole && cannotCrossPlain(text)) << unitsOf(text);
            EXPECT_TRUE(isWhole || cannotCrossPlain(text) || !isAscii(text)) << unitsOf(text);
        }
        std::printf("code page %u: %zu of %zu plain texts were damaged\n", codePage, damaged, TEXTS);
        EXPECT_GT(damaged, TEXTS / 2);
        EXPECT_EQ(unitsInTheControl(manager, survivor), unitsOf(survivor));
        EXPECT_NE(unitsInTheControl(manager, victim), unitsOf(victim));
        release(manager);
    }
};

TEST_F(CodePageTest, WesternEncodedTextsArriveWhole)
{
    expectEveryTextWhole(1252);
}

TEST_F(CodePageTest, WesternPlainTextsAreDamaged)
{
    expectPlainTextsDamaged(1252, L"Troms\u00f8", L"\u20ac");
}

TEST_F(CodePageTest, JapaneseEncodedTextsArriveWhole)
{
    expectEveryTextWhole(932);
}

TEST_F(CodePageTest, JapanesePlainTextsAreDamaged)
{
    expectPlainTextsDamaged(932, L"plain", L"\u65e5\u672c\u8a9e");
}

TEST_F(CodePageTest, UnicodeEncodedTextsArriveWhole)
{
    expectEveryTextWhole(CP_UTF8);
}

TEST_F(CodePageTest, UnicodePlainTextsAreDamaged)
{
    expectPlainTextsDamaged(CP_UTF8, L"\u65e5\u672c\u8a9e", L"\U0001f600");
}

} // namespace
} // namespace fixtures
