#include "atl/atl.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string show(const CRegValue& value)
{
    if (const auto* const text = std::get_if<std::string>(&value)) {
        return "s '" + *text + "'";
    }
    if (const auto* const number = std::get_if<DWORD>(&value)) {
        return "d " + std::to_string(*number);
    }
    std::string result = "b";
    for (const std::byte byte : std::get<std::vector<std::byte>>(value)) {
        result += " " + std::to_string(std::to_integer<int>(byte));
    }
    return result;
}

std::string show(const CRegEntry& entry)
{
    static const char* const KINDS[] = {"key", "NoRemove", "ForceRemove", "Delete", "val"};
    std::string text = std::string(KINDS[static_cast<int>(entry.kind)]) + " '" + entry.name + "'";
    if (entry.value) {
        text += " = " + show(*entry.value);
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
        AtlParseScript(script);
    } catch (const CRegScriptError& error) {
        return error.text;
    }
    return "no error";
}

std::string expandErrorOf(const std::string& script)
{
    try {
        AtlExpandScript(script, {{"A", "x"}});
    } catch (const CRegScriptError& error) {
        return error.text;
    }
    return "no error";
}

} // namespace

TEST(RegScriptTest, KeysNestWithBareAndQuotedNames)
{
    EXPECT_THAT(contentOf("First { Inner { } 'quoted name' } {4F1C} 'it''s'"),
                ElementsAre("key 'First' { key 'Inner' key 'quoted name' }", "key '{4F1C}'", "key 'it's'"));
}

TEST(RegScriptTest, KeysHaveDefaultValuesAndNamedValues)
{
    EXPECT_THAT(
        contentOf("Key = s 'a text' { val Name = s bare val 'two words' = d 7 val '' = s '' Inner = d 1 }"),
        ElementsAre("key 'Key' = s 'a text' { val 'Name' = s 'bare' val 'two words' = d 7 val '' = s '' key 'Inner' = d 1 }"));
}

TEST(RegScriptTest, Modifiers)
{
    EXPECT_THAT(contentOf("NoRemove A { B } ForceRemove C = s 'x' { D } Delete E ForceRemove 'F'"),
                ElementsAre("NoRemove 'A' { key 'B' }", "ForceRemove 'C' = s 'x' { key 'D' }", "Delete 'E'", "ForceRemove 'F'"));
}

TEST(RegScriptTest, WordsAreKnownInAnyCaseAndNotBetweenApostrophes)
{
    EXPECT_THAT(contentOf("noremove A FORCEREMOVE B delete C VAL D = S x 'val' 'NoRemove' '{' '}' '='"),
                ElementsAre("NoRemove 'A'", "ForceRemove 'B'", "Delete 'C'", "val 'D' = s 'x'", "key 'val'", "key 'NoRemove'",
                            "key '{'", "key '}'", "key '='"));
}

TEST(RegScriptTest, Numbers)
{
    EXPECT_THAT(
        contentOf("val a = d 0 val b = d 4294967295 val c = d &H1f val d = d 0xFF val e = d '12' val f = d 0X10 val g = d &hA"),
        ElementsAre("val 'a' = d 0", "val 'b' = d 4294967295", "val 'c' = d 31", "val 'd' = d 255", "val 'e' = d 12",
                    "val 'f' = d 16", "val 'g' = d 10"));
}

TEST(RegScriptTest, Binary)
{
    EXPECT_THAT(contentOf("val a = b 00ff10 val b = b 'AB' val c = b ''"),
                ElementsAre("val 'a' = b 0 255 16", "val 'b' = b 171", "val 'c' = b"));
}

