#!/usr/bin/env python3
"""Whole image files through orlo, vips and Argyll's cctiff: the time on the clock and the processors' time of each, process start to end.

    whole_files.py [runs]

Prints the rows that tools/bench_table reads. Needs what tools/make_test_data makes and orlo, built with the release preset.
"""

import json
import os
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
ORLO = os.path.join(ROOT, "build", "release", "bin", "orlo")
DATA = os.path.join(ROOT, "build", "test-data")
PHOTOGRAPH = os.path.join(DATA, "photographs", "astronaut.png")  # 512 by 512
# The picture's space and the monitor: version 2, as cctiff crashes on sRGB of version 4, and with D50 for its white, so that absolute and relative
# colorimetric are the same on its side.
SRGB = os.path.join(DATA, "profiles", "sRGB_icc22.icm")
PRINTER = os.path.join(DATA, "profiles", "fogra39l.icc")
ONE_THREAD = {"VIPS_CONCURRENCY": "1"}
# Of full scale, on average over all samples. Programs that differ by more have not been asked the same.
MOST_DIFFERENCE = 0.02


class Contender:
    """Commands that together do the job. `like` names the contender that this one is compared with, None for those of orlo."""

    def __init__(self, name, commands, like=None, environment=None):
        self.name = name
        self.commands = commands
        self.like = like
        self.environment = environment or {}
        self.wall = []
        self.cpu = []

    def run(self, folder):
        environment = {name: value for name, value in os.environ.items() if name != "VIPS_CONCURRENCY"}
        # The user's own settings are neither read nor changed.
        environment |= {"XDG_CONFIG_HOME": os.path.join(folder, "config")} | self.environment
        wall = cpu = 0
        for command in self.commands:
            start = time.monotonic()
            with subprocess.Popen(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL) as process:
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
            wall += time.monotonic() - start
            cpu += usage.ru_utime + usage.ru_stime
            if process.returncode != 0:
                sys.exit(f"whole_files: failed: {' '.join(command)}")
        self.wall.append(wall)
        self.cpu.append(cpu)


def vips(folder, *words):
    """What vips printed."""
    return subprocess.run(["vips", *words], cwd=folder, check=True, capture_output=True, text=True).stdout


def versions():
    cctiff = subprocess.run(["cctiff", "-?"], check=False, capture_output=True, text=True)
    return "vips " + vips(None, "--version").strip().removeprefix("vips-") + ", Argyll " + re.findall(r"V([\d.]+)", cctiff.stdout + cctiff.stderr)[0]


def make_picture(folder):
    """picture.tif: 4096 by 4096, RGB of 16 bits, uncompressed, with its profile: the photograph enlarged, and grain."""
    vips(folder, "colourspace", PHOTOGRAPH, "small.v", "rgb16")
    vips(folder, "resize", "small.v", "large.v", "8", "--kernel", "cubic")
    vips(folder, "gaussnoise", "grain.v", "4096", "4096", "--sigma", "150", "--seed", "1")
    vips(folder, "add", "large.v", "grain.v", "sum.v")
    vips(folder, "cast", "sum.v", "words.v", "ushort")
    vips(folder, "copy", "words.v", "picture.v", "--interpretation", "rgb16")
    vips(folder, "tiffsave", "picture.v", "picture.tif", "--profile", SRGB)


def difference(folder, one, other):
    """Of two pictures, as a share of full scale, on average."""
    vips(folder, "subtract", one, other, "difference.v")
    vips(folder, "abs", "difference.v", "distance.v")
    return float(vips(folder, "avg", "distance.v")) / 65535


