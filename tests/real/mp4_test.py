"""MP4, QuickTime and 3GP files as ffmpeg writes them."""

import hashlib
import json
import random
import subprocess
import unittest

from real_media import VEX, RealMedia, Rules, dumped, make, payload, probed, tone, video

H264 = ["-c:v", "libx264", "-preset", "veryfast", "-g", "20"]
AAC = ["-c:a", "aac", "-b:a", "64k"]

# Samples start at their decoding times. Edit lists move ffprobe's by a constant.
RULES = Rules(keys=("video",), time="")

FILMS = {
    "H.264 with B-frames, AAC": ("film.mp4", [*video(), *tone(), *H264, "-bf", "3", *AAC]),
    "H.264 without B-frames, AAC, header first": ("film.mp4", [*video(), *tone(), *H264, "-bf", "0", *AAC, "-movflags",
                                                               "+faststart"]),
    "MPEG-4, MP3": ("film.mp4", [*video(), *tone(), "-c:v", "mpeg4", "-g", "12", "-c:a", "libmp3lame"]),
    "MPEG-4, AC-3": ("film.m4v", [*video(), *tone(), "-c:v", "mpeg4", "-c:a", "ac3"]),
    "MPEG-2": ("film.mp4", [*video(), "-c:v", "mpeg2video"]),
    "H.263, AAC": ("film.3gp", [*video(size="176x144"), *tone(), "-c:v", "h263", *AAC]),
    "JPEG, MP3": ("film.mov", [*video(), *tone(), "-c:v", "mjpeg", "-c:a", "libmp3lame"]),
    "QuickTime RLE, AC-3": ("film.mov", [*video(), *tone(), "-c:v", "qtrle", "-c:a", "ac3"]),
    "four sound tracks": ("film.m4a", [*tone(), *tone(), *tone(), *tone(), "-map", "0", "-map", "1", "-map", "2",
                                       "-map", "3", *AAC]),
}

# What the payload of each kind is equal to once ffmpeg has turned it around.
SOUND = {"pcm_s16be": "pcm_s16le", "pcm_s16le": "pcm_s16le", "pcm_s24be": "pcm_s24be", "pcm_mulaw": "pcm_mulaw",
         "pcm_u8": "pcm_u8"}


class Mp4(RealMedia):
    def path(self, name="film.mp4"):
        return self.folder / name

    def test_what_ffmpeg_writes_is_what_ffprobe_finds(self):
        for what, (name, arguments) in FILMS.items():
            with self.subTest(what):
                self.assert_like_ffprobe(make(self.path(name), *arguments), rules=RULES)

    def test_times_are_decoding_times_cut_to_100_ns(self):
        path = make(self.path(), *video(rate="30000/1001"), *tone(), *H264, "-bf", "3", *AAC)
        _, samples = dumped(path)
        document = json.loads(subprocess.run(
            ["ffprobe", "-v", "quiet", "-ignore_editlist", "1", "-show_packets", "-show_streams",
             "-of", "json", str(path)],
            check=True, capture_output=True, timeout=600).stdout)
        for pin, stream in enumerate(document["streams"]):
            scale = int(stream["time_base"].split("/")[1])
            expected = [p["dts"] * 10_000_000 // scale
                        for p in document["packets"] if p["stream_index"] == stream["index"]]
            self.assertEqual([s["start"] for s in samples[pin]], expected)
            self.assertTrue(all(s["stop"] == s["start"] + 1 and s["mediaStart"] is None for s in samples[pin]))

    def test_sound_of_constant_size_has_the_same_bytes(self):
        for codec, equal in SOUND.items():
            with self.subTest(codec):
                path = make(self.path("film.mov"), *video(), *tone(), *H264, "-c:a", codec)
                raw = self.path("raw")
                subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", str(path), "-map", "0:a", "-c:a",
                                equal, "-f", "data", str(raw)], check=True, timeout=120)
                self.assertEqual(payload(path, 1), payload_of(raw))

    def test_other_tracks_between_are_passed_over(self):
        path = make(self.path("film.mov"), *video(), *tone(), *H264, *AAC, "-timecode", "01:00:00:00")
        _, packets = probed(path)
        _, samples = dumped(path)
        self.assertEqual(sorted(samples), [0, 1])
        for pin in samples:
            self.assert_same_packets(samples[pin], packets[pin], f"pin {pin}", pin == 0)

    def test_a_seek_lands_on_the_sync_sample_before(self):
        path = make(self.path(), *video(8), *tone(8), *H264, "-bf", "2", *AAC)
        _, samples = dumped(path)
        keys = [s["start"] for s in samples[0] if s["sync"]]
        random.seed(1)
        targets = sorted(random.randrange(75_000_000) for _ in range(50))
        result = subprocess.run([VEX, "seek", "--json", str(path), *(f"{target}hns" for target in targets)],
                                capture_output=True, timeout=120, check=True)
        for target, seek in zip(targets, json.loads(result.stdout)["files"][0]["seeks"]):
            picture, sound = (pin["samples"][0]["start"] + target for pin in seek["pins"])
            self.assertEqual(picture, max((key for key in keys if key <= target), default=keys[0]))
            self.assertLessEqual(sound, target)
            self.assertGreater(sound, target - 250_000)

    def test_a_file_cut_in_the_middle_says_why_it_does_not_open(self):
        path = make(self.path(), *video(), *H264)
        path.write_bytes(path.read_bytes()[:10000])
        result = subprocess.run([VEX, "probe", str(path)], capture_output=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"cut off before it was finished", result.stderr)


def payload_of(path):
    data = path.read_bytes()
    return hashlib.md5(data).hexdigest(), len(data)


if __name__ == "__main__":
    unittest.main()
