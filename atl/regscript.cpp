#include "atl/regscript.h"

#include <charconv>

namespace ATL {

namespace {

bool isBlank(char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool equalsIgnoringCase(const std::string& left, const char* right) noexcept
{
    return _stricmp(left.c_str(), right) == 0;
}

[[noreturn]] void fail(int line, const std::string& text)
{
    throw CRegScriptError{"line " + std::to_string(line) + ": " + text};
}

struct Token
{
    std::string text;
    bool quoted = false;
    bool end = false;
    int line = 1;

    bool isMark(const char* mark) const noexcept { return !quoted && !end && text == mark; }
    bool isWord(const char* word) const noexcept { return !quoted && !end && equalsIgnoringCase(text, word); }
};

class Scanner
{
public:
    explicit Scanner(std::string_view script)
        : m_script(script)
    {
        m_current = scan();
    }

    const Token& peek() const noexcept { return m_current; }
    Token take()
    {
        Token taken = std::move(m_current);
        m_current = scan();
        return taken;
    }

private:
    Token scan()
    {
        while (m_position < m_script.size() && isBlank(m_script[m_position])) {
            m_line += m_script[m_position] == '\n' ? 1 : 0;
            ++m_position;
        }
        Token token;
        token.line = m_line;
        if (m_position == m_script.size()) {
            token.end = true;
        } else if (m_script[m_position] == '\'') {
            token.quoted = true;
            scanQuoted(token);
        } else {
            while (m_position < m_script.size() && !isBlank(m_script[m_position])) {
                token.text += m_script[m_position++];
            }
        }
        return token;
    }

    void scanQuoted(Token& token)
    {
        for (++m_position; m_position < m_script.size(); ++m_position) {
            const char c = m_script[m_position];
            if (c == '\'') {
                const bool doubled = m_position + 1 < m_script.size() && m_script[m_position + 1] == '\'';
                if (!doubled) {
                    ++m_position;
                    return;
                }
                ++m_position;
            }
            m_line += c == '\n' ? 1 : 0;
            token.text += c;
        }
        fail(token.line, "the text that begins here has no closing apostrophe");
    }

    std::string_view m_script;
    size_t m_position = 0;
    int m_line = 1;
    Token m_current;
};

struct RootName
{
    const char* shortName;
    const char* longName;
    HKEY key;
};

HKEY rootKey(const Token& token)
{
    static const RootName ROOTS[] = {
        {"HKCR", "HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},         {"HKCU", "HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {"HKLM", "HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},       {"HKU", "HKEY_USERS", HKEY_USERS},
        {"HKPD", "HKEY_PERFORMANCE_DATA", HKEY_PERFORMANCE_DATA}, {"HKDD", "HKEY_DYN_DATA", HKEY_DYN_DATA},
        {"HKCC", "HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
    };
    for (const RootName& root : ROOTS) {
        if (token.isWord(root.shortName) || token.isWord(root.longName)) {
            return root.key;
        }
    }
    fail(token.line, "a root key expected");
}

class Parser
{
public:
    explicit Parser(std::string_view script)
        : m_scanner(script)
    {
    }

    std::vector<CRegRoot> parse()
    {
        std::vector<CRegRoot> roots;
        do {
            CRegRoot root;
            root.key = rootKey(m_scanner.take());
            expect("{");
            root.content = content();
            roots.push_back(std::move(root));
        } while (!m_scanner.peek().end);
        return roots;
    }

private:
    void expect(const char* mark)
    {
        const Token token = m_scanner.take();
        if (!token.isMark(mark)) {
            fail(token.line, std::string("'") + mark + "' expected");
        }
    }

    // Up to the closing brace of the key around it.
    std::vector<CRegEntry> content()
    {
        std::vector<CRegEntry> entries;
        while (!m_scanner.peek().isMark("}")) {
            if (m_scanner.peek().end) {
                fail(m_scanner.peek().line, "'}' expected");
            }
            entries.push_back(entry());
        }
        m_scanner.take();
        return entries;
    }

    CRegEntry entry()
    {
        using Kind = CRegEntry::Kind;
        if (takeWord("val")) {
            return namedValue();
        }
        if (takeWord("Delete")) {
            return {Kind::DeleteKey, keyName(), {}, {}};
        }
        if (takeWord("NoRemove")) {
            return key(Kind::NoRemoveKey);
        }
        if (takeWord("ForceRemove")) {
            return key(Kind::ForceRemoveKey);
        }
        return key(Kind::Key);
    }

    bool takeWord(const char* word)
    {
        const bool found = m_scanner.peek().isWord(word);
        if (found) {
            m_scanner.take();
        }
        return found;
    }

    CRegEntry namedValue()
    {
        const Token token = name();
        expect("=");
        return {CRegEntry::Kind::NamedValue, token.text, value(), {}};
    }

    CRegEntry key(CRegEntry::Kind kind)
    {
        CRegEntry key{kind, keyName(), {}, {}};
        if (m_scanner.peek().isMark("=")) {
            m_scanner.take();
            key.value = value();
        }
        if (m_scanner.peek().isMark("{")) {
            m_scanner.take();
            key.content = content();
        }
        return key;
    }

    static bool isAnyMark(const Token& token) noexcept { return token.isMark("{") || token.isMark("}") || token.isMark("="); }

    Token name()
    {
        Token token = m_scanner.take();
        if (token.end || isAnyMark(token)) {
            fail(token.line, "a name expected");
        }
        return token;
    }

    // A backslash would make several keys of one, which removal would not know of.
    std::string keyName()
    {
        const Token token = name();
        if (token.text.empty()) {
            fail(token.line, "a key name is empty");
        }
        if (token.text.find('\\') != std::string::npos) {
            fail(token.line, "a key name holds a backslash");
        }
        return token.text;
    }

    CRegValue value()
    {
        const Token type = m_scanner.take();
        const bool isText = type.isWord("s");
        const bool isNumber = type.isWord("d");
        const bool isBinary = type.isWord("b");
        if (!isText && !isNumber && !isBinary) {
            fail(type.line, "a value type expected (s, d or b)");
        }
        const Token token = m_scanner.take();
        if (token.end || isAnyMark(token)) {
            fail(token.line, "a value expected");
        }
        if (isText) {
            return token.text;
        }
        return isNumber ? CRegValue(number(token)) : CRegValue(binary(token));
    }

    static DWORD number(const Token& token)
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
            fail(token.line, "'" + token.text + "' is not a number of 32 bits");
        }
        return number;
    }

    static std::vector<std::byte> binary(const Token& token)
    {
        std::vector<std::byte> bytes;
        const std::string& text = token.text;
        for (size_t i = 0; i < text.size(); i += 2) {
            unsigned byte = 0;
            const char* const pair = text.data() + i;
            const size_t length = i + 1 < text.size() ? 2 : 1;
            const auto [end, error] = std::from_chars(pair, pair + length, byte, 16);
            if (error != std::errc() || end != pair + 2) {
                fail(token.line, "'" + text + "' is not a row of hex digits, two a byte");
            }
            bytes.push_back(static_cast<std::byte>(byte));
        }
        return bytes;
    }

    Scanner m_scanner;
};

int lineOf(std::string_view script, size_t position) noexcept
{
    int line = 1;
    for (const char c : script.substr(0, position)) {
        line += c == '\n' ? 1 : 0;
    }
    return line;
}

} // namespace

std::string AtlExpandScript(std::string_view script, const CRegReplacements& replacements)
{
    std::string expanded;
    for (size_t position = 0; position < script.size();) {
        if (script[position] != '%') {
            expanded += script[position++];
            continue;
        }
        const size_t end = script.find('%', position + 1);
        if (end == std::string_view::npos) {
            fail(lineOf(script, position), "a percent sign has no partner");
        }
        const std::string name(script.substr(position + 1, end - position - 1));
        if (name.empty()) {
            expanded += '%';
        } else if (const auto found = replacements.find(name); found != replacements.end()) {
            expanded += found->second;
        } else {
            fail(lineOf(script, position), "no replacement for %" + name + "%");
        }
        position = end + 1;
    }
    return expanded;
}

std::vector<CRegRoot> AtlParseScript(std::string_view script)
{
    return Parser(script).parse();
}

} // namespace ATL
