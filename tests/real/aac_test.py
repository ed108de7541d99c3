"""AAC files as ffmpeg writes them."""

import subprocess
import unittest

from real_media import VEX, RealMedia, dumped, make, probed, tone

CHANNELS = {96000: 2, 48000: 6, 44100: 1, 22050: 2, 8000: 1}  # by sampling rate


class Aac(RealMedia):
    def decoded(self, path):
        wave = path.with_suffix(".wav")
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", str(path), "-bitexact", str(wave)], check=True,
                       timeout=600)
        return wave.read_bytes()

    def test_frames_are_the_packets_of_ffprobe_without_their_headers(self):
        for rate, channels in CHANNELS.items():
            with self.subTest(rate):
                path = make(self.folder / "sound.aac", *tone(rate=rate), "-c:a", "aac", "-ac", channels)
                _, packets = probed(path)
                status, pins = dumped(path)
                self.assertEqual(status, 0)
                self.assertEqual([s["size"] + 7 for s in pins[0]], [p.size for p in packets[0]])
                extracted = self.folder / "again"
                subprocess.run([VEX, "extract", "-o", str(extracted), str(path)], check=True, timeout=600,
                               stdout=subprocess.DEVNULL)
                self.assertEqual(self.decoded(extracted / "sound_0.aac"), self.decoded(path))


if __name__ == "__main__":
    unittest.main()
