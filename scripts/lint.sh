#!/usr/bin/env bash
# clang-format over all tracked C++ and clang-tidy over all that is compiled; any finding is an error.
# Usage: scripts/lint.sh [FILE...] (default: every tracked source)
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc)}

git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
for script in $(git ls-files '*.sh' .ci/run); do
  bash -n "$script"
done

cmake --preset lint >/dev/null
if [ $# -eq 0 ]; then
  set -- $(git ls-files '*.cpp')
fi
# A file that no target compiles has no compile command (the example is built against an install tree).
compiled=$(for file in "$@"; do
  ! grep -qF "\"file\": \"$PWD/$file\"" build/lint/compile_commands.json || echo "$file"
done)
[ -n "$compiled" ] || { echo "nothing to look at" >&2; exit 1; }
xargs -P "$jobs" -n 1 clang-tidy -p build/lint --quiet <<<"$compiled" 2> >(grep -vE '^[0-9]+ warnings? (and [0-9]+ errors? )?generated|^Suppressed|^Use -header-filter' >&2)
echo "lint: $(wc -l <<<"$compiled") sources, no findings"
