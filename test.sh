#!/usr/bin/env bash
# Builds and runs the tests: ./test.sh [PRESET...]. Without a preset: optimised, then with address and undefined
# behaviour checks. Installs what is missing on a Debian machine.
set -euo pipefail
cd "$(dirname "$0")"

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(release asan)

packages=(cmake ninja-build g++ libdw-dev googletest)
packages+=(binutils chromium-headless-shell gdb git lib32stdc++6 libzydis-dev python3 tzdata unicode-data valgrind)   # of single tests
case " ${presets[*]} " in *" i386 "*) packages+=(g++-multilib) ;; esac

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    as_root=()
    [ "$(id -u)" = 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

for preset in "${presets[@]}"; do
    echo "== $preset"
    cmake --preset "$preset" -DZQCORE_WERROR=ON >/dev/null
    cmake --build --preset "$preset" --parallel
    ctest --preset "$preset" --parallel "$(nproc)" --output-junit junit.xml
done
