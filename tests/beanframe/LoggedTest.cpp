#include "tests/beanframe/LoggedTest.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace {

void replace(std::string& text, const std::string& part, const std::string& replacement)
{
    if (const size_t found = text.find(part); found != std::string::npos) {
        text.replace(found, part.size(), replacement);
    }
}

} // namespace

LoggedTest::LoggedTest()
{
    world.setPreference("loglevel", LOGLEVEL_TRACE);
    world.setPreference("logpath", "");
    world.start();
    stream.clear();
}

std::vector<std::string> LoggedTest::lines(std::initializer_list<std::string> modules) const
{
    static const std::regex s_address("0x[0-9a-f]+");
    std::vector<std::string> addresses;
    std::vector<std::string> result;
    for (const fixtures::LogLine& line : stream.lines()) {
        const std::string module = line.source.substr(0, line.source.find(' '));
        if (modules.size() != 0 && std::find(modules.begin(), modules.end(), module) == modules.end()) {
            continue;
        }
        std::string text = line.body.substr(std::min(line.body.find_first_not_of(' '), line.body.size()));
        replace(text, "CBeanFrame " + std::to_string(GetCurrentProcessId()) + " ", "@frame ");
        replace(text, "CJavaManagerATLObject  ", "@object ");
        replace(text, "JavaSide::Client  ", "@java ");
        replace(text, "CKESTAserverModule  ", "@module ");
        for (std::smatch match; std::regex_search(text, match, s_address);) {
            const auto known = std::find(addresses.begin(), addresses.end(), match.str());
            const auto number = std::distance(addresses.begin(), known) + 1;
            if (known == addresses.end()) {
                addresses.push_back(match.str());
            }
            text.replace(static_cast<size_t>(match.position()), match.str().size(), "#" + std::to_string(number));
        }
        result.push_back(line.level.empty() ? text : line.level + " " + text);
    }
    return result;
}

std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& part)
{
    std::vector<std::string> result;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(result),
                 [&](const std::string& line) { return line.find(part) != std::string::npos; });
    return result;
}
