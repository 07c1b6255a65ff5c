#include "tool/ZipFile.h"

#include <windows.h>

#include <zlib.h>

#include <limits>
#include <stdexcept>

namespace {

constexpr uint32_t LOCAL_HEADER = 0x04034b50;
constexpr uint32_t DIRECTORY_HEADER = 0x02014b50;
constexpr uint32_t DIRECTORY_END = 0x06054b50;
constexpr uint16_t VERSION = 20;
constexpr uint16_t UTF8_NAME = 0x0800;
constexpr uint16_t DEFLATED = 8;
constexpr int RAW_DEFLATE = -MAX_WBITS; // an archive has no zlib header
constexpr int MEMORY_LEVEL = 8;

// Numbers stand in the archive as they do in this processor's memory.
template <class... Numbers>
void put(std::ofstream& file, Numbers... numbers)
{
    (file.write(reinterpret_cast<const char*>(&numbers), sizeof numbers), ...);
}

uint32_t checked(long long number)
{
    if (number < 0 || number > std::numeric_limits<uint32_t>::max()) {
        throw std::runtime_error("the archive would be too large");
    }
    return static_cast<uint32_t>(number);
}

// A stream that is compressed into a file.
class CDeflater
{
public:
    explicit CDeflater(std::ofstream& file)
        : m_file(file)
    {
        if (deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, RAW_DEFLATE, MEMORY_LEVEL, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~CDeflater() { deflateEnd(&m_stream); }
    CDeflater(const CDeflater&) = delete;
    CDeflater& operator=(const CDeflater&) = delete;

    void take(std::string_view piece, int flush)
    {
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
        m_stream.avail_in = static_cast<uInt>(piece.size());
        do {
            m_stream.next_out = reinterpret_cast<Bytef*>(m_buffer.data());
            m_stream.avail_out = static_cast<uInt>(m_buffer.size());
            deflate(&m_stream, flush);
            m_file.write(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size() - m_stream.avail_out));
        } while (m_stream.avail_out == 0);
    }

private:
    std::ofstream& m_file;
    z_stream m_stream = {};
    std::vector<char> m_buffer = std::vector<char>(65536);
};

} // namespace

CZipFile::CZipFile(const std::string& path)
    : m_path(path)
    , m_file(path, std::ios::binary | std::ios::trunc)
{
    if (!m_file) {
        throw std::runtime_error("cannot write " + path);
    }
    SYSTEMTIME now = {};
    GetLocalTime(&now);
    m_time = static_cast<uint16_t>(now.wHour << 11 | now.wMinute << 5 | now.wSecond / 2);
    m_date = static_cast<uint16_t>((now.wYear - 1980) << 9 | now.wMonth << 5 | now.wDay);
}

void CZipFile::writeHeader(const Entry& entry, bool isDirectory)
{
    if (isDirectory) {
        put(m_file, DIRECTORY_HEADER, VERSION);
    } else {
        put(m_file, LOCAL_HEADER);
    }
    constexpr uint16_t NONE = 0;
    put(m_file, VERSION, UTF8_NAME, DEFLATED, m_time, m_date, entry.checksum, entry.compressedSize, entry.size,
        static_cast<uint16_t>(entry.name.size()), NONE);
    if (isDirectory) {
        put(m_file, NONE, NONE, NONE, uint32_t{0}, entry.offset);
    }
    m_file << entry.name;
}

void CZipFile::add(const std::string& name, const std::function<void(const Sink&)>& produce)
{
    Entry entry = {name, 0, 0, 0, checked(m_file.tellp())};
    writeHeader(entry, false);
    const long long begin = m_file.tellp();
    long long size = 0;
    uLong checksum = crc32(0, nullptr, 0);
    {
        CDeflater deflater(m_file);
        produce([&](std::string_view piece) {
            checksum = crc32(checksum, reinterpret_cast<const Bytef*>(piece.data()), static_cast<uInt>(piece.size()));
            size += static_cast<long long>(piece.size());
            deflater.take(piece, Z_NO_FLUSH);
        });
        deflater.take("", Z_FINISH);
    }
    const long long end = m_file.tellp();
    entry.checksum = static_cast<uint32_t>(checksum);
    entry.compressedSize = checked(end - begin);
    entry.size = checked(size);
    m_file.seekp(entry.offset);
    writeHeader(entry, false);
    m_file.seekp(end);
    m_entries.push_back(entry);
}

void CZipFile::add(const std::string& name, const std::string& content)
{
    add(name, [&](const Sink& sink) { sink(content); });
}

void CZipFile::end()
{
    const uint32_t begin = checked(m_file.tellp());
    for (const Entry& entry : m_entries) {
        writeHeader(entry, true);
    }
    const uint32_t end = checked(m_file.tellp());
    const auto count = static_cast<uint16_t>(m_entries.size());
    constexpr uint16_t NONE = 0;
    put(m_file, DIRECTORY_END, NONE, NONE, count, count, end - begin, begin, NONE);
    m_file.close();
    if (!m_file) {
        throw std::runtime_error("cannot write " + m_path);
    }
}
