// Names and values of the registry, from which the server chooses its Java runtime, the class path and the machine's options.
//
// The first byte of an input tells from which place on enumerations find nothing. Each line after it is a value: a letter for the
// key (o and j for the runtimes' keys, older first, p for the preferences), the subkey's name, "|", the value's name, "|" and the
// value. A byte of 1 and the one behind it repeat the byte before them 64 times the number of the second.
#include "javabridge/JavaManagerJNIClientSettings.h"
#include "support/registry.h"
#include "tests/fuzz/MemoryRegistry.h"
#include "tests/fuzz/Target.h"

#include <algorithm>

namespace fuzz {

namespace {

constexpr char OLDER[] = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
constexpr char NEWER[] = "SOFTWARE\\JavaSoft\\JRE";
constexpr size_t LONGEST_TEXT = 255;
constexpr size_t KEY_NAME_ROOM = 255;
constexpr size_t VALUE_NAME_ROOM = 16383;
constexpr size_t REPETITION = 64;
constexpr unsigned char NO_END = 0xFF;

std::string expanded(const std::string& text)
{
    std::string result;
    for (size_t place = 0; place < text.size(); ++place) {
        if (text[place] == '\1' && place + 1 < text.size() && !result.empty()) {
            result.append(REPETITION * static_cast<unsigned char>(text[++place]), result.back());
        } else {
            result += text[place];
        }
    }
    return result;
}

void fill(SKey& machine, const std::string& input)
{
    for (size_t begin = 0; begin < input.size();) {
        const size_t end = std::min(input.find('\n', begin), input.size());
        const std::string line = expanded(input.substr(begin, end - begin));
        begin = end + 1;
        const size_t name = line.find('|');
        const size_t value = name == std::string::npos ? name : line.find('|', name + 1);
        if (value == std::string::npos || name == 0) {
            continue;
        }
        SKey* key = line[0] == 'o'   ? &machine.make(OLDER)
                    : line[0] == 'j' ? &machine.make(NEWER)
                                     : &machine.make(PREFERENCES_KEY);
        // Windows allows no longer names, and a zero byte or a backslash only between them.
        std::string subKey = line.substr(1, name - 1).substr(0, KEY_NAME_ROOM);
        std::erase_if(subKey, [](char c) { return c == '\\' || c == '\0'; });
        if (!subKey.empty()) {
            key = &key->keys[subKey];
        }
        key->values[line.substr(name + 1, std::min(value - name - 1, VALUE_NAME_ROOM))] = {REG_SZ, line.substr(value + 1)};
    }
}

// ---- The same answers, by the rules alone

struct SRules
{
    const SKey& machine;
    DWORD vanishFrom;

    const SKey* key(const std::string& path) const { return const_cast<SKey&>(machine).find(path); }
    static std::string text(const SKey* key, const std::string& name)
    {
        if (key == nullptr) {
            return "";
        }
        const auto found = key->values.find(name);
        return found == key->values.end() || found->second.data.size() > LONGEST_TEXT ? "" : found->second.data.c_str();
    }
    template <class Map>
    std::vector<std::string> namesOf(const Map& map, size_t room) const
    {
        std::vector<std::string> names;
        for (const auto& [name, content] : map) {
            names.emplace_back(names.size() < vanishFrom && name.size() < room ? name.c_str() : "");
        }
        return names;
    }
    std::vector<std::string> subKeys(const std::string& path) const
    {
        const SKey* const found = key(path);
        return found == nullptr ? std::vector<std::string>{} : namesOf(found->keys, KEY_NAME_ROOM);
    }
};

struct SRuntime
{
    std::string version;
    std::string path;
};

void checkChoice(const SRules& rules)
{
    std::vector<SRuntime> candidates;
    SRuntime standard;
    for (const std::string base : {OLDER, NEWER}) {
        for (const std::string& name : rules.subKeys(base)) {
            const SRuntime runtime = {name, rules.text(rules.key(base + "\\" + name), "RuntimeLib")};
            if (name == rules.text(rules.key(base), "CurrentVersion")) {
                standard = runtime;
            }
            if (name.find('_') != std::string::npos) {
                candidates.push_back(runtime);
            }
        }
    }
    std::string version = standard.version;
    std::string pattern = rules.text(rules.key(PREFERENCES_KEY), "javavm");
    for (bool isFound = false; !isFound && !pattern.empty();) {
        const size_t comma = std::min(pattern.find(','), pattern.size());
        const std::string item = pattern.substr(0, comma);
        pattern.erase(0, comma + 1);
        const size_t dash = item.find('-');
        std::string best;
        for (const SRuntime& candidate : candidates) {
            const bool fits = dash == std::string::npos
                                  ? candidate.version == item
                                  : candidate.version >= item.substr(0, dash) && candidate.version <= item.substr(dash + 1);
            if (fits) {
                best = std::max(best, candidate.version);
            }
        }
        isFound = !best.empty();
        version = isFound ? best : version;
    }

    const JVMChoice choice = readJVMChoice(nullptr);
    expect(choice.chosen.version == version, "the chosen runtime is " + choice.chosen.version + " and should be " + version);
    // The same version may be there twice, and either may be taken.
    const auto isChosen = [&](const SRuntime& runtime) {
        return runtime.version == choice.chosen.version && runtime.path == choice.chosen.path;
    };
    expect(isChosen(standard) || std::ranges::any_of(candidates, isChosen),
           "the chosen path is that of a runtime of that version");
    expect(choice.standard.version == standard.version && choice.standard.path == standard.path, "the standard runtime");
}

void checkClassPath(const SRules& rules)
{
    std::string expected;
    for (const std::string& name : rules.subKeys(PREFERENCES_KEY)) {
        const std::string folder = rules.text(rules.key(std::string(PREFERENCES_KEY) + "\\" + name), "installpath");
        expected += folder + "\\" + name + ".jar;";
    }
    expected += "C:\\basis.jar";
    const std::string found = readControlClassPath("C:\\basis.jar", nullptr).text;
    expect(found == expected, "the class path is " + found + " and should be " + expected);
}

void checkOptions(const SRules& rules)
{
    std::vector<std::string> names;
    const SKey* const preferences = rules.key(PREFERENCES_KEY);
    if (preferences != nullptr) {
        names = rules.namesOf(preferences->values, VALUE_NAME_ROOM);
    }
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("jvm_option_"); });
    std::ranges::sort(names);
    std::vector<std::string> expected;
    for (const std::string& name : names) {
        expected.push_back(rules.text(preferences, name));
    }

    const std::vector<MachineOption> options =
        readMachineOptions("C:\\server.exe", {"", "", false, LOGLEVEL_WARN, 1, 2}, nullptr);
    std::vector<std::string> found;
    for (const MachineOption& option : options) {
        if (!option.valueName.empty()) {
            found.push_back(option.text);
        }
    }
    expect(found == expected, "the options of the registry, in the order of their names");
    expect(options.back().text == "-Dcom.orvane.qmrt.splitlogfilesize=2", "the last option");
}

} // namespace

void registrySettings(Bytes input)
{
    if (input.empty()) {
        return;
    }
    CMemoryRegistry& registry = CMemoryRegistry::emptied();
    SKey& machine = registry.root(HKEY_LOCAL_MACHINE);
    fill(machine, textOf(input.subspan(1)));
    registry.vanishFrom = input.front() == NO_END ? MAXDWORD : input.front();
    const SRules rules = {machine, registry.vanishFrom};
    checkChoice(rules);
    checkClassPath(rules);
    checkOptions(rules);
    expect(registry.openKeys == 0, "every key is closed");
}

} // namespace fuzz
