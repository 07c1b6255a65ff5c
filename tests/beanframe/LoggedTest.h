// Base of the tests of bean frame, COM object and server: a private registry, and a log at TRACE to the debugger stream only.
#pragma once

#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

class LoggedTest : public testing::Test
{
protected:
    LoggedTest();

    // The lines of the named modules, or of all: level, "->" or "<-" for scopes, and text. Names and ids of the logging objects
    // become "@java", "@frame", "@object" and "@module", addresses "#1", "#2" in order of appearance.
    std::vector<std::string> lines(std::initializer_list<std::string> modules = {}) const;

    fixtures::LoggerWorld world;
    fixtures::DebugStream stream;
};

// Those that contain the part.
std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& part);
