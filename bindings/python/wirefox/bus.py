"""The way to the service over the message bus."""

from __future__ import annotations

import contextlib
import os
import socket
import subprocess
import threading
from collections import deque
from typing import Any, Iterator

from jeepney import (  # type: ignore[import]
    DBusAddress,
    HeaderFields,
    MatchRule,
    MessageType,
    Properties,
    message_bus,
    new_method_call,
)
from jeepney.auth import BEGIN, make_auth_anonymous  # type: ignore[import]
from jeepney.io.blocking import DBusConnection, open_dbus_connection  # type: ignore[import]

from .types import CallError, Unreachable

NAME = "org.wirefox.TzWirefox"
PATH = "/org/wirefox/TzWirefox"
INTERFACE = "org.wirefox.ITzWirefox_v"
MONITOR = "org.wirefox.TzWirefoxMonitor1"
BUS_ERROR = "org.freedesktop.DBus.Error."
ATTEMPTS = 20
# The service's name, or its process, is not there.
GONE = {BUS_ERROR + error for error in ("ServiceUnknown", "NameHasNoOwner", "NoReply", "Disconnected")}


class Bus:
    """A connection to a bus on which the service has its name, and the service there. It goes by the service's own
    name on the bus: the next one that is started knows none of our sessions, and may give others their handles."""

    def __init__(self, connection: Any, ssh: subprocess.Popen[bytes] | None = None) -> None:
        self._connection = connection
        self._ssh = ssh
        self._service = NAME
        self._in_use = threading.Lock()
        self.pid = os.getpid()  # who owns what is acquired here, as the service's machine numbers it
        if ssh:
            (self.pid,) = self.ask(message_bus.GetConnectionUnixProcessID(connection.unique_name))

    def find_service(self) -> None:
        """Raises Unreachable when it does not run."""
        self._service = str(self.ask(message_bus.GetNameOwner(NAME))[0])

    def close(self) -> None:
        self._connection.close()
        if self._ssh:
            _end(self._ssh)

    @contextlib.contextmanager
    def _alone(self) -> Iterator[None]:
        """Two threads would take each other's replies, and wait for ever."""
        if not self._in_use.acquire(blocking=False):
            raise RuntimeError("another thread uses this connection: let each connect")
        try:
            yield
        except TimeoutError:
            raise
        except OSError as lost:
            raise Unreachable(f"the message bus has gone: {lost}") from lost
        finally:
            self._in_use.release()

    def ask(self, message: Any) -> tuple[Any, ...]:
        with self._alone():
            reply = self._connection.send_and_get_reply(message)
        if reply.header.message_type is not MessageType.error:
            return tuple(reply.body)
        name = str(reply.header.fields.get(HeaderFields.error_name))
        text = str(reply.body[0]) if reply.body else ""
        if name not in GONE:
            raise CallError(name, text)
        raise Unreachable(text or name if self._service == NAME else "the service has ended")

    def call(self, version: int, method: str, signature: str, *values: Any) -> tuple[Any, ...]:
        """Calls a method that this version of the interface added."""
        address = DBusAddress(PATH, bus_name=self._service, interface=INTERFACE + str(version))
        return self.ask(new_method_call(address, method, signature or None, values))

    def monitored(self) -> list[str]:
        """The property Probes."""
        address = DBusAddress(PATH, bus_name=self._service, interface=MONITOR)
        kind, names = self.ask(Properties(address).get("Probes"))[0]
        return list(names)

    def changes(self, timeout: float | None) -> Iterator[list[str]]:
        """The names at once, and those of every signal Changed."""
        changed = MatchRule(type="signal", sender=self._service, path=PATH, interface=MONITOR, member="Changed")
        owner = MatchRule(type="signal", sender=message_bus.bus_name, interface=message_bus.interface,
                          member="NameOwnerChanged")
        owner.add_arg_condition(0, self._service)
        heard: deque[Any] = deque()
        with self._connection.filter(changed, queue=heard), self._connection.filter(owner, queue=heard):
            for rule in (changed, owner):
                self.ask(message_bus.AddMatch(rule))
            try:
                names = self.monitored()
                heard.clear()  # of what was before
                yield names
                while True:
                    signal = self._next(heard, timeout)
                    if signal is None:
                        return
                    if signal.header.fields[HeaderFields.member] != "Changed":
                        raise Unreachable("the service has ended")
                    yield list(signal.body[0])
            finally:
                for rule in (changed, owner):
                    # The connection may be closed, and a bus forgets rules about who has left it.
                    with contextlib.suppress(Unreachable, CallError):
                        self.ask(message_bus.RemoveMatch(rule))

    def _next(self, heard: deque[Any], timeout: float | None) -> Any:
        try:
            with self._alone():
                return self._connection.recv_until_filtered(heard, timeout=timeout)
        except TimeoutError:
            return None


