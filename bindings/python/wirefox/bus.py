"""The way to the service over the message bus."""

from __future__ import annotations

import os
import socket
import subprocess
from collections import deque
from typing import Any, Iterator

from jeepney import (  # type: ignore[import]
    DBusAddress,
    HeaderFields,
    MatchRule,
    MessageFlag,
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
    """A connection to a bus on which the service has its name."""

    def __init__(self, connection: Any, ssh: subprocess.Popen[bytes] | None = None) -> None:
        self._connection = connection
        self._ssh = ssh
        self.pid = os.getpid()  # who owns what is acquired here, as the service's machine numbers it
        if ssh:
            (self.pid,) = self.ask(message_bus.GetConnectionUnixProcessID(connection.unique_name))

    def close(self) -> None:
        self._connection.close()
        if self._ssh:
            self._ssh.wait()

    def ask(self, message: Any) -> tuple[Any, ...]:
        try:
            reply = self._connection.send_and_get_reply(message)
        except OSError as lost:
            raise Unreachable(f"the message bus has gone: {lost}") from lost
        if reply.header.message_type is not MessageType.error:
            return tuple(reply.body)
        name = str(reply.header.fields.get(HeaderFields.error_name))
        text = str(reply.body[0]) if reply.body else ""
        raise Unreachable(text or name) if name in GONE else CallError(name, text)

    def call(self, version: int, method: str, signature: str, *values: Any) -> tuple[Any, ...]:
        """Calls a method that this version of the interface added."""
        address = DBusAddress(PATH, bus_name=NAME, interface=INTERFACE + str(version))
        message = new_method_call(address, method, signature or None, values)
        # A service that has ended has forgotten every session: that must not go unnoticed.
        message.header.flags |= MessageFlag.no_auto_start
        return self.ask(message)

    def monitored(self) -> list[str]:
        """The property Probes."""
        address = DBusAddress(PATH, bus_name=NAME, interface=MONITOR)
        kind, names = self.ask(Properties(address).get("Probes"))[0]
        return list(names)

    def changes(self, timeout: float | None) -> Iterator[list[str]]:
        """The names at once, and those of every signal Changed."""
        changed = MatchRule(type="signal", path=PATH, interface=MONITOR, member="Changed")
        owner = MatchRule(type="signal", interface="org.freedesktop.DBus", member="NameOwnerChanged")
        owner.add_arg_condition(0, NAME)
        heard: deque[Any] = deque()
        with self._connection.filter(changed, queue=heard), self._connection.filter(owner, queue=heard):
            for rule in (changed, owner):
                self.ask(message_bus.AddMatch(rule))
            try:
                yield self.monitored()
                while True:
                    signal = self._next(heard, timeout)
                    if signal is None:
                        return
                    if signal.header.fields[HeaderFields.member] != "Changed":
                        raise Unreachable("the service has ended")
                    yield list(signal.body[0])
            finally:
                for rule in (changed, owner):
                    self.ask(message_bus.RemoveMatch(rule))

    def _next(self, heard: deque[Any], timeout: float | None) -> Any:
        try:
            return self._connection.recv_until_filtered(heard, timeout=timeout)
        except TimeoutError:
            return None
        except OSError as lost:
            raise Unreachable(f"the message bus has gone: {lost}") from lost


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
    except (OSError, RuntimeError, KeyError):
        return None


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
    except OSError as lost:
        ours.close()
        ssh.wait()
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
