#!/usr/bin/env python3
"""Reads and writes classic resource forks, apart from the library's own code.

    ResourceFork.py read FILE    prints a line for each resource: type, ID, attributes, name and data, the last two in hexadecimal ("-" for none)
    ResourceFork.py write FILE   makes a fork from such lines on standard input
"""

import struct
import sys


def read(fork):
    data_at, map_at, data_length, map_length = struct.unpack(">4I", fork[:16])
    assert data_at + data_length <= len(fork) and map_at + map_length <= len(fork), "outside the fork"
    data, fork_map = fork[data_at : data_at + data_length], fork[map_at : map_at + map_length]
    assert fork_map[:16] == fork[:16], "the map's copy of the header differs"
    types_at, names_at, last_type = struct.unpack(">HHh", fork_map[24:30])
    for t in range(last_type + 1):
        code, last, list_at = struct.unpack_from(">4sHH", fork_map, types_at + 2 + 8 * t)
        for r in range(last + 1):
            number, name_at, packed, _ = struct.unpack_from(">hHII", fork_map, types_at + list_at + 12 * r)
            name = b""
            if name_at != 0xFFFF:
                length = fork_map[names_at + name_at]
                name = fork_map[names_at + name_at + 1 :][:length]
                assert len(name) == length, "a name outside the map"
            (length,) = struct.unpack_from(">I", data, packed & 0xFFFFFF)
            content = data[(packed & 0xFFFFFF) + 4 :][:length]
            assert len(content) == length, "data outside the data area"
            yield code, number, packed >> 24, name, content


def write(resources):
    codes = list(dict.fromkeys(code for code, *_ in resources))
    data, names, references, types = b"", b"", b"", struct.pack(">h", len(codes) - 1)
    for code in codes:
        own = [resource for resource in resources if resource[0] == code]
        types += code + struct.pack(">HH", len(own) - 1, 2 + 8 * len(codes) + len(references))
        for _, number, attributes, name, content in own:
            references += struct.pack(">hHII", number, len(names) if name else 0xFFFF, attributes << 24 | len(data), 0)
            data += struct.pack(">I", len(content)) + content
            names += bytes([len(name)]) + name if name else b""
    map_length = 28 + len(types) + len(references) + len(names)
    header = struct.pack(">4I", 16, 16 + len(data), len(data), map_length)
    return header + data + header + bytes(8) + struct.pack(">HH", 28, 28 + len(types) + len(references)) + types + references + names


def to_hex(data):
    return data.hex() or "-"


def from_hex(text):
    return b"" if text == "-" else bytes.fromhex(text)


def main():
    action, path = sys.argv[1:]
    if action == "read":
        with open(path, "rb") as file:
            for code, number, attributes, name, content in read(file.read()):
                print(code.decode("latin-1"), number, attributes, to_hex(name), to_hex(content))
    elif action == "write":
        resources = []
        for line in sys.stdin:
            code, number, attributes, name, content = line.split()
            resources.append((code.encode("latin-1"), int(number), int(attributes), from_hex(name), from_hex(content)))
        with open(path, "wb") as file:
            file.write(write(resources))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
