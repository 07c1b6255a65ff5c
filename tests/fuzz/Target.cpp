#include "tests/fuzz/Target.h"

#include "support/logger.h"
#include "tests/fuzz/GuardedHeap.h"

#include <algorithm>
#include <fstream>
#include <optional>

namespace fuzz {

const std::vector<STarget>& targets()
{
    static const std::vector<STarget> s_targets = {
        {"registrationScript", registrationScript}, {"commandLine", commandLine},
        {"registrySettings", registrySettings},     {"libraryHead", libraryHead},
        {"versionResource", versionResource},       {"javaText", javaText},
    };
    return s_targets;
}

const STarget* findTarget(std::string_view name)
{
    const auto found = std::ranges::find(targets(), name, &STarget::name);
    return found == targets().end() ? nullptr : &*found;
}

std::string temporaryFile(const std::string& content)
{
    static const std::string s_path = [] {
        char folder[MAX_PATH + 1] = {};
        GetTempPathA(sizeof folder, folder);
        return folder + ("kestafuzz" + std::to_string(GetCurrentProcessId()) + ".dll");
    }();
    std::ofstream(s_path, std::ios::binary | std::ios::trunc) << content;
    return s_path;
}

void run(const STarget& target, Bytes input, Heap heap)
{
    // Without it, the log's statements cost a comparison each; its lines have tests of their own.
    while (Logger::instance() != nullptr) {
        Logger::release();
    }
    std::optional<GuardedHeap> guarded;
    if (heap == Heap::Guarded) {
        guarded.emplace();
    }
    const std::vector<std::uint8_t> copy(input.begin(), input.end());
    target.run(copy);
}

} // namespace fuzz
