#!/usr/bin/env bash
# Runs every fuzzer for some seconds, as many at a time as JOBS says, over a corpus that begins with seeds made
# by the library's own writers. Usage: scripts/fuzz.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
jobs=${JOBS:-$(nproc)}

cmake --preset fuzz
cmake --build --preset fuzz --parallel "$jobs"

shopt -s nullglob
fuzzers=(build/fuzz/fuzz/*_fuzz)
[ ${#fuzzers[@]} -gt 0 ] || { echo "no fuzzers were built" >&2; exit 1; }

corpus=$PWD/build/fuzz/corpus
mkdir -p "$corpus"
build/fuzz/fuzz/make_seeds "$corpus" # one directory a fuzzer

run_one() { # fuzzer seconds corpus
  name=$(basename "$1")
  work=$(mktemp -d)
  mkdir -p "$3/$name"
  found=$(find "$3/$name" -type f | wc -l)
  [ "$found" -gt 0 ] || { echo "$name: no seeds" >&2; exit 1; }
  if "$1" -max_total_time="$2" -timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=256 -print_final_stats=1 \
    -artifact_prefix="$3/../$name-" "$3/$name" >"$work/log" 2>&1; then
    echo "$name: clean, $found seeds, $(awk '/number_of_executed_units/ { print $2 }' "$work/log") runs in $2 s"
    rm -rf "$work"
  else
    tail -n 60 "$work/log"
    echo "$name: FAILED, the input lies in build/fuzz/$name-*"
    exit 1
  fi
}
export -f run_one
printf '%s\n' "${fuzzers[@]}" | xargs -P "$jobs" -I{} bash -euo pipefail -c 'run_one "$@"' _ {} "$seconds" "$corpus"
