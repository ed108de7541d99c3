"""What follows a seek, in the graph and natively."""

import decoded
from formats import require

KEYS = ("start", "stop", "size", "sync", "discontinuity", "preroll")


def of_graph(rows):
    """By file number: target -> of every pin (start of the segment, samples). `rows` are lines of graph_test."""
    files = {}
    for row in rows:
        if "file" in row:
            pins = files.setdefault(row["file"], {})[row["target"]] = [(segment, []) for segment in row["segments"]]
        else:
            pins[row["pin"]][1].append({key: row[key] for key in KEYS})
    return files


def of_native(context, path, targets, *options):
    """The same of the native command: one list of pins for each target, in 100 ns."""
    said = decoded.native(context, "seek", path, *options, *(f"{target}hns" for target in targets))
    return [[(pin["segmentStart"], [{key: sample[key] for key in KEYS} for sample in pin["samples"]])
             for pin in seek["pins"]] for seek in said["seeks"]]


def compare(where, pins, native):
    require(len(pins) == len(native), f"{where}: {len(pins)} pins")
    for index, ((segment, samples), (expected_segment, expected)) in enumerate(zip(pins, native)):
        # A grabber sees no segment.
        require(segment in (None, expected_segment),
                f"{where}: the segment starts at {segment}, not {expected_segment}")
        for ours, theirs in zip(samples, expected):
            require(ours == theirs, f"{where}, pin {index}:\n  graph  {ours}\n  native {theirs}")
        require(len(samples) == len(expected),
                f"{where}, pin {index}: {len(samples)} samples, natively {len(expected)}")
