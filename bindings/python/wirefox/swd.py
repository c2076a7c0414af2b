"""Packets of SWD requests, and what a debugger does with them first: target memory through a memory access
port (ADIv5). `exchange` sends a packet and gives its reply, as `Session.swd` does."""

from __future__ import annotations

from typing import Callable, Iterable, Sequence

from .types import TargetError

Exchange = Callable[[bytes], bytes]
# A request: whether it goes to the access port, the register's address, and what is written (None: it reads).
Request = tuple[bool, int, "int | None"]

# Debug port registers; the last stands for a read at SELECT's neighbour.
ABORT, CONTROL_STATUS, SELECT, READ_BUFFER = 0x0, 0x4, 0x8, 0xC
CLEAR_ERRORS = 0x1E
POWER_UP, POWERED_UP = 0x50000000, 0xA0000000
POWER_UP_ATTEMPTS = 100
# Registers of a memory access port. Of the control word size and increment are ours.
CONTROL, ADDRESS, DATA = 0x0, 0x4, 0xC
SIZE_AND_INCREMENT, WORDS_WITH_INCREMENT = 0x37, 0x12
# The address increments by itself only within a block; a burst's reply fits into a packet of the bus.
BLOCK_BYTES = 1024
WORDS_PER_BURST = 96


def header(access_port: bool, read: bool, address: int) -> int:
    """Start, port, direction, two bits of the address, their parity, stop, park."""
    bits = access_port << 1 | read << 2 | (address >> 2 & 3) << 3
    return 0x81 | bits | (bits.bit_count() & 1) << 5


def run(exchange: Exchange, requests: Sequence[Request]) -> list[int]:
    """What was read, in order; TargetError at the first request that was not acknowledged."""
    packet = b""
    for access_port, address, value in requests:
        packet += bytes([header(access_port, value is None, address)])
        packet += b"" if value is None else value.to_bytes(4, "little")
    reply = exchange(packet)
    read, at = [], 0
    for number, (_, _, value) in enumerate(requests, 1):
        size = 5 if value is None else 1
        status = reply[at + size - 1 : at + size]
        if not status or status[0] & 5 != 1:
            raise TargetError(f"SWD request {number} of {len(requests)} was not acknowledged")
        if value is None:
            read.append(int.from_bytes(reply[at : at + 4], "little"))
        at += size
    return read


def _open(exchange: Exchange, access_port: int) -> None:
    """Powers the debug domain up and sets the memory port to words."""
    run(exchange, [(False, ABORT, CLEAR_ERRORS), (False, CONTROL_STATUS, POWER_UP)])
    for _ in range(POWER_UP_ATTEMPTS):
        if run(exchange, [(False, CONTROL_STATUS, None)])[0] & POWERED_UP == POWERED_UP:
            break
    else:
        raise TargetError("the debug domain does not power up")
    select = (False, SELECT, access_port << 24)
    # A read of an access port delivers the one before it; the read buffer has the last.
    _, control = run(exchange, [select, (True, CONTROL, None), (False, READ_BUFFER, None)])
    run(exchange, [(True, CONTROL, control & ~SIZE_AND_INCREMENT | WORDS_WITH_INCREMENT)])


def _bursts(address: int, count: int) -> Iterable[tuple[int, int, int]]:
    """Where each burst begins in the words, its address, and its length."""
    done = 0
    while done < count:
        place = address + 4 * done
        length = min((BLOCK_BYTES - place % BLOCK_BYTES) // 4, count - done, WORDS_PER_BURST)
        yield done, place, length
        done += length


def _check(address: int, count: int) -> None:
    if address % 4 or not 0 <= address <= (1 << 32) - 4 * count:
        raise ValueError("memory is read and written in whole words, below 2^32")


def read_memory(exchange: Exchange, address: int, count: int, access_port: int = 0) -> list[int]:
    _check(address, count)
    _open(exchange, access_port)
    words: list[int] = []
    for _, place, length in _bursts(address, count):
        burst: list[Request] = [(True, ADDRESS, place), *[(True, DATA, None)] * length]
        words += run(exchange, [*burst, (False, READ_BUFFER, None)])[1:]
    return words


def write_memory(
    exchange: Exchange, address: int, words: Sequence[int], access_port: int = 0
) -> None:
    _check(address, len(words))
    _open(exchange, access_port)
    for first, place, length in _bursts(address, len(words)):
        burst: list[Request] = [(True, ADDRESS, place)]
        burst += [(True, DATA, word) for word in words[first : first + length]]
        # A write is under way when it is acknowledged; the read buffer answers when it is through.
        run(exchange, [*burst, (False, READ_BUFFER, None)])
