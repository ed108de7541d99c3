"""AVI files as ffmpeg writes them."""

import subprocess
import unittest

from real_media import RealMedia, dumped, make, payload, pins_of, probed, tone, video

MPEG4 = ["-c:v", "mpeg4", "-g", "12"]
MP3 = ["-c:a", "libmp3lame", "-b:a", "64k"]
# Without an index the payload has to tell the key frames, and is only asked for codes that are known to be MPEG-4.
XVID = [*MPEG4, "-vtag", "XVID"]

FILMS = {
    "MPEG-4, MP3 of constant rate": [*video(), *tone(), *MPEG4, *MP3],
    "MPEG-4 with B-frames, MP3 of variable rate": [*video(), *tone(), *MPEG4, "-bf", "2", "-c:a", "libmp3lame",
                                                   "-q:a", "4"],
    "raw RGB": [*video(1), "-c:v", "rawvideo", "-pix_fmt", "bgr24"],
    "H.264, AC-3": [*video(), *tone(rate=48000), "-c:v", "libx264", "-g", "20", "-bf", "2", "-preset", "veryfast",
                    "-c:a", "ac3"],
    "several audio streams": [*video(), *tone(frequency=300), *tone(frequency=600, rate=22050), *tone(frequency=900),
                              "-map", "0", "-map", "1", "-map", "2", "-map", "3", *MPEG4,
                              "-c:a:0", "libmp3lame", "-c:a:1", "pcm_s16le", "-c:a:2", "ac3"],
    "a second video stream, which gets no pin": [*video(), *video(rate=10), *tone(), "-map", "0", "-map", "1",
                                                 "-map", "2", *MPEG4, *MP3],
    "sound alone": [*tone(), *MP3],
}


class Avi(RealMedia):
    def path(self, name="film.avi"):
        return self.folder / name

    def test_what_ffmpeg_writes_is_what_ffprobe_finds(self):
        self.assert_films_like_ffprobe(FILMS, "film.avi")

    def test_motion_jpeg_pictures_all_stand_alone(self):
        samples = self.assert_like_ffprobe(make(self.path(), *video(), *tone(), "-c:v", "mjpeg", "-c:a", "pcm_s16le"))
        self.assertTrue(all(s["sync"] for s in samples[0]))

    def test_a_file_without_index_or_with_one_that_is_none_is_scanned(self):
        path = make(self.path(), *video(), *tone(), *XVID, *MP3)
        kinds, packets = probed(path)
        data = path.read_bytes()
        at = data.rindex(b"idx1")
        for scanned in (data[:at], data[:at] + b"JUNK" + data[at + 4:]):
            path.write_bytes(scanned)
            _, samples = dumped(path)
            for pin, stream in enumerate(pins_of(kinds)):
                self.assert_same_packets(samples[pin], packets[stream], f"stream {stream}")

    def test_a_file_cut_in_the_middle_plays_up_to_the_cut(self):
        path = make(self.path(), *video(), *tone(), *XVID, *MP3)
        kinds, packets = probed(path)
        data = path.read_bytes()
        path.write_bytes(data[:len(data) * 3 // 5])
        status, samples = dumped(path)
        self.assertEqual(status, 1)
        for pin, stream in enumerate(pins_of(kinds)):
            count = len(samples[pin])
            self.assertGreater(count, len(packets[stream]) // 3)
            # The packet that the cut goes through may come in part.
            self.assert_same_packets(samples[pin][:count - 1], packets[stream][:count - 1], f"stream {stream}")

    def test_what_is_extracted_is_what_the_muxer_was_given(self):
        path = make(self.path(), *video(), *tone(), *MPEG4, *MP3)
        for pin, stream in enumerate("va"):
            raw = self.folder / f"raw.{pin}"
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-map", f"0:{stream}", "-c", "copy",
                            "-f", "data", str(raw)], check=True, timeout=120)
            self.assertEqual(payload(path, pin)[1], raw.stat().st_size)

    def test_times_are_those_of_the_file(self):
        _, samples = dumped(make(self.path(), *video(rate=20), *tone(), *MPEG4, *MP3))
        starts = [s["start"] for s in samples[0]]
        self.assertTrue(all(start % 500000 == 0 for start in starts), "pictures of 50 ms")
        self.assertEqual(starts, sorted(starts))
        for pin in samples.values():
            self.assertTrue(all(s["mediaStart"] == s["start"] // 100000 for s in pin))
            self.assertLess(abs(pin[-1]["stop"] / 1e7 - 3), 0.2)


if __name__ == "__main__":
    unittest.main()