def row(group, name, contender, values, like):
    ordered = sorted(values)
    last = len(ordered) - 1
    entry = {"group": group, "name": name, "condition": contender.name, "unit": "s", "value": statistics.median(ordered),
             "quarter1": ordered[last // 4], "quarter3": ordered[last - last // 4], "least": ordered[0], "most": ordered[last], "runs": len(ordered)}
    if like:
        entry |= {"ratio": statistics.median(like) / entry["value"], "ratio_to": contender.like}
    return entry


def race(folder, group, name, contenders, runs):
    """The contenders take turns, run by run. Each leaves its picture in the file named after it, as does `orlo`; answers what they differ by."""
    for _ in range(runs):
        for contender in contenders:
            contender.run(folder)
    named = {contender.name: contender for contender in contenders}
    for what, times in (("time on the clock", lambda c: c.wall), ("processors' time", lambda c: c.cpu)):
        for contender in contenders:
            print(json.dumps(row(group, f"{name}, {what}", contender, times(contender), times(named[contender.like]) if contender.like else None)))
    differences = {}
    for contender in contenders[1:]:
        if contender.name == "copy":
            continue
        differences[contender.name] = difference(folder, output(contenders[0].name), output(contender.name))
        if differences[contender.name] > MOST_DIFFERENCE:
            sys.exit(f"whole_files: {name}: {contender.name} differs from orlo by {differences[contender.name]:.1%}: not the same job")
    return differences


def output(name):
    return name.replace(" ", "-").replace(",", "") + ".tif"


def compressed(name):
    return output(name) + "[compression=lzw]"


def to_cmyk(folder, runs):
    def orlo(name, *options, **others):
        words = [ORLO, "printer-match", "picture.tif", output(name), "--monitor", SRGB, "--printer", PRINTER, *options]
        return Contender(name, [words], **others)

    def transform(name, file, like, **others):
        words = ["vips", "icc_transform", "picture.tif", file, PRINTER, "--embedded", "--intent", "absolute", "--depth", "16"]
        return Contender(name, [words], like, **others)

    def cctiff(name, like, *options):
        return Contender(name, [["cctiff", *options, "-i", "r", SRGB, "-i", "a", PRINTER, "picture.tif", output(name)]], like)

    return race(folder, GROUP, "to CMYK", [
        orlo("orlo"),
        transform("vips", compressed("vips"), "orlo"),
        orlo("orlo, uncompressed", "--compression=none"),
        transform("vips, uncompressed", output("vips, uncompressed"), "orlo, uncompressed"),
        orlo("orlo, one thread", environment=ONE_THREAD),
        transform("vips, one thread", compressed("vips, one thread"), "orlo, one thread", environment=ONE_THREAD),
        orlo("orlo, one thread, uncompressed", "--compression=none", environment=ONE_THREAD),
        cctiff("cctiff", "orlo, one thread"),
        cctiff("cctiff, uncompressed", "orlo, one thread, uncompressed", "-N"),
        cctiff("cctiff -p", "orlo, one thread", "-p"),
        Contender("copy", [["vips", "copy", "picture.tif", compressed("copy")]], "orlo, one thread", ONE_THREAD),
    ], runs)


def soft_proof(folder, runs):
    def orlo(name, quality, *options, **others):
        words = [ORLO, "proof", "picture.tif", output(name), "--monitor", SRGB, "--printer", PRINTER, "--quality", quality, *options]
        return Contender(name, [words], **others)

    def transforms(name, file, like, **others):
        words = ["--embedded", "--intent", "absolute", "--depth", "16"]
        there = ["vips", "icc_transform", "picture.tif", "inks.v", PRINTER, *words]
        back = ["vips", "icc_transform", "inks.v", file, SRGB, *words]
        return Contender(name, [there, back], like, **others)

    def cctiff(name, like, *options):
        chain = ["-i", "r", SRGB, "-i", "a", PRINTER, "-i", "a", PRINTER, "-i", "r", SRGB]
        return Contender(name, [["cctiff", *options, *chain, "picture.tif", output(name)]], like)

    return race(folder, GROUP, "soft proof", [
        orlo("orlo", "2"),
        orlo("orlo, quality 0", "0", like="orlo"),
        transforms("vips, twice", compressed("vips, twice"), "orlo"),
        orlo("orlo, uncompressed", "2", "--compression=none"),
        transforms("vips, twice, uncompressed", output("vips, twice, uncompressed"), "orlo, uncompressed"),
        orlo("orlo, one thread", "2", environment=ONE_THREAD),
        transforms("vips, twice, one thread", compressed("vips, twice, one thread"), "orlo, one thread", environment=ONE_THREAD),
        orlo("orlo, one thread, uncompressed", "2", "--compression=none", environment=ONE_THREAD),
        cctiff("cctiff", "orlo, one thread"),
        cctiff("cctiff, uncompressed", "orlo, one thread, uncompressed", "-N"),
        cctiff("cctiff -p", "orlo, one thread", "-p"),
    ], runs)


GROUP = "Whole files"
NOTE = (
    "A TIFF file of 4096 by 4096 pixels, RGB of 16 bits (a photograph enlarged, with grain; uncompressed, in the page cache) to TIFF of 16 "
    "bits, process start to end. A ratio below 1 says that the program is slower than orlo by that factor. All use the same profiles, sRGB of "
    "version 2 and FOGRA39L, but they do not do quite the same. orlo goes through its linear reference RGB and evaluates every colour, except "
    "at quality 0, where the proof comes from a table; vips has Little CMS make one table of the two profiles; cctiff makes one table of all "
    "its profiles, or evaluates every colour with -p. For the proof vips runs twice, with the inks in a file between. One thread is that of the "
    "colours, to which vips, also within orlo, adds one that writes; cctiff has one for both: compare the processors' time. Output is "
    "compressed by LZW unless it says uncompressed; copy, a file read and written so by vips without a change of "
    "colours, shows how much of the time that takes.")


def main():
    runs = max(1, int(sys.argv[1])) if len(sys.argv) > 1 else 5
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that the folder is removed
    with tempfile.TemporaryDirectory(prefix="colourmatch-") as folder:
        make_picture(folder)
        differences = [("to CMYK", to_cmyk(folder, runs)), ("soft proof", soft_proof(folder, runs))]
    said = "; ".join(f"{name}: " + ", ".join(f"{who} {share:.2%}" for who, share in each.items() if "uncompressed" not in who and "thread" not in who)
                     for name, each in differences)
    print(json.dumps({"group": GROUP, "note": f"{NOTE} {versions()}. Mean difference from orlo's samples, of full scale: {said}."}))


main()
