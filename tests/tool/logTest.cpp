// What the log reader makes of lines: taken apart, counted, folded, and put together to scopes.
#include "tests/tool/ToolTest.h"

#include "tool/LogPage.h"
#include "tool/LogSummary.h"
#include "tool/LogTrace.h"
#include "tool/LogVerb.h"

#include <nlohmann/json.hpp>

#include <format>
#include <sstream>

using nlohmann::json;
using testing::ElementsAre;

namespace {

// A line as the server writes it; `time` in ms after ten o'clock.
std::string line(int time, int thread, const std::string& level, int depth, const std::string& marked)
{
    const bool isScope = marked.starts_with("-> ") || marked.starts_with("<- ");
    return std::format("2020-03-04 10:{:02}:{:02}.{:03} {:05} {:<6} {:<20} {:03} {}{}\r\n", time / 60000, time / 1000 % 60,
                       time % 1000, thread, level, "BeanFrame", 44,
                       std::string(static_cast<size_t>(depth) + (isScope ? 0 : 3), ' '), marked);
}
const std::string BEGIN = std::string(BACKTRACE_BEGIN) + "\r\n";
const std::string END = std::string(BACKTRACE_END) + "\r\n";

class LogTest : public testing::Test
{
protected:
    // The log as JSON; `html` and `trace` are written as well.
    json read(const std::string& text)
    {
        fixtures::makeFile(file, text);
        std::ostringstream out;
        exitCode = readLog({.file = file, .traceFile = trace, .htmlFile = html, .isJson = true}, out);
        return json::parse(out.str());
    }
    std::string printed(const std::string& text)
    {
        fixtures::makeFile(file, text);
        std::ostringstream out;
        exitCode = readLog({.file = file}, out);
        return out.str();
    }
    json traced() const { return json::parse(fixtures::readFile(trace))["traceEvents"]; }

    fixtures::TemporaryFolder folder;
    std::string file = folder.path("a.log");
    std::string trace = folder.path("trace.json");
    std::string html = folder.path("page.html");
    int exitCode = -1;
};

TEST_F(LogTest, LineIsTakenApart)
{
    const std::string text =
        "2020-03-04 10:15:02.123 04712 FINE   JavaManagerATLObject 044   -> CJavaManagerATLObject  setBounds 0, 0";
    const auto parsed = parseLogLine(text);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->date, "2020-03-04 10:15:02.123");
    EXPECT_EQ(parsed->thread, 4712U);
    EXPECT_EQ(parsed->level, 4);
    EXPECT_EQ(parsed->module, "JavaManagerATLObject");
    EXPECT_EQ(parsed->sourceLine, 44);
    EXPECT_EQ(parsed->depth, 2);
    EXPECT_EQ(parsed->marker, LogMarker::Entry);
    EXPECT_EQ(parsed->message(), "setBounds 0, 0");
    EXPECT_EQ(parsed->function(), "CJavaManagerATLObject::setBounds");
    const auto functionOf = [](const std::string& marked) {
        const std::string made = line(0, 1, "FINE", 0, marked);
        return parseLogLine(std::string_view(made).substr(0, made.size() - 2))->function();
    };
    EXPECT_EQ(functionOf("<- CBeanFrame -1 createInstance x, y [12 ms]"), "CBeanFrame::createInstance");
    EXPECT_EQ(functionOf("<- createJVM  [12 ms]"), "createJVM");
    EXPECT_EQ(functionOf("-> CBeanFrame -1 "), "CBeanFrame 044") << "a scope without text is known by its line";
    EXPECT_EQ(functionOf("-> "), "BeanFrame 044");
    EXPECT_EQ(functionOf("-> ConstantName"), "ConstantName");
}

TEST_F(LogTest, DamagedLinesAreNoLines)
{
    const std::string good = "2020-03-04 10:15:02.123 04712 FINE   BeanFrame            044 x";
    ASSERT_TRUE(parseLogLine(good));
    for (size_t size = 0; size < good.size() - 1; size++) {
        EXPECT_FALSE(parseLogLine(std::string_view(good).substr(0, size))) << size;
    }
    for (const int place : {0, 4, 5, 10, 13, 19, 20, 23, 24, 29, 30, 36, 57, 58, 61}) {
        std::string damaged = good;
        damaged[static_cast<size_t>(place)] = '#';
        EXPECT_FALSE(parseLogLine(damaged)) << damaged;
    }
    std::string noDate = good;
    noDate[6] = '0';
    EXPECT_FALSE(parseLogLine(noDate));
}

