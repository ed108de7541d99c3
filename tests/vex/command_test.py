"""The command as a person or a script meets it: results, errors, exit statuses and the schemas of its JSON."""

import hashlib
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

import jsonschema

VEX = os.environ["VEX_BINARY"]
SOURCES = pathlib.Path(os.environ["VEX_SOURCE_DIR"])
SAMPLE = str(SOURCES / "samples" / "testsrc.avi")
SCHEMAS = SOURCES / "tools" / "vex" / "schema"
COMMANDS = ["filters", "probe", "play", "dump", "seek", "extract"]
DUMP_KEYS = ["pin", "start", "stop", "mediaStart", "mediaStop", "size", "sync", "discontinuity", "preroll", "md5"]


def run(*arguments):
    result = subprocess.run([VEX, *map(str, arguments)], capture_output=True, timeout=120, check=False)
    result.text = result.stdout.decode("utf-8")
    result.complaint = result.stderr.decode("utf-8")
    return result


def validated(command, document):
    schema = json.loads((SCHEMAS / f"{command}.json").read_text(encoding="utf-8"))
    jsonschema.Draft7Validator.check_schema(schema)
    jsonschema.Draft7Validator(schema).validate(document)
    return document


class Temporary(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vex-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def file(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def copy(self, name, size=None):
        return self.file(name, pathlib.Path(SAMPLE).read_bytes()[:size])

    def film(self, *options):
        path = self.folder / "film.mkv"
        subprocess.run(["ffmpeg", "-v", "error", "-i", SAMPLE, *options, "-c", "copy", path], check=True, timeout=60)
        return path


class Results(Temporary):
    @classmethod
    def setUpClass(cls):
        cls.dump = run("dump", "--json", SAMPLE).text
        cls.lines = [json.loads(line) for line in cls.dump.splitlines()]

    def of_pin(self, pin):
        return [line for line in self.lines if line["pin"] == pin]

    def test_every_json_document_keeps_to_its_schema(self):
        for arguments in (["filters"], ["probe", SAMPLE], ["probe", SAMPLE, "no-such-file"], ["play", SAMPLE],
                          ["play", "no-such-file"], ["seek", SAMPLE, "1", "0:02", "0"],
                          ["extract", SAMPLE, "-o", self.folder / "out"], ["extract", "no-such-file", "-o", "x"]):
            with self.subTest(arguments=arguments):
                self.assertEqual(validated(arguments[0], json.loads(run(*arguments, "--json").text))["schema"], 1)

    def test_probe_describes_the_sample(self):
        result = run("probe", "--json", SAMPLE)
        self.assertEqual((result.returncode, result.complaint), (0, ""))
        [file] = json.loads(result.text)["files"]
        self.assertEqual((file["file"], file["container"]), (SAMPLE, "AVI"))
        self.assertAlmostEqual(file["duration"] / 1e7, 4, delta=0.1)
        video, audio = file["pins"]
        self.assertEqual((video["major"], video["subtype"], video["formatType"]), ("video", "XVID", "VideoInfo"))
        self.assertEqual((video["format"]["width"], video["format"]["height"]), (256, 192))
        self.assertEqual((audio["major"], audio["format"]["sample_rate"]), ("audio", 44100))
        self.assertEqual(run("probe", SAMPLE).text.splitlines(), [
            f"{SAMPLE}: AVI, 0:00:04.048", "  0  video  MPEG-4 Visual, 256x192, 25 fps",
            "  1  audio  MP3, 44.1 kHz, mono, 48 kb/s"])

    def test_dump_says_the_same_every_time_in_every_form_and_for_a_pin_alone(self):
        for line in self.lines:
            self.assertEqual(list(validated("dump", line)), DUMP_KEYS)
        self.assertEqual(self.lines, self.of_pin(0) + self.of_pin(1), "samples are grouped by pin")
        for _ in range(5):
            self.assertEqual(run("dump", "--json", SAMPLE).text, self.dump)
        alone = run("dump", "--json", "--pin", "1", SAMPLE).text
        self.assertEqual([json.loads(line) for line in alone.splitlines()], self.of_pin(1))
        csv = run("dump", "--csv", SAMPLE).text.splitlines()
        self.assertEqual(csv, [",".join(DUMP_KEYS)] + [",".join(
            "" if v is None else v if isinstance(v, str) else str(int(v))
            for v in line.values()) for line in self.lines])
        people = run("dump", SAMPLE).text.splitlines()
        self.assertEqual([line.split()[-1] for line in people[1:]], [line["md5"] for line in self.lines])

    def test_play_counts_and_extract_writes_what_dump_lists(self):
        [played] = json.loads(run("play", "--json", SAMPLE).text)["files"]
        result = run("extract", "--json", SAMPLE, "-o", self.folder / "new" / "folder")
        self.assertEqual(result.returncode, 0, result.complaint)
        [extracted] = json.loads(result.text)["files"]
        for pin, output in zip(played["pins"], extracted["outputs"], strict=True):
            sizes = [line["size"] for line in self.of_pin(pin["index"])]
            self.assertEqual((pin["samples"], pin["bytes"], pin["ended"]), (len(sizes), sum(sizes), True))
            self.assertEqual(pathlib.Path(output["path"]).stat().st_size, sum(sizes))
        self.assertEqual(played["damage"]["places"], 0)
        for pin in json.loads(run("play", "--json", "--hash", SAMPLE).text)["files"][0]["pins"]:
            output = pathlib.Path(extracted["outputs"][pin["index"]]["path"])
            self.assertEqual(pin["md5"], hashlib.md5(output.read_bytes()).hexdigest())
        one = subprocess.run([VEX, "extract", "--pin", "1", "-o", "-", SAMPLE], capture_output=True, timeout=60,
                             check=True)
        self.assertEqual((one.stdout, one.stderr), (pathlib.Path(extracted["outputs"][1]["path"]).read_bytes(), b""))

    def test_seek_tells_what_a_player_gets_from_there_however_fast_the_pins_play_on(self):
        asked = ["seek", "--json", "-n", "2", SAMPLE, "2.5", "0", "3900ms"]
        [text] = {run(*asked).text for _ in range(20)}
        [file] = json.loads(text)["files"]
        self.assertEqual([seek["requested"] for seek in file["seeks"]], [25000000, 0, 39000000])
        for seek in file["seeks"]:
            for pin in seek["pins"]:
                first, second = pin["samples"]
                self.assertTrue(first["discontinuity"] and first["sync"])
                self.assertFalse(second["discontinuity"])
        [file] = json.loads(run("seek", "--json", "-n", "1000", SAMPLE, "1").text)["files"]
        self.assertEqual([pin["ended"] for pin in file["seeks"][0]["pins"]], [True, True])

    def test_seek_waits_for_the_index_that_a_cut_file_lacks(self):
        long, cut = self.folder / "long.avi", self.folder / "cut.avi"
        subprocess.run(["ffmpeg", "-v", "error", "-stream_loop", "300", "-i", SAMPLE, "-c", "copy", long], check=True,
                       timeout=60)
        cut.write_bytes(long.read_bytes()[:-long.stat().st_size // 10])
        [text] = {run("seek", cut, "1050").text for _ in range(5)}
        self.assertIn("pin 0 Video: reached 0:17:30.000", text)

    def test_a_pin_without_samples_shows_none_of_the_seek_before(self):
        path = self.film("-i", self.file("line.srt", b"1\n00:00:00,000 --> 00:00:00,500\nfirst\n"))
        [file] = json.loads(run("seek", "--json", path, "0", "3").text)["files"]
        subtitles = [seek["pins"][-1] for seek in file["seeks"]]
        self.assertEqual([(len(pin["samples"]), pin["ended"]) for pin in subtitles], [(1, True), (0, True)])

    def test_files_of_every_name_are_opened(self):
        path = self.copy("Füße 映画.avi")
        result = run("probe", "--json", path)
        self.assertEqual((result.returncode, json.loads(result.text)["files"][0]["file"]), (0, str(path)))
        for name in ("-f.avi", "play", os.fsdecode(b"caf\xE9.avi")):
            self.copy(name)
            result = subprocess.run([VEX, "extract", "-o", name + "-out", "--", name], cwd=self.folder,
                                    capture_output=True, timeout=60, check=False)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            self.assertEqual(len(list((self.folder / (name + "-out")).iterdir())), 2)

    def test_names_from_a_file_do_not_steer_the_terminal(self):
        path = self.film("-metadata", "title=a\x1b[31m\nb\u009bc é", "-metadata:s:0", "title=\x1b]0;gone\x07")
        shown = run("probe", "--verbose", path).text
        self.assertIn(r"a\x1B[31m\nb\x9Bc é", shown)
        for text in (shown, run("play", path).text, run("seek", path, "1").text):
            self.assertIn(r"\x1B]0;gone\x07", text)
            self.assertFalse(set(text) & {"\x1b", "\x07", "\x9b"}, text)
        self.assertIn(r"a\x1B.avi: ", run("probe", "a\x1b.avi").complaint)

    def test_content_counts_more_than_the_name_and_a_named_filter_more_than_both(self):
        path = self.copy("film.mp4")
        self.assertEqual(json.loads(run("probe", "--json", path).text)["files"][0]["container"], "AVI")
        self.assertEqual(run("probe", "--filter", "mkv", path).returncode, 2)
        for name in ("avi", "AVI", "Orvane AVI Source Filter", "6ba9dd10-09b9-4c8b-89a8-8ac445601214",
                     "{6BA9DD10-09B9-4C8B-89A8-8AC445601214}"):
            self.assertEqual(run("probe", "--filter", name, path).returncode, 0, name)


class Errors(Temporary):
    def refused(self, *arguments, why):
        result = run(*arguments)
        self.assertEqual(result.returncode, 2, arguments)
        self.assertIn(why, result.complaint)
        self.assertTrue(result.complaint.startswith("vex: "), result.complaint)
        return result

    def test_what_cannot_be_read_is_named_with_its_reason(self):
        missing, pipe = self.folder / "missing.avi", self.folder / "pipe"
        text = self.file("letter.txt", b"Dear reader,\n")
        os.mkfifo(pipe)
        for path, why in ((missing, "No such file"), (self.folder, "directory"), (self.file("empty.avi", b""), "empty"),
                          (text, "format"), (self.copy("cut.avi", 40), ""), (pipe, "not a file")):
            for command in ("probe", "play", "dump"):
                result = self.refused(command, path, why=f"{path}: ")
                self.assertIn(why, result.complaint)
                self.assertEqual(result.text, "", "errors do not go to standard output")
        for command, more in (("probe", []), ("play", []), ("seek", ["1"]), ("extract", ["-o", self.folder])):
            result = self.refused(command, "--json", missing, *more, why="No such file")
            [file] = validated(command, json.loads(result.text))["files"]
            self.assertEqual(file["error"]["file"], str(missing))
            self.assertIn("No such file", file["error"]["message"])
        line = json.loads(self.refused("dump", "--json", missing, why="No such file").text)
        self.assertEqual(validated("dump", line)["error"]["file"], str(missing))

    def test_one_bad_file_does_not_hide_the_good_ones(self):
        result = self.refused("probe", "--json", SAMPLE, self.folder / "missing.avi", SAMPLE, why="missing.avi")
        self.assertEqual(["error" in file for file in json.loads(result.text)["files"]], [False, True, False])

    def test_damage_is_status_one_and_said_beside_what_is_still_good(self):
        cut = self.copy("cut.avi", os.path.getsize(SAMPLE) // 2)
        for command, more in (("play", []), ("dump", []), ("extract", ["-o", self.folder])):
            for form in ([], ["--json"]):
                result = run(command, cut, *more, *form)
                self.assertEqual(result.returncode, 1, command)
                self.assertRegex(result.complaint, rf"^vex: {cut}: damaged: .* at byte \d+\n$", command)
        self.assertGreater(len(run("dump", "--json", cut).text.splitlines()), 10)

    def test_misuse_is_status_two_and_says_how_it_is_used(self):
        for arguments, why in (
                (["bogus"], "bogus"), ([], "COMMAND"), (["--json", "probe", SAMPLE], "options follow"),
                (["probe"], "FILE"), (["probe", "--bogus", SAMPLE], "bogus"), (["seek", SAMPLE], "TIME"),
                (["seek", SAMPLE, "soon"], "soon"), (["probe", ""], "FILE"), (["play", "--seek", "", SAMPLE], "seek"),
                (["seek", "-n", "0", SAMPLE, "1"], "samples"),
                (["dump", "--json", "--csv", SAMPLE], "cannot be combined"), (["play", SAMPLE, SAMPLE], ""),
                (["play", "--preroll", "--no-preroll", SAMPLE], "cannot be combined"),
                (["play", "-k", "--no-preroll", SAMPLE], "no effect"), (["dump", "--pin", "7", SAMPLE], "no pin 7"),
                (["dump", "--pin", "x", SAMPLE], "pin"), (["probe", "--filter", "nonsense", SAMPLE], "nonsense"),
                (["extract", SAMPLE], "--output"), (["extract", "--pin", "0", SAMPLE, "-o", SAMPLE], "is read"),
                (["extract", SAMPLE, "-o", SAMPLE], "directory"),
                (["probe", "--module", "no-such-module.so", SAMPLE], "no-such-module.so")):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.refused(*arguments, why=why).text, "")

    def test_a_full_disk_is_noticed(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        with open("/dev/full", "wb") as full:
            result = subprocess.run([VEX, "dump", SAMPLE], stdout=full, stderr=subprocess.PIPE, timeout=60, check=False)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"vex: standard output: No space left on device\n", result.stderr)
        result = self.refused("extract", "--json", "--pin", "0", SAMPLE, "-o", "/dev/full", why="/dev/full: No space")
        [output] = validated("extract", json.loads(result.text))["files"][0]["outputs"]
        self.assertEqual((output["bytes"], output["error"]["file"]), (0, "/dev/full"))


class Help(unittest.TestCase):
    def test_every_command_has_help_and_version_on_standard_output(self):
        for command in ([], *([c] for c in COMMANDS)):
            shown = run(*command, "--help")
            self.assertEqual((shown.returncode, shown.complaint), (0, ""))
            self.assertIn(" ".join(["vex", *command]), shown.text)
            self.assertEqual("Plays FILE, seeks to each TIME" in shown.text, command == ["seek"],
                             "each tells of itself")
            self.assertTrue(shown.text.endswith("\n"))
            version = run(*command, "--version")
            self.assertEqual((version.returncode, version.text), (0, f"vex {os.environ['VEX_VERSION']}\n"))


if __name__ == "__main__":
    unittest.main()
