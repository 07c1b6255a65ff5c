// The text of a registration script and the tree it stands for.
//
// A script is a list of root keys, each with its content in braces:
//     HKCR { NoRemove CLSID { ForceRemove {1234...} = s 'Thing' { val Color = d 5  LocalServer32 = s '%MODULE%' } } }
//   key            Name [= value] [{ content }]        Name stands bare or between apostrophes ('' is an apostrophe in it)
//   NoRemove key   unregistration keeps the key and treats what the script has below it
//   ForceRemove key  the key goes with everything below it, before it is written and on unregistration
//   Delete Name    registration deletes the key with everything below it, unregistration does nothing
//   val Name = value   a value of the key around it; an empty name ('') is its default value
//   value          s text | d number (decimal, &H1F or 0x1F, 32 bits) | b hex digits, two a byte
// Braces, = and words are separated by white space, so that a bare name may hold braces. Words and root names are recognised in
// any case, and only where they stand without apostrophes.
//
// No state, any thread. A script that is not understood to its end gives an error with its line, and no tree.
#pragma once

#include <windows.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ATL {

using CRegValue = std::variant<std::string, DWORD, std::vector<std::byte>>;

// One key or named value, in the script's order.
struct CRegEntry
{
    enum class Kind : unsigned char { Key, NoRemoveKey, ForceRemoveKey, DeleteKey, NamedValue };
    Kind kind = Kind::Key;
    std::string name;
    // The default value of a key, if it has one; the value of a named value always.
    std::optional<CRegValue> value;
    std::vector<CRegEntry> content;
};

struct CRegRoot
{
    HKEY key = nullptr;
    std::vector<CRegEntry> content;
};

// What went wrong and where, e.g. "line 3: '=' expected".
struct CRegScriptError
{
    std::string text;
};

// Names in any case, see CRegObject::AddReplacement.
struct CRegNameLess
{
    bool operator()(const std::string& left, const std::string& right) const noexcept
    {
        return _stricmp(left.c_str(), right.c_str()) < 0;
    }
};
using CRegReplacements = std::map<std::string, std::string, CRegNameLess>;

// Puts in the replacement for each %NAME%; %% is a percent sign. Throws CRegScriptError for a name without replacement and for a
// percent sign without its partner.
std::string AtlExpandScript(std::string_view script, const CRegReplacements& replacements);

// Throws CRegScriptError.
std::vector<CRegRoot> AtlParseScript(std::string_view script);

} // namespace ATL
