#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, and runs the native tests and the
# tests against a real kernel sequencer (inside the test VM), first in a plain build, then
# in an ASan+UBSan build and a TSan build; then cross-built for 32-bit ARM, where the unit
# and VM tests both run in the ARM test VM.
#   tools/run-tests.sh            all four builds
#   tools/run-tests.sh --quick    the plain build only
#   tools/run-tests.sh --armhf    the 32-bit ARM build only
set -euo pipefail
cd "$(dirname "$0")/.."

builds=(plain address thread armhf)
[ "${1:-}" = "--quick" ] && builds=(plain)
[ "${1:-}" = "--armhf" ] && builds=(armhf)

tools/install-deps.sh

# The armhf sysroot and the ARM VM's kernel are fetched once and cached (about a minute and
# a half the first time): meanwhile the other builds go on, the fetch at the lowest priority
# so that it does not slow the VM tests' timing. Its host packages come with the others.
fetch_log=$(mktemp)
trap 'rm -f "$fetch_log"' EXIT
case " ${builds[*]} " in
  *" armhf "*) nice -n 19 tools/armhf/fetch.sh >"$fetch_log" 2>&1 & fetch_pid=$! ;;
esac

jobs=$(nproc)
for build in "${builds[@]}"; do
  dir=build-ci-$build
  sanitize=$build
  [ "$build" = plain ] && sanitize=
  echo "=== $build build ==="
  options=(-DNUV_SANITIZE="$sanitize")
  if [ "$build" = armhf ]; then
    wait "$fetch_pid" || { cat "$fetch_log" >&2; exit 1; }
    grep '^fetch-armhf:' "$fetch_log" || true
    cache=$(tail -n 1 "$fetch_log")
    options=(-DCMAKE_TOOLCHAIN_FILE=tools/armhf/toolchain.cmake -DNUV_ARMHF_SYSROOT="$cache/sysroot")
  fi
  cmake -S . -B "$dir" -G Ninja --no-warn-unused-cli -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" \
    -DNUV_BUILD_TESTS=ON -DNUV_WERROR=ON >/dev/null
  ninja -C "$dir" -j "$jobs"
  # The VM tests take one boot each; the native ones run alongside.
  if ! (cd "$dir" && ctest --output-on-failure -j 2 --timeout 1500); then
    # The VM tests' output is long: name what failed once more at the very end.
    echo "=== $build build: what failed ==="
    grep -hE -A4 ':[0-9]+: Failure$' "$dir/Testing/Temporary/LastTest.log" | tail -n 60 || true
    grep -hE '^\[  FAILED  \] [A-Za-z0-9_/]+\.' "$dir/Testing/Temporary/LastTest.log" | sed 's/ (.*//' | sort -u || true
    exit 8
  fi
done
