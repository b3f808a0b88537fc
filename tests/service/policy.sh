#!/usr/bin/env bash
# policy.sh SOURCE-FOLDER SWITCH: the bus takes the policy, and with it, closed as a system bus is,
# lets the switch's own user and no other have the name, and lets clients do what they may. As root,
# and where private mounts are permitted: for this test the machine has the user of the policy.
set -euo pipefail
source=$1 program=$2
if [[ ${3-} != with-the-user ]]; then
  [[ $(id -u) == 0 ]] || { echo "needs root"; exit 77; }
  unshare --mount true 2>/dev/null || { echo "needs private mounts"; exit 77; }
  exec unshare --mount "$0" "$1" "$2" with-the-user
fi

folder=$(mktemp -d)
bus= switch= client=
trap 'kill $client $switch $bus 2>/dev/null || true; rm -rf "$folder"' EXIT
chmod 755 "$folder"
user=$(sed -n 's/^u \([^ ]*\) .*/\1/p' "$source/data/varro2-switch.sysusers.conf")
if ! getent passwd "$user" >/dev/null; then
  for file in passwd group; do cp "/etc/$file" "$folder/$file"; done
  echo "$user:x:64321:64321::/:/usr/sbin/nologin" >>"$folder/passwd"
  echo "$user:x:64321:" >>"$folder/group"
  for file in passwd group; do mount --bind "$folder/$file" "/etc/$file"; done
fi
# Where the build lies, other users may not come.
cp "$program" "$folder/varro2-switchd"
program=$folder/varro2-switchd

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
  <include>$source/data/com.quor.Event.Switch.conf</include>
</busconfig>
CONFIGURATION
dbus-daemon --nofork --nopidfile --config-file="$folder/bus.conf" --print-address=3 \
  3>"$folder/address" 2>"$folder/bus.log" &
bus=$!
until [[ -s $folder/address ]]; do
  kill -0 "$bus" || { cat "$folder/bus.log"; exit 1; }
done
if grep -i 'unknown' "$folder/bus.log"; then exit 1; fi
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$folder/socket
export NOTIFY_SOCKET=

as() { # USER COMMAND...
  setpriv --reuid="$1" --regid="$1" --clear-groups "${@:2}"
}
if as 65534 "$program" 2>"$folder/stranger.log"; then
  echo "somebody else got the name"
  exit 1
fi
grep -q 'Could not get the name' "$folder/stranger.log" || { cat "$folder/stranger.log"; exit 1; }

setpriv --reuid="$user" --regid="$user" --clear-groups "$program" 2>"$folder/switch.log" &
switch=$!
until grep -q 'Serving as' "$folder/switch.log"; do
  kill -0 "$switch" || { cat "$folder/switch.log"; exit 1; }
done

call() { # USER INTERFACE.METHOD [ARGUMENT...]
  as "$1" dbus-send --system --print-reply --dest=com.quor.Event.Switch /com/quor/Event/Switch \
    "${@:2}" 2>&1 || true
}
expect() { # TEXT USER INTERFACE.METHOD [ARGUMENT...]
  local answer
  answer=$(call "${@:2}")
  grep -q "$1" <<<"$answer" || { echo "${*:2}: $answer, and not $1"; exit 1; }
}
status=com.quor.Event.Switch.Status.GetStatus
expect 'array of bytes' 65534 com.quor.Event.Switch.Query.GetAllDeclarations
expect AccessDenied 65534 com.quor.Event.Switch.Quit
expect AccessDenied 65534 "$status"
for operator in root "$user"; do
  expect '"clients":' "$operator" "$status"
done

# The switch calls clients and asks whether they are alive; they do not do so to each other.
setpriv --reuid=65534 --clear-groups gdbus wait --system not.there &
client=$!
name_of() { # PROCESS
  local name
  for name in $(dbus-send --system --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.ListNames | grep -o ' :[0-9.]*'); do
    if dbus-send --system --print-reply=literal --dest=org.freedesktop.DBus / \
      org.freedesktop.DBus.GetConnectionUnixProcessID "string:$name" 2>&1 | grep -qw "$1"; then
      echo "$name"
      return
    fi
  done
}
until name=$(name_of "$client") && [[ $name ]]; do kill -0 "$client"; done
to_client() { # USER INTERFACE.METHOD
  as "$1" dbus-send --system --print-reply --dest="$name" / "$2" 2>&1 || true
}
for method in org.freedesktop.DBus.Peer.Ping com.quor.Event.Consumer.Notification \
  com.quor.Event.Producer.Subscribe; do
  if grep AccessDenied <<<"$(to_client "$user" "$method")"; then exit 1; fi
  grep -q AccessDenied <<<"$(to_client 1 "$method")" || { echo "everybody may call $method"; exit 1; }
done
if grep AccessDenied <<<"$(to_client 1 com.quor.Event.Consumer.Event)"; then exit 1; fi

call root com.quor.Event.Switch.Quit >/dev/null
wait "$switch"
switch=
