#!/usr/bin/env python3
"""The stored settings on the command line: shown, changed, refused, watched from another process, and used by the image commands."""

import fcntl
import json
import os
import plistlib
import select
import shutil
import signal
import subprocess
import sys

import OrloCommand
from OrloCommand import ADOBE_RGB, APPLE_RGB, PATIENCE, OrloCase, bytes_of, cmyk_printer, photograph, reference_profile, rgb_printer
from OrloImages import lcms_convert, write_monitor, write_tiff

# Each setting with its value while nothing is stored, and two that it takes.
SETTINGS = {
    "use-proofer": (False, "on", "off"),
    "quality": (0, "2", "1"),
    "intent": ("relative", "absolute", "saturation"),
    "flare": (-0.03, "0.25", "-0.125"),
    "contrast": (1, "1.1", "0.30000000000000004"),
    "a-offset": (0, "-7.5", "128e-3"),
    "b-offset": (0, "12", "-0.5"),
    "adapt-to-paper": (False, "on", "off"),
    "monitor-white": (None, "xyz:95.05,100,108.9", "xyz:96.4,100,82.5\tD50"),
    "use-monitor-white": (False, "on", "off"),
    "printer-white": (None, "xyz:80,84,70", "none"),
    "use-printer-white": (False, "on", "off"),
    "illuminant": ("D65", "D50", "é€"),
    "observer": ("2", "10", "zwei Grad, nach Müller und Söhne"[:29]),
    "use-paths": (False, "on", "off"),
}
PROFILES = ("monitor-profile", "printer-profile", "proofer-profile")


class SettingsCase(OrloCase):
    def orlo(self, *arguments, status=0):
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertEqual(bool(done.stderr), status != 0, done.stderr)
        return (done.stderr if status else done.stdout).decode()

    def set(self, *pairs):
        self.assertEqual(self.orlo("settings", "set", *pairs), "")

    def get(self, name):
        return json.loads(self.orlo("settings", "get", name, "--json"))

    def store_files(self):
        folder = os.path.join(self.folder, "config", "com.brenwick.orlocms")
        return {name: bytes_of(os.path.join(folder, name)) for name in os.listdir(folder)} if os.path.isdir(folder) else {}


