// Registration scripts, read and run: a script is broken and touches nothing, or it says the same when it is written down again,
// writes the same a second time, and never touches a key that it does not name.
#include "atl/atl.h"
#include "tests/fuzz/MemoryRegistry.h"
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <format>
#include <optional>

namespace fuzz {

namespace {

using namespace ATL;

// A key that is there before the script runs, with something below it.
constexpr char FOREIGN[] = "foreign";

const struct
{
    HKEY key;
    const char* name;
} ROOTS[] = {{HKEY_CLASSES_ROOT, "HKCR"},     {HKEY_CURRENT_USER, "HKCU"}, {HKEY_LOCAL_MACHINE, "HKLM"}, {HKEY_USERS, "HKU"},
             {HKEY_PERFORMANCE_DATA, "HKPD"}, {HKEY_DYN_DATA, "HKDD"},     {HKEY_CURRENT_CONFIG, "HKCC"}};

std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char c : text) {
        result += c;
        if (c == '\'') {
            result += c;
        }
    }
    return result + '\'';
}

std::string written(const CRegValue& value)
{
    if (value.type == REG_SZ) {
        return "s " + quoted(value.data.substr(0, value.data.size() - 1));
    }
    if (value.type == REG_DWORD) {
        DWORD number = 0;
        value.data.copy(reinterpret_cast<char*>(&number), sizeof number);
        return std::format("d {}", number);
    }
    std::string text;
    for (const char byte : value.data) {
        text += std::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return "b " + quoted(text);
}

std::string written(const std::vector<CRegEntry>& content);

std::string written(const CRegEntry& entry)
{
    static const char* const KINDS[] = {"", "NoRemove ", "ForceRemove ", "Delete ", "val "};
    std::string text = KINDS[static_cast<size_t>(entry.kind)] + quoted(entry.name);
    if (entry.value) {
        text += " = " + written(*entry.value);
    }
    return entry.content.empty() ? text : text + written(entry.content);
}

std::string written(const std::vector<CRegEntry>& content)
{
    std::string text = " { ";
    for (const CRegEntry& entry : content) {
        text += written(entry) + " ";
    }
    return text + "} ";
}

std::string written(const std::vector<CRegRoot>& roots)
{
    std::string text;
    for (const CRegRoot& root : roots) {
        text += std::ranges::find(ROOTS, root.key, [](const auto& known) { return known.key; })->name + written(root.content);
    }
    return text;
}

std::optional<std::string> rewritten(const std::string& script)
{
    try {
        return written(AtlParseScript(script));
    } catch (const CRegScriptError& error) {
        expect(error.text.starts_with("line "), "an error names its line: " + error.text);
        return std::nullopt;
    }
}

bool names(const std::string& script, const std::string& word)
{
    const auto isSame = [](char one, char other) { return tolower(static_cast<unsigned char>(one)) == other; };
    return !std::ranges::search(script, word, isSame).empty();
}

void run(const std::string& script, CRegistrationScope scope)
{
    CMemoryRegistry& registry = CMemoryRegistry::emptied();
    for (const auto& root : ROOTS) {
        registry.root(root.key).make(std::string(FOREIGN) + "\\below").values[""] = {REG_SZ, std::string("kept", 5)};
        registry.root(root.key).values["kept"] = {};
    }
    const std::map<HKEY, SKey> before = registry.roots();
    CRegObject registrar(scope);
    registrar.AddReplacement("MODULE", "C:\\it''s\\server.exe");
    const auto update = [&](BOOL registering) {
        const HRESULT result = registrar.UpdateFromString(script, registering);
        expect(registry.openKeys == 0, "every key is closed");
        for (const auto& [key, root] : registry.roots()) {
            const auto foreign = root.keys.find(FOREIGN);
            expect(names(script, FOREIGN) || (foreign != root.keys.end() && foreign->second.keys.size() == 1),
                   "a key that the script does not name stays as it is");
        }
        return result;
    };
    const HRESULT added = update(TRUE);
    if (added == DISP_E_EXCEPTION) {
        expect(registry.roots() == before, "a broken script touches nothing");
        expect(update(FALSE) == DISP_E_EXCEPTION && registry.roots() == before, "and removes nothing");
        return;
    }
    const std::map<HKEY, SKey> once = registry.roots();
    expect(update(TRUE) == added, "a second registration has the same result");
    expect(added != S_OK || registry.roots() == once, "a second registration writes the same");
    update(FALSE);
}

} // namespace

void registrationScript(Bytes input)
{
    if (input.empty()) {
        return;
    }
    const std::string script = textOf(input.subspan(1));
    if (const std::optional<std::string> text = rewritten(script)) {
        expect(rewritten(*text) == text, "a script says the same when it is written down again:\n" + *text);
    }
    run(script, input.front() % 2 == 0 ? CRegistrationScope::Machine : CRegistrationScope::User);
}

} // namespace fuzz
