#include "tool/LogTrace.h"

#include "tool/Findings.h"

#include <nlohmann/json.hpp>

#include <format>
#include <stdexcept>

namespace {

std::string quoted(const std::string& text)
{
    return nlohmann::json(toUtf8(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

CLogTrace::CLogTrace(const std::string& path)
    : m_path(path)
    , m_file(path, std::ios::binary | std::ios::trunc)
{
    m_file << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
    if (!m_file) {
        throw std::runtime_error("cannot write " + path);
    }
}

void CLogTrace::write(const std::string& entry)
{
    m_file << (m_isFirst ? "\n" : ",\n") << entry;
    m_isFirst = false;
}

void CLogTrace::scope(const LoggedScope& scope)
{
    m_scopes++;
    // Microseconds, as the format wants them.
    write(std::format(R"({{"ph":"X","pid":1,"tid":{},"ts":{},"dur":{},"name":{},"cat":{},"args":{{"text":{},"ended":{}}}}})",
                      scope.thread, scope.begin * 1000, (scope.end - scope.begin) * 1000, quoted(scope.function),
                      quoted(scope.module), quoted(scope.text), scope.isEnded));
}

void CLogTrace::event(const LoggedEvent& event)
{
    write(std::format(R"({{"ph":"i","s":"t","pid":1,"tid":{},"ts":{},"name":{},"cat":"{}"}})", event.thread, event.time * 1000,
                      quoted(event.text),
                      event.level == 1   ? "error"
                      : event.level == 2 ? "warning"
                                         : "milestone"));
}

void CLogTrace::end()
{
    m_file << "\n]}\n";
    m_file.close();
    if (!m_file) {
        throw std::runtime_error("cannot write " + m_path);
    }
}
