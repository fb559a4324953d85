// compact.h: the two forms of the opcode table and its index (zqcore/copcode_internal.h), made from its rows.
#pragma once

#include "tools/opcodetable/rows.h"

#include <array>
#include <cstdint>

/// Starts of the rows of one group in the expanded form: for each code byte the offset of the first row that the byte
/// can match, or of the group's end.
using Starts_t = std::array<std::uint16_t, 256>;

/// Returns the compact form. A pattern or format shares up to 7 units at either end with one of the last four of its
/// kind: with the one that saves the most bytes. Requires at most OPCODE_MAX_GROUPS groups, and patterns and formats of
/// at most 254 bytes.
std::string CompactForm(std::vector<Group_t> const & dGroups);

/// Returns the expanded form, made from the rows without the compact form. Requires patterns and formats of at most 255
/// bytes.
std::string ExpandedForm(std::vector<Group_t> const & dGroups);

/// Returns the starts of each slot. Those of a group with fewer than 16 rows are all 0, which means that it needs none.
/// Requires at least one group. Throws RowError_c if the expanded form has more than 65,535 bytes.
std::vector<Starts_t> RowStarts(std::vector<Group_t> const & dGroups);
