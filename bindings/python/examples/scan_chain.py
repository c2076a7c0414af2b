#!/usr/bin/python3
"""Prints the IDCODEs of a probe's JTAG chain, the device next to the probe's TDI first.

usage: scan_chain.py [PROBE]        without one: the first that there is
"""

import sys

import wirefox

IDCODE_BITS = 32
LONGEST = 100  # devices


def idcodes(session: wirefox.Session) -> list[int | None]:
    """After a reset every device has its IDCODE register between TDI and TDO, or its one bit of bypass,
    which begins with 0 (None in the list). Ones are shifted in behind them, and no IDCODE is all ones."""
    session.jtag_reset()
    bits = IDCODE_BITS * (LONGEST + 1)
    chain = session.scan_dr(bits, (1 << bits) - 1)
    found: list[int | None] = []
    while chain and chain & 0xFFFFFFFF != 0xFFFFFFFF:
        has_idcode = chain & 1
        found.append(chain & 0xFFFFFFFF if has_idcode else None)
        chain >>= IDCODE_BITS if has_idcode else 1
    return found[::-1]


def main() -> int:
    try:
        with wirefox.connect() as service:
            probes = sys.argv[1:] or service.probes()
            if not probes:
                print("scan_chain: no probe", file=sys.stderr)
                return 1
            probe = probes[0]
            service.set_mode(probe, wirefox.TransferMode.JTAG)
            with service.acquire(probe) as session:
                for place, idcode in enumerate(idcodes(session)):
                    print(place, "bypass" if idcode is None else f"0x{idcode:08X}")
    except (wirefox.Error, wirefox.Unreachable) as error:
        print(f"scan_chain: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
