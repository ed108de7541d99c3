#!/usr/bin/env python3
"""Runs the Windows programs of a build under Wine and holds what they say against the native command.

scripts/test-windows builds everything and calls this; it needs no display and touches nothing outside its own temporary
directory. A line per test on stdout, the reasons of failures below it; exit status 0 when all passed.
"""

import argparse
import contextlib
import json
import os
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

AVI = "{6BA9DD10-09B9-4C8B-89A8-8AC445601214}"
MKV = "{9794BD42-281E-45EE-94CC-70A260E407B5}"
SAMPLE_KEYS = ("pin", "start", "stop", "mediaStart", "mediaStop", "size", "sync", "discontinuity", "preroll", "md5")
EXPORTS = {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"}
# What every Windows since 7 brings along and the module may lean on.
SYSTEM_LIBRARIES = {"advapi32.dll", "gdi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll", "quartz.dll",
                    "shell32.dll", "user32.dll", "wininet.dll", "version.dll", "shlwapi.dll"}
SUITES = ("platform_test.exe", "framework_test.exe")
MAPPER_INSTANCES = r"CLSID\{083863F1-70DE-11D0-BD40-00A0C911CE86}\Instance" "\\"


class Failure(Exception):
    pass


def require(holds, text):
    if not holds:
        raise Failure(text)


class Wine:
    """A prefix of its own and the programs in it. Everything lies in C:\\vex, as it would on a user's machine."""

    def __init__(self, command, directory, timeout):
        self.command = command
        self.timeout = timeout
        self.prefix = directory / "prefix"
        self.drive = self.prefix / "drive_c" / "vex"
        self.environment = {
            **{key: value for key, value in os.environ.items()
               if not key.startswith("WINE") and key not in ("DISPLAY", "WAYLAND_DISPLAY")},
            "WINEPREFIX": str(self.prefix), "WINEDEBUG": "-all", "WINEARCH": "win64", "LC_ALL": "C.UTF-8",
            # No questions about what a prefix may lack, no entries in the desktop's menus.
            "WINEDLLOVERRIDES": "mscoree,mshtml=;winemenubuilder.exe=d",
        }
        self.run_command("wineboot", "--init", timeout=600)
        # There is no sound card to look for.
        self.run_command("reg", "add", r"HKCU\Software\Wine\Drivers", "/v", "Audio", "/d", "", "/f")
        self.drive.mkdir()

    def run(self, program, *arguments, directory=None, timeout=None):
        return self.run_command(str(program), *arguments, directory=directory or self.drive, timeout=timeout)

    def run_command(self, *words, directory=None, timeout=None):
        """The finished process; its output as bytes. One that takes too long is ended with all it started."""
        process = subprocess.Popen([self.command, *words], cwd=directory, env=self.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        try:
            output, errors = process.communicate(timeout=timeout or self.timeout)
        except subprocess.TimeoutExpired:
            self.end_server()
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            raise Failure(f"hangs: {' '.join(words)} was ended after {timeout or self.timeout} s") from None
        return subprocess.CompletedProcess(words, process.returncode, output, errors)

    def end_server(self):
        """Ends every process of this prefix, and only of this one."""
        server = shutil.which("wineserver") or str(Path(self.command).with_name("wineserver"))
        subprocess.run([server, "-k"], env=self.environment, timeout=60, check=False, stderr=subprocess.DEVNULL)


def must_succeed(result, what):
    if result.returncode != 0:
        said = (result.stderr + result.stdout).decode("utf-8", "replace").strip()
        raise Failure(f"{what}: exit status {result.returncode}\n{said[-3000:]}")
    return result


# ---- inputs ---------------------------------------------------------------------------------------------------------

def ffmpeg(output, *arguments):
    must_succeed(subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *arguments, "-fflags", "+bitexact", str(output)],
                                capture_output=True, check=False), f"ffmpeg for {output.name}")


def picture(seconds, size="160x120"):
    return ("-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25:duration={seconds}")


