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
    static const char* const kinds[] = {"key", "NoRemove", "ForceRemove", "Delete", "val"};
    std::string text = std::string(kinds[static_cast<int>(entry.kind)]) + " '" + entry.name + "'";
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
    EXPECT_EQ(1u, roots.size());
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

TEST(RegScript, keysNestWithBareAndQuotedNames)
{
    EXPECT_THAT(contentOf("First { Inner { } 'quoted name' } {4F1C} 'it''s'"),
                ElementsAre("key 'First' { key 'Inner' key 'quoted name' }", "key '{4F1C}'", "key 'it's'"));
}

TEST(RegScript, keysHaveDefaultValuesAndNamedValues)
{
    EXPECT_THAT(
        contentOf("Key = s 'a text' { val Name = s bare val 'two words' = d 7 val '' = s '' Inner = d 1 }"),
        ElementsAre("key 'Key' = s 'a text' { val 'Name' = s 'bare' val 'two words' = d 7 val '' = s '' key 'Inner' = d 1 }"));
}

TEST(RegScript, modifiers)
{
    EXPECT_THAT(contentOf("NoRemove A { B } ForceRemove C = s 'x' { D } Delete E ForceRemove 'F'"),
                ElementsAre("NoRemove 'A' { key 'B' }", "ForceRemove 'C' = s 'x' { key 'D' }", "Delete 'E'", "ForceRemove 'F'"));
}

TEST(RegScript, wordsAreKnownInAnyCaseAndNotBetweenApostrophes)
{
    EXPECT_THAT(contentOf("noremove A FORCEREMOVE B delete C VAL D = S x 'val' 'NoRemove' '{' '}' '='"),
                ElementsAre("NoRemove 'A'", "ForceRemove 'B'", "Delete 'C'", "val 'D' = s 'x'", "key 'val'", "key 'NoRemove'",
                            "key '{'", "key '}'", "key '='"));
}

TEST(RegScript, numbers)
{
    EXPECT_THAT(
        contentOf("val a = d 0 val b = d 4294967295 val c = d &H1f val d = d 0xFF val e = d '12' val f = d 0X10 val g = d &hA"),
        ElementsAre("val 'a' = d 0", "val 'b' = d 4294967295", "val 'c' = d 31", "val 'd' = d 255", "val 'e' = d 12",
                    "val 'f' = d 16", "val 'g' = d 10"));
}

TEST(RegScript, binary)
{
    EXPECT_THAT(contentOf("val a = b 00ff10 val b = b 'AB' val c = b ''"),
                ElementsAre("val 'a' = b 0 255 16", "val 'b' = b 171", "val 'c' = b"));
}

TEST(RegScript, allRootNames)
{
    const auto rootOf = [](const std::string& name) { return AtlParseScript(name + " { }").at(0).key; };
    EXPECT_EQ(HKEY_CLASSES_ROOT, rootOf("HKCR"));
    EXPECT_EQ(HKEY_CURRENT_USER, rootOf("HKCU"));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, rootOf("HKLM"));
    EXPECT_EQ(HKEY_USERS, rootOf("HKU"));
    EXPECT_EQ(HKEY_PERFORMANCE_DATA, rootOf("HKPD"));
    EXPECT_EQ(HKEY_DYN_DATA, rootOf("HKDD"));
    EXPECT_EQ(HKEY_CURRENT_CONFIG, rootOf("HKCC"));
    EXPECT_EQ(HKEY_CLASSES_ROOT, rootOf("HKEY_CLASSES_ROOT"));
    EXPECT_EQ(HKEY_CURRENT_USER, rootOf("HKEY_CURRENT_USER"));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, rootOf("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ(HKEY_USERS, rootOf("HKEY_USERS"));
    EXPECT_EQ(HKEY_PERFORMANCE_DATA, rootOf("HKEY_PERFORMANCE_DATA"));
    EXPECT_EQ(HKEY_DYN_DATA, rootOf("HKEY_DYN_DATA"));
    EXPECT_EQ(HKEY_CURRENT_CONFIG, rootOf("HKEY_CURRENT_CONFIG"));
    EXPECT_EQ(HKEY_CLASSES_ROOT, rootOf("hkcr"));
}

TEST(RegScript, severalRoots)
{
    const std::vector<CRegRoot> roots = AtlParseScript("HKCR { A }\r\nHKCU\t{ B }");
    ASSERT_EQ(2u, roots.size());
    EXPECT_EQ(HKEY_CLASSES_ROOT, roots[0].key);
    EXPECT_EQ("A", roots[0].content.at(0).name);
    EXPECT_EQ(HKEY_CURRENT_USER, roots[1].key);
    EXPECT_EQ("B", roots[1].content.at(0).name);
    EXPECT_THAT(AtlParseScript("HKCR { }").at(0).content, IsEmpty());
}

