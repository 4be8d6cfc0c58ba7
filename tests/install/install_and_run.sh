#!/usr/bin/env bash
# Installs the build into a temporary prefix and runs the installed helper:
# it must find its resources in share/wrenfold-helper beside bin/.
set -euo pipefail
build_dir=$1
prefix=$(mktemp -d)
home=$(mktemp -d)
bus_pid=""
cleanup() {
  [ -n "$bus_pid" ] && kill "$bus_pid" 2>/dev/null || true
  rm -rf "$prefix" "$home"
}
trap cleanup EXIT

cmake --install "$build_dir" --prefix "$prefix" >/dev/null
for f in bin/wrenfold-helper bin/openmeta bin/wf-plutil bin/wf-defaults \
         share/wrenfold-helper/Info.plist share/wrenfold-helper/OFProjectsScript.txt \
         share/dbus-1/interfaces/org.ardel.Wrenfold.xml lib/systemd/user/wrenfold-helper.service \
         share/dbus-1/interfaces/org.ardel.WrenfoldHelper.xml \
         share/bash-completion/completions/wrenfold-helper \
         share/dbus-1/services/org.ardel.WrenfoldHelper.service \
         share/man/man1/wrenfold-helper.1.gz; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f"; echo "0 passed, 1 failed"; exit 1; }
done

# The unit and the D-Bus activation file start the binary where it was
# installed, whatever prefix the build tree was configured with.
unit="$prefix/lib/systemd/user/wrenfold-helper.service"
activation="$prefix/share/dbus-1/services/org.ardel.WrenfoldHelper.service"
if ! grep -qx "ExecStart=$prefix/bin/wrenfold-helper" "$unit" ||
   ! grep -qx "Exec=$prefix/bin/wrenfold-helper" "$activation"; then
  echo "the starters do not name the installed binary:"; grep -h '^Exec' "$unit" "$activation"
  echo "0 passed, 1 failed"; exit 1
fi

# The installed unit is valid, and sandboxed well enough.
if command -v systemd-analyze >/dev/null; then
  systemd-analyze verify --man=no "$unit" || {
    echo "systemd-analyze verify refused the unit"; echo "0 passed, 1 failed"; exit 1; }
  exposure=$(systemd-analyze security --offline=yes --no-pager "$unit" 2>&1 |
             sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\).*/\1/p')
  echo "Exposure of the installed wrenfold-helper.service: ${exposure:-unknown}"
  awk -v e="${exposure:-99}" 'BEGIN { exit !(e <= 4.0) }' || {
    echo "exposure above 4.0"; echo "0 passed, 1 failed"; exit 1; }
else
  echo "systemd-analyze is missing (package systemd): the unit is not verified"
fi

version=$("$prefix/bin/wrenfold-helper" --version)
case "$version" in
  *1.0.0*) ;;
  *) echo "unexpected --version output: $version"; echo "0 passed, 1 failed"; exit 1 ;;
esac

# The installed helper on a private bus, with no plug-in: it says so and ends with status 0.
# Address and pid both on standard output, in that order: reading the pid
# from a file raced with the daemon writing it and left the bus running.
{ read -r address; read -r bus_pid; } < <(dbus-daemon --session --fork --print-address=1 --print-pid=1)
set +e
out=$(env -i HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" \
      DBUS_SESSION_BUS_ADDRESS="$address" PATH="$PATH" timeout 20 "$prefix/bin/wrenfold-helper" 2>&1)
status=$?
set -e
if [ $status -ne 0 ] || ! grep -q "Wrenfold is not installed -- Quitting Wrenfold Helper App and removing from login items" <<<"$out"; then
  echo "installed helper did not behave: status $status"; echo "$out"; echo "0 passed, 1 failed"; exit 1
fi
echo "1 passed, 0 failed"
