#!/usr/bin/env bash
# The shared library imports the C and C++ run time, threads and the names of platform.h, nothing else.
# Usage: scripts/check-imports.sh LIBRARY [NM [OBJDUMP]]
set -euo pipefail
library=$1
nm=${2:-nm}
objdump=${3:-objdump}
header=$(dirname "$0")/../include/record/platform.h

# Functions of the header, and the members of CMutex as nm shows them.
declared=$(awk '
  /^ *\/\// { next }
  /^class/ { in_class = 1 }
  in_class && /^};/ { in_class = 0 }
  in_class && match($0, /~?[A-Za-z]+\(/) { print "CMutex::" substr($0, RSTART, RLENGTH - 1) }
  !in_class && /^RECORD_PLATFORM / && match($0, /[A-Za-z0-9_]+\(/) { print substr($0, RSTART, RLENGTH - 1) }
' "$header" | sort -u)
[ "$(wc -l <<<"$declared")" -gt 40 ] || { echo "platform.h was not understood" >&2; exit 1; }

# "U name@VERSION" (run time) or "U name(arguments)" (platform); weak ones are the linker's own hooks.
imports=$("$nm" -D --undefined-only -C "$library" | sed -E 's/^ +//')
[ -n "$imports" ] || { echo "$library: no imports were read" >&2; exit 1; }
foreign=$(grep -vE '@+(GLIBC|GLIBCXX|CXXABI|CXXABI_ARM|GCC)_[0-9.]+$' <<<"$imports" |
  grep -vE '^w (__gmon_start__|_ITM_(de)?registerTMCloneTable|__cxa_finalize|__deregister_frame_info|__register_frame_info)$' |
  sed -E 's/^[Uwv] //; s/\(.*//' | grep -vxF "$declared" || true)
if [ -n "$foreign" ]; then
  printf '%s imports what platform.h does not declare:\n%s\n' "$library" "$foreign" >&2
  exit 1
fi

needed=$("$objdump" -p "$library" | awk '$1 == "NEEDED" { print $2 }' |
  grep -vE '^(libc|libm|libstdc\+\+|libgcc_s|libpthread|ld-linux.*)\.so' || true)
if [ -n "$needed" ]; then
  printf '%s needs other libraries:\n%s\n' "$library" "$needed" >&2
  exit 1
fi
