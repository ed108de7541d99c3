"""Matroska files as ffmpeg and mkvmerge write them."""

import json
import random
import shutil
import subprocess
import unittest

from real_media import VEX, RealMedia, dumped, make, probed, tone, video

H264 = ["-c:v", "libx264", "-preset", "veryfast", "-g", "20"]
AAC = ["-c:a", "aac", "-b:a", "64k"]
PIN_WITHOUT_TYPE = {"attachment", "data"}

SRT = """1
00:00:00,500 --> 00:00:01,200
Hello <i>world</i>

2
00:00:01,500 --> 00:00:02,500
Zweite Zeile: \u00e4\u00f6\u00fc \u4e2d\u6587
"""


def mkvmerge(path, *arguments):
    # Status 1 is a warning.
    result = subprocess.run(["mkvmerge", "-q", "-o", str(path), *map(str, arguments)], timeout=600, check=False,
                            stdout=subprocess.DEVNULL)
    assert result.returncode < 2, arguments
    return path


def probe(path):
    text = subprocess.run([VEX, "probe", "--json", str(path)], capture_output=True, timeout=120, check=False).stdout
    return json.loads(text)["files"][0]


class Matroska(RealMedia):
    def setUp(self):
        super().setUp()
        if not shutil.which("mkvmerge"):
            self.skipTest("mkvmerge is not installed")

    def path(self, name="film.mkv"):
        return self.folder / name

    def source(self, *codecs, seconds=3, name="source.mkv"):
        return make(self.path(name), *video(seconds), *tone(seconds), *codecs)

    def assert_same_payloads(self, path, status=0):
        """Every track's payloads in order. Of a laced Block only the first frame is marked as a sync point and its
        times are cut into equal parts, so flags and times are compared only where there is one frame to a Block."""
        kinds, packets = probed(path)
        returned, samples = dumped(path)
        self.assertEqual(returned, status)
        streams = [index for index, kind in sorted(kinds.items()) if kind not in PIN_WITHOUT_TYPE]
        self.assertEqual(sorted(samples), list(range(len(streams))))
        for pin, stream in enumerate(streams):
            self.assertGreater(len(packets[stream]), 0)
            self.assertEqual([s["md5"] for s in samples[pin]], [p.md5 for p in packets[stream]],
                             f"{path.name}: {stream}")
            if kinds[stream] == "video":
                self.assertEqual([s["sync"] for s in samples[pin]], [p.key for p in packets[stream]],
                                 f"key frames {stream}")
        return samples

    def test_each_codec_of_the_tables_as_ffmpeg_muxes_it(self):
        for name, codecs in {
            "H.264 with B-frames, AAC": [*H264, "-bf", "2", *AAC],
            "H.264 without B-frames, MP3": [*H264, "-bf", "0", "-c:a", "libmp3lame"],
            "MPEG-2, AC-3": ["-c:v", "mpeg2video", "-c:a", "ac3"],
            "MPEG-4, E-AC-3": ["-c:v", "mpeg4", "-c:a", "eac3"],
            "Theora, Vorbis": ["-c:v", "libtheora", "-c:a", "libvorbis"],
            "VP8, FLAC": ["-c:v", "libvpx", "-deadline", "realtime", "-c:a", "flac"],
            "MPEG-4 with B-frames, PCM": ["-c:v", "mpeg4", "-bf", "2", "-c:a", "pcm_s16le"],
            "H.264, TTA": [*H264, "-c:a", "tta"],
            "H.264, DTS": [*H264, "-strict", "-2", "-c:a", "dca", "-ar", "48000"],
        }.items():
            with self.subTest(name):
                self.assert_same_payloads(self.source(*codecs))

    def test_laced_sound_and_block_groups_as_mkvmerge_muxes_them(self):
        for codecs in ([*H264, *AAC], ["-c:v", "mpeg4", "-c:a", "libvorbis"], ["-c:v", "mpeg4", "-c:a", "pcm_s16le"],
                       [*H264, "-c:a", "flac"], [*H264, "-c:a", "ac3"]):
            source = self.source(*codecs)
            for options in ([], ["--engage", "no_simpleblocks"], ["--engage", "lacing_xiph"],
                            ["--engage", "lacing_ebml"], ["--disable-lacing"]):
                with self.subTest(codecs=codecs, options=options):
                    self.assert_same_payloads(mkvmerge(self.path(), *options, source))

    def test_content_encodings_are_taken_off(self):
        source = self.source(*H264, "-c:a", "ac3")
        for kind in ("zlib", "none"):
            with self.subTest(kind):
                self.assert_same_payloads(mkvmerge(self.path(), "--compression", f"-1:{kind}", source))

    def test_vfw_video_inside_avi(self):
        avi = make(self.path("source.avi"), *video(), *tone(), "-c:v", "mpeg4", "-vtag", "XVID", "-c:a", "libmp3lame")
        self.assert_same_payloads(mkvmerge(self.path(), "--engage", "allow_avc_in_vfw_mode", avi))

    def test_no_cues_split_appended_and_many_tracks(self):
        source = self.source(*H264, *AAC, seconds=4)
        self.assert_same_payloads(mkvmerge(self.path("nocues.mkv"), "--no-cues", source))
        self.assert_same_payloads(mkvmerge(self.path("appended.mkv"), source, "+", source))
        mkvmerge(self.path("split.mkv"), "--split", "duration:2s", source)
        for part in sorted(self.folder.glob("split-*.mkv")):
            self.assert_same_payloads(part)
        self.assert_same_payloads(mkvmerge(self.path("many.mkv"), *[source] * 8))

    def test_a_recording_without_sizes_and_one_cut_off(self):
        source = self.source(*H264, *AAC)
        live = make(self.path("live.mkv"), "-i", source, "-c", "copy", "-live", "1")
        self.assert_same_payloads(live)
        piped = self.path("piped.mkv")
        with open(piped, "wb") as out:
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(source), "-c", "copy",
                            "-f", "matroska", "pipe:1"],
                           stdout=out, check=True, timeout=120)
        whole = self.assert_same_payloads(piped)
        data = piped.read_bytes()
        piped.write_bytes(data[:len(data) * 3 // 5])
        _, samples = dumped(piped)
        for pin, all_samples in whole.items():
            count = len(samples[pin])
            self.assertGreater(count, len(all_samples) // 4)
            # The Block that the cut goes through may come in part.
            self.assertEqual([s["md5"] for s in samples[pin][:count - 1]], [s["md5"] for s in all_samples[:count - 1]])

    def test_subtitles_languages_names_and_attachments(self):
        source = self.source(*H264, *AAC)
        srt = self.path("text.srt")
        srt.write_text(SRT, encoding="utf-8")
        ass = make(self.path("text.ass"), "-i", srt)
        note = self.path("note.txt")
        note.write_text("carried along\n", encoding="utf-8")
        path = mkvmerge(self.path(), "--title", "A title", "--language", "1:jpn",
                        "--track-name", "1:Commentary", source, "--language", "0:ger",
                        "--forced-display-flag", "0:yes", srt, "--language", "0:fre",
                        "--default-track-flag", "0:no", ass, "--attach-file", note)
        info = probe(path)
        self.assertEqual([p["name"] for p in info["pins"]],
                         ["Undetermined (Video 1)", "Japanese, Commentary (Audio 1)", "German (Subtitle 1)",
                          "French (Subtitle 2)"])
        self.assertIn("A title", json.dumps(info))
        self.assertEqual(info["attachments"][0]["name"], "note.txt")
        samples = self.assert_same_payloads(path)
        first = samples[2][0]
        self.assertEqual((first["start"], first["stop"]), (5_000_000, 12_000_000))

        folder = self.path("out")
        folder.mkdir()
        subprocess.run([VEX, "extract", "--attachments", "-o", str(folder), str(path)], check=True, timeout=120)
        self.assertEqual(next(folder.glob("*note.txt")).read_bytes(), note.read_bytes())
        text = subprocess.run([VEX, "extract", "--pin", "2", str(path)], check=True, capture_output=True,
                              timeout=120).stdout
        (folder / "x.srt").write_bytes(text)
        played = subprocess.run(["ffprobe", "-v", "error", "-show_packets", "-of", "json", str(folder / "x.srt")],
                                check=True, capture_output=True, timeout=120).stdout
        self.assertEqual(len(json.loads(played)["packets"]), 2)

    def test_a_seek_lands_on_a_key_frame_at_or_before_its_target(self):
        source = self.source(*H264, "-bf", "2", *AAC, seconds=12)
        random.seed(1)
        for name, path in {"cues": mkvmerge(self.path("a.mkv"), "--cluster-length", "500ms", source),
                           "no cues": mkvmerge(self.path("b.mkv"), "--cluster-length", "500ms", "--no-cues", source),
                           "block groups": mkvmerge(self.path("c.mkv"), "--engage", "no_simpleblocks", source)}.items():
            _, whole = dumped(path)
            keys = {s["start"] for s in whole[0] if s["sync"]}
            targets = [random.uniform(0.1, 11.9) for _ in range(70)]
            result = subprocess.run([VEX, "seek", "--json", str(path), *[f"{t:.3f}" for t in targets]],
                                    capture_output=True, timeout=300, check=True)
            seeks = json.loads(result.stdout)["files"][0]["seeks"]
            for target, seek in zip(targets, seeks):
                with self.subTest(name, target=target):
                    pin = seek["pins"][0]
                    first = pin["samples"][0]
                    self.assertTrue(first["sync"])
                    self.assertIn(first["start"] + pin["segmentStart"], keys)
                    self.assertLessEqual(first["start"], 0)
                    # The nearest one, not just any before it.
                    start = first["start"] + pin["segmentStart"]
                    passed = [key for key in keys if start < key <= pin["reached"] - 10_000]
                    self.assertEqual(passed, [])
                    sound = seek["pins"][1]["samples"][0]
                    self.assertLessEqual(sound["start"], 1_000_000)


if __name__ == "__main__":
    unittest.main()
