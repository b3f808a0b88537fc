#!/usr/bin/env bash
# files.sh CMAKE BUILD-FOLDER: what is installed around the switch is in its place, and the service
# manager takes the unit, with a sandbox that leaves next to nothing open.
set -euo pipefail
cmake=$1 build=$2
most_exposed=0.4 # of 10, as systemd-analyze counts
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

DESTDIR=$folder "$cmake" -P "$build/data/cmake_install.cmake" >/dev/null

one() { # NAME: the one installed file that ends so
  local found
  found=$(find "$folder" -type f -path "*/$1")
  [[ $found && $found != *$'\n'* ]] || { echo "not installed, or twice: $1" >&2; return 1; }
  echo "$found"
}
unit=$(one systemd/system/varro2-switchd.service)
activation=$(one dbus-1/system-services/com.quor.Event.Switch.service)
one dbus-1/system.d/com.quor.Event.Switch.conf >/dev/null
one sysusers.d/varro2-switch.conf >/dev/null
one tmpfiles.d/varro2-switch.conf >/dev/null
one man8/varro2-switchd.8 >/dev/null

# The bus asks the service manager for the very unit, which runs the same program as the same user.
grep -qx 'SystemdService=varro2-switchd.service' "$activation"
program=$(sed -n 's/^ExecStart=//p' "$unit")
grep -qx "Exec=$program" "$activation"
user=$(sed -n 's/^User=//p' "$unit")
grep -qx "User=$user" "$activation"
grep -q "^u $user " "$(one sysusers.d/varro2-switch.conf)"
grep -q "<policy user=\"$user\">" "$(one dbus-1/system.d/com.quor.Event.Switch.conf)"

# It looks whether the program is there.
sed "s|^ExecStart=.*|ExecStart=$build/bin/varro2-switchd|" "$unit" >"$folder/varro2-switchd.service"
complaints=$(systemd-analyze verify --man=no "$folder/varro2-switchd.service" 2>&1)
[[ -z $complaints ]] || { echo "$complaints"; exit 1; }
report=$(systemd-analyze security --offline=yes --no-pager "$unit" 2>&1)
exposure=$(sed -n 's/.*exposure level for .*: \([0-9.]*\) .*/\1/p' <<<"$report")
echo "exposed to $exposure of 10"
awk -v is="$exposure" -v most="$most_exposed" 'BEGIN { exit !(is != "" && is + 0 <= most + 0) }' ||
  { echo "$report"; exit 1; }
