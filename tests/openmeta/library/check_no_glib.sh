#!/usr/bin/env bash
# The base layer, the property-list codec and the OpenMeta store (what the
# installed library's headers and most of its sources are) must reach no
# GLib header: preprocesses each of their files with nothing but the source
# tree on the include path and fails on the first that needs GLib or finds
# it some other way.
set -uo pipefail
cxx=$1
source_dir=$2
src=$source_dir/src
status=0
checked=0
while IFS= read -r file; do
  checked=$((checked + 1))
  if ! deps=$("$cxx" -std=c++20 -M -I"$src" "$file" 2>&1); then
    echo "${file#"$src"/} does not build without GLib's include path:"
    echo "$deps" | grep -m3 -E 'error|fatal'
    status=1
  elif grep -qE 'glib-2\.0|/gio/|/glib\.h|/glib-object\.h' <<<"$deps"; then
    echo "${file#"$src"/} reaches a GLib header"
    status=1
  fi
done < <(find "$src/platform/base" "$src/platform/plist" "$src/openmeta" \
              "$src/platform/ExtendedAttributes.h" "$src/platform/linux/SystemExtendedAttributes.cpp" \
              -name '*.h' -o -name '*.cpp' | sort)
[ $checked -gt 0 ] || { echo "no files found under $src"; exit 1; }
[ $status -eq 0 ] && echo "$checked files of the base, the codec and the OpenMeta store reach no GLib header"
exit $status