def tone(seconds):
    return ("-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=44100:duration={seconds}")


def without_index(source, target):
    """A copy of an AVI file whose index chunk is only padding and whose header does not promise one."""
    data = bytearray(source.read_bytes())
    require(b"ix00" not in data and b"indx" not in data[:8192], f"{source.name} has an OpenDML index as well")
    position = 12
    while position + 8 <= len(data):
        kind, size = struct.unpack_from("<4sI", data, position)
        if kind == b"idx1":
            data[position:position + 4] = b"JUNK"
            data[position + 8:position + 8 + size] = bytes(size)
            break
        position += 8 + size + (size & 1)
    else:
        raise Failure(f"{source.name} has no idx1 chunk to take away")
    flags = data.index(b"avih") + 8 + 12
    struct.pack_into("<I", data, flags, struct.unpack_from("<I", data, flags)[0] & ~0x10)
    target.write_bytes(data)


def make_inputs(directory, formats):
    """(name of the file, class identifier) of each input, and a further file whose samples are none of theirs."""
    mpeg4 = directory / "mpeg4_mp3.avi"
    ffmpeg(mpeg4, *picture(8), *tone(8), "-c:v", "mpeg4", "-g", "12", "-bf", "0", "-vtag", "XVID", "-c:a", "libmp3lame",
           "-b:a", "128k")
    ffmpeg(directory / "raw_pcm.avi", *picture(6, "64x48"), *tone(6), "-c:v", "rawvideo", "-pix_fmt", "bgr24",
           "-c:a", "pcm_s16le")
    without_index(mpeg4, directory / "no_index.avi")
    inputs = [("mpeg4_mp3.avi", AVI), ("raw_pcm.avi", AVI), ("no_index.avi", AVI)]
    if "mkv" in formats:
        ffmpeg(directory / "mpeg4_mp3.mkv", *picture(8), *tone(8), "-c:v", "mpeg4", "-g", "12", "-bf", "0",
               "-c:a", "libmp3lame", "-b:a", "128k")
        inputs.append(("mpeg4_mp3.mkv", MKV))
    ffmpeg(directory / "decoy.avi", *picture(2, "80x60"), *tone(2), "-c:v", "mpeg4", "-c:a", "pcm_s16le")
    return inputs


# ---- comparing ------------------------------------------------------------------------------------------------------

def sample_lines(text, who):
    """The sample objects of a dump, by pin, in the order of arrival at each pin."""
    pins = {}
    for line in text.decode("utf-8").splitlines():
        row = json.loads(line)
        if "pin" not in row or "start" not in row:
            continue
        missing = [key for key in SAMPLE_KEYS if key not in row]
        require(not missing, f"{who} says no {missing} of a sample: {line}")
        pins.setdefault(row["pin"], []).append({key: row[key] for key in SAMPLE_KEYS})
    require(pins, f"{who} lists no samples")
    return pins


def same_samples(graph, native):
    require(set(graph) == set(native), f"pins of the graph {sorted(graph)}, of the native dump {sorted(native)}")
    for pin, expected in native.items():
        got = graph[pin]
        for index, (ours, theirs) in enumerate(zip(got, expected)):
            require(ours == theirs, f'pin {pin}, sample {index}:\n  graph  {ours}\n  native {theirs}')
        require(len(got) == len(expected), f'pin {pin}: {len(got)} samples in the graph, {len(expected)} natively')
    return sum(map(len, native.values()))


def native_dump(context, path):
    return must_succeed(subprocess.run([context.native, "dump", "--json", str(path)], capture_output=True, timeout=600,
                                       check=False), f"the native dump of {path.name}").stdout


# ---- tests ----------------------------------------------------------------------------------------------------------

