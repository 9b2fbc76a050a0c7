#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, and runs the native tests and the
# tests against a real kernel sequencer (inside the test VM), first in a plain build, then
# in an ASan+UBSan build and a TSan build.
#   tools/run-tests.sh            all three builds
#   tools/run-tests.sh --quick    the plain build only
set -euo pipefail
cd "$(dirname "$0")/.."

builds=(plain address thread)
[ "${1:-}" = "--quick" ] && builds=(plain)

tools/install-deps.sh

jobs=$(nproc)
for build in "${builds[@]}"; do
  dir=build-ci-$build
  sanitize=$build
  [ "$build" = plain ] && sanitize=
  echo "=== $build build ==="
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUV_SANITIZE="$sanitize" \
    -DNUV_BUILD_TESTS=ON -DNUV_WERROR=ON >/dev/null
  ninja -C "$dir" -j "$jobs"
  # The VM tests take one boot each; the native ones run alongside.
  (cd "$dir" && ctest --output-on-failure -j 2 --timeout 1500)
done
