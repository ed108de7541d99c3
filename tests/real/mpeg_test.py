"""MPEG transport and program streams as ffmpeg writes them, cut, joined and damaged."""

import json
import random
import re
import subprocess
import unittest

from real_media import VEX, RealMedia, dumped, make, payload, probed, shown, tone, video

H264 = ["-c:v", "libx264", "-preset", "veryfast", "-g", "20", "-bf", "2"]
MPEG2 = ["-c:v", "mpeg2video", "-g", "12", "-bf", "2"]
MPEG1 = ["-c:v", "mpeg1video", "-g", "12", "-bf", "2"]
DTS = ["-c:a", "dca", "-strict", "-2", "-ac", "2"]
TWO_PROGRAMS = ["-map", "0", "-map", "1", "-map", "2", "-metadata:s:a:0", "language=ger",
                "-metadata:s:a:1", "language=eng", "-program", "title=one:st=0:st=1", "-program", "title=two:st=0:st=2"]

SOUND = tone(rate=48000)
# Files of a packet for each PES packet, which ffprobe sees like us; in program streams a picture spans several.
TRANSPORT = {
    "h264_aac.ts": [*video(), *SOUND, *H264, "-c:a", "aac"],
    "h264_ac3.m2ts": [*video(), *SOUND, *H264, "-c:a", "ac3"],
    "h264_dts.ts": [*video(), *SOUND, *H264, *DTS],
    "mpeg2_mp2.ts": [*video(), *SOUND, *MPEG2, "-c:a", "mp2"],
    "mpeg1_mp3.ts": [*video(), *SOUND, *MPEG1, "-c:a", "libmp3lame"],
    "programs.ts": [*video(), *SOUND, *tone(frequency=900, rate=48000), *MPEG2, "-c:a:0", "mp2",
                    "-c:a:1", "ac3", *TWO_PROGRAMS],
}
PROGRAM = {
    "mpeg2_ac3.vob": [*video(), *SOUND, *MPEG2, "-c:a", "ac3"],
    "mpeg2_dts.vob": [*video(), *SOUND, *MPEG2, *DTS],
    "mpeg2_lpcm.vob": [*video(), *SOUND, *MPEG2, "-c:a", "pcm_dvd", "-ac", "2"],
    "h264_mp2.vob": [*video(), *SOUND, *H264, "-c:a", "mp2"],
    "mpeg1_mp2.mpg": [*video(), *SOUND, *MPEG1, "-c:a", "mp2"],
    "mpeg1_mp3.mpg": [*video(), *SOUND, *MPEG1, "-c:a", "libmp3lame"],
}
LPCM_HEADER = 3  # bytes at the start of ffprobe's packets of DVD LPCM that belong to the container
PRIVATE_1 = 0xBD  # the high byte of our numbers of its sub-streams
TICK = 112       # 100 ns


def streams(path):
    """Codec and identifier of ffprobe's streams, by index."""
    return {s["index"]: (s["codec_name"], int(s["id"], 16))
            for s in shown(path, "-show_streams")["streams"] if "codec_name" in s}


def bytes_of(path, index, skip=0):
    """What ffmpeg copies out of a stream, packet by packet without the first bytes."""
    text = subprocess.run(["ffprobe", "-v", "quiet", "-fflags", "+noparse", "-select_streams", str(index),
                           "-show_packets", "-show_data", "-of", "json", str(path)],
                          check=True, capture_output=True, timeout=120).stdout
    data = b""
    for packet in json.loads(text)["packets"]:
        rows = re.findall(r"^[0-9a-f]{8}: ((?:[0-9a-f]{2,4} ?)+)", packet["data"], re.MULTILINE)
        data += bytes.fromhex("".join(rows).replace(" ", ""))[skip:]
    return data


