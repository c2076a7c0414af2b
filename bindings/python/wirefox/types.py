"""The enumerations and records of the interface, with its numbers."""

from __future__ import annotations

from enum import IntEnum
from typing import NamedTuple


class ErrorCode(IntEnum):
    """How an operation of the service ended."""

    SUCCESS = 0
    IN_USE = 1
    NOT_ACQUIRED = 2
    INVALID_DEVICE = 3
    INVALID_MODE = 4
    INVALID_PARAM = 5
    WFX_ERROR = 6
    UNKNOWN = 7


class Led(IntEnum):
    LED_1_RED = 0
    LED_2_RED = 1
    LED_3_GREEN = 2
    LED_4_YELLOW = 3


class LedState(IntEnum):
    OFF = 0
    FLASH1 = 1
    FLASH2 = 2
    ON = 3


class LedIdentifyState(IntEnum):
    ID_NORMAL = 0
    ID_CHASER = 1
    ID_ON = 2
    ID_OFF = 3


class EndPoint(IntEnum):
    EP0 = 0
    EP1 = 1
    EP2 = 2
    EP4 = 4
    EP6 = 6


class JtagClock(IntEnum):
    """Named by frequency: FREQ_A_12_0 is 12.0 MHz."""

    FREQ_A_48_0 = 0
    FREQ_A_24_0 = 4
    FREQ_A_16_0 = 16
    FREQ_A_12_0 = 132
    FREQ_A_08_0 = 144
    FREQ_A_06_0 = 96
    FREQ_A_03_2 = 24
    FREQ_A_03_0 = 224
    FREQ_A_01_6 = 152
    FREQ_A_01_5 = 192
    FREQ_B_24_0 = 1
    FREQ_B_12_0 = 5
    FREQ_B_08_0 = 17
    FREQ_B_06_0 = 97
    FREQ_B_04_0 = 145
    FREQ_B_03_0 = 65
    FREQ_B_01_6 = 25
    FREQ_B_01_5 = 193
    FREQ_B_00_8 = 153
    FREQ_C_06_0 = 98
    FREQ_C_03_0 = 66
    FREQ_C_01_5 = 194
    FREQ_C_00_4 = 26
    FREQ_C_00_2 = 154


class TransferMode(IntEnum):
    IDLE = 0
    JTAG = 1
    I2C = 2
    SWD = 4
    SWV = 8
    SWD_SWV = 12
    VSER = 16
    ETM = 32
    VSER_INT = 272


class VTargVoltage(IntEnum):
    VTARG_1_8 = 14
    VTARG_2_5 = 13
    VTARG_3_3 = 11
    VTARG_5_0 = 7


class ProgrammingMode(IntEnum):
    RESET = 0
    POWER_CYCLE = 1
    VOLTAGE_SENSE = 2


class WFXStatus(NamedTuple):
    """What a probe says of itself."""

    result: int
    vtarg_set: int
    vtarg_measured: int
    active_interface: int
    active_port: int
    wfx_version: int
    vorn_version: int
    fpga_version: int
    bootloader_version: int
    wfx_flags_fpga_power_state: int
    wfx_flags_sw_valid: int
    wfx_flags_vtarg_fault: int
    wfx_flags_vtarg_on: int
    wfx_flags_vcc1_3_on: int
    wfx_flags_fpga_mbx_err: int
    wfx_flags_vorn_i2c_err: int
    clock_frequency: int


class Target(NamedTuple):
    """A device behind a probe; its place in the list is what acquires it."""

    id: int
    acquired: bool


class Error(Exception):
    """The service carried out a call and answered with a code other than SUCCESS."""

    def __init__(self, code: ErrorCode, method: str) -> None:
        super().__init__(code, method)
        self.code = code
        self.method = method

    def __str__(self) -> str:
        return f"{self.method}: {self.code.name}"


class CallError(Exception):
    """The message bus or the service refused the call itself; `name` is the bus's error."""

    def __init__(self, name: str, text: str) -> None:
        super().__init__(name, text)
        self.name = name
        self.text = text

    def __str__(self) -> str:
        return f"{self.name}: {self.text}"


class Unreachable(ConnectionError):
    """There is no service on the bus, it cannot be started, or it has ended."""
