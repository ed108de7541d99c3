"""Ogg files as ffmpeg and ogmmerge write them."""

import shutil
import subprocess
import unittest

from real_media import VEX, RealMedia, dumped, make, pins_of, probed, tone, video

THEORA = ["-c:v", "libtheora", "-g", "16"]
VORBIS = ["-c:a", "libvorbis"]
FILMS = {
    "Theora, Vorbis": [*video(), *tone(), *THEORA, *VORBIS],
    "a large granule shift": [*video(4), "-c:v", "libtheora", "-g", "250"],
    "a rate that is no whole number": [*video(rate="30000/1001"), *THEORA],
    "Vorbis of 8 kHz": [*tone(rate=8000), *VORBIS],
    "Vorbis of 96 kHz": [*tone(rate=96000), *VORBIS],
    "two sounds": [*tone(), *tone(frequency=900, rate=22050), "-map", "0", "-map", "1", *VORBIS],
}
HEADERS = 3  # samples ahead of the data of a Theora or Vorbis pin
SRT = "1\n00:00:00,500 --> 00:00:01,200\nHello\n\n2\n00:00:01,500 --> 00:00:02,500\nWorld\n"


class Ogg(RealMedia):
    def assert_payloads(self, path, headers, status=0):
        kinds, packets = probed(path)
        returned, samples = dumped(path)
        self.assertEqual(returned, status)
        for pin, stream in enumerate(pins_of(kinds)):
            self.assertEqual([s["md5"] for s in samples[pin]][headers:], [p.md5 for p in packets[stream]],
                             f"stream {stream}")
        return samples

    def test_what_ffmpeg_writes_is_what_ffprobe_finds(self):
        for what, arguments in FILMS.items():
            with self.subTest(what):
                self.assert_payloads(make(self.folder / "film.ogv", *arguments), HEADERS)

    def test_pictures_have_the_times_of_the_file(self):
        path = make(self.folder / "film.ogv", *video(), *THEORA)
        _, samples = dumped(path)
        self.assertEqual([s["start"] for s in samples[0]][HEADERS:], [400_000 * n for n in range(75)])

    def test_a_file_cut_in_the_middle_plays_up_to_the_cut(self):
        path = make(self.folder / "film.ogv", *video(), *tone(), *THEORA, *VORBIS)
        kinds, packets = probed(path)
        data = path.read_bytes()
        path.write_bytes(data[:len(data) * 3 // 5])
        status, samples = dumped(path)
        self.assertEqual(status, 1)
        for pin, stream in enumerate(pins_of(kinds)):
            count = len(samples[pin]) - HEADERS
            self.assertGreater(count, len(packets[stream]) // 3)
            self.assertEqual([s["md5"] for s in samples[pin]][HEADERS:], [p.md5 for p in packets[stream]][:count])

    def test_extracted_vorbis_is_an_ogg_file_of_the_same_packets(self):
        path = make(self.folder / "film.ogv", *video(), *tone(), *THEORA, *VORBIS)
        out = self.folder / "sound.ogg"
        subprocess.run([VEX, "extract", "--pin", "1", "--output", str(out), str(path)], check=True, timeout=120)
        _, packets = probed(path)
        _, extracted = probed(out)
        self.assertEqual([p.md5 for p in extracted[0]], [p.md5 for p in packets[1]])

    def test_ogm_streams_are_what_ffprobe_finds_and_text_is_extracted(self):
        if not shutil.which("ogmmerge"):
            self.skipTest("ogmmerge is not installed")
        film = make(self.folder / "film.avi", *video(), *tone(), "-c:v", "mpeg4", "-vtag", "XVID", "-c:a", "libmp3lame")
        text = self.folder / "text.srt"
        text.write_text(SRT, encoding="utf-8")
        path = self.folder / "film.ogm"
        subprocess.run(["ogmmerge", "-o", path, film, text], check=True, timeout=120, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        kinds, packets = probed(path)
        _, samples = dumped(path)
        for pin, stream in enumerate(pins_of(kinds)):
            if kinds[stream] == "video":
                self.assertEqual([s["md5"] for s in samples[pin]], [p.md5 for p in packets[stream]])
            if kinds[stream] == "audio":
                self.assertEqual(sum(s["size"] for s in samples[pin]), sum(p.size for p in packets[stream]))
        out = self.folder / "out.srt"
        subprocess.run([VEX, "extract", "--pin", "2", "--output", str(out), str(path)], check=True, timeout=120)
        extracted = out.read_text(encoding="utf-8")
        self.assertIn("00:00:00,500 --> 00:00:01,200\nHello", extracted)
        self.assertIn("00:00:01,500 --> 00:00:02,500\nWorld", extracted)


if __name__ == "__main__":
    unittest.main()
