// treemap.h: a page that shows live memory as areas: categories, files and source lines.
#pragma once

#include "tools/zqtool/allocationreport.h"

#include <iosfwd>
#include <span>

/// Writes one HTML page that loads no other file: the last snapshot and, if there are more, its growth since the first.
/// Requires a snapshot.
void WriteTreemapPage(std::ostream & Stream, std::span<AllocationReport_t const> dReports);