TEST_F(LogTest, ControlsOwnFileIsReadAsWell)
{
    const json result = read("2020-03-04 10:15:02.123 00012 ERROR  ORVANEControl            0    [main] it failed\n"
                             "java.lang.IllegalStateException: x\n\tat a.B.c(B.java:7)\n"
                             "2020-03-04 10:15:02.124 00012 INFO   ORVANEControl            0    [main] text\n");
    EXPECT_EQ(exitCode, 1);
    EXPECT_EQ(result["errors"][0]["text"], "ORVANEControl 000  [main] it failed");
    EXPECT_EQ(result["counts"]["continued"], 2);
    EXPECT_EQ(result["counts"]["lines"], 2);
    EXPECT_EQ(result["counts"]["broken"], 0);
}

TEST_F(LogTest, FileWithoutAnyLineIsNotFreeOfErrors)
{
    for (const char* const text : {"", "no log\r\n"}) {
        EXPECT_THAT(printed(text), testing::EndsWith("Next: name a file that the server or its control has written; no line of "
                                                     "this one can be read.\n"));
    }
    EXPECT_THAT(printed(line(0, 1, "FINE", 0, "x")), testing::EndsWith("Next: nothing to do; the log has no errors.\n"));
}

// A line feed of the text gets a carriage return of its own.
TEST_F(LogTest, TextWithLineEndsOfItsOwnIsRead)
{
    std::string error = line(0, 1, "ERROR", 0, "first: false");
    error.insert(error.size() - 2, "\r");
    const json result = read(BEGIN + error + "second\r\r\n" + END);
    EXPECT_EQ(exitCode, 1);
    EXPECT_EQ(result["errors"][0]["text"], "BeanFrame 044  first: false\nsecond");
    EXPECT_EQ(result["counts"]["broken"], 0);
}

TEST_F(LogTest, BrokenAndCutLinesAreCountedAndSkipped)
{
    const std::string good = line(0, 1, "FINE", 0, "text");
    const json result = read("cut at its front\r\n" + good + "continued\r\n" + "2020-03-04 10:15:0\r\n" +
                             std::string("\0\1\r\n", 4) + good + good.substr(0, 30));
    EXPECT_EQ(result["counts"], json::parse(R"({"bytes": )" + std::to_string(std::filesystem::file_size(file)) +
                                            R"(, "lines": 2, "continued": 1, "banners": 0, "broken": 4})"));
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(read("")["counts"]["lines"], 0);
}

TEST_F(LogTest, LineLongerThanAnyBufferIsReadAndTheLongestSkipped)
{
    const std::string longOne = line(0, 1, "FINE", 0, std::string(3 << 20, 'x'));
    const std::string tooLong = line(0, 1, "FINE", 0, std::string(17 << 20, 'x'));
    const json result = read(longOne + tooLong + longOne);
    EXPECT_EQ(result["counts"]["lines"], 2);
    EXPECT_EQ(result["counts"]["broken"], 1);
}

TEST_F(LogTest, EqualErrorsAreFoldedWithTheirBacktraces)
{
    const std::string other = line(1, 2, "FINE", 0, "-> other");
    std::string text;
    for (int number = 0; number < 3; number++) {
        text += BEGIN + line(20 + number, 1, "ERROR", 2, "x != NULL: false") + line(10, 1, "FINE", 1, "-> CBeanFrame 7 inner a") +
                other + line(5, 1, "INFO", 0, "-> outer ") + END;
    }
    text += line(30, 1, "ERROR", 0, "alone: false");
    const json result = read(text);
    EXPECT_EQ(exitCode, 4);
    EXPECT_EQ(result["findings"], 4);
    EXPECT_EQ(result["errors"], json::parse(R"([
        {"text": "BeanFrame 044  x != NULL: false", "count": 3, "first": "2020-03-04 10:00:00.020", "thread": "1",
         "functions": ["CBeanFrame::inner", "outer"]},
        {"text": "BeanFrame 044  alone: false", "count": 1, "first": "2020-03-04 10:00:00.030", "thread": "1", "functions": []}])"));
    const std::string shown = printed(text);
    EXPECT_TRUE(shown.starts_with("Errors: 4, different ones: 2\n"
                                  "BeanFrame 044  x != NULL: false x3  2020-03-04 10:00:00.020  thread 1\n"
                                  "    in CBeanFrame::inner < outer\n"))
        << shown;
    EXPECT_TRUE(shown.ends_with("Next: begin with the first error above, which is usually the cause of those after it; KESTAtool "
                                "check names what to mend.\n"));
}

