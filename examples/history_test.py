# SPDX-License-Identifier: Apache-2.0
"""The example of the history: what it takes while another process commits, what it lists, compares, refuses and marks.

usage: history_test.py HISTORY [CORPORA]
"""
import os
import pathlib
import shutil
import sqlite3
import subprocess
import sys
import tempfile

HISTORY = sys.argv[1]
CORPORA = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 and sys.argv[2] else None

# Moves money between two rows, so that every committed state has the same sum, until its standard input ends.
MOVER = """
import sqlite3, sys, threading, time
connection = sqlite3.connect(sys.argv[1], timeout=60, isolation_level=None)
ended = threading.Event()
threading.Thread(target=lambda: (sys.stdin.read(), ended.set()), daemon=True).start()
moves = 0
while not ended.is_set():
    connection.executescript('BEGIN IMMEDIATE; UPDATE money SET amount = amount - 1 WHERE id = 1;'
                             'UPDATE money SET amount = amount + 1 WHERE id = 900; COMMIT')
    moves += 1
    time.sleep(0.005)
    if moves == 10:
        print('moving', flush=True)
connection.close()
"""


def history(file, *arguments, status=0):
    done = subprocess.run([HISTORY, file, *arguments], capture_output=True, timeout=120)
    assert done.returncode == status, done
    return (done.stderr if status else done.stdout).decode()


def identifiers(file):
    return [line.split('\t')[0] for line in history(file, 'list').splitlines()]


def change(file, script):
    connection = sqlite3.connect(file)
    connection.executescript(script)
    connection.close()


def takeSnapshot(file, tries=30):
    """Tries again, as a person would, when the writer leaves no moment for the first look at the file."""
    done = subprocess.run([HISTORY, file, 'snapshot'], capture_output=True, timeout=120)
    if done.returncode == 1 and b'database is locked' in done.stderr and tries:
        return takeSnapshot(file, tries - 1)
    assert done.returncode == 0, done


