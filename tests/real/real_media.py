"""Makes small media files with ffmpeg and compares what the command delivers with what ffprobe says of them."""

import collections
import fractions
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
from typing import NamedTuple, Optional

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from media_files import make, tone, video  # noqa: E402,F401 pylint: disable=wrong-import-position,unused-import

VEX = os.environ["VEX_BINARY"]


class Packet(NamedTuple):
    md5: str
    size: int  # bytes
    key: bool
    pts: Optional[int] = None  # 100 ns
    dts: Optional[int] = None


class Rules(NamedTuple):
    """How the samples of a format compare with ffprobe's packets. The defaults are those of a format whose pins deliver
    what the file holds, a packet a sample."""
    # Bitstream filters by codec name, for payloads that pins deliver in another form: {"h264": "h264_mp4toannexb"}.
    filters: dict = {}
    parse: bool = False  # ffprobe cuts the data into frames: a format that does not say where they begin
    keys: tuple = ("video", "audio", "subtitle")  # kinds of streams whose sync points are the file's key frames
    time: str = ""  # "pts" or "dts": what a sample starts at; empty: times are not compared
    tolerance: int = 1  # of the times, 100 ns
    from_first: bool = False  # times count from the first packet of the file, whatever that says
    all_video: bool = False  # a second video stream has a pin too
    audio_first: bool = False  # pins are in this order, whatever that of the streams is


def shown(path, *options):
    text = subprocess.run(["ffprobe", "-v", "quiet", *options, "-of", "json", str(path)], check=True,
                          capture_output=True, timeout=600).stdout
    return json.loads(text)


def filtered(path, stream, bitstream_filter):
    """(MD5, size) of each packet of a stream behind a bitstream filter."""
    text = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-fflags", "+noparse", "-i", str(path),
                           "-map", f"0:{stream}", "-c", "copy", "-bsf", bitstream_filter, "-f", "framemd5", "-"],
                          check=True, capture_output=True, text=True, timeout=600).stdout
    rows = [line.split(",") for line in text.splitlines() if not line.startswith("#")]
    return [(row[5].strip(), int(row[4])) for row in rows]


def probed(path, rules=Rules()):
    """The packets of each stream as ffprobe sees them, and the streams' kinds."""
    document = shown(path, *([] if rules.parse else ["-fflags", "+noparse"]), "-show_packets", "-show_streams",
                     "-show_data_hash", "md5")
    bases = {stream["index"]: fractions.Fraction(stream["time_base"]) for stream in document["streams"]}
    packets = collections.defaultdict(list)

    def time(packet, name):
        return int(packet[name] * bases[packet["stream_index"]] * 10_000_000) if name in packet else None

    for packet in document.get("packets", []):
        if int(packet["size"]) > 0:  # an empty packet is a repeated picture: nothing is delivered for it
            packets[packet["stream_index"]].append(
                Packet(packet["data_hash"].removeprefix("MD5:"), int(packet["size"]), "K" in packet["flags"],
                       time(packet, "pts"), time(packet, "dts")))
    for stream in document["streams"]:
        if stream.get("codec_name") in rules.filters:
            changed = filtered(path, stream["index"], rules.filters[stream["codec_name"]])
            assert len(changed) == len(packets[stream["index"]]), "a bitstream filter that joins or splits packets"
            packets[stream["index"]] = [packet._replace(md5=md5, size=size)
                                        for packet, (md5, size) in zip(packets[stream["index"]], changed)]
    return {stream["index"]: stream["codec_type"] for stream in document["streams"]}, packets


def pins_of(kinds):
    """The stream behind each pin: the first video stream, and all others."""
    pins = []
    seen_video = False
    for index, kind in sorted(kinds.items()):
        if kind != "video" or not seen_video:
            pins.append(index)
        seen_video = seen_video or kind == "video"
    return pins


def dumped(path, *options):
    """The samples of each pin as the command lists them, and its exit status."""
    result = subprocess.run([VEX, "dump", "--json", *options, str(path)], capture_output=True, timeout=600, check=False)
    pins = collections.defaultdict(list)
    for line in result.stdout.decode("utf-8").splitlines():
        sample = json.loads(line)
        if "error" not in sample:
            pins[sample["pin"]].append(sample)
    return result.returncode, pins


def payload(path, pin):
    """The MD5 digest and the size of all that a pin delivers."""
    data = subprocess.run([VEX, "extract", "--raw", "--pin", str(pin), str(path)], capture_output=True, timeout=600,
                          check=False)
    return hashlib.md5(data.stdout).hexdigest(), len(data.stdout)


class RealMedia(unittest.TestCase):
    def setUp(self):
        if not shutil.which("ffmpeg") or not shutil.which("ffprobe"):
            self.skipTest("ffmpeg is not installed")
        folder = tempfile.TemporaryDirectory(prefix="vex-real-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def assert_same_packets(self, samples, packets, message, keys=True):
        self.assertEqual([s["size"] for s in samples], [p.size for p in packets], f"{message}: sizes")
        self.assertEqual([s["md5"] for s in samples], [p.md5 for p in packets], f"{message}: payloads")
        # A pin's first sample after a start is a sync point whatever the file says.
        if keys:
            self.assertEqual([s["sync"] for s in samples[1:]], [p.key for p in packets[1:]], f"{message}: key frames")
        self.assertTrue(samples[0]["sync"] and samples[0]["discontinuity"], f"{message}: first sample")

    def assert_times(self, samples, packets, message, rules, origin):
        for number, (sample, packet) in enumerate(zip(samples, packets)):
            expected = getattr(packet, rules.time)
            if expected is not None:
                self.assertIsNotNone(sample["start"], f"{message}: sample {number} has no time")
                self.assertLessEqual(abs(sample["start"] - expected + origin), rules.tolerance,
                                     f"{message}: time of {number}")

    def assert_like_ffprobe(self, path, status=0, rules=Rules()):
        kinds, packets = probed(path, rules)
        returned, samples = dumped(path)
        self.assertEqual(returned, status)
        streams = sorted(kinds) if rules.all_video else pins_of(kinds)
        if rules.audio_first:
            streams.sort(key=lambda stream: kinds[stream] != "audio")
        self.assertEqual(sorted(samples), list(range(len(streams))))
        first = [getattr(p[0], rules.time) for p in packets.values() if p] if rules.time and rules.from_first else [0]
        for pin, stream in enumerate(streams):
            message = f"{path.name}, stream {stream}"
            self.assertGreater(len(packets[stream]), 0)
            self.assert_same_packets(samples[pin], packets[stream], message, kinds[stream] in rules.keys)
            if rules.time:
                self.assert_times(samples[pin], packets[stream], message, rules, min(first))
        return samples

    def assert_films_like_ffprobe(self, films, name, rules=Rules()):
        """`films`: what ffmpeg is told, by what is special about it. `name`: of the file; its extension counts."""
        for what, arguments in films.items():
            with self.subTest(what):
                self.assert_like_ffprobe(make(self.folder / name, *arguments), rules=rules)
