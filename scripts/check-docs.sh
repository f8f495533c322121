#!/usr/bin/env bash
# Every link and every file that the documents name exists. Looked at: [text](target) without a scheme, and
# `names` that lie below a directory of the tree or end like a source, script or document of it.
set -euo pipefail
cd "$(dirname "$0")/.."

documents=$(find . \( -path ./build -o -path ./.git -o -path './build-*' \) -prune -o -name '*.md' -print)
[ -n "$documents" ] || { echo "no documents found" >&2; exit 1; }
names=$(find . \( -path ./build -o -path ./.git \) -prune -o -type f -printf '%f\n')
rooms="assets base bench cmake docs examples export format fuzz include platform playback query record scripts
  storage tests tools .ci"

exists() { # a path of the tree, a header as it is included, a pattern, or a directory
  compgen -G "${1%/}" >/dev/null || compgen -G "include/$1" >/dev/null ||
    compgen -G "platform/host/include/$1" >/dev/null
}

status=0
complain() {
  echo "$1: $2" >&2
  status=1
}

for document in $documents; do
  while read -r target; do
    target=${target%%#*}
    [ -n "$target" ] || continue
    [ -e "$(dirname "$document")/$target" ] || complain "$document" "link to $target, which is not there"
  done < <(grep -oE '\]\([^) ]+\)' "$document" | sed -E 's/^\]\(//; s/\)$//' | grep -vE '^[a-z]+:' || true)

  while read -r name; do
    case "$name" in
      */*) [[ " "$(echo $rooms)" " != *" ${name%%/*} "* ]] || exists "$name" || complain "$document" "names $name" ;;
      *) grep -qxF -- "$name" <<<"$names" || complain "$document" "names $name" ;;
    esac
  done < <(grep -oE '`[^` ]+`' "$document" | tr -d '`' |
    grep -E '^[A-Za-z0-9_.*-]+(/[A-Za-z0-9_.*-]*)+$|^[A-Za-z0-9_-]+\.(h|cpp|sh|cmake|md)$' || true)
done
exit $status
