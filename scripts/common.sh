# Sourced by the other scripts.
#
# use_compiler_cache         has the build use ccache when it is there
# private_bus_start FOLDER   starts a dbus-daemon in the folder and sets DBUS_SYSTEM_BUS_ADDRESS;
#                            the machine's own bus is never touched
# switch_start PROGRAM       starts the switch and waits until it has its name; sets switch_pid
# private_bus_stop           ends both
# activate_switch            has the bus start the switch that is installed, unless it is running
# end_process SIGNAL PID     ends a process that one of these has started
# types_visible FOLDER TYPES sets with_types to the words that run a command where the files in TYPES
#                            stand in the system's folder of types: for this command alone, with
#                            what is needed for it in the folder. Fails where that is not permitted

use_compiler_cache() {
  command -v ccache >/dev/null || return 0
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR-$PWD}
}

bus_pid=
switch_pid=

private_bus_start() {
  local folder=$1
  cat >"$folder/bus.conf" <<CONFIGURATION
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=$folder/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
  </policy>
</busconfig>
CONFIGURATION
  dbus-daemon --nofork --nopidfile --config-file="$folder/bus.conf" 2>"$folder/bus.log" &
  bus_pid=$!
  disown "$bus_pid"
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$folder/socket
  wait_until "the message bus" "$bus_pid" test -S "$folder/socket" || { cat "$folder/bus.log" >&2; return 1; }
}

switch_start() {
  "$1" &
  switch_pid=$!
  disown "$switch_pid" # the shell would report how it ended
  wait_until "the switch" "$switch_pid" switch_has_name
}

switch_has_name() {
  dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply=literal --dest=org.freedesktop.DBus \
    /org/freedesktop/DBus org.freedesktop.DBus.NameHasOwner string:com.quor.Event.Switch \
    2>/dev/null | grep -q 'boolean true'
}

activate_switch() {
  switch_has_name || dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply=literal --dest=org.freedesktop.DBus \
    /org/freedesktop/DBus org.freedesktop.DBus.StartServiceByName \
    string:com.quor.Event.Switch uint32:0 >/dev/null 2>&1
}

# wait_until WHAT PID COMMAND...: until the command succeeds; gives up when the process has ended
# or after ten seconds.
wait_until() {
  local what=$1 pid=$2 tries
  shift 2
  for ((tries = 0; tries < 500; ++tries)); do
    "$@" && return 0
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.02
  done
  echo "${0##*/}: $what did not start" >&2
  return 1
}

# end_process SIGNAL PID: returns when it is gone; kills it when it takes longer than ten seconds.
end_process() {
  local tries
  kill "-$1" "$2" 2>/dev/null || return 0
  for ((tries = 0; tries < 500; ++tries)); do
    sleep 0.02
    kill -0 "$2" 2>/dev/null || return 0
  done
  kill -KILL "$2" 2>/dev/null || true
}

private_bus_stop() {
  local pid
  for pid in $switch_pid $bus_pid; do
    end_process TERM "$pid"
  done
  switch_pid= bus_pid=
}

# In a mount name space of its own a copy of /usr/share takes its place: everything that is there,
# and the types. The mounts end with the command.
show_types='
  set -e
  view=$1/share types=$2
  shift 2
  mkdir -p "$view"
  mount -t tmpfs varro2-types "$view"
  mkdir -p "$view/usr-share" "$view/share"
  mount --rbind /usr/share "$view/usr-share"
  for entry in "$view"/usr-share/* "$view"/usr-share/.[!.]*; do
    [ -e "$entry" ] && [ "${entry##*/}" != event ] && ln -s "$entry" "$view/share/"
  done
  mkdir -p "$view/share/event"
  cp -R "$types" "$view/share/event/declarations.d"
  mount --rbind "$view/share" /usr/share
  exec "$@"
'

types_visible() {
  local privilege
  for privilege in "" --map-root-user; do
    with_types=(unshare --mount $privilege sh -c "$show_types" show_types "$1" "$2")
    "${with_types[@]}" true 2>/dev/null && return 0
  done
  with_types=()
  return 1
}
