"""Downloads by the MP4 filter from servers of this test."""

import atexit
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import download_cases

CLIENT = os.environ["VEX_PROGRAM_DOWNLOAD_CLIENT"]
ROUNDS = int(os.environ.get("VEX_DOWNLOAD_ROUNDS", "1000"))
TIMEOUT = 1500  # far beyond what anything takes, also under a sanitizer

DIRECTORY = pathlib.Path(tempfile.mkdtemp(prefix="vex-download-"))
atexit.register(shutil.rmtree, DIRECTORY, ignore_errors=True)


def environment(**more):
    """Without proxies, and with a directory for temporary files that nothing else uses."""
    plain = {key: value for key, value in os.environ.items() if not key.lower().endswith("_proxy")}
    (DIRECTORY / "temp").mkdir(exist_ok=True)
    return {**plain, "TMPDIR": str(DIRECTORY / "temp"), **more}


def run(*words, environment_more=None):
    done = subprocess.run([CLIENT, *words], env=environment(**(environment_more or {})), cwd=DIRECTORY, timeout=TIMEOUT,
                          capture_output=True, check=False)
    download_cases.require(done.returncode == 0, f"status {done.returncode}: {done.stderr.decode('utf-8', 'replace')}")
    left = os.listdir(DIRECTORY / "temp")
    download_cases.require(not left, f"left behind: {left}")
    return done.stdout.decode("utf-8")


def start(*words):
    return subprocess.Popen([CLIENT, *words], env=environment(), cwd=DIRECTORY, stdout=subprocess.PIPE)


class Download(unittest.TestCase):
    pass


def add_tests():
    film = DIRECTORY / "film.mp4"
    run("make", str(film))
    downloads = download_cases.Downloads(run, start, film)
    for name, test in downloads.all(ROUNDS):
        setattr(Download, "test_" + name, lambda self, test=test: test())


add_tests()

if __name__ == "__main__":
    unittest.main()