TEST(RegScriptTest, AllRootNames)
{
    const auto rootOf = [](const std::string& name) { return AtlParseScript(name + " { }").at(0).key; };
    EXPECT_EQ(rootOf("HKCR"), HKEY_CLASSES_ROOT);
    EXPECT_EQ(rootOf("HKCU"), HKEY_CURRENT_USER);
    EXPECT_EQ(rootOf("HKLM"), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(rootOf("HKU"), HKEY_USERS);
    EXPECT_EQ(rootOf("HKPD"), HKEY_PERFORMANCE_DATA);
    EXPECT_EQ(rootOf("HKDD"), HKEY_DYN_DATA);
    EXPECT_EQ(rootOf("HKCC"), HKEY_CURRENT_CONFIG);
    EXPECT_EQ(rootOf("HKEY_CLASSES_ROOT"), HKEY_CLASSES_ROOT);
    EXPECT_EQ(rootOf("HKEY_CURRENT_USER"), HKEY_CURRENT_USER);
    EXPECT_EQ(rootOf("HKEY_LOCAL_MACHINE"), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(rootOf("HKEY_USERS"), HKEY_USERS);
    EXPECT_EQ(rootOf("HKEY_PERFORMANCE_DATA"), HKEY_PERFORMANCE_DATA);
    EXPECT_EQ(rootOf("HKEY_DYN_DATA"), HKEY_DYN_DATA);
    EXPECT_EQ(rootOf("HKEY_CURRENT_CONFIG"), HKEY_CURRENT_CONFIG);
    EXPECT_EQ(rootOf("hkcr"), HKEY_CLASSES_ROOT);
}

TEST(RegScriptTest, SeveralRoots)
{
    const std::vector<CRegRoot> roots = AtlParseScript("HKCR { A }\r\nHKCU\t{ B }");
    ASSERT_EQ(roots.size(), 2u);
    EXPECT_EQ(roots[0].key, HKEY_CLASSES_ROOT);
    EXPECT_EQ(roots[0].content.at(0).name, "A");
    EXPECT_EQ(roots[1].key, HKEY_CURRENT_USER);
    EXPECT_EQ(roots[1].content.at(0).name, "B");
    EXPECT_THAT(AtlParseScript("HKCR { }").at(0).content, IsEmpty());
}

TEST(RegScriptTest, EveryErrorSaysWhereItIs)
{
    EXPECT_EQ(errorOf(""), "line 1: a root key expected");
    EXPECT_EQ(errorOf(" \n\n "), "line 3: a root key expected");
    EXPECT_EQ(errorOf("HKXX { }"), "line 1: a root key expected");
    EXPECT_EQ(errorOf("'HKCR' { }"), "line 1: a root key expected");
    EXPECT_EQ(errorOf("HKCR { }\nrest"), "line 2: a root key expected");
    EXPECT_EQ(errorOf("HKCR { }\n}"), "line 2: a root key expected");
    EXPECT_EQ(errorOf("HKCR"), "line 1: '{' expected");
    EXPECT_EQ(errorOf("HKCR = s 'x' { }"), "line 1: '{' expected");
    EXPECT_EQ(errorOf("HKCR {\n"), "line 2: '}' expected");
    EXPECT_EQ(errorOf("HKCR {\nA { }\n"), "line 3: '}' expected");
    EXPECT_EQ(errorOf("HKCR {\n = s 'x' }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\n { } }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nNoRemove }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nForceRemove { } }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nDelete }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nval = s 'x' }"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nval"), "line 2: a name expected");
    EXPECT_EQ(errorOf("HKCR {\nval A }"), "line 2: '=' expected");
    EXPECT_EQ(errorOf("HKCR {\nval A '=' s 'x' }"), "line 2: '=' expected");
    EXPECT_EQ(errorOf("HKCR {\nA = }"), "line 2: a value type expected (s, d or b)");
    EXPECT_EQ(errorOf("HKCR {\nA = x 'y' }"), "line 2: a value type expected (s, d or b)");
    EXPECT_EQ(errorOf("HKCR {\nA = 's' 'y' }"), "line 2: a value type expected (s, d or b)");
    EXPECT_EQ(errorOf("HKCR {\nA = s"), "line 2: a value expected");
    EXPECT_EQ(errorOf("HKCR {\nA = s }"), "line 2: a value expected");
    EXPECT_EQ(errorOf("HKCR {\nA = s { } }"), "line 2: a value expected");
    EXPECT_EQ(errorOf("HKCR {\nA = d 12x }"), "line 2: '12x' is not a number of 32 bits");
    EXPECT_EQ(errorOf("HKCR {\nA = d -1 }"), "line 2: '-1' is not a number of 32 bits");
    EXPECT_EQ(errorOf("HKCR {\nA = d 0x }"), "line 2: '0x' is not a number of 32 bits");
    EXPECT_EQ(errorOf("HKCR {\nA = d 4294967296 }"), "line 2: '4294967296' is not a number of 32 bits");
    EXPECT_EQ(errorOf("HKCR {\nA = b abc }"), "line 2: 'abc' is not a row of hex digits, two a byte");
    EXPECT_EQ(errorOf("HKCR {\nA = b a-b0 }"), "line 2: 'a-b0' is not a row of hex digits, two a byte");
    EXPECT_EQ(errorOf("HKCR {\nA = s 'x\n }\n"), "line 2: the text that begins here has no closing apostrophe");
    EXPECT_EQ(errorOf("HKCR {\n'it''s"), "line 2: the text that begins here has no closing apostrophe");
    EXPECT_EQ(errorOf("HKCR {\n'' }"), "line 2: a key name is empty");
    EXPECT_EQ(errorOf("HKCR {\nNoRemove a\\b }"), "line 2: a key name holds a backslash");
}

TEST(RegScriptTest, ABackslashIsAllowedInNamesAndTextsOfValues)
{
    EXPECT_THAT(contentOf("val 'a\\b' = s 'c:\\d'"), ElementsAre("val 'a\\b' = s 'c:\\d'"));
}

TEST(RegScriptTest, LinesAreCountedInsideTextsToo)
{
    EXPECT_EQ(errorOf("HKCR {\nA = s 'two\nlines'\nB = x }"), "line 4: a value type expected (s, d or b)");
}

TEST(RegScriptTest, Replacements)
{
    const CRegReplacements replacements = {{"MODULE", "C:\\a b\\100%.exe"}, {"APPID", "{1}"}};
    EXPECT_EQ(AtlExpandScript("s '%MODULE%' %appid%%AppId% %%", replacements), "s 'C:\\a b\\100%.exe' {1}{1} %");
    EXPECT_EQ(AtlExpandScript("", replacements), "");
}

TEST(RegScriptTest, ReplacementErrors)
{
    EXPECT_EQ(expandErrorOf("%A%\n%B%"), "line 2: no replacement for %B%");
    EXPECT_EQ(expandErrorOf("%A%\n\n100%"), "line 3: a percent sign has no partner");
}
