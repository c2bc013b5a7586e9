# SPDX-License-Identifier: Apache-2.0
"""An installation holds what it should, and serves programs that know nothing of this tree.

usage: installation_test.py BUILD_FOLDER [unittest's own arguments]
"""
import os
import pathlib
import re
import shlex
import sqlite3
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = TREE / 'examples' / 'list-tables.cpp'
STRICT = ['-std=c++20', '-Wall', '-Wextra', '-Wpedantic', '-Werror']
PRIVATE = re.compile(r'/(sqlite3\.h|unicode/|boost/|fmt/|sodium)')


def run(*command, **more):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, **more)
    if done.returncode != 0:
        raise AssertionError(f'{shlex.join(map(str, command))}\n{done.stdout}{done.stderr}')
    return done.stdout


class Installation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.build = pathlib.Path(BUILD)
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        # Installed under one name and moved to another, with a blank: nothing in it may know where it was made.
        made, cls.prefix = cls.folder / 'made', cls.folder / 'moved to'
        run('cmake', '--install', cls.build, '--prefix', made)
        made.rename(cls.prefix)
        cls.helpers = 'TOLVA_BUILD_HELPERS:BOOL=ON' in (cls.build / 'CMakeCache.txt').read_text(encoding='utf-8')
        cls.libraries = next(cls.prefix.rglob('libtolva.so')).parent
        cls.database = cls.folder / 'Sales.db'
        connection = sqlite3.connect(cls.database)
        connection.executescript((TREE / 'examples' / 'Sales.sql').read_text(encoding='utf-8'))
        connection.close()

    def installed(self, folder='.'):
        return sorted(path.relative_to(self.prefix).as_posix() for path in (self.prefix / folder).rglob('*')
                      if not path.is_dir())

    def assert_lists_the_tables(self, program):
        said = run(program, self.database, env={**os.environ, 'LD_LIBRARY_PATH': str(self.libraries)})
        self.assertEqual(said, (TREE / 'examples' / 'list-tables.expected').read_text(encoding='utf-8'))

    # What lies where ---------------------------------------------------------------------------

    def test_the_commands_have_their_pages_and_the_library_its_licence(self):
        commands = [path.name for path in (self.prefix / 'bin').iterdir()]
        self.assertIn('tolva-quicklook', commands)
        for command in commands:
            self.assertTrue((self.prefix / 'share/man/man1' / f'{command}.1').is_file(), command)
        for document in ('LICENSE', 'README.md', 'CHANGELOG.md'):
            self.assertEqual((self.prefix / 'share/doc/Tolva' / document).read_bytes(), (TREE / document).read_bytes())

    def test_the_thumbnailer_is_announced_to_file_managers(self):
        thumbnailers = self.installed('share/thumbnailers')
        present = (self.prefix / 'bin/tolva-quicklook-thumbnailer').exists()
        self.assertEqual(thumbnailers, ['share/thumbnailers/tolva-quicklook.thumbnailer'] if present else [])
        if present:
            entry = (self.prefix / thumbnailers[0]).read_text(encoding='utf-8')
            self.assertIn('Exec=tolva-quicklook-thumbnailer %s %i %o\n', entry)

    def test_the_headers_are_the_public_ones(self):
        public = self.build / 'include'
        self.assertEqual([header.removeprefix('include/') for header in self.installed('include')],
                         sorted(path.relative_to(public).as_posix() for path in public.rglob('*.hpp')))

    def test_the_helpers_lie_where_programs_lie_that_nobody_calls(self):
        self.assertEqual(self.installed('libexec'),
                         ['libexec/tolva/tolva-image-helper', 'libexec/tolva/tolva-pdf-helper'] if self.helpers else [])

    # The library ------------------------------------------------------------------------------

    def test_the_library_bears_its_version(self):
        self.assertEqual(os.readlink(self.libraries / 'libtolva.so'), 'libtolva.so.0')
        self.assertIn('Library soname: [libtolva.so.0]', run('readelf', '-dW', self.libraries / 'libtolva.so'))

    def test_the_library_links_no_decoder_of_pictures_or_documents(self):
        needed = re.findall(r'NEEDED.*\[(.*?)\]', run('readelf', '-dW', self.libraries / 'libtolva.so'))
        self.assertIn('libc.so.6', needed)
        self.assertEqual([name for name in needed if re.match('lib(vips|poppler|png|heif|jpeg|seccomp)', name)], [])

    def test_the_library_shows_its_own_names_alone(self):
        table = run('nm', '--dynamic', '--defined-only', '--demangle', '--format=posix', self.libraries / 'libtolva.so')
        names = [re.sub(r' [A-Za-z] [0-9a-f]+( [0-9a-f]+)?$', '', line) for line in table.splitlines()]
        self.assertIn('tolva::DatabaseReader::close()', names)
        own = re.compile(r'(typeinfo for |typeinfo name for |vtable for )?tolva::(?!\(anonymous namespace\))')
        self.assertEqual([name for name in names if not own.match(name)], [])
        self.assertEqual([name for name in names if 'tolva::GuardVFS' in name or 'tolva::PreviewSummary' in name], [])

    def test_what_runs_is_hardened_in_a_release(self):
        cache = (self.build / 'CMakeCache.txt').read_text(encoding='utf-8')
        if 'CMAKE_BUILD_TYPE:STRING=Release' not in cache:
            self.skipTest('this is no release build')
        for file in [self.libraries / 'libtolva.so', *(self.prefix / 'bin').iterdir(), *(self.prefix / 'libexec/tolva').glob('*')]:
            with self.subTest(file.name):
                said = run('readelf', '--wide', '--file-header', '--program-headers', '--dynamic', '--symbols', file)
                self.assertRegex(said, r'Type: +DYN ')
                self.assertRegex(said, r'GNU_RELRO')
                self.assertRegex(said, r'FLAGS_1\).*\bNOW\b')
                self.assertRegex(said, r'GNU_STACK +(0x0+ +)+RW ')
                self.assertIn('__stack_chk_fail', said)

    # Programs that use it ---------------------------------------------------------------------

    def test_each_header_stands_alone_and_needs_no_other_library(self):
        headers = self.installed('include/tolva')
        self.assertGreater(len(headers), 10)
        include = self.prefix / 'include'
        for header in headers:
            with self.subTest(header):
                compiler = ['c++', *STRICT, '-I', include, '-I', include / 'tolva', '-x', 'c++',
                            '-include', header.removeprefix('include/'), '/dev/null']
                run(*compiler, '-fsyntax-only')
                self.assertEqual([line for line in run(*compiler, '-M').split() if PRIVATE.search(line)], [])

    def test_a_program_finds_it_by_cmake(self):
        run('cmake', '-G', 'Ninja', '-S', TREE / 'tests/package/consumer', '-B', self.folder / 'consumer',
            f'-DCMAKE_PREFIX_PATH={self.prefix}', f'-DPROGRAM={PROGRAM}')
        run('cmake', '--build', self.folder / 'consumer')
        self.assert_lists_the_tables(self.folder / 'consumer' / 'list-tables')

    def test_a_program_finds_it_by_pkg_config(self):
        flags = run('pkg-config', '--cflags', '--libs', 'tolva',
                    env={**os.environ, 'PKG_CONFIG_PATH': str(self.libraries / 'pkgconfig')})
        program = self.folder / 'list-tables'
        run('c++', *STRICT, PROGRAM, '-o', program, *shlex.split(flags))
        self.assert_lists_the_tables(program)

    def test_a_program_makes_the_records_of_the_headers(self):
        flags = run('pkg-config', '--cflags', '--libs', 'tolva',
                    env={**os.environ, 'PKG_CONFIG_PATH': str(self.libraries / 'pkgconfig')})
        program = self.folder / 'filter'
        run('c++', *STRICT, TREE / 'tests/package/consumer/filter.cpp', '-o', program, *shlex.split(flags))
        said = run(program, self.database, 'customers', 'city', 'Gra',
                   env={**os.environ, 'LD_LIBRARY_PATH': str(self.libraries)})
        self.assertEqual(said, '40\n')

    def test_the_library_finds_its_helpers_wherever_the_program_lies(self):
        if not self.helpers:
            self.skipTest('this build has no helpers')
        program, picture = self.folder / 'thumbnail', self.folder / 'picture.gif'
        picture.write_bytes(bytes.fromhex('47494638396101000100800000ff0000ffffff2c00000000010001000002024401003b'))
        run('c++', *STRICT, TREE / 'tests/package/thumbnail.cpp', '-o', program, '-I', self.prefix / 'include',
            '-I', self.prefix / 'include/tolva', '-L', self.libraries, '-ltolva', '-Wl,--allow-shlib-undefined')

        def thumbnail(libraries):
            return subprocess.run([program, picture], capture_output=True, cwd='/', check=False,
                                  env={**os.environ, 'LD_LIBRARY_PATH': str(libraries)})
        for libraries in (self.libraries, self.build.resolve()):
            with self.subTest(libraries):
                self.assertEqual(thumbnail(libraries).stdout[:8], b'\x89PNG\r\n\x1a\n')
        helpers, elsewhere = self.prefix / 'libexec/tolva', self.prefix / 'libexec/elsewhere'
        helpers.rename(elsewhere)
        try:
            without = thumbnail(self.libraries)
            self.assertEqual((without.returncode, without.stdout, without.stderr), (1, b'', b''))
        finally:
            elsewhere.rename(helpers)


if __name__ == '__main__':
    BUILD = sys.argv.pop(1)
    unittest.main()
