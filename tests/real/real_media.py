"""Makes small media files with ffmpeg and holds what the command delivers against what ffprobe says of the same file."""

import collections
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

VEX = os.environ["VEX_BINARY"]

Packet = collections.namedtuple("Packet", "md5 size key")


def make(path, *arguments):
    """Runs ffmpeg; the sources of pictures and tones are its own."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *map(str, arguments), "-bitexact", str(path)], check=True,
                   timeout=600, stdin=subprocess.DEVNULL)
    return path


def video(seconds=3, size="160x120", rate=25):
    return ["-f", "lavfi", "-i", f"testsrc2=size={size}:rate={rate}:duration={seconds}"]


def tone(seconds=3, frequency=440, rate=44100):
    return ["-f", "lavfi", "-i", f"sine=frequency={frequency}:sample_rate={rate}:duration={seconds}"]


def probed(path):
    """The packets of each stream as ffprobe sees them, and the streams' kinds."""
    text = subprocess.run(["ffprobe", "-v", "quiet", "-fflags", "+noparse", "-show_packets", "-show_streams", "-show_data_hash",
                           "md5", "-of", "json", str(path)], check=True, capture_output=True, timeout=600).stdout
    document = json.loads(text)
    kinds = {stream["index"]: stream["codec_type"] for stream in document["streams"]}
    packets = collections.defaultdict(list)
    for packet in document.get("packets", []):
        if int(packet["size"]) > 0:  # an empty packet is a repeated picture: nothing is delivered for it
            packets[packet["stream_index"]].append(
                Packet(packet["data_hash"].removeprefix("MD5:"), int(packet["size"]), "K" in packet["flags"]))
    return kinds, packets


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
    data = subprocess.run([VEX, "extract", "--raw", "--pin", str(pin), str(path)], capture_output=True, timeout=600, check=False)
    return hashlib.md5(data.stdout).hexdigest(), len(data.stdout)


class RealMedia(unittest.TestCase):
    def setUp(self):
        if not shutil.which("ffmpeg") or not shutil.which("ffprobe"):
            self.skipTest("ffmpeg is not installed")
        folder = tempfile.TemporaryDirectory(prefix="vex-real-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def assert_same_packets(self, samples, packets, message):
        self.assertEqual([s["size"] for s in samples], [p.size for p in packets], f"{message}: sizes")
        self.assertEqual([s["md5"] for s in samples], [p.md5 for p in packets], f"{message}: payloads")
        # A pin's first sample after a start is a sync point whatever the file says.
        self.assertEqual([s["sync"] for s in samples[1:]], [p.key for p in packets[1:]], f"{message}: key frames")
        self.assertTrue(samples[0]["sync"] and samples[0]["discontinuity"], f"{message}: first sample")

    def assert_like_ffprobe(self, path, status=0):
        kinds, packets = probed(path)
        returned, samples = dumped(path)
        self.assertEqual(returned, status)
        streams = pins_of(kinds)
        self.assertEqual(sorted(samples), list(range(len(streams))))
        for pin, stream in enumerate(streams):
            self.assertGreater(len(packets[stream]), 0)
            self.assert_same_packets(samples[pin], packets[stream], f"{path.name}, stream {stream}")
        return samples
