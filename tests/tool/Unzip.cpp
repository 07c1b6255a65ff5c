#include "tests/tool/Unzip.h"

#include "tests/support/places.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

namespace {

template <class Number>
Number numberAt(const std::string& bytes, size_t place)
{
    Number number = 0;
    memcpy(&number, bytes.data() + place, sizeof number);
    return number;
}

} // namespace

std::map<std::string, std::string> unzip(const std::string& archive)
{
    const std::string bytes = fixtures::readFile(archive);
    const size_t end = bytes.rfind("PK\5\6");
    std::map<std::string, std::string> files;
    size_t place = numberAt<uint32_t>(bytes, end + 16);
    for (int count = numberAt<uint16_t>(bytes, end + 10); count > 0; count--) {
        const auto nameSize = numberAt<uint16_t>(bytes, place + 28);
        const std::string name = bytes.substr(place + 46, nameSize);
        const auto offset = numberAt<uint32_t>(bytes, place + 42);
        EXPECT_EQ(bytes.substr(offset + 30, nameSize), name) << "the file's own header";
        EXPECT_EQ(bytes.substr(offset + 14, 12), bytes.substr(place + 16, 12)) << "checksum and sizes in both headers";
        std::string content(numberAt<uint32_t>(bytes, place + 24), '\0');
        z_stream stream = {};
        inflateInit2(&stream, -MAX_WBITS);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data() + offset + 30 + nameSize));
        stream.avail_in = numberAt<uint32_t>(bytes, place + 20);
        stream.next_out = reinterpret_cast<Bytef*>(content.data());
        stream.avail_out = static_cast<uInt>(content.size());
        inflate(&stream, Z_FINISH);
        EXPECT_EQ(stream.avail_in + stream.avail_out, 0U) << name;
        inflateEnd(&stream);
        EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size())),
                  numberAt<uint32_t>(bytes, place + 16));
        files[name] = content;
        place += 46U + nameSize;
    }
    EXPECT_EQ(place, end);
    return files;
}
