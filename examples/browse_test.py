# SPDX-License-Identifier: Apache-2.0
"""The example that browses tells as many rows of real databases as Python's own module, and survives damaged ones.

usage: browse_test.py BROWSE CORPORA
"""
import pathlib
import sqlite3
import subprocess
import sys

BROWSE, CORPORA = sys.argv[1:]


def browse(file, table):
    return subprocess.run([BROWSE, file, table], capture_output=True, timeout=120)


def ask(file, sql):
    connection = sqlite3.connect(f'{file.resolve().as_uri()}?mode=ro', uri=True)
    try:
        return [value for value, in connection.execute(sql)]
    finally:
        connection.close()


def names(file):
    return ask(file, "SELECT name FROM sqlite_schema WHERE type IN ('table', 'view') AND name NOT GLOB 'sqlite_*'")


if not CORPORA:
    print('Real data was not read: configure with -DTOLVA_CORPORA=FOLDER.')
    sys.exit(77)

browsed = 0
for file in sorted(pathlib.Path(CORPORA, 'sqlite-good').iterdir()):
    if file.suffix in ('.md', '.tsv'):
        continue
    for table in names(file):
        count, = ask(file, 'SELECT count(*) FROM "{}"'.format(table.replace('"', '""')))
        done = browse(file, table)
        last = done.stdout.decode().splitlines()[-1:]
        assert (done.returncode, last) == (0, [f'{count} rows']), (file, table, count, done.stderr, last)
        browsed += count
assert browsed > 10_000, browsed

for file in sorted(pathlib.Path(CORPORA, 'sqlite-malformed').glob('*.db')):
    try:
        tables = names(file)
    except sqlite3.Error:
        tables = ['t1']
    for table in tables:
        done = browse(file, table)
        assert done.returncode in (0, 1), (file, table, done)
        assert (done.returncode == 1) == bool(done.stderr), (file, table, done)
print(browsed, 'rows browsed')
