// terminal.h: how many lines a command prints, and its colours if standard output is a terminal.
#pragma once

#include "tools/zqtool/text.h"

/// Maximum number of findings of each kind that a command prints without --all.
inline constexpr std::size_t MAX_LINES = 20;

/// Returns whether standard output is a terminal with colours, and the variable NO_COLOR (no-color.org) is unset or
/// empty.
bool HasColours();

/// Returns a text as Printable does, in colour if HasColours returns true. A result in colour has more bytes than
/// columns, so callers pad the text before.
std::string Painted(std::string_view sText, Colour_e eColour);
