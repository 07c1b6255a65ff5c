// What a verb found out: rows of a table, with what to do about each fault.
//
// Ownership: plain data. Threads: any, one at a time. Failure: only exhausted memory throws.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <filesystem>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

enum class Verdict {
    Fault, // counts as a finding
    Note,  // worth knowing, not wrong
    Good,
};

struct Row
{
    Verdict verdict;
    std::string area;    // what kind of thing, e.g. "runtime"
    std::string subject; // which one
    std::string state;   // what is so
    std::string remedy;  // what to do, for faults; possibly for notes
};

class CFindings
{
public:
    void fault(std::string area, std::string subject, std::string state, std::string remedy);
    void note(std::string area, std::string subject, std::string state, std::string remedy = "");
    void good(std::string area, std::string subject, std::string state);
    // A good row when the condition holds, else the fault.
    void check(bool holds, std::string area, std::string subject, std::string goodState, std::string faultState,
               std::string remedy);
    void append(const CFindings& other);

    const std::vector<Row>& rows() const { return m_rows; }
    int faultCount() const;
    // The exit code: the number of faults, at most 99.
    int exitCode() const;
    // The one line that says what to do next: about the first fault, or what is left to do without one.
    std::string nextStep() const;
    void setNextStep(std::string step) { m_nextStep = std::move(step); }

    // Faults first, then notes, then what is good, each in the order of discovery.
    void print(std::ostream& out, bool isColoured) const;
    nlohmann::json json() const;

private:
    std::vector<Row> m_rows;
    std::string m_nextStep = "nothing to do.";
};

// Narrow text of Windows as UTF-8, and back.
std::string toUtf8(const std::string& narrow);
std::string fromUtf8(const std::string& utf8);

// The same for paths: the standard library takes narrow ones for UTF-8, and throws when they are not.
std::filesystem::path toPath(const std::string& narrow);
std::string fromPath(const std::filesystem::path& path);
