#!/usr/bin/env bash
# Installs the Debian packages that a make target needs and that are missing; silent and offline when all
# are there. Usage: scripts/install-deps.sh [build|demo|test|sanitize|armhf|fuzz|lint|bench|all]...
set -euo pipefail

base="ca-certificates g++ cmake ninja-build pkg-config"
host="$base libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libcurl4-openssl-dev libcli11-dev
  nlohmann-json3-dev tzdata"
gtest="libgtest-dev libgmock-dev googletest"
rtsp="libgstreamer1.0-dev libgstrtspserver-1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base
  gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav"
servers="python3 python3-pyftpdlib python3-aiosmtpd vsftpd openssl"
tests="$host $gtest $rtsp $servers binutils ffmpeg e2fsprogs"
clang="clang libclang-rt-dev"
bench="$host e2fsprogs ffmpeg"

packages_of() {
  case "$1" in
    build) echo "$host" ;;
    demo) echo "$host ffmpeg" ;;
    test | sanitize) echo "$tests" ;;
    armhf) echo "$base g++-arm-linux-gnueabihf qemu-user $gtest tzdata" ;;
    fuzz) echo "$host $clang llvm $gtest" ;;
    lint) echo "$tests $bench clang clang-tidy clang-format git" ;;
    bench) echo "$bench" ;;
    *) echo "install-deps.sh: no group '$1'" >&2 && return 2 ;;
  esac
}

[ $# -gt 0 ] || set -- build
[ "$*" != all ] || set -- test armhf fuzz lint bench

wanted=""
for group in "$@"; do
  wanted+=" $(packages_of "$group")"
done

if ! command -v dpkg-query >/dev/null; then
  echo "install-deps.sh: not a Debian system, nothing is installed for you. Needed:" $wanted >&2
  exit 0
fi

# Unknown packages make dpkg-query fail, which is what a missing one looks like.
installed=" $(dpkg-query -W -f='${Package}=${db:Status-Status} ' $wanted 2>/dev/null || true) "
missing=""
for package in $wanted; do
  case "$installed" in
    *" $package=installed "*) ;;
    *) missing+=" $package" ;;
  esac
done
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-deps.sh: neither root nor sudo; please install:$missing" >&2
    exit 1
  fi
  as_root="sudo"
fi
echo "Installing:$missing" >&2
$as_root apt-get -q update
$as_root env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $missing
