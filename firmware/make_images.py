#!/usr/bin/env python3
"""Writes the example images of this folder, byte for byte the same each time.

The images carry no program: they are for the simulated bench, which takes any content. Their shape
is what matters: blocks that touch, blocks that do not, blocks longer and shorter than a chunk of the
download, records of several lengths, and a length of the FPGA image that fills no whole packet.
"""

import pathlib

FOLDER = pathlib.Path(__file__).resolve().parent


def noise(seed, count):
    """`count` bytes that look random and depend on `seed` alone (a 32-bit linear congruence)."""
    state = seed
    out = bytearray()
    for _ in range(count):
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        out.append(state >> 24)
    return bytes(out)


def record(address, kind, data):
    body = bytes([len(data), address >> 8, address & 0xFF, kind]) + data
    return ":%s%02X" % (body.hex().upper(), -sum(body) & 0xFF)


def block(address, data, width):
    return [record(address + at, 0, data[at : at + width]) for at in range(0, len(data), width)]


def write_hex(name, blocks):
    lines = []
    for address, data, width in blocks:
        lines += block(address, data, width)
    lines.append(record(0, 1, b""))
    (FOLDER / name).write_bytes(("\n".join(lines) + "\n").encode("ascii"))


def main():
    write_hex(
        "wirefox.hex",
        [
            (0x2000, noise(1, 4096), 32),  # stands first here, goes out by its address
            (0x0000, noise(2, 5000), 16),  # ends in the middle of a record and of a chunk
            (0x1388, noise(3, 17), 17),  # goes on exactly where the block before ends
            (0x1B00, noise(4, 1), 16),  # one byte
            (0x3800, noise(5, 2048), 16),  # exactly one chunk
            (0xFFF0, noise(6, 16), 16),  # up to the last byte of the memory
        ],
    )
    write_hex(
        "evk.hex",
        [
            (0x0000, noise(7, 3), 16),  # a jump of three bytes
            (0x0043, noise(8, 700), 16),
            (0x0400, noise(9, 2049), 21),  # one byte more than a chunk
        ],
    )
    (FOLDER / "wirefox.fpga").write_bytes(noise(10, 48999))


if __name__ == "__main__":
    main()
