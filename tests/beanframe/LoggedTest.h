// What the tests of bean frame, COM object and server share: a registry of its own and a log at TRACE that goes to the debugger
// stream only.
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

    // The lines of the named modules, or of all: the level, "->" or "<-" where a scope begins or ends, and the text. The names
    // and ids of the logging objects are shortened to "@java", "@frame", "@object" and "@module", addresses to "#1", "#2" in the
    // order of their appearance.
    std::vector<std::string> lines(std::initializer_list<std::string> modules = {}) const;

    fixtures::LoggerWorld world;
    fixtures::DebugStream stream;
};

// Those that contain the part.
std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& part);
