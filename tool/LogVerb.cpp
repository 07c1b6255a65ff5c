#include "tool/LogVerb.h"

#include "tool/Findings.h"
#include "tool/LogPage.h"
#include "tool/LogSummary.h"
#include "tool/LogTrace.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <format>
#include <memory>
#include <vector>

namespace {

constexpr int LARGEST_EXIT_CODE = 99;
constexpr int SLOW = 1000;          // ms; what a follower is told of
constexpr DWORD LONGEST_WAIT = 500; // ms; Windows does not tell of every line that is written to an open file

// Hands everything on to several visitors.
class CVisitors : public CLogVisitor
{
public:
    void add(CLogVisitor& visitor) { m_visitors.push_back(&visitor); }
    void line(const LogLine& line) override
    {
        for (CLogVisitor* const visitor : m_visitors) {
            visitor->line(line);
        }
    }
    void continuation(std::string_view text) override
    {
        for (CLogVisitor* const visitor : m_visitors) {
            visitor->continuation(text);
        }
    }
    void backtraceBegin() override
    {
        for (CLogVisitor* const visitor : m_visitors) {
            visitor->backtraceBegin();
        }
    }
    void backtraceEnd() override
    {
        for (CLogVisitor* const visitor : m_visitors) {
            visitor->backtraceEnd();
        }
    }

private:
    std::vector<CLogVisitor*> m_visitors;
};

// Prints errors, warnings, milestones and slow calls as they come, backtraces folded.
class CFollower : public CLogVisitor
{
public:
    CFollower(std::ostream& out, bool isColoured)
        : m_out(out)
        , m_red(isColoured ? "\x1b[31m" : "")
        , m_plain(isColoured ? "\x1b[0m" : "")
    {
    }
    void line(const LogLine& line) override
    {
        m_backtraces.isBegin(line);
        if (line.marker == LogMarker::Plain && (line.level == 1 || line.level == 2)) {
            m_out << std::format("{}{}  {:05}  {}{}\n", line.level == 1 ? m_red : "", line.date, line.thread, line.text,
                                 line.level == 1 ? m_plain : "");
        } else if (m_backtraces.isPart(line)) {
            m_chain += (m_chain.empty() ? "    in " : " < ") + line.function();
        } else if (line.milliseconds() >= SLOW || line.message().starts_with("CHECKPOINT: ")) {
            m_out << std::format("{}  {:05}  {}\n", line.date, line.thread, line.text);
        }
    }
    void continuation(std::string_view) override {}
    void backtraceBegin() override { m_backtraces.begin(); }
    void backtraceEnd() override
    {
        m_backtraces.end();
        if (!m_chain.empty()) {
            m_out << m_chain << "\n";
            m_chain.clear();
        }
    }

private:
    std::ostream& m_out;
    const char* m_red;
    const char* m_plain;
    CBacktraces m_backtraces;
    std::string m_chain;
};

bool isThere(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(toPath(path), error);
}

// Ends with the program.
[[noreturn]] void follow(const LogOrder& order, std::ostream& out)
{
    CFollower follower(out, order.isColoured);
    std::string file = order.file;
    auto reader = std::make_unique<CLogReader>(file);
    const std::string folder = fromPath(std::filesystem::absolute(toPath(file)).parent_path());
    const HANDLE change =
        FindFirstChangeNotificationA(folder.c_str(), FALSE, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_FILE_NAME);
    for (;;) {
        const std::string next = nextLogFile(file);
        const bool goesOn = isThere(next);
        reader->read(follower);
        out.flush();
        if (goesOn) {
            file = next;
            reader = std::make_unique<CLogReader>(file);
        } else if (WaitForSingleObject(change, LONGEST_WAIT) == WAIT_OBJECT_0) {
            FindNextChangeNotification(change);
        }
    }
}

} // namespace

std::string nextLogFile(const std::string& file)
{
    constexpr size_t INDEX_SIZE = 5; // with its dash
    const std::filesystem::path path = toPath(file);
    std::string stem = fromPath(path.parent_path() / path.stem());
    int index = 0;
    if (stem.size() > INDEX_SIZE && stem[stem.size() - INDEX_SIZE] == '-') {
        // A process's number may look like an index, but its first file has no file before it.
        const std::string first = stem.substr(0, stem.size() - INDEX_SIZE);
        if (isThere(first + ".log")) {
            index = std::atoi(stem.c_str() + stem.size() - INDEX_SIZE + 1);
            stem = first;
        }
    }
    return std::format("{}-{:04}.log", stem, index + 1);
}

int readLog(const LogOrder& order, std::ostream& out)
{
    if (order.isFollowing) {
        follow(order, out);
    }
    CLogReader reader(order.file);
    CLogSummary summary;
    CVisitors visitors;
    visitors.add(summary);
    std::unique_ptr<CLogTrace> trace;
    std::unique_ptr<CLogPage> page;
    if (!order.traceFile.empty()) {
        trace = std::make_unique<CLogTrace>(order.traceFile);
        visitors.add(*trace);
    }
    if (!order.htmlFile.empty()) {
        page = std::make_unique<CLogPage>();
        visitors.add(*page);
    }
    reader.read(visitors);
    reader.finish();
    nlohmann::json result = summary.json(reader.counts());
    if (trace != nullptr) {
        trace->finish();
        trace->end();
        result["traceScopes"] = trace->scopeCount();
    }
    if (page != nullptr) {
        page->finish();
        page->write(order.htmlFile, fromPath(toPath(order.file).filename()), reader.counts());
        result["pageScopes"] = page->scopeCount();
    }
    if (order.isJson) {
        out << result.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    } else {
        summary.print(out, reader.counts(), order.isColoured);
        out << summary.nextStep() << "\n";
    }
    return static_cast<int>(std::min<long long>(summary.errorCount(), LARGEST_EXIT_CODE));
}
