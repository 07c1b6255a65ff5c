// Writes a zip archive, compressed by zlib, file after file.
//
// Threads: one. Failure: what cannot be written throws std::runtime_error. Files and archive stay below four gigabytes.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class CZipFile
{
public:
    explicit CZipFile(const std::string& path);

    // Takes one more piece of the file that is being added.
    using Sink = std::function<void(std::string_view)>;
    // Adds a file whose content `produce` hands over in pieces. The name has slashes and is UTF-8.
    void add(const std::string& name, const std::function<void(const Sink&)>& produce);
    void add(const std::string& name, const std::string& content);
    // Writes the directory. Nothing can be added afterwards.
    void end();

private:
    struct Entry
    {
        std::string name;
        uint32_t checksum;
        uint32_t compressedSize;
        uint32_t size;
        uint32_t offset;
    };
    void writeHeader(const Entry& entry, bool isDirectory);

    std::string m_path;
    std::ofstream m_file;
    std::vector<Entry> m_entries;
    uint16_t m_time;
    uint16_t m_date;
};
