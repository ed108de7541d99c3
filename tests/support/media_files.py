"""The formats of the tree and media files made with ffmpeg, for scripts and tests.

What is special about a format is in tests/<format>/media.py, which has

    EXTENSION   of a usual file
    LARGE       what ffmpeg is told to make an eight-second file that can be repeated without being encoded again
    SMALL       {name: what ffmpeg is told to make a small file of that name}, for the Windows tests

and further upper-case names for those that look for them.
"""

import pathlib
import runpy
import subprocess
import sys
from typing import NamedTuple

TOP = pathlib.Path(__file__).resolve().parents[2]
# The media.py of a format imports this module.
sys.modules.setdefault("media_files", sys.modules[__name__])


class Format(NamedTuple):
    name: str  # of its folders, and of the filter in `vex filters`
    extension: str
    large: list
    small: dict
    more: dict  # the further names and what they stand for


def video(seconds=3, size="160x120", rate=25):
    return ["-f", "lavfi", "-i", f"testsrc2=size={size}:rate={rate}:duration={seconds}"]


def noise(seconds=8, size="1280x720"):
    """Pictures that cost as many bits as the bit rate allows."""
    return ["-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25:duration={seconds},noise=alls=20:allf=t"]


def tone(seconds=3, frequency=440, rate=44100):
    return ["-f", "lavfi", "-i", f"sine=frequency={frequency}:sample_rate={rate}:duration={seconds}"]


def make(path, *arguments):
    """Runs ffmpeg; returns the path."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *map(str, arguments), "-bitexact", str(path)],
                   check=True, timeout=3600, stdin=subprocess.DEVNULL)
    return path


def make_large(path, megabytes, arguments):
    """A file of at least so many megabytes out of a short one, repeated without being encoded again."""
    seed = make(path.with_name("seed-" + path.name), *arguments)
    partial = path.with_name("part-" + path.name)
    make(partial, "-stream_loop", megabytes * 1000000 // seed.stat().st_size + 1, "-i", seed, "-map", "0", "-c", "copy")
    seed.unlink()
    return partial.rename(path)


def formats():
    """Those that have tests, by name."""
    found = {}
    for file in sorted(TOP.glob("tests/*/media.py")):
        row = runpy.run_path(str(file))
        name = file.parent.name
        more = {key: value for key, value in row.items() if key.isupper()}
        found[name] = Format(name, more.pop("EXTENSION"), more.pop("LARGE"), more.pop("SMALL"), more)
    return found
