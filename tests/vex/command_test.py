"""The command as a person or a script meets it: results, errors, exit statuses and the schemas of its JSON."""

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


class Results(Temporary):
    def test_every_json_document_keeps_to_its_schema(self):
        for arguments in (["filters"], ["probe", SAMPLE], ["probe", SAMPLE, "no-such-file"], ["play", SAMPLE],
                          ["play", "no-such-file"], ["seek", SAMPLE, "1", "0:02", "0"],
                          ["extract", SAMPLE, "-o", self.folder / "out"], ["extract", "no-such-file", "-o", "x"]):
            with self.subTest(arguments=arguments):
                document = validated(arguments[0], json.loads(run(*arguments, "--json").text))
                self.assertEqual(document["schema"], 1)

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

    def test_dump_lines_have_exactly_the_keys_that_are_promised(self):
        result = run("dump", "--json", SAMPLE)
        self.assertEqual(result.returncode, 0)
        lines = [json.loads(line) for line in result.text.splitlines()]
        for line in lines:
            self.assertEqual(list(validated("dump", line)), DUMP_KEYS)
        pins = [line["pin"] for line in lines]
        self.assertEqual(pins, sorted(pins), "samples are grouped by pin")
        self.assertEqual(set(pins), {0, 1})

    def test_dump_says_the_same_every_time_and_in_every_form(self):
        text = run("dump", "--json", SAMPLE).text
        for _ in range(5):
            self.assertEqual(run("dump", "--json", SAMPLE).text, text)
        csv = run("dump", "--csv", SAMPLE).text.splitlines()
        self.assertEqual(csv[0].split(","), DUMP_KEYS)
        lines = [json.loads(line) for line in text.splitlines()]
        as_csv = [",".join("" if v is None else str(int(v)) if isinstance(v, (bool, int)) else v for v in line.values())
                  for line in lines]
        self.assertEqual(csv[1:], as_csv)
        people = run("dump", SAMPLE).text.splitlines()
        self.assertEqual([line.split()[-1] for line in people[1:]], [line["md5"] for line in lines])

    def test_one_pin_alone_delivers_what_it_delivers_beside_the_others(self):
        lines = run("dump", "--json", SAMPLE).text.splitlines(keepends=True)
        alone = run("dump", "--json", "--pin", "1", SAMPLE).text
        self.assertEqual(alone, "".join(line for line in lines if line.startswith('{"pin":1')))

    def test_play_counts_what_dump_lists(self):
        [file] = json.loads(run("play", "--json", SAMPLE).text)["files"]
        lines = [json.loads(line) for line in run("dump", "--json", SAMPLE).text.splitlines()]
        for pin in file["pins"]:
            mine = [line for line in lines if line["pin"] == pin["index"]]
            self.assertEqual((pin["samples"], pin["bytes"]), (len(mine), sum(line["size"] for line in mine)))
            self.assertTrue(pin["ended"])
        self.assertEqual(file["damage"]["places"], 0)

    def test_seek_tells_what_a_player_gets_from_there(self):
        result = run("seek", "--json", "-n", "2", SAMPLE, "2.5", "0", "3000ms")
        self.assertEqual(result.returncode, 0, result.complaint)
        [file] = json.loads(result.text)["files"]
        self.assertEqual([seek["requested"] for seek in file["seeks"]], [25000000, 0, 30000000])
        for seek in file["seeks"]:
            for pin in seek["pins"]:
                first, second = pin["samples"]
                self.assertTrue(first["discontinuity"] and first["sync"])
                self.assertFalse(second["discontinuity"])

    def test_seek_says_the_same_however_fast_the_pins_play_on(self):
        asked = ["seek", "--json", SAMPLE, "1", "3.9"]
        self.assertEqual({run(*asked).text for _ in range(20)}, {run(*asked).text})
        [file] = json.loads(run("seek", "--json", "-n", "1000", SAMPLE, "1").text)["files"]
        self.assertEqual([pin["ended"] for pin in file["seeks"][0]["pins"]], [True, True])

    def test_a_pin_without_samples_shows_none_of_the_seek_before(self):
        line = self.file("line.srt", b"1\n00:00:00,000 --> 00:00:00,500\nfirst\n")
        path = self.folder / "film.mkv"
        subprocess.run(["ffmpeg", "-v", "error", "-i", SAMPLE, "-i", line, "-c", "copy", path], check=True, timeout=60)
        [file] = json.loads(run("seek", "--json", path, "0", "3").text)["files"]
        subtitles = [seek["pins"][-1] for seek in file["seeks"]]
        self.assertEqual([(len(pin["samples"]), pin["ended"]) for pin in subtitles], [(1, True), (0, True)])

    def test_extract_writes_the_payloads_that_dump_measured(self):
        lines = [json.loads(line) for line in run("dump", "--json", SAMPLE).text.splitlines()]
        result = run("extract", "--json", SAMPLE, "-o", self.folder / "new" / "folder")
        self.assertEqual(result.returncode, 0, result.complaint)
        [file] = json.loads(result.text)["files"]
        for output in file["outputs"]:
            size = sum(line["size"] for line in lines if line["pin"] == output["pin"])
            self.assertEqual(pathlib.Path(output["path"]).stat().st_size, size)
        one = subprocess.run([VEX, "extract", "--pin", "1", SAMPLE], capture_output=True, timeout=60, check=True)
        self.assertEqual(one.stdout, pathlib.Path(file["outputs"][1]["path"]).read_bytes())
        self.assertEqual(one.stderr, b"")

    def test_a_name_beyond_ascii_is_opened_and_shown(self):
        path = self.file("Füße 映画.avi", pathlib.Path(SAMPLE).read_bytes())
        result = run("probe", "--json", path)
        self.assertEqual((result.returncode, json.loads(result.text)["files"][0]["file"]), (0, str(path)))

    def test_names_from_a_file_do_not_steer_the_terminal(self):
        path = self.folder / "film.mkv"
        subprocess.run(["ffmpeg", "-v", "error", "-i", SAMPLE, "-c", "copy", "-metadata", "title=a\x1b[31m\nb\u009bc é",
                        "-metadata:s:0", "title=\x1b]0;gone\x07", path], check=True, timeout=60)
        shown = run("probe", path).text
        self.assertIn(r"a\x1B[31m\nb\x9Bc é", shown)
        for text in (shown, run("play", path).text, run("seek", path, "1").text):
            self.assertIn(r"\x1B]0;gone\x07", text)
            self.assertFalse(set(text) & {"\x1b", "\x07", "\x9b"}, text)

    def test_content_counts_more_than_the_name_and_a_named_filter_more_than_both(self):
        path = self.file("film.mp4", pathlib.Path(SAMPLE).read_bytes())
        self.assertEqual(json.loads(run("probe", "--json", path).text)["files"][0]["container"], "AVI")
        self.assertEqual(run("probe", "--filter", "mkv", path).returncode, 2)
        for name in ("avi", "AVI", "Orvane AVI Source Filter", "6ba9dd10-09b9-4c8b-89a8-8ac445601214",
                     "{6BA9DD10-09B9-4C8B-89A8-8AC445601214}"):
            self.assertEqual(run("probe", "--filter", name, path).returncode, 0, name)

    def test_a_file_behind_a_dash_is_a_file(self):
        (self.folder / "-f.avi").write_bytes(pathlib.Path(SAMPLE).read_bytes())
        result = subprocess.run([VEX, "probe", "--", "-f.avi"], cwd=self.folder, capture_output=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)


