"""Files of gigabytes in the 32-bit process: the same as natively, in vex.exe and in the system's graph."""

import hashlib
import json
import subprocess
import time

import decoded
import seeks
from formats import Failure, media_files, must_succeed, output_of, require

MEGABYTES = (2200, 4600)  # beyond 2 GiB, and beyond what 32 bits say
PARTS = (99, 1, 50, 95, 47, 0)  # percent of the duration, to which the seeks go
# Bytes that a process may hold, whatever the size of the file. In the graph 29 MiB are there before the module holds
# anything: 16 are pages of program files, 13 memory of Wine's own. The rest grows when the sink is slower than the
# module reads: packets that wait (up to 16 MiB of a pin's payload, in buffers of up to twice its size), 16 MiB of
# buffers to be used again, and the index. vex.exe begins with 20 MiB, and its sinks are faster.
COMMAND_MEMORY, GRAPH_MEMORY = 64 << 20, 96 << 20
# Seconds. The programs end by themselves when no sample has come for two minutes; this is for one that hangs elsewhere.
LAST_RESORT = 1800


def tests(context):
    for row in context.formats:
        for megabytes in MEGABYTES:
            yield (f"large {row.name} {megabytes} MB",
                   lambda row=row, megabytes=megabytes: check(context, row, megabytes))


def check(context, row, megabytes):
    path = context.wine.drive / f"large{megabytes}.{row.media.extension}"
    try:
        media_files.make_large(path, megabytes, row.media.large)
        duration = decoded.native(context, "probe", path)["duration"]
        targets = [duration * part // 100 for part in PARTS]
        peaks = [by_command(context, path, "play"),
                 by_command(context, path, "seek", *(f"{target}hns" for target in targets))]
        started = time.monotonic()
        result = must_succeed(context.graph("large", context.built[row.name], f"C:\\vex\\{path.name}",
                                            *map(str, targets), timeout=LAST_RESORT), "playing in the graph")
        seconds = time.monotonic() - started
        rows = [json.loads(line) for line in result.stdout.decode("utf-8").splitlines()]
        samples = same_bytes(context, path, [one for one in rows if "samples" in one])
        same_seeks(context, path, targets, [one for one in rows if "samples" not in one])
        note = (f"{path.stat().st_size >> 20} MiB, {samples} samples and {len(targets)} seeks equal, in the graph in "
                f"{seconds:.0f} s; peaks of memory: play {peaks[0] >> 20}, seek {peaks[1] >> 20}, "
                f"graph {result.peak >> 20} MiB")
        require(max(peaks) < COMMAND_MEMORY and result.peak < GRAPH_MEMORY, note)
        return note
    finally:
        path.unlink(missing_ok=True)


def by_command(context, path, command, *arguments):
    """The peak of memory of vex.exe, which must say what the native command says."""
    words = (command, "--json", path.name, *arguments)
    expected = output_of(f"the native {command}", context.native, *words, directory=path.parent)
    result = must_succeed(context.wine.run("vex.exe", *words, timeout=LAST_RESORT), f"vex {command}")
    require(result.stdout == expected, f"vex {command} says something else than natively")
    return result.peak


def same_bytes(context, path, pins):
    """The bytes of every pin; returns the number of all samples."""
    expected = decoded.native(context, "play", path)["pins"]
    require([pin["samples"] for pin in pins] == [pin["samples"] for pin in expected],
            f"the pins delivered {pins}, natively {expected}")
    for number, pin in enumerate(pins):
        require(pin["md5"] == native_digest(context, path, number), f"pin {number} delivers other bytes than natively")
    return sum(pin["samples"] for pin in pins)


def native_digest(context, path, pin):
    digest = hashlib.md5()
    with subprocess.Popen([context.native, "extract", "--raw", "--pin", str(pin), str(path)],
                          stdout=subprocess.PIPE) as process:
        while piece := process.stdout.read(1 << 20):
            digest.update(piece)
    if process.returncode != 0:
        raise Failure(f"the native extract ends with the status {process.returncode}")
    return digest.hexdigest()


def same_seeks(context, path, targets, rows):
    ours = seeks.of_graph(rows)[0]
    for target, native in zip(targets, seeks.of_native(context, path, targets), strict=True):
        seeks.compare(f"seek to {target}", ours[target], native)
