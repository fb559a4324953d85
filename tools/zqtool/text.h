// text.h: makes texts from outside safe to print and to put into pages and data.
#pragma once

#include <string>
#include <string_view>

/// The text as UTF-8 without control characters; U+FFFD stands for each byte that is none of it.
std::string Printable(std::string_view sText);

/// The text for the content of an HTML element or for an attribute in double quotes.
std::string HtmlEscaped(std::string_view sText);

/// UTF-8 as a JSON string with its quotes; it may stand in a script element too, as it holds no '<'.
std::string JsonQuoted(std::string_view sText);
