"""The processes of a soak run, and the bus they meet on."""
import os
import pathlib
import signal
import subprocess
import time

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>{address}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
  </policy>
  <limit name="max_replies_per_connection">128</limit>
</busconfig>
"""

# Long enough for a sanitizer build on a busy machine: reaching it means that it will never be.
GENEROUS = 120


class Process:
    """A program that dies with this one. Its log and its standard error are files in the folder."""

    def __init__(self, folder, name, command, pipes=True):
        self.name = name
        self.errors = pathlib.Path(folder) / f"{name}.errors"
        with open(self.errors, "ab") as errors:
            pipe = subprocess.PIPE if pipes else subprocess.DEVNULL
            self.popen = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *command], stdin=pipe,
                                          stdout=pipe, stderr=errors, bufsize=0)
        self.pid = self.popen.pid
        self.rest = b""
        if pipes:
            os.set_blocking(self.popen.stdout.fileno(), False)

    def tell(self, *words):
        try:
            self.popen.stdin.write((" ".join(str(word) for word in words) + "\n").encode())
        except BrokenPipeError:
            pass    # it has crashed, which is found out where its end is looked at

    def hear(self):
        """The lines that it has written since, as lists of words."""
        try:
            while chunk := self.popen.stdout.read(65536):
                self.rest += chunk
        except BlockingIOError:
            pass
        *whole, self.rest = self.rest.split(b"\n")
        return [line.decode().split() for line in whole]

    def signal(self, number):
        if self.popen.poll() is None:
            self.popen.send_signal(number)

    def kill(self):
        self.signal(signal.SIGKILL)
        self.close()

    def close(self):
        code = self.popen.wait(GENEROUS)
        for stream in (self.popen.stdin, self.popen.stdout):
            if stream:
                stream.close()
        return code

    def ended(self):
        return self.popen.poll() is not None


class Bus:
    def __init__(self, folder):
        socket = pathlib.Path(folder) / "socket"
        self.address = f"unix:path={socket}"
        configuration = pathlib.Path(folder) / "bus.conf"
        configuration.write_text(BUS.format(address=self.address))
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        self.daemon = Process(folder, "dbus-daemon",
                              ["dbus-daemon", "--nofork", "--nopidfile", "--print-address",
                               f"--config-file={configuration}"])
        deadline = time.monotonic() + GENEROUS
        while not self.daemon.hear():
            if self.daemon.ended() or time.monotonic() > deadline:
                raise RuntimeError(f"the message bus did not start: {self.daemon.errors}")
            time.sleep(0.01)
