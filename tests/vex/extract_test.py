"""Extracted streams, as other tools read them."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

VEX = os.environ["VEX_BINARY"]
SUBTITLES = """1
00:00:00,500 --> 00:00:01,250
First line
and a second

2
00:00:01,500 --> 00:00:02,000
Ünïcode, with a comma
"""


def run(*command):
    return subprocess.run(list(map(str, command)), capture_output=True, timeout=300, check=True,
                          stdin=subprocess.DEVNULL).stdout


def ffmpeg(*arguments):
    return run("ffmpeg", "-nostdin", "-v", "error", "-y", *arguments)


def decoded(path, stream):
    """A digest of what a stream decodes to."""
    return ffmpeg("-i", path, "-map", f"0:{stream}", "-f", "md5", "-")


class Extract(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not shutil.which("ffmpeg"):
            raise unittest.SkipTest("ffmpeg is not installed")
        folder = tempfile.TemporaryDirectory(prefix="vex-extract-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.film = cls.folder / "film.mkv"
        (cls.folder / "film.srt").write_text(SUBTITLES, encoding="utf-8")
        (cls.folder / "font.ttf").write_bytes(bytes(range(256)) * 9000)
        ffmpeg("-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=3", "-f", "lavfi", "-i", "sine=duration=3",
               "-f", "lavfi", "-i", "sine=frequency=880:duration=3", "-map", "0", "-map", "1", "-map", "2",
               "-c:v", "libx264", "-bf", "2", "-g", "25", "-c:a:0", "aac", "-c:a:1", "libvorbis", cls.film)
        cls.outputs = cls.extracted(cls.film)

    @classmethod
    def extracted(cls, path):
        [result] = json.loads(run(VEX, "extract", "--json", path, "-o", cls.folder / "out"))["files"]
        return {output["pin"]: output for output in result["outputs"]}

    def output(self, pin, wanted, outputs=None):
        output = (outputs or self.outputs)[pin]
        self.assertEqual(output["format"], wanted)
        return pathlib.Path(output["path"])

    def test_h264_is_an_annex_b_stream_that_decodes_to_the_same_pictures(self):
        path = self.output(0, "annexb")
        self.assertEqual(path.suffix, ".h264")
        self.assertEqual(decoded(path, "v"), decoded(self.film, "v"))

    def test_aac_is_the_adts_stream_that_a_muxer_writes(self):
        path = self.output(1, "adts")
        reference = self.folder / "reference.aac"
        ffmpeg("-i", self.film, "-map", "0:a:0", "-c", "copy", "-f", "adts", reference)
        self.assertEqual(path.read_bytes(), reference.read_bytes())

    def test_vorbis_is_an_ogg_file_of_the_right_length(self):
        path = self.output(2, "ogg")
        packets = [[packet["data_hash"] for packet in json.loads(
            run("ffprobe", "-v", "error", "-select_streams", stream, "-show_packets", "-show_data_hash", "md5",
                "-of", "json", file))["packets"]] for stream, file in (("a:0", path), ("a:1", self.film))]
        self.assertEqual(packets[0], packets[1])
        duration = float(run("ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", path))
        self.assertAlmostEqual(duration, 3, delta=0.05)
        complaints = subprocess.run(["ffmpeg", "-nostdin", "-v", "warning", "-i", path, "-f", "null", "-"],
                                    capture_output=True, timeout=60, check=True).stderr
        self.assertEqual(complaints, b"")

    def test_text_subtitles_are_files_that_players_open(self):
        # No sound: its encoder's delay would make the file start later than 0, and a file plays from its start.
        film = self.folder / "subtitled.mkv"
        ffmpeg("-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=3", "-i", self.folder / "film.srt", "-i",
               self.folder / "film.srt", "-map", "0", "-map", "1", "-map", "2", "-c:v", "mpeg4", "-c:s:0", "srt",
               "-c:s:1", "ass", film)
        outputs = self.extracted(film)
        original = ffmpeg("-copyts", "-i", film, "-map", "0:s:0", "-f", "srt", "-")
        self.assertEqual(ffmpeg("-copyts", "-i", self.output(1, "subrip", outputs), "-f", "srt", "-"), original)
        styled = ffmpeg("-copyts", "-i", film, "-map", "0:s:1", "-c", "copy", "-f", "ass", "-")
        self.assertEqual(ffmpeg("-copyts", "-i", self.output(2, "ass", outputs), "-c", "copy", "-f", "ass", "-"),
                         styled)

    def test_attachments_come_out_byte_for_byte_and_whatever_their_names_replace_nothing(self):
        film = self.folder / "attached" / "film.mkv"
        film.parent.mkdir()
        font = self.folder / "font.ttf"
        names = ["film.mkv", "../.hidden", "a.ttf", "a.ttf", "4_b.ttf", "b.ttf", "b.ttf", "x" * 300]
        arguments = []
        for i, name in enumerate(names):
            arguments += ["-attach", font, f"-metadata:s:t:{i}", f"filename={name}"]
        ffmpeg("-i", self.film, "-map", "0:0", "-c", "copy", *arguments, "-metadata:s:t", "mimetype=font/ttf", film)
        before = film.read_bytes()
        run(VEX, "extract", "--attachments", film, "-o", film.parent)
        self.assertEqual(film.read_bytes(), before)
        film.unlink()
        written = {path.name: path.read_bytes() for path in film.parent.iterdir()}
        self.assertEqual(set(written), {"0_film.mkv", "hidden", "a.ttf", "3_a.ttf", "4_b.ttf", "b.ttf", "6_b.ttf",
                                        "attachment_7"})
        self.assertEqual(set(written.values()), {font.read_bytes()})


if __name__ == "__main__":
    unittest.main()
