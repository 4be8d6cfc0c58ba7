#!/usr/bin/env bash
# Installs the OpenMeta library into a staging root, builds a program outside
# the project against it with only pkg-config's flags, and runs it.
set -euo pipefail
build_dir=$1
source_dir=$2
cxx=${3:-c++}
# Flags the build itself needs in every program that links its libraries
# (the sanitizers' run-time in a sanitized build); empty otherwise.
build_flags=${4:-}
root=$(mktemp -d)
work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$root" "$work"' EXIT

DESTDIR="$root" cmake --install "$build_dir" --component openmeta-dev >/dev/null

pcdir=$(dirname "$(find "$root" -name wrenfold-openmeta.pc -print -quit)")
[ -f "$pcdir/wrenfold-openmeta.pc" ] || { echo "wrenfold-openmeta.pc not installed"; exit 1; }
# Only the staged copy may be found, with its paths under the staging root.
export PKG_CONFIG_PATH="$pcdir" PKG_CONFIG_SYSROOT_DIR="$root"
flags=$(pkg-config --cflags --libs wrenfold-openmeta)
# The installed headers stand on the C++ library alone: no GLib include path.
cflags=$(pkg-config --cflags wrenfold-openmeta)
case "$cflags" in
  *glib* | *gio*) echo "the compile flags name GLib: $cflags"; exit 1 ;;
esac
case "$flags" in
  *"$source_dir"*) echo "flags point into the source tree: $flags"; exit 1 ;;
esac
# shellcheck disable=SC2086
"$cxx" -std=c++20 $build_flags -o "$work/outside" "$source_dir/tests/openmeta/library/outside.cpp" $flags

echo content >"$work/file"
set +e
out=$("$work/outside" "$work/file")
status=$?
set -e
[ $status -eq 77 ] && { echo "skipped: $work keeps no user extended attributes"; exit 77; }
[ $status -eq 0 ] || { echo "the outside program failed with status $status"; exit 1; }
[ "$out" = $'Work\nHome' ] || { echo "unexpected tags: $out"; exit 1; }
echo "the outside program built against the installed library and tagged a file"
