#!/usr/bin/env bash
# The tour: plays the clip that ships with the project as a live camera, records it with pre-record for about
# 15 s and a file change in between, then lists the day, checks every file, decodes what was recorded, exports it and
# takes a picture. At the end the same seconds are recorded in all three containers and compared.
# Records stay under ./recordings. Usage: scripts/demo.sh (after a build; `make demo` does both)
set -euo pipefail
cd "$(dirname "$0")/.."
root=${RECORD_ROOT:-recordings}
clip=assets/camera.mkv
frame_ms=40 # the clip runs at 25 frames/s

ctl() { build/recordctl --root "$root" "$@"; }
say() { printf '\n== %s\n' "$*"; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
touch "$work/begin"

# Time stamps of the key frames that playback at high speed comes to: those that the index of the file leads to (one
# for each whole second of writing), and all behind the last of them. What the files before hold is shown there.
keys_reached() { # file, of which $work/frames tells
  local size seconds
  size=$(stat -c %s "$1")
  seconds=$(($(od -An -tu4 -j $((size - 412)) -N 4 "$1") / 1000))
  # Offsets of packets: a head of 24 bytes, and a frame.
  od -An -v -tu4 -w4 -j $((size - 7616)) -N $((seconds * 4)) "$1" | awk '$1 > 0' >"$work/slots"
  tail -n 1 "$work/all_times" 2>/dev/null >"$work/shown" || true
  awk '
    FILENAME ~ /slots$/ { slots[$1] = 1; if ($1 > last) last = $1; next }
    FILENAME ~ /shown$/ { shown = $1; next }
    FNR == 1 { at = 404 }
    {
      ahead = ($3 - shown + 4294967296) % 4294967296
      if ($2 == "true" && (at in slots || at >= last) && (shown == "" || ahead > 0 && ahead < 2147483648)) print $3
      at += 24 + $4
    }' "$work/slots" "$work/shown" "$work/frames"
}

say "Recording $clip as a live camera: 15 s with 3 s of pre-record, a new file after 8 s"
ctl record --input "$clip" --loop --container kmv --kind schedule --duration 15 --max-file 8 --pre 3

# Names begin with the start time and lie in a directory of the day, so their order is that of time.
find "$root/mnt" -name '*.kmv' -newer "$work/begin" | sort >"$work/files"
count=$(wc -l <"$work/files")
[ "$count" -ge 2 ] || { echo "expected a file change, found $count files" >&2; exit 1; }

day=$(basename "$(dirname "$(head -n 1 "$work/files")")")
day=${day:0:4}-${day:4:2}-${day:6:2}
say "The catalogue of $day"
ctl list --date "$day"

while read -r file; do
  say "$file"
  ctl info "$file"
  ctl frames "$file" --raw video >"$work/video"
  decoded=$(ffmpeg -nostdin -v error -xerror -f h264 -i "$work/video" -f null -progress "$work/progress" - 2>&1) ||
    { echo "ffmpeg failed: $decoded" >&2; exit 1; }
  [ -z "$decoded" ] || { echo "ffmpeg complains: $decoded" >&2; exit 1; }
  ctl --json frames "$file" |
    sed -E 's/.*"media": *"([a-z]+)", *"key": *([a-z]+), *"ts_ms": *([0-9]+), *"bytes": *([0-9]+).*/\1 \2 \3 \4/' >"$work/frames"
  awk '$1 == "video" { print $3 }' "$work/frames" >"$work/times"
  keys_reached "$file" >>"$work/all_key_times"
  frames=$(wc -l <"$work/times")
  pictures=$(awk -F= '$1 == "frame" { n = $2 } END { print n + 0 }' "$work/progress")
  echo "decoded $pictures of $frames pictures without an error"
  [ "$pictures" -eq "$frames" ]
  [ "$frames" -gt 0 ]
  cat "$work/times" >>"$work/all_times"
done <"$work/files"

say "From file to file"
# A file may begin with frames that the one before it holds, too; between two neighbours there may be no hole.
# Times are 32 bits and wrap.
sort -n -u "$work/all_times" | awk -v frame="$frame_ms" '
  NR > 1 {
    step = $1 - last
    if (step > 1.5 * frame && step < 2147483648) { missing += int(step / frame + 0.5) - 1; print "a hole of " step " ms before " $1 }
  }
  { last = $1 }
  END {
    if (missing) { print missing " frames are missing"; exit 1 }
    printf "%d pictures in a row, no frame is missing between the files\n", NR
  }'

say "Playing it back across the file change"
first=$(basename "$(head -n 1 "$work/files")")
begin="$day ${first:0:2}:${first:2:2}:${first:4:2}"
expected=$(sort -n -u "$work/all_times" | wc -l)
expected_keys=$(sort -n -u "$work/all_key_times" | wc -l)
for speed in 1 4; do
  summary=$(ctl --json play --at "$begin" --speed "$speed")
  echo "speed $speed: $summary"
  value() { sed -E "s/.*\"$1\": *([0-9]+).*/\1/" <<<"$summary"; }
  [ "$(value repeated)" -eq 0 ] # one to a line: in a list only the last one would end the tour
  [ "$(value missing)" -eq 0 ]
  if [ "$speed" -eq 1 ]; then
    [ "$(value video_frames)" -eq "$expected" ]
    echo "each of the $expected recorded pictures arrived once and in order"
  else # it shows key frames only
    [ "$(value key_frames)" -eq "$expected_keys" ]
    [ "$(value video_frames)" -eq "$expected_keys" ]
    echo "each of the $expected_keys key frames that the indexes lead to arrived once and in order"
  fi
done

say "An export across the file change, and a time lapse, as ffprobe sees them"
first=$(basename "$(head -n 1 "$work/files")")
from="$day ${first:0:2}:${first:2:2}:${first:4:2}"
to=$(date -d "$from 60 sec" '+%Y-%m-%d %H:%M:%S')
probe() { ffprobe -v error -select_streams v -count_packets -show_entries "$1" -of default=nw=1:nk=1 "$2"; }

ctl export --from "$from" --to "$to" "$work/export.mp4"
exported=$(probe stream=nb_read_packets "$work/export.mp4")
recorded=$(sort -n -u "$work/all_times" | wc -l)
echo "$exported of $recorded pictures exported, $(probe format=duration "$work/export.mp4") s"
[ "$exported" -eq "$recorded" ]
probe packet=flags "$work/export.mp4" >"$work/flags"
[[ $(head -n 1 "$work/flags") == K* ]]
complaints=$(ffmpeg -nostdin -v warning -xerror -i "$work/export.mp4" -f null - 2>&1)
[ -z "$complaints" ] || { echo "ffmpeg complains: $complaints" >&2; exit 1; }

ctl timelapse --from "$from" --to "$to" --seconds 10 "$work/lapse.mp4"
pictures=$(probe stream=nb_read_packets "$work/lapse.mp4")
echo "$pictures pictures in the time lapse, $(probe format=duration "$work/lapse.mp4") s"
[ "$pictures" -gt 1 ]
[ "$(probe packet=flags "$work/lapse.mp4" | grep -c '^K')" -eq "$pictures" ]

say "A picture of the same camera"
picture=$(ctl snapshot --input "$clip" --size 320x180 --kind schedule)
echo "$picture"
file=${picture%%  *}
shape=$(ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 "$file")
echo "another decoder sees: $shape"
[ "$shape" = mjpeg,320,180 ]

say "The same six seconds in each container"
ffmpeg -nostdin -v error -i "$clip" -t 6 -c copy "$work/six.mkv"
field() { sed -E "s/.*\"$1\": *\"?([^,\"}]*).*/\1/"; }
record_as() { # container: its result, and the seconds of processor time
  local TIMEFORMAT='%U %S'
  { time ctl --json record --input "$work/six.mkv" --container "$1" --kind manual >"$work/$1.json" 2>"$work/$1.err"; } 2>"$work/$1.cpu"
}
payload_of() { ctl frames "$1" | awk '{ sum += $5 } END { print sum }'; }
recordings=()
for container in kmv avi mp4; do
  record_as "$container" &
  recordings+=($!)
done
for recording in "${recordings[@]}"; do
  wait "$recording" || { cat "$work"/*.err >&2; exit 1; }
done
printf '%-9s %7s %7s %10s %10s %9s %7s\n' container video audio payload file overhead CPU
for container in kmv avi mp4; do
  result=$(cat "$work/$container.json")
  file=$(field path <<<"$result")
  ctl info "$file" >"$work/info" || { cat "$work/info" >&2; exit 1; }
  awk -v container="$container" -v video="$(field video_frames <<<"$result")" \
    -v audio="$(field audio_frames <<<"$result")" -v payload="$(payload_of "$file")" \
    -v size="$(stat -c %s "$file")" '{
      printf "%-9s %7d %7d %10d %10d %8.2f%% %5.0f ms\n", container, video, audio, payload, size,
        100 * (size - payload) / payload, 1000 * ($1 + $2)
    }' "$work/$container.cpu"
done
echo "payload: bytes of the frames as they came; overhead: what the container adds; CPU: all of recordctl"

say "All of it lies under $root"
