"""MP3 files as ffmpeg writes them."""

import unittest

from real_media import RealMedia, Rules, dumped, make, probed, tone

# The sampling rate, codec options, and whether the first frame is one that ffprobe leaves out.
SOUNDS = {
    "constant rate": (44100, ["-b:a", "128k", "-write_xing", "0"], False),
    "variable rate with a Xing frame": (48000, ["-q:a", "3", "-ac", "2"], True),
    "constant rate with an Info frame": (32000, ["-b:a", "64k"], True),
    "MPEG-2": (22050, ["-b:a", "48k", "-write_xing", "0"], False),
    "MPEG-2.5": (8000, ["-b:a", "16k", "-write_xing", "0", "-id3v2_version", "0"], False),
    "joint stereo, tags at both ends": (44100, ["-ac", "2", "-b:a", "96k", "-write_xing", "0", "-write_id3v1", "1",
                                                "-metadata", "title=" + "x" * 3000], False),
}


class Mp3(RealMedia):
    def test_frames_are_the_packets_of_ffprobe(self):
        for name, (rate, options, extra) in SOUNDS.items():
            with self.subTest(name):
                path = make(self.folder / "sound.mp3", *tone(rate=rate), "-c:a", "libmp3lame", *options)
                _, packets = probed(path, Rules(parse=True))
                status, pins = dumped(path)
                self.assertEqual(status, 0)
                self.assertEqual([s["md5"] for s in pins[0]][1 if extra else 0:], [p.md5 for p in packets[0]])
                self.assertTrue(all(s["sync"] for s in pins[0]))
                self.assertLess(abs(pins[0][-1]["stop"] / 1e7 - 3), 0.2)


if __name__ == "__main__":
    unittest.main()
