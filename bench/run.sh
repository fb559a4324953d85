#!/usr/bin/env bash
# ./bench/run.sh [FAMILY...]: builds the benchmarks, runs them and prints the table of bench/README.md. A family is, for
# instance, hash or file. Installs the peers' packages on a Debian machine, or prints what to install.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build g++ pkg-config python3 libbenchmark-dev libabsl-dev libspdlog-dev libmimalloc-dev
    libdmalloc-dev libdeflate-dev zlib1g-dev libssl-dev libphysfs-dev libcereal-dev libcsv-dev
    libboost-dev libstb-dev libnoise-dev libzip-dev libzydis-dev uuid-dev)
.ci/need "${packages[@]}" >/dev/null

cmake --preset bench >/dev/null
cmake --build --preset bench --parallel >/dev/null
python3 bench/table.py build/bench/bench "$@"
