#!/usr/bin/env bash
# Builds and runs the tests: ./test.sh [PRESET...]. Without a preset: optimised, then with address and undefined
# behaviour checks. Installs missing packages on a Debian machine, or prints what to install.
set -euo pipefail
cd "$(dirname "$0")"

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(release asan)

packages=(cmake ninja-build g++ libcli11-dev libdw-dev nlohmann-json3-dev googletest)
packages+=(binutils chromium-headless-shell dwz gdb git groff-base libzip-dev libzydis-dev pkg-config python3 valgrind zlib1g-dev zsh)   # for single tests
case " ${presets[*]} " in *" i386"*) packages+=(g++-multilib) ;; esac
case " ${presets[*]} " in *" i386-emulated "*) packages+=(qemu-user) ;; esac
.ci/need "${packages[@]}"

# Some kernels can't run i386 programs. Their configuration does not show it reliably, so one is tried.
runs_i386() {
    local folder
    folder=$(mktemp -d)
    echo 'int main() {}' | g++ -m32 -x c++ - -o "$folder/program" && "$folder/program" 2>/dev/null
    local status=$?
    rm -r "$folder"
    return $status
}
case " ${presets[*]} " in *" i386 "*) runs_i386 || .ci/need qemu-user ;; esac

# Some tests wait more than they compute, so one more runs than there are processors.
for preset in "${presets[@]}"; do
    echo "== $preset"
    cmake --preset "$preset" -DZQCORE_WERROR=ON >/dev/null
    cmake --build --preset "$preset" --parallel
    ctest --preset "$preset" --parallel $(($(nproc) + 1)) --output-junit junit.xml
done
.ci/counts "${presets[@]}"
