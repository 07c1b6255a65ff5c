// Replaces a Windows function that the test program imports, while it is alive: calls of the product reach the test's function.
// One at a time per function; the main thread only. Throws for a function that the program does not import.
//
//     using PageHook = ImportHook<decltype(&GetACP)>;
//     static int s_calls;                                          // the function cannot capture anything
//     const PageHook hook("GetACP", [] { s_calls++; return PageHook::s_original(); });
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

// The place in the program's import table that holds the function's address; null when there is none.
void** importPlace(const std::string& function);
// Puts an address there and returns the previous one.
void* exchangeImport(void** place, void* address);

template <class Function>
class ImportHook;

template <class Result, class... Parameters>
class ImportHook<Result(WINAPI*)(Parameters...)>
{
public:
    using Function = Result(WINAPI*)(Parameters...);

    ImportHook(const std::string& name, Function replacement)
        : m_place(importPlace(name))
    {
        if (m_place == nullptr) {
            throw std::runtime_error("the test program does not import " + name);
        }
        s_original = reinterpret_cast<Function>(exchangeImport(m_place, reinterpret_cast<void*>(replacement)));
    }
    ~ImportHook() { exchangeImport(m_place, reinterpret_cast<void*>(s_original)); }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    // Windows' own function, while a hook of this type is alive.
    static inline Function s_original = nullptr;

private:
    void** m_place;
};
