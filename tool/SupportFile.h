// The verb "report": one archive with what support needs.
//
// Contents: check.txt and check.json, versions.txt, logs/ (the newest ones), crashes/ (what Java wrote when it crashed). Texts of
// calls, properties and events are masked in logs and crash files, except `withTexts`.
//
// Failure: an archive that cannot be written throws std::runtime_error; a file that cannot be read is a fault among the findings.
#pragma once

#include "tool/Check.h"

#include <string>

struct ReportOrder
{
    std::string archive;
    MachineLogSettings log; // of the server; the folder has a backslash at its end
    bool withTexts = false;
    CheckDepth depth = CheckDepth::Starts;
};

// A row for each file in the archive.
CFindings writeReport(const ReportOrder& order);
