#!/usr/bin/env bash
# run.sh MINUTES [TARGET...]: builds the fuzz targets. Runs all or the named ones (archive, scan), one by one, for MINUTES
# of processor time each. Prints their runs and edges. Status 1 if any found something, with their names.
# run.sh --keep [TARGET...]: adds inputs of previous runs that reach new code to fuzz/corpus, few and short ones.
# Findings go to build/fuzz/found, inputs to build/fuzz/inputs, logs to build/fuzz/logs.
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
    --keep) minutes=0 ;;
    '' | *[!0-9]* | 0*) sed -n '2,4s/^# //p' fuzz/run.sh >&2; exit 2 ;;
    *) minutes=$1 ;;
esac
shift
.ci/need clang cmake ninja-build libcli11-dev libdw-dev libzip-dev llvm nlohmann-json3-dev zlib1g-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel
[ $# -gt 0 ] || set -- $(find fuzz -name '*_fuzz.cpp' -printf '%f\n' | sed 's/_fuzz.cpp//' | sort)

TMPDIR=$([ -w /dev/shm ] && echo /dev/shm || echo /tmp)/zqcore_fuzz_run_$$
mkdir "$TMPDIR"
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
mkdir -p build/fuzz/{found,logs}

found=()
for target; do
    program=build/fuzz/fuzz/${target}_fuzz seeds=fuzz/corpus/$target inputs=build/fuzz/inputs/$target
    log=build/fuzz/logs/$target status=0
    mkdir -p "$seeds" "$inputs"
    if [ "$minutes" = 0 ]; then
        "$program" -merge=1 -use_counters=0 -max_len=512 "$seeds" "$inputs" >"$log" 2>&1
        echo "$target: $(find "$seeds" -type f | wc -l) inputs, $(du -sb --apparent-size "$seeds" | cut -f1) bytes"
        continue
    fi
    (
        ulimit -S -t $((minutes * 60))
        exec "$program" -timeout=60 -rss_limit_mb=2048 -artifact_prefix="build/fuzz/found/$target-" "$inputs" "$seeds"
    ) >"$log" 2>&1 || status=$?
    echo "$target: $(sed -nE 's/^#([0-9]+).* cov: ([0-9]+) .*/\1 runs, \2 edges/p' "$log" | tail -1)"
    [ $status = 152 ] || found+=("$target")   # 152: the time limit ended it
done 2> >(grep -v 'CPU time limit exceeded' >&2)
if [ ${#found[@]} -gt 0 ]; then
    echo "Found something, see build/fuzz/found and build/fuzz/logs: ${found[*]}" >&2
    exit 1
fi
