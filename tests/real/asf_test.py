"""ASF files as ffmpeg writes them, and what a cut and careless writers make of them."""

import json
import random
import subprocess
import unittest

from real_media import VEX, RealMedia, Rules, dumped, make, probed, tone, video

# The file counts from the preroll, and ffprobe from there too; ASF has no times but presentation times.
RULES = Rules(time="pts", tolerance=1)
WMA2 = ["-c:a", "wmav2", "-b:a", "128k"]

FILMS = {
    "WMV 7, WMA 1": [*video(), *tone(), "-c:v", "wmv1", "-g", "12", "-c:a", "wmav1", "-b:a", "128k"],
    "WMV 8, WMA 2": [*video(), *tone(), "-c:v", "wmv2", "-g", "12", *WMA2],
    "MS MPEG-4, MP3": [*video(), *tone(), "-c:v", "msmpeg4", "-c:a", "libmp3lame"],
    "MPEG-4, PCM": [*video(), *tone(), "-c:v", "mpeg4", "-c:a", "pcm_s16le"],
    "H.264 with B-frames, AC-3": [*video(), *tone(), "-c:v", "libx264", "-preset", "veryfast", "-bf", "2", "-g", "20",
                                  "-c:a", "ac3"],
    "packets of 100 bytes": [*video(), *tone(), "-c:v", "wmv2", *WMA2, "-packet_size", "100"],
    "packets of 64 KiB": [*video(), *tone(), "-c:v", "wmv2", *WMA2, "-packet_size", "65536"],
    "sound alone": [*tone(), *WMA2],
    "pictures alone": [*video(), "-c:v", "wmv2"],
}
DATA = bytes.fromhex("3626b2758e66cf11a6d900aa0062ce6c")
INDEX = bytes.fromhex("90080033b1e5cf1189f400a0c90349cb")


class Asf(RealMedia):
    def film(self, seconds=3, *more):
        return make(self.folder / "film.asf", *video(seconds), *tone(seconds), "-c:v", "wmv2", "-g", "25", *WMA2, *more)

    def test_what_ffmpeg_writes_is_what_ffprobe_finds(self):
        self.assert_films_like_ffprobe(FILMS, "film.asf", RULES)

    def test_each_language_has_a_pin_with_its_best_sound(self):
        path = make(self.folder / "film.asf", *video(), *tone(), *tone(frequency=900), *tone(frequency=600),
                    "-map", "0", "-map", "1", "-map", "2", "-map", "3", "-c:v", "wmv2", "-c:a", "wmav2",
                    "-b:a:0", "64k", "-b:a:1", "128k",
                    "-b:a:2", "64k", *(f"-metadata:s:a:{i}" if what else f"language={language}"
                                       for i, language in enumerate(("eng", "eng", "ger")) for what in (1, 0)))
        _, packets = probed(path)
        _, samples = dumped(path)
        self.assertEqual(sorted(samples), [0, 1, 2])
        for pin, stream in enumerate((0, 2, 3)):
            self.assert_same_packets(samples[pin], packets[stream], f"stream {stream}")
        pins = json.loads(subprocess.run([VEX, "probe", "--json", str(path)], check=True, capture_output=True,
                                         timeout=60).stdout)["files"][0]["pins"]
        self.assertEqual([pin["name"] for pin in pins], ["Video Pin", "Audio Pin.English", "Audio Pin.German"])

    def test_a_file_cut_in_the_middle_plays_up_to_the_cut(self):
        path = self.film()
        _, whole = dumped(path)
        data = path.read_bytes()
        path.write_bytes(data[:len(data) * 3 // 5])
        status, samples = dumped(path)
        self.assertEqual(status, 1)
        for pin, own in samples.items():
            self.assertGreater(len(own), len(whole[pin]) // 3)
            self.assertEqual([s["md5"] for s in own], [s["md5"] for s in whole[pin]][:len(own)])

    def test_a_broadcast_without_sizes_plays_to_the_end_of_the_file(self):
        path = self.film()
        _, whole = dumped(path)
        data = bytearray(path.read_bytes())
        del data[data.index(INDEX):]
        start = data.index(DATA)
        data[start + 16:start + 24] = bytes(8)
        properties = data.index(bytes.fromhex("a1dcab8c47a9cf118ee400c00c205365"))
        data[properties + 64:properties + 72] = bytes(8)  # play duration
        data[properties + 88] |= 1
        path.write_bytes(data)
        status, samples = dumped(path)
        self.assertEqual(status, 0)
        self.assertEqual([s["md5"] for pin in samples.values() for s in pin],
                         [s["md5"] for pin in whole.values() for s in pin])

    def seeks(self, path, targets):
        result = subprocess.run([VEX, "seek", "--json", str(path), *map(str, targets)], capture_output=True,
                                timeout=300, check=True)
        return json.loads(result.stdout)["files"][0]["seeks"]

    def assert_seeks(self, path, pin, late):
        """Each lands on the packet in which a key frame begins, at most `late` (100 ns) behind its target."""
        _, whole = dumped(path)
        keys = [s["start"] for s in whole[pin] if s["sync"]]
        generator = random.Random(1)
        last = max(keys) / 10_000_000
        targets = [generator.randrange(1, int(last * 10)) / 10 for _ in range(50)]
        for target, seek in zip(targets, self.seeks(path, targets)):
            with self.subTest(target=target):
                units = round(target * 10_000_000)
                first = seek["pins"][pin]["samples"][0]["start"] + units
                # The packet may begin with the frames ahead of it.
                key = min(key for key in keys if key >= first)
                self.assertLess(key - first, 4_000_000)
                self.assertLessEqual(key, units + late)

    def test_seeks_by_the_simple_index_are_at_most_one_interval_late(self):
        self.assert_seeks(self.film(40), 0, 10_000_000)

    def test_seeks_by_the_user_index_land_before_their_target(self):
        path = self.film(40)
        data = path.read_bytes()
        path.write_bytes(data[:data.index(INDEX)])
        self.assert_seeks(path, 0, 0)
        self.assert_seeks(make(self.folder / "sound.wma", *tone(40), *WMA2), 0, 0)

    def test_what_is_extracted_decodes_to_the_same_pictures_and_sound(self):
        def decoded(path, stream):
            return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-map", f"0:{stream}",
                                   "-f", "md5", "-"],
                                  check=True, capture_output=True, timeout=60).stdout

        path = make(self.folder / "film.asf", *FILMS["MPEG-4, PCM"][:-1], "mp2")
        written = json.loads(subprocess.run([VEX, "extract", "--json", str(path), "-o", str(self.folder / "out")],
                                            check=True, capture_output=True, timeout=60).stdout)["files"][0]["outputs"]
        _, packets = probed(path)
        for stream, output in enumerate(written):
            self.assertEqual(output["bytes"], sum(packet.size for packet in packets[stream]))
        self.assertEqual(decoded(written[1]["path"], 0), decoded(path, 1))

    def test_encrypted_sound_is_said_and_plays(self):
        path = self.film()
        data = bytearray(path.read_bytes())
        at = data.index(bytes.fromhex("9107dcb7b7a9cf118ee600c00c205365"))
        data[at + 73] |= 0x80
        path.write_bytes(data)
        said = subprocess.run([VEX, "probe", str(path)], check=True, capture_output=True, timeout=60).stdout
        self.assertIn(b"encrypted", said)
        self.assertEqual(dumped(path)[0], 0)


if __name__ == "__main__":
    unittest.main()
