// Registration scripts: the text, and the tree that it describes.
//
// A script is a list of root keys, each with its content in braces:
//     HKCR { NoRemove CLSID { ForceRemove {1234...} = s 'Thing' { val Color = d 5  LocalServer32 = s '%MODULE%' } } }
//   Name [= value] [{ content }]   a key with its default value and what is below it
//   NoRemove key                   unregistration keeps the key, but removes what the script has below it
//   ForceRemove key                the key is deleted with everything below it before it is written, and on unregistration
//   Delete Name                    registration deletes the key with everything below it; unregistration does nothing
//   val Name = value               a value of the surrounding key; an empty name ('') is its default value
// A value is
//   s text
//   d number                       of 32 bits: decimal, &H1F or 0x1F
//   b digits                       hexadecimal, two for each byte
// White space separates braces, = and words, so a bare name may contain braces. Names and texts with blanks are written between
// apostrophes, where '' is an apostrophe. Words and root keys are recognised in any case, but not between apostrophes.
//
// Ownership: nothing.
// Threads:   any.
// Failure:   a broken script throws CRegScriptError, which names the line.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ATL {

// As the registry stores it: a text with its terminator, a number in four bytes.
struct CRegValue
{
    DWORD type;
    std::string data;
};

// One key or named value, in the order of the script.
struct CRegEntry
{
    enum class Kind : unsigned char { Key, NoRemoveKey, ForceRemoveKey, DeleteKey, NamedValue };
    Kind kind = Kind::Key;
    std::string name;
    // A key's default value, if it has one; a named value always has its value.
    std::optional<CRegValue> value;
    std::vector<CRegEntry> content;
};

struct CRegRoot
{
    HKEY key = nullptr;
    std::vector<CRegEntry> content;
};

// What is wrong and where, for instance "line 3: '=' expected".
struct CRegScriptError
{
    std::string text;
};

// Texts by name, in any case.
struct CRegNameLess
{
    bool operator()(const std::string& left, const std::string& right) const noexcept
    {
        return _stricmp(left.c_str(), right.c_str()) < 0;
    }
};
using CRegReplacements = std::map<std::string, std::string, CRegNameLess>;

// Replaces each %NAME% by its text and %% by a percent sign.
std::string AtlExpandScript(std::string_view script, const CRegReplacements& replacements);

std::vector<CRegRoot> AtlParseScript(std::string_view script);

} // namespace ATL
