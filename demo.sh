#!/usr/bin/env bash
# Builds ZQCore and runs the example host over the example media: ./demo.sh [HOST OPTION...]. With options of your own
# the host gets those instead, for instance ./demo.sh --media /usr/share/games/freeorion/default
# Installs missing packages on a Debian machine, or prints what to install.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
build="$here/build/demo"

missing=()
command -v cmake >/dev/null || missing+=(cmake)
command -v ninja >/dev/null || missing+=(ninja-build)
command -v g++ >/dev/null || missing+=(g++)
[ -e /usr/include/elfutils/libdwfl.h ] || missing+=(libdw-dev)   # names and lines in crash reports
[ -e /usr/include/CLI/CLI.hpp ] || missing+=(libcli11-dev)
[ -e /usr/include/nlohmann/json.hpp ] || missing+=(nlohmann-json3-dev)
[ ${#missing[@]} -eq 0 ] || "$here/.ci/need" "${missing[@]}"

# A folder of its own, so that the tests' build keeps its settings.
echo "Building in $build"
(cd "$here" && cmake --preset release -B "$build" -DZQCORE_TESTS=OFF >/dev/null)
cmake --build "$build" --target zqhost zqtool --parallel "$(nproc)"

host="$build/examples/host/zqhost"
echo
if [ $# -gt 0 ]; then
    exec "$host" "$@"
fi
# Two runs. The second one continues from the world that the first one saved, and is measured.
run=("$host" --media "$here/examples/media" --config desktop --frames 300 --log "$build/logs")
"${run[@]}" --new </dev/null
printf '\n--- The same once more, from the save on\n\n'
"${run[@]}" --stats "$build/zqhost.stats" </dev/null
printf '\n--- What the profiler measured in it\n\n'
"$build/tools/zqtool" stats "$build/zqhost.stats" --html "$build/zqhost.html"
printf '\nThe page with its pictures: %s\n' "$build/zqhost.html"