class Context:
    """What the tests work with."""

    def __init__(self, arguments, wine, inputs):
        self.wine = wine
        self.inputs = inputs
        self.native = arguments.native
        self.sample = arguments.sample
        self.rounds = arguments.rounds
        self.built = [one for one in (AVI, MKV) if one == AVI or "mkv" in arguments.formats]

    def graph(self, *arguments, access="VEX.ax", timeout=None):
        return self.wine.run("graph_test.exe", access, *arguments, timeout=timeout)

    def snapshot(self):
        """The registry but for the keys of Wine itself, which it writes whenever it gets round to it."""
        lines = must_succeed(self.wine.run("registration_test.exe", "snapshot"), "reading the registry").stdout
        return [line for line in lines.decode("utf-8").splitlines() if not line.startswith("HKCU\\Software\\Wine\\")]

    def regsvr32(self, *options):
        must_succeed(self.wine.run_command("regsvr32", "/s", *options, r"C:\vex\VEX.ax"), " ".join(("regsvr32", *options)))


def check_binary(path, objdump):
    """Exports and dependencies of a module file, whatever machine it is for."""
    text = must_succeed(subprocess.run([objdump, "-p", str(path)], capture_output=True, check=False), "objdump").stdout
    text = text.decode("utf-8", "replace")
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
    return f"exports {len(names)}, needs {', '.join(sorted(libraries))}"


def test_registration(context):
    # The first look into the mapper makes the system write a cache for it.
    must_succeed(context.wine.run("registration_test.exe", "removed"), "before regsvr32")
    before = context.snapshot()
    context.regsvr32()
    installed = context.snapshot()
    said = must_succeed(context.wine.run("registration_test.exe", "installed", r"C:\vex\VEX.ax", *context.built),
                        "after regsvr32").stdout.decode("utf-8")
    added, gone = keys(installed) - keys(before), set(before) - set(installed)
    require(not gone, f"registering removed or changed {sorted(gone)[:5]}")
    ours = {key for key in added if MAPPER_INSTANCES not in key}
    require(len(ours) == 24 and sum(key.endswith("InprocServer32") for key in ours) == 12,
            f"registering made the keys {sorted(ours)}")
    require(len(added) - len(ours) == 12, f"registering made {len(added) - len(ours)} entries in the filter mapper")

    context.regsvr32()
    same_registry(context.snapshot(), installed, "registering twice is not the same as registering once")
    context.regsvr32("/u")
    same_registry(context.snapshot(), before, "unregistering leaves a difference")
    must_succeed(context.wine.run("registration_test.exe", "removed"), "after regsvr32 /u")
    context.regsvr32("/u")
    same_registry(context.snapshot(), before, "unregistering twice is not the same as unregistering once")
    context.regsvr32()
    same_registry(context.snapshot(), installed, "registering after unregistering differs from the first time")
    return f"{len(added)} keys come and go; {said.count('created') - said.count('to be created')} classes load a filter"


def same_registry(now, expected, what):
    more, less = sorted(set(now) - set(expected)), sorted(set(expected) - set(now))
    require(not more and not less, what + "".join(f"\n  + {line[:300]}" for line in more[:8]) +
            "".join(f"\n  - {line[:300]}" for line in less[:8]))


def keys(snapshot):
    return {line for line in snapshot if "\t" not in line}


def test_suite(context, program):
    """The native suite of a layer that the Windows build implements itself, or whose threads run on that layer."""
    said = must_succeed(context.wine.run(program), program).stdout.decode("utf-8", "replace").splitlines()
    require(said and "PASSED" in said[-1], f"{program} ends with {said[-1:]}")
    return said[-1].strip()


def test_samples(context, file, clsid):
    expected = sample_lines(native_dump(context, context.wine.drive / file), "the native dump")
    notes = []
    for access in ("VEX.ax", "registered"):
        for kind in ("own", "grabber"):
            result = must_succeed(context.graph(clsid, "samples", kind, "C:\\vex\\" + file, access=access),
                                  f"playing through {access} into {kind} sinks")
            same_samples(sample_lines(result.stdout, "graph_test"), expected)
            if kind == "grabber" and access == "registered":
                notes.append(result.stderr.decode("utf-8").strip().splitlines()[-1])
    count = sum(map(len, expected.values()))
    return f"{count} samples on {len(expected)} pins equal, by path and registered; {notes[0]}"


