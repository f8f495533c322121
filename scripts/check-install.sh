#!/usr/bin/env bash
# Installs a build into a temporary prefix, moves the prefix, and builds and runs examples/minimal against it
# the way an application would; with CMake examples/porting, too, as the maker of a device would.
# Usage: scripts/check-install.sh BUILD_DIRECTORY WAY
# with WAY one of cmake, cmake-static, pkg-config, pkg-config-static
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
way=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
prefix=$work/prefix
mv "$work/first" "$prefix" # nothing installed may remember where it was put

library=$(find "$prefix" -name librecord.a)
[ -n "$library" ] || { echo "librecord.a was not installed" >&2; exit 1; }
lib=$(dirname "$library")

# pkg-config leaves the choice to the linker, which takes the kind that is there. The CMake package checks that
# all it names is there.
case "$way" in
  pkg-config) find "$lib" -name "*.a" -delete ;;
  pkg-config-static) find "$lib" -name "*.so*" -delete ;;
esac

program=$work/minimal
case "$way" in
  cmake*)
    host=librecord::record-host${way#cmake}
    library=librecord::record
    [ "$way" = cmake ] || library=librecord::record_static
    # The library beside the platform, in either order, changes nothing.
    for platform in "$library;$host" "$host;$library" "$host"; do
      cmake -S examples/minimal -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DPLATFORM="$platform" >/dev/null
      cmake --build "$work/build"
    done
    program=$work/build/minimal
    cmake -S examples/porting -B "$work/porting" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DLIBRARY="$library" >/dev/null
    cmake --build "$work/porting"
    LD_LIBRARY_PATH=$lib "$work/porting/smoke" "$work/device"
    ;;
  pkg-config*)
    export PKG_CONFIG_PATH=$lib/pkgconfig
    packages=librecord-host
    [ "$way" = pkg-config ] || packages+=" libavformat libavcodec libavutil libswscale libcurl"
    g++ -std=c++17 -Wall -Wextra -Werror -o "$program" examples/minimal/minimal.cpp \
      $(pkg-config --cflags --libs $packages)
    ;;
esac

needed=$(objdump -p "$program" | awk '$1 == "NEEDED" { print $2 }' | grep -c '^librecord' || true)
case "$way" in
  *-static) [ "$needed" -eq 0 ] || { echo "the static program needs a shared librecord" >&2; exit 1; } ;;
  *) [ "$needed" -ge 1 ] || { echo "the program does not use the shared librecord" >&2; exit 1; } ;;
esac

LD_LIBRARY_PATH=$lib "$program" "$work/root" | tee "$work/out"
grep -q "^a scheduled recording goes to $work/root/mnt/mmc0/schedule/" "$work/out"
grep -q "^recorded today: 0 files" "$work/out"
