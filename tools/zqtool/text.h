// text.h: texts from outside made safe for a terminal, for pages and for data, and texts of numbers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Role of a text that has a colour.
enum class Colour_e
{
    Title,
    Head,
    Mark,
    Quiet,
    Bad,
    Good
};

/// Returns the text as UTF-8. U+FFFD replaces each byte of these:
/// - a control character
/// - a character that ends a line or changes the direction of writing
/// - bytes that are not UTF-8
std::string Printable(std::string_view sText);

/// Returns a line of a log as Printable does, except that four blanks replace a tab.
std::string PrintableLine(std::string_view sText);

/// Returns the text for the content of an HTML element or for an attribute in double quotes.
std::string HtmlEscaped(std::string_view sText);

/// Returns a text as a JSON string with its quotes, which holds no '<', so it may be part of a script element. Requires
/// UTF-8.
std::string JsonQuoted(std::string_view sText);

/// Returns a text in double quotes.
std::string Quoted(std::string_view sText);

/// Returns the version of an archive, as "2.29": the upper and the lower 16 bits.
std::string ArchiveVersionText(std::uint32_t dwVersion);

/// Returns whether a byte of UTF-8 begins a character.
bool IsFirstByte(char cByte);

/// Returns the number of characters of a text in UTF-8.
std::size_t WidthOf(std::string_view sText);

/// Returns a number as eight hexadecimal digits in capitals.
std::string HexWord(std::uint32_t nNumber);

/// Returns a number with a noun, as "1 thread" or "3 threads".
std::string Counted(std::uint64_t nCount, std::string const & sNoun);

/// Returns a text between the escape sequences of a colour. Requires a printable text.
std::string Coloured(std::string_view sText, Colour_e eColour);
