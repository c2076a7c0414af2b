"""The service and the sessions of targets, as objects."""

from __future__ import annotations

from types import TracebackType
from typing import Any, Iterator, Sequence

from . import bus, jtag, swd
from .types import (
    EndPoint,
    Error,
    ErrorCode,
    JtagClock,
    Led,
    LedIdentifyState,
    LedState,
    ProgrammingMode,
    Target,
    TransferMode,
    VTargVoltage,
    WFXStatus,
)


def _signed(value: int) -> int:
    """A 32-bit number as the interface has it, which may be given without sign."""
    return value - (1 << 32) if value >= 1 << 31 else value


class Service:
    """What `connect` gives. As long as it is open the service knows of a client.

    With `raises` every operation that the service could not do raises Error; without, it returns what
    came back, and `code` tells how the last one ended.
    """

    def __init__(self, connection: bus.Bus, raises: bool) -> None:
        self._bus = connection
        self.raises = raises
        self.code = ErrorCode.SUCCESS

    def __enter__(self) -> Service:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def close(self) -> None:
        self._bus.close()

    def _call(self, method: str, signature: str, *values: Any, version: int = 1) -> Sequence[Any]:
        """The outputs of a method whose last one is its code."""
        *outputs, code = self._bus.call(version, method, signature, *values)
        self.code = ErrorCode(code)
        if self.raises and self.code != ErrorCode.SUCCESS:
            raise Error(self.code, method)
        return outputs

    def _owner(self, owner: int | None) -> int:
        return self._bus.pid if owner is None else owner

    # Of the service and its probes.

    def version(self) -> tuple[int, int, int, int]:
        (number,) = self._bus.call(1, "GetVersion", "")
        major, minor, build, revision = int(number).to_bytes(4, "big")
        return major, minor, build, revision

    def devices_changed_location(self) -> str:
        return str(self._bus.call(1, "GetDevicesChangedLocation", "")[0])

    def probes(self) -> list[str]:
        """Looks for probes, which may load new ones with their firmware, and names them."""
        return list(self._call("EnumerateWirefoxs", "")[0])

    def listed_probes(self) -> list[str]:
        """The probes that the service knows of at this moment; costs no USB request."""
        return self._bus.monitored()

    def watch(self, timeout: float | None = None) -> Iterator[list[str]]:
        """The names of the probes at once, and again whenever some have come or gone; for ever, or
        until nothing has changed for `timeout` seconds. Raises Unreachable when the service ends."""
        return self._bus.changes(timeout)

    # Of one probe.

    def targets(self, probe: str) -> list[Target]:
        """Looks for the targets behind it in its present mode, which moves a JTAG chain."""
        (devices,) = self._call("EnumerateDevices", "s", probe)
        return [Target(int(device[:8], 16), device[8:] == "1") for device in devices]

    def status(self, probe: str) -> WFXStatus:
        (record,) = self._call("GetWirefoxStatus", "s", probe)
        return WFXStatus(*record)

    def hardware_revision(self, probe: str) -> int:
        return int(self._call("GetHwRevID", "s", probe, version=3)[0])

    def set_mode(
        self, probe: str, mode: TransferMode, port10: bool = False, owner: int | None = None
    ) -> None:
        """The port counts in the SWD modes: 10 or else 5."""
        self._call("SetMode", "siyi", probe, int(mode), int(port10), self._owner(owner))

    def set_voltage(
        self, probe: str, voltage: VTargVoltage, supply: bool = True, owner: int | None = None
    ) -> None:
        self._call("SetVTarg", "siyi", probe, int(voltage), int(supply), self._owner(owner))

    def set_clock(self, probe: str, clock: JtagClock, owner: int | None = None) -> None:
        self._call("SetJtagClock", "sii", probe, int(clock), self._owner(owner))

    def set_timeout(
        self, probe: str, endpoint: EndPoint | int, milliseconds: int, owner: int | None = None
    ) -> None:
        """Endpoints that read go by their USB address: 0x81, 0x84, 0x86."""
        self._call("SetTimeOut", "siii", probe, int(endpoint), milliseconds, self._owner(owner))

    def set_led(self, probe: str, led: Led, state: LedState) -> None:
        self._call("SetLedState", "sii", probe, int(led), int(state))

    def identify(self, probe: str, state: LedIdentifyState) -> None:
        self._call("VisualIdentify", "si", probe, int(state))

    def set_reset(self, probe: str, active: bool) -> None:
        """Drives the target's reset line, or lets it go."""
        self._call("ToggleXres", "sy", probe, int(active))

    def setup_swv(
        self, probe: str, frequency: int, manchester: bool = False, commit_time: int = 0
    ) -> None:
        self._call("SetupSWV", "siyn", probe, frequency, int(manchester), commit_time)

    def port_acquire(
        self,
        probe: str,
        mode: ProgrammingMode,
        retries: int,
        test_key: tuple[int, int] | None = None,
    ) -> None:
        """Starts the loop that catches a target in its test mode, on a probe of which nobody has a
        target; `test_key` is the address and the value that are written first."""
        self._call("PortAcquire", "siiyiii", probe, *_port_arguments(mode, retries, test_key))

    def port_acquire_status(self, probe: str) -> bool:
        """Whether the target has answered. It raises WFX_ERROR when it has not yet."""
        (status,) = self._call("GetPortAcquireStatus", "sy", probe, 0)
        return self.code == ErrorCode.SUCCESS and status == 0

    def acquire(self, probe: str, target: int = 0, owner: int | None = None) -> Session:
        """A session of the target with that place in the list, for this process or that of `owner`.
        Looks for targets when the service knows of no such one."""
        raises, self.raises = self.raises, False
        try:
            for attempt in range(2):
                (handle,) = self._call("AcquireDevice", "sii", probe, target, self._owner(owner))
                if attempt or self.code != ErrorCode.INVALID_DEVICE:
                    break
                self._call("EnumerateDevices", "s", probe)
        finally:
            self.raises = raises
        if raises and self.code != ErrorCode.SUCCESS:
            raise Error(self.code, "AcquireDevice")
        return Session(self, handle)


