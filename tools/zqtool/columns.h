// columns.h: rows of texts as aligned columns.
#pragma once

#include <string>
#include <vector>

/// Returns the rows, one a line, with their cells aligned. If nWidth is not 0, no line has more characters: the widest
/// columns are made narrower, and a text that is cut ends in an ellipsis.
std::string AlignedColumns(std::vector<std::vector<std::string>> const & dRows, std::size_t nWidth);
