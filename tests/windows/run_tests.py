#!/usr/bin/env python3
"""Runs the Windows programs of one or two builds under Wine and compares what they say with the native command.

scripts/test-windows builds everything and calls this; it needs no display and touches nothing outside its own temporary
directory. A line per test on stdout, the reasons of failures below it; exit status 0 when all passed.
"""

import argparse
import concurrent.futures
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path
from typing import NamedTuple

import decoded
import difficult_paths
import registration
sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "download"))
import download_cases  # noqa: E402  (found through the line above)
import large_files
import seeks
from formats import DECOY, FORMATS, SECOND_FILTERS, Failure, make_file, must_succeed, output_of, require
from wine import Wine, end

SAMPLE_KEYS = ("pin", "start", "stop", "mediaStart", "mediaStop", "size", "sync", "discontinuity", "preroll", "md5")
EXPORTS = {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"}
# What every Windows since 7 brings along and the module may lean on.
SYSTEM_LIBRARIES = {"advapi32.dll", "gdi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll",
                    "quartz.dll", "shell32.dll", "user32.dll", "wininet.dll", "version.dll", "shlwapi.dll"}
# What the compiler's runtime takes and never gives back, unless src/platform/windows/runtime_locks.cpp is linked in.
KEPT_FOR_EVER = {"CreateSemaphoreA", "CreateSemaphoreW", "TlsAlloc"}
SUITES = ("platform_test.exe", "framework_test.exe")


# ---- comparing ------------------------------------------------------------------------------------------------------

def dump_lines(text, who):
    """The sample objects of a dump, by pin, in the order of arrival at each pin."""
    return graph_lines(b'{"file":0}\n' + text, who)[0]


def graph_lines(text, who):
    """The same of graph_test, which plays several files: one such dictionary for each."""
    files = []
    for line in text.decode("utf-8").splitlines():
        row = json.loads(line)
        if "file" in row and "pin" not in row:
            require(row.get("result", "S_OK") == "S_OK", f"{who} says of file {len(files)}: {row.get('result')}")
            files.append({})
        if "pin" not in row or "start" not in row:
            continue
        missing = [key for key in SAMPLE_KEYS if key not in row]
        require(not missing, f"{who} says no {missing} of a sample: {line}")
        files[-1].setdefault(row["pin"], []).append({key: row[key] for key in SAMPLE_KEYS})
    require(all(files), f"{who} lists no samples")
    return files


def same_samples(graph, native):
    require(set(graph) == set(native), f"pins of the graph {sorted(graph)}, of the native dump {sorted(native)}")
    for pin, expected in native.items():
        got = graph[pin]
        for index, (ours, theirs) in enumerate(zip(got, expected)):
            require(ours == theirs, f'pin {pin}, sample {index}:\n  graph  {ours}\n  native {theirs}')
        require(len(got) == len(expected), f'pin {pin}: {len(got)} samples in the graph, {len(expected)} natively')
    return sum(map(len, native.values()))


def native_dump(context, path):
    return output_of(f"the native dump of {path.name}", context.native, "dump", "--json", path)


# ---- tests ----------------------------------------------------------------------------------------------------------

class Context:
    """What the tests of one word size work with."""

    def __init__(self, arguments, bits, wine, built):
        self.bits = bits
        self.wine = wine
        self.native = arguments.native
        self.sample = Path(arguments.sample)
        self.rounds = arguments.rounds
        self.built = built  # class identifiers of the filters that the build has, by short name
        self.formats = [one for one in FORMATS if one.name in built]

    def graph(self, mode, *arguments, access="VEX.ax", timeout=None):
        return self.client("graph_test.exe", access, mode, *arguments, timeout=timeout)

    def client(self, program, *arguments, timeout=None):
        """One of the programs of tests/windows, which must come to its end.

        When Wine's server crashes, every program ends with the status 0 and without its last word. Such a run is made
        again, twice at most. After a crash of its own the status may be 0 as well, but Wine's debugger has said so.
        """
        for _ in range(3):
            result = self.wine.run(program, *arguments, timeout=timeout)
            crash = result.stderr.rfind(b"wine: Unhandled")
            require(crash < 0, f"{program} crashed: " +
                    (result.stderr[crash:] + result.stdout).decode("utf-8", "replace")[:3000])
            if result.returncode != 0 or result.stderr.split()[-1:] == [b"done"]:
                break
            print(f"      {program} was ended by Wine: {result.stderr[-300:]!r}", flush=True)
        else:
            raise Failure(f"{program} ended on the way")
        return result

    def inputs(self, most=None):
        """(short name, file name) of every input, or of so many of each format."""
        return [(one.name, file.name) for one in self.formats for file in one.files[:most]]

    def files(self, most=None):
        """The same as arguments of graph_test."""
        return [word for name, file in self.inputs(most) for word in (self.built[name], "C:\\vex\\" + file)]


def native_filters(native):
    """(short names of all filters that can be created: their class identifiers, and the file extensions of all)."""
    said = output_of("vex filters", native, "filters", "--json")
    return {one["short"]: one["clsid"] for one in json.loads(said)["filters"] if one["available"]}


def test_rows(built):
    """A format that lands without a row here would not be tested at all."""
    lacking = set(built) - {one.name for one in FORMATS} - SECOND_FILTERS
    require(not lacking, f"tests/windows/formats.py has no row for {', '.join(sorted(lacking))}")
    return f"rows for {', '.join(sorted(built))}"


def check_binary(path, objdump):
    """Exports and dependencies of a module file, whatever machine it is for."""
    text = output_of("objdump", objdump, "-p", path).decode("utf-8", "replace")
    table = text.split("[Ordinal/Name Pointer] Table", 1)
    require(len(table) == 2, f"{path} exports nothing")
    names = set()
    for line in table[1].splitlines()[1:]:
        words = line.split()
        if not words or not words[0].startswith("["):
            break
        names.add(words[-1])
    require(names == EXPORTS, f"{path} exports {sorted(names)}")
    libraries = {line.split()[-1].lower() for line in text.splitlines() if "DLL Name:" in line}
    foreign = libraries - SYSTEM_LIBRARIES
    require(not foreign, f"{path} needs {sorted(foreign)}, which Windows does not bring along")
    kept = {word for line in text.splitlines() for word in line.split()[-1:]} & KEPT_FOR_EVER
    require(not kept, f"{path} imports {sorted(kept)}: the runtime's own locks are linked in")
    return f"exports {len(names)}, needs {', '.join(sorted(libraries))}"


def test_suite(context, program):
    """The native suite of a layer that the Windows build implements itself, or whose threads run on that layer."""
    said = must_succeed(context.wine.run(program), program).stdout.decode("utf-8", "replace").splitlines()
    require(said and "PASSED" in said[-1], f"{program} ends with {said[-1:]}")
    return said[-1].strip()


def last_line(result):
    """The last that graph_test said before it was done."""
    return result.stderr.decode("utf-8").strip().splitlines()[-2]


def test_samples(context, access, kind):
    """Every sample of every input, in the graph and natively."""
    result = must_succeed(context.graph("samples", kind, *context.files(), access=access),
                          f"playing through {access} into {kind} sinks")
    played = graph_lines(result.stdout, "graph_test")
    require(len(played) == len(context.inputs()), f"{len(played)} files were played")
    count = 0
    for (_, file), samples in zip(context.inputs(), played):
        native = dump_lines(native_dump(context, context.wine.drive / file), "the native dump")
        try:
            count += same_samples(samples, native)
        except Failure as failure:
            raise Failure(f"{file}: {failure}") from None
    return f"{count} samples of {len(played)} files equal; {last_line(result)} of the last"


def test_rounds(context, kind):
    """What follows the seeks in the graph against what follows them natively. With a grabber one file of a format will
    do: its graph has to wait for the clock."""
    most = None if kind == "own" else 1
    result = must_succeed(context.graph("rounds", kind, str(context.rounds), *context.files(most), access="registered",
                                        timeout=context.wine.timeout * 4), f"{context.rounds} rounds")
    played = seeks.of_graph(map(json.loads, result.stdout.splitlines()))
    for number, (_, file) in enumerate(context.inputs(most)):
        ours = played[number]
        require(len(ours) == 2, f"{file}: {len(ours)} seeks")
        # A file without an index is known in whole once it was played in whole, as it was in the graph.
        native = seeks.of_native(context, context.wine.drive / file, (0, *ours), "--samples", "100000")[1:]
        for (target, pins), expected in zip(ours.items(), native, strict=True):
            seeks.compare(f"{file}, seek to {target}", pins, expected)
    return last_line(result)


def test_reload(context):
    result = context.graph("reload", str(context.rounds), *context.files())
    return last_line(must_succeed(result, "loading and unloading"))


def test_decoded(context, name, row):
    return decoded.check(context, context.built[name], row, context.wine.drive / row.file.name)


def test_command(context, file, name, *arguments):
    """The same command line, natively and under Wine, in directories that hold the same file."""
    outcomes = []
    with tempfile.TemporaryDirectory(dir=context.wine.drive) as place:
        for where in ("native", "windows"):
            output = Path(place) / where
            output.mkdir()
            shutil.copy(file, output)
            if where == "native":
                result = subprocess.run([context.native, name, *arguments], cwd=output, capture_output=True,
                                        timeout=600, stdin=subprocess.DEVNULL, check=False)
            else:
                result = context.wine.run(context.wine.drive / "vex.exe", name, *arguments, directory=output)
            written = {str(path.relative_to(output)): path.read_bytes()
                       for path in sorted(output.rglob("*")) if path.is_file()}
            outcomes.append((result.returncode, result.stdout, result.stderr, written))
    # A path that is told is the system's own.
    outcomes[1] = (*outcomes[1][:1], outcomes[1][1].replace(b"streams\\", b"streams/"), *outcomes[1][2:])
    (status, text, _, files), (their_status, their_text, their_errors, their_files) = outcomes
    require(their_status == status,
            f"exit status {their_status} instead of {status}: {their_errors.decode('utf-8')[-500:]}")
    if their_text != text:
        if their_text.replace(b"\r\n", b"\n") == text:
            raise Failure("the same text, but with CR LF line ends: stdout is not in binary mode")
        lines, their_lines = text.splitlines(), their_text.splitlines()
        at = next((i for i, (a, b) in enumerate(zip(lines, their_lines)) if a != b), min(len(lines), len(their_lines)))
        raise Failure(f"output differs at line {at + 1}:\n  native  {lines[at:at + 1]}\n"
                      f"  windows {their_lines[at:at + 1]}")
    require(set(files) == set(their_files), f"wrote {sorted(their_files)} instead of {sorted(files)}")
    for file, data in files.items():
        require(their_files[file] == data, f"{file} differs")
    require(text or len(files) > 1 or status != 0, "says and writes nothing")
    return f"{len(text)} bytes of output equal, {len(files) - 1} files written, exit status {status}"


def test_unicode_name(context):
    """A name that no code page has, on the command line and in the output."""
    with tempfile.TemporaryDirectory() as place:
        file = Path(place) / "Пример \u65e5\u672c \U0001f3ac.avi"
        shutil.copy(context.sample, file)
        return test_command(context, file, "probe", "--json", file.name)


# More output than a pipe holds.
MUCH_OUTPUT = ("extract", "raw_pcm.avi", "--pin", "0")


def start_piped(context):
    """What the native command says to it, and the program itself under Wine."""
    expected = output_of("the native command", context.native, *MUCH_OUTPUT, directory=context.wine.drive)
    require(len(expected) > 4 * 65536, "the output fits a pipe: the test shows nothing")
    return expected, context.wine.start("vex.exe", *MUCH_OUTPUT, output=subprocess.PIPE, errors=subprocess.DEVNULL)


def test_pipe(context):
    expected, process = start_piped(context)
    said = process.communicate(timeout=context.wine.timeout)[0]
    require(process.returncode == 0 and said == expected, f"{len(said)} bytes through a pipe, {len(expected)} natively")
    return f"{len(said)} bytes through a pipe"


def test_interrupt(context):
    """Ctrl-C while the program waits for the reader of its output: it ends, and what it wrote is the beginning. (Its
    exit status is the system's: Wine says 0.)"""
    expected, process = start_piped(context)
    said = process.stdout.read(1)
    process.send_signal(signal.SIGINT)
    try:
        process.wait(timeout=context.wine.timeout)
    except subprocess.TimeoutExpired:
        end(process)
        raise Failure("the program does not end after Ctrl-C") from None
    finally:
        said += process.communicate()[0]
    require(len(said) < len(expected) and expected.startswith(said),
            "what was written is not the beginning of the output")
    return f"ends after {len(said)} of {len(expected)} bytes"


# Filters that the test of downloads releases.
STORM = 200
STATUS_CONTROL_C_EXIT = 0xC000013A


def url_commands(context, downloads):
    """vex.exe with a URL: the same as natively, and Ctrl-C leaves no file."""
    with downloads.server() as server:
        for words in (("probe",), ("play", "--json"), ("dump",), ("seek", "--json", "0.5")):
            command = (words[0], server.url + "length", *words[1:])
            expected = output_of("vex", context.native, *command)
            result = must_succeed(context.wine.run("vex.exe", *command), "vex.exe")
            require(result.stdout == expected, f"vex.exe {words} says {result.stdout[:500]}")
        result = context.wine.run("vex.exe", "probe", server.url + "gone")
        require((result.returncode, b"404 Not Found" in result.stderr) == (2, True), f"a missing file: {result}")
        process = context.wine.start("vex.exe", "probe", server.url + "stalled", output=subprocess.PIPE,
                                     errors=subprocess.DEVNULL)
        while not any(file.stat().st_size for file in context.wine.prefix.rglob("mp4*.tmp")):
            require(process.poll() is None, "vex.exe ends before its file is there")
            time.sleep(0.05)
        process.send_signal(signal.SIGINT)
        require(process.communicate(timeout=context.wine.timeout)[0] == b"", "vex.exe says something after Ctrl-C")
        require(process.returncode == STATUS_CONTROL_C_EXIT & 0xFF,
                f"vex.exe ends with the status {process.returncode}")


def test_downloads(context):
    """One after the other, because all programs have one directory for temporary files."""
    test_suite(context, "download_test.exe")
    film = context.wine.drive / "film.mp4"

    def run(*words, environment_more=None):
        result = context.wine.run("download_client.exe", *words, environment=environment_more)
        return must_succeed(result, " ".join(words)).stdout.decode("utf-8").replace("\r\n", "\n")

    def start(*words):
        return context.wine.start("download_client.exe", *words, output=subprocess.PIPE, errors=subprocess.DEVNULL)

    run("make", film.name)
    downloads = download_cases.Downloads(run, start, film, wine=True)
    wrong = []
    for name, test in (*downloads.all(STORM), ("commands", lambda: url_commands(context, downloads))):
        try:
            test()
            left = list(context.wine.prefix.rglob("mp4*.tmp"))
            require(not left, f"left behind: {left}")
        except (Failure, download_cases.Failure) as failure:
            wrong.append(f"{name}: {failure}")
    require(not wrong, "\n".join(wrong))
    return f"{len(download_cases.CASES)} answers of a server, {STORM} filters released on the way"


def command_tests(context, everything):
    sample = context.sample
    commands = (("filters",), ("probe", sample.name), ("play", sample.name), ("dump", sample.name),
                ("dump", "--csv", sample.name), ("seek", sample.name, "0", "0.5", "1"),
                ("seek", "--json", sample.name, "1"), ("extract", sample.name, "--output", "streams"),
                ("extract", sample.name, "--pin", "0"), ("probe", "missing.avi"))
    if not everything:
        commands = (("probe", "--json", sample.name), ("extract", sample.name, "--output", "streams"))
    for words in commands:
        yield "vex " + " ".join(words), lambda words=words: test_command(context, sample, *words)
    # Text and JSON of a file of every format.
    for one in context.formats if everything else ():
        file = context.wine.drive / one.files[0].name
        for words in (("probe",), ("probe", "--json"), ("play", "--json"), ("dump", "--json")):
            yield " ".join(("vex", *words, file.name)), \
                lambda file=file, words=words: test_command(context, file, *words, file.name)
    yield "vex and a name beyond the code page", lambda: test_unicode_name(context)
    yield "vex and a pipe", lambda: test_pipe(context)
    yield "vex and Ctrl-C", lambda: test_interrupt(context)


def all_tests(context, everything):
    """Each a name and a function. What a word size cannot change is left out for the second one."""
    yield "rounds own", lambda: test_rounds(context, "own")
    if everything:
        yield "rounds grabber", lambda: test_rounds(context, "grabber")
    for program in SUITES:
        yield program, lambda program=program: test_suite(context, program)
    for access, kind in (("VEX.ax", "own"), ("registered", "grabber"), ("registered", "own"), ("VEX.ax", "grabber")):
        if everything or access == "registered":
            yield f"samples {kind} {access}", lambda access=access, kind=kind: test_samples(context, access, kind)
    yield "load and unload", lambda: test_reload(context)
    yield "paths", lambda: difficult_paths.check(context, "mpeg4_mp3.avi", DECOY.name)
    yield "downloads", lambda: test_downloads(context)
    for one in context.formats:
        for row in one.decoded:
            yield (f"decoded {row.file.name} {row.decoder}",
                   lambda name=one.name, row=row: test_decoded(context, name, row))
    yield from command_tests(context, everything)


# ---- the run --------------------------------------------------------------------------------------------------------

class Report:
    """Of all tests; any thread may run one."""

    def __init__(self):
        self.passed, self.failed = 0, []
        self.lock = threading.Lock()

    def run(self, name, test, wine=None):
        started = time.monotonic()
        try:
            note, verdict = test(), "pass"
        except (Failure, OSError, ValueError, KeyError, IndexError, subprocess.TimeoutExpired) as failure:
            note, verdict = f"{type(failure).__name__}: {failure}", "FAIL"
            if wine and wine.server_said():
                note += f"\nthe Wine server said: {wine.server_said()}"
        with self.lock:
            print(f"{verdict}  {name} ({time.monotonic() - started:.1f} s)\n      " + note.replace("\n", "\n      "),
                  flush=True)
            if verdict == "pass":
                self.passed += 1
            else:
                self.failed.append(name)
        return verdict == "pass"

    def note(self, who, said):
        if said:
            with self.lock:
                print(f"note  {who} said: {said}", flush=True)

    def summary(self):
        print(f"\n{self.passed} passed, {len(self.failed)} failed", *(f"  FAIL {name}" for name in self.failed),
              sep="\n")
        return 1 if self.failed or not self.passed else 0


class Tree(NamedTuple):
    """A build for Windows and the Wine that runs it."""
    bits: int
    build: Path
    wine: str

    def target(self):
        return "i686-w64-mingw32" if self.bits == 32 else "x86_64-w64-mingw32"


def prepare(arguments, tree, directory, built, report):
    """The prefix of a tree with its programs and files in it, and the module registered: the other tests use that."""
    wine = Wine(tree.wine, tree.bits, directory, arguments.timeout)
    for name in ("VEX.ax", "vex.exe", "graph_test.exe", "registration_test.exe", "download_client.exe",
                 "download_test.exe", *SUITES):
        shutil.copy(tree.build / "bin" / name, wine.drive)
    for file in (directory / "inputs").iterdir():
        os.link(file, wine.drive / file.name)
    context = Context(arguments, tree.bits, wine, built)
    report.run(f"{tree.bits} registration", lambda: registration.check(context))
    return context


def make_inputs(directory, built):
    directory.mkdir()
    for one in FORMATS:
        if one.name in built:
            for file in (*one.files, *(row.file for row in one.decoded)):
                make_file(directory, file)
    make_file(directory, DECOY)


def run_all(arguments, trees, directory, report):
    built = native_filters(arguments.native)
    report.run("formats", lambda: test_rows(built))
    for tree in trees:
        module = tree.build / "bin" / "VEX.ax"
        report.run(f"{tree.bits} VEX.ax", lambda: check_binary(module, tree.target() + "-objdump"))
    make_inputs(directory / "inputs", built)
    contexts = []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        try:
            # Two prefixes at a time, then two tests at a time: those of the first tree first.
            for coming in [pool.submit(prepare, arguments, tree, directory, built, report) for tree in trees]:
                contexts.append(coming.result())
            for context in contexts:
                tests = (large_files.tests(context) if arguments.large
                         else all_tests(context, everything=context is contexts[0]))
                for name, test in tests:
                    if arguments.only in f"{context.bits} {name}":
                        pool.submit(report.run, f"{context.bits} {name}", test, context.wine)
            pool.shutdown()
        finally:
            pool.shutdown(cancel_futures=True)
            for context in contexts:
                context.wine.end_server()
                report.note(f"{context.bits}: the Wine server", context.wine.server_said())


def parse_tree(text):
    bits, build, wine = text.split(":", 2)
    return Tree(int(bits), Path(build), wine)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tree", type=parse_tree, action="append", required=True, metavar="BITS:DIRECTORY:WINE",
                        help="build tree and the program that runs it; the first is tested in full")
    parser.add_argument("--native", required=True, help="the native vex command")
    parser.add_argument("--sample", required=True, help="the media file for the command's tests")
    parser.add_argument("--rounds", type=int, default=5, help="rounds of play, seek and stop (default 5)")
    parser.add_argument("--timeout", type=int, default=300, help="seconds after which a program counts as hung")
    parser.add_argument("--only", default="", help="run the tests whose name contains this")
    parser.add_argument("--large", action="store_true", help="only files of gigabytes, which take minutes")
    parser.add_argument("--keep", action="store_true", help="keep the temporary directory")
    arguments = parser.parse_args()
    arguments.native = str(Path(arguments.native).resolve())
    return arguments


def main():
    arguments = parse_arguments()
    # A run that is called off cleans up like any other.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    report = Report()
    directory = Path(tempfile.mkdtemp(prefix="vex-windows-"))
    started = time.monotonic()
    try:
        run_all(arguments, arguments.tree, directory, report)
    except (Failure, OSError) as failure:
        print(f"FAIL  preparing: {failure}")
        report.failed.append("preparing")
    finally:
        if arguments.keep:
            print(f"kept: {directory}")
        else:
            shutil.rmtree(directory, ignore_errors=True)
    status = report.summary()
    print(f"{time.monotonic() - started:.0f} s")
    return status


if __name__ == "__main__":
    sys.exit(main())
