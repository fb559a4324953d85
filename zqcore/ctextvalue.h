// ctextvalue.h: what the readers of texts can write to, besides a buffer with its size.
//
// The readers (cwarehouse.h, cspreadsheet.h, cpropertylist.h, cscript.h, cregistry.h) also write to these:
// - A text object is a String_T of any capacity, a std::string, or a class like it. A std::string holds any text. A
//   String_T cuts the text. A reader of cells or tokens reports that as it reports its other errors, except for the
//   ident of a row.
// - An integer may have any width. A number outside its range is refused and never cut.
// - An enumerator is found by a table of names. Names compare without regard to ASCII case.
//
// A property list writes only texts. The registry cuts nothing: a text that a String_T can't hold is a failure.
//
// Ownership: a table and its names belong to the caller.
// Threads: any thread; nothing is shared.
// Cost: nothing allocates, but a std::string may. Finding a name walks over its table.
// Failure: functions that set a value return false or a reason, and leave the value unchanged. Only TextPut empties it.
//
//     enum class Element_e { Fire, Water };
//     static constexpr EnumName_T<Element_e> NAMES[] = { { "fire", Element_e::Fire }, { "water", Element_e::Water } };
//     Element_e eElement = Element_e::Fire;
//     std::uint16_t nLives = 3;
//     if (EnumFromName("WATER", eElement, NAMES) && WholeFromText("9", nLives) == WholeNumber_e::Good)
//     {
//         Log("%i lives in %s", nLives, EnumToName(eElement, NAMES));
//     }
#pragma once

#include "zqcore/cprintf.h"
#include "zqcore/cstring.h"

#include <concepts>
#include <limits>
#include <span>
#include <type_traits>

/// Class that holds a text and accepts another one by assignment: String_T, std::string.
template <typename T>
concept TextObject_T = PrintfText_T<T> && requires(T & sText, char const * szText, std::string_view sView)
{
    sText = szText;
    sText = sView;
};

/// Whether T is none of the other types.
template <typename T, typename... OTHERS>
inline constexpr bool IS_NONE_OF = (!std::same_as<T, OTHERS> && ...);

/// Integer type: any but bool and those of characters. std::int8_t and std::uint8_t are integers.
template <typename T>
concept Integer_T = std::integral<T> && IS_NONE_OF<T, bool, char, wchar_t, char8_t, char16_t, char32_t>;

/// Result of reading a text as a whole number of a range.
enum class WholeNumber_e
{
    Good,
    NoNumber,    // the text is no whole number
    OutOfRange   // the text is a whole number outside the range
};

/// Range of an integer type.
struct WholeRange_t
{
    std::int64_t iMin;    // 0 or negative
    std::uint64_t iMax;   // up to the largest of 64 bits

    /// Returns the smallest and the largest value of an integer type.
    template <Integer_T T>
    static constexpr WholeRange_t RangeOf()
    {
        return { static_cast<std::int64_t>(std::numeric_limits<T>::min()),
            static_cast<std::uint64_t>(std::numeric_limits<T>::max()) };
    }
};

/// Name of an enumerator in texts.
template <typename ENUM>
struct EnumName_T
{
    char const * szName;   // as it is in texts
    ENUM eValue;           // what it means
};

/// Table of names, for a parameter: an array of EnumName_T converts to it.
template <typename ENUM>
using EnumNames_T = std::type_identity_t<std::span<EnumName_T<ENUM> const>>;

/// Returns the number of characters that a text object can hold: Capacity() - 1, or the largest int if the class has no
/// such static function.
template <TextObject_T TEXT>
constexpr int TextMost()
{
    if constexpr (requires { TEXT::Capacity(); })
    {
        return TEXT::Capacity() - 1;
    }
    else
    {
        return std::numeric_limits<int>::max();
    }
}

/// Copies a text to a text object and returns true. If szFrom is null, empties the object and returns false.
template <TextObject_T TEXT>
bool TextPut(TEXT & sTo, char const * szFrom)
{
    sTo = szFrom ? szFrom : "";
    return szFrom != nullptr;
}

/// Reads a whole number in the form that strtol (base 10) accepts, and nothing more, and returns what the text is.
/// iBits is its value, modulo 2 to the power of 64 for a negative one, and is set only for Good. Requires that szText
/// is not null.
ZQ_API WholeNumber_e WholeFromText(char const * szText, WholeRange_t const & Range, std::uint64_t & iBits);

/// Does the same for an integer of any type, with the range of that type.
template <Integer_T T>
WholeNumber_e WholeFromText(char const * szText, T & iValue)
{
    std::uint64_t iBits = 0;
    WholeNumber_e const eResult = WholeFromText(szText, WholeRange_t::RangeOf<T>(), iBits);
    iValue = eResult == WholeNumber_e::Good ? static_cast<T>(iBits) : iValue;
    return eResult;
}

/// Sets eValue to the enumerator of a name and returns true. Requires that szName is not null. Returns false if the
/// table has no such name.
template <typename ENUM>
bool EnumFromName(char const * szName, ENUM & eValue, EnumNames_T<ENUM> dNames)
{
    for (EnumName_T<ENUM> const & Name : dNames)
    {
        if (StrCompareNoCase(Name.szName, szName) == 0)
        {
            eValue = Name.eValue;
            return true;
        }
    }
    return false;
}

/// Returns the first name of an enumerator, or "?" if the table does not have it.
template <typename ENUM>
char const * EnumToName(ENUM eValue, EnumNames_T<ENUM> dNames)
{
    for (EnumName_T<ENUM> const & Name : dNames)
    {
        if (Name.eValue == eValue)
        {
            return Name.szName;
        }
    }
    return "?";
}
