// The text of registration scripts: replacements, the tree, and errors with their lines.
#include "tests/atl/registryFixture.h"

using testing::ElementsAre;

namespace {

std::string show(const CRegEntry& entry)
{
    static const char* const KINDS[] = {"key", "NoRemove", "ForceRemove", "Delete", "val"};
    std::string text = std::format("{} '{}'", KINDS[static_cast<int>(entry.kind)], entry.name);
    if (entry.value) {
        text += " = " + shown(entry.value->type, entry.value->data);
    }
    if (!entry.content.empty()) {
        text += " {";
        for (const CRegEntry& inner : entry.content) {
            text += " " + show(inner);
        }
        text += " }";
    }
    return text;
}

// The content of the script's single root.
std::vector<std::string> contentOf(const std::string& content)
{
    const std::vector<CRegRoot> roots = AtlParseScript("HKCR\n{\n" + content + "\n}\n");
    EXPECT_EQ(roots.size(), 1u);
    std::vector<std::string> lines;
    for (const CRegEntry& entry : roots.at(0).content) {
        lines.push_back(show(entry));
    }
    return lines;
}

std::string errorOf(const std::string& script)
{
    try {
        AtlParseScript(AtlExpandScript(script, {{"A", "x"}}));
    } catch (const CRegScriptError& error) {
        return error.text;
    }
    return "no error";
}

} // namespace

// A root with keys in each other.
std::string nested(int levels)
{
    std::string script = "HKCR { ";
    for (int level = 0; level < levels; ++level) {
        script += "A { ";
    }
    for (int level = 0; level <= levels; ++level) {
        script += "} ";
    }
    return script;
}

TEST(RegScriptTest, KeysNestWithNamesAndDefaultValuesBareAndQuoted)
{
    EXPECT_THAT(contentOf("First { Inner { } 'quoted name' } {4F1C} = s bare 'it''s' = d 7 { A = s 'two words' B }"),
                ElementsAre("key 'First' { key 'Inner' key 'quoted name' }", "key '{4F1C}' = s 'bare'",
                            "key 'it's' = d 7 { key 'A' = s 'two words' key 'B' }"));
}

TEST(RegScriptTest, WordsAreKnownInAnyCaseButNotBetweenApostrophes)
{
    EXPECT_THAT(contentOf("NoRemove A { B } FORCEREMOVE C = S 'x' { D } delete E VAL F = s x 'val' 'NoRemove' '{' '}' '='"),
                ElementsAre("NoRemove 'A' { key 'B' }", "ForceRemove 'C' = s 'x' { key 'D' }", "Delete 'E'", "val 'F' = s 'x'",
                            "key 'val'", "key 'NoRemove'", "key '{'", "key '}'", "key '='"));
}

TEST(RegScriptTest, Values)
{
    EXPECT_THAT(contentOf("val a = d 0 val b = d 4294967295 val c = d &H1f val d = d 0xFF val e = d '12' val f = d 0X10"),
                ElementsAre("val 'a' = d 0", "val 'b' = d 4294967295", "val 'c' = d 31", "val 'd' = d 255", "val 'e' = d 12",
                            "val 'f' = d 16"));
    EXPECT_THAT(
        contentOf("val 'two words' = d &hA val a = b 00ff10 val b = b 'AB' val c = b '' val '' = s '' val 'x\\y' = s 'c:\\d'"),
        ElementsAre("val 'two words' = d 10", "val 'a' = b 00ff10", "val 'b' = b ab", "val 'c' = b ", "val '' = s ''",
                    "val 'x\\y' = s 'c:\\d'"));
}