def snapshotWhileMoneyMoves(file, mode):
    change(file, f"""
        PRAGMA journal_mode = {mode};
        CREATE TABLE money(id INTEGER PRIMARY KEY, amount INTEGER, note TEXT);
        WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 900)
        INSERT INTO money SELECT i, 1000, hex(zeroblob(400)) FROM n;""")
    mover = subprocess.Popen([sys.executable, '-c', MOVER, file], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert mover.stdout.readline() == b'moving\n'
    for _ in range(3):
        takeSnapshot(file)
    mover.communicate(timeout=60)
    copies = list(pathlib.Path(os.environ['XDG_DATA_HOME']).rglob('database.sqlite'))
    assert len(copies) == 3, copies
    for copy in copies:
        assert {path.name for path in copy.parent.iterdir()} == {'database.sqlite', 'metadata.json'}
        connection = sqlite3.connect(f'file:{copy}?mode=ro', uri=True)
        assert connection.execute('PRAGMA integrity_check').fetchall() == [('ok',)]
        assert connection.execute('SELECT sum(amount) FROM money').fetchall() == [(900_000,)]
        connection.close()


def historyOf(file):
    change(file, """
        CREATE TABLE items(id INTEGER PRIMARY KEY, name TEXT, price REAL);
        INSERT INTO items VALUES (1, 'pear', 1.5), (2, 'plum', 2.5), (3, 'fig', 3.5);
        CREATE TABLE loose(a); CREATE TABLE gone(a);""")
    assert history(file, 'list') == ''
    assert history(file, 'changed', status=1) == 'There is no mark yet: history FILE mark\n'
    assert history(file, 'snapshot', '  first  ').endswith('\tfirst\n')
    assert history(file, 'mark').endswith('\tWhat Changed baseline\n')
    change(file, """
        INSERT INTO items VALUES (4, 'a "b"' || char(10), NULL);
        UPDATE items SET name = 'Plum', price = 2.75 WHERE id = 2; DELETE FROM items WHERE id = 3;
        DROP TABLE gone;""")
    changes = '''table gone: Removed. Schema object removed; rows not compared.
table items: 1 inserted, 1 updated, 1 deleted
  Inserted id=INTEGER 4
    id: - → INTEGER 4
    name: - → TEXT "a \\\\"b\\\\"\\\\n"
    price: - → NULL
  Updated id=INTEGER 2
    name: TEXT "plum" → TEXT "Plum"
    price: REAL 2.5 → REAL 2.75
  Deleted id=INTEGER 3
    id: INTEGER 3 → -
    name: TEXT "fig" → -
    price: REAL 3.5 → -
table loose: Not compared. No declared primary key. Rowid/fingerprint matching could misidentify changed rows.
1 tables compared, 1 of them changed; 2 not compared; 1 changes of the schema
'''.replace('\\\\', '\\')
    assert history(file, 'changed') == changes, history(file, 'changed')
    now, baseline, first = identifiers(file)[-3:]
    assert history(file, 'compare', first, now) == changes
    assert history(file, 'compare', now, now, status=1) == 'Choose two different snapshots.\n'
    assert history(file, 'compare', first, 'none', status=1) == 'There is no snapshot none\n'
    assert history(file, 'delete', baseline, status=1) == 'This is the What Changed baseline. Clear or replace the ' \
        'baseline in What Changed before deleting it.\n'
    assert history(file, 'rename', first, 'the first').endswith('\tthe first\n')
    history(file, 'mark')
    history(file, 'delete', baseline)
    assert baseline not in identifiers(file) and first in identifiers(file)
    assert history(file, 'changed') == \
        'table loose: Not compared. No declared primary key. Rowid/fingerprint matching could misidentify changed ' \
        'rows.\n1 tables compared, 0 of them changed; 1 not compared; 0 changes of the schema\n'
    assert 'absent.db' in history(file.with_name('absent.db'), 'list', status=1)
    assert history(file, 'forget', status=1).startswith('usage: ')


def realHistory(folder):
    """Two states of a real database against plain SQL."""
    file = folder / 'Chinook.db'
    shutil.copy(CORPORA / 'sqlite-good' / 'Chinook_Sqlite.sqlite', file)
    file.chmod(0o600)
    history(file, 'snapshot', 'before')
    change(file, """
        UPDATE Track SET UnitPrice = 1.29 WHERE GenreId = 2; DELETE FROM PlaylistTrack WHERE PlaylistId = 3;
        INSERT INTO Artist SELECT ArtistId + 1000, Name FROM Artist WHERE ArtistId <= 25;
        UPDATE Customer SET Email = upper(Email) WHERE CustomerId % 2 = 0;""")
    history(file, 'snapshot', 'after')
    after, before = identifiers(file)
    shown = [line for line in history(file, 'compare', before, after).splitlines() if not line.startswith(' ')]
    with sqlite3.connect(CORPORA / 'sqlite-good' / 'Chinook_Sqlite.sqlite') as connection:
        count = lambda sql: connection.execute(f'SELECT count(*) FROM {sql}').fetchone()[0]
        tracks = count('Track WHERE GenreId = 2 AND UnitPrice IS NOT 1.29')
        listed = count('PlaylistTrack WHERE PlaylistId = 3')
        customers = count('Customer WHERE CustomerId % 2 = 0 AND upper(Email) IS NOT Email')
        tables = count("sqlite_schema WHERE type = 'table' AND name NOT GLOB 'sqlite_*'")
    assert tracks and listed and customers
    assert shown == [f'table Artist: 25 inserted, 0 updated, 0 deleted',
                     f'table Customer: 0 inserted, {customers} updated, 0 deleted',
                     f'table PlaylistTrack: 0 inserted, 0 updated, {listed} deleted',
                     f'table Track: 0 inserted, {tracks} updated, 0 deleted',
                     f'{tables} tables compared, 4 of them changed; 0 not compared; 0 changes of the schema'], shown


for test in [lambda folder: snapshotWhileMoneyMoves(folder / 'a.db', 'WAL'),
             lambda folder: snapshotWhileMoneyMoves(folder / 'a.db', 'DELETE'),
             lambda folder: historyOf(folder / 'a.db'), *([realHistory] if CORPORA else [])]:
    with tempfile.TemporaryDirectory() as name:
        os.environ['XDG_DATA_HOME'] = str(pathlib.Path(name, 'data'))
        test(pathlib.Path(name))
if not CORPORA:
    print('SKIPPED: the two states of real data, which is not given')
print('snapshots taken, compared and marked')
