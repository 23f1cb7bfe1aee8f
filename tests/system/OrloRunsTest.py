#!/usr/bin/env python3
"""How orlo goes about its work: large images, replacing files, interruptions, a full disk, the progress bar."""

import json
import os
import pty
import resource
import shutil
import signal
import subprocess
import time

import OrloCommand
from OrloCommand import OrloCase, bytes_of, photograph
from OrloImages import run_tool, write_png

SMALL = [[(x * 5 + c * 50) % 256 for x in range(200) for c in range(3)]] * 100


class LargeImages(OrloCase):
    WIDTH, HEIGHT = 6000, 6000

    def large_image(self, name):
        """A photograph many times over."""
        run_tool("vips", "replicate", photograph("coffee.png"), self.path("tile.v"), "10", "15")
        run_tool("vips", "crop", self.path("tile.v"), self.path(name), "0", "0", self.WIDTH, self.HEIGHT)
        os.remove(self.path("tile.v"))
        return self.path(name)

    def peak_memory(self, *arguments):
        """Bytes that the process had resident at most."""
        process = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        message = process.stderr.read()
        process.stderr.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual((process.returncode, message), (0, b""))
        return usage.ru_maxrss * 1024

    def test_an_image_is_never_held_as_a_whole(self):
        if OrloCommand.SANITISED:
            self.skipTest("instrumented code is too slow, and its memory says nothing")
        small = self.path("small.png")
        write_png(small, SMALL, 8, 3)
        for kind in ("png", "tif", "jpg"):
            with self.subTest(kind):
                source = self.large_image("large." + kind)
                target = self.path("out." + kind)
                used = self.peak_memory(*self.arguments("match", source, target, "--quality=1"))
                base = self.peak_memory(*self.arguments("match", small, self.path("small-out.png"), "--quality=1"))
                decoded = self.WIDTH * self.HEIGHT * 3
                self.assertLess(used - base, decoded / 4, f"{used} bytes against {base} for a small image")
                fields = run_tool("vipsheader", target).decode()
                self.assertIn(f"{self.WIDTH}x{self.HEIGHT} uchar, 3 bands", fields)
                os.remove(source)
                os.remove(target)


class Replacing(OrloCase):
    def setUp(self):
        super().setUp()
        self.source = self.path("in.png")
        write_png(self.source, SMALL, 8, 3)

    def test_the_output_may_be_the_input(self):
        expected = self.run_orlo("match", self.source, "other.png")
        after = self.run_orlo("match", self.source, "in.png")
        self.assertEqual(after.samples, expected.samples)
        self.assertNotEqual(after.samples.tobytes(), bytes(v for row in SMALL for v in row))
        self.assertEqual(sorted(os.listdir(self.folder)), ["in.png", "other.png", "scratch.raw"])

    def test_a_failed_run_leaves_the_target_as_it_was(self):
        cut = self.path("cut.png")
        with open(cut, "wb") as file:
            file.write(bytes_of(photograph("coffee.png"))[:100000])
        for target in (cut, self.source):
            with self.subTest(os.path.basename(target)):
                before = bytes_of(target)
                done = subprocess.run(self.arguments("match", cut, target), capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1))
                self.assertEqual(bytes_of(target), before)
        self.assertEqual(sorted(os.listdir(self.folder)), ["cut.png", "in.png"])

    def test_a_replaced_file_keeps_its_permissions_and_a_new_one_follows_the_mask(self):
        with open(self.path("there.png"), "wb"):
            pass
        os.chmod(self.path("there.png"), 0o640)
        mask = os.umask(0o027)
        try:
            for name in ("there.png", "new.png"):
                self.run_orlo("match", self.source, name)
        finally:
            os.umask(mask)
        self.assertEqual([os.stat(self.path(name)).st_mode & 0o777 for name in ("there.png", "new.png")], [0o640, 0o640])
        os.chmod(self.path("there.png"), 0o604)
        self.run_orlo("match", self.source, "there.png")
        self.assertEqual(os.stat(self.path("there.png")).st_mode & 0o777, 0o604)

    def test_a_symbolic_link_stays_one(self):
        os.mkdir(self.path("folder"))
        with open(self.path("folder/real.png"), "wb"):
            pass
        os.symlink("folder/real.png", self.path("link.png"))
        self.run_orlo("match", self.source, "link.png")
        self.assertTrue(os.path.islink(self.path("link.png")))
        self.assertEqual(self.read(self.path("folder/real.png")).form(), (3, 8, "srgb"))
        self.assertEqual(os.listdir(self.path("folder")), ["real.png"])

    def test_a_link_to_no_file_yet_stays_one_and_the_file_is_made(self):
        os.mkdir(self.path("folder"))
        os.symlink("folder/second.png", self.path("first.png"))
        os.symlink("made.png", self.path("folder/second.png"))
        self.run_orlo("match", self.source, "first.png")
        self.assertEqual(os.readlink(self.path("first.png")), "folder/second.png")
        self.assertEqual(os.readlink(self.path("folder/second.png")), "made.png")
        self.assertEqual(self.read(self.path("folder/made.png")).form(), (3, 8, "srgb"))
        self.assertEqual(sorted(os.listdir(self.path("folder"))), ["made.png", "second.png"])

    def test_no_room_for_the_image(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))

        os.mkdir(self.path("out"))
        for target in ("out.png", "out.tif", "out.jpg"):
            with self.subTest(target):
                path = os.path.join(self.folder, "out", target)
                # The finer copy of a monitor's curves would be the first file without room.
                words = self.arguments("match", photograph("coffee.png"), path, "--plain-curves")
                done = subprocess.run(words, capture_output=True, check=False, preexec_fn=limit)
                self.assertEqual((done.returncode, done.stdout, done.stderr.count(b"\n")), (1, b"", 1), done.stderr)
                self.assertTrue(done.stderr.startswith(f"orlo: {path}: the image cannot be written".encode()), done.stderr)
                self.assertEqual(os.listdir(self.path("out")), [])


