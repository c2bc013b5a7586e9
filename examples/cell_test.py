# SPDX-License-Identifier: Apache-2.0
"""The example that shows a cell shows what somebody else would see in it, and survives whatever a cell can hold.

usage: cell_test.py CELL CORPORA
"""
import pathlib
import sqlite3
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

CELL, CORPORA = sys.argv[1:]
PNG_HEAD = b'\x89PNG\r\n\x1a\n'


def chunk(kind, body):
    return struct.pack('>I', len(body)) + kind + body + struct.pack('>I', zlib.crc32(kind + body))


def png(width, height, rows=None):
    """A red picture of that size, or one that only claims it."""
    header = struct.pack('>IIBBBBB', width, height, 8, 2, 0, 0, 0)
    pixels = zlib.compress((b'\0' + b'\xff\0\0' * width) * (height if rows is None else rows))
    return PNG_HEAD + chunk(b'IHDR', header) + chunk(b'IDAT', pixels) + chunk(b'IEND', b'')


def size(picture):
    return struct.unpack('>II', picture.read_bytes()[16:24])


class Cell(unittest.TestCase):
    def setUp(self):
        held = tempfile.TemporaryDirectory()
        self.addCleanup(held.cleanup)
        self.folder = pathlib.Path(held.name)
        self.file = self.folder / 'cells.db'

    def store(self, values):
        connection = sqlite3.connect(self.file)
        with connection:
            connection.execute('CREATE TABLE t(id INTEGER PRIMARY KEY, a)')
            connection.executemany('INSERT INTO t(a) VALUES (?)', [(value,) for value in values])
        connection.close()

    def show(self, row, *picture):
        done = subprocess.run([CELL, self.file, 't', 'a', str(row), *picture], capture_output=True, timeout=60)
        return done.returncode, done.stdout.decode('utf-8'), done.stderr.decode('utf-8')

    def test_writes_a_picture_where_it_is_asked_to(self):
        self.store([png(30, 20), png(2000, 500), png(20_000, 100, rows=0)])
        status, said, errors = self.show(1, self.folder / 'small.png')
        self.assertEqual((status, errors), (0, ''))
        self.assertTrue(said.endswith('\n== Picture\nsmall.png\n'), said)
        self.assertEqual(size(self.folder / 'small.png'), (30, 20))
        self.assertEqual(self.show(2, self.folder / 'wide.png')[0], 0)
        self.assertEqual(size(self.folder / 'wide.png'), (1024, 256))
        self.assertEqual(self.show(3, self.folder / 'bomb.png')[0], 0)
        self.assertFalse((self.folder / 'bomb.png').exists())

    def test_writes_nothing_that_was_not_asked_for(self):
        self.store([png(30, 20)])
        for _ in range(2):
            status, said, errors = self.show(1)
            self.assertEqual((status, errors), (0, ''))
            self.assertNotIn('== Picture', said)
        self.assertEqual([file.name for file in self.folder.iterdir()], ['cells.db'])

    def test_touches_no_picture_that_is_there(self):
        self.store([png(3, 2)])
        (self.folder / 'old.png').write_text('old')
        status, _, errors = self.show(1, self.folder / 'old.png')
        self.assertEqual(status, 1)
        self.assertIn('existing files are never overwritten', errors)
        self.assertEqual((self.folder / 'old.png').read_text(), 'old')

    def test_shows_the_head_of_a_large_value_and_none_of_a_huge_one(self):
        self.store(['x' * 1_048_577, bytes(8_388_609)])
        status, said, _ = self.show(1)
        self.assertEqual(status, 0)
        self.assertTrue(said.startswith('text, 1048577 bytes, of which the first 1048576 are shown\n'))
        self.assertEqual(self.show(2)[::2], (
            1, 'This value exceeds the safe cell-preview limit. Use table export for its full contents.\n'))

    @unittest.skipUnless(CORPORA, 'Real data was not read: configure with -DTOLVA_CORPORA=FOLDER.')
    def test_survives_real_and_damaged_files_of_all_kinds(self):
        files = [file for kind in ('png-suite', 'image-good', 'image-exif', 'pdf-qpdf', 'plist')
                 for file in sorted(pathlib.Path(CORPORA, kind).rglob('*')) if file.is_file()]
        damaged = {file.name for file in files if file.name.startswith('x')}  # on purpose
        self.store([file.read_bytes() for file in files])
        pictures = 0
        for row, file in enumerate(files, 1):
            picture = self.folder / f'{row}.png'
            status, said, errors = self.show(row, picture)
            self.assertEqual((status, errors), (0, ''), file)
            self.assertIn(f'{file.stat().st_size} bytes', said, file)
            if picture.exists():
                pictures += 1
                self.assertEqual(picture.read_bytes()[:8], PNG_HEAD, file)
                self.assertLessEqual(max(size(picture)), 1024, file)
            if file.parent.name == 'png-suite' and file.suffix == '.png':
                self.assertEqual(picture.exists(), file.name not in damaged, file)
        self.assertGreater(pictures, 200)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1])