TEST(RegScript, everyErrorSaysWhereItIs)
{
    EXPECT_EQ("line 1: a root key expected", errorOf(""));
    EXPECT_EQ("line 3: a root key expected", errorOf(" \n\n "));
    EXPECT_EQ("line 1: a root key expected", errorOf("HKXX { }"));
    EXPECT_EQ("line 1: a root key expected", errorOf("'HKCR' { }"));
    EXPECT_EQ("line 2: a root key expected", errorOf("HKCR { }\nrest"));
    EXPECT_EQ("line 2: a root key expected", errorOf("HKCR { }\n}"));
    EXPECT_EQ("line 1: '{' expected", errorOf("HKCR"));
    EXPECT_EQ("line 1: '{' expected", errorOf("HKCR = s 'x' { }"));
    EXPECT_EQ("line 2: '}' expected", errorOf("HKCR {\n"));
    EXPECT_EQ("line 3: '}' expected", errorOf("HKCR {\nA { }\n"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\n = s 'x' }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\n { } }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\nNoRemove }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\nForceRemove { } }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\nDelete }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\nval = s 'x' }"));
    EXPECT_EQ("line 2: a name expected", errorOf("HKCR {\nval"));
    EXPECT_EQ("line 2: '=' expected", errorOf("HKCR {\nval A }"));
    EXPECT_EQ("line 2: '=' expected", errorOf("HKCR {\nval A '=' s 'x' }"));
    EXPECT_EQ("line 2: a value type expected (s, d or b)", errorOf("HKCR {\nA = }"));
    EXPECT_EQ("line 2: a value type expected (s, d or b)", errorOf("HKCR {\nA = x 'y' }"));
    EXPECT_EQ("line 2: a value type expected (s, d or b)", errorOf("HKCR {\nA = 's' 'y' }"));
    EXPECT_EQ("line 2: a value expected", errorOf("HKCR {\nA = s"));
    EXPECT_EQ("line 2: a value expected", errorOf("HKCR {\nA = s }"));
    EXPECT_EQ("line 2: a value expected", errorOf("HKCR {\nA = s { } }"));
    EXPECT_EQ("line 2: '12x' is not a number of 32 bits", errorOf("HKCR {\nA = d 12x }"));
    EXPECT_EQ("line 2: '-1' is not a number of 32 bits", errorOf("HKCR {\nA = d -1 }"));
    EXPECT_EQ("line 2: '0x' is not a number of 32 bits", errorOf("HKCR {\nA = d 0x }"));
    EXPECT_EQ("line 2: '4294967296' is not a number of 32 bits", errorOf("HKCR {\nA = d 4294967296 }"));
    EXPECT_EQ("line 2: 'abc' is not a row of hex digits, two a byte", errorOf("HKCR {\nA = b abc }"));
    EXPECT_EQ("line 2: 'a-b0' is not a row of hex digits, two a byte", errorOf("HKCR {\nA = b a-b0 }"));
    EXPECT_EQ("line 2: the text that begins here has no closing apostrophe", errorOf("HKCR {\nA = s 'x\n }\n"));
    EXPECT_EQ("line 2: the text that begins here has no closing apostrophe", errorOf("HKCR {\n'it''s"));
    EXPECT_EQ("line 2: a key name is empty", errorOf("HKCR {\n'' }"));
    EXPECT_EQ("line 2: a key name holds a backslash", errorOf("HKCR {\nNoRemove a\\b }"));
}

TEST(RegScript, aBackslashIsAllowedInNamesAndTextsOfValues)
{
    EXPECT_THAT(contentOf("val 'a\\b' = s 'c:\\d'"), ElementsAre("val 'a\\b' = s 'c:\\d'"));
}

TEST(RegScript, linesAreCountedInsideTextsToo)
{
    EXPECT_EQ("line 4: a value type expected (s, d or b)", errorOf("HKCR {\nA = s 'two\nlines'\nB = x }"));
}

TEST(RegScript, replacements)
{
    const CRegReplacements replacements = {{"MODULE", "C:\\a b\\100%.exe"}, {"APPID", "{1}"}};
    EXPECT_EQ("s 'C:\\a b\\100%.exe' {1}{1} %", AtlExpandScript("s '%MODULE%' %appid%%AppId% %%", replacements));
    EXPECT_EQ("", AtlExpandScript("", replacements));
}

TEST(RegScript, replacementErrors)
{
    EXPECT_EQ("line 2: no replacement for %B%", expandErrorOf("%A%\n%B%"));
    EXPECT_EQ("line 3: a percent sign has no partner", expandErrorOf("%A%\n\n100%"));
}
