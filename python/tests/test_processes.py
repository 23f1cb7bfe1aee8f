"""Threads, forks, new processes and pickles."""

import copy
import multiprocessing
import os
import pickle
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from truth import ADOBE_RGB, APPLE_RGB, CMYK_PRINTER, RGB_PRINTER

from colourmatch import Matcher, ViewingConditions, _records

REFERENCE = np.random.default_rng(3).integers(0, 65536, (20000, 3), np.uint16)


def proof(matcher):
    return matcher.proof(REFERENCE).tobytes()


def matchers():
    return [Matcher(ADOBE_RGB, CMYK_PRINTER), Matcher(ADOBE_RGB, RGB_PRINTER, quality=0), Matcher(APPLE_RGB, CMYK_PRINTER, conditions=ViewingConditions())]


def run_threads(count, work):
    errors = []

    def guarded(index):
        try:
            work(index)
        except BaseException as error:  # whatever it is, the test is to see it
            errors.append(error)

    threads = [threading.Thread(target=guarded, args=(index,)) for index in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not errors, errors


def test_threads_share_a_matcher():
    matcher = Matcher(ADOBE_RGB, CMYK_PRINTER)
    wanted, answers = proof(matcher), [b""] * 4
    run_threads(4, lambda i: answers.__setitem__(i, proof(matcher)))
    assert answers == [wanted] * 4


def test_threads_make_matchers_at_once():
    wanted, answers = [proof(matcher) for matcher in matchers()], [[]] * 6
    _records._records.clear()
    run_threads(6, lambda i: answers.__setitem__(i, [proof(matcher) for matcher in matchers()]))
    assert answers == [wanted] * 6


def test_the_interpreter_goes_on_while_colours_are_converted():
    matcher, reference = Matcher(ADOBE_RGB, CMYK_PRINTER), np.resize(REFERENCE, (1 << 22, 3))
    begins, ends, rounds = threading.Event(), threading.Event(), 0

    def work():
        begins.set()
        matcher.proof(reference)
        ends.set()

    thread = threading.Thread(target=work)
    thread.start()
    begins.wait()
    # Were the interpreter held, nothing would go round here from the call's beginning to its end.
    while not ends.is_set():
        time.sleep(0.0005)
        rounds += 1
    thread.join()
    assert rounds > 3


def test_equal_matchers_share_one_record():
    first, second = Matcher(ADOBE_RGB, CMYK_PRINTER), Matcher(ADOBE_RGB, CMYK_PRINTER)
    assert first._record is second._record
    assert pickle.loads(pickle.dumps(first))._record is first._record
    assert copy.deepcopy(first)._record is first._record
    assert Matcher(ADOBE_RGB, CMYK_PRINTER, quality=0)._record is not first._record


def test_only_so_many_records_are_kept():
    for flare in range(2 * _records._KEPT_RECORDS):
        Matcher(ADOBE_RGB, conditions=ViewingConditions(flare=flare / 100))
    assert len(_records._records) == _records._KEPT_RECORDS


@pytest.mark.parametrize("protocol", range(2, pickle.HIGHEST_PROTOCOL + 1))
def test_a_pickle_holds_the_content(protocol, tmp_path):
    path = tmp_path / "monitor.icc"
    with open(ADOBE_RGB, "rb") as file:
        path.write_bytes(file.read())
    matcher = Matcher(path, CMYK_PRINTER, conditions=ViewingConditions(contrast=1.1), monitor_white=(0.9, 1, 0.8), quality=1)
    pickled, wanted = pickle.dumps(matcher, protocol), proof(matcher)
    path.unlink()
    _records._records.clear()
    again = pickle.loads(pickled)
    assert again == matcher and again._record is not matcher._record
    assert proof(again) == wanted


@pytest.mark.parametrize("method", ["fork", "spawn", "forkserver"])
def test_processes_of_a_pool_answer_the_same(method):
    with multiprocessing.get_context(method).Pool(2) as pool:
        assert pool.map(proof, matchers() * 2) == [proof(matcher) for matcher in matchers()] * 2


def in_child(work):
    """Runs it in a fork; whether it succeeded in time."""
    child = os.fork()
    if child == 0:
        signal.alarm(60)  # only against a child that would never end
        code = 1
        try:
            code = 0 if work() else 1
        finally:
            os._exit(code)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0


def test_forks_while_threads_make_matchers():
    profiles = [ADOBE_RGB, APPLE_RGB]
    wanted = [proof(Matcher(profile, CMYK_PRINTER)) for profile in profiles]
    stop = threading.Event()

    def make(index):
        while not stop.is_set():
            _records._records.clear()
            Matcher(profiles[index % 2], CMYK_PRINTER).match(REFERENCE[:100])

    threads = [threading.Thread(target=make, args=(index,)) for index in range(2)]
    for thread in threads:
        thread.start()
    try:
        for turn in range(20):
            profile = profiles[turn % 2]
            assert in_child(lambda: proof(Matcher(profile, CMYK_PRINTER)) == wanted[turn % 2])
    finally:
        stop.set()
        for thread in threads:
            thread.join()


def test_a_child_may_read_and_change_settings(store):
    program = ("import os, signal, threading\nfrom colourmatch import settings\nwatch = settings.watch()\nwatch.wait(0)\n"
               "child = os.fork()\nif child == 0:\n    signal.alarm(60)\n    settings.set(contrast=1.5)\n    os._exit(0 if settings.get().contrast == 1.5 else 1)\n"
               "assert os.waitpid(child, 0)[1] == 0\nassert settings.get().contrast == 1.5\n")
    subprocess.run([sys.executable, "-B", "-c", program], check=True, env={**os.environ, "XDG_CONFIG_HOME": str(store)})
