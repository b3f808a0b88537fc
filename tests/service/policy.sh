#!/usr/bin/env bash
# policy.sh SOURCE-FOLDER SWITCH: the bus takes the policy, and with it, closed as a system bus is,
# lets the switch have its name and clients reach it. As root, who is named in the policy.
set -euo pipefail
source=$1 program=$2
[[ $(id -u) == 0 ]] || { echo "needs root"; exit 77; }
folder=$(mktemp -d)
bus= switch=
trap 'kill $switch $bus 2>/dev/null || true; rm -rf "$folder"' EXIT

# The user need not be there where this is tested.
sed '/<policy user="varro2-switch">/,/<\/policy>/d' "$source/data/com.quor.Event.Switch.conf" \
  >"$folder/switch.conf"
cat >"$folder/bus.conf" <<CONFIGURATION
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$folder/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <include>$folder/switch.conf</include>
</busconfig>
CONFIGURATION
dbus-daemon --nofork --nopidfile --config-file="$folder/bus.conf" --print-address=3 \
  3>"$folder/address" 2>"$folder/bus.log" &
bus=$!
until [[ -s $folder/address ]]; do
  kill -0 "$bus" || { cat "$folder/bus.log"; exit 1; }
done
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$folder/socket
export NOTIFY_SOCKET=
"$program" 2>"$folder/switch.log" &
switch=$!
until grep -q 'Serving as' "$folder/switch.log"; do
  kill -0 "$switch" || { cat "$folder/switch.log"; exit 1; }
done
call() { # USER METHOD
  setpriv --reuid="$1" --regid="$1" --clear-groups \
    dbus-send --system --print-reply --dest=com.quor.Event.Switch /com/quor/Event/Switch "$2" 2>&1
}
chmod 755 "$folder"
answer=$(call 65534 com.quor.Event.Switch.Query.GetAllDeclarations)
grep -q 'array of bytes' <<<"$answer" || { echo "$answer"; exit 1; }
refused=$(call 65534 com.quor.Event.Switch.Quit || true)
grep -q AccessDenied <<<"$refused" || { echo "$refused"; exit 1; }
call 0 com.quor.Event.Switch.Quit >/dev/null
wait "$switch"
switch=