def _open(which: str) -> Bus | None:
    """A connection to the bus of that name or address, if there is one."""
    if which == "session" and not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
        runtime = os.environ.get("XDG_RUNTIME_DIR")
        if not runtime:
            return None
        which = f"unix:path={runtime}/bus"
    address = which.upper() if which in ("session", "system") else which
    try:
        return Bus(open_dbus_connection(address, auth_timeout=10.0))
    except (OSError, RuntimeError, KeyError, ValueError):
        return None


def _end(ssh: subprocess.Popen[bytes]) -> None:
    """With its connection closed it ends by itself, unless the way to its machine is lost."""
    try:
        ssh.wait(timeout=5)
    except subprocess.TimeoutExpired:
        ssh.kill()
        ssh.wait()


def _through_ssh(host: str) -> Bus:
    """The system bus of another machine. ssh's end over there stands for this process."""
    ours, theirs = socket.socketpair()
    name, _, port = host.partition(":")
    options = ["-p", port] if port else []
    try:
        command = ["ssh", "-xT", *options, "--", name, "systemd-stdio-bridge"]
        ssh = subprocess.Popen(command, stdin=theirs.fileno(), stdout=theirs.fileno())
    except OSError as missing:
        ours.close()
        raise Unreachable(f"ssh cannot be started: {missing}") from missing
    finally:
        theirs.close()
    try:
        ours.sendall(b"\0" + make_auth_anonymous())
        answer = b""
        while not answer.endswith(b"\r\n"):
            received = ours.recv(1)
            if not received:
                raise ConnectionError("it ended")
            answer += received
        ours.sendall(BEGIN)
        return Bus(DBusConnection(ours), ssh)
    except CallError:
        ours.close()
        _end(ssh)
        raise
    except OSError as lost:
        ours.close()
        _end(ssh)
        raise Unreachable(f"{host} does not answer, see whether ssh reaches it: {lost}") from lost


def _order() -> tuple[str, ...]:
    """Root's own service is the machine's, unless it is an installation's."""
    is_machines = os.geteuid() == 0 and not os.environ.get("WIREFOX_HOME")
    return ("system", "session") if is_machines else ("session", "system")


def connect(which: str | None, host: str | None = None) -> Bus:
    """A bus on which the service runs and knows us, or else one that starts it."""
    for attempt in range(ATTEMPTS):
        found = _find(which, host)
        try:
            # It may just be ending with its last client, as a plain server does.
            found.find_service()
            found.call(1, "GetVersion", "")
            return found
        except Unreachable:
            found.close()
            if attempt == ATTEMPTS - 1:
                raise
        except CallError:
            found.close()
            raise
    raise AssertionError


def _find(which: str | None, host: str | None) -> Bus:
    names = [which] if which else _order()
    buses = [_through_ssh(host)] if host else [bus for bus in map(_open, names) if bus]
    if not buses:
        raise Unreachable("there is no message bus")
    found: Bus | None = None
    try:
        found = _running(buses) or _start(buses)
        return found
    finally:
        for bus in buses:
            if bus is not found:
                bus.close()


def _running(buses: list[Bus]) -> Bus | None:
    return next((bus for bus in buses if bus.ask(message_bus.NameHasOwner(NAME))[0]), None)


def _start(buses: list[Bus]) -> Bus:
    reasons = []
    for bus in buses:
        try:
            bus.ask(message_bus.StartServiceByName(NAME))
            return bus
        except (CallError, Unreachable) as refused:
            reasons.append(str(refused))
    raise Unreachable("; ".join(reasons))