TEST_F(LogTest, CallsThreadsAndMilestonesAreCounted)
{
    const json result = read(line(0, 1, "FINE", 0, "-> outer ") + line(5, 2, "TRACE", 0, "CHECKPOINT: Successfully created.") +
                             line(20, 1, "FINE", 1, "<- inner  [15 ms]") + line(21, 1, "FINE", 1, "<- inner ") +
                             line(52, 1, "FINE", 0, "<- outer  [52 ms]"));
    EXPECT_EQ(result["functions"], json::parse(R"([{"name": "inner", "calls": 2, "milliseconds": 15, "longest": 15},
                                                   {"name": "outer", "calls": 1, "milliseconds": 52, "longest": 52}])"));
    EXPECT_EQ(result["slowCalls"][0]["milliseconds"], 52);
    EXPECT_EQ(result["slowCalls"][1]["text"], "inner  [15 ms]");
    EXPECT_EQ(result["threads"], json::parse(R"([
        {"id": 1, "lines": 4, "first": "2020-03-04 10:00:00.000", "last": "2020-03-04 10:00:00.052"},
        {"id": 2, "lines": 1, "first": "2020-03-04 10:00:00.005", "last": "2020-03-04 10:00:00.005"}])"));
    EXPECT_EQ(result["milestones"], json::parse(R"([
        {"date": "2020-03-04 10:00:00.005", "milliseconds": 5, "text": "CHECKPOINT: Successfully created."}])"));
    EXPECT_EQ(result["levels"], json::parse(R"({"FINE": 4, "TRACE": 1})"));
    EXPECT_EQ(exitCode, 0);
}

TEST_F(LogTest, OnlyTheLongestCallsAreKept)
{
    std::string text;
    for (int number = 1; number <= 50; number++) {
        text += line(0, 1, "FINE", 0, std::format("<- f  [{} ms]", 10 + number * 7 % 50));
    }
    const json slow = read(text)["slowCalls"];
    ASSERT_EQ(slow.size(), 20U);
    for (size_t index = 0; index < 20; index++) {
        EXPECT_EQ(slow[index]["milliseconds"], 59 - static_cast<int>(index));
    }
}

TEST_F(LogTest, TraceHasEveryScopeWithItsTimes)
{
    read(line(0, 1, "FINE", 0, "-> CBeanFrame 7 outer a") + line(3, 2, "FINE", 0, "-> outer ") +
         line(10, 1, "FINE", 1, "-> inner ") + line(12, 1, "FINE", 1, "<- inner ") + line(30, 1, "FINE", 1, "<- late  [15 ms]") +
         line(40, 1, "FINE", 0, "<- CBeanFrame 7 outer a [40 ms]") + line(45, 1, "WARN", 0, "careful \"x\""));
    const auto scope = [](int thread, int begin, int length, const std::string& name, const std::string& text, bool isEnded) {
        return json{{"ph", "X"},
                    {"pid", 1},
                    {"tid", thread},
                    {"ts", begin * 1000},
                    {"dur", length * 1000},
                    {"name", name},
                    {"cat", "BeanFrame"},
                    {"args", {{"text", text}, {"ended", isEnded}}}};
    };
    EXPECT_THAT(
        traced(),
        ElementsAre(
            scope(1, 10, 2, "inner", "inner", true), scope(1, 15, 15, "late", "late", true),
            scope(1, 0, 40, "CBeanFrame::outer", "CBeanFrame 7 outer a", true),
            json{{"ph", "i"}, {"s", "t"}, {"pid", 1}, {"tid", 1}, {"ts", 45000}, {"name", "careful \"x\""}, {"cat", "warning"}},
            scope(2, 3, 42, "outer", "outer", false)));
}

