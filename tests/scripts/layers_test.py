# SPDX-License-Identifier: Apache-2.0
"""The check of the layers finds what it is there to find."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
LAYERS = """\
# bottom first
floor:  floor/*
core:   core/*
query:  core/Query*
left:   left/*
right:  right/* beside left
roof:   roof/* over core
"""
SOUND = {
    'floor/Turn.hpp': '#include <mutex>\n',
    'core/Reader.hpp': '#include "floor/Turn.hpp"\n',
    'core/Reader.cpp': '#include "core/Reader.hpp"\n',
    'core/QueryExecutor.hpp': '#include "core/Reader.hpp"\n',
    'left/Import.hpp': '#include "core/QueryExecutor.hpp"\n',
    'right/Store.hpp': '#include "floor/Turn.hpp"\n',
    'roof/Host.cpp': '#include "core/Reader.hpp"\n',
}
WRONG = [
    ('upwards', 'floor/Up.hpp', '#include "core/Reader.hpp"',
     'floor/Up.hpp (floor): must not include core/Reader.hpp (core)'),
    ('upwards inside one room', 'core/Reader.cpp', '#include "core/QueryExecutor.hpp"',
     'core/Reader.cpp (core): must not include core/QueryExecutor.hpp (query)'),
    ('from the right to the left', 'right/Store.cpp', '#include "left/Import.hpp"',
     'right/Store.cpp (right): must not include left/Import.hpp (left)'),
    ('from the left to the right', 'left/Import.cpp', '#include "right/Store.hpp"',
     'left/Import.cpp (left): must not include right/Store.hpp (right)'),
    ('over the layer that it stands over', 'roof/Host.hpp', '#include "left/Import.hpp"',
     'roof/Host.hpp (roof): must not include left/Import.hpp (left)'),
    ('in the installed form', 'floor/Up.hpp', '#  include <tolva/core/Reader.hpp>',
     'floor/Up.hpp (floor): must not include core/Reader.hpp (core)'),
    ('by angle brackets', 'floor/Up.hpp', '#include <core/Reader.hpp>',
     'floor/Up.hpp (floor): must not include core/Reader.hpp (core)'),
    ('from the own folder', 'core/Near.cpp', '#include "Reader.hpp"',
     'core/Near.cpp: "Reader.hpp" is no file of TolvaQuickLook/'),
    ('through a parent folder', 'floor/Up.cpp', '#include "../core/Reader.hpp"',
     'floor/Up.cpp: "../core/Reader.hpp" is no file of TolvaQuickLook/'),
    ('by a macro', 'floor/Up.hpp', '#include READER', 'floor/Up.hpp: cannot read: #include READER'),
    ('in a room of no layer', 'cellar/Wine.cpp', '', 'cellar/Wine.cpp: no layer of layers.txt claims it'),
]


class Layers(unittest.TestCase):
    def check(self, sources, layers=LAYERS):
        with tempfile.TemporaryDirectory() as folder:
            tree = pathlib.Path(folder)
            (tree / 'scripts').mkdir()
            (tree / 'scripts' / 'layers.txt').write_text(layers)
            for name, text in sources.items():
                file = tree / 'TolvaQuickLook' / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text + '\n')
            return subprocess.run([sys.executable, TREE / 'scripts' / 'layers', tree], capture_output=True, text=True)

    def test_a_sound_tree_passes_in_silence(self):
        said = self.check(SOUND)
        self.assertEqual((said.returncode, said.stdout, said.stderr), (0, '', ''))

    def test_a_planted_include_fails(self):
        for says, file, include, fault in WRONG:
            with self.subTest(says):
                said = self.check({**SOUND, file: include})
                self.assertEqual((said.returncode, said.stdout), (1, fault + '\n'))

    def test_a_commented_include_is_none(self):
        said = self.check({**SOUND, 'floor/Up.hpp': '// #include "core/Reader.hpp"'})
        self.assertEqual((said.returncode, said.stdout), (0, ''))

    def test_an_empty_tree_fails(self):
        self.assertEqual(self.check({}).returncode, 1)

    def test_a_line_that_is_no_layer_fails(self):
        for line in ('attic', 'attic:', 'attic: attic/* over cellar'):
            with self.subTest(line):
                self.assertEqual(self.check(SOUND, LAYERS + line + '\n').returncode, 1)


if __name__ == '__main__':
    unittest.main()
