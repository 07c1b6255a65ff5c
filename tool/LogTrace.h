// The scopes of a log as a trace-event file, which the usual trace viewers open: one track for each thread.
#pragma once

#include "tool/LogScopes.h"

#include <fstream>
#include <string>

class CLogTrace : public CLogScopes
{
public:
    // Throws std::runtime_error when the file cannot be written.
    explicit CLogTrace(const std::string& path);
    // Throws the same when not everything could be written. To be called after finish().
    void end();
    long long scopeCount() const { return m_scopes; }

protected:
    void scope(const LoggedScope& scope) override;
    void event(const LoggedEvent& event) override;

private:
    void write(const std::string& entry);

    std::string m_path;
    std::ofstream m_file;
    long long m_scopes = 0;
    bool m_isFirst = true;
};
