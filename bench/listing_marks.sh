#!/usr/bin/env bash
# listing_marks.sh [-v] LIBRARY...: how often the code listing of a crash report marks its fault in these libraries or
# programs of x86-64 or i386. Prints for vector instructions and for all others: their number, faults without a mark,
# and lengths and names that differ from those of objdump. -v lists what differs. Needs a build with ZQCORE_BENCH.
set -euo pipefail
program="${ZQCORE_BUILD:-$(dirname "$0")/../build/bench}/bench/listing_marks"
options=()
[ "${1:-}" != -v ] || { options=(-v); shift; }
for library; do
    echo "$library"
    objdump -d -w -M intel "$library" | "$program" "${options[@]}"
done