TEST(RegScriptTest, Roots)
{
    const std::pair<const char*, HKEY> names[] = {
        {"HKCR", HKEY_CLASSES_ROOT},
        {"hkcu", HKEY_CURRENT_USER},
        {"HKLM", HKEY_LOCAL_MACHINE},
        {"HKU", HKEY_USERS},
        {"HKPD", HKEY_PERFORMANCE_DATA},
        {"HKDD", HKEY_DYN_DATA},
        {"HKCC", HKEY_CURRENT_CONFIG},
        {"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
        {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKEY_USERS", HKEY_USERS},
        {"HKEY_PERFORMANCE_DATA", HKEY_PERFORMANCE_DATA},
        {"HKEY_DYN_DATA", HKEY_DYN_DATA},
        {"HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
    };
    for (const auto& [name, key] : names) {
        const std::vector<CRegRoot> roots = AtlParseScript("HKCR { A }\r\n" + std::string(name) + "\t{ B }");
        ASSERT_EQ(roots.size(), 2u);
        EXPECT_EQ(roots[1].key, key) << name;
        EXPECT_EQ(roots[1].content.at(0).name, "B");
    }
}

TEST(RegScriptTest, EveryErrorNamesItsLine)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "line 1: a root key expected"},
        {" \n\n ", "line 3: a root key expected"},
        {"HKXX { }", "line 1: a root key expected"},
        {"'HKCR' { }", "line 1: a root key expected"},
        {"HKCR { }\n}", "line 2: a root key expected"},
        {"HKCR = s 'x' { }", "line 1: '{' expected"},
        {"HKCR {\nA { }\n", "line 3: '}' expected"},
        {"HKCR {\n = s 'x' }", "line 2: a name expected"},
        {"HKCR {\nNoRemove }", "line 2: a name expected"},
        {"HKCR {\nForceRemove { } }", "line 2: a name expected"},
        {"HKCR {\nval", "line 2: a name expected"},
        {"HKCR {\nval A }", "line 2: '=' expected"},
        {"HKCR {\nval A '=' s 'x' }", "line 2: '=' expected"},
        {"HKCR {\nA = x 'y' }", "line 2: a value type expected (s, d or b)"},
        {"HKCR {\nA = 's' 'y' }", "line 2: a value type expected (s, d or b)"},
        {"HKCR {\nA = s", "line 2: a value expected"},
        {"HKCR {\nA = s }", "line 2: a value expected"},
        {"HKCR {\nA = d 12x }", "line 2: '12x' is not a number of 32 bits"},
        {"HKCR {\nA = d -1 }", "line 2: '-1' is not a number of 32 bits"},
        {"HKCR {\nA = d 0x }", "line 2: '0x' is not a number of 32 bits"},
        {"HKCR {\nA = d 4294967296 }", "line 2: '4294967296' is not a number of 32 bits"},
        {"HKCR {\nA = b abc }", "line 2: 'abc' is not a row of hexadecimal digits, two for each byte"},
        {"HKCR {\nA = b a-b0 }", "line 2: 'a-b0' is not a row of hexadecimal digits, two for each byte"},
        {"HKCR {\nA = s 'x\n }\n", "line 2: the text that begins here has no closing apostrophe"},
        {"HKCR {\n'it''s", "line 2: the text that begins here has no closing apostrophe"},
        {"HKCR {\n'' }", "line 2: a key name is empty"},
        {"HKCR {\nNoRemove a\\b }", "line 2: a key name holds a backslash"},
        {"HKCR {\nA = s 'two\nlines'\nB = x }", "line 4: a value type expected (s, d or b)"},
        {std::string("HKCR {\nForceRemove '\0' }", 24), "line 2: a zero byte"},
        {std::string("HKCR\0 { }", 9), "line 1: a zero byte"},
        {nested(512), "line 1: keys lie too deep in each other"},
        {"%A%\n%B%", "line 2: no replacement for %B%"},
        {"%A%\n\n100%", "line 3: a percent sign has no partner"},
    };
    for (const auto& [script, error] : cases) {
        EXPECT_EQ(errorOf(script), error) << script;
    }
}

TEST(RegScriptTest, Replacements)
{
    const CRegReplacements replacements = {{"MODULE", "C:\\a b\\100%.exe"}, {"APPID", "{1}"}};
    EXPECT_EQ(AtlExpandScript("s '%MODULE%' %appid%%AppId% %%", replacements), "s 'C:\\a b\\100%.exe' {1}{1} %");
    EXPECT_EQ(AtlExpandScript("", replacements), "");
}
