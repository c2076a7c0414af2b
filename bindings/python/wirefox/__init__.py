"""Shared USB debug probes: a client of TzWirefoxService over the message bus.

    import wirefox

    with wirefox.connect() as service:
        service.set_mode("WFX0001", wirefox.TransferMode.JTAG)
        with service.acquire("WFX0001") as session:
            session.jtag_reset()
            print(hex(session.scan_dr(64)))

Not made for several threads at once: let each connect.
"""

from .service import Service, Session, connect
from .types import (
    CallError,
    EndPoint,
    Error,
    ErrorCode,
    JtagClock,
    Led,
    LedIdentifyState,
    LedState,
    ProgrammingMode,
    Target,
    TargetError,
    TransferMode,
    Unreachable,
    VTargVoltage,
    WFXStatus,
)

__version__ = "2.0.2.0"

__all__ = [
    "CallError",
    "EndPoint",
    "Error",
    "ErrorCode",
    "JtagClock",
    "Led",
    "LedIdentifyState",
    "LedState",
    "ProgrammingMode",
    "Service",
    "Session",
    "Target",
    "TargetError",
    "TransferMode",
    "Unreachable",
    "VTargVoltage",
    "WFXStatus",
    "connect",
]
