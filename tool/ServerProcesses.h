// The processes of the server that run now, whoever started them.
//
// Threads: any. Failure: only exhausted memory throws.
#pragma once

#include <windows.h>

#include <set>

std::set<DWORD> serverProcesses();
// Those that were not there before, as far as they do not end within the time.
std::set<DWORD> serversLeftSince(const std::set<DWORD>& before, DWORD limit);
