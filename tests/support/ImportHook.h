// Replaces a Windows function that the test program imports, while it is alive: calls of the product reach the test's function.
// One at a time per type; the main thread only. Throws when the program does not import the function, or when a hook of the type
// is alive: functions with the same parameters need a tag each.
//
//     using PageHook = ImportHook<decltype(&GetACP)>;
//     const PageHook hook("GetACP", [&calls] { calls++; return PageHook::s_original(); });
//     using LeaveHook = ImportHook<decltype(&LeaveCriticalSection), struct Leave>;
#pragma once

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

// The place in the program's import table that holds the function's address; null when there is none.
void** importPlace(const std::string& function);
// Puts an address there and returns the previous one.
void* exchangeImport(void** place, void* address);

template <class Function, class Tag = void>
class ImportHook;

template <class Result, class... Parameters, class Tag>
class ImportHook<Result(WINAPI*)(Parameters...), Tag>
{
public:
    using Function = Result(WINAPI*)(Parameters...);

    ImportHook(const std::string& name, std::function<Result(Parameters...)> replacement)
        : m_place(importPlace(name))
    {
        if (m_place == nullptr) {
            throw std::runtime_error("the test program does not import " + name);
        }
        if (std::exchange(s_isAlive, true)) {
            throw std::runtime_error(name + " is of the type of a function that is already replaced");
        }
        s_replacement = std::move(replacement);
        s_original = reinterpret_cast<Function>(exchangeImport(m_place, reinterpret_cast<void*>(call)));
    }
    ~ImportHook()
    {
        exchangeImport(m_place, reinterpret_cast<void*>(s_original));
        s_isAlive = false;
    }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    // Windows' own function, while a hook of this type is alive.
    static inline Function s_original = nullptr;

private:
    static Result WINAPI call(Parameters... parameters) { return s_replacement(parameters...); }

    static inline bool s_isAlive = false;
    static inline std::function<Result(Parameters...)> s_replacement;
    void** m_place;
};
