#!/usr/bin/env bash
# Prints the benchmark table: builds the library and the benchmark program, then runs the
# program in one boot of the test VM with two processors (virtual keyboards, loopback sound
# card, the fluidsynth program as the anchor): three runs, each figure as min / median / max.
# Takes about 20 minutes; on the emulated 32-bit ARM machine, longer. Arguments after the
# build dir go to nuv_bench (--quick: one short run, to try the program out).
#   tools/bench/run-bench.sh [--arch armhf] [build dir] [nuv_bench options]
set -euo pipefail
cd "$(dirname "$0")/../.."
arch=x86_64
if [[ ${1:-} == --arch ]]; then
  arch=${2:?}
  shift 2
fi
options=()
dir=build-bench
timeout_s=2400
if [[ $arch == armhf ]]; then
  dir=build-bench-armhf
  options=(-DCMAKE_TOOLCHAIN_FILE=tools/armhf/toolchain.cmake -DNUV_ARMHF_SYSROOT="$(tools/armhf/fetch.sh)/sysroot")
  timeout_s=6000
fi
if [[ -n ${1:-} && $1 != -* ]]; then
  dir=$1
  shift
fi
tools/install-deps.sh >&2
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUV_BUILD_TESTS=OFF ${options[@]+"${options[@]}"} >&2
ninja -C "$dir" -j "$(nproc)" nuv_bench >&2
exec tools/vm/vm-run --arch "$arch" --smp 2 --timeout "$timeout_s" --add "$dir/tools/bench/nuv_bench" -- nuv_bench "$@"
