"""Makes and reads the images of OrloTest: PNG and TIFF files written byte by byte, everything else through the tools of libvips."""

import array
import base64
import os
import struct
import subprocess
import sys
import zlib


def run_tool(*command):
    """Runs a tool that must succeed and returns its standard output."""
    # Without libvips' modules, which serve other formats and take longer to open than most images here.
    words = [str(part) for part in command]
    environment = dict(os.environ)
    if not any(word.endswith((".jxl", ".avif", ".heic")) for word in words):
        environment["VIPSHOME"] = "/nonexistent"
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment).stdout


class Picture:
    """A decoded image: samples row by row, interleaved, as an array of integers."""

    def __init__(self, path, scratch):
        fields = dict(line.split(": ", 1) for line in run_tool("vipsheader", "-a", path).decode().splitlines() if ": " in line)
        self.width, self.height, self.bands = (int(fields[name]) for name in ("width", "height", "bands"))
        self.depth = {"uchar": 8, "ushort": 16}[fields["format"]]
        self.interpretation = fields["interpretation"]
        self.fields = fields
        self.path = path
        run_tool("vips", "rawsave", path, scratch)
        self.samples = array.array("B" if self.depth == 8 else "H")
        with open(scratch, "rb") as file:
            self.samples.frombytes(file.read())

    def form(self):
        return self.bands, self.depth, self.interpretation

    def profile(self):
        """The embedded profile, read from the file; None where there is none."""
        if "icc-profile-data" not in self.fields:
            return None
        return base64.b64decode(run_tool("vipsheader", "-f", "icc-profile-data", self.path))

    def pixels(self):
        """The first row, a tuple a pixel."""
        bands = self.bands
        return [tuple(self.samples[i * bands:(i + 1) * bands]) for i in range(self.width)]

    def band(self, index):
        return self.samples[index::self.bands]


def write_png(path, rows, depth, channels, profile=None):
    """rows: lists of samples, interleaved; channels 1 grey, 2 grey and alpha, 3 RGB, 4 RGB and alpha."""
    width = len(rows[0]) // channels
    code = "B" if depth == 8 else "H"

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    data = bytearray()
    for row in rows:
        data.append(0)
        data += struct.pack(f">{len(row)}{code}", *row)
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n")
        file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, len(rows), depth, {1: 0, 2: 4, 3: 2, 4: 6}[channels], 0, 0, 0)))
        if profile is not None:
            file.write(chunk(b"iCCP", b"profile\0\0" + zlib.compress(profile)))
        file.write(chunk(b"IDAT", zlib.compress(bytes(data))))
        file.write(chunk(b"IEND", b""))


def write_tiff(path, rows, depth, channels, photometric=None, extra=None, sample_format=1, orientation=1, profile=None, private_tag=None):
    """Uncompressed, directory first, so that a cut file still opens. photometric: 1 grey, 2 RGB, 5 CMYK; extra: 2 = alpha not multiplied in."""
    width, height = len(rows[0]) // channels, len(rows)
    data = b"".join(struct.pack(f"<{len(row)}{ {8: 'B', 16: 'H', 32: 'f'}[depth]}", *row) for row in rows)
    if photometric is None:
        photometric = {1: 1, 2: 1, 3: 2, 4: 5}[channels]
    entries = [(256, 4, [width]), (257, 4, [height]), (258, 3, [depth] * channels), (259, 3, [1]), (262, 3, [photometric]), (273, 4, [0]),
               (274, 3, [orientation]), (277, 3, [channels]), (278, 4, [height]), (279, 4, [len(data)]), (284, 3, [1])]
    if extra is not None:
        entries.append((338, 3, [extra]))
    entries.append((339, 3, [sample_format] * channels))
    if profile is not None:
        entries.append((34675, 7, list(profile)))
    if private_tag is not None:
        entries.append((private_tag, 4, [1]))
    after = 8 + 2 + 12 * len(entries) + 4
    long_values, directory = b"", b""
    start = after + sum(len(v) * {3: 2, 4: 4, 7: 1}[t] for _, t, v in entries if len(v) * {3: 2, 4: 4, 7: 1}[t] > 4)
    for tag, kind, values in entries:
        body = struct.pack(f"<{len(values)}{ {3: 'H', 4: 'I', 7: 'B'}[kind]}", *([start] if tag == 273 else values))
        if len(body) > 4:
            body, place = struct.pack("<I", after + len(long_values)), body
            long_values += place
        directory += struct.pack("<HHI", tag, kind, len(values)) + body.ljust(4, b"\0")
    with open(path, "wb") as file:
        file.write(struct.pack("<2sHIH", b"II", 42, 8, len(entries)) + directory + struct.pack("<I", 0) + long_values + data)


