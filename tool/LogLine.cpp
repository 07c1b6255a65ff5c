#include "tool/LogLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cctype>
#include <chrono>
#include <format>

namespace {

constexpr size_t DATE_SIZE = 23;
constexpr size_t LEVEL_SIZE = 6;
constexpr size_t MODULE_SIZE = 20;
constexpr size_t MARKER_SIZE = 3;

// The names as a line has them.
const std::array<std::string, LOGLEVEL_TRACE + 1> LEVELS = [] {
    std::array<std::string, LOGLEVEL_TRACE + 1> names;
    for (int level = 0; level <= LOGLEVEL_TRACE; level++) {
        names[static_cast<size_t>(level)] = std::format("{:<{}}", getLogLevelName(level), LEVEL_SIZE);
    }
    return names;
}();

// A number of exactly these digits.
bool digits(std::string_view text, size_t begin, size_t count, int& number)
{
    const std::string_view part = text.substr(begin, count);
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number);
    return error == std::errc() && end == part.data() + count && std::isdigit(static_cast<unsigned char>(part.front())) != 0;
}

// Takes a number of at least so many columns, and one blank behind it, from the front of the text. The server fills columns with
// zeros, the control with blanks.
template <class Number>
bool takeNumber(std::string_view& text, size_t fewest, Number& number)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    const auto [end, error] = std::from_chars(text.data() + begin, text.data() + text.size(), number);
    const auto count = static_cast<size_t>(end - text.data());
    if (error != std::errc() || count < fewest || count >= text.size() || *end != ' ' || text[begin] == '-') {
        return false;
    }
    text.remove_prefix(count + 1);
    return true;
}

bool takeTime(std::string_view& text, LogLine& line)
{
    std::array<int, 7> parts = {};
    constexpr std::array<std::array<size_t, 2>, 7> PLACES = {{{0, 4}, {5, 2}, {8, 2}, {11, 2}, {14, 2}, {17, 2}, {20, 3}}};
    if (text.size() <= DATE_SIZE || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' || text[16] != ':' ||
        text[19] != '.' || text[DATE_SIZE] != ' ') {
        return false;
    }
    for (size_t index = 0; index < parts.size(); index++) {
        if (!digits(text, PLACES[index][0], PLACES[index][1], parts[index])) {
            return false;
        }
    }
    const auto& [year, month, day, hour, minute, second, millisecond] = parts;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) {
        return false;
    }
    const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    line.time = (((days * 24 + hour) * 60 + minute) * 60 + second) * 1000 + millisecond;
    line.date = text.substr(0, DATE_SIZE);
    text.remove_prefix(DATE_SIZE + 1);
    return true;
}

bool takeLevel(std::string_view& text, LogLine& line)
{
    const auto* const found = std::ranges::find(LEVELS, text.substr(0, LEVEL_SIZE));
    if (found == LEVELS.end() || text.size() <= LEVEL_SIZE || text[LEVEL_SIZE] != ' ') {
        return false;
    }
    line.level = static_cast<int>(found - LEVELS.begin());
    text.remove_prefix(LEVEL_SIZE + 1);
    return true;
}

bool takeModule(std::string_view& text, LogLine& line)
{
    if (text.size() <= MODULE_SIZE || text[MODULE_SIZE] != ' ') {
        return false;
    }
    line.module = text.substr(0, text.substr(0, MODULE_SIZE).find_last_not_of(' ') + 1);
    text.remove_prefix(MODULE_SIZE + 1);
    return true;
}

// Indentation and marker. A line without depth has neither.
void takeMarker(std::string_view& text, LogLine& line)
{
    const size_t blanks = std::min(text.find_first_not_of(' '), text.size());
    line.marker = LogMarker::Plain;
    line.depth = static_cast<int>(blanks);
    const std::string_view marker = text.substr(blanks, MARKER_SIZE);
    if (marker == "-> " || marker == "<- ") {
        line.marker = marker == "-> " ? LogMarker::Entry : LogMarker::Exit;
        text.remove_prefix(blanks + MARKER_SIZE);
    } else {
        line.depth = std::max(0, line.depth - static_cast<int>(MARKER_SIZE));
        text.remove_prefix(blanks);
    }
}

// The length of a class name of the program at the front, 0 without one.
size_t classNameSize(std::string_view text)
{
    if (text.size() < 3 || text[0] != 'C' || std::isupper(static_cast<unsigned char>(text[1])) == 0) {
        return 0;
    }
    const auto isPart = [](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
    };
    const auto* const end = std::ranges::find_if_not(text, isPart);
    return end != text.end() && *end == ' ' ? static_cast<size_t>(end - text.begin()) : 0;
}

} // namespace

std::optional<LogLine> parseLogLine(std::string_view text)
{
    LogLine line = {};
    if (!takeTime(text, line) || !takeNumber(text, 5, line.thread) || !takeLevel(text, line) || !takeModule(text, line) ||
        !takeNumber(text, 3, line.sourceLine)) {
        return std::nullopt;
    }
    takeMarker(text, line);
    line.text = text;
    return line;
}

std::string_view LogLine::message() const
{
    const size_t size = classNameSize(text);
    if (size == 0) {
        return text;
    }
    // One blank, what tells the object from others, one blank.
    const size_t blank = text.find(' ', size + 1);
    return blank == std::string_view::npos ? std::string_view() : text.substr(blank + 1);
}

int LogLine::milliseconds() const
{
    if (marker != LogMarker::Exit || !text.ends_with(" ms]")) {
        return -1;
    }
    const size_t begin = text.rfind('[') + 1;
    int number = -1;
    std::from_chars(text.data() + begin, text.data() + text.size(), number);
    return number;
}

std::string LogLine::function() const
{
    const std::string_view rest = message();
    const std::string_view name = rest.substr(0, rest.find_first_of(" ["));
    const std::string_view owner = text.substr(0, classNameSize(text));
    if (name.empty()) {
        return std::format("{} {:03}", owner.empty() ? module : owner, sourceLine);
    }
    return owner.empty() ? std::string(name) : std::format("{}::{}", owner, name);
}
