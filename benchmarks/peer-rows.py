# SPDX-License-Identifier: Apache-2.0
"""The peer of read-rows: the same rows fetched through Python's own SQLite module."""
import sqlite3
import sys
import time

cursor = sqlite3.connect(f"file:{sys.argv[1]}?mode=ro", uri=True).cursor()
rows = columns = 0
began = time.perf_counter_ns()
for row in cursor.execute("SELECT * FROM records"):
    rows += 1
    columns = len(row)
print(time.perf_counter_ns() - began, f"{rows} rows of {columns} columns")
