// The processes of the server that run now, whoever started them.
//
// Threads: any. Failure: only exhausted memory throws.
#pragma once

#include <windows.h>

#include <set>

std::set<DWORD> serverProcesses();
// Those that were not there before and have not ended within the limit.
std::set<DWORD> serversLeftSince(const std::set<DWORD>& before, DWORD limit);