class Errors(Temporary):
    def refused(self, *arguments, why):
        result = run(*arguments)
        self.assertEqual(result.returncode, 2, arguments)
        self.assertIn(why, result.complaint)
        self.assertTrue(result.complaint.startswith("vex: "), result.complaint)
        return result

    def test_what_cannot_be_read_is_named_with_its_reason(self):
        empty = self.file("empty.avi", b"")
        text = self.file("letter.txt", b"Dear reader,\n")
        cut = self.file("cut.avi", pathlib.Path(SAMPLE).read_bytes()[:40])
        for command in ("probe", "play", "dump"):
            for path, why in ((self.folder / "missing.avi", "No such file"), (self.folder, "directory"), (empty, "empty"),
                              (text, "format"), (cut, "")):
                with self.subTest(command=command, path=path):
                    result = self.refused(command, path, why=f"{path}: ")
                    self.assertIn(why, result.complaint)
                    self.assertEqual(result.text, "", "errors do not go to standard output")

    def test_an_error_in_json_is_an_object_that_says_as_much(self):
        missing = str(self.folder / "missing.avi")
        for command, more in (("probe", []), ("play", []), ("seek", ["1"]), ("extract", ["-o", self.folder])):
            result = self.refused(command, "--json", missing, *more, why="No such file")
            [file] = validated(command, json.loads(result.text))["files"]
            self.assertEqual(file["error"]["file"], missing)
            self.assertIn("No such file", file["error"]["message"])
        line = json.loads(self.refused("dump", "--json", missing, why="No such file").text)
        self.assertEqual(validated("dump", line)["error"]["file"], missing)

    def test_one_bad_file_does_not_hide_the_good_ones(self):
        result = self.refused("probe", "--json", SAMPLE, self.folder / "missing.avi", SAMPLE, why="missing.avi")
        self.assertEqual(["error" in file for file in json.loads(result.text)["files"]], [False, True, False])

    def test_damage_is_status_one_with_the_samples_that_are_still_good(self):
        sample = pathlib.Path(SAMPLE).read_bytes()
        cut = self.file("cut.avi", sample[:len(sample) // 2])
        result = run("dump", "--json", cut)
        self.assertEqual(result.returncode, 1, result.complaint)
        self.assertGreater(len(result.text.splitlines()), 10)

    def test_misuse_is_status_two_and_says_how_it_is_used(self):
        for arguments, why in ((["bogus"], "bogus"), ([], "command"), (["probe"], "FILE"), (["probe", "--bogus", SAMPLE], "bogus"),
                               (["seek", SAMPLE], "TIME"), (["seek", SAMPLE, "soon"], "soon"),
                               (["dump", "--json", "--csv", SAMPLE], "exclude"), (["play", SAMPLE, SAMPLE], ""),
                               (["dump", "--pin", "7", SAMPLE], "no pin 7"), (["dump", "--pin", "x", SAMPLE], "pin"),
                               (["probe", "--filter", "nonsense", SAMPLE], "nonsense"),
                               (["extract", SAMPLE], "--output"), (["extract", "--pin", "0", SAMPLE, "-o", SAMPLE], "is read"),
                               (["probe", "--module", "no-such-module.so", SAMPLE], "no-such-module.so")):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.refused(*arguments, why=why).text, "")

    def test_a_full_disk_is_noticed(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        with open("/dev/full", "wb") as full:
            result = subprocess.run([VEX, "dump", SAMPLE], stdout=full, stderr=subprocess.PIPE, timeout=60, check=False)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"standard output", result.stderr)


class Help(unittest.TestCase):
    def test_every_command_has_help_and_version_on_standard_output(self):
        for command in ([], *([c] for c in COMMANDS)):
            shown = run(*command, "--help")
            self.assertEqual((shown.returncode, shown.complaint), (0, ""))
            self.assertIn(" ".join(["vex", *command]), shown.text)
            self.assertTrue(shown.text.endswith("\n"))
            version = run(*command, "--version")
            self.assertEqual((version.returncode, version.text), (0, f"vex {os.environ['VEX_VERSION']}\n"))


if __name__ == "__main__":
    unittest.main()