def _port_arguments(
    mode: ProgrammingMode, retries: int, test_key: tuple[int, int] | None
) -> tuple[int, ...]:
    address, key = test_key or (0, 0)
    return (int(mode), 0, int(test_key is not None), _signed(address), _signed(key), retries)


class Session:
    """A target that is ours until it is released. False when it could not be had."""

    def __init__(self, service: Service, handle: int) -> None:
        self._service = service
        self.handle = handle

    def __bool__(self) -> bool:
        return self.handle != 0

    def __enter__(self) -> Session:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        try:
            self.release()
        except Error as ended:
            # It may have ended before: with its probe, or by a change of its chain.
            if ended.code != ErrorCode.NOT_ACQUIRED:
                raise
        except ConnectionError:
            if kind is None:
                raise

    def release(self) -> None:
        handle, self.handle = self.handle, 0
        if handle:
            self._service._call("ReleaseDevice", "x", handle)

    def _transfer(self, method: str, signature: str, *values: Any, version: int = 1) -> bytes:
        (result,) = self._service._call(method, signature, *values, version=version)
        return bytes(result)

    def jtag(self, packet: bytes, read: bool = True) -> bytes:
        """Cycles as `wirefox.jtag` describes them; the reply has a bit of TDO for each."""
        return self._transfer("SendJtagPacket", "ayyx", packet, int(read), self.handle)

    def jtag_reset(self) -> None:
        """Through Test-Logic-Reset to Run-Test/Idle, from where scans begin and where they end."""
        packet = jtag.pack(list(jtag.TO_IDLE), [0] * len(jtag.TO_IDLE))
        self.jtag(packet, read=False)

    def scan_ir(self, bits: int, value: int) -> int:
        """Shifts the instruction registers of the whole chain, whose bits it counts."""
        return self._scan(jtag.TO_SHIFT_IR, bits, value)

    def scan_dr(self, bits: int, value: int = 0) -> int:
        """Shifts the data registers; the device next to TDO has the lowest bits."""
        return self._scan(jtag.TO_SHIFT_DR, bits, value)

    def _scan(self, to_shift: tuple[int, ...], bits: int, value: int) -> int:
        packet, first = jtag.scan(to_shift, bits, value)
        return jtag.unpack(self.jtag(packet), first, bits)

    def swd(self, requests: bytes) -> bytes:
        """Requests one after the other: a header, for a write its word. The reply has a word and a
        status byte for a read, a status byte for a write."""
        return self._transfer("SendSwdPacket", "ayx", requests, self.handle)

    def i2c(self, packet: bytes, restart: int = 0) -> bytes:
        """A packet of the probe's engine, with a repeated start after `restart` bytes, if any."""
        return self._transfer("SendI2CPacket", "ayxi", packet, self.handle, restart, version=2)

    def swv(self) -> bytes:
        """The trace bytes that wait in the probe; it raises WFX_ERROR when there are none."""
        return self._transfer("RequestSwvPackets", "x", self.handle)

    def etm(self) -> bytes:
        return self._transfer("RequestEtmPackets", "x", self.handle)

    def read_memory(self, address: int, count: int, access_port: int = 0) -> list[int]:
        """32-bit words of the target's memory, through an ADIv5 access port. The mode is an SWD one, and
        `targets` has found the target. TargetError when it does not answer well."""
        return swd.read_memory(self.swd, address, count, access_port)

    def write_memory(self, address: int, words: Sequence[int], access_port: int = 0) -> None:
        swd.write_memory(self.swd, address, words, access_port)

    def bulk_write(self, endpoint: EndPoint, data: bytes) -> None:
        self._transfer("BulkTransfer", "iayyx", int(endpoint), data, 0, self.handle)

    def bulk_read(self, endpoint: EndPoint, count: int) -> bytes:
        """`count` bytes, zeros where fewer came."""
        return self._transfer("BulkTransfer", "iayyx", int(endpoint), bytes(count), 1, self.handle)

    def port_acquire(
        self, mode: ProgrammingMode, retries: int, test_key: tuple[int, int] | None = None
    ) -> None:
        """As the service's, for the probe of this session."""
        arguments = _port_arguments(mode, retries, test_key)
        self._service._call("PortAcquire", "iiyiiix", *arguments, self.handle, version=3)


def connect(
    which: str | None = None, *, host: str | None = None, raises: bool = True
) -> Service:
    """Connects to the service, which the bus starts if need be.

    `host`, [USER@]HOST[:PORT], is another machine, whose service is reached through ssh as `wfx -H` does.

    `which` is "session", "system" or a bus's address. Without it the service is looked for as `wfx`
    does: on the session's bus and then the system's, for root the other way about; running before one
    that would have to be started.
    """
    return Service(bus.connect(which, host), raises)
