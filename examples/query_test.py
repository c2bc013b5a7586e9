# SPDX-License-Identifier: Apache-2.0
"""The example that runs SQL pages through a million rows in little memory, asks before a script that drops or changes
rows, and leaves a restorable backup of what a script drops, and at most five of them.

usage: query_test.py QUERY
"""
import os
import pathlib
import resource
import sqlite3
import subprocess
import sys
import tempfile

QUERY = sys.argv[1]
MILLION = 'WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000000) '


def query(file, sql, answer=''):
    return subprocess.run([QUERY, file, sql], input=answer.encode(), capture_output=True, timeout=300)


def rows(file, sql):
    connection = sqlite3.connect(file)
    try:
        return connection.execute(sql).fetchall()
    finally:
        connection.close()


with tempfile.TemporaryDirectory() as folder:
    os.environ['TMPDIR'] = folder
    file = pathlib.Path(folder, 'a.db')
    connection = sqlite3.connect(file)
    connection.execute('CREATE TABLE t AS ' + MILLION + 'SELECT i, i % 7 AS a FROM n')
    connection.commit()
    connection.close()

    # A child's peak as the kernel counts it begins with the memory of this process, so the output goes to a file.
    output = pathlib.Path(folder, 'output')
    with output.open('wb') as shown:
        subprocess.run([QUERY, file, 'SELECT i, a FROM t'], stdout=shown, check=True, timeout=300)
    memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    linked = subprocess.run(['ldd', QUERY], capture_output=True, text=True).stdout
    if 'libasan' not in linked and 'libtsan' not in linked:  # which have memory of their own
        assert memory < 60_000, f'{memory} KiB for pages of two columns'
    lines = output.read_text().splitlines()
    assert (lines[:2], lines[-2:]) == (['i\ta', '1\t1'], ['1000000\t1', '1000000 rows, 0 changed'])
    assert len(lines) == 1_000_002

    done = query(file, 'SELECT 1; DELETE FROM t RETURNING i', 'no\n')
    assert rows(file, 'SELECT count(*) FROM t') == [(1_000_000,)], done
    done = query(file, 'SELECT 1; DELETE FROM t RETURNING i', 'yes\n')
    assert done.stdout.decode().splitlines()[-1] == '1000000 rows, 1000000 changed', done.stderr
    assert rows(file, 'SELECT count(*) FROM t') == [(0,)]
    query(file, "INSERT INTO t VALUES (7, 'kept')", 'y\n')
    for run in range(6):
        done = query(file, 'DROP TABLE t; CREATE TABLE t(i, a)', 'y\n')
        assert done.returncode == 0, done.stderr
        if run == 0:
            backup, = pathlib.Path(f'{file}-backups').iterdir()
            assert rows(backup, 'SELECT * FROM t') == [(7, 'kept')]
    assert len(list(pathlib.Path(f'{file}-backups').iterdir())) == 5

    spools = pathlib.Path(folder, f'tolva-{os.geteuid()}')
    assert list(spools.iterdir()) == [], 'a spool was left behind'

    # What the system refuses is told, and nothing has changed.
    other = pathlib.Path(folder, 'b.db')
    connection = sqlite3.connect(other)
    connection.execute('CREATE TABLE t AS SELECT 1 AS i')
    connection.commit()
    connection.close()
    pathlib.Path(f'{other}-backups').write_text('in the way')
    done = query(other, 'DROP TABLE t', 'y\n')
    assert done.returncode == 1 and b'b.db-backups' in done.stderr, done
    os.environ['TMPDIR'] = str(pathlib.Path(folder, 'absent'))
    done = query(other, 'DELETE FROM t RETURNING i', 'y\n')
    assert done.returncode == 1 and b'unable to open database file' in done.stderr, done
    assert rows(other, 'SELECT i FROM t') == [(1,)]
print('a million rows paged, a million deleted,', memory, 'KiB')
