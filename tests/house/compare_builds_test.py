"""Two commands that differ in one thing each: scripts/compare-builds must name it, and accept what may differ."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

COMPARE = pathlib.Path(sys.argv.pop(1)).resolve()

SAMPLES = [{"pin": 0, "start": 0, "size": 3, "md5": "aa"}, {"pin": 0, "start": 400000, "size": 4, "md5": "bb"}]


def changed(number, **keys):
    return [dict(sample, **keys) if n == number else sample for n, sample in enumerate(SAMPLES)]


class CompareBuilds(unittest.TestCase):
    def compare(self, samples, status=0):
        with tempfile.TemporaryDirectory() as folder:
            commands = []
            for name, lines, code in (("old", SAMPLES, 0), ("new", samples, status)):
                command = pathlib.Path(folder, name)
                text = "\n".join(map(json.dumps, lines))
                command.write_text(f"#!/bin/sh\ncat <<'END'\n{text}\nEND\nexit {code}\n", encoding="utf-8")
                command.chmod(0o755)
                commands.append(command)
            media = pathlib.Path(folder, "film.avi")
            media.touch()
            result = subprocess.run([sys.executable, "-B", COMPARE, *commands, media], text=True, capture_output=True,
                                    check=False)
        self.assertEqual(result.returncode, 1 if "differ" in result.stdout else 0, result.stderr)
        return result.stdout

    def test_what_differs_is_named(self):
        for samples, status, text in (
                (changed(1, md5="cc"), 0, "sample 1 of pin 0: md5 was bb, now cc"),
                (changed(0, start=None), 0, "sample 0 of pin 0: start was 0, now None"),
                ([{"pin": 0, "start": 0, "size": 3}, SAMPLES[1]], 0, "sample 0 has no md5"),
                (SAMPLES[:1], 0, "2 samples, now 1"),
                (SAMPLES[::-1], 0, "sample 0 of pin 0: start"),
                (SAMPLES, 1, "exit status 0, now 1")):
            with self.subTest(text):
                self.assertIn(text, self.compare(samples, status))

    def test_the_same_and_further_keys_pass(self):
        for samples in (SAMPLES, changed(1, more=5)):
            self.assertIn("2 samples: the same", self.compare(samples))


if __name__ == "__main__":
    unittest.main()
