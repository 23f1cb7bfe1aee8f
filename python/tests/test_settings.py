"""Settings are those of every other program of the user; changes are heard of."""

import asyncio
import dataclasses
import os
import plistlib
import subprocess
import sys
import threading

import pytest
from truth import ADOBE_RGB, APPLE_RGB, CMYK_PRINTER, LUMINOUS, PROOFER, RGB_PRINTER

from colourmatch import ColourMatchError, ProfileError, settings

CHANGES = {"monitor_profile": APPLE_RGB, "printer_profile": CMYK_PRINTER, "proofer_profile": PROOFER, "use_proofer": True, "quality": 1, "intent": "saturation",
           "flare": 0.25, "contrast": 1.5, "a_offset": 2.0, "b_offset": -3.5, "adapt_to_paper": True, "monitor_white": "xyz:95,100,108",
           "use_monitor_white": True, "printer_white": "name\txyz:90,100,80", "use_printer_white": True, "illuminant": "A", "observer": "10°"}
PATIENCE = 30  # seconds; only against a test that would never end


def in_own_process(store, program, *words, environment=()):
    """Runs a program with the package, whose settings are those of the store."""
    whole = "import sys\nfrom colourmatch import settings, ColourMatchError\n" + program
    return subprocess.run([sys.executable, "-B", "-c", whole, *map(str, words)], check=True, capture_output=True, text=True, timeout=120,
                          env={**os.environ, "XDG_CONFIG_HOME": str(store), **dict(environment)}).stdout


def stored(store):
    (file,) = store.glob("com.brenwick.orlocms/preferences.*.plist")
    return plistlib.loads(file.read_bytes())


