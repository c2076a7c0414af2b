"""Packets of JTAG cycles: four of them in a byte, TMS in its high nibble and TDI in its low one, the
first cycle in the lowest bit of each. A reply has a TDO bit for each cycle, the first one lowest."""

from __future__ import annotations

# Five cycles of TMS 1 reach Test-Logic-Reset from anywhere; the sixth stays in Run-Test/Idle.
TO_IDLE = (1, 1, 1, 1, 1, 0)
# From Run-Test/Idle into Shift-DR and Shift-IR, and from there back, the first cycle with the last bit.
TO_SHIFT_DR = (1, 0, 0)
TO_SHIFT_IR = (1, 1, 0, 0)
FROM_SHIFT = (1, 1, 0)


def pack(tms: list[int], tdi: list[int]) -> bytes:
    """The packet of these cycles, filled up with cycles of zeros to whole pairs of bytes."""
    padding = [0] * (-len(tms) % 8)
    bits = list(zip(tms + padding, tdi + padding))
    return bytes(
        sum(tms_bit << 4 + i | tdi_bit << i for i, (tms_bit, tdi_bit) in enumerate(bits[at : at + 4]))
        for at in range(0, len(bits), 4)
    )


def scan(to_shift: tuple[int, ...], bits: int, value: int) -> tuple[bytes, int]:
    """The packet that shifts `bits` of `value`, the lowest first, from Run-Test/Idle to there, and
    the cycle whose TDO is the first bit that comes out."""
    if bits < 1:
        raise ValueError("a scan has one bit at least")
    tms = [*to_shift, *[0] * (bits - 1), *FROM_SHIFT]
    tdi = [0] * len(to_shift) + [value >> i & 1 for i in range(bits)] + [0, 0]
    return pack(tms, tdi), len(to_shift)


def unpack(reply: bytes, first: int, bits: int) -> int:
    return int.from_bytes(reply, "little") >> first & (1 << bits) - 1
