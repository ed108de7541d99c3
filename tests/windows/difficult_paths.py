"""File names that are hard to pass on, and files that somebody else has open."""

import json
import shutil
import subprocess
from contextlib import contextmanager

from formats import must_succeed, require

OPENS, REFUSED = "opens", "is refused"
LONGEST = 259  # characters of a path


class Cases:
    """Copies of one file under difficult names, each beside decoys where a mangled name would lead."""

    def __init__(self, context, file, decoy):
        self.context = context
        self.place = context.wine.drive / "paths"
        self.place.mkdir()
        self.file, self.decoy = context.wine.drive / file, context.wine.drive / decoy
        self.rows = []
        (_, self.wanted), (_, other) = self.load([f"C:\\vex\\{file}", f"C:\\vex\\{decoy}"])
        require(self.wanted and other and self.wanted != other, "the decoy has the same samples as the file")

    def load(self, paths):
        """(the line of a file, digests of all its samples) for each path, all in one process."""
        words = [word for path in paths for word in (self.context.built["avi"], path)]
        said = must_succeed(self.context.graph("samples", "own", *words), "difficult paths").stdout.decode("utf-8")
        loads = []
        for row in map(json.loads, said.splitlines()):
            if "file" in row:
                loads.append((row, []))
            else:
                loads[-1][1].append(row["md5"])
        require(len(loads) == len(paths), f"{len(loads)} of {len(paths)} paths were tried")
        return loads

    def copy(self, source, *parts):
        target = self.place.joinpath(*parts)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)

    def add(self, expected, situation, *parts, prefix=""):
        self.rows.append((expected, situation, prefix + "\\".join(("C:\\vex\\paths", *parts))))

    def add_copy(self, expected, situation, *parts):
        self.copy(self.file, *parts)
        self.add(expected, situation, *parts)

    def check(self):
        """Loads what was added, in one process; a line for each."""
        rows, self.rows = self.rows, []
        notes = []
        for (expected, situation, _), (said, samples) in zip(rows, self.load([path for *_, path in rows])):
            opened = said["result"] == "S_OK"
            require(expected == (OPENS if opened else REFUSED), f"{situation}: Load says {said['result']}")
            if opened:
                require(samples == self.wanted, f"{situation}: another file was played")
            else:
                require(said["result"] == "E_FAIL" and said["told"],
                        f"{situation}: {said['result']}, told: {said['told']}")
            notes.append(f"{situation}: {OPENS if opened else REFUSED}")
        return notes

    @contextmanager
    def held(self, how, path):
        """Another process has the file open for writing."""
        process = self.context.wine.start("graph_test.exe", "hold", how, path, stdin=subprocess.PIPE,
                                          output=subprocess.PIPE, errors=subprocess.DEVNULL)
        require(process.stdout.readline() == b"held\n", "the writing process did not open the file")
        yield
        require(process.communicate(timeout=self.context.wine.timeout)[0] == b"released\n", "the file stays open")


def check(context, file, decoy):
    cases = Cases(context, file, decoy)
    cases.add_copy(OPENS, "a name in Japanese, Greek and an emoji",
                   "\u65e5\u672c\u8a9e \u0395\u03bb\u03bb\u03b1\u03c2 \U0001f39e.avi")
    # U+0100 has "A" as its best fit in Western code pages.
    cases.copy(cases.decoy, "A.avi")
    cases.add_copy(OPENS, "a letter that the code page would replace by its best fit", "\u0100.avi")
    cases.add(REFUSED, "a wide name that is not there, beside its best fit", "\u0102.avi")
    cases.add_copy(OPENS, "a directory that the code page lacks", "\u0416\u03a9", "plain.avi")
    # Far below the system's 260 characters, and beyond as many bytes in UTF-8.
    cases.add_copy(OPENS, "a path of many letters that the code page lacks", "\u65e5" * 60, "\u672c" * 60)
    cases.add(REFUSED, "a file that is not there", "missing.avi")
    cases.add(REFUSED, "a directory", "\u0416\u03a9")
    cases.copy("/dev/null", "empty.avi")
    cases.add(REFUSED, "an empty file", "empty.avi")

    above = "d" * 40
    name = "f" * 220 + ".avi"
    start = len("\\".join(("C:\\vex\\paths", above, "")))
    cases.add_copy(OPENS, "the longest path", "e" * 40, name[:LONGEST - start])
    # Beside files at the places where a buffer would cut a longer one.
    for length in range(LONGEST - 2, LONGEST + 4):
        cases.copy(cases.decoy, above, name[:length - start])
    cases.copy(cases.file, above, name)
    for prefix, form in (("", ""), ("\\\\?\\", ", in the system's long form")):
        cases.add(REFUSED, "a path of more than 259 characters" + form, above, name, prefix=prefix)

    cases.copy(cases.file, "held.avi")
    notes = cases.check()
    for how, expected in (("shared", OPENS), ("alone", REFUSED)):
        with cases.held(how, r"C:\vex\paths\held.avi"):
            cases.add(expected, f"a file that another process has open for writing, {how}", "held.avi")
            notes += cases.check()
    cases.add(OPENS, "the same file once it was closed", "held.avi")
    return "\n".join(notes + cases.check())