def test_rounds(context, file, clsid, kind):
    result = must_succeed(context.graph(clsid, "rounds", kind, str(context.rounds), "C:\\vex\\" + file, access="registered",
                                        timeout=context.wine.timeout * 4), f"{context.rounds} rounds")
    return result.stderr.decode("utf-8").strip().splitlines()[-1]


def test_again(context, file, clsid):
    for kind in ("own", "grabber"):
        must_succeed(context.graph(clsid, "again", kind, "C:\\vex\\" + file), f"playing twice into {kind} sinks")
    return "the second run gives what the first gave"


def test_reload(context, file, clsid):
    result = must_succeed(context.graph(clsid, "reload", str(context.rounds), "C:\\vex\\" + file), "loading and unloading")
    return result.stderr.decode("utf-8").strip().splitlines()[-1]


def test_paths(context):
    (context.wine.drive / "paths").mkdir()
    result = must_succeed(context.graph(AVI, "paths", "C:\\vex\\paths", "C:\\vex\\mpeg4_mp3.avi", "C:\\vex\\decoy.avi"),
                          "difficult paths")
    return result.stdout.decode("utf-8").strip().replace("\n", "\n      ")


def test_command(context, name, *arguments):
    """The same command line, natively and under Wine, in directories that hold the same files."""
    outcomes = []
    for where in ("native", "windows"):
        output = context.wine.drive / f"command-{where}"
        if output.exists():
            shutil.rmtree(output)
        output.mkdir()
        shutil.copy(context.sample, output)
        if where == "native":
            result = subprocess.run([context.native, name, *arguments], cwd=output, capture_output=True, timeout=600,
                                    stdin=subprocess.DEVNULL, check=False)
        else:
            result = context.wine.run(context.wine.drive / "vex.exe", name, *arguments, directory=output)
        files = {str(path.relative_to(output)): path.read_bytes() for path in sorted(output.rglob("*")) if path.is_file()}
        outcomes.append((result.returncode, result.stdout, result.stderr, files))
    # A path that is told is the system's own.
    outcomes[1] = (*outcomes[1][:1], outcomes[1][1].replace(b"streams\\", b"streams/"), *outcomes[1][2:])
    (status, text, _, files), (their_status, their_text, their_errors, their_files) = outcomes
    require(their_status == status, f"exit status {their_status} instead of {status}: {their_errors.decode('utf-8')[-500:]}")
    if their_text != text:
        if their_text.replace(b"\r\n", b"\n") == text:
            raise Failure("the same text, but with CR LF line ends: stdout is not in binary mode")
        lines, their_lines = text.splitlines(), their_text.splitlines()
        at = next((i for i, (a, b) in enumerate(zip(lines, their_lines)) if a != b), min(len(lines), len(their_lines)))
        raise Failure(f"output differs at line {at + 1}:\n  native  {lines[at:at + 1]}\n  windows {their_lines[at:at + 1]}")
    require(set(files) == set(their_files), f"wrote {sorted(their_files)} instead of {sorted(files)}")
    for file, data in files.items():
        require(their_files[file] == data, f"{file} differs")
    require(text or len(files) > 1 or status != 0, "says and writes nothing")
    return f"{len(text)} bytes of output equal, {len(files) - 1} files written, exit status {status}"


