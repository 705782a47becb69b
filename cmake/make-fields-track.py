#!/usr/bin/env python3
"""Writes an AVI of two fields a sample, the top one first: make-fields-track.py FIELD.jpg... >FILE"""

import struct
import sys


def chunk(name, *parts):
    data = b"".join(parts)
    return name + struct.pack("<I", len(data)) + data + b"\0" * (len(data) % 2)


def field(at, path):
    """The file with an AVI1 segment that says which field it is."""
    with open(path, "rb") as file:
        return b"\xff\xd8\xff\xe0\0\x10AVI1" + bytes([1 + at % 2] + [0] * 9) + file.read()[2:]


fields = [field(at, path) for at, path in enumerate(sys.argv[1:])]
samples = [a + b for a, b in zip(fields[::2], fields[1::2])]
rate = struct.pack("<IIIIIIII", 1, 25, 0, len(samples), 0, 0, 0, 0)
stream = chunk(b"LIST", b"strl",
               chunk(b"strh", b"vidsMJPG", bytes(12), rate, struct.pack("<HHHH", 0, 0, 720, 576)),
               chunk(b"strf", struct.pack("<IIIHH4sIIIII", 40, 720, 576, 1, 24, b"MJPG", 0, 0, 0, 0, 0)))
main = struct.pack("<IIIIIIIIII", 40000, 0, 0, 16, len(samples), 0, 1, 0, 720, 576)
header = chunk(b"LIST", b"hdrl", chunk(b"avih", main, bytes(16)), stream)
chunks, index, at = b"", b"", 4
for sample in samples:
    index += b"00dc" + struct.pack("<III", 16, at, len(sample))
    chunks += chunk(b"00dc", sample)
    at = 4 + len(chunks)
movi = chunk(b"LIST", b"movi", chunks)
sys.stdout.buffer.write(chunk(b"RIFF", b"AVI ", header, movi, chunk(b"idx1", index)))
