"""FLV files as ffmpeg writes them, and as careless writers and bad lines leave them."""

import json
import random
import subprocess
import unittest

from real_media import VEX, RealMedia, Rules, dumped, make, probed, tone, video

H264 = ["-c:v", "libx264", "-preset", "veryfast", "-g", "20"]
AAC = ["-c:a", "aac"]
RULES = Rules(time="pts", audio_first=True)
PLAIN = ["-flvflags", "no_metadata+no_duration_filesize+no_sequence_end"]

FILMS = {
    "Sorenson H.263, MP3": [*video(), *tone(), "-c:v", "flv", "-g", "12", "-c:a", "libmp3lame"],
    "Sorenson H.263, ADPCM": [*video(), *tone(rate=22050), "-c:v", "flv", "-c:a", "adpcm_swf"],
    "H.264, AAC": [*video(), *tone(), *H264, "-bf", "0", *AAC],
    "H.264 with B-frames, AAC, no metadata": [*video(), *tone(), *H264, "-bf", "3", *AAC, *PLAIN],
    "times beyond 24 bits": [*video(), *tone(), *H264, "-bf", "2", *AAC, "-output_ts_offset", "20000"],
    "MP3 of 22 kHz": [*tone(rate=22050), "-c:a", "libmp3lame"],
    "MP3 of 11 kHz": [*tone(rate=11025), "-c:a", "libmp3lame"],
    "Nellymoser": [*tone(rate=22050), "-c:a", "nellymoser"],
    "Nellymoser of 16 kHz": [*tone(rate=16000), "-c:a", "nellymoser"],
    "Nellymoser of 8 kHz": [*tone(rate=8000), "-c:a", "nellymoser"],
    "sound alone": [*tone(), *AAC],
    "pictures alone": [*video(), *H264],
}


def units(data):
    """The positions of the PreviousTagSizes, the last one included, and the bytes of each tag between them."""
    position = 9
    while position + 15 <= len(data):
        size = int.from_bytes(data[position + 5:position + 8], "big") + 11
        yield position, data[position + 4:position + 4 + size]
        position += 4 + size


class Flv(RealMedia):
    def film(self):
        return make(self.folder / "film.flv", *FILMS["H.264 with B-frames, AAC, no metadata"])

    def test_what_ffmpeg_writes_is_what_ffprobe_finds(self):
        self.assert_films_like_ffprobe(FILMS, "film.flv", RULES)

    def test_times_go_beyond_24_bits_and_there_are_no_others(self):
        samples = self.assert_like_ffprobe(make(self.folder / "film.flv", *FILMS["times beyond 24 bits"]), rules=RULES)
        for sample in samples[0] + samples[1]:
            self.assertGreater(sample["start"], (1 << 24) * 10000)
            self.assertEqual(sample["stop"], sample["start"] + 1)
            self.assertTrue(sample["mediaStart"] is None and not sample["preroll"])

    def test_careless_writers_and_bad_lines_cost_no_packet(self):
        path = self.film()
        kinds, packets = probed(path)
        data = path.read_bytes()
        tags = [tag for _, tag in units(data)]
        sizes = [0, *map(len, tags)]
        for name, status, changed in (
                ("every PreviousTagSize is 0", 0, [bytes(4) + tag for tag in tags]),
                ("every PreviousTagSize is wrong", 0, [b"\0\0\0\x0b" + tag for tag in tags]),
                ("junk between tags", 1, [size.to_bytes(4, "big") + b"\x42" * (99 if number % 20 == 9 else 0) + tag
                                          for number, (size, tag) in enumerate(zip(sizes, tags))])):
            with self.subTest(name):
                path.write_bytes(data[:9] + b"".join(changed) + bytes(4))
                returned, samples = dumped(path)
                self.assertEqual(returned, status)
                for pin, kind in enumerate(("audio", "video")):
                    [stream] = [stream for stream in kinds if kinds[stream] == kind]
                    self.assert_same_packets(samples[pin], packets[stream], kind)

    def test_a_stream_cut_off_plays_up_to_the_cut(self):
        path = self.film()
        _, whole = dumped(path)
        data = path.read_bytes()
        path.write_bytes(data[:len(data) * 3 // 5])
        status, samples = dumped(path)
        self.assertEqual(status, 1)
        for pin, own in samples.items():
            self.assertGreater(len(own), len(whole[pin]) // 3)
            # The last tag may come in part.
            self.assertEqual([s["md5"] for s in own[:-1]], [s["md5"] for s in whole[pin][:len(own) - 1]])

    def test_a_seek_lands_on_the_last_key_frame_before_its_target(self):
        path = make(self.folder / "film.flv", *video(60, "640x480"), *tone(60), *H264, "-bf", "2", *AAC)
        self.assertGreater(path.stat().st_size, 1 << 20)
        _, whole = dumped(path)
        keys = [s["start"] for s in whole[1] if s["sync"]]
        generator = random.Random(1)
        targets = [generator.randrange(1, 590) / 10 for _ in range(50)]
        result = subprocess.run([VEX, "seek", "--json", str(path), *map(str, targets)], capture_output=True,
                                timeout=120, check=True)
        for target, seek in zip(targets, json.loads(result.stdout)["files"][0]["seeks"]):
            with self.subTest(target=target):
                pin = seek["pins"][1]
                units_100ns = round(target * 10_000_000)
                self.assertEqual(pin["segmentStart"], units_100ns)
                expected = max((key for key in keys if key < units_100ns), default=keys[0])
                self.assertEqual(pin["samples"][0]["start"] + units_100ns, expected)

    def test_what_is_extracted_decodes_to_the_same_pictures_and_sound(self):
        def decoded(path, stream):
            return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-map", f"0:{stream}",
                                   "-f", "md5", "-"],
                                  check=True, capture_output=True, timeout=60).stdout

        for name, formats in (("H.264, AAC", ["adts", "annexb"]), ("MP3 of 22 kHz", ["raw"])):
            path = make(self.folder / "film.flv", *FILMS[name])
            written = json.loads(subprocess.run([VEX, "extract", "--json", str(path), "-o", str(self.folder / "out")],
                                                check=True, capture_output=True,
                                                timeout=60).stdout)["files"][0]["outputs"]
            self.assertEqual([output["format"] for output in written], formats)
            for output, stream in zip(written, "av"):
                self.assertEqual(decoded(output["path"], stream), decoded(path, stream), output["path"])

    def test_a_kind_without_a_pin_is_named(self):
        path = make(self.folder / "film.flv", *video(), *tone(), "-c:v", "flashsv", "-c:a", "pcm_s16le")
        refused = subprocess.run([VEX, "probe", str(path)], capture_output=True, timeout=60, check=False)
        self.assertEqual(refused.returncode, 2)
        self.assertIn(b"little-endian PCM audio and Screen 1 video", refused.stderr)


if __name__ == "__main__":
    unittest.main()
