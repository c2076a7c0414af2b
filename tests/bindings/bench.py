"""A message bus of its own with a service that it starts on demand, on a simulated bench."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PATIENCE = 60  # seconds, which only a failing test uses up


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


class Bench:
    def __init__(self, programs):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="wirefox.", dir="/tmp"))
        self.programs = pathlib.Path(programs)
        self.processes = []
        self.socket = self.home / "run/wfxsim.sock"  # where it listens by itself
        self.environment = {name: value for name, value in os.environ.items()
                            if name in ("PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")}
        self.environment |= {
            "PATH": f"{self.programs}:{self.environment['PATH']}",
            "LC_ALL": "C.UTF-8",
            "WIREFOX_HOME": str(self.home),
            "WIREFOX_BUS": f"sim:{self.socket}",
            "XDG_DATA_HOME": str(self.home),  # where a bus looks for what it may start
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self.home}/no-bus",
            "PYTHONPATH": ":".join(f"{SOURCE}/{folder}" for folder in ("bindings/python", "bindings/labgrid", "tests/bindings")),
            "PYTHONDONTWRITEBYTECODE": "1",
        }

    def __enter__(self):
        folder = self.home / "bin"
        folder.mkdir()
        self.service = folder / "TzWirefoxService"
        shutil.copy(self.programs / "TzWirefoxService", self.service)
        for file in ("firmware/wirefox.hex", "firmware/evk.hex", "firmware/wirefox.fpga", "service/wfxusb.ini"):
            shutil.copy(SOURCE / file, folder)
        self.run(str(self.service), "-RegServer")
        daemon = self.start("dbus-daemon", "--session", "--nofork", "--print-address")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = daemon.stdout.readline().strip()
        # Clients of this process connect to the same bus.
        os.environ.update(self.environment)
        self.start("wfxsim").stdout.readline()
        return self

    def __exit__(self, *error):
        for process in reversed(self.processes):
            process.kill()
            process.wait()
        for pid in self.services():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        shutil.rmtree(self.home, ignore_errors=True)

    def start(self, *command):
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)
        self.processes.append(process)
        return process

    def run(self, *command):
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=PATIENCE)
        assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
        return done.stdout

    def play_ssh(self):
        """Whatever host ssh is asked for, it is this one."""
        ssh = self.home / "tools/ssh"
        ssh.parent.mkdir()
        ssh.write_text(f"#!/bin/sh\nexec systemd-stdio-bridge -p '{self.environment['DBUS_SESSION_BUS_ADDRESS']}'\n")
        ssh.chmod(0o700)
        os.environ["PATH"] = self.environment["PATH"] = f"{ssh.parent}:{self.environment['PATH']}"

    def ctl(self, *words):
        return self.run("wfxsim", "ctl", *words)

    def services(self):
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if os.readlink(process / "exe").removesuffix(" (deleted)") == str(self.service):
                    found.append(int(process.name))
        return found
