"""The manual page and the completions: well-formed, and complete against the command's own help."""

import os
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

VEX = os.environ["VEX_BINARY"]
COMMANDS = ["filters", "probe", "play", "dump", "seek", "extract"]


def output(*arguments, **keywords):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=True, **keywords).stdout


def generated(kind):
    return output(VEX, "--generate", kind)


def options_in_help(command):
    return set(re.findall(r"--[a-z][a-z-]+",
                          output(VEX, command, "--help").split("Options:")[1].split("Exit status")[0]))


class Generated(unittest.TestCase):
    def test_bash_completes_every_command_and_option_and_files_of_any_name(self):
        script = generated("bash")

        def offered(*words):
            line = " ".join(map(shlex.quote, words))
            return output("bash", "-c", f'{script}\nCOMP_WORDS=(vex {line}); COMP_CWORD={len(words)}; _vex\n'
                          'printf "%s\\n" "${COMPREPLY[@]}"').splitlines()

        for command in COMMANDS:
            self.assertLessEqual(options_in_help(command), set(offered(command, "--")), command)
        self.assertEqual(set(offered("p")), {"probe", "play"})
        self.assertLessEqual({"mkv", "mp4", "mpeg"}, set(offered("probe", "--filter", "m")))
        self.assertEqual(offered("extract", "--pin", ""), [""], "a number is nobody's to complete")
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "two words.avi")
            open(path, "w", encoding="utf-8").close()
            for before in ("probe", "extract -o"):
                self.assertEqual(offered(*before.split(), folder + "/two"), [path])

    def test_zsh_and_fish_parse_where_the_shells_are(self):
        for kind in ("zsh", "fish"):
            script = generated(kind)
            for command in COMMANDS:
                for option in options_in_help(command) - {"--help", "--version"}:
                    self.assertIn(option if kind == "zsh" else f"-l {option[2:]}", script)
            if shutil.which(kind):
                subprocess.run([kind, "-n", "/dev/stdin"], input=script, text=True, check=True, timeout=60)

    def test_the_manual_page_formats_without_warnings(self):
        page = generated("man")
        for command in COMMANDS:
            self.assertIn(f'.SS "vex {command}', page)
            for option in options_in_help(command):
                self.assertIn(option.replace("-", "\\-"), page)
        if shutil.which("groff"):
            result = subprocess.run(["groff", "-man", "-Tutf8", "-ww"], input=page, capture_output=True, text=True,
                                    timeout=60, check=True)
            self.assertEqual(result.stderr, "")

    def test_an_unknown_kind_is_refused(self):
        self.assertEqual(subprocess.run([VEX, "--generate", "csh"], capture_output=True, timeout=60,
                                        check=False).returncode, 2)


if __name__ == "__main__":
    unittest.main()