class TestInTheStore:
    """This process keeps the folder of its first look."""

    def test_the_names_are_all_tried(self):
        assert [each.name for each in dataclasses.fields(settings.Settings)] == list(CHANGES)

    def test_defaults_stand_where_nothing_is_stored(self, store):
        answer = in_own_process(store, "print(settings.get())")
        assert answer.strip() == repr(settings.Settings(None, None, None, False, 0, "relative", -0.03, 1.0, 0.0, 0.0, False, None, False, None, False, "D65", "2"))

    def test_what_is_set_is_read_by_another_process(self, store):
        in_own_process(store, f"settings.set(**{CHANGES!r})")
        answer = in_own_process(store, "import dataclasses; print(repr(dataclasses.asdict(settings.get())))")
        wanted = {**CHANGES, **{name: os.path.realpath(CHANGES[name]) for name in CHANGES if name.endswith("profile")}}
        assert answer.strip() == repr(wanted)

    def test_what_is_set_stands_under_the_keys(self, store):
        in_own_process(store, f"settings.set(**{CHANGES!r})")
        kept = stored(store)
        assert kept["Matching Quality"] == "Qua1" and kept["Rendering Intent"] == "Rdr2" and kept["Use Proofer Profile"] is True
        assert kept["Viewing Conditions"] == {"Flare": 0.25, "Contrast": 1.5, "A Offset": 2.0, "B Offset": -3.5, "Use Printer": True}
        assert (kept["Monitor Whitepoint"], kept["Use Monitor Whitepoint"]) == ("xyz:95,100,108", True)
        assert (kept["Illuminant"], kept["Observer"]) == ("A", "10°")

    def test_what_is_not_named_stays(self, store):
        in_own_process(store, f"settings.set(**{CHANGES!r})")
        before = stored(store)
        in_own_process(store, "settings.set(contrast=2)")
        in_own_process(store, f"settings.set(printer_profile={RGB_PRINTER!r})")
        in_own_process(store, "settings.set(use_monitor_white=False)")
        after = stored(store)
        assert after.pop("Viewing Conditions") == {**before.pop("Viewing Conditions"), "Contrast": 2.0}
        assert after.pop("Use Monitor Whitepoint") is False and before.pop("Use Monitor Whitepoint")
        assert after.pop("Printer Profile") != before.pop("Printer Profile")
        assert after == before

    def test_none_unsets(self, store):
        in_own_process(store, f"settings.set(**{CHANGES!r})")
        in_own_process(store, "settings.set(monitor_profile=None, printer_profile=None, proofer_profile=None, monitor_white=None, printer_white=None)")
        assert in_own_process(store, "now = settings.get(); print(now.monitor_profile, now.printer_profile, now.proofer_profile, now.monitor_white, "
                              "now.printer_white)").split() == ["None"] * 5

    def test_orlo_reads_and_changes_the_same(self, store, orlo):
        in_own_process(store, f"settings.set(**{CHANGES!r})")
        listed = dict(line.split(None, 1) for line in orlo("settings", "list").splitlines() if line)
        assert (listed["intent"], listed["flare"], listed["adapt-to-paper"], listed["observer"]) == ("saturation", "0.25", "on", "10°")
        orlo("settings", "set", "quality", "2")
        assert in_own_process(store, "print(settings.get().quality)") == "2\n"

    @pytest.mark.parametrize("change, error, words", [
        ({"quality": 3}, ValueError, "quality"), ({"quality": True}, ValueError, "quality"), ({"intent": "Rdr3"}, ValueError, "intent"),
        ({"flare": 1.5}, ValueError, "flare"), ({"contrast": 0}, ValueError, "contrast"), ({"a_offset": float("nan")}, ValueError, "a_offset"),
        ({"b_offset": "1"}, ValueError, "b_offset"), ({"use_proofer": 1}, ValueError, "use_proofer"), ({"monitor_white": "xyz:1,2"}, ValueError, "white"),
        ({"printer_white": 5}, ValueError, "white"), ({"observer": ""}, ValueError, "observer"), ({"illuminant": "x" * 32}, ValueError, "illuminant"),
        ({"colours": 1}, TypeError, "there is no setting colours"), ({"printer_profile": ADOBE_RGB}, ProfileError, "'mntr'"),
        ({"monitor_profile": CMYK_PRINTER}, ProfileError, "is missing"), ({"monitor_profile": "/nonexistent.icc"}, ProfileError, "no such file"),
        ({"monitor_profile": b"bytes"}, TypeError, "path of a file"), ({"intent": "absolute", "monitor_profile": ADOBE_RGB}, ProfileError, "luminance")])
    def test_what_is_not_right_stores_nothing(self, change, error, words):
        before = settings.get()
        with pytest.raises(error, match=words):
            settings.set(**{"contrast": 1.9, **change})
        assert settings.get() == before

    def test_the_absolute_intent_is_for_monitors_with_a_luminance(self, store):
        in_own_process(store, f"settings.set(intent='absolute', monitor_profile={LUMINOUS!r})")
        assert in_own_process(store, f"try:\n    settings.set(monitor_profile={ADOBE_RGB!r})\nexcept ColourMatchError as error:\n    print(error.status)") == "-170\n"

    def test_a_store_that_cannot_be_written_is_told(self, tmp_path):
        blocked = tmp_path / "config"
        blocked.write_text("a file where a folder is expected")
        program = "try:\n    settings.set(contrast=2)\nexcept ColourMatchError as error:\n    print(error.status, error.sentence)"
        assert in_own_process(blocked, program).startswith("-36 the settings cannot be written")


CHANGER = "import sys, time; from colourmatch import settings; settings.set(contrast=float(sys.argv[1]))"


def set_elsewhere(value):
    subprocess.run([sys.executable, "-B", "-c", CHANGER, str(value)], check=True)


