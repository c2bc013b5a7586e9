# SPDX-License-Identifier: Apache-2.0
"""The example that converts: what it exports other readers read, what it imports is what was exported, and a row that
is refused leaves all as it was.

usage: convert_test.py CONVERT
"""
import csv
import json
import pathlib
import sqlite3
import subprocess
import sys
import tempfile

CONVERT = sys.argv[1]
ROWS = 200_000


def convert(*arguments, status=0):
    done = subprocess.run([CONVERT, *map(str, arguments)], capture_output=True, timeout=300)
    assert done.returncode == status, done
    return (done.stderr if status else done.stdout).decode()


def rows(file, sql):
    connection = sqlite3.connect(file)
    try:
        return connection.execute(sql).fetchall()
    finally:
        connection.close()


def makeDatabase(file, script):
    connection = sqlite3.connect(file)
    connection.executescript(script)
    connection.close()


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    source, target = folder / 'source.db', folder / 'target.db'
    makeDatabase(source, f"""
        CREATE TABLE t(id INTEGER, name TEXT, price REAL);
        WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < {ROWS})
        INSERT INTO t SELECT i, 'name "' || i || '", ' || char(10) || 'é', i + 0.5 FROM n;""")
    makeDatabase(target, 'CREATE TABLE filled(price REAL, name TEXT, id INTEGER PRIMARY KEY);')
    expected = rows(source, 'SELECT * FROM t')

    for kind in ('csv', 'json', 'sql'):
        shown = convert('export', source, 't', folder / f't.{kind}')
        assert shown.startswith('\r500 rows\r1000 rows\r') and shown.endswith(f'\r{ROWS} rows\n'), shown[-100:]
    with (folder / 't.csv').open(newline='', encoding='utf-8') as file:
        assert list(csv.reader(file)) == [['id', 'name', 'price'], *([str(value) for value in row] for row in expected)]
    assert [tuple(row.values()) for row in json.loads((folder / 't.json').read_text())] == expected
    makeDatabase(folder / 'again.db', 'BEGIN;' + (folder / 't.sql').read_text() + 'COMMIT;')
    assert rows(folder / 'again.db', 'SELECT * FROM t') == expected

    (folder / 'few.csv').write_text('id,name,price\n1,a,1.5\n')
    convert('import', folder / 'few.csv', target, 'few')
    for table in ('new', 'filled'):
        shown = convert('import', folder / 't.csv', target, table)
        assert shown.startswith('\r500 rows\r1000 rows\r') and shown.endswith(f'\r{ROWS} rows\n'), shown[-100:]
        assert rows(target, f'SELECT id, name, price FROM {table}') == expected
    assert rows(target, "SELECT sql FROM sqlite_schema WHERE name = 'new'") == [
        ('CREATE TABLE "new" ("id" INTEGER,"name" TEXT,"price" REAL)',)]

    said = convert('import', folder / 't.csv', target, 'filled', status=1)
    assert said == ('That change violates a database constraint. CSV row 1: UNIQUE constraint failed: filled.id\n'), said
    assert rows(target, 'SELECT count(*) FROM filled') == [(ROWS,)]
    (folder / 'short.tsv').write_text('a\tb\n1\t2\n3\n')
    assert convert('import', folder / 'short.tsv', target, 'short', status=1) == \
        'CSV row has an unexpected number of fields.\n'
    assert 'absent.csv' in convert('import', folder / 'absent.csv', target, 'absent', status=1)
    assert convert('export', source, 'absent', folder / 'absent.csv', status=1) == 'There is no table absent\n'
    assert [file.name for file in folder.iterdir() if file.name.startswith('.')] == []
print(ROWS, 'rows out and in three ways')
