"""The message buses and brokers of a benchmark, private to it, and the switch."""
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

SWITCH_NAME = "com.quor.Event.Switch"


class Failure(Exception):
    pass


def wait_until(what, condition):
    end = time.monotonic() + 20
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"{what} did not come")
        time.sleep(0.02)


BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""


class Daemons:
    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="varro2-bench-"))
        self.started = []

    def start(self, command, **options):
        log = open(self.folder / f"{pathlib.Path(command[0]).name}.log", "wb")
        process = subprocess.Popen(command, stderr=log, stdout=log, **options)
        self.started.append(process)
        return process.pid

    def dbus_daemon(self):
        path = self.folder / "dbus-daemon"
        configuration = self.folder / "bus.conf"
        configuration.write_text(BUS_CONFIGURATION.format(socket=path))
        pid = self.start(["dbus-daemon", "--nofork", "--nopidfile",
                          f"--config-file={configuration}"])
        wait_until("the bus", path.exists)
        return f"unix:path={path}", pid

    def dbus_broker(self, controller, program):
        """Started by a controller of ours: dbus-broker's own needs a running systemd."""
        path = self.folder / "dbus-broker"
        log = self.folder / "dbus-broker.log"
        with open(log, "wb") as errors:
            process = subprocess.Popen([str(controller), str(program), str(path)],
                                       stdout=subprocess.PIPE, stderr=errors)
        self.started.append(process)
        ready = process.stdout.readline().split()
        if len(ready) != 2:
            raise Failure(f"dbus-broker did not start: {'; '.join(log.read_text().splitlines())}")
        return f"unix:path={path}", int(ready[1])

    def mosquitto(self, program):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        configuration = self.folder / "mosquitto.conf"
        configuration.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\n"
                                 "max_queued_messages 0\nset_tcp_nodelay true\n"
                                 f"persistence false\nuser {os.environ.get('USER', 'root')}\n")
        pid = self.start([str(program), "-c", str(configuration)])

        def listens():
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return True
            except OSError:
                return False

        wait_until("mosquitto", listens)
        return str(port), pid

    def switch(self, program, address):
        self.start([str(program), "--bus-address", address])

        def has_name():
            return b"true" in subprocess.run(
                ["dbus-send", f"--bus={address}", "--print-reply=literal",
                 "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                 "org.freedesktop.DBus.NameHasOwner", f"string:{SWITCH_NAME}"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False).stdout

        wait_until("the switch", has_name)

    def end(self):
        for process in reversed(self.started):
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.folder)