def all_tests(context):
    yield "registration", lambda: test_registration(context)
    for program in SUITES:
        yield program, lambda: test_suite(context, program)
    for file, clsid in context.inputs:
        yield f"samples {file}", lambda: test_samples(context, file, clsid)
    for file, clsid in context.inputs:
        yield f"play again {file}", lambda: test_again(context, file, clsid)
    for file, clsid in context.inputs:
        yield f"load and unload {file}", lambda: test_reload(context, file, clsid)
    yield "paths", lambda: test_paths(context)
    for file, clsid in context.inputs:
        for kind in ("own", "grabber"):
            yield f"rounds {file} {kind}", lambda: test_rounds(context, file, clsid, kind)
    sample = Path(context.sample).name
    for words in (("filters",), ("probe", sample), ("probe", "--json", sample), ("play", sample), ("dump", sample),
                  ("dump", "--csv", sample), ("dump", "--json", sample), ("seek", sample, "0", "0.5", "1"),
                  ("seek", "--json", sample, "1"), ("extract", sample, "--output", "streams"), ("extract", sample, "--pin", "0"),
                  ("probe", "missing.avi")):
        yield "vex " + " ".join(words), lambda: test_command(context, *words)


# ---- the run --------------------------------------------------------------------------------------------------------

class Report:
    def __init__(self):
        self.passed, self.failed = 0, []

    def run(self, name, test):
        started = time.monotonic()
        try:
            note = test()
        except (Failure, OSError, ValueError, subprocess.TimeoutExpired) as failure:
            self.failed.append(name)
            print(f"FAIL  {name}\n      " + str(failure).replace("\n", "\n      "), flush=True)
        else:
            self.passed += 1
            print(f"pass  {name} ({time.monotonic() - started:.1f} s)\n      {note}", flush=True)

    def summary(self):
        print(f"\n{self.passed} passed, {len(self.failed)} failed" + "".join(f"\n  FAIL {name}" for name in self.failed))
        return 1 if self.failed or not self.passed else 0


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="build tree for 64-bit Windows")
    parser.add_argument("--build-x86", type=Path, help="build tree for 32-bit Windows: its module is inspected")
    parser.add_argument("--native", required=True, help="the native vex command")
    parser.add_argument("--sample", required=True, help="the media file for the command's tests")
    parser.add_argument("--wine", required=True, help="the 64-bit wine program")
    parser.add_argument("--formats", default="avi", help="formats in this build, with commas (avi,mkv)")
    parser.add_argument("--rounds", type=int, default=10, help="rounds of play, seek and stop (default 10)")
    parser.add_argument("--timeout", type=int, default=300, help="seconds after which a program counts as hung")
    parser.add_argument("--only", default="", help="run the tests whose name contains this")
    parser.add_argument("--keep", action="store_true", help="keep the temporary directory")
    arguments = parser.parse_args()
    arguments.formats = arguments.formats.split(",")
    arguments.native = str(Path(arguments.native).resolve())
    return arguments


def main():
    arguments = parse_arguments()
    # A run that is called off cleans up like any other.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    report = Report()
    binaries = arguments.build / "bin"
    report.run("VEX.ax, 64 bits", lambda: check_binary(binaries / "VEX.ax", "x86_64-w64-mingw32-objdump"))
    if arguments.build_x86:
        report.run("VEX.ax, 32 bits", lambda: check_binary(arguments.build_x86 / "bin" / "VEX.ax",
                                                           "i686-w64-mingw32-objdump"))
    directory = Path(tempfile.mkdtemp(prefix="vex-windows-"))
    wine = None
    try:
        wine = Wine(arguments.wine, directory, arguments.timeout)
        for name in ("VEX.ax", "vex.exe", "graph_test.exe", "registration_test.exe", *SUITES):
            shutil.copy(binaries / name, wine.drive)
        context = Context(arguments, wine, make_inputs(wine.drive, arguments.formats))
        for name, test in all_tests(context):
            if arguments.only in name or name == "registration":
                report.run(name, test)
    except (Failure, OSError) as failure:
        print(f"FAIL  preparing: {failure}")
        report.failed.append("preparing")
    finally:
        if wine:
            wine.end_server()
        if arguments.keep:
            print(f"kept: {directory}")
        else:
            shutil.rmtree(directory, ignore_errors=True)
    return report.summary()


if __name__ == "__main__":
    sys.exit(main())
