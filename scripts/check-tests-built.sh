#!/usr/bin/env bash
# Every tests/**/*_test.cpp is compiled, once, into one of the test programs.
# Usage: scripts/check-tests-built.sh BUILD_DIRECTORY
set -euo pipefail
cd "$(dirname "$0")/.."

# By itself, or included by a source that joins some of them.
compiled=$(sed -n 's/.*"file": "\(.*\)".*/\1/p' "$1/compile_commands.json")
joined=$(grep '/Unity/' <<<"$compiled" | xargs -r sed -n 's/#include "\(.*\)"/\1/p')

total=0
status=0
while read -r test; do
  total=$((total + 1))
  times=$(grep -cFx "$PWD/$test" <<<"$compiled"$'\n'"$joined" || true)
  if [ "$times" -ne 1 ]; then
    echo "$test is compiled $times times" >&2
    status=1
  fi
done < <(find tests -name '*_test.cpp')
[ "$total" -gt 0 ] || { echo "no tests found" >&2; exit 1; }
exit $status
