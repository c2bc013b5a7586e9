#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The shell's own import of FILE into a new database in FOLDER: peer-import.sh new|existing FILE FOLDER
set -e
database="$3/peer-import.db"
rm -f "$database"
if [ "$1" = new ]; then
  sqlite3 -batch -init /dev/null "$database" ".import --csv '$2' t"
else
  sqlite3 -batch -init /dev/null "$database" \
    "CREATE TABLE t(id INTEGER, quantity INTEGER, price REAL, code TEXT, note TEXT, day TEXT, description TEXT, digest TEXT)" \
    ".import --csv --skip 1 '$2' t"
fi
sqlite3 -batch -init /dev/null "$database" "SELECT '{\"rows\":' || max(rowid) || '}' FROM t"
rm "$database"
