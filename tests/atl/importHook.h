// Functions of Windows in whose place a test puts its own: the whole test program calls them through one table, whose entry is
// changed while the hook is alive.
//
//     KESTA_IMPORT(Sleep);                                           // at namespace scope
//     const auto realSleep = __imp_Sleep;                            // likewise, for a replacement that goes on to Windows
//     const CImportHook sleep(__imp_Sleep, [](DWORD time) { ... });
//
// One hook at a time for each function. The replacement is called by every thread that calls the function.
#pragma once

#include <windows.h>

// The entry of a function. (The linker's name for it.)
#define KESTA_IMPORT(function) extern "C" decltype(&::function) __imp_##function

template <class Function>
class CImportHook
{
public:
    template <class Replacement>
    CImportHook(Function& entry, Replacement replacement)
        : m_entry(entry)
        , m_original(entry)
    {
        set(replacement);
    }
    ~CImportHook() { set(m_original); }
    CImportHook(const CImportHook&) = delete;
    CImportHook& operator=(const CImportHook&) = delete;

private:
    void set(Function function)
    {
        DWORD protection = 0;
        VirtualProtect(&m_entry, sizeof m_entry, PAGE_READWRITE, &protection);
        m_entry = function;
        VirtualProtect(&m_entry, sizeof m_entry, protection, &protection);
    }

    Function& m_entry;
    Function m_original;
};
