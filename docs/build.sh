#!/usr/bin/env bash
# Makes the reference site with the guides: docs/build.sh [FOLDER], build/site by default. Fails on any warning and on a
# link to a file that the site does not have.
set -euo pipefail
cd "$(dirname "$0")/.."
.ci/need doxygen
export ZQCORE_SITE=${1:-build/site}
ZQCORE_VERSION=$(sed -nE 's/^#define ZQCORE_VERSION_(MAJOR|MINOR|PATCH) ([0-9]+)$/\2/p' zqcore/cversion.h | paste -sd .)
ZQCORE_HEADERS=$(find zqcore zip/include -name '*.h' ! -name '*_internal.h' ! -name zqcore.h | sort | tr '\n' ' ')
export ZQCORE_VERSION ZQCORE_HEADERS
mkdir -p "$ZQCORE_SITE"
doxygen docs/Doxyfile
if grep . "$ZQCORE_SITE/warnings"; then
    echo "build.sh: Doxygen warns, see above" >&2
    exit 1
fi
if grep -rnoE 'href="(\.\.|[^":]*\.(md|h|cpp)[#"])[^"]*' "$ZQCORE_SITE" --include='*.html'; then
    echo "build.sh: these links lead nowhere" >&2
    exit 1
fi
rm "$ZQCORE_SITE/warnings"
echo "$ZQCORE_SITE/index.html"
