"""Wirefox probes in labgrid: a resource that names a probe, and a driver that uses it.

An environment imports this file; `examples/` has one, with a test. The driver calls TzWirefoxService through
the package `wirefox`: the one of this machine, or through ssh that of the machine where the probe is plugged in.
"""

from __future__ import annotations

import time
from typing import Any, Sequence

import attr
import wirefox
from labgrid.driver.common import Driver
from labgrid.factory import target_factory
from labgrid.protocol import PowerProtocol, ResetProtocol
from labgrid.resource.common import Resource
from labgrid.step import step


@target_factory.reg_resource
@attr.s(eq=False)
class WirefoxProbe(Resource):
    """A probe by its name. `host`, [USER@]HOST[:PORT], is the machine that it is plugged in; one that a RemotePlace
    brings is by default plugged in where its exporter runs."""

    probe = attr.ib(validator=attr.validators.instance_of(str))
    host = attr.ib(default="", validator=attr.validators.instance_of(str))

    @property
    def machine(self) -> str | None:
        """None: this one."""
        return self.host or getattr(self, "extra", {}).get("proxy")


@target_factory.reg_driver
@attr.s(eq=False)
class WirefoxDriver(Driver, PowerProtocol, ResetProtocol):
    """While it is active the service has a client. Targets are held for the time of a call, or of a `session`.

    `voltage` is what the probe supplies, 1.8, 2.5, 3.3 or 5.0; `delay` how long, in seconds, a target stays without
    power in a cycle and in reset. wirefox.Error and wirefox.TargetError tell what went wrong.
    """

    bindings = {"probe": WirefoxProbe}
    voltage = attr.ib(default=3.3, validator=attr.validators.in_((1.8, 2.5, 3.3, 5.0)))
    delay = attr.ib(default=0.5, validator=attr.validators.instance_of(float))

    def __attrs_post_init__(self) -> None:
        super().__attrs_post_init__()
        self.service: wirefox.Service | None = None

    def on_activate(self) -> None:
        self.service = wirefox.connect(host=self.probe.machine)
        try:
            self._wait_for_probe()
        except BaseException:
            self.on_deactivate()
            raise

    def on_deactivate(self) -> None:
        self.service.close()
        self.service = None

    def _wait_for_probe(self, seconds: float = 60.0) -> None:
        """A fresh one gets its firmware first, leaves, and comes back."""
        end = time.monotonic() + seconds
        for names in self.service.watch(timeout=seconds):
            if self.probe.probe in names:
                return
            if time.monotonic() > end:
                break
        raise wirefox.Error(wirefox.ErrorCode.INVALID_PARAM, f"no probe {self.probe.probe}")

    # Power and reset of the target.

    @Driver.check_active
    @step()
    def on(self) -> None:
        self._supply(True)

    @Driver.check_active
    @step()
    def off(self) -> None:
        self._supply(False)

    @Driver.check_active
    @step()
    def cycle(self) -> None:
        self._supply(False)
        time.sleep(self.delay)
        self._supply(True)

    def _supply(self, on: bool) -> None:
        voltage = wirefox.VTargVoltage[f"VTARG_{self.voltage:.1f}".replace(".", "_")]
        self.service.set_voltage(self.probe.probe, voltage, supply=on)

    @Driver.check_active
    @step()
    def reset(self) -> None:
        self.service.set_reset(self.probe.probe, True)
        time.sleep(self.delay)
        self.service.set_reset(self.probe.probe, False)

    # The probe.

    @Driver.check_active
    @step(result=True)
    def status(self) -> wirefox.WFXStatus:
        return self.service.status(self.probe.probe)

    @Driver.check_active
    @step(args=["mode"])
    def set_mode(self, mode: str | wirefox.TransferMode, port10: bool = False) -> None:
        """A mode by its name: JTAG, SWD, I2C ..."""
        mode = wirefox.TransferMode[mode] if isinstance(mode, str) else mode
        self.service.set_mode(self.probe.probe, mode, port10)

    # Its targets.

    @Driver.check_active
    @step(result=True)
    def read_chain(self) -> list[int]:
        """The IDCODEs of the JTAG chain, the device next to the probe's TDI first, 0 for one without."""
        self.service.set_mode(self.probe.probe, wirefox.TransferMode.JTAG)
        return self._targets()

    @Driver.check_active
    @step(result=True)
    def find_targets(self) -> list[int]:
        """Their ids, in the present mode. On SWD this resets the line, as it has to be after power was lost."""
        return self._targets()

    def _targets(self) -> list[int]:
        return [found.id for found in self.service.targets(self.probe.probe)]

    @Driver.check_active
    def session(self, number: int = 0) -> Any:
        """A context manager that holds a target: `wirefox.Session`, for everything that is not below."""
        return self.service.acquire(self.probe.probe, number)

    @Driver.check_active
    @step(args=["address", "count"], result=True)
    def read_memory(self, address: int, count: int = 1) -> list[int]:
        """32-bit words over SWD."""
        with self.session() as session:
            return session.read_memory(address, count)

    @Driver.check_active
    @step(args=["address"])
    def write_memory(self, address: int, words: Sequence[int]) -> None:
        with self.session() as session:
            session.write_memory(address, words)
