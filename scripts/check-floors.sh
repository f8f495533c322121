#!/usr/bin/env bash
# A room includes itself, the floors below and the public headers. Bottom up: base, storage, record, format,
# query, then playback, export and storage/maintenance side by side. Only format/mp4 and export name the
# multiplexer, beside the platforms. The host platform sees the public headers and base; examples see the public headers only.
set -euo pipefail
cd "$(dirname "$0")/.."

files=$(find base storage record format query playback export platform examples -name '*.h' -o -name '*.cpp' \
  2>/dev/null || true)
[ -n "$files" ] || { echo "no sources found" >&2; exit 1; }

awk '
  BEGIN {
    floor["base"] = 1; floor["storage"] = 2; floor["record"] = 3; floor["format"] = 4; floor["query"] = 5
    floor["playback"] = 6; floor["export"] = 6; floor["storage/maintenance"] = 6
    floor["platform"] = 1.5; floor["examples"] = 0.5
  }
  function room(path) {
    if (path ~ /^storage\/maintenance\//) return "storage/maintenance"
    return substr(path, 1, index(path, "/") - 1)
  }
  function exists(path,  line, found) {
    found = (getline line < path) >= 0
    close(path)
    return found
  }
  function complain(text) {
    printf "%s:%d: %s\n", FILENAME, FNR, text
    bad = 1
  }
  /^ *#include "/ {
    split($0, part, "\"")
    target = part[2]
    here = room(FILENAME)
    public = exists("include/" target) || exists("platform/host/include/" target)
    if (public) {
      if (exists(target)) complain(target " is both a public header and one of a room")
      if (target ~ /^record_host\// && here != "platform" && here != "examples") complain(target " is of the host platform")
      next
    }
    there = room(target)
    if (there == here) next
    if (!(there in floor)) complain(target " belongs to no room")
    else if (there == "platform") complain(target " is of the host platform")
    else if (floor[there] >= floor[here]) complain(target " is not on a floor below " here)
  }
  /Emp4(Muxer|Demuxer)/ && FILENAME !~ /^(format\/mp4|export|platform|examples)\// { complain("names the multiplexer") }
  END { exit bad }
' $files