class Several(OrloCase):
    def setUp(self):
        super().setUp()
        os.makedirs(self.path("in/deep/er"))
        for name in ("one.png", "two.png", "deep/three.png", "deep/er/four.PNG"):
            write_png(self.path(os.path.join("in", name)), SMALL, 8, 3)
        with open(self.path("in/notes.txt"), "w", encoding="ascii") as file:
            file.write("no picture\n")

    def orlo(self, *arguments, status=0):
        command = [OrloCommand.ORLO, "match", "--monitor", OrloCommand.ADOBE_RGB, "--output-dir", self.path("out"), *arguments]
        done = subprocess.run(command, capture_output=True, check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        return done

    def written(self):
        return sorted(os.path.relpath(os.path.join(folder, name), self.path("out")) for folder, _, names in os.walk(self.path("out")) for name in names)

    def test_files_and_folders(self):
        done = self.orlo(self.path("in"), self.path("in/deep/three.png"))
        self.assertEqual(self.written(), ["one.png", "three.png", "two.png"])
        self.assertEqual((done.stdout.count(b"\n"), done.stderr), (3, b""))
        expected = self.run_orlo("match", self.path("in/one.png"), "single.png")
        self.assertEqual(self.read(self.path("out/one.png")).samples, expected.samples)

    def test_folders_in_folders_and_another_kind(self):
        self.orlo(self.path("in"), "--recursive", "--format", "tiff")
        self.assertEqual(self.written(), ["deep/er/four.tif", "deep/three.tif", "one.tif", "two.tif"])

    def test_a_bad_one_does_not_keep_the_others(self):
        for name in ("broken.png", "zero.png"):
            with open(self.path("in/" + name), "wb") as file:
                file.write(b"\x89PNG\r\n\x1a\n" if name == "broken.png" else b"")
        done = self.orlo(self.path("in"), self.path("missing.png"), "--json", status=1)
        self.assertEqual(self.written(), ["one.png", "two.png"])
        lines = done.stderr.decode().splitlines()
        self.assertEqual(len(lines), 4)
        for line, name in zip(lines, ("broken.png", "zero.png", "missing.png")):
            self.assertIn(name, line)
        self.assertEqual(lines[3], "orlo: match: 3 of 5 pictures could not be done; the lines above tell why")
        told = json.loads(done.stdout)
        self.assertEqual([os.path.basename(result["input"]) for result in told["results"]], ["one.png", "two.png"])
        self.assertEqual([os.path.basename(failure["input"]) for failure in told["failures"]], ["broken.png", "zero.png", "missing.png"])

    def test_no_input_and_no_output_is_replaced(self):
        before = bytes_of(self.path("in/one.png"))
        done = subprocess.run([OrloCommand.ORLO, "match", self.path("in"), "--monitor", OrloCommand.ADOBE_RGB, "--output-dir", self.path("in")],
                              capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr.count(b"it would replace its input")), (1, 2))
        self.assertEqual(bytes_of(self.path("in/one.png")), before)
        done = self.orlo(self.path("in/one.png"), self.path("in/./one.png"), status=1)
        self.assertIn(b"another input was written there already", done.stderr)

    def test_no_input_is_replaced_before_its_turn_by_whatever_name(self):
        light, dark = [[200] * 30] * 4, [[20] * 30] * 4
        for folder in ("first", "second", "out"):
            os.mkdir(self.path(folder))
        write_png(self.path("first/x.png"), light, 8, 3)
        write_png(self.path("second/x.png"), dark, 8, 3)
        os.symlink("../second/x.png", self.path("out/x.png"))
        os.link(self.path("second/x.png"), self.path("out/y.png"))
        write_png(self.path("first/y.png"), light, 8, 3)
        before = bytes_of(self.path("second/x.png"))
        for name, target in (("x.png", "second"), ("x.png", "out"), ("y.png", "out")):
            with self.subTest(f"{name} into {target}"):
                done = subprocess.run([OrloCommand.ORLO, "match", self.path("first/" + name), self.path("second/x.png"), "--monitor",
                                       OrloCommand.ADOBE_RGB, "--output-dir", self.path(target)], capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr.count(b"it would replace another input")), (1, 1), done.stderr)
                self.assertEqual(bytes_of(self.path("second/x.png")), before)
        self.assertTrue(os.path.islink(self.path("out/x.png")))

    def test_no_earlier_output_is_replaced_through_a_link(self):
        os.mkdir(self.path("out"))
        os.symlink("one.png", self.path("out/two.png"))
        done = self.orlo(self.path("in/one.png"), self.path("in/two.png"), status=1)
        self.assertIn(b"two.png: another input was written there already", done.stderr)

    def test_a_folder_for_outputs_among_the_inputs(self):
        self.orlo(self.path("in"), "--recursive")
        expected = self.written()
        shutil.rmtree(self.path("out"))
        target = self.path("in/results")
        command = [OrloCommand.ORLO, "match", "--monitor", OrloCommand.ADOBE_RGB, "--output-dir", target, self.path("in"), "--recursive"]
        subprocess.run(command, capture_output=True, check=True)
        found = sorted(os.path.relpath(os.path.join(folder, name), target) for folder, _, names in os.walk(target) for name in names)
        self.assertEqual(found, expected)
        # What is there now is not taken up, and is not replaced either.
        before = bytes_of(self.path("in/results/one.png"))
        done = subprocess.run(command, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr.count(b"it would replace another input")), (1, 4), done.stderr)
        self.assertEqual(bytes_of(self.path("in/results/one.png")), before)

    def test_a_folder_without_pictures_and_no_folder_for_outputs(self):
        os.mkdir(self.path("empty"))
        self.assertIn(b"there is no picture in it", self.orlo(self.path("empty"), status=3).stderr)
        done = subprocess.run([OrloCommand.ORLO, "match", self.path("in"), self.path("out"), "--recursive", "--monitor", OrloCommand.ADOBE_RGB],
                              capture_output=True, check=False)
        self.assertEqual((done.returncode, b"--output-dir" in done.stderr), (2, True))


    def test_an_empty_folder_does_not_keep_the_others(self):
        os.mkdir(self.path("empty"))
        done = self.orlo(self.path("empty"), self.path("in"), "--json", status=1)
        self.assertEqual(self.written(), ["one.png", "two.png"])
        self.assertEqual(done.stderr.decode().splitlines(), [f"orlo: {self.path('empty')}: there is no picture in it; add --recursive, or name another folder",
                                                             "orlo: match: 1 of 3 pictures could not be done; the lines above tell why"])
        self.assertEqual([failure["input"] for failure in json.loads(done.stdout)["failures"]], [self.path("empty")])

    def test_a_folder_that_cannot_be_made_is_told_as_that(self):
        with open(self.path("file"), "wb"):
            pass
        done = self.orlo(self.path("in"), "--output-dir", self.path("file/out"), status=1)
        self.assertEqual(done.stderr.count(f"orlo: {self.path('file/out')}: the folder cannot be made (Not a directory); name another".encode()), 2, done.stderr)


