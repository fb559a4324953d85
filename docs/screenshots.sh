#!/usr/bin/env bash
# Makes the pictures of the README and the documents: docs/screenshots.sh [BUILD], build/release by default. Needs that
# build of zqhost and zqtool, and a browser without a window (Debian: chromium-headless-shell). Fails if a picture is
# larger than 150,000 bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/release}")
browser=$(command -v chromium-headless-shell chromium google-chrome | head -1) || {
    echo "screenshots.sh: needs chromium-headless-shell, chromium or google-chrome" >&2
    exit 1
}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# shot PAGE NAME WIDTH HEIGHT SCHEME [PLACE]: SCHEME is light or dark, PLACE what follows the page's name.
shot() {
    local scheme=1 picture=docs/images/$2.png
    [ "$5" = light ] || scheme=0
    "$browser" --headless --no-sandbox --disable-gpu --hide-scrollbars --window-size="$3,$4" \
        --user-data-dir="$folder/profile" --blink-settings=preferredColorScheme=$scheme --virtual-time-budget=3000 \
        --screenshot="$PWD/$picture" "file://$folder/$1.html${6:-}" 2>"$folder/browser.log" || {
        cat "$folder/browser.log" >&2
        exit 1
    }
    local size
    size=$(stat -c %s "$picture")
    echo "$picture: $size bytes"
    [ "$size" -le 150000 ] || { echo "screenshots.sh: too large" >&2; exit 1; }
}

# host OPTION...: runs the example host over the example media. It lists its live memory at the end.
host() {
    "$build/examples/host/zqhost" --media examples/media --config desktop --log "$folder" --allocations "$@" \
        </dev/null >"$folder/host.log" || { cat "$folder/host.log" >&2; exit 1; }
}
host --new --frames 1 # a new world
mv "$folder/allocations.csv" "$folder/new.csv"
host --frames 3000 # the world as it was saved
mv "$folder/allocations.csv" "$folder/loaded.csv"
host --frames 3000 --stats "$folder/zqhost.stats"

zqtool=$build/tools/zqtool
"$zqtool" stats "$folder/zqhost.stats" --html "$folder/stats.html" >"$folder/tool.log"
"$zqtool" memory "$folder/loaded.csv" --html "$folder/memory.html" >"$folder/tool.log"
"$zqtool" memory "$folder/new.csv" "$folder/loaded.csv" --html "$folder/growth.html" >"$folder/tool.log"

shot stats stats 1000 680 light
shot stats stats_phone 360 620 dark
shot memory memory 1000 660 light
shot growth growth 1000 660 dark
