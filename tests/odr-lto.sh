#!/usr/bin/env bash
# Two different definitions of one type in a library pass the compiler, which sees one
# file at a time. A link-time-optimised link compares the types of all its files and,
# with -Werror=odr, fails on any such pair. The libraries are built that way, unoptimised,
# in a build directory of their own.
set -euo pipefail
source_dir=$1
build_dir=$2
cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=None \
  -DCMAKE_CXX_FLAGS="-O0 -flto=auto -Werror=odr" -DNUV_BUILD_TESTS=OFF >/dev/null
ninja -C "$build_dir" NuvCore NuvAudioOut NuvMIDI