TEST_F(LogTest, ScopeThatOnlyABacktraceTellsOfHasItsBegin)
{
    read(line(1, 2, "FINE", 0, "x") + BEGIN + line(30, 1, "ERROR", 2, "x: false") + line(20, 1, "FINE", 1, "-> CBeanFrame 7 ") +
         line(10, 1, "INFO", 0, "-> ") + END + line(32, 1, "FINE", 1, "<- CBeanFrame 7  [12 ms]") +
         line(35, 1, "INFO", 0, "<-  [25 ms]"));
    std::vector<std::string> scopes;
    for (const json& event : traced()) {
        if (event["ph"] == "X") {
            scopes.push_back(event["name"].get<std::string>() + " " + event["ts"].dump() + " " + event["dur"].dump());
        }
    }
    EXPECT_THAT(scopes, ElementsAre("CBeanFrame 044 19000 12000", "BeanFrame 044 9000 25000"));
}

TEST_F(LogTest, PageHoldsTheScopesAndNoTextEndsItsScript)
{
    read(line(0, 1, "FINE", 0, "-> f </script>") + line(20, 1, "FINE", 0, "<- f </script> [20 ms]"));
    const std::string page = fixtures::readFile(html);
    const size_t begin = page.find("const data = ") + 13;
    const std::string text = page.substr(begin, page.find(";\n", begin) - begin);
    EXPECT_EQ(text.find("</"), std::string::npos);
    const json data = json::parse(text);
    EXPECT_EQ(data["threads"], json::parse(R"([{"id": 1, "events": [], "scopes": [[0, 20, 0, 0, "f </script>", 1]]}])"));
    EXPECT_EQ(data["title"], "a.log");
    EXPECT_EQ(page.find("\"DATA\""), std::string::npos);
    for (const char* const network : {"http:", "https:", "src=", "@import"}) {
        EXPECT_EQ(page.find(network), std::string::npos) << network;
    }
}

TEST_F(LogTest, PageKeepsTheLongestScopesAndSaysSo)
{
    std::string text;
    for (size_t number = 0; number < CLogPage::MOST_SCOPES + 10; number++) {
        text += line(100, 1, "FINE", 0, number % 2000 == 0 ? "<- long  [50 ms]" : "<- short ");
    }
    text += line(100, 2, "FINE", 0, "<- short ");
    read(text);
    const std::string page = fixtures::readFile(html);
    EXPECT_NE(page.find("\"scopes\":20011,\"shown\":20000"), std::string::npos);
    EXPECT_NE(page.find(R"({"events":[],"id":2,"scopes":[]})"), std::string::npos) << "and names every thread";
    size_t count = 0;
    for (size_t at = 0; (at = page.find("\"long\",1]", at)) != std::string::npos; at++) {
        count++;
    }
    EXPECT_EQ(count, 11U);
}

TEST_F(LogTest, ProcessGoesOnInNumberedFiles)
{
    fixtures::makeFile(folder.path("x-4712.log"), "");
    EXPECT_EQ(nextLogFile(folder.path("x-4712.log")), folder.path("x-4712-0001.log"));
    EXPECT_EQ(nextLogFile(folder.path("x-4712-0001.log")), folder.path("x-4712-0002.log"));
    EXPECT_EQ(nextLogFile(folder.path("x-4712-0041.log")), folder.path("x-4712-0042.log"));
}

TEST_F(LogTest, FolderMayHaveAnUmlaut)
{
    const std::string umlaut = folder.path(UMLAUT);
    std::filesystem::create_directory(toPath(umlaut));
    file = umlaut + "\\" + UMLAUT + ".log";
    html = umlaut + "\\page.html";
    read(line(0, 1, "FINE", 0, "x"));
    EXPECT_NE(fixtures::readFile(html).find("\"title\":\"J\u00fcrgen.log\""), std::string::npos);
    EXPECT_EQ(nextLogFile(file), umlaut + "\\" + UMLAUT + "-0001.log");
}

TEST_F(LogTest, FileThatCannotBeReadOrWrittenIsAnError)
{
    std::ostringstream out;
    EXPECT_THROW(readLog({.file = folder.path("none.log")}, out), std::runtime_error);
    fixtures::makeFile(file, "");
    EXPECT_THROW(readLog({.file = file, .traceFile = folder.path("none\\x")}, out), std::runtime_error);
    EXPECT_THROW(readLog({.file = file, .htmlFile = folder.path("none\\x")}, out), std::runtime_error);
    const std::string full = "Z:\\dev\\full"; // can be opened and takes nothing
    EXPECT_THROW(readLog({.file = file, .traceFile = full}, out), std::runtime_error);
    EXPECT_THROW(readLog({.file = file, .htmlFile = full}, out), std::runtime_error);
}

} // namespace
