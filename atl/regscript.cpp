#include "atl/regscript.h"

#include <algorithm>
#include <charconv>

namespace ATL {

namespace {

[[noreturn]] void fail(std::string_view script, size_t position, const std::string& text)
{
    const auto line = 1 + std::count(script.begin(), script.begin() + static_cast<std::ptrdiff_t>(position), '\n');
    throw CRegScriptError{"line " + std::to_string(line) + ": " + text};
}

struct Token
{
    enum class Kind : unsigned char { Bare, Quoted, End };
    Kind kind = Kind::Bare;
    std::string text;
    size_t position = 0;

    bool isWord(const char* word) const noexcept { return kind == Kind::Bare && _stricmp(text.c_str(), word) == 0; }
    bool isNoText() const noexcept { return kind == Kind::End || isWord("{") || isWord("}") || isWord("="); }
};

struct RootName
{
    const char* shortName;
    const char* longName;
    HKEY key;
};

class Parser
{
public:
    explicit Parser(std::string_view script)
        : m_script(script)
        , m_next(scan())
    {
        // The registry's names and texts end at it: a key's name could be empty behind the check below.
        if (const size_t zero = script.find('\0'); zero != std::string_view::npos) {
            ATL::fail(script, zero, "a zero byte");
        }
    }

    std::vector<CRegRoot> parse()
    {
        std::vector<CRegRoot> roots;
        do {
            CRegRoot root;
            root.key = rootKey();
            expect("{");
            root.content = content();
            roots.push_back(std::move(root));
        } while (m_next.kind != Token::Kind::End);
        return roots;
    }

private:
    [[noreturn]] void fail(const Token& token, const std::string& text) const { ATL::fail(m_script, token.position, text); }

    Token scan()
    {
        static constexpr const char* BLANKS = " \t\r\n";
        m_position = std::min(m_script.find_first_not_of(BLANKS, m_position), m_script.size());
        Token token;
        token.position = m_position;
        if (m_position == m_script.size()) {
            token.kind = Token::Kind::End;
        } else if (m_script[m_position] == '\'') {
            token.kind = Token::Kind::Quoted;
            scanQuoted(token);
        } else {
            const size_t end = std::min(m_script.find_first_of(BLANKS, m_position), m_script.size());
            token.text = m_script.substr(m_position, end - m_position);
            m_position = end;
        }
        return token;
    }

    // A doubled apostrophe is an apostrophe, a single one ends the text.
    void scanQuoted(Token& token)
    {
        for (;;) {
            const size_t end = m_script.find('\'', m_position + 1);
            if (end == std::string_view::npos) {
                fail(token, "the text that begins here has no closing apostrophe");
            }
            token.text += m_script.substr(m_position + 1, end - m_position - 1);
            m_position = end + 1;
            if (m_position == m_script.size() || m_script[m_position] != '\'') {
                return;
            }
            token.text += '\'';
        }
    }

    Token take()
    {
        Token taken = std::move(m_next);
        m_next = scan();
        return taken;
    }

    bool takeIf(const char* word)
    {
        const bool found = m_next.isWord(word);
        if (found) {
            take();
        }
        return found;
    }

    void expect(const char* mark)
    {
        if (!takeIf(mark)) {
            fail(m_next, std::string("'") + mark + "' expected");
        }
    }

