#!/usr/bin/env bash
# A card that is full: a small file system in memory is filled with the recordings of several days, then recording
# goes on, and the oldest recordings go. Needs the right to mount (root, or user name spaces); without it the script
# says so and ends with 77. Usage: scripts/demo-full-card.sh [RECORDCTL]
set -euo pipefail
cd "$(dirname "$0")/.."
ctl=$(realpath "${1:-build/recordctl}")
clip=assets/camera.mkv
keep_mb=502 # free for new files; the library begins none with 500 MB or less
card_mb=506 # so that recordings may take 4 MB
seconds=8

say() { printf '\n== %s\n' "$*"; }

if [ "${FULL_CARD_INSIDE:-}" != 1 ]; then
  export FULL_CARD_INSIDE=1
  # A mount name space of its own: nothing of it is left behind, whatever happens.
  for way in "unshare --mount" "unshare --map-root-user --mount"; do
    if $way mount -t tmpfs -o size=1m none /mnt 2>/dev/null; then exec $way "$BASH" "$0" "$ctl"; fi
  done
  echo "not permitted to mount a file system here: the demonstration is skipped"
  exit 77
fi

root=$(mktemp -d)
trap 'umount "$root/mnt/mmc0" 2>/dev/null || true; rm -rf "$root"' EXIT
mkdir -p "$root/mnt/mmc0"
mount -t tmpfs -o "size=${card_mb}m" none "$root/mnt/mmc0"
card=$root/mnt/mmc0
free_mb() { df --output=avail -B1M "$card" | tail -1 | tr -d ' '; }

say "A card of $card_mb MB, of which $keep_mb MB are to stay free; one recording to begin with"
"$ctl" --root "$root" record --input "$clip" --loop --kind schedule --duration 3 | tail -1
first=$(find "$card/schedule" -name '*.kmv')

say "The same recording on each of the days before, four times a day, until the card is full"
days=0
full=
while [ -z "$full" ]; do
  days=$((days + 1))
  day=$(date -d "-$days days" +%Y%m%d)
  mkdir -p "$card/schedule/$day"
  head -c 1440 /dev/zero | tr '\0' A >"$card/schedule/$day/rec_type.idx"
  for hour in 02 08 14 20; do
    cp "$first" "$card/schedule/$day/${hour}0000-av-1.kmv"
    cp "$first.info" "$card/schedule/$day/${hour}0000-av-1.kmv.info"
    [ "$(free_mb)" -gt "$keep_mb" ] || { full=yes && break; }
  done
done
echo "a photo of its owner" >"$card/schedule/$day/holiday.txt"
before=$(find "$card" -name '*.kmv' | wc -l)
oldest=$(find "$card/schedule" -name '*.kmv' | sort | head -1)
echo "$before recordings on $((days + 1)) days, $(free_mb) MB free"
"$ctl" --root "$root" days

say "What prune would do"
"$ctl" --root "$root" prune --free "$((keep_mb + 1))" --dry-run

say "Recording goes on for $seconds s, the oldest recordings go"
"$ctl" --root "$root" record --input "$clip" --loop --kind schedule --duration "$seconds" --max-file 4 \
  --min-free "$keep_mb" >"$root/files" 2>"$root/messages"
cat "$root/files" "$root/messages"

say "What is left"
"$ctl" --root "$root" days
"$ctl" --root "$root" list | tail -n +2 >"$root/today"
cat "$root/today"
new=$(wc -l <"$root/files")
gone=$(grep -c 'MB free: deleted' "$root/messages")
echo "$new new files, $gone old ones gone, $(free_mb) MB free"

fail() { echo "FAILED: $*" >&2 && exit 1; }
[ "$new" -ge 2 ] || fail "recording stopped"
[ "$gone" -ge 1 ] || fail "nothing was deleted"
[ ! -e "$oldest" ] && [ ! -e "$oldest.info" ] || fail "the oldest recording is still there"
[ "$(find "$card" -name '*.kmv' | wc -l)" -eq $((before + new - gone)) ] || fail "other files are missing"
[ -e "$(find "$card" -name holiday.txt)" ] || fail "a file that is no recording was deleted"
[ "$(grep -c complete "$root/today")" -eq $((new + 1)) ] || fail "a recording of today is not whole"
[ "$(free_mb)" -ge $((keep_mb - 1)) ] || fail "the card ran full"
