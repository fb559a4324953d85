// parse.h: steps by which readers take a text apart, and forms of a text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Removes sStart from the start of a text and returns true. Returns false, and leaves the text unchanged, if it starts
/// otherwise.
bool TakeStart(std::string_view & sText, std::string_view sStart);

/// Removes and returns the text up to a separator, and removes the separator. Returns nothing, and leaves the text
/// unchanged, if it does not hold the separator.
std::optional<std::string_view> TakePart(std::string_view & sText, std::string_view sSeparator);

/// Removes and returns the text up to a separator, and removes the separator. Removes and returns the whole text if it
/// does not hold the separator.
std::string_view TakeUpTo(std::string_view & sText, std::string_view sSeparator);

/// Removes and returns the number at the start of a text. It has neither sign nor prefix. Requires an nBase from 2 to
/// 36. Returns nothing, and leaves the text unchanged, if there is no number or it is too large.
std::optional<std::uint64_t> TakeNumber(std::string_view & sText, int nBase);

/// Returns the number of which a text consists, as TakeNumber reads it. Returns nothing for any other text and for a
/// number that is too large.
std::optional<std::uint64_t> WholeNumber(std::string_view sText, int nBase);

/// Returns the part of a path after its last `/` or `\`, or the whole path if it has neither.
std::string_view FileNameOf(std::string_view sPath);

/// Returns the text with its ASCII letters in lower case.
std::string Lower(std::string_view sText);
