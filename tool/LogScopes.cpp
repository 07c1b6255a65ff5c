#include "tool/LogScopes.h"

#include <algorithm>

namespace {

constexpr int DEEPEST = 20; // deeper scopes are indented like this one

// The text of an exit line without the time at its end.
std::string_view withoutTime(const LogLine& line)
{
    std::string_view text = line.text;
    if (line.milliseconds() >= 0) {
        text = text.substr(0, text.rfind('['));
    }
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

void CLogScopes::line(const LogLine& line)
{
    m_first = m_first < 0 ? line.time : m_first;
    m_last = std::max(m_last, line.time - m_first);
    const bool isError = m_backtraces.isBegin(line);
    if (line.marker == LogMarker::Plain) {
        if (isError || (line.level > 0 && line.level <= 2) || line.message().starts_with("CHECKPOINT: ")) {
            event({line.thread, line.time - m_first, line.level, std::string(line.text)});
        }
    } else if (line.marker == LogMarker::Exit) {
        close(line);
    } else {
        m_backtraces.isPart(line);
        open(line);
    }
}

// A backtrace tells of scopes that may be open already, or that have had no entry line, the outer ones last.
void CLogScopes::open(const LogLine& line)
{
    std::vector<LoggedScope>& open = m_open[line.thread];
    const int64_t begin = line.time - m_first;
    LoggedScope scope = {
        line.thread, line.depth, begin, begin, std::string(line.module), line.function(), std::string(withoutTime(line)), false};
    const auto isSame = [&](const LoggedScope& known) {
        return known.depth == scope.depth && known.begin == scope.begin && known.function == scope.function;
    };
    if (std::ranges::any_of(open, isSame)) {
        return;
    }
    const auto place = std::ranges::find_if(
        open, [&](const LoggedScope& known) { return known.depth > scope.depth && known.begin >= scope.begin; });
    open.insert(place, std::move(scope));
}

void CLogScopes::close(const LogLine& line)
{
    std::vector<LoggedScope>& open = m_open[line.thread];
    const std::string function = line.function();
    const auto found = std::find_if(open.rbegin(), open.rend(), [&](const LoggedScope& known) {
        return known.depth == line.depth && known.function == function;
    });
    const int64_t end = line.time - m_first;
    LoggedScope ended = {line.thread,
                         line.depth,
                         end - std::max(0, line.milliseconds()),
                         end,
                         std::string(line.module),
                         function,
                         std::string(withoutTime(line)),
                         true};
    if (found != open.rend()) {
        ended.begin = found->begin;
        // What lies deeper has ended unseen.
        while (line.depth < DEEPEST && open.end() != found.base()) {
            open.back().end = end;
            scope(open.back());
            open.pop_back();
        }
        open.erase(found.base() - 1);
    }
    scope(ended);
}

void CLogScopes::finish()
{
    for (auto& [thread, open] : m_open) {
        for (auto each = open.rbegin(); each != open.rend(); ++each) {
            each->end = m_last;
            scope(*each);
        }
    }
    m_open.clear();
}