def tiff_tag(path, wanted):
    """The short or long value of a tag in the first directory of a TIFF file, or None."""
    with open(path, "rb") as file:
        data = file.read()
    order = {b"II": "<", b"MM": ">"}[data[:2]]
    (directory,) = struct.unpack_from(order + "I", data, 4)
    (count,) = struct.unpack_from(order + "H", data, directory)
    for entry in range(directory + 2, directory + 2 + 12 * count, 12):
        tag, kind = struct.unpack_from(order + "HH", data, entry)
        if tag == wanted:
            return struct.unpack_from(order + {3: "H", 4: "I"}[kind], data, entry + 8)[0]
    return None


def lcms_convert(source, destination, colours, intent, full_in, full_out, switches=()):
    """Colours through Little CMS's own calculator, in floating point without clipping; full_in, full_out: what stands for full scale; switches:
    further ones of the calculator.

    A profile is a file name, or one of the calculator's built-in names such as *sRGB. Inks are per cent there, everything else 0..255.
    """
    def scale(profile):
        if profile.startswith("*"):
            return 255
        with open(profile, "rb") as file:
            return 100 if file.read(20)[16:20] == b"CMYK" else 255

    factor = scale(source) / full_in
    lines = "".join(" ".join(repr(v * factor) for v in colour) + "\n" for colour in colours)
    command = ["transicc", "-n", f"-t{intent}", *switches, f"-i{source}", f"-o{destination}"]
    done = subprocess.run(command, input=lines.encode(), stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    rows = [[float(v) * full_out / scale(destination) for v in line.split()] for line in done.stdout.decode().splitlines() if line.strip()]
    if len(rows) != len(colours):
        sys.exit(f"transicc answered {len(rows)} of {len(colours)} colours: {done.stdout[:300]!r} {done.stderr[:300]!r}")
    return rows


def xyz_tag(*values):
    return b"XYZ \0\0\0\0" + struct.pack(">3i", *(round(value * 65536) for value in values))


def curve_tag(entries):
    return b"curv\0\0\0\0" + struct.pack(f">I{len(entries)}H", len(entries), *entries)


def write_monitor(path, curve=(563,), luminance=None, tags=None):
    """A monitor profile of version 2.4 with the primaries of many; curve: the entries of its three tone curves; tags: further ones, or in place of these."""
    every = {b"wtpt": xyz_tag(0.9642, 1, 0.8249), b"rXYZ": xyz_tag(0.436, 0.222, 0.014), b"gXYZ": xyz_tag(0.385, 0.717, 0.097),
             b"bXYZ": xyz_tag(0.143, 0.061, 0.714), b"rTRC": curve_tag(curve), b"gTRC": curve_tag(curve), b"bTRC": curve_tag(curve)}
    if luminance is not None:
        every[b"lumi"] = xyz_tag(0, luminance, 0)
    every.update(tags or {})
    offset, table, data = 132 + 12 * len(every), b"", b""
    for signature, value in every.items():
        table += struct.pack(">4sII", signature, offset + len(data), len(value))
        data += value + bytes(-len(value) % 4)
    header = struct.pack(">II4s4s4s4s12x4s28x3i48x", offset + len(data), 0, b"\x02\x40\0\0", b"mntr", b"RGB ", b"XYZ ", b"acsp", 63190, 65536, 54061)
    with open(path, "wb") as file:
        file.write(header + struct.pack(">I", len(every)) + table + data)