    HKEY rootKey()
    {
        static const RootName ROOTS[] = {
            {"HKCR", "HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},         {"HKCU", "HKEY_CURRENT_USER", HKEY_CURRENT_USER},
            {"HKLM", "HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},       {"HKU", "HKEY_USERS", HKEY_USERS},
            {"HKPD", "HKEY_PERFORMANCE_DATA", HKEY_PERFORMANCE_DATA}, {"HKDD", "HKEY_DYN_DATA", HKEY_DYN_DATA},
            {"HKCC", "HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
        };
        for (const RootName& root : ROOTS) {
            if (takeIf(root.shortName) || takeIf(root.longName)) {
                return root.key;
            }
        }
        fail(m_next, "a root key expected");
    }

    // Takes the closing brace as well.
    std::vector<CRegEntry> content()
    {
        // The registry takes no more, and each level needs a piece of the stack.
        if (++m_level > MOST_LEVELS) {
            fail(m_next, "keys lie too deep in each other");
        }
        std::vector<CRegEntry> entries;
        while (!takeIf("}")) {
            if (m_next.kind == Token::Kind::End) {
                fail(m_next, "'}' expected");
            }
            entries.push_back(entry());
        }
        --m_level;
        return entries;
    }

    CRegEntry entry()
    {
        using Kind = CRegEntry::Kind;
        if (takeIf("val")) {
            CRegEntry entry{Kind::NamedValue, name().text, {}, {}};
            expect("=");
            entry.value = value();
            return entry;
        }
        if (takeIf("Delete")) {
            return {Kind::DeleteKey, keyName(), {}, {}};
        }
        const Kind kind = takeIf("NoRemove") ? Kind::NoRemoveKey : takeIf("ForceRemove") ? Kind::ForceRemoveKey : Kind::Key;
        CRegEntry key{kind, keyName(), {}, {}};
        if (takeIf("=")) {
            key.value = value();
        }
        if (takeIf("{")) {
            key.content = content();
        }
        return key;
    }

    Token name()
    {
        if (m_next.isNoText()) {
            fail(m_next, "a name expected");
        }
        return take();
    }

    // A name with a backslash would create several keys, of which unregistration would remove only one.
    std::string keyName()
    {
        const Token token = name();
        if (token.text.empty()) {
            fail(token, "a key name is empty");
        }
        if (token.text.find('\\') != std::string::npos) {
            fail(token, "a key name holds a backslash");
        }
        return token.text;
    }

    CRegValue value()
    {
        const DWORD type = takeIf("s") ? REG_SZ : takeIf("d") ? REG_DWORD : takeIf("b") ? REG_BINARY : REG_NONE;
        if (type == REG_NONE) {
            fail(m_next, "a value type expected (s, d or b)");
        }
        if (m_next.isNoText()) {
            fail(m_next, "a value expected");
        }
        const Token token = take();
        return {type, type == REG_SZ ? token.text + '\0' : type == REG_DWORD ? number(token) : binary(token)};
    }

    std::string number(const Token& token) const
    {
        std::string_view digits = token.text;
        int base = 10;
        for (const std::string_view prefix : {"0x", "0X", "&H", "&h"}) {
            if (base == 10 && digits.starts_with(prefix)) {
                digits.remove_prefix(prefix.size());
                base = 16;
            }
        }
        DWORD number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
        if (error != std::errc() || end != digits.data() + digits.size()) {
            fail(token, "'" + token.text + "' is not a number of 32 bits");
        }
        return std::string(reinterpret_cast<const char*>(&number), sizeof number);
    }

    std::string binary(const Token& token) const
    {
        std::string bytes;
        const std::string& text = token.text;
        for (size_t i = 0; i < text.size(); i += 2) {
            unsigned byte = 0;
            const char* const pair = text.data() + i;
            const auto [end, error] = std::from_chars(pair, pair + std::min<size_t>(2, text.size() - i), byte, 16);
            if (error != std::errc() || end != pair + 2) {
                fail(token, "'" + text + "' is not a row of hexadecimal digits, two for each byte");
            }
            bytes += static_cast<char>(byte);
        }
        return bytes;
    }

    static constexpr int MOST_LEVELS = 512;

    std::string_view m_script;
    size_t m_position = 0;
    int m_level = 0;
    Token m_next;
};

} // namespace

std::string AtlExpandScript(std::string_view script, const CRegReplacements& replacements)
{
    std::string expanded;
    for (size_t position = 0;;) {
        const size_t begin = script.find('%', position);
        expanded += script.substr(position, begin - position);
        if (begin == std::string_view::npos) {
            return expanded;
        }
        const size_t end = script.find('%', begin + 1);
        if (end == std::string_view::npos) {
            fail(script, begin, "a percent sign has no partner");
        }
        const std::string name(script.substr(begin + 1, end - begin - 1));
        if (name.empty()) {
            expanded += '%';
        } else if (const auto found = replacements.find(name); found != replacements.end()) {
            expanded += found->second;
        } else {
            fail(script, begin, "no replacement for %" + name + "%");
        }
        position = end + 1;
    }
}

std::vector<CRegRoot> AtlParseScript(std::string_view script)
{
    return Parser(script).parse();
}

} // namespace ATL
