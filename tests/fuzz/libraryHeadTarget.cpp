// Heads of library files: the machine number, or nothing.
#include "javabridge/JavaManagerJNIClientSettings.h"
#include "tests/fuzz/Target.h"

#include <cstring>

namespace fuzz {

namespace {

constexpr size_t OFFSET_PLACE = 0x3C;

template <class Number>
std::optional<Number> numberAt(Bytes input, long long place)
{
    if (place < 0 || static_cast<unsigned long long>(place) + sizeof(Number) > input.size()) {
        return std::nullopt;
    }
    Number number = 0;
    std::memcpy(&number, input.data() + place, sizeof number);
    return number;
}

std::optional<std::uint16_t> expected(Bytes input)
{
    const std::optional<std::int32_t> offset = numberAt<std::int32_t>(input, OFFSET_PLACE);
    if (!offset || numberAt<std::uint32_t>(input, *offset) != 0x00004550u) {
        return std::nullopt;
    }
    // A file that ends behind the signature names machine 0.
    return numberAt<std::uint16_t>(input, *offset + 4LL).value_or(std::uint16_t{0});
}

} // namespace

void libraryHead(Bytes input)
{
    std::ifstream file(temporaryFile(textOf(input)), std::ios::binary);
    expect(file.is_open(), "the file can be opened");
    expect(readLibraryMachine(file) == expected(input), "the machine number");
}

} // namespace fuzz
