#!/usr/bin/env bash
# Prints the benchmark table: builds the library and the benchmark program, then runs the
# program in one boot of the test VM (virtual keyboards, loopback sound card, the fluidsynth
# program as the anchor). Takes a few minutes; on the emulated 32-bit ARM machine, longer.
#   tools/bench/run-bench.sh [--arch armhf] [build dir]   (default build-bench, build-bench-armhf)
set -euo pipefail
cd "$(dirname "$0")/../.."
arch=x86_64
if [[ ${1:-} == --arch ]]; then
  arch=${2:?}
  shift 2
fi
options=()
dir=${1:-build-bench}
timeout_s=900
if [[ $arch == armhf ]]; then
  dir=${1:-build-bench-armhf}
  options=(-DCMAKE_TOOLCHAIN_FILE=tools/armhf/toolchain.cmake -DNUV_ARMHF_SYSROOT="$(tools/armhf/fetch.sh)/sysroot")
  timeout_s=2400
fi
tools/install-deps.sh >&2
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUV_BUILD_TESTS=OFF ${options[@]+"${options[@]}"} >&2
ninja -C "$dir" -j "$(nproc)" nuv_bench >&2
exec tools/vm/vm-run --arch "$arch" --timeout "$timeout_s" --add "$dir/tools/bench/nuv_bench" -- nuv_bench