class Interruptions(OrloCase):
    def test_an_interrupted_run_leaves_nothing(self):
        # Large enough to be caught at work: the pixels are many, their file is small.
        source = self.path("plain.png")
        run_tool("vips", "black", self.path("black.v"), "9000", "6000", "--bands", "3")
        run_tool("vips", "copy", self.path("black.v"), source + "[compression=1]")
        os.mkdir(self.path("out"))
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGPIPE):
            with self.subTest(number.name):
                process = subprocess.Popen(self.arguments("match", source, self.path("out/out.tif"), "--quality=1"), stdout=subprocess.PIPE,
                                           stderr=subprocess.PIPE)
                while not os.listdir(self.path("out")) and process.poll() is None:
                    time.sleep(0.01)
                self.assertIsNone(process.poll(), "it was over before it could be interrupted")
                self.assertNotIn("out.tif", os.listdir(self.path("out")))
                process.send_signal(number)
                out, message = process.communicate()
                self.assertEqual((process.returncode, out, message), (-number, b"", b""))
                self.assertEqual(os.listdir(self.path("out")), [])


    def test_what_will_replace_a_closed_file_is_closed_meanwhile(self):
        run_tool("vips", "black", self.path("black.v"), "9000", "6000", "--bands", "3")
        source = self.path("plain.png")
        run_tool("vips", "copy", self.path("black.v"), source + "[compression=1]")
        os.mkdir(self.path("out"))
        with open(self.path("out/out.tif"), "wb"):
            pass
        os.chmod(self.path("out/out.tif"), 0o600)
        os.mkdir(self.path("temporary"))
        process = subprocess.Popen([OrloCommand.ORLO, "match", source, self.path("out/out.tif"), "--monitor", OrloCommand.APPLE_RGB],
                                   stdout=subprocess.DEVNULL, env={**os.environ, "TMPDIR": self.path("temporary")})
        while len(os.listdir(self.path("out"))) < 2 and process.poll() is None:
            time.sleep(0.01)
        (temporary,) = [name for name in os.listdir(self.path("out")) if name != "out.tif"]
        mode = os.stat(self.path("out/" + temporary)).st_mode
        process.terminate()
        process.wait()
        self.assertEqual(mode & 0o777, 0o600)
        self.assertEqual(os.listdir(self.path("temporary")), [])

    def test_a_signal_while_profiles_are_loaded_leaves_nothing(self):
        write_png(self.path("in.png"), SMALL, 8, 3)
        os.mkdir(self.path("temporary"))
        caught = 0
        end = time.monotonic() + OrloCommand.PATIENCE
        while caught < 5 and time.monotonic() < end:
            process = subprocess.Popen(self.arguments("proof", self.path("in.png"), self.path("out.png")), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                       env={**os.environ, "TMPDIR": self.path("temporary")})
            while not os.listdir(self.path("temporary")) and process.poll() is None:
                pass
            process.terminate()
            caught += process.wait() == -signal.SIGTERM
            self.assertEqual(os.listdir(self.path("temporary")), [])
        self.assertEqual(caught, 5)

    def test_a_folder_for_temporary_files_that_is_not_there(self):
        write_png(self.path("in.png"), SMALL, 8, 3)
        words = self.arguments("match", self.path("in.png"), self.path("out.png"))
        done = subprocess.run(words, capture_output=True, check=False, cwd=self.folder, env={**os.environ, "TMPDIR": "/nonexistent"})
        self.assertEqual((done.returncode, done.stderr.startswith(b"orlo: TMPDIR: ")), (1, True), done.stderr)
        self.assertEqual(os.listdir(self.folder), ["in.png"])


class Progress(OrloCase):
    def test_a_bar_on_a_terminal_only(self):
        arguments = self.arguments("match", photograph("coffee.png"), self.path("out.png"))
        self.assertEqual(subprocess.run(arguments, capture_output=True, check=True).stderr, b"")

        ours, theirs = pty.openpty()
        process = subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=theirs)
        os.close(theirs)
        shown = b""
        while True:
            try:
                piece = os.read(ours, 4096)
            except OSError:  # how a terminal says that the other side is closed
                break
            if not piece:
                break
            shown += piece
        os.close(ours)
        summary, _ = process.communicate()
        self.assertEqual(process.returncode, 0)
        self.assertRegex(shown, rb"\d+ %  [0-9.]+ Mpixel/s  0:\d\d left")
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown[-40:])
        self.assertEqual(summary.count(b"\n"), 1)


if __name__ == "__main__":
    OrloCommand.main()
