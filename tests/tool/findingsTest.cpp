// The table, the line below it, the JSON text and the exit code.
#include "tool/CommandLine.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class FindingsTest : public testing::Test
{
protected:
    FindingsTest()
    {
        findings.good("log", "folder", "C:\\logs");
        findings.note("runtime", "C:\\java", "is not seen", "to use it: x");
        findings.fault("runtime", "JRE\\21", "is broken", "mend it");
    }
    // The exit code and what was printed.
    std::string printed(bool isJson, bool isColoured = false)
    {
        std::ostringstream out;
        const int exitCode = printResult(findings, {{"server", "S"}}, isJson, isColoured, out);
        return std::to_string(exitCode) + "\n" + out.str();
    }
    CFindings findings;
};

TEST_F(FindingsTest, TableHasFaultsFirstAndTheNextStepLast)
{
    EXPECT_EQ(printed(false), "1\n"
                              "FAULT  runtime  JRE\\21   is broken\n"
                              "         -> mend it\n"
                              "note   runtime  C:\\java  is not seen\n"
                              "         -> to use it: x\n"
                              "ok     log      folder   C:\\logs\n"
                              "1 finding. Next: mend it\n");
    EXPECT_NE(printed(false, true).find("\x1b[31mFAULT\x1b[0m  runtime"), std::string::npos);
}

TEST_F(FindingsTest, JsonHasEveryRowAndTheDetails)
{
    findings = CFindings();
    findings.fault("a", "\xE4", "b", "c"); // an umlaut of the system's code page
    const std::string text = printed(true);
    EXPECT_EQ(nlohmann::json::parse(text.substr(2)), nlohmann::json::parse(R"({"findings": 1, "next": "Next: c", "server": "S",
                  "rows": [{"verdict": "FAULT", "area": "a", "subject": "\u00e4", "state": "b", "remedy": "c"}]})"));
}

TEST_F(FindingsTest, ExitCodeIsTheNumberOfFaults)
{
    EXPECT_EQ(CFindings().exitCode(), 0);
    EXPECT_EQ(CFindings().nextStep(), "Next: nothing to do.");
    for (int number = 0; number < 99; number++) {
        EXPECT_EQ(findings.exitCode(), number + 1);
        findings.fault("", "", "", "");
    }
    EXPECT_EQ(findings.exitCode(), 99);
    EXPECT_EQ(findings.faultCount(), 100);
}

TEST_F(FindingsTest, CommandLineThatIsWrongIsNoFinding)
{
    std::ostringstream out;
    std::ostringstream errors;
    EXPECT_GE(runTool({}, out, errors, false), 100);
    EXPECT_GE(runTool({"chekc"}, out, errors, false), 100);
    EXPECT_EQ(out.str(), "");
    EXPECT_NE(errors.str().find("Run with --help"), std::string::npos);
    EXPECT_EQ(runTool({"check", "--help"}, out, errors, false), 0);
    EXPECT_NE(out.str().find("Example: KESTAtool check --json"), std::string::npos);
}

TEST_F(FindingsTest, WhatAVerbCannotReadOrWriteIsAFinding)
{
    std::ostringstream out;
    std::ostringstream errors;
    EXPECT_EQ(runTool({"log", "C:\\none.log"}, out, errors, false), 1);
    EXPECT_EQ(out.str(), "FAULT  KESTAtool  log  cannot open C:\\none.log\n"
                         "         -> correct the name or permission that it mentions, and run the command again\n"
                         "1 finding. Next: correct the name or permission that it mentions, and run the command again\n");
    out.str("");
    EXPECT_EQ(runTool({"log", "C:\\none.log", "--json"}, out, errors, false), 1);
    EXPECT_EQ(nlohmann::json::parse(out.str())["rows"][0]["state"], "cannot open C:\\none.log");
    EXPECT_EQ(errors.str(), "");
}

TEST_F(FindingsTest, FollowingALogHasOneFormOnly)
{
    for (const std::vector<std::string>& other :
         std::vector<std::vector<std::string>>{{"--json"}, {"--trace", "x"}, {"--html", "x"}}) {
        std::vector<std::string> arguments = {"log", "C:\\none.log", "--follow"};
        arguments.insert(arguments.end(), other.begin(), other.end());
        std::ostringstream out;
        std::ostringstream errors;
        EXPECT_GE(runTool(arguments, out, errors, false), 100) << other.front();
    }
}

} // namespace
