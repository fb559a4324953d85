// compact.h: the two forms of the opcode table (zqcore/copcode_internal.h), made from its rows.
#pragma once

#include "tools/opcodetable/rows.h"

/// Returns the compact form. A string shares units with one of the four before it as far as that saves bytes.
std::string CompactForm(std::vector<Group_t> const & dGroups);

/// Returns the expanded form, made from the rows without the compact form.
std::string ExpandedForm(std::vector<Group_t> const & dGroups);
