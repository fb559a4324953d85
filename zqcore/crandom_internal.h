// crandom_internal.h: the end of the list of named generators.
#pragma once

/// Frees all entries of the list; it may be empty.
void RandomFreeSeedList();
