#!/usr/bin/env bash
# Prints the benchmark table: builds the library and the benchmark program, then runs the
# program in one boot of the test VM (virtual keyboards, loopback sound card, the fluidsynth
# program as the anchor). Takes a few minutes.
#   tools/bench/run-bench.sh [build dir]     (default build-bench)
set -euo pipefail
cd "$(dirname "$0")/../.."
dir=${1:-build-bench}
tools/install-deps.sh >&2
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUV_BUILD_TESTS=OFF >&2
ninja -C "$dir" -j "$(nproc)" nuv_bench >&2
exec tools/vm/vm-run --timeout 900 --add "$dir/tools/bench/nuv_bench" -- nuv_bench
