"""Plants one fault at a time in a small tree and expects scripts/check-layers to name the very line."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(sys.argv.pop(1)).resolve()

SOUND = {
    "platform/types.h": "#pragma once\n#ifdef _WIN32\n#endif\n",
    "io/reader.h": '#include "platform/types.h"\n',
    "dshow/pin.h": '#include "platform/types.h"\n',
    "framework/contract/packet.h": '#include "io/reader.h"\n',
    "framework/filter.h": '#include "dshow/pin.h"\n#include "framework/contract/packet.h"\n',
    "formats/avi/avi_handler.h": '#include "framework/contract/packet.h"\n#include "io/reader.h"\n',
    "formats/avi/avi_filter.h": '#include "framework/filter.h"\n#include "formats/avi/avi_handler.h"\n',
    "formats/mkv/mkv_handler.h": '#include <vector>\n#include "framework/contract/packet.h"\n',
    "module/table.cpp": '#include "formats/avi/avi_filter.h"\n',
    "module/filter_infos.h": "",
    "host/graph.h": '#include "module/filter_infos.h"\n#include "platform/types.h"\n',
}


# What is wrong, the file it is planted in, its text, and the line that has to be named.
FAULTS = [
    ("an include that points up", "platform/files.h", '#pragma once\n#include "io/reader.h"\n', 2),
    ("an include that points up", "io/cache.h", '#include "framework/contract/packet.h"\n', 1),
    ("an include that points up", "media/types.h", '#include "dshow/pin.h"\n', 1),
    ("an include that points up", "framework/queue.h", '#include "module/filter_infos.h"\n', 1),
    ("an include that points aside", "dshow/source.h", '#include "io/reader.h"\n', 1),
    ("a format that includes another", "formats/mkv/mkv_filter.h", '#include "formats/avi/avi_handler.h"\n', 1),
    ("a format that includes another", "formats/mkv/mkv_laces.h", '#include "formats/avi/avi_handler.h"\n', 1),
    ("a read handler that knows pins", "formats/avi/avi_index.h", '#include "framework/filter.h"\n', 1),
    ("a read handler that knows pins", "formats/avi/avi_index.h", '#include "dshow/pin.h"\n', 1),
    ("a read handler that knows pins", "formats/avi/avi_index.h", '#include "formats/avi/avi_filter.h"\n', 1),
    ("a host that reaches past the exports", "host/run.cpp", '#include "formats/avi/avi_filter.h"\n', 1),
    ("a host that reaches past the exports", "host/run.cpp", '#include "framework/filter.h"\n', 1),
    ("conditional compilation", "io/cache.h", "int a;\n  # ifdef _WIN32\n#endif\n", 2),
    ("conditional compilation", "host/run.cpp", "#if 1\n#endif\n", 1),
    ("an include not written from src", "io/cache.h", '#include "reader.h"\n', 1),
    ("an include not written from src", "io/cache.h", '#include "../platform/types.h"\n', 1),
    ("a folder that no layer has", "helpers/strings.h", "", 1),
]


class Layers(unittest.TestCase):
    def problems(self, tree):
        with tempfile.TemporaryDirectory() as top:
            for name, text in tree.items():
                file = pathlib.Path(top, "src", name)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text, encoding="utf-8")
            result = subprocess.run([sys.executable, "-B", CHECK, top], text=True, capture_output=True, check=False)
        lines = result.stdout.splitlines()
        self.assertEqual(result.returncode, 0 if lines == ["layers: sound"] else 1, result.stderr)
        return lines

    def test_every_fault_is_named_with_its_line_and_nothing_else_is(self):
        self.assertEqual(self.problems(SOUND), ["layers: sound"])
        for what, name, text, line in FAULTS:
            with self.subTest(what, name=name, text=text):
                found = self.problems({**SOUND, name: text})
                self.assertEqual([problem.split(": ")[0] for problem in found], [f"src/{name}:{line}"], found)


if __name__ == "__main__":
    unittest.main()
