// columns.h: rows of texts as aligned columns.
#pragma once

#include <string>
#include <vector>

/// Returns the rows, one a line, with their cells aligned and printable. If nWidth is not 0, no line has more
/// characters than that: the widest columns become narrower, and a text that is cut ends in an ellipsis.
std::string AlignedColumns(std::vector<std::vector<std::string>> const & dRows, std::size_t nWidth);
