# SPDX-License-Identifier: Apache-2.0
"""No example that shows values prints a control character of a database, which a terminal would obey.

usage: terminal_test.py BROWSE CELL QUERY
"""
import pathlib
import sqlite3
import subprocess
import sys
import tempfile

BROWSE, CELL, QUERY = sys.argv[1:]
HOSTILE = 'a\x1b]0;b\x07\r\x7f\x9b31m\x85é\n\t'
SHOWN = 'a␛]0;b␇␍␡\ufffd31m\ufffdé\n\t'

with tempfile.TemporaryDirectory() as folder:
    file = pathlib.Path(folder, 'a.db')
    connection = sqlite3.connect(file)
    with connection:
        connection.execute(f'CREATE TABLE "{HOSTILE}" (id INTEGER PRIMARY KEY, "{HOSTILE}" "{HOSTILE}")')
        connection.execute(f'INSERT INTO "{HOSTILE}" VALUES (1, ?)', [HOSTILE])
    connection.close()
    for status, times, *command in [
            (0, 2, BROWSE, file, HOSTILE),
            (1, 1, BROWSE, file, HOSTILE + '?'),
            (0, 1, CELL, file, HOSTILE, HOSTILE, '1'),
            (1, 1, CELL, file, HOSTILE + '?', HOSTILE, '1'),
            (0, 2, QUERY, file, f'SELECT "{HOSTILE}" FROM "{HOSTILE}"'),
            (1, 1, QUERY, file, f'SELECT * FROM "{HOSTILE}?"')]:
        done = subprocess.run(command, capture_output=True, timeout=60)
        said = (done.stdout + done.stderr).decode()
        assert done.returncode == status, done
        assert said.count(SHOWN) == times, (said, command)
        assert all(c in '\n\t' or not (c < ' ' or '\x7f' <= c < '\xa0') for c in said), (said, command)
print('no control character was printed')
