#!/usr/bin/python3
"""The Python package beside the C call that it stands on, and beside Pillow's ImageCms.

    python_arrays.py [runs]

Prints the rows that tools/bench_table reads. Needs what tools/make_test_data makes, and the package, built with the release preset.
"""

import ctypes
import json
import os
import statistics
import sys
import time

sys.dont_write_bytecode = True  # the source tree stays as it is
ROOT = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
BUILD = os.path.join(ROOT, "build", "release")
DATA = os.path.join(ROOT, "build", "test-data")
sys.path[:0] = [os.path.join(BUILD, "python"), os.path.join(ROOT, "python", "tests")]
os.environ |= {"CM_TEST_DATA": DATA, "CM_LIBRARY": os.path.join(BUILD, "lib", "libcolourmatch.so.2")}

import numpy as np
from PIL import Image, ImageCms
from truth import ADOBE_RGB, Record, words

from colourmatch import Matcher, reference_from_image

SRGB = "/usr/share/color/icc/colord/sRGB.icc"
PRINTER = os.path.join(DATA, "profiles", "fogra39l.icc")
PHOTOGRAPH = os.path.join(DATA, "photographs", "astronaut.png")  # 512 by 512
C = "C call, four words"
SIDE = 2048


def picture():
    """The photograph enlarged, and grain, so that neighbours differ as they do in a photograph of this size."""
    image = Image.open(PHOTOGRAPH).convert("RGB").resize((SIDE, SIDE), Image.Resampling.BICUBIC)
    grain = np.random.default_rng(1).normal(0, 1.5, (SIDE, SIDE, 3))
    image = Image.fromarray(np.clip(np.asarray(image) + grain, 0, 255).astype(np.uint8))
    with open(SRGB, "rb") as file:
        image.info["icc_profile"] = file.read()
    return image


def race(contenders, runs, clock=time.process_time):
    """Seconds of each run; the contenders take turns."""
    times = {name: [] for name in contenders}
    for run in range(runs + 1):
        for name, work in contenders.items():
            start = clock()
            work()
            if run:  # the first warms up
                times[name].append(clock() - start)
    return times


def show(group, name, unit, times, value, like, faster_is_less):
    """A row for each contender; `value` makes a figure of seconds, `like` names the one that the others are compared with."""
    median = {each: statistics.median(map(value, seconds)) for each, seconds in times.items()}
    for each, seconds in times.items():
        ordered = sorted(map(value, seconds))
        last = len(ordered) - 1
        entry = {"group": group, "name": name, "condition": each, "unit": unit, "value": median[each], "quarter1": ordered[last // 4],
                 "quarter3": ordered[last - last // 4], "least": ordered[0], "most": ordered[last], "runs": len(ordered)}
        if each != like:
            entry |= {"ratio": median[like] / median[each] if faster_is_less else median[each] / median[like], "ratio_to": like}
        print(json.dumps(entry))


def arrays(image, runs):
    group = "Python: arrays"
    reference = reference_from_image(image).reshape(-1, 3)
    four, count = words(reference), len(reference)

    def operation(name, method, call, quality, source3, source4, kind, inks=False):
        matcher, record = Matcher(ADOBE_RGB, PRINTER, quality=quality, plain_curves=True), Record(ADOBE_RGB, PRINTER, quality=quality)
        shape = (count,) if "Gamut" in call else (count, 4)
        out, ours4 = np.zeros(shape, kind), np.zeros(shape, kind)
        ours3 = np.zeros(shape if "Gamut" in call or inks else (count, 3), kind)
        run = getattr(matcher, method)
        times = race({C: lambda: record.run(call, source4, out), "(n, 4)": lambda: run(source4, out=ours4), "(n, 3)": lambda: run(source3, out=ours3)}, runs)
        assert np.array_equal(out, ours4)
        show(group, name, "Mpixel/s", times, lambda seconds: count / seconds / 1e6, C, False)

    operation("match, 16 bits", "match", "RecordMonitorMatch16", 2, reference, four, np.uint16)
    operation("match, 8 bits", "match", "RecordMonitorMatch", 2, reference, four, np.uint8)
    operation("match, 16 bits, quality 0", "match", "RecordMonitorMatch16", 0, reference, four, np.uint16)
    operation("predict, 16 bits", "predict", "RecordMonitorPredict16", 2, reference, four, np.uint16)
    operation("gamut", "gamut", "RecordMonitorGamut", 2, reference, four, np.uint8)
    operation("proof, 16 bits", "proof", "RecordSoftProofMatch16", 2, reference, four, np.uint16)
    operation("proof, 16 bits, quality 0", "proof", "RecordSoftProofMatch16", 0, reference, four, np.uint16)
    operation("printer match to CMYK, 16 bits", "printer_match", "RecordPrinterMatch16", 2, reference, four, np.uint16, inks=True)


def proofs(image, runs):
    group = "Python: soft proof of a picture"
    matchers = {quality: Matcher(ADOBE_RGB, PRINTER, quality=quality) for quality in (0, 2)}
    intents = [ImageCms.Intent.ABSOLUTE_COLORIMETRIC] * 2
    pillow = {name: ImageCms.buildProofTransform(SRGB, ADOBE_RGB, PRINTER, "RGB", "RGB", *intents, flags=ImageCms.FLAGS["SOFTPROOFING"] | flags)
              for name, flags in (("Pillow, optimised", 0), ("Pillow, every colour evaluated", ImageCms.FLAGS["NOTPRECALC"]))}
    contenders = {"colourmatch": lambda: matchers[2].proof_image(image), "colourmatch, quality 0": lambda: matchers[0].proof_image(image),
                  "Pillow, optimised": lambda: ImageCms.applyTransform(image, pillow["Pillow, optimised"])}
    for what, clock in (("time on the clock", time.monotonic), ("processors' time", time.process_time)):
        show(group, f"{SIDE} by {SIDE}, RGB of 8 bits, {what}", "s", race(contenders, runs, clock), float, "Pillow, optimised", True)
    exact = np.asarray(ImageCms.applyTransform(image, pillow["Pillow, every colour evaluated"])).astype(int)
    for name, work in contenders.items():
        far = np.abs(np.asarray(work()).astype(int) - exact)
        print(json.dumps({"group": group, "note": f"{name} differs from {list(pillow)[1]} by {far.mean():.2f} of 255 on average, {far.max()} at most."}))


def main():
    runs = max(1, int(sys.argv[1])) if len(sys.argv) > 1 else 7
    image = picture()
    arrays(image, runs)
    proofs(image, runs)


main()