class Mpeg(RealMedia):
    def pins(self, path):
        said = subprocess.run([VEX, "probe", "--json", str(path)], check=True, capture_output=True, timeout=60).stdout
        return json.loads(said)["files"][0]["pins"]

    def assert_bytes(self, path, exact=True):
        """Every stream's bytes are those of ffprobe's packets; a file that is cut may lack the last packets."""
        pins = {pin["properties"].get("pid", pin["properties"].get("stream_id")): pin["index"]
                for pin in self.pins(path)}
        pins = {number & 0xFF if number >> 8 == PRIVATE_1 else number: pin for number, pin in pins.items()}
        for index, (codec, number) in streams(path).items():
            pin = pins[number if path.suffix in (".ts", ".m2ts") else number & 0xFF]
            ours = subprocess.run([VEX, "extract", "--raw", "--pin", str(pin), str(path)], capture_output=True,
                                  timeout=60, check=False).stdout
            theirs = bytes_of(path, index, LPCM_HEADER if codec == "pcm_dvd" else 0)
            if exact:
                self.assertEqual(len(ours), len(theirs), f"{path.name}, {codec}")
                self.assertTrue(ours == theirs, f"{path.name}, {codec}")
            else:
                self.assertGreater(len(ours), len(theirs) * 3 // 4)
                self.assertTrue(ours[:len(ours) // 2] in theirs, f"{path.name}, {codec}")

    def test_transport_packets_are_those_of_ffprobe_with_their_times(self):
        for name, arguments in TRANSPORT.items():
            with self.subTest(name):
                path = make(self.folder / name, *arguments)
                _, packets = probed(path)
                status, samples = dumped(path)
                self.assertEqual(status, 0)
                self.assertEqual(sorted(samples), sorted(packets))
                for pin, own in samples.items():
                    self.assertEqual([s["md5"] for s in own], [p.md5 for p in packets[pin]])
                    first = min(p.pts for p in packets[pin])
                    for sample, packet in zip(own, packets[pin]):
                        self.assertLessEqual(abs(sample["start"] - (packet.pts - first)), TICK)

    def test_program_streams_deliver_the_bytes_of_ffprobe(self):
        for name, arguments in PROGRAM.items():
            with self.subTest(name):
                path = make(self.folder / name, *arguments)
                self.assertEqual(dumped(path)[0], 0)
                self.assert_bytes(path)

    def test_pins_are_named_by_identifier_and_language(self):
        path = make(self.folder / "programs.ts", *TRANSPORT["programs.ts"])
        self.assertEqual([pin["name"] for pin in self.pins(path)],
                         ["Video (256)", "Audio /German (257)", "Audio /English (258)"])

    def test_cut_files_deliver_what_is_whole(self):
        for name in ("h264_aac.ts", "h264_ac3.m2ts", "mpeg2_mp2.ts", "mpeg2_ac3.vob", "mpeg1_mp2.mpg"):
            path = make(self.folder / name, *{**TRANSPORT, **PROGRAM}[name])
            data = path.read_bytes()
            for what, cut in (("at the end", data[:len(data) * 4 // 5 + 77]),
                              ("garbage first", bytes([19]) * 130 + data),
                              ("at the start", data[max(len(data) // 5 // 188 * 188, 0) + 91:])):
                with self.subTest(name, cut=what):
                    if what == "at the start" and name.endswith((".vob", ".mpg")):
                        continue  # a pack within the first 64 KiB is what counts, and the sequence header behind it
                    path.write_bytes(cut)
                    self.assertLess(dumped(path)[0], 2)
                    self.assert_bytes(path, exact=what == "garbage first" and not name.endswith(".m2ts"))

    def test_joined_recordings_deliver_both_parts(self):
        parts = [make(self.folder / f"{n}.ts", *TRANSPORT["mpeg2_mp2.ts"],
                      "-output_ts_offset", str(offset)).read_bytes()
                 for n, offset in enumerate((5000, 0))]
        path = self.folder / "joined.ts"
        path.write_bytes(b"".join(parts))
        self.assert_bytes(path)

    def test_seeks_land_ten_seconds_early(self):
        generator = random.Random(1)
        for name, arguments in (("film.ts", [*H264, "-c:a", "mp2"]), ("film.mpg", [*MPEG1, "-c:a", "mp2"])):
            path = make(self.folder / name, *video(90), *tone(90, rate=48000), *arguments)
            targets = [generator.randrange(1, 890) / 10 for _ in range(200)]
            said = subprocess.run([VEX, "seek", "--json", str(path), *map(str, targets)], capture_output=True,
                                  timeout=300, check=True)
            for target, seek in zip(targets, json.loads(said.stdout)["files"][0]["seeks"]):
                for pin in seek["pins"]:
                    landed = (pin["segmentStart"] + pin["samples"][0]["start"]) / 1e7
                    self.assertLess(landed, max(target - 10, 0) + 1, f"{name} {target}")
                    self.assertGreater(landed, target - 10 - 4, f"{name} {target}")

    def test_what_is_extracted_is_what_the_file_holds(self):
        path = make(self.folder / "film.ts", *TRANSPORT["h264_aac.ts"])
        written = json.loads(subprocess.run([VEX, "extract", "--json", str(path), "-o", str(self.folder / "out")],
                                            check=True, capture_output=True, timeout=60).stdout)["files"][0]["outputs"]
        self.assertEqual([output["format"] for output in written], ["annexb", "adts"])
        for pin, output in enumerate(written):
            with open(output["path"], "rb") as file:
                self.assertEqual(len(file.read()), payload(path, pin)[1])


if __name__ == "__main__":
    unittest.main()
