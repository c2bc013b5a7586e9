# SPDX-License-Identifier: Apache-2.0
"""scripts/install-packages asks the package manager for what is missing, once, and for nothing else."""
import os
import pathlib
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
LIST = '# a list\n[run]\nalpha\n\n[build]\nbeta\ngamma\n[check]\ndelta\n'
# Commands that stand in for the system's: each writes down how it was called. "beta" was removed, its settings left.
COMMANDS = {
    'dpkg-query': 'printf "alpha installed\\nbeta config-files\\n"',
    'env': 'echo "env $*" >>"$calls"; while [[ $1 == *=* ]]; do export "$1"; shift; done; exec "$@"',
    'apt-get': 'echo "apt-get $*" >>"$calls"; [[ $* != *update ]]',  # no list can be read, which is no failure
    'sudo': 'echo sudo >>"$calls"; exec "$@"',
}


class InstallPackages(unittest.TestCase):
    def run_it(self, *arguments, packages=LIST, query=None):
        with tempfile.TemporaryDirectory() as folder:
            tree = pathlib.Path(folder) / 'a tree'
            commands = pathlib.Path(folder) / 'bin'
            (tree / 'scripts').mkdir(parents=True)
            commands.mkdir()
            script = tree / 'scripts' / 'install-packages'
            script.write_bytes((TREE / 'scripts' / 'install-packages').read_bytes())
            script.chmod(0o755)
            (tree / 'packages.txt').write_text(packages)
            calls = pathlib.Path(folder) / 'calls'
            calls.touch()
            for name, body in {**COMMANDS, **({'dpkg-query': query} if query else {})}.items():
                command = commands / name
                command.write_text(f'#!/bin/bash\ncalls="{calls}"\n{body}\n')
                command.chmod(0o755)
            said = subprocess.run(['/bin/bash', script, *arguments], capture_output=True, text=True, cwd='/',
                                  env={**os.environ, 'PATH': f'{commands}:{os.environ["PATH"]}'})
            self.assertEqual(said.stdout, '')
            installs = [line for line in calls.read_text().splitlines() if line.startswith('apt-get')]
            return said.returncode, [line.split()[-4:] for line in installs], calls.read_text()

    def test_what_is_missing_is_installed_after_a_fresh_look_at_the_lists(self):
        status, installs, calls = self.run_it('build')
        self.assertEqual(status, 0)
        self.assertEqual(installs[0][-1], 'update')
        self.assertEqual(installs[1][-3:], ['--no-install-recommends', 'beta', 'gamma'])
        self.assertEqual(len(installs), 2)
        self.assertIn('DEBIAN_FRONTEND=noninteractive', calls)
        self.assertIn('--yes', calls)

    def test_the_sections_up_to_the_one_named_count(self):
        for arguments, packages in ((['check'], ['beta', 'gamma', 'delta']), ([], ['beta', 'gamma'])):
            with self.subTest(arguments):
                installs = self.run_it(*arguments)[1]
                self.assertEqual(installs[1][-len(packages):], packages)

    def test_nothing_is_called_where_nothing_is_missing(self):
        self.assertEqual(self.run_it('run'), (0, [], ''))
        everything = 'printf "%s installed\\n" alpha beta gamma delta'
        self.assertEqual(self.run_it('check', query=everything), (0, [], ''))

    def test_a_section_that_is_not_there_is_refused(self):
        self.assertEqual(self.run_it('everything'), (2, [], ''))


if __name__ == '__main__':
    unittest.main()
