// crandom_internal.h: the release of the list of named generators.
#pragma once

/// Frees all entries of the list, which may be empty.
void RandomFreeSeedList();
