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
    "framework/media/packet.h": '#include "io/reader.h"\n',
    "framework/filter.h": '#include "dshow/pin.h"\n#include "framework/media/packet.h"\n',
    "formats/avi/avi_handler.h": '#include "framework/media/packet.h"\n#include "io/reader.h"\n',
    "formats/avi/avi_filter.h": '#include "framework/filter.h"\n#include "formats/avi/avi_handler.h"\n',
    "formats/mkv/mkv_handler.h": '#include <vector>\n#include "framework/media/packet.h"\n',
    "module/table.cpp": '#include "formats/avi/avi_filter.h"\n',
    "module/class_ids.h": "",
    "host/graph.h": '#include "module/class_ids.h"\n#include "platform/types.h"\n',
}


class Layers(unittest.TestCase):
    def problems(self, **extra):
        tree = {**SOUND, **{name: text for name, text in extra.values()}}
        with tempfile.TemporaryDirectory() as top:
            for name, text in tree.items():
                file = pathlib.Path(top, "src", name)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text, encoding="utf-8")
            result = subprocess.run([sys.executable, "-B", CHECK, top], text=True, capture_output=True, check=False)
        lines = result.stdout.splitlines()
        self.assertEqual(result.returncode, 0 if lines == ["layers: sound"] else 1, result.stderr)
        return lines

    def expect(self, name, text, line):
        found = self.problems(fault=(name, text))
        self.assertEqual([p.split(": ")[0] for p in found], [f"src/{name}:{line}"], found)

    def test_a_sound_tree_passes(self):
        self.assertEqual(self.problems(), ["layers: sound"])

    def test_an_include_that_points_up(self):
        self.expect("platform/files.h", '#pragma once\n#include "io/reader.h"\n', 2)
        self.expect("io/cache.h", '#include "framework/media/packet.h"\n', 1)
        self.expect("framework/media/types.h", '#include "dshow/pin.h"\n', 1)
        self.expect("framework/queue.h", '#include "module/class_ids.h"\n', 1)
        self.expect("dshow/source.h", '#include "io/reader.h"\n', 1)

    def test_one_format_that_includes_another(self):
        self.expect("formats/mkv/mkv_filter.h", '#include "formats/avi/avi_handler.h"\n', 1)
        self.expect("formats/mkv/mkv_laces.h", '#include "formats/avi/avi_handler.h"\n', 1)

    def test_a_read_handler_that_knows_pins(self):
        self.expect("formats/avi/avi_index.h", '#include "framework/filter.h"\n', 1)
        self.expect("formats/avi/avi_index.h", '#include "dshow/pin.h"\n', 1)
        self.expect("formats/avi/avi_index.h", '#include "formats/avi/avi_filter.h"\n', 1)

    def test_a_host_that_reaches_past_the_exports(self):
        self.expect("host/run.cpp", '#include "formats/avi/avi_filter.h"\n', 1)
        self.expect("host/run.cpp", '#include "framework/filter.h"\n', 1)

    def test_conditional_compilation_outside_the_platform(self):
        self.expect("io/cache.h", "int a;\n  # ifdef _WIN32\n#endif\n", 2)
        self.expect("host/run.cpp", "#if 1\n#endif\n", 1)

    def test_an_include_that_is_not_written_from_src(self):
        self.expect("io/cache.h", '#include "reader.h"\n', 1)
        self.expect("io/cache.h", '#include "../platform/types.h"\n', 1)

    def test_a_folder_that_no_layer_has(self):
        self.expect("helpers/strings.h", "", 1)


if __name__ == "__main__":
    unittest.main()
