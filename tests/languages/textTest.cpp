// The text helpers for clients in C++: the shared vectors, and random texts.
#include "client/kesta_text.h"
#include "tests/languages/headerUser.h"
#include "tests/process/Settings.h"
#include "tests/support/logLines.h"
#include "tests/support/places.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

namespace fixtures {
namespace {

using namespace std::literals;
using kesta::text::decode;
using kesta::text::encode;

constexpr int RANDOM_TEXTS = 20000;

std::u16string textOf(const std::string& units)
{
    std::u16string text;
    for (size_t place = 0; place < units.size(); place += 5) { // four digits and a blank
        text += static_cast<char16_t>(std::stoul(units.substr(place, 4), nullptr, 16));
    }
    return text;
}

std::u16string widened(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

std::wstring wide(const std::u16string& text)
{
    return {text.begin(), text.end()};
}

TEST(TextTest, EveryVectorHolds)
{
    const std::string table = readFile(windowsPath(std::getenv("KESTA_TEXTS")));
    int held = 0;
    for (const std::string& line : splitLines(table)) {
        const size_t first = line.find('\t');
        const size_t second = line.find('\t', first + 1);
        const std::string kind = line.substr(0, first);
        if (kind == "both" || kind == "decode") {
            const std::u16string plain = textOf(line.substr(first + 1, second - first - 1));
            const std::u16string encoded = widened(line.substr(second + 1));
            EXPECT_EQ(decode(encoded), plain) << line;
            EXPECT_EQ(decode(wide(encoded)), wide(plain)) << line;
            if (kind == "both") {
                EXPECT_EQ(encode(plain), encoded) << line;
                EXPECT_EQ(encode(wide(plain)), wide(encoded)) << line;
            }
            ++held;
        }
    }
    EXPECT_GT(held, 40);
}

TEST(TextTest, EveryTextComesBackAndCrossesAsPrintableAscii)
{
    constexpr std::u16string_view UNITS = u"\\\\\\uuu0041AFx\u00e9\u65e5\xd83d\xde00\0~\x7f\n"sv;
    std::mt19937 random(1);
    for (int round = 0; round < RANDOM_TEXTS; ++round) {
        std::u16string text;
        for (auto length = random() % 12; length > 0; --length) {
            text += UNITS[random() % UNITS.size()];
        }
        const std::u16string encoded = encode(text);
        EXPECT_EQ(encoded.find_first_not_of(u" !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                                            u"abcdefghijklmnopqrstuvwxyz{|}~"),
                  std::u16string::npos);
        ASSERT_EQ(decode(encoded), text);
    }
}

TEST(TextTest, HeaderServesACompilerForCxx17)
{
    EXPECT_EQ(encodedByCxx17(L"Troms\u00f8"), L"Troms\\u00F8");
}

} // namespace
} // namespace fixtures
