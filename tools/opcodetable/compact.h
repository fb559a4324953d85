// compact.h: the two forms of the opcode table (zqcore/copcode_internal.h), made from its rows.
#pragma once

#include "tools/opcodetable/rows.h"

/// The compact form: each string keeps what it shares with one of the last four, as far as that saves bytes.
std::string CompactForm(std::vector<Group_t> const & dGroups);

/// The expanded form, made straight from the rows.
std::string ExpandedForm(std::vector<Group_t> const & dGroups);
