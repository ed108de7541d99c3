"""The command with a URL in place of a file."""

import json
import os
import pathlib
import pty
import re
import resource
import signal
import subprocess
import sys
import tempfile
import unittest

import jsonschema

SOURCES = pathlib.Path(os.environ["VEX_SOURCE_DIR"])
sys.path.insert(0, str(SOURCES / "tests" / "support"))
import odd_server  # noqa: E402  (found through the line above)

VEX = os.environ["VEX_BINARY"]
CLIENT = os.environ["VEX_PROGRAM_DOWNLOAD_CLIENT"]
SCHEMAS = SOURCES / "tools" / "vex" / "schema"


def usual_signals():
    """A shell may have started the test with some of them ignored."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGPIPE):
        signal.signal(number, signal.SIG_DFL)


class Urls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="vex-url-")
        cls.addClassCleanup(folder.cleanup)
        cls.film = pathlib.Path(folder.name) / "film.mp4"
        subprocess.run([CLIENT, "make", cls.film], check=True, timeout=60)

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vex-url-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.temp = self.folder / "temp"
        self.temp.mkdir()
        self.environment = {**{key: value for key, value in os.environ.items() if not key.lower().endswith("_proxy")},
                            "TMPDIR": str(self.temp)}
        self.server = self.enterContext(odd_server.OddServer(self.film.read_bytes()))

    def start(self, *arguments, **more):
        return subprocess.Popen([VEX, *map(str, arguments)], env=self.environment, stdout=subprocess.PIPE,
                                cwd=self.folder, preexec_fn=more.pop("preexec", usual_signals),
                                **{"stderr": subprocess.PIPE, **more})

    def run_vex(self, *arguments, **more):
        process = self.start(*arguments, **more)
        output, errors = process.communicate(timeout=120)
        self.assertEqual(os.listdir(self.temp), [], "a file is left behind")
        return process.returncode, output.decode("latin-1"), errors.decode("utf-8")

    @staticmethod
    def validated(command, output):
        document = json.loads(output)
        jsonschema.Draft7Validator(json.loads((SCHEMAS / f"{command}.json").read_text())).validate(document)
        return document

    def test_every_command_says_the_same_as_of_the_file(self):
        with odd_server.FileServer(self.film.parent) as base:
            url = base + self.film.name
            for words in (("probe",), ("probe", "--verbose"), ("probe", "--json"), ("play", "--hash"),
                          ("dump", "--csv"), ("seek", "1", "0.3"), ("seek", "--json", "1"), ("extract", "--pin", "1"),
                          ("play", "--seek", "1")):
                command, *options = words
                status, output, errors = self.run_vex(command, url, *options)
                expected = self.run_vex(command, self.film, *options)
                self.assertEqual((status, output.replace(url, str(self.film)), errors), expected, words)
            status, output, _ = self.run_vex("extract", url + "?session=../../x", "-o", "streams", "--json")
            self.assertEqual(status, 0)
            self.assertEqual(sorted(os.listdir(self.folder / "streams")), ["film_0.bin", "film_1.pcm"])
            self.assertNotIn("incomplete", self.validated("extract", output)["files"][0])

    def test_what_did_not_arrive_is_status_2_in_the_words_of_the_server(self):
        for path, why in (("gone", "the server answered 404 Not Found"), ("broken", "500 Internal Server Error"),
                          ("round", "redirects"), ("nothing", "the download failed: "), ("empty", "an empty file"),
                          ("cut-early", "the file did not arrive whole: "), ("page", "")):
            url = self.server.url + path
            for command in (["probe"], ["play", "--json"], ["dump"], ["extract", "-o", "x"], ["seek", "--json"]):
                status, output, errors = self.run_vex(command[0], url, *(["1"] if command[0] == "seek" else []),
                                                      *command[1:])
                self.assertEqual(status, 2, errors)
                self.assertTrue(errors.startswith(f"vex: {url}: ") and why in errors and errors.count("\n") == 1,
                                errors)
                if "--json" in command:
                    self.assertIn(why, json.loads(output)["files"][0]["error"]["message"])
        status, _, errors = self.run_vex("probe", "--filter", "avi", self.server.url)
        self.assertEqual((status, "only be opened with the filter 'mp4'" in errors), (2, True), errors)

    def test_a_file_that_broke_off_plays_and_is_status_1(self):
        for path in ("cut", "reset"):
            status, output, errors = self.run_vex("probe", self.server.url + path)
            self.assertEqual((status, output.count("\n")), (1, 3))
            self.assertIn("the file did not arrive whole: ", errors)
            for command in (["probe"], ["play"], ["seek", "0"], ["extract", "-o", "x"]):
                _, output, _ = self.run_vex(command[0], self.server.url + path, *command[1:], "--json")
                self.assertIn("not arrive whole", self.validated(command[0], output)["files"][0]["incomplete"])

    def test_a_full_disk_is_said(self):
        def small_files():
            usual_signals()
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (11000, 11000))

        status, _, errors = self.run_vex("play", self.server.url + "length", preexec=small_files)
        self.assertEqual((status, "the file did not arrive whole: File too large" in errors), (1, True), errors)

    def until_progress(self, *arguments, **more):
        """The process with what its terminal showed until half of the film had arrived."""
        ours, theirs = pty.openpty()
        self.addCleanup(os.close, ours)
        process = self.start(*arguments, stderr=theirs, **more)
        os.close(theirs)
        shown = b""
        while not re.search(rb"50 %", shown):
            shown += os.read(ours, 1000)
        return process, shown, ours

    def test_a_terminal_shows_bytes_percent_and_speed_and_the_line_goes(self):
        process, shown, terminal = self.until_progress("probe", self.server.url + "held")
        self.assertRegex(shown.decode("utf-8"),
                         r"\r\[#{15}\.{15}\]  50 %  0\.0 of 0\.0 MB  \d+\.\d MB/s\x1B\[K")
        self.server.go_on.set()
        output, _ = process.communicate(timeout=120)
        try:
            while chunk := os.read(terminal, 1000):
                shown += chunk
        except OSError:
            pass  # the terminal is closed
        self.assertTrue(shown.endswith(b"\r\x1B[K"), shown)
        self.assertEqual((process.returncode, output.count(b"\n")), (0, 3))

    def test_a_request_to_end_leaves_no_file_and_says_nothing_more(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process, _, _ = self.until_progress("probe", self.server.url + "stalled", self.server.url + "stalled")
            self.assertEqual(len(os.listdir(self.temp)), 1)
            process.send_signal(number)
            output, _ = process.communicate(timeout=120)
            self.assertEqual((process.returncode, output, os.listdir(self.temp)), (-number, b"", []))

    def test_a_pipe_that_nobody_reads_any_more_leaves_no_file(self):
        for words in (("dump",), ("extract", "--pin", "1"), ("play",), ("extract", "-o", "x", "--json")):
            with self.start(words[0], self.server.url + "held", *words[1:]) as process:
                process.stdout.close()
                self.server.go_on.set()
                errors = process.stderr.read()
            self.assertEqual((process.returncode, errors, os.listdir(self.temp)), (-signal.SIGPIPE, b"", []), words)


if __name__ == "__main__":
    unittest.main()
