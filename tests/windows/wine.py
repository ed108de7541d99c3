"""A Wine prefix of its own and the programs in it."""

import os
import signal
import subprocess
import tempfile
from pathlib import Path

from formats import Failure, must_succeed, require


class Wine:
    """Everything lies in C:\\vex, as on a user's machine. Several threads may run programs at the same time."""

    def __init__(self, command, bits, directory, timeout):
        self.command = command
        self.timeout = timeout
        self.prefix = directory / f"prefix{bits}"
        self.drive = self.prefix / "drive_c" / "vex"
        self.environment = {
            **{key: value for key, value in os.environ.items()
               if not key.startswith("WINE") and not key.lower().endswith("_proxy")
               and key not in ("DISPLAY", "WAYLAND_DISPLAY")},
            "WINEPREFIX": str(self.prefix), "WINEDEBUG": "-all", "WINEARCH": f"win{bits}", "LC_ALL": "C.UTF-8",
            # No questions about what a prefix may lack, no entries in the desktop's menus.
            "WINEDLLOVERRIDES": "mscoree,mshtml=;winemenubuilder.exe=d",
        }
        self.server_log = directory / f"wineserver{bits}.log"
        self.prefix.mkdir()
        # The server is started by itself and stays: one that a program starts has the program's output open, and
        # whoever reads that waits for it. The 300 s are for a run that cannot end it.
        require(self.server("-p300") == 0, "the Wine server does not start")
        must_succeed(self.run_command("wineboot", "--init", timeout=600), "setting up the prefix")
        # There is no sound card to look for.
        self.run_command("reg", "add", r"HKCU\Software\Wine\Drivers", "/v", "Audio", "/d", "", "/f")
        self.drive.mkdir()

    def start(self, *words, output, errors, directory=None, environment=None, wrapper=(),
              stdin=subprocess.DEVNULL):
        return subprocess.Popen([*wrapper, self.command, *map(str, words)], cwd=directory or self.drive,
                                env={**self.environment, **(environment or {})},
                                stdin=stdin, stdout=output, stderr=errors, start_new_session=True)

    def run(self, program, *arguments, directory=None, timeout=None, environment=None):
        return self.run_command(str(program), *arguments, directory=directory, timeout=timeout, environment=environment)

    def run_command(self, *words, directory=None, timeout=None, environment=None):
        """The finished process; its output as bytes, its peak of memory in bytes as `peak`."""
        directory = directory or (self.drive if self.drive.exists() else self.prefix.parent)
        timeout = timeout or self.timeout
        with (tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors,
              tempfile.NamedTemporaryFile("r") as peak):
            # A process that Python starts itself begins with Python's own peak.
            process = self.start(*words, output=output, errors=errors, directory=directory, environment=environment,
                                 wrapper=("time", "-q", "-f", "%M", "-o", peak.name))
            try:
                process.wait(timeout)
            except subprocess.TimeoutExpired:
                end(process)
                process.wait()
                raise Failure(f"hangs: {' '.join(map(str, words))} was ended after {timeout} s") from None
            output.seek(0)
            errors.seek(0)
            finished = subprocess.CompletedProcess(words, process.returncode, output.read(), errors.read())
            finished.peak = int(peak.read().split()[-1]) * 1024
        return finished

    def server(self, option):
        """A file takes what the server says: nobody waits for its end, as the reader of a pipe would."""
        server = Path(self.command).with_name("wineserver")
        with open(self.server_log, "ab") as log:
            return subprocess.run([str(server), option], env=self.environment, timeout=60, check=False,
                                  stdin=subprocess.DEVNULL, stdout=log, stderr=log).returncode

    def server_said(self):
        """The last of what the server said so far; when it crashes, it says so and nobody else does."""
        return self.server_log.read_text("utf-8", "replace").strip()[-3000:]

    def end_server(self):
        """Ends every process of this prefix, and only of this one."""
        self.server("-k")


def end(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
