// What is fuzzed: each target takes any bytes and checks what the product makes of them.
//
// Threads: one. Failure: a broken promise throws SBroken; whatever else the product does wrong ends the process.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

using Bytes = std::span<const std::uint8_t>;

struct STarget
{
    const char* name; // also of its folder in corpus/
    void (*run)(Bytes input);
};

// All of them.
const std::vector<STarget>& targets();
// Null when there is none of that name.
const STarget* findTarget(std::string_view name);

struct SBroken : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

inline void expect(bool holds, const std::string& promise)
{
    if (!holds) {
        throw SBroken(promise);
    }
}

// Runs a target on a copy of the input. On the guarded heap nothing can be read behind the copy or any other allocation, and an
// input takes ten times as long.
enum class Heap { Usual, Guarded };
void run(const STarget& target, Bytes input, Heap heap = Heap::Guarded);

inline std::string textOf(Bytes bytes)
{
    return {bytes.begin(), bytes.end()};
}

// The path of a file with this content, until the next one is asked for.
std::string temporaryFile(const std::string& content);

// The targets.
void registrationScript(Bytes input);
void commandLine(Bytes input);
void registrySettings(Bytes input);
void libraryHead(Bytes input);
void versionResource(Bytes input);
void javaText(Bytes input);

} // namespace fuzz