class ShowAndChange(SettingsCase):
    def test_an_empty_store_shows_what_counts_without_it(self):
        shown = json.loads(self.orlo("settings", "list", "--json"))
        expected = {name: {"value": row[0], "stored": False} for name, row in SETTINGS.items()}
        expected.update({name: {"value": None, "stored": False} for name in PROFILES})
        self.assertEqual(shown, expected)
        self.assertEqual(self.store_files(), {})

    def test_each_value_comes_back_in_words_and_as_json(self):
        for name, (_, *values) in SETTINGS.items():
            for value in values:
                with self.subTest(name=name, value=value):
                    self.set(name, value)
                    words = self.orlo("settings", "get", name)[:-1]
                    shown = self.get(name)
                    self.assertTrue(shown["stored"])
                    expected = {"on": True, "off": False, "none": None}.get(value, value)
                    if isinstance(shown["value"], (int, float)) and not isinstance(shown["value"], bool):
                        expected = float(value)
                        self.assertEqual(float(words), expected)
                    else:
                        self.assertEqual(words, value)
                    self.assertEqual(shown["value"], expected)

    def test_what_is_shown_is_what_is_set(self):
        self.set(*[word for name, row in SETTINGS.items() for word in (name, row[1])])
        before = self.orlo("settings", "list", "--json")
        for name in SETTINGS:
            self.set(name, self.orlo("settings", "get", name)[:-1])
        self.assertEqual(self.orlo("settings", "list", "--json"), before)

    def test_profiles_of_any_name_are_found_again(self):
        for name, source in zip(PROFILES, (ADOBE_RGB, rgb_printer(), cmyk_printer())):
            for file_name in ("plain.icc", "with a blank.icc", "-dash.icc", "quote\"back\\slash.icc", "ünïcödé €.icc", "new\nline.icc"):
                with self.subTest(setting=name, file=file_name):
                    path = self.path(file_name)
                    shutil.copy(source, path)
                    self.set(name, path)
                    self.assertEqual(self.orlo("settings", "get", name), path + "\n")
                    self.assertEqual(self.get(name), {"value": path, "stored": True})
            self.set(name, "none")
            self.assertEqual(self.get(name), {"value": None, "stored": False})

    def test_a_profile_that_went_away_is_said_to_be_gone(self):
        path = self.path("gone.icc")
        shutil.copy(ADOBE_RGB, path)
        self.set("monitor-profile", path)
        os.remove(path)
        self.assertIn("cannot be found", self.orlo("settings", "get", "monitor-profile"))

    def test_the_store_holds_the_documented_kinds(self):
        self.set("flare", "0.1", "quality", "1", "use-proofer", "on", "illuminant", "D50")
        [contents] = [contents for name, contents in self.store_files().items() if name.endswith(".plist")]
        stored = plistlib.loads(contents)
        self.assertEqual(stored["Viewing Conditions"], {"Flare": 0.1, "Contrast": 1.0, "A Offset": 0.0, "B Offset": 0.0, "Use Printer": False})
        self.assertEqual((stored["Matching Quality"], stored["Use Proofer Profile"], stored["Illuminant"]), ("Qua1", True, "D50"))

    def test_refusals_name_the_fault_and_change_nothing(self):
        self.set("flare", "0.5", "monitor-profile", ADOBE_RGB)
        before = self.store_files()
        text = self.path("text.icc")
        with open(text, "wb") as file:
            file.write(b"no profile " * 50)
        rows = [
            (("flares", "1"), "flares", "no such setting"),
            (("flare", "much"), "flare", "-1 to 1"), (("flare", "1.01"), "flare", "-1 to 1"), (("flare", ""), "flare", "-1 to 1"),
            (("flare", "nan"), "flare", "-1 to 1"), (("flare", "0.5x"), "flare", "-1 to 1"),
            (("contrast", "0"), "contrast", "0.1 to 10"), (("a-offset", "200"), "a-offset", "-128 to 127"),
            (("quality", "3"), "quality", "0, 1 or 2"), (("intent", "0"), "intent", "relative, saturation or absolute"), (("quality", "01"), "quality", "0, 1 or 2"),
            (("use-proofer", "yes"), "use-proofer", "on or off"), (("monitor-white", "95,100,108"), "monitor-white", "xyz:"),
            (("illuminant", "x" * 32), "illuminant", "31 bytes"), (("observer", ""), "observer", "31 bytes"),
            (("monitor-profile", self.path("missing.icc")), self.path("missing.icc"), "no such file"),
            (("monitor-profile", text), text, "ICC profile"), (("monitor-profile", cmyk_printer()), cmyk_printer(), "matrix model"),
            (("printer-profile", ADOBE_RGB), ADOBE_RGB, "class"), (("printer-profile", ""), "printer-profile", "none"),
            (("flare", "0.1", "contrast", "2", "quality", "9"), "quality", "0, 1 or 2"),
            (("flare",), "settings set", "'flare' has no value; write NAME=VALUE"), (("flare=0", "quality"), "settings set", "'quality' has no value"),
            ((), "settings set", "NAME=VALUE is missing"), (("flair", "1"), "flair", "did you mean flare?"), (("flair=1",), "flair", "did you mean flare?"),
            (("flare=0.1", "contrast", "2", "quality=9"), "quality", "0, 1 or 2"), (("flare=",), "flare", "-1 to 1"),
            (("--sets", "0"), "--sets", "no such option"),
        ]
        for words, about, right in rows:
            with self.subTest(words):
                line = self.orlo("settings", "set", *words, status=3 if right == "no such file" else 2)
                self.assertEqual(line.count("\n"), 1, line)
                self.assertTrue(line.startswith(f"orlo: {about}: "), line)
                self.assertIn(right, line)
                self.assertEqual(self.store_files(), before)
        for words, right in ((("settings",), "list, get, set or reset"), (("settings", "put"), "list, get, set or reset"), (("settings", "get"), "NAME is missing"),
                             (("settings", "get", "flares"), "no such setting"), (("settings", "list", "flare"), "too many"),
                             (("watch", "flare"), "too many"), (("watch", "--quick"), "no such option")):
            with self.subTest(words):
                self.assertIn(right, self.orlo(*words, status=2))

    def test_names_and_values_are_one_word_or_two(self):
        odd = self.path("a=b c.icc")
        shutil.copy(ADOBE_RGB, odd)
        self.set("flare=0.25", "quality", "2", f"monitor-profile={odd}", "printer-white", "xyz:80,84,70", "illuminant=x=y", "observer", "=")
        for name, value in (("flare", 0.25), ("quality", 2), ("monitor-profile", odd), ("printer-white", "xyz:80,84,70"), ("illuminant", "x=y"), ("observer", "=")):
            self.assertEqual(self.get(name), {"value": value, "stored": True})

    def test_what_is_reset_is_not_stored_any_more(self):
        empty = json.loads(self.orlo("settings", "list", "--json"))
        self.set(*[f"{name}={row[1]}" for name, row in SETTINGS.items() if name != "intent"], "use-paths=off", "contrast=2", f"printer-profile={rgb_printer()}",
                 f"monitor-profile={ADOBE_RGB}")
        before = json.loads(self.orlo("settings", "list", "--json"))
        names = ("flare", "monitor-profile", "printer-white", "quality", "illuminant")
        told = json.loads(self.orlo("settings", "reset", *names, "--json"))
        self.assertEqual(told, {name: empty[name] for name in names})
        after = json.loads(self.orlo("settings", "list", "--json"))
        self.assertEqual(after, {**before, **told})
        stored = self.store_files()
        self.assertIn("no such setting", self.orlo("settings", "reset", "contrast", "flares", status=2))
        self.assertEqual(self.store_files(), stored)
        self.assertEqual(self.orlo("settings", "reset"), "")
        self.assertEqual(json.loads(self.orlo("settings", "list", "--json")), empty)
        [contents] = [contents for name, contents in self.store_files().items() if name.endswith(".plist")]
        self.assertEqual(plistlib.loads(contents), {})

    def start(self, *arguments):
        return subprocess.Popen([OrloCommand.ORLO, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def assert_done(self, processes):
        for process in processes:
            self.assertEqual((process.communicate(timeout=PATIENCE)[0], process.returncode), (b"", 0))

    def test_changes_at_once_are_all_kept(self):
        changes = {"flare": 0.25, "contrast": 2, "a-offset": 3, "b-offset": -4, "adapt-to-paper": True, "use-monitor-white": True, "use-printer-white": True}
        for _ in range(3):
            self.orlo("settings", "reset")
            self.assert_done([self.start("settings", "set", f"{name}={'on' if value is True else value}") for name, value in changes.items()])
            self.assertEqual({name: self.get(name) for name in changes}, {name: {"value": value, "stored": True} for name, value in changes.items()})
            # What is forgotten is what was named, too.
            self.assert_done([self.start("settings", "reset", "flare"), self.start("settings", "set", "contrast=3"), self.start("settings", "reset", "a-offset")])
            self.assertEqual([self.get(name)["value"] for name in ("contrast", "b-offset")], [3, -4])

    def test_a_command_that_keeps_the_settings_is_not_waited_for_long(self):
        self.set("flare=0.25")
        before = self.store_files()
        with open(os.path.join(self.folder, "config", "com.brenwick.orlocms", "change.lock"), "r+b") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.assertIn("settings: another command keeps changing them; try again", self.orlo("settings", "set", "flare=0.5", status=1))
            self.assertEqual(self.store_files(), before)
            # Who only reads does not wait.
            self.assertEqual(self.get("flare")["value"], 0.25)
        self.set("flare=0.5")

    def test_what_is_refused_leaves_no_file(self):
        self.orlo("settings", "set", "flare=2", status=2)
        self.orlo("settings", "reset", "flares", status=2)
        self.assertEqual(self.store_files(), {})

    def test_an_intent_has_a_name_and_a_number(self):
        for number, name in (("1", "relative"), ("2", "saturation"), ("3", "absolute")):
            self.set("intent", number)
            self.assertEqual(self.orlo("settings", "get", "intent"), name + "\n")

    def test_the_absolute_intent_needs_a_monitor_that_tells_its_luminance(self):
        lit = self.path("lit.icc")
        write_monitor(lit, luminance=100)
        self.set("intent", "absolute")
        self.set("monitor-profile", lit)
        for words in (("monitor-profile", ADOBE_RGB), ("monitor-profile", ADOBE_RGB, "intent", "3")):
            self.assertIn("no luminance tag", self.orlo("settings", "set", *words, status=2))
        self.set("monitor-profile", ADOBE_RGB, "intent", "relative")
        before = self.store_files()
        self.assertIn("no luminance tag", self.orlo("settings", "set", "intent", "absolute", status=2))
        self.assertEqual(self.store_files(), before)

    def test_coarse_curves_are_told_and_can_be_refined(self):
        os.environ["XDG_DATA_HOME"] = self.path("data")
        coarse = self.path("coarse.icc")
        write_monitor(coarse, curve=[0, 9000, 24000, 43000, 65535])
        told = self.orlo("settings", "set", "monitor-profile", coarse)
        self.assertRegex(told, r"^monitor-profile: its tone curves have 5 entries, and hosts are off by \d{4} of 65535 on average; --refine stores")
        self.assertGreater(json.loads(self.orlo("settings", "set", "monitor-profile", coarse, "--json"))["monitor-profile"]["curveError"], 5000)
        self.set("monitor-profile", coarse, "--quiet")
        self.assertIn("no such setting", self.orlo("settings", "set", "monitor-profile", coarse, "flares=1", "--refine", status=2))
        self.assertFalse(os.path.exists(self.path("data")))
        self.set("monitor-profile", coarse, "--refine")
        fine = self.path("data/icc/coarse-fine.icc")
        self.assertEqual(self.orlo("settings", "get", "monitor-profile"), fine + "\n")
        # Little CMS takes both for the same monitor.
        colours = [(v, 255 - v, v // 2) for v in range(0, 256, 5)]
        before, after = (lcms_convert(profile, "*sRGB", colours, 1, 255, 65535) for profile in (coarse, fine))
        # A unit of linear light is up to 13 near black there.
        self.assert_close(after, before, 13)
        self.set("monitor-profile", fine)
        self.assertIn("no monitor profile is set", self.orlo("settings", "set", "flare", "0", "--refine", status=2))

    def test_what_was_set_is_shown_as_json(self):
        self.assertEqual(json.loads(self.orlo("settings", "set", "flare", "0.25", "quality", "2", "--json")),
                         {"quality": {"value": 2, "stored": True}, "flare": {"value": 0.25, "stored": True}})

    def test_a_store_that_cannot_be_written_is_told(self):
        folder = os.path.join(self.folder, "config")
        with open(folder, "wb"):
            pass
        self.assertIn("cannot be written", self.orlo("settings", "set", "flare", "0.5", status=1))

    def test_help(self):
        for words in (("settings", "--help"), ("watch", "-h"), ("--help",)):
            self.assertIn("Usage: orlo", self.orlo(*words))


class Watching(SettingsCase):
    """`orlo watch` hears what another process changes."""

    def next_line(self, watch):
        ready, _, _ = select.select([watch.stdout], [], [], PATIENCE)
        self.assertTrue(ready, "nothing was told")
        return watch.stdout.readline().decode()

    def start_watch(self, *options):
        watch = subprocess.Popen([OrloCommand.ORLO, "watch", *options], stdout=subprocess.PIPE, bufsize=0)
        self.addCleanup(watch.stdout.close)
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)
        return watch

    def watch_changes(self):
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "quality", "1")
        watch = self.start_watch("--json")
        first = json.loads(self.next_line(watch))
        self.assertEqual((first["event"], first["matching"]), ("watching", True))
        for name, value, told in (("flare", "0.25", (-0.03, 0.25)), ("monitor-profile", APPLE_RGB, (ADOBE_RGB, APPLE_RGB))):
            self.set(name, value)
            # A change may bring more than one rebuild: the file is both replaced and touched.
            line = {"event": "rebuild"}
            while line["event"] == "rebuild":
                line = json.loads(self.next_line(watch))
            self.assertEqual((line["event"], line["setting"], line["from"], line["to"]), ("change", name, *told))
            line = json.loads(self.next_line(watch))
            self.assertEqual((line["event"], line["new"]), ("rebuild", True))
        watch.send_signal(signal.SIGTERM)
        self.assertEqual(watch.wait(PATIENCE), 0)

    def test_changes_and_rebuilds_over_the_bus(self):
        self.start_bus()
        self.watch_changes()

    def announcers(self, count):
        """Those who tell on the bus that settings changed, until so many different ones have."""
        rule = "type='signal',path='/com/brenwick/Notifications'"
        monitor = subprocess.Popen(["dbus-monitor", "--session", rule], stdout=subprocess.PIPE, bufsize=0)
        self.addCleanup(monitor.stdout.close)
        self.addCleanup(monitor.wait)
        self.addCleanup(monitor.kill)
        while "NameLost" not in self.next_line(monitor):  # from there on it is told everything
            pass
        yield
        senders = []
        while len(set(senders)) < count:
            line = self.next_line(monitor)
            if "path=/com/brenwick/Notifications;" in line:
                senders.append(line.split("sender=")[1].split()[0])
        yield senders

    def test_several_changes_are_announced_once(self):
        self.start_bus()
        announcers = self.announcers(3)
        next(announcers)
        self.set("flare=0.25", "quality=1", "use-proofer=off", "monitor-white=xyz:96,100,90", "illuminant=D50", f"monitor-profile={ADOBE_RGB}",
                 f"printer-profile={rgb_printer()}")
        self.orlo("settings", "reset")
        self.set("flare", "0.5")
        senders = next(announcers)
        self.assertEqual((len(senders), len(set(senders))), (3, 3), senders)

    def test_changes_and_rebuilds_without_a_bus(self):
        self.watch_changes()

    def test_lines_for_people_and_the_end_by_interrupt(self):
        watch = self.start_watch()
        self.assertRegex(self.next_line(watch), r"^\d{4}-\d\d-\d\dT[0-9:.]+Z  watching; no matching data")
        self.set("contrast", "2")
        self.assertRegex(self.next_line(watch), r"Z  change   contrast: 1 -> 2\n$")
        self.assertRegex(self.next_line(watch), r"Z  rebuild  nothing new, as no printer profile is chosen\n$")
        watch.send_signal(signal.SIGINT)
        self.assertEqual(watch.wait(PATIENCE), 0)


class StoredProfiles(SettingsCase):
    """The image commands without profile options."""

    def matched(self, target, *options):
        return subprocess.run([OrloCommand.ORLO, "match", photograph("coffee.png"), self.path(target), *options], capture_output=True, check=False)

    def test_what_is_missing_is_said(self):
        for command, pairs, option in (("match", (), "--monitor"), ("proof", ("monitor-profile", ADOBE_RGB), "--printer")):
            if pairs:
                self.set(*pairs)
            done = subprocess.run([OrloCommand.ORLO, command, photograph("coffee.png"), self.path("out.png")], capture_output=True, check=False)
            self.assertEqual(done.returncode, 3)
            self.assertIn(f"none is stored; add {option}", done.stderr.decode())
            self.assertFalse(os.path.exists(self.path("out.png")))

    def test_a_stored_profile_that_went_away_is_said(self):
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "use-proofer", "on")
        for place, source in (("proofer", cmyk_printer()), ("printer", rgb_printer()), ("monitor", ADOBE_RGB)):
            with self.subTest(place):
                path = self.path(f"{place}.icc")
                shutil.copy(source, path)
                self.set(f"{place}-profile", path)
                self.assertEqual(self.matched("whole.png", "--session").returncode, 0)
                os.remove(path)
                done = self.matched("out.png", "--session")
                self.assertEqual(done.returncode, 3)
                self.assertIn(f"the stored {place} profile cannot be found; add --{place}", done.stderr.decode())
                self.assertFalse(os.path.exists(self.path("out.png")))
                # Not asked for once it is given.
                if place != "proofer":
                    self.assertEqual(self.matched("given.png", "--session", f"--{place}", source).returncode, 0)
                self.set(f"{place}-profile", source)

    def test_a_stored_proofer_counts_while_it_is_in_use(self):
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "proofer-profile", cmyk_printer(), "flare", "0")

        def proof(*options):
            target = self.path("proof.png")
            done = subprocess.run([OrloCommand.ORLO, "proof", photograph("coffee.png"), target, *options], capture_output=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            return self.read(target).samples

        off = proof()
        self.set("use-proofer", "on")
        on = proof()
        self.assertFalse(on == off)
        self.set("use-proofer", "off")
        self.assertTrue(proof("--proofer", cmyk_printer()) == on)

    def test_options_win_over_what_is_stored(self):
        self.set("monitor-profile", APPLE_RGB, "printer-profile", rgb_printer(), "quality", "0")
        given = self.run_orlo("match", photograph("coffee.png"), "given.png", "--depth", "16")
        self.assertEqual(self.matched("mixed.png", "--depth=16", f"--monitor={ADOBE_RGB}").returncode, 0)
        self.assertEqual(self.read(self.path("mixed.png")).samples, given.samples)
        self.assertEqual(self.matched("stored.png", "--depth=16").returncode, 0)
        self.assertNotEqual(self.read(self.path("stored.png")).samples, given.samples)
        for quality, equal in (("2", False), ("0", True)):
            self.assertEqual(self.matched("option.png", "--depth=16", "--session", f"--quality={quality}").returncode, 0)
            self.assertEqual(self.matched("session.png", "--depth=16", "--session").returncode, 0)
            self.assertEqual(self.read(self.path("option.png")).samples == self.read(self.path("session.png")).samples, equal)

    def test_a_session_has_the_stored_proofer_whatever_profiles_are_given(self):
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "proofer-profile", cmyk_printer(), "use-proofer", "on")
        source = photograph("coffee.png")
        given = ("--monitor", ADOBE_RGB, "--printer", rgb_printer())
        rows = []
        for name, options in (("stored", ()), ("given", given), ("without", None)):
            if options is None:
                self.set("use-proofer", "off")
            done = subprocess.run([OrloCommand.ORLO, "proof", source, self.path(name + ".png"), "--session", *(options or ())], capture_output=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            rows.append(self.read(self.path(name + ".png")).samples)
        self.assertTrue(rows[0] == rows[1])
        self.assertFalse(rows[0] == rows[2])

    def test_conditions_count_for_a_session_alone_and_are_told(self):
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "flare", "0.1", "contrast", "1.5", "a-offset", "3", "intent", "2")
        stored, given, session = (self.path(name) for name in ("stored.png", "given.png", "session.png"))
        told = self.matched(stored).stdout.decode()
        self.assertIn(", stored monitor profile, no viewing conditions, ", told)
        done = subprocess.run(self.arguments("match", photograph("coffee.png"), given, "--json"), capture_output=True, check=True)
        self.assertEqual([json.loads(done.stdout)[name] for name in ("stored", "conditions")], [[], None])
        self.assertEqual(self.read(stored).samples, self.read(given).samples)
        told = self.matched(session, "--session").stdout.decode()
        self.assertIn(", stored monitor and printer profile, session with intent saturation, flare 0.1, contrast 1.5, a* offset 3, ", told)
        self.assertNotEqual(self.read(session).samples, self.read(given).samples)
        told = json.loads(self.matched(session, "--session", "--json").stdout)
        self.assertEqual(told["stored"], ["monitor", "printer"])
        self.assertEqual(told["conditions"], {"intent": "saturation", "flare": 0.1, "contrast": 1.5, "aOffset": 3.0, "bOffset": 0.0, "adaptToPaper": False,
                                              "fixedMonitorWhite": False, "fixedPrinterWhite": False})

    def test_a_session_that_would_be_black_is_refused(self):
        self.set("printer-profile", rgb_printer(), "intent", "absolute")
        done = self.matched("out.png", "--session", "--monitor", ADOBE_RGB)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"no luminance tag, and every colour would be black", done.stderr)
        write_monitor(self.path("lit.icc"), luminance=100)
        self.assertEqual(self.matched("out.png", "--session", "--monitor", self.path("lit.icc")).returncode, 0)
        self.assertGreater(max(self.read(self.path("out.png")).samples), 200)

    def session_values(self, colours):
        """What a session of the library makes of reference RGB in this process's stead: another host, written in Python."""
        script = """
import ctypes, json, sys
library = ctypes.CDLL(sys.argv[1])
assert library.ICC_RecallRenderingIntent() == 0
assert library.OpenMatching(None, None) == 0
words = json.load(sys.stdin)
source = (ctypes.c_uint16 * len(words))(*words)
target = (ctypes.c_uint16 * len(words))()
assert library.MonitorMatch16(source, target, ctypes.c_size_t(len(words) // 4)) == 0
json.dump(list(target), sys.stdout)
"""
        library = os.path.join(os.path.dirname(os.path.dirname(OrloCommand.ORLO)), "lib", "libcolourmatch.so.2")
        words = [word for colour in colours for word in (*colour, 0)]
        done = subprocess.run([sys.executable, "-c", script, library], input=json.dumps(words).encode(), capture_output=True, check=True)
        values = json.loads(done.stdout)
        return [tuple(values[i:i + 3]) for i in range(0, len(values), 4)]

    def test_colours_are_those_of_a_session(self):
        if OrloCommand.SANITISED:
            self.skipTest("the sanitizers want to be loaded before Python")
        colours = [(r * 9362, g * 9362, b * 9362) for r in range(8) for g in range(8) for b in range(8)]
        write_tiff(self.path("colours.tif"), [[word for colour in colours for word in colour]], 16, 3, profile=bytes_of(reference_profile()))
        self.set("monitor-profile", ADOBE_RGB, "printer-profile", cmyk_printer())
        seen = []
        for pairs in (("intent", "1"), ("quality", "1"), ("flare", "0.1", "contrast", "1.3"), ("a-offset", "4", "b-offset", "-6"),
                      ("quality", "0"), ("monitor-white", "xyz:96,100,90", "use-monitor-white", "on"), ("use-monitor-white", "off", "adapt-to-paper", "on")):
            with self.subTest(pairs):
                self.set(*pairs)
                done = subprocess.run([OrloCommand.ORLO, "match", self.path("colours.tif"), self.path("out.tif"), "--session"], capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                values = self.read(self.path("out.tif")).pixels()
                self.assertTrue(values == self.session_values(colours))
                self.assertFalse(values in seen, "the change made no difference")
                seen.append(values)


if __name__ == "__main__":
    OrloCommand.main()
