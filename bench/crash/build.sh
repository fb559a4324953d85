#!/usr/bin/env bash
# bench/crash/build.sh FOLDER LIBRARIES: builds crash_small and crash_big in FOLDER, with the library in the folder
# LIBRARIES. The small one has 6 MB of debug information, the big one 2,500 units and 2.1 GB, as clang writes it.
set -euo pipefail
source=$(dirname "$(realpath "$0")")
folder=$1 libraries=$(realpath "$2") steps=30
mkdir -p "$folder"
cd "$folder"

compile=(clang++ -std=c++20 -g -O1 -fno-omit-frame-pointer -I"$source/../.." -I"$source/../../platform/linux/include")
link=(-fuse-ld=lld -no-pie -Wl,--build-id "-Wl,-rpath,$libraries" "-L$libraries" -lzqcore -ldw -pthread)
name() { echo "_Z8StepIntoILi${1}EEiRK10Argument_ti"; }
"${compile[@]}" -c "$source/crash.cpp" -o crash.o
"${compile[@]}" -DSTEP_HEAVY -c "$source/step.cpp" -o filler.o
for size in small big; do
    heavy=() objects=() fillers=6
    [ $size = small ] || heavy=(-DSTEP_HEAVY) fillers=2470
    "${compile[@]}" "${heavy[@]}" -DSTEP=0 -c "$source/step.cpp" -o ${size}_step.o
    "${compile[@]}" "${heavy[@]}" -DSTEP=$((steps - 1)) -DSTEP_LAST -c "$source/step.cpp" -o ${size}_last.o
    # The other steps are the first one under another name: that is faster than to compile it again.
    for ((step = 0; step < steps - 1; ++step)); do
        objcopy --redefine-sym "$(name 1)=$(name $((step + 1)))" --redefine-sym "$(name 0)=$(name $step)" \
            ${size}_step.o $size$step.o
        objects+=($size$step.o)
    done
    for ((i = 0; i < fillers; ++i)); do objects+=(filler.o); done
    "${compile[@]}" crash.o "${objects[@]}" ${size}_last.o "${link[@]}" -o crash_$size
done
