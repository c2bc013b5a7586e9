# SPDX-License-Identifier: Apache-2.0
"""The peer of edit-1000: the same guarded UPDATEs through Python's own SQLite module, which keeps them prepared."""
import os
import shutil
import sqlite3
import sys
import time

shutil.copyfile(sys.argv[1], sys.argv[2])
reader = sqlite3.connect(sys.argv[2])
rows = reader.execute(
    "SELECT id, quantity, note FROM records WHERE id % ((SELECT max(id) FROM records) / 1000) = 0 ORDER BY id LIMIT 1000"
).fetchall()
reader.close()
changes = []
for place, (identity, quantity, note) in enumerate(rows):
    if place % 2 == 0:
        changes.append(("quantity", quantity + 1, identity, quantity))
    else:
        changes.append(("note", f"edited by a person at {place}", identity, note))

database = sqlite3.connect(sys.argv[2], isolation_level=None)
database.execute("PRAGMA foreign_keys = ON")
began = time.perf_counter_ns()
results = []
database.execute("BEGIN IMMEDIATE")
for column, *values in changes:
    sql = f'UPDATE "records" SET "{column}" = ? WHERE "id" IS ? AND "{column}" IS ? RETURNING "id"'
    returned = database.execute(sql, values).fetchall()
    if len(returned) != 1:
        sys.exit("a row is stale")
    results.append((returned[0], column, values[0]))
database.execute("COMMIT")
print(time.perf_counter_ns() - began, f"{len(results)} changes")
database.close()
os.remove(sys.argv[2])
