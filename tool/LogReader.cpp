#include "tool/LogReader.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace {

constexpr size_t CHUNK = 1 << 20;
// No message of the server is as long; what is longer is damage.
constexpr size_t LONGEST_LINE = 16 << 20;

bool isText(std::string_view line)
{
    return std::ranges::none_of(line, [](char character) { return character >= '\0' && character < ' ' && character != '\t'; });
}

// A header that is cut or damaged still begins with a year.
bool looksLikeHeader(std::string_view line)
{
    return line.size() >= 5 && line[4] == '-' &&
           std::ranges::all_of(line.substr(0, 4), [](char character) { return character >= '0' && character <= '9'; });
}

} // namespace

CLogReader::CLogReader(const std::string& path)
    : m_file(path, std::ios::binary)
{
    if (!m_file.is_open()) {
        throw std::runtime_error("cannot open " + path);
    }
}

void CLogReader::read(CLogVisitor& visitor)
{
    std::vector<char> chunk(CHUNK);
    // Behind what was read: a stream that has met the end does not look further by itself.
    m_file.clear();
    m_file.seekg(m_counts.bytes);
    while (m_file.read(chunk.data(), CHUNK) || m_file.gcount() > 0) {
        std::string_view rest(chunk.data(), static_cast<size_t>(m_file.gcount()));
        m_counts.bytes += m_file.gcount();
        for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            if (m_isOverlong) {
                m_counts.broken++;
            } else if (m_rest.empty()) {
                takeLine(rest.substr(0, end), visitor);
            } else {
                takeLine(m_rest.append(rest.substr(0, end)), visitor);
            }
            m_rest.clear();
            m_isOverlong = false;
            rest.remove_prefix(end + 1);
        }
        m_isOverlong = m_isOverlong || m_rest.size() + rest.size() > LONGEST_LINE;
        if (m_isOverlong) {
            m_rest.clear();
        } else {
            m_rest.append(rest);
        }
    }
}

void CLogReader::finish()
{
    if (!m_rest.empty() || m_isOverlong) {
        m_counts.broken++;
        m_rest.clear();
    }
}

void CLogReader::takeLine(std::string_view text, CLogVisitor& visitor)
{
    text = text.substr(0, text.find_last_not_of('\r') + 1); // several when a text has carriage returns of its own
    if (text == BACKTRACE_BEGIN) {
        m_counts.banners++;
        visitor.backtraceBegin();
    } else if (text == BACKTRACE_END) {
        m_counts.banners++;
        visitor.backtraceEnd();
    } else if (const auto line = parseLogLine(text); line.has_value() && isText(text)) {
        m_counts.lines++;
        m_hasMessage = true;
        visitor.line(*line);
    } else if (m_hasMessage && isText(text) && !looksLikeHeader(text)) {
        m_counts.continuations++;
        visitor.continuation(text);
    } else {
        m_counts.broken++;
    }
}
