# SPDX-License-Identifier: Apache-2.0
"""The peer of the questions about pages by key: the same statement through Python's own SQLite module."""
import sqlite3
import sys
import time

connection = sqlite3.connect(f"file:{sys.argv[1]}?mode=ro", uri=True)
SQL = (
    "SELECT id, quantity, reference, price, ratio, code, name, note, id FROM records WHERE id > ? ORDER BY id LIMIT ?"
)
rows = 0
for page in range(40):
    if page == 20:
        began = time.perf_counter_ns()  # the first half only warms up
    rows += len(connection.execute(SQL, (int(sys.argv[2]), 500)).fetchall())
print(time.perf_counter_ns() - began, f"{rows} rows")