class TestWatching:
    """Without a bus: the settings file is watched."""

    def test_a_change_of_ones_own_is_heard_of(self):
        with settings.watch() as watch:
            settings.set(contrast=1.25)
            assert watch.wait(PATIENCE).contrast == 1.25
            assert watch.wait(0.2) is None

    def test_a_change_of_another_process_is_heard_of(self):
        with settings.watch() as watch:
            set_elsewhere(1.75)
            assert watch.wait(PATIENCE).contrast == 1.75
            assert settings.get().contrast == 1.75

    def test_iterating_waits_for_changes_and_ends_with_the_watch(self):
        values = [1.1, 1.2, 1.3]
        with settings.watch() as watch:
            settings.set(contrast=values[0])
            heard = []
            for now in watch:
                heard.append(now.contrast)
                if len(heard) == len(values):
                    watch.close()
                else:
                    settings.set(contrast=values[len(heard)])
        assert heard == values and watch.closed and watch.wait() is None

    def test_asyncio_waits_for_changes(self):
        async def work():
            heard, other = [], []

            async def meanwhile():
                settings.set(contrast=2.25)
                await asyncio.sleep(0)
                other.append(True)

            with settings.watch() as watch:
                task = asyncio.create_task(meanwhile())
                async for now in watch:
                    heard.append(now.contrast)
                    break
                await task
                watch.close()
                async for now in watch:
                    heard.append("after the end")
            return heard, other

        assert asyncio.run(asyncio.wait_for(work(), PATIENCE)) == ([2.25], [True])

    def test_every_watch_hears_of_every_change(self):
        first, second = [], []
        with settings.watch(first.append), settings.watch(second.append), settings.watch() as third:
            settings.set(contrast=2.5)
            assert third.wait(PATIENCE).contrast == 2.5
        assert [now.contrast for now in first] == [now.contrast for now in second] == [2.5]
        settings.set(contrast=2.6)
        with settings.watch() as later:
            later.wait(0.2)
        assert len(first) == 1

    def test_a_callback_may_ask_and_change_settings_and_end_its_watch(self):
        heard = []

        def changed(now):
            heard.append((now.contrast, settings.get().contrast))
            if now.contrast < 3:
                settings.set(contrast=3)
            else:
                own.close()

        own = settings.watch(changed)
        with settings.watch() as other:
            settings.set(contrast=2.75)
            while not own.closed:
                assert other.wait(PATIENCE)
        assert heard == [(2.75, 2.75), (3, 3)]

    def test_what_a_callback_raises_reaches_who_turns_the_loop(self):
        def fails(now):
            raise KeyError("of the callback")

        with settings.watch(fails), settings.watch() as watch:
            settings.set(contrast=1.4)
            with pytest.raises(KeyError, match="of the callback"):
                while watch.wait(PATIENCE):
                    pass

    def test_several_threads_may_ask_while_one_watches(self):
        errors, ends = [], threading.Event()

        def ask():
            try:
                while not ends.is_set():
                    settings.get()
            except Exception as error:  # whatever it is, the test is to see it
                errors.append(error)

        threads = [threading.Thread(target=ask) for _ in range(2)]
        for thread in threads:
            thread.start()
        with settings.watch() as watch:
            for value in (1.01, 1.02, 1.03):
                settings.set(contrast=value)
                assert watch.wait(PATIENCE).contrast == value
        ends.set()
        for thread in threads:
            thread.join()
        assert not errors

    def test_a_change_whose_profiles_are_refused_is_heard_of(self, store, tmp_path):
        # The library rebuilds nothing then, and tells nobody.
        program = ("import os\nwatch = settings.watch()\nwatch.wait(0.3)\nsettings.set(printer_profile=sys.argv[1], monitor_profile=sys.argv[2])\nwatch.wait(10)\n"
                   "with open(sys.argv[2], 'wb') as file:\n    file.write(b'no profile any more')\n"
                   "settings.set(contrast=1.5)\nprint(watch.wait(30).contrast)\n")
        monitor = tmp_path / "monitor.icc"
        with open(ADOBE_RGB, "rb") as file:
            monitor.write_bytes(file.read())
        assert in_own_process(store, program, CMYK_PRINTER, monitor) == "1.5\n"

    def test_neither_bus_nor_folder_is_told(self, tmp_path):
        blocked = tmp_path / "config"
        blocked.write_text("a file where a folder is expected")
        program = "try:\n    settings.watch()\nexcept ColourMatchError as error:\n    print(error.status, error.sentence)"
        assert in_own_process(blocked, program).startswith("-1 changes cannot be heard of")

    def test_changes_travel_over_a_bus(self, store):
        program = ("import subprocess\nwith settings.watch() as watch:\n    settings.set(contrast=1.5)\n    assert watch.wait(30).contrast == 1.5\n"
                   "    subprocess.run([sys.executable, '-B', '-c', sys.argv[1], '1.6'], check=True)\n    print(watch.wait(30).contrast)\n")
        done = subprocess.run(["dbus-run-session", sys.executable, "-B", "-c", "import sys\nfrom colourmatch import settings\n" + program, CHANGER],
                              check=True, capture_output=True, text=True, timeout=120, env={**os.environ, "XDG_CONFIG_HOME": str(store)})
        assert done.stdout == "1.6\n"


def test_errors_of_settings_are_the_packages():
    assert issubclass(ProfileError, ColourMatchError)
