"""Every filter that can be created has all that docs/adding-a-format.md asks for."""

import json
import os
import pathlib
import subprocess
import sys
import unittest

TOP = pathlib.Path(os.environ["VEX_SOURCE_DIR"])
sys.path.insert(0, str(TOP / "tests" / "support"))
import media_files  # noqa: E402 pylint: disable=wrong-import-position

FILES = ("docs/{0}.md", "fuzz/{0}/CMakeLists.txt", "fuzz/{0}/{0}_handler_seeds.cpp", "tests/{0}/CMakeLists.txt",
         "tests/{0}/media.py", "tests/real/{0}_test.py")


class Formats(unittest.TestCase):
    def test_no_format_lacks_a_test_a_fuzz_target_or_a_page(self):
        said = subprocess.run([os.environ["VEX_BINARY"], "filters", "--json"], capture_output=True, timeout=60,
                              check=True).stdout
        filters = {one["short"] for one in json.loads(said)["filters"] if one["available"]}
        folders = {folder.name for folder in (TOP / "src" / "formats").iterdir()}
        self.assertTrue(filters & folders)
        for name in sorted(filters & folders):
            for file in FILES:
                with self.subTest(file.format(name)):
                    self.assertTrue((TOP / file.format(name)).is_file())

    def test_every_format_has_a_small_and_a_large_file(self):
        for name, one in media_files.formats().items():
            with self.subTest(name):
                self.assertTrue(one.extension and one.large and one.small)
                self.assertTrue(all(pathlib.Path(file).suffix for file in one.small))


if __name__ == "__main__":
    unittest.main()
