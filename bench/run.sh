#!/usr/bin/env bash
# Builds the benchmarks, runs them and prints the table of bench/README.md. ./bench/run.sh [FAMILY...], e.g. hash file.
# Installs the peers' packages on a Debian machine.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build g++ pkg-config python3 libbenchmark-dev libabsl-dev libspdlog-dev libmimalloc-dev
    libdmalloc-dev libdeflate-dev zlib1g-dev libssl-dev libphysfs-dev libcereal-dev libcsv-dev
    libboost-dev libstb-dev libnoise-dev libzydis-dev uuid-dev)
missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    as_root=()
    [ "$(id -u)" = 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

cmake --preset bench >/dev/null
cmake --build --preset bench --parallel >/dev/null
python3 bench/table.py build/bench/bench "$@"
