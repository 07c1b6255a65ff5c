#include "tool/ServerProcesses.h"

#include "atl/atl.h"

#include <tlhelp32.h>

namespace {

constexpr DWORD LOOK_AGAIN = 100; // ms

} // namespace

std::set<DWORD> serverProcesses()
{
    std::set<DWORD> found;
    const ATL::CHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot, &entry); more != FALSE; more = Process32Next(snapshot, &entry)) {
        if (lstrcmpiA(entry.szExeFile, "KESTAx64.exe") == 0) {
            found.insert(entry.th32ProcessID);
        }
    }
    return found;
}

std::set<DWORD> serversLeftSince(const std::set<DWORD>& before, DWORD limit)
{
    const ULONGLONG end = GetTickCount64() + limit;
    for (;;) {
        std::set<DWORD> left = serverProcesses();
        std::erase_if(left, [&](DWORD id) { return before.contains(id); });
        if (left.empty() || GetTickCount64() >= end) {
            return left;
        }
        Sleep(LOOK_AGAIN);
    }
}
