#!/usr/bin/env bash
# Configures, builds and runs the suite of one preset. Usage: scripts/suite.sh PRESET [ctest arguments]
# JOBS sets how much runs at a time.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift
jobs=${JOBS:-$(nproc)}

cmake --preset "$preset" -DRECORD_BUILD_TESTS=ON
cmake --build --preset "$preset" --parallel "$jobs"

# The thread checker cannot live with every layout that address randomisation may choose.
fixed_layout=""
if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then
  fixed_layout="setarch $(uname -m) -R"
fi
$fixed_layout ctest --preset "$preset" --parallel "$jobs" "$@"
